#include "tc/usb/linux/devices/USBDevice.h"

#include <cctype>
#include <cstdio>

#include "common/StringTokenizer.h"
#include "common/StringUtil.h"
#include "common/Translate.h"
#include "common/xmldef.h"
#include "platform/HostServices.h"
#include "tc/usb/linux/devices/RootHubProbe.h"
#include "tc/usb/linux/usbtests/DescTest.h"
#include "tc/usb/linux/usbtests/LoopbackTest.h"
#include "tc/usb/linux/usbtests/RootHubTest.h"
#include "tc/usb/linux/usbtests/UsbPortTest.h"
#include "tc/usb/linux/usbtests/filewtcmptest.h"
#include "tc/usb/linux/usbxml.h"

int USBDevice::fieldDeviceCounter = 0;
int USBDevice::fieldHubCounter = 0;
int USBDevice::factoryHubCounter = 0;
int USBDevice::factoryPortCounter = 0;
int USBDevice::VersionNumber = 0;

namespace {

// XmlObject reserves the flags of a property; the technical category
// (xafTechnical) is marked with this value.
const int technicalPropertyFlags = 1;

// Decimal, as "%d" writes it; without a format to read for every device.
std::string Number(int value) { return std::to_string(value); }

// The version text of a controller's ports, by its VersionNumber.
std::string VersionText(int versionNumber) {
    switch (versionNumber) {
        case 10: return "1.00";
        case 11: return "1.10";
        case 20: return "2.00";
        default: return std::string();
    }
}

// sscanf(text, "%d.%d", &major, &minor), each left as it is when not read.
// The kernel's form (" 2.00") is read here, anything else by sscanf.
void ReadVersion(const std::string& text, int& major, int& minor) {
    const char* at = text.c_str();
    while (std::isspace(static_cast<unsigned char>(*at))) ++at;
    int digits[2] = {0, 0};
    for (int part = 0; part < 2; ++part) {
        int count = 0;
        for (; count < 9 && std::isdigit(static_cast<unsigned char>(at[count])); ++count)
            digits[part] = digits[part] * 10 + (at[count] - '0');
        at += count;
        // Nine digits fit; a sign, blanks behind the point or a longer
        // number are sscanf's.
        if (count == 0 || std::isdigit(static_cast<unsigned char>(*at)) || (part == 0 && *at++ != '.')) {
            std::sscanf(text.c_str(), "%d.%d", &major, &minor);
            return;
        }
    }
    major = digits[0];
    minor = digits[1];
}

}  // namespace

USBDevice::USBDevice() = default;

USBDevice::USBDevice(const std::string& deviceName, USBnode* usbNode, bool controller)
    : Device(deviceName, true), node(usbNode), isController(controller), top(USBnode::TopOf(usbNode)) {
    USBnode::Hold(top);
}

USBDevice::USBDevice(const USBDevice& other)
    : Device(other),
      node(other.node),
      totalPorts(other.totalPorts),
      isController(other.isController),
      hubType(other.hubType),
      top(other.top) {
    USBnode::Hold(top);
}

USBDevice::~USBDevice() { USBnode::Release(top); }

void USBDevice::ReadAndWrite(ptstream& stream, direction dir, unsigned int) {
    Device::ReadAndWrite(stream, dir, 0);
    if (dir == ptRead) {
        iptstream& in = static_cast<iptstream&>(stream);
        USBnode::Release(top);
        top = nullptr;
        node = nullptr;

        USBnode* storedTop = nullptr;
        in.ReadShared(storedTop);
        if (storedTop && storedTop->parent) {
            // Not a top. If this very read made it, nobody else will free it.
            bool owned = false;
            for (const USBnode* sibling : storedTop->parent->children) owned = owned || sibling == storedTop;
            if (!owned) in.Discard(storedTop);
            throw PersistenceError("USB device's tree does not start at its top node");
        }
        top = storedTop;
        USBnode::Hold(top);

        in.ReadReference(node);
        if (node ? USBnode::TopOf(node) != top : top != nullptr)
            throw PersistenceError("USB device's node lies outside its tree");
        in >> isController;
    } else {
        optstream& out = static_cast<optstream&>(stream);
        // The whole tree the first time, a back reference afterwards; the
        // node is then always one already written.
        out << static_cast<const Persistent*>(top);
        out.WriteReference(node);
        out << isController;
    }
}

void USBDevice::CopyFromPointer(const Persistent* other) { PersistentCopyFrom(this, other); }

const char* USBDevice::GetClassName() const { return usbxml::usbDevice; }

void USBDevice::Initialize() {}

int USBDevice::GetTotalNumberOfPorts() { return totalPorts; }
int USBDevice::GetHubType() { return hubType; }
void USBDevice::SetTotalNumberOfPorts(int ports) { totalPorts = ports; }
void USBDevice::GetDevInformation() {}

bool USBDevice::checkRootHub() {
    const int handle = OpenHandle();
    if (handle == -1) return false;
    CloseHandle(handle);
    return true;
}

