#include "tc/usb/linux/readers/USBtree.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "common/Debug.h"
#include "common/StringUtil.h"
#include "common/TestHooks.h"
#include "common/Translate.h"
#include "common/TvkError.h"
#include "tc/usb/linux/readers/DevicesFileLines.h"
#include "tc/usb/linux/readers/USBInfoReader.h"

const char* const usbDiscoveryFailure = "An Error occurred while discovering USB devices in the system";
const char* const usbLevelFailure = "Topology Level value of the USB Device out of range";

using devicesfile::Find;
using devicesfile::IntAfter;
using devicesfile::StringAfter;

namespace {

// One for the whole process: they survive from one parse to the next. The
// two flags link a root hub's "Manufacturer=Linux" line to its product line.
int lastBusNumber = 0;
int ehciProductPending = 0;
int classicProductPending = 0;

const int lineBufferSize = USBInfoReader::lineBufferSize;

// USB memory keys, ending with (0, 0).
const struct {
    unsigned int vendor;
    unsigned int product;
} DriveKeyIDs[] = {
    {0x0781, 0x5151}, {0x0781, 0x5406}, {0x0781, 0x5530}, {0x0951, 0x1603}, {0x0951, 0x1642},
    {0x08ec, 0x0008}, {0x058f, 0x6387}, {0x090c, 0x1000}, {0x1307, 0x0163}, {0, 0},
};
// The one optical drive that reports itself as a SCSI-command disk.
const unsigned long opticalDriveVendor = 0x13fd;
const unsigned long opticalDriveProduct = 0x0840;

[[noreturn]] void FailDiscovery(const std::string& detail = std::string()) {
    throw TvkError(usbDiscoveryFailure, detail, "");
}

bool Contains(const std::string& text, const char* part) { return text.find(part) != std::string::npos; }

// The device classes of a "D:" or "I:" line's "Cls=" value, in the order in
// which they are tried: the first whose code stands anywhere in the value
// wins.
const struct {
    char code[2];  // the two characters before a "("
    const char* name;
    int kind;
    bool hub;
} deviceClasses[] = {
    {{'0', '0'}, "USB Interface", usbKindInterfaceDevice, false},
    {{'0', '1'}, "USB Audio Device", 0, false},
    {{'0', '2'}, "USB Communications Device", 0, false},
    {{'0', '3'}, "USB hid", 0, false},
    {{'0', '5'}, "USB Hub", 0, false},
    {{'0', '6'}, "USB pid", 0, false},
    {{'0', '7'}, "USB Printer", 0, false},
    {{'0', '8'}, "USB storage", 0, false},
    {{'0', 'a'}, "USB data", 0, false},
    {{'0', '9'}, "USB Hub", usbKindHub, true},
    {{'f', 'f'}, "Vendor", 0, false},
};
const int deviceClassCount = sizeof deviceClasses / sizeof deviceClasses[0];

// The first class of the table whose code and "(" stand in `value`;
// deviceClassCount for none. One pass over the value's "(" instead of a
// search for every class.
int ClassOf(const std::string& value) {
    int best = deviceClassCount;
    for (size_t open = value.find('(', 2); open != std::string::npos; open = value.find('(', open + 1))
        for (int k = 0; k < best; ++k)
            if (value[open - 2] == deviceClasses[k].code[0] && value[open - 1] == deviceClasses[k].code[1]) {
                best = k;
                break;
            }
    return best;
}

}  // namespace

void testhooks::ResetUsbDiscoveryState() {
    lastBusNumber = 0;
    ehciProductPending = 0;
    classicProductPending = 0;
}

// ---- scanning helpers ----

void USBtree::GetString(std::string& target, const char* line, const char* key, size_t maxLength) {
    devicesfile::StringAfterKey(target, line, key, maxLength);
}

int USBtree::GetInt(const char* line, const char* key, int base) { return devicesfile::IntAfterKey(line, key, base); }

// ---- tree life ----

void USBtree::DropTree() {
    // A tree that devices hold is theirs to release.
    if (root && root->Holders() == 0) delete root;
    root = nullptr;
    current = nullptr;
    for (USBnode*& hub : hubAtLevel) hub = nullptr;
    usb20Devices.clear();
    displaced.clear();
    endpointPending = false;
}

void USBtree::usb_initialize_list() {
    DropTree();
    root = new USBnode();
}

void USBtree::ChopUSBtree(USBnode*) { DropTree(); }

void USBtree::FinishTest() {
    ChopUSBtree(root);
    keyboardCount = 0;
}

// ---- the parse ----

void USBtree::ParseAllLines(USBInfoReader* reader, char* buffer) {
    devicesfile::ScanLines(*reader, buffer, [this](char* line) {
        usb_parse_line(line);
        return true;
    });
}

