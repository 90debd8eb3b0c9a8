// The USB vocabulary: the names the component publishes in XML (usbxml::)
// and the marker words of the lines of `lsusb -v` output.
#pragma once

#include <cstddef>

namespace usbxml {
extern const char* const numUSBdrives;
extern const char* const userPrompt;
extern const char* const UsbPortTest;
extern const char* const filewritecomparetest;
extern const char* const numberdevices;
extern const char* const usbTesterDisableTest;
extern const char* const usbTesterEnableTest;
extern const char* const usbLoopbackTest;
extern const char* const TotalUSB20Ports;
extern const char* const TotalUSB11Ports;
extern const char* const DeviceType;
extern const char* const DeviceConnected;
extern const char* const HubNumber;
extern const char* const PortTotal;
extern const char* const portNum;
extern const char* const HubNum;
extern const char* const SpeedInfo;
extern const char* const HubNumPort;
extern const char* const HubDeviceRemovable;
extern const char* const HubCharacteristic;
extern const char* const HubTypeInfo;
extern const char* const SerialNumber;
extern const char* const TypeInfo;
extern const char* const numIF;
extern const char* const maxPower;
extern const char* const numEP;
extern const char* const protocol;
extern const char* const addr;
extern const char* const attr;
extern const char* const intv;
extern const char* const numIsRq;
extern const char* const numIRq;
extern const char* const percent;
extern const char* const total;
extern const char* const allocated;
extern const char* const usbportcheck;
extern const char* const usbDeviceID;
extern const char* const usbVendorID;
extern const char* const usbPortnum;
extern const char* const usbCtrlnum;
extern const char* const usbTesterCtl;
extern const char* const usbLoopback;
extern const char* const usbDevice;
extern const char* const speedTest;
extern const char* const descTest;
extern const char* const USB;
extern const char* const rootHubTest;
}  // namespace usbxml

// Positions in lsusbKeywords, in the order the words appear in `lsusb -v`
// output. Every reader of that text uses this one list.
enum LsusbKeyword {
    // first line of a device
    kwBus,
    kwDevice,
    kwID,
    // device descriptor
    kwDeviceDescriptor,
    kwbLength,
    kwbDescriptorType,
    kwbcdUSB,
    kwbDeviceClass,
    kwbDeviceSubClass,
    kwbDeviceProtocol,
    kwbMaxPacketSize0,
    kwidVendor,
    kwidProduct,
    kwbcdDevice,
    kwiManufacturer,
    kwiSerial,
    kwbNumConfigurations,
    // configuration descriptor
    kwConfigurationDescriptor,
    kwwTotalLength,
    kwbNumInterfaces,
    kwbConfigurationValue,
    kwiConfiguration,
    kwbmAttributes,
    kwSelfPowered,
    kwMaxPower,
    // interface descriptor
    kwInterfaceDescriptor,
    kwbInterfaceNumber,
    kwbAlternateSetting,
    kwbNumEndpoints,
    kwbInterfaceClass,
    kwbInterfaceSubClass,
    kwbInterfaceProtocol,
    kwiInterface,
    // endpoint descriptor
    kwEndpointDescriptor,
    kwbEndpointAddress,
    kwTransferType,
    kwSynchType,
    kwUsageType,
    kwwMaxPacketSize,
    kwbInterval,
    // hub descriptor
    kwHubDescriptor,
    kwnNbrPorts,
    kwwHubCharacteristic,
    kwbPwrOn2PwrGood,
    kwbHubContrCurrent,
    kwDeviceRemovable,
    kwPortPwrCtrlMask,
    // port and device status
    kwHubPortStatus,
    kwPort,
    kwDeviceStatus,
    // HID descriptor
    kwHIDDeviceDescriptor,
    kwbcdHID,
    kwbCountryCode,
    kwbNumDescriptors,
    kwwDescriptorLength,
    kwReportDescriptors,
    kwiProduct,
    lsusbKeywordCount
};

extern const char* const lsusbKeywords[lsusbKeywordCount];