void USBDevice::DoID(XmlObject& xml, bool isCatalog) {
    xml.SetAttribute(xmldef::category, Translate("Communication") + "|" + Translate("USB Controller(s)"));
    if (isCatalog)
        catalog(xml);
    else
        id(xml);
}

void USBDevice::AddTests(XmlObject& xml, bool factory, bool forCatalog) {
    // One line per test, in the published order.
    AddTestAndId(new RootHubTest(this), xml);
    if (factory) {
        AddTestAndId(new DescTest(this), xml);
        AddTestAndId(new usbLoopbackTest(this), xml);
    }
    AddTestAndId(new FileWriteCompareTest(this), xml);
    if (!forCatalog) {
        AddTestAndId(new UsbPortTest(this), xml);
    }
}

void USBDevice::catalog(XmlObject& xml) {
    xml.SetAttribute(xmldef::caption, Translate("USB Device"));
    xml.SetAttribute(xmldef::description, Translate("USB Device"));
    AddTests(xml, nvxIsFactory() != 0, true);
}

void USBDevice::id(XmlObject& xml) {
    if (!node) return;
    const bool factory = nvxIsFactory() != 0;
    if (factory)
        id_factory(xml);
    else
        id_field(xml);
    if (isController) AddTests(xml, factory, false);
}

void USBDevice::id_field(XmlObject& xml) {
    ++fieldDeviceCounter;
    if (node->hubFlag == 1) ++fieldHubCounter;
    const std::string caption = Translate("USB Device") + " " + Number(fieldDeviceCounter);
    const std::string description =
        node->kind == usbKindHub ? node->name : "         " + node->manufacturer + "  " + node->name;
    xml.SetAttribute(xmldef::description, description);
    xml.SetAttribute(xmldef::caption, caption);

    xml.AddProperty(usbxml::TypeInfo, Translate("USB Type"), StringParseUtility::Trim(node->version, 0), 0);
    xml.AddProperty(usbxml::SpeedInfo, Translate("USB Speed"), node->speed, 0);
    if (node->hubFlag == 1)
        xml.AddProperty(usbxml::HubNumber, Translate("Hub Number"), Number(fieldHubCounter), 0);
    else
        xml.AddProperty(usbxml::portNum,
                        Translate("Hub Number") + " " + Number(fieldHubCounter) + " " + usbxml::portNum,
                        node->portNumber + 1, 0);
    if (node->maxChildren > 0)
        xml.AddProperty(usbxml::PortTotal, Translate("Total Number of Ports"), node->maxChildren,
                        technicalPropertyFlags);
}

void USBDevice::id_factory(XmlObject& xml) {
    int major = 0;
    int minor = 0;
    ReadVersion(node->version, major, minor);
    const int version = major * 100 + minor;

    std::string caption;
    std::string description;
    switch (node->kind) {
        case usbKindHub:
            factoryPortCounter = 0;
            ++factoryHubCounter;
            if (version == 100 || version == 110) {
                caption = Translate("USB Controller") + " " + Number(factoryHubCounter);
                description = Translate("USB UHCI Root Hub");
                VersionNumber = version == 100 ? 10 : 11;
            } else if (version == 200) {
                caption = Translate("USB") + " 2.0 " + Translate("Controller") + " " + Number(factoryHubCounter);
                description = Translate("USB 2.00 Controller EHCI-HCD");
                VersionNumber = 20;
            }
            xml.AddProperty(usbxml::TypeInfo, Translate("USB Type"), StringParseUtility::Trim(node->version, 0), 0);
            xml.AddProperty(usbxml::SpeedInfo, Translate("USB Speed"), node->speed, 0);
            xml.AddProperty(usbxml::HubNumber, Translate("Hub Number"), Number(factoryHubCounter), 0);
            break;
        case usbKindEmptyPort:
            ++factoryPortCounter;
            caption = Translate("USB") + " " + VersionText(VersionNumber) + " " + Translate("Controller") + "  " +
                      Number(factoryHubCounter) + " Port " + Number(factoryPortCounter);
            description = Translate("USB Port");
            xml.AddProperty(usbxml::DeviceConnected, usbxml::DeviceConnected, Translate("No"), 0);
            break;
        case usbKindInterfaceDevice:
            ++factoryPortCounter;
            caption =
                Translate("USB Controller") + " " + Number(factoryHubCounter) + " Port " + Number(factoryPortCounter);
            description = Translate("USB Port");
            xml.AddProperty(usbxml::DeviceConnected, usbxml::DeviceConnected, Translate("Yes"), 0);
            xml.AddProperty(usbxml::DeviceType, usbxml::DeviceType, node->name, 0);
            xml.AddProperty(usbxml::TypeInfo, Translate("USB Type"), StringParseUtility::Trim(node->version, 0), 0);
            xml.AddProperty(usbxml::SpeedInfo, Translate("USB Speed"), node->speed, 0);
            break;
        default:
            // A device whose own class line names neither an interface class
            // nor a hub: nothing to publish.
            break;
    }
    if (!caption.empty()) xml.SetAttribute(xmldef::caption, caption);
    if (!description.empty()) xml.SetAttribute(xmldef::description, description);
}

static ClassRegistrar<USBDevice> USBDeviceClassRegistrar;