USBnode* USBtree::GrowUSBtree(USBInfoReader* reader) {
    usb_initialize_list();
    if (!reader) {
        DropTree();
        return nullptr;
    }
    if (!reader->open()) {
        reader->mountProcUsb();
        if (!reader->open()) {
            DropTree();
            return nullptr;
        }
    }
    char buffer[lineBufferSize];
    try {
        ParseAllLines(reader, buffer);
    } catch (...) {
        // Nobody can reach a half-built tree.
        reader->close();
        DropTree();
        throw;
    }
    usb_name_devices();
    reader->close();
    return root;
}

int USBtree::RunDescriptorTest() {
    USBInfoReader reader;
    reader.setDevicesFile();
    return RunDescriptorTest(reader);
}

int USBtree::RunDescriptorTest(USBInfoReader& reader) {
    usb_initialize_list();
    if (!reader.open()) return -1;
    std::unique_ptr<char[]> buffer(new (std::nothrow) char[lineBufferSize]);
    if (!buffer) {
        reader.close();
        return -2;
    }
    try {
        ParseAllLines(&reader, buffer.get());
    } catch (...) {
        reader.close();
        DropTree();
        throw;
    }
    const int result = usb_name_devices_alt();
    reader.close();
    return result;
}

void USBtree::usb_parse_line(char* line) {
    if (!devicesfile::CutNewline(line)) return;
    switch (line[0]) {
        case 'T':
            current = AddDevice(line);
            endpointPending = true;
            break;
        case 'B': GetBandwidth(line, current); break;
        case 'C': AddConfig(line, current); break;
        case 'D':
        case 'I': GetDeviceInformation(line, current); break;
        case 'E':
            AddEndpoint(line, current);
            if (endpointPending) {
                CountUsb20Device(current);
                endpointPending = false;
            }
            break;
        case 'P': GetMoreDeviceInformation(line, current); break;
        case 'S': GetDeviceString(line, current); break;
        default: break;
    }
}

USBnode* USBtree::AddDevice(const char* line) {
    if (!root) root = new USBnode();
    // Owned here until it hangs in the tree, so a failure cannot leak it.
    std::unique_ptr<USBnode> node(new (std::nothrow) USBnode());
    if (!node) {
        dbgprintf("Unable to allocate memory to USBnode object!\n");
        FailDiscovery();
    }
    node->busNumber = IntAfter(line, "Bus=", 10);
    node->level = IntAfter(line, "Lev=", 10);
    node->parentNumber = IntAfter(line, "Prnt=", 10);
    node->portNumber = IntAfter(line, "Port=", 10);
    node->count = IntAfter(line, "Cnt=", 10);
    node->deviceNumber = IntAfter(line, "Dev#=", 10);
    node->maxChildren = IntAfter(line, "MxCh=", 10);
    switch (IntAfter(line, "Spd=", 10)) {
        case 12: node->speed = "12 MBit/s"; break;
        case 1: node->speed = "1.5 MBit/s"; break;  // "1.5": the number stops at the point
        case 480: node->speed = "480 MBit/s"; break;
        default: node->speed = "Unknown"; break;
    }

    if (node->busNumber != lastBusNumber) {
        for (USBnode*& hub : hubAtLevel) hub = nullptr;
        lastBusNumber = node->busNumber;
    }
    if (node->level < 0 || node->level >= usbMaxSlots) throw TvkError(usbLevelFailure, "", "");

    if (node->level == 0 && node->maxChildren != 0) {
        // A host controller's root hub: the next child of the root.
        if (root->maxChildren >= usbMaxSlots) FailDiscovery(strprintf("more than %d host controllers", usbMaxSlots));
        node->parent = root;
        root->children.Set(root->maxChildren, node.get());
        ++root->maxChildren;
        hubAtLevel[0] = node.get();
        return node.release();
    }

    // The parent is the latest hub one level up on this bus; "Prnt=" is not
    // used. A level-0 line without ports has none.
    USBnode* candidate = node->level > 0 ? hubAtLevel[node->level - 1] : nullptr;
    if (!candidate || candidate->busNumber != node->busNumber) {
        dbgprintf("Parent Hub of current device not found!!!\n");
        dbgprintf("Check with /proc/bus/usb/devices file.\n ");
        FailDiscovery();
    }
    if (node->portNumber < 0 || node->portNumber >= usbMaxSlots)
        FailDiscovery(strprintf("Port=%d is out of range", node->portNumber));
    // A later device on an occupied port takes the slot. The one it displaces
    // leaves the tree but lives as long as the parse: the hub table and the
    // USB 2.0 list may still point at it.
    if (USBnode* earlier = candidate->children[node->portNumber]) displaced.emplace_back(earlier);
    node->parent = candidate;
    candidate->children.Set(node->portNumber, node.get());
    // Only a node that made it into the tree may serve as a later parent.
    if (node->maxChildren != 0) hubAtLevel[node->level] = node.get();
    return node.release();
}

