#include "tc/usb/linux/LsusbRoad.h"

#include <memory>

#include "tc/usb/linux/Discovery.h"
#include "tc/usb/linux/newUSBDevice.h"

void AddLsusbDevice(DeviceSet& devices, std::string block) {
    std::unique_ptr<newUSBDevice> device(new newUSBDevice(std::move(block)));
    // The set owns the device from here on; one whose name is taken goes.
    if (InsertDevice(devices, device.get())) device.release();
}
