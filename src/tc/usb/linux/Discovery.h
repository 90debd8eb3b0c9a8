// USB discovery: the one entry (FindUSBControllers) and its two roads. With
// the kernel's devices file readable, the file is parsed into a USBnode tree
// and USBDeviceAdder makes a USBDevice for each node (and, in factory mode,
// each port); otherwise the text of `lsusb -v` is cut into one block per
// device and each block becomes a device of the lsusb road.
#pragma once

#include <string>
#include <vector>

#include "tc/framework/Device.h"

class USBInfoReader;
class USBnode;

// Adds a device for every USB thing found; adds, never empties.
void FindUSBControllers(DeviceSet& devices);
// The devices-file road; always 0. Nothing is added when the text cannot be
// read.
int ParseWithProcBusUsbDevices(USBInfoReader& reader, DeviceSet& devices);
// The lsusb road; always 0.
int ParseWithLsusbDevices(USBInfoReader& reader, DeviceSet& devices);
// Lines of the reader's text that hold "Bus", "Device" and "ID".
int getNumberOfUSBDevices(USBInfoReader& reader);
// The reader's text cut into reformatted device blocks, each from its first
// line through its "Device Status:" line.
std::vector<std::string> getVecDeviceInfo(USBInfoReader& reader);

// Inserts a device whose name sorts behind those already there in constant
// time (discovery names its devices in rising order), any other in the
// set's usual time; false when the name is taken.
bool InsertDevice(DeviceSet& devices, Device* device);

class USBDeviceAdder {
public:
    USBnode* root = nullptr;  // the tree's root; placeholder of empty ports

    // By mode: factory or field.
    void AddDevice(DeviceSet* devices, USBnode* node, bool isController);
    // One device per node, depth first.
    void AddDeviceInField(DeviceSet* devices, USBnode* node, bool isController);
    // The node, then one entry per port, then each external hub as a
    // controller of its own.
    void AddDeviceInFactory(DeviceSet* devices, USBnode* node, bool isController);
    void AddAttachedDevice(DeviceSet* devices, USBnode* node);
    // The hub as the occupant of its parent's port, on a node of its own.
    void AddExternalHubDevice(DeviceSet* devices, USBnode* node);
};