void USBtree::GetBandwidth(const char* line, USBnode* node) {
    if (!node) return;
    USBbandwidth* bandwidth = new USBbandwidth();
    bandwidth->allocated = IntAfter(line, "Alloc=", 10);
    bandwidth->total = IntAfter(line, "/", 10);
    bandwidth->percent = IntAfter(line, "us (", 10);
    bandwidth->irq = IntAfter(line, "#Int=", 10);
    bandwidth->isocrq = IntAfter(line, "#Iso=", 10);
    delete node->bandwidth;
    node->bandwidth = bandwidth;
}

void USBtree::AddConfig(const char* line, USBnode* node) {
    if (!node) return;
    for (int i = 0; i < usbMaxSlots; ++i) {
        if (node->configurations[i]) continue;
        std::unique_ptr<USBconfig> made(new USBconfig());
        USBconfig* slot = made.get();
        node->configurations.Set(i, slot);
        made.release();
        slot->numInterfaces = IntAfter(line, "#Ifs=", 10);
        slot->configNumber = IntAfter(line, "Cfg#=", 10);
        slot->attributes = IntAfter(line, "Atr=", 16);
        StringAfter(slot->maxPower, line, "MxPwr=", 10);
        return;
    }
    dbgprintf("Too many configs for this device.\n");
}

void USBtree::GetDeviceInformation(const char* line, USBnode* node) {
    if (!node) return;
    node->hubFlag = 0;
    StringAfter(node->version, line, "Ver=", 5);
    StringAfter(node->class_x, line, "Cls=", 29);
    StringAfter(node->subClass, line, "Sub=", 2);
    StringAfter(node->protocol, line, "Prot=", 2);

    const int found = ClassOf(node->class_x);
    // No class (also "11(": USB-IF billboard and the like) is an unknown one.
    const char* className = "Unknown Device";
    if (found < deviceClassCount) {
        className = deviceClasses[found].name;
        if (deviceClasses[found].kind) node->kind = deviceClasses[found].kind;
        if (deviceClasses[found].hub) node->hubFlag = 1;
    }
    node->class_x = Translate(className);
    node->maxPacketSize = IntAfter(line, "MxPS=", 10);
    node->numConfigs = IntAfter(line, "#Cfgs=", 10);
}

void USBtree::GetMoreDeviceInformation(const char* line, USBnode* node) {
    if (!node) return;
    StringAfter(node->vendorId, line, "Vendor=", 5);
    StringAfter(node->productId, line, "ProdID=", 5);
    StringAfter(node->revisionNumber, line, "Rev=", 6);
}

void USBtree::GetDeviceString(const char* line, USBnode* node) {
    if (!node) return;
    if (Find(line, "Manufacturer=Linux")) {
        // A root hub: the kernel names itself; we name the controller.
        if (Contains(node->speed, "480")) {
            ehciProductPending = 1;
            return;
        }
        if (Contains(node->speed, "12")) classicProductPending = 1;
        node->manufacturer = Translate("INTEL Corporation");
    } else if (Find(line, "Manufacturer=")) {
        StringAfter(node->manufacturer, line, "Manufacturer=", 254);
    } else if (Find(line, "Product=")) {
        if (ehciProductPending) {
            node->product = Translate("USB 2.00 Controller EHCI-HCD");
            ehciProductPending = 0;
        } else if (classicProductPending) {
            classicProductPending = 0;
            if (Find(line, "OHCI"))
                node->product = Translate("USB") + node->version + " " + Translate("Controller OHCI");
            else if (Find(line, "UHCI"))
                node->product = Translate("USB") + node->version + " " + Translate("Controller UHCI");
            else
                node->product = Translate("USB") + node->version + " Unknown Controller Type";
        } else {
            StringAfter(node->product, line, "Product=", 254);
        }
    } else if (Find(line, "SerialNumber=")) {
        StringAfter(node->serialNumber, line, "SerialNumber=", 254);
    }
}

