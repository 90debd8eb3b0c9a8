#include "tc/usb/linux/LsusbRoad.h"

#include <memory>

#include "tc/usb/linux/newUSBDevice.h"

void AddLsusbDevice(DeviceSet& devices, const std::string& block) {
    std::unique_ptr<newUSBDevice> device(new newUSBDevice(block));
    // The set owns the device from here on; one whose name is taken goes.
    if (devices.insert(device.get()).second) device.release();
}
