#include "tc/usb/linux/usbxml.h"

namespace usbxml {
const char* const numUSBdrives = "numUSBdrives";
const char* const userPrompt = "userPrompt";
const char* const UsbPortTest = "UsbPortTest";
const char* const filewritecomparetest = "FileWriteCompareTest";
const char* const numberdevices = "numberdevices";
const char* const usbTesterDisableTest = "usbTesterDisableTest";
const char* const usbTesterEnableTest = "usbTesterEnableTest";
const char* const usbLoopbackTest = "usbLoopbackTest";
const char* const TotalUSB20Ports = "Total Number of USB 2.0 Ports";
const char* const TotalUSB11Ports = "Total Number of USB 1.1 Ports";
const char* const DeviceType = "DeviceType";
const char* const DeviceConnected = "DeviceConnected";
const char* const HubNumber = "HubNumber";
const char* const PortTotal = "PortTotal";
const char* const portNum = "portNum";
const char* const HubNum = "HubNum";
const char* const SpeedInfo = "SpeedInfo";
const char* const HubNumPort = "HubNumPort";
const char* const HubDeviceRemovable = "HubDeviceRemovable";
const char* const HubCharacteristic = "HubCharacteristic";
const char* const HubTypeInfo = "HubTypeInfo";
const char* const SerialNumber = "SerialNumber";
const char* const TypeInfo = "TypeInfo";
const char* const numIF = "numIF";
const char* const maxPower = "maxPower";
const char* const numEP = "numEP";
const char* const protocol = "protocol";
const char* const addr = "addr";
const char* const attr = "attr";
const char* const intv = "intv";
const char* const numIsRq = "numIsRq";
const char* const numIRq = "numIRq";
const char* const percent = "percent";
const char* const total = "total";
const char* const allocated = "allocated";
const char* const usbportcheck = "PortChk";
const char* const usbDeviceID = "DeviceID";
const char* const usbVendorID = "VendorID";
const char* const usbPortnum = "usbPortnum";
const char* const usbCtrlnum = "usbCtrlnum";
const char* const usbTesterCtl = "usbTesterCtl";
const char* const usbLoopback = "usbLoopback";
const char* const usbDevice = "usbDevice";
const char* const speedTest = "speedTest";
const char* const descTest = "descTest";
const char* const USB = "USB";
const char* const rootHubTest = "rootHubTest";
}  // namespace usbxml

const char* const lsusbKeywords[lsusbKeywordCount] = {
    "Bus",
    "Device",
    "ID",
    "Device Descriptor:",
    "bLength",
    "bDescriptorType",
    "bcdUSB",
    "bDeviceClass",
    "bDeviceSubClass",
    "bDeviceProtocol",
    "bMaxPacketSize0",
    "idVendor",
    "idProduct",
    "bcdDevice",
    "iManufacturer",
    "iSerial",
    "bNumConfigurations",
    "Configuration Descriptor:",
    "wTotalLength",
    "bNumInterfaces",
    "bConfigurationValue",
    "iConfiguration",
    "bmAttributes",
    "Self Powered",
    "MaxPower",
    "Interface Descriptor:",
    "bInterfaceNumber",
    "bAlternateSetting",
    "bNumEndpoints",
    "bInterfaceClass",
    "bInterfaceSubClass",
    "bInterfaceProtocol",
    "iInterface",
    "Endpoint Descriptor:",
    "bEndpointAddress",
    "Transfer Type",
    "Synch Type",
    "Usage Type",
    "wMaxPacketSize",
    "bInterval",
    "Hub Descriptor:",
    "nNbrPorts",
    "wHubCharacteristic",
    "bPwrOn2PwrGood",
    "bHubContrCurrent",
    "DeviceRemovable",
    "PortPwrCtrlMask",
    "Hub Port Status:",
    "Port",
    "Device Status:",
    "HID Device Descriptor:",
    "bcdHID",
    "bCountryCode",
    "bNumDescriptors",
    "wDescriptorLength",
    "Report Descriptors:",
    "iProduct",
};