void USBtree::AddEndpoint(const char* line, USBnode* node) {
    if (!node) return;
    USBconfig* config = nullptr;
    for (int i = node->configurations.Room() - 1; i >= 0 && !config; --i) config = node->configurations[i];
    if (!config) {
        dbgprintf("No config to put an interface at for this device.\n");
        return;
    }
    USBinterface* interface = nullptr;
    for (int i = config->interfaces.Room() - 1; i >= 0 && !interface; --i) interface = config->interfaces[i];
    if (!interface) {
        dbgprintf("No interface to put an endpoint at for this device.\n");
        return;
    }
    for (int i = 0; i < usbMaxSlots; ++i) {
        if (interface->endpoints[i]) continue;
        std::unique_ptr<USBendpoint> made(new USBendpoint());
        USBendpoint* slot = made.get();
        interface->endpoints.Set(i, slot);
        made.release();
        const size_t length = std::strlen(line);
        slot->address = IntAfter(line, "Ad=", 16);
        // "E:  Ad=81(I) Atr=03(Int.) ...": direction and type stand at fixed places.
        slot->in = length > 10 && line[10] == 'I';
        slot->attribute = IntAfter(line, "Atr=", 16);
        slot->maxPacketSize = IntAfter(line, "MxPS=", 10);
        if (length > 20) slot->type.assign(line + 20, strnlen(line + 20, 4));
        StringAfter(slot->interval, line, "Ivl=", 10);
        return;
    }
    dbgprintf("Too many endpoints for this device.\n");
}

// ---- naming and counting ----

void USBtree::usb_name_devices() { NameDevice(root); }

void USBtree::NameDevice(USBnode* node) {
    if (!node) return;
    if (node != root) {
        if (!node->product.empty())
            node->name = node->product;
        else if (node->level == 0)
            node->name = Translate("Root Hub");
        else if (node->kind == usbKindHub)
            node->name = Translate("USB Hub");
        else if (node->name.empty())
            node->name = Translate("Unknown Device");
    }
    for (int i = 0; i < node->children.Room(); ++i) NameDevice(node->children[i]);
}

int USBtree::usb_name_devices_alt() {
    keyboardCount = 0;
    return NameDeviceAlt(root);
}

int USBtree::NameDeviceAlt(USBnode* node) {
    if (!node) return 0;
    if (node != root) {
        if (node->level == 0) {
            node->name = Translate("Root Hub");
        } else {
            for (const USBconfig* config : node->configurations) {
                if (!config) continue;
                for (const USBinterface* interface : config->interfaces) {
                    if (!interface || interface->name.empty() || interface->subClass != 1) continue;
                    if (interface->protocol == 1) {
                        node->name += Translate("USB Keyboard");
                        ++keyboardCount;
                    } else if (interface->protocol == 2) {
                        node->name += Translate("USB Mouse");
                    }
                }
            }
            if (node->name.empty()) node->name += Translate("Unknown Device");
        }
    }
    for (int i = 0; i < node->children.Room(); ++i) NameDeviceAlt(node->children[i]);
    return keyboardCount;
}

void USBtree::CountUsb20Device(USBnode* node) {
    if (!node) return;
    if (node->level == 0) return;
    if (node->speed != "480 MBit/s") return;
    if (IfTapeDrive(node->product)) return;
    if (node->kind == usbKindHub) return;
    if (Contains(node->product, "RDX")) return;
    // The untranslated name: under a catalogue that translates it nothing is
    // selected.
    if (node->class_x != "USB storage") return;
    usb20Devices.push_back(node);
}

bool USBtree::IfTapeDrive(std::string text) { return Contains(text, "Tape") || Contains(text, "tape"); }

bool USBtree::CheckForUSBDriveKeyMatch(unsigned int vendor, unsigned int product) {
    for (const auto& id : DriveKeyIDs) {
        if (id.vendor == 0 && id.product == 0) break;
        if (id.vendor == vendor && id.product == product) return true;
    }
    return false;
}

std::string USBtree::DecodeUSBClass08(unsigned int usbClass, unsigned int subclass, unsigned int protocol,
                                      unsigned long vendor, unsigned long product) {
    std::string result = "MassStorage";
    if (usbClass != 8) return result;
    switch (subclass) {
        case 2:
            if (protocol == 0x32) result = "CDROM";
            break;
        case 4:
            if (protocol == 0) result = "USB Floppy";
            break;
        case 6:
            if (protocol == 0x32) {
                if (vendor <= UINT_MAX && product <= UINT_MAX &&
                    CheckForUSBDriveKeyMatch(static_cast<unsigned int>(vendor), static_cast<unsigned int>(product)))
                    result = "USB Drive Key";
                if (vendor == opticalDriveVendor && product == opticalDriveProduct) result = "DVD/CDROM";
            }
            break;
        default: break;
    }
    return result;
}

std::string USBtree::DecodeUSBClass03(unsigned int usbClass, unsigned int subclass, unsigned int protocol,
                                      unsigned long, unsigned long) {
    std::string result = "Human Interface Device";
    if (usbClass != 3) return result;
    if (subclass == 0 && protocol == 0)
        result = "Vendor Specific Device";
    else if (subclass == 1 && protocol == 1)
        result = "USB Keyboard";
    else if (subclass == 1 && protocol == 2)
        result = "USB Mouse";
    return result;
}
