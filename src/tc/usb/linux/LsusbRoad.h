// The lsusb road's step from one device's block of `lsusb -v` text to a
// device in the set.
#pragma once

#include <string>

#include "tc/framework/Device.h"

// Makes the device for one block (reformatted lines from its first line
// through "Device Status:") and inserts it into `devices`.
void AddLsusbDevice(DeviceSet& devices, std::string block);
