#include "tc/usb/linux/devices/newUSBDevice.h"

#include <cstring>

#include "common/StringTokenizer.h"
#include "common/StringUtil.h"
#include "common/Translate.h"
#include "common/TvkError.h"
#include "common/xmldef.h"
#include "platform/HostServices.h"
#include "tc/usb/linux/devices/RootHubProbe.h"
#include "tc/usb/linux/readers/USBInfoReader.h"
#include "tc/usb/linux/usbtests/LoopbackTest.h"
#include "tc/usb/linux/usbtests/RootHubTest.h"
#include "tc/usb/linux/usbtests/filewtcmptest.h"
#include "tc/usb/linux/usbxml.h"

int32_t newUSBDevice::index = 0;
const char* const newUSBDevice::ALPHABET = "abcdefghijklmnopqrstvuwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
bool newUSBDevice::bDeviceDescriptor = false;
bool newUSBDevice::bConfigurationDescriptor = false;
bool newUSBDevice::bInterfaceDescriptor = false;
bool newUSBDevice::bEndpointDescriptor = false;
bool newUSBDevice::bHubDescriptor = false;
bool newUSBDevice::bHidDeviceDescriptor = false;

namespace {

// What follows a stored value's number (or the number alone). Stored values
// begin with a blank; the number is the first word, not an empty one in
// front of that blank.
std::string MoreIn(const std::string& value) {
    const std::string::size_type first = value.find_first_not_of(' ');
    return USBInfoReader::extractMoreIn(first == std::string::npos ? std::string() : value.substr(first));
}

// A one-character name that is no letter is a bare string index: the device
// has no such string.
bool IsBareIndex(const std::string& name) {
    return name.size() == 1 && std::strchr(newUSBDevice::ALPHABET, name[0]) == nullptr;
}

// A name from the string descriptor, else from the number's words, else the
// fallback text.
std::string NameOf(const std::string& stringValue, const std::string& idValue, const char* unknown) {
    std::string name = MoreIn(stringValue);
    if (!IsBareIndex(name)) return name;
    name = MoreIn(idValue);
    return name.size() < 2 ? Translate(unknown) : name;
}

}  // namespace

newUSBDevice::newUSBDevice() = default;

newUSBDevice::newUSBDevice(std::string text) : Device(usbxml::usbDevice, true), deviceInfo(std::move(text)) {}

newUSBDevice::newUSBDevice(const newUSBDevice& other) : Device(other), deviceInfo(other.deviceInfo) {}

newUSBDevice::~newUSBDevice() { delete devicesNode; }

void newUSBDevice::ReadAndWrite(ptstream& stream, direction dir, unsigned int) {
    Device::ReadAndWrite(stream, dir, 0);
    if (dir == ptRead) {
        iptstream& in = static_cast<iptstream&>(stream);
        delete devicesNode;
        devicesNode = nullptr;
        in.ReadOwned(devicesNode);
        int32_t stored = 0;
        in >> stored;
        index = stored;
    } else {
        optstream& out = static_cast<optstream&>(stream);
        out << static_cast<const Persistent*>(devicesNode);
        out << static_cast<int32_t>(index);
    }
}

void newUSBDevice::CopyFromPointer(const Persistent* other) { PersistentCopyFrom(this, other); }

const char* newUSBDevice::GetClassName() const { return usbxml::usbDevice; }

bool newUSBDevice::checkRootHub() {
    const int handle = OpenHandle();
    if (handle == -1) return false;
    CloseHandle(handle);
    return true;
}

void newUSBDevice::DoID(XmlObject& xml, bool forCatalogue) {
    xml.SetAttribute(xmldef::category, Translate("Communication") + "|" + Translate("USB Controller"));
    processDeviceInfo();
    if (forCatalogue)
        catalog(xml);
    else
        id(xml);
}

void newUSBDevice::catalog(XmlObject& xml) {
    xml.SetAttribute(xmldef::caption, Translate("USB Device"));
    xml.SetAttribute(xmldef::description, Translate("USB Device"));
    AddTestAndId(new FileWriteCompareTest(this), xml);
}

void newUSBDevice::id(XmlObject& xml) {
    if (!devicesNode) throw TvkError("Device General Failure", "", "");
    const USBDevicesNode& node = *devicesNode;

    ++index;
    const std::string caption = Translate("USB Device") + " " + std::to_string(index);
    const std::string product = NameOf(node.iProduct, node.idProduct, "Unknown product name");
    const std::string manufacturer = NameOf(node.iManufacturer, node.idVendor, "Unknown Manufacture name");
    std::string description = product;
    if (StringParseUtility::Trim(node.idVendor, 0) != "0x0000" &&
        StringParseUtility::Trim(node.idProduct, 0) != "0x0000")
        description += " - " + manufacturer;
    xml.SetAttribute(xmldef::caption, caption);
    xml.SetAttribute(xmldef::description, description);

    xml.AddProperty(usbxml::TypeInfo, Translate("USB Type"), MoreIn(node.bcdUSB), 0);
    std::string serial = MoreIn(node.iSerial);
    if (StringParseUtility::Trim(serial, 0) == "0") serial = Translate("Not available");
    xml.AddProperty(usbxml::SerialNumber, Translate("Serial Number"), serial, 0);

    vecConfigurations = node.getVecUSBConfigurationPtr();
    for (USBConfiguration* configuration : vecConfigurations) {
        vecInterfaces = configuration->getVecUSBInterfacesPtr();
        for (USBInterfaces* interface : vecInterfaces) {
            const std::string& interfaceClass = interface->bInterfaceClass;
            if (interfaceClass.find('3') != std::string::npos || interfaceClass.find('9') == std::string::npos)
                continue;
            vecHubs = interface->getVecUSBHubPtr();
            for (USBHub* hub : vecHubs) {
                xml.AddProperty(usbxml::HubTypeInfo, Translate("USB Hub"), hub->bDescriptorType, 0);
                xml.AddProperty(usbxml::HubCharacteristic, Translate("USB Hub Characteristic"), hub->wHubCharacteristic,
                                0);
                xml.AddProperty(usbxml::HubDeviceRemovable, Translate("USB Device Removable"), hub->DeviceRemovable, 0);
                xml.AddProperty(usbxml::HubNumPort, Translate("Number of hub ports"), hub->nNbrPorts, 0);
                vecPortBlocks = hub->getVecPortStatusBlocks();
                for (const std::string& block : vecPortBlocks)
                    for (const std::string& port : USBInfoReader::processHubPorts(block))
                        xml.AddProperty(usbxml::usbPortnum, " ", port, 0);
            }
            if (product.find("Controller") != std::string::npos) {
                AddTestAndId(new newusbRootHubTest(this), xml);
                if (nvxIsFactory() != 0) {
                    AddTestAndId(new usbLoopbackTest(this), xml);
                }
                AddTestAndId(new FileWriteCompareTest(this), xml);
            }
        }
    }
}

static ClassRegistrar<newUSBDevice> newUSBDeviceClassRegistrar;
