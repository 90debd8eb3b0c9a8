#include "tc/usb/linux/USBtree.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "common/Debug.h"
#include "common/StringUtil.h"
#include "common/Translate.h"
#include "common/TvkError.h"
#include "tc/usb/linux/USBInfoReader.h"

const char* const usbDiscoveryFailure = "An Error occurred while discovering USB devices in the system";
const char* const usbLevelFailure = "Topology Level value of the USB Device out of range";

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

}  // namespace

void ResetUsbDiscoveryStateForTests() {
    lastBusNumber = 0;
    ehciProductPending = 0;
    classicProductPending = 0;
}

// ---- scanning helpers ----

void USBtree::GetString(std::string& target, const char* line, const char* key, size_t maxLength) {
    const char* found = std::strstr(line, key);
    if (!found) return;
    const char* value = found + std::strlen(key);
    target.assign(value, strnlen(value, maxLength));
}

int USBtree::GetInt(const char* line, const char* key, int base) {
    const char* found = std::strstr(line, key);
    if (!found) return 0;
    const long value = std::strtol(found + std::strlen(key), nullptr, base);
    // Held to 32 bits, as strtol itself does on the 32-bit target.
    if (value > INT_MAX) return INT_MAX;
    if (value < INT_MIN) return INT_MIN;
    return static_cast<int>(value);
}

// ---- tree life ----

