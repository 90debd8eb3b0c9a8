#include "tc/usb/linux/LsusbRoad.h"

void AddLsusbDevice(DeviceSet&, const std::string&) {
    // Not written yet: the device class of this road (newUSBDevice) comes
    // later. Until then a block adds nothing to the set.
}