void USBtree::DropTree() {
    // A tree that devices hold is theirs to release.
    if (root && root->Holders() == 0) delete root;
    root = nullptr;
    current = nullptr;
    for (USBnode*& hub : hubAtLevel) hub = nullptr;
    usb20Devices.clear();
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
    std::memset(buffer, 0, lineBufferSize);
    for (;;) {
        if (!reader->readLine(buffer)) break;
        // A reader that does not terminate its text cannot make us read on.
        buffer[lineBufferSize - 1] = '\0';
        const size_t length = std::strlen(buffer);
        // Only a whole line (or the last piece of an over-long one) ends in a
        // newline; usb_parse_line removes it, so nothing is parsed twice.
        if (length > 0 && buffer[length - 1] == '\n') usb_parse_line(buffer);
        if (reader->noMoreLines()) break;
    }
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
    const size_t length = std::strlen(line);
    if (length == 0) return;
    line[length - 1] = '\0';
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
    node->busNumber = GetInt(line, "Bus=", 10);
    node->level = GetInt(line, "Lev=", 10);
    node->parentNumber = GetInt(line, "Prnt=", 10);
    node->portNumber = GetInt(line, "Port=", 10);
    node->count = GetInt(line, "Cnt=", 10);
    node->deviceNumber = GetInt(line, "Dev#=", 10);
    node->maxChildren = GetInt(line, "MxCh=", 10);
    switch (GetInt(line, "Spd=", 10)) {
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
        if (root->maxChildren >= usbMaxSlots)
            FailDiscovery(strprintf("more than %d host controllers", usbMaxSlots));
        node->parent = root;
        root->children[root->maxChildren++] = node.get();
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
    if (candidate->children[node->portNumber])
        FailDiscovery(strprintf("two devices on Port=%d of one hub", node->portNumber));
    node->parent = candidate;
    candidate->children[node->portNumber] = node.get();
    // Only a node that made it into the tree may serve as a later parent.
    if (node->maxChildren != 0) hubAtLevel[node->level] = node.get();
    return node.release();
}

void USBtree::GetBandwidth(const char* line, USBnode* node) {
    if (!node) return;
    USBbandwidth* bandwidth = new USBbandwidth();
    bandwidth->allocated = GetInt(line, "Alloc=", 10);
    bandwidth->total = GetInt(line, "/", 10);
    bandwidth->percent = GetInt(line, "us (", 10);
    bandwidth->irq = GetInt(line, "#Int=", 10);
    bandwidth->isocrq = GetInt(line, "#Iso=", 10);
    delete node->bandwidth;
    node->bandwidth = bandwidth;
}

void USBtree::AddConfig(const char* line, USBnode* node) {
    if (!node) return;
    for (USBconfig*& slot : node->configurations) {
        if (slot) continue;
        slot = new USBconfig();
        slot->numInterfaces = GetInt(line, "#Ifs=", 10);
        slot->configNumber = GetInt(line, "Cfg#=", 10);
        slot->attributes = GetInt(line, "Atr=", 16);
        GetString(slot->maxPower, line, "MxPwr=", 10);
        return;
    }
    dbgprintf("Too many configs for this device.\n");
}

void USBtree::GetDeviceInformation(const char* line, USBnode* node) {
    if (!node) return;
    node->hubFlag = 0;
    GetString(node->version, line, "Ver=", 5);
    GetString(node->class_x, line, "Cls=", 29);
    GetString(node->subClass, line, "Sub=", 2);
    GetString(node->protocol, line, "Prot=", 2);

    static const struct {
        const char* code;
        const char* name;
        int kind;
        bool hub;
    } classes[] = {
        {"00(", "USB Interface", usbKindInterfaceDevice, false},
        {"01(", "USB Audio Device", 0, false},
        {"02(", "USB Communications Device", 0, false},
        {"03(", "USB hid", 0, false},
        {"05(", "USB Hub", 0, false},
        {"06(", "USB pid", 0, false},
        {"07(", "USB Printer", 0, false},
        {"08(", "USB storage", 0, false},
        {"0a(", "USB data", 0, false},
        {"09(", "USB Hub", usbKindHub, true},
        {"ff(", "Vendor", 0, false},
    };
    const char* className = "Unknown Device";  // also for "11(" (USB-IF billboard and the like)
    for (const auto& entry : classes) {
        if (!Contains(node->class_x, entry.code)) continue;
        className = entry.name;
        if (entry.kind) node->kind = entry.kind;
        if (entry.hub) node->hubFlag = 1;
        break;
    }
    node->class_x = Translate(className);
    node->maxPacketSize = GetInt(line, "MxPS=", 10);
    node->numConfigs = GetInt(line, "#Cfgs=", 10);
}

void USBtree::GetMoreDeviceInformation(const char* line, USBnode* node) {
    if (!node) return;
    GetString(node->vendorId, line, "Vendor=", 5);
    GetString(node->productId, line, "ProdID=", 5);
    GetString(node->revisionNumber, line, "Rev=", 6);
}

void USBtree::GetDeviceString(const char* line, USBnode* node) {
    if (!node) return;
    if (std::strstr(line, "Manufacturer=Linux")) {
        // A root hub: the kernel names itself; we name the controller.
        if (Contains(node->speed, "480")) {
            ehciProductPending = 1;
            return;
        }
        if (Contains(node->speed, "12")) classicProductPending = 1;
        node->manufacturer = Translate("INTEL Corporation");
    } else if (std::strstr(line, "Manufacturer=")) {
        GetString(node->manufacturer, line, "Manufacturer=", 254);
    } else if (std::strstr(line, "Product=")) {
        if (ehciProductPending) {
            node->product = Translate("USB 2.00 Controller EHCI-HCD");
            ehciProductPending = 0;
        } else if (classicProductPending) {
            classicProductPending = 0;
            if (std::strstr(line, "OHCI"))
                node->product = Translate("USB") + node->version + " " + Translate("Controller OHCI");
            else if (std::strstr(line, "UHCI"))
                node->product = Translate("USB") + node->version + " " + Translate("Controller UHCI");
            else
                node->product = Translate("USB") + node->version + " Unknown Controller Type";
        } else {
            GetString(node->product, line, "Product=", 254);
        }
    } else if (std::strstr(line, "SerialNumber=")) {
        GetString(node->serialNumber, line, "SerialNumber=", 254);
    }
}

void USBtree::AddEndpoint(const char* line, USBnode* node) {
    if (!node) return;
    USBconfig* config = nullptr;
    for (int i = usbMaxSlots - 1; i >= 0 && !config; --i) config = node->configurations[i];
    if (!config) {
        dbgprintf("No config to put an interface at for this device.\n");
        return;
    }
    USBinterface* interface = nullptr;
    for (int i = usbMaxSlots - 1; i >= 0 && !interface; --i) interface = config->interfaces[i];
    if (!interface) {
        dbgprintf("No interface to put an endpoint at for this device.\n");
        return;
    }
    for (USBendpoint*& slot : interface->endpoints) {
        if (slot) continue;
        slot = new USBendpoint();
        const size_t length = std::strlen(line);
        slot->address = GetInt(line, "Ad=", 16);
        // "E:  Ad=81(I) Atr=03(Int.) ...": direction and type stand at fixed places.
        slot->in = length > 10 && line[10] == 'I';
        slot->attribute = GetInt(line, "Atr=", 16);
        slot->maxPacketSize = GetInt(line, "MxPS=", 10);
        if (length > 20) slot->type.assign(line + 20, strnlen(line + 20, 4));
        GetString(slot->interval, line, "Ivl=", 10);
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
    for (USBnode* child : node->children) NameDevice(child);
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
    for (USBnode* child : node->children) NameDeviceAlt(child);
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
