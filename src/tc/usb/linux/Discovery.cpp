#include "tc/usb/linux/Discovery.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "common/Debug.h"
#include "common/TvkError.h"
#include "platform/HostServices.h"
#include "tc/usb/linux/devices/USBDevice.h"
#include "tc/usb/linux/devices/newUSBDevice.h"
#include "tc/usb/linux/readers/USBInfoReader.h"
#include "tc/usb/linux/readers/USBtree.h"
#include "tc/usb/linux/storage/ExternalTool.h"
#include "tc/usb/linux/usbxml.h"

namespace {

// Ports of a node that fit its child array.
int PortsOf(const USBnode* node) { return std::max(0, std::min<int>(node->maxChildren, usbMaxSlots)); }

// The set owns the device from here on; a device whose name is taken goes.
// Both roads make their devices through here.
void Insert(DeviceSet* devices, std::unique_ptr<Device> device) {
    if (InsertDevice(*devices, device.get())) device.release();
}

// Keeps the tree alive while devices are made from it, and frees it at the
// end if none of them holds it.
class TreeHold {
public:
    explicit TreeHold(USBnode* top) : top(top) { USBnode::Hold(top); }
    ~TreeHold() { USBnode::Release(top); }
    TreeHold(const TreeHold&) = delete;
    TreeHold& operator=(const TreeHold&) = delete;

private:
    USBnode* top;
};

// The lsusb road reads its file twice without closing in between; it closes
// once, on every way out.
class ReaderCloser {
public:
    explicit ReaderCloser(USBInfoReader& reader) : reader(reader) {}
    ~ReaderCloser() { reader.close(); }
    ReaderCloser(const ReaderCloser&) = delete;
    ReaderCloser& operator=(const ReaderCloser&) = delete;

private:
    USBInfoReader& reader;
};

bool IsFirstLineOfDevice(const char* line) {
    return std::strstr(line, lsusbKeywords[kwBus]) && std::strstr(line, lsusbKeywords[kwDevice]) &&
           std::strstr(line, lsusbKeywords[kwID]);
}

// The reader's text from its start, cut into device blocks in one read as
// getVecDeviceInfo documents; `sawDevice` tells whether any line was a
// device's first line (what getNumberOfUSBDevices counts). With `deferTrace`
// the trace is written only once such a line has shown up: a text without
// one leaves no trace, as when it was counted before it was cut.
std::vector<std::string> CutBlocks(USBInfoReader& reader, bool deferTrace, bool& sawDevice) {
    if (!reader.open()) throw TvkError("Error Creating File", "", "");
    // One open of the trace for the whole text rather than one a line.
    USBInfoReader::TraceHold trace(reader, !deferTrace);
    char buffer[USBInfoReader::lineBufferSize];
    std::memset(buffer, 0, sizeof buffer);
    std::vector<std::string> blocks;
    std::string block;
    bool recording = false;
    sawDevice = false;
    while (reader.moreLines()) {
        const bool read = reader.readLine(buffer) != nullptr;
        buffer[sizeof buffer - 1] = '\0';
        // Each line is reformatted straight behind the block (which is empty
        // while none is recorded) and taken back if no block takes it.
        const size_t at = block.size();
        reader.reformatLineInto(buffer, block);
        const char* const line = block.c_str() + at;
        // A device's first line and a status line both hold "Device", which
        // most lines do not: one search settles both for those.
        const char* const device = std::strstr(line, lsusbKeywords[kwDevice]);
        if (device && IsFirstLineOfDevice(line)) {
            recording = true;
            if (!sawDevice) trace.Open();
            sawDevice = true;
        }
        // The first "Device Status:" cannot stand before the first "Device".
        const bool status = device && std::strstr(device, lsusbKeywords[kwDeviceStatus]) != nullptr;
        if (!recording) block.resize(at);
        if (status) {
            // A copy of its own size; the block keeps its room for the next.
            blocks.push_back(block);
            recording = false;
            block.clear();
        }
        if (!read && reader.moreLines()) break;  // a read error, not the end
    }
    return blocks;
}

}  // namespace

bool InsertDevice(DeviceSet& devices, Device* device) {
    const size_t before = devices.size();
    devices.insert(devices.end(), device);
    return devices.size() != before;
}

void FindUSBControllers(DeviceSet& devices) {
    USBInfoReader reader;
    reader.mountProcUsb();
    reader.setDevicesFile();
    if (reader.isDevicesFileAvalable())
        ParseWithProcBusUsbDevices(reader, devices);
    else
        ParseWithLsusbDevices(reader, devices);
}

int ParseWithProcBusUsbDevices(USBInfoReader& reader, DeviceSet& devices) {
    USBtree tree;
    USBnode* root = tree.GrowUSBtree(&reader);
    if (!root) return 0;
    TreeHold hold(root);
    USBDeviceAdder adder;
    adder.root = root;
    for (int i = 0; i < PortsOf(root); ++i) adder.AddDevice(&devices, root->children[i], true);
    return 0;
}

void USBDeviceAdder::AddDevice(DeviceSet* devices, USBnode* node, bool isController) {
    if (nvxIsFactory())
        AddDeviceInFactory(devices, node, isController);
    else
        AddDeviceInField(devices, node, isController);
}

void USBDeviceAdder::AddDeviceInField(DeviceSet* devices, USBnode* node, bool isController) {
    if (!node) return;
    Insert(devices, std::unique_ptr<USBDevice>(new USBDevice(usbxml::usbDevice, node, isController)));
    for (int i = 0; i < PortsOf(node); ++i) AddDeviceInField(devices, node->children[i], false);
}

void USBDeviceAdder::AddDeviceInFactory(DeviceSet* devices, USBnode* node, bool isController) {
    if (!node) return;
    Insert(devices, std::unique_ptr<USBDevice>(new USBDevice(usbxml::usbDevice, node, isController)));
    USBnode* externalHubs[usbMaxSlots];
    int hubCount = 0;
    for (int i = 0; i < PortsOf(node); ++i) {
        USBnode* child = node->children[i];
        if (!child) {
            if (!root) continue;
            // The root stands for every empty port.
            root->kind = usbKindEmptyPort;
            root->hubFlag = 0;
            root->portNumber = 0;
            Insert(devices, std::unique_ptr<USBDevice>(new USBDevice(usbxml::usbDevice, root, false)));
        } else if (child->maxChildren == 0) {
            AddAttachedDevice(devices, child);
        } else {
            externalHubs[hubCount++] = child;
            AddExternalHubDevice(devices, child);
        }
    }
    for (int i = 0; i < hubCount; ++i) AddDeviceInFactory(devices, externalHubs[i], true);
}

void USBDeviceAdder::AddAttachedDevice(DeviceSet* devices, USBnode* node) {
    if (!node) return;
    node->hubFlag = 0;
    Insert(devices, std::unique_ptr<USBDevice>(new USBDevice(usbxml::usbDevice, node, false)));
}

void USBDeviceAdder::AddExternalHubDevice(DeviceSet* devices, USBnode* hub) {
    if (!hub) return;
    std::unique_ptr<USBnode> occupant(new (std::nothrow) USBnode());
    if (!occupant) {
        dbgprintf("Unable to allocate memory to USBnode object!\n");
        throw TvkError(usbDiscoveryFailure, "", "");
    }
    occupant->busNumber = hub->busNumber;
    occupant->level = hub->level;
    occupant->portNumber = hub->portNumber;
    occupant->deviceNumber = hub->deviceNumber;
    occupant->name = hub->name;
    occupant->speed = hub->speed;
    occupant->version = hub->version;
    occupant->vendorId = hub->vendorId;
    occupant->productId = hub->productId;
    occupant->manufacturer = hub->manufacturer;
    occupant->product = hub->product;
    occupant->serialNumber = hub->serialNumber;
    occupant->maxChildren = 0;
    occupant->kind = usbKindInterfaceDevice;
    // The node stands alone: the device made for it holds it, and the last
    // holder frees it (here, if no device could be made).
    USBnode* standalone = occupant.release();
    TreeHold keep(standalone);
    AddAttachedDevice(devices, standalone);
}

int ParseWithLsusbDevices(USBInfoReader& reader, DeviceSet& devices) {
    ReaderCloser closer(reader);
    // Counted and cut in one read of the text: a text without a device
    // fails as its count of 0 did, before any trace is written.
    bool sawDevice = false;
    std::vector<std::string> blocks = CutBlocks(reader, true, sawDevice);
    if (!sawDevice) throw TvkError("Device Failed Enumeration", "", "");
    // The devices are made while mount runs; the road ends when it has.
    RunningTool mount({"mount", "-t", "usbfs", "none", "/proc/bus/usb"}, -1, ToolOutput::inherit, ToolOutput::discard);
    // The device of each block: the one place where this road makes devices.
    // Each takes its block over, so the text is not held twice.
    for (std::string& block : blocks) Insert(&devices, std::unique_ptr<Device>(new newUSBDevice(std::move(block))));
    mount.Wait();
    return 0;
}

int getNumberOfUSBDevices(USBInfoReader& reader) {
    if (!reader.open()) throw TvkError("Error Creating File", "", "");
    char buffer[USBInfoReader::lineBufferSize];
    std::memset(buffer, 0, sizeof buffer);
    int count = 0;
    while (reader.moreLines()) {
        const bool read = reader.readLine(buffer) != nullptr;
        buffer[sizeof buffer - 1] = '\0';
        // The buffer is not cleared: the read that meets the end of the text
        // tests the last line once more.
        if (IsFirstLineOfDevice(buffer)) ++count;
        if (!read && reader.moreLines()) break;  // a read error, not the end: stop all the same
    }
    return count;
}

std::vector<std::string> getVecDeviceInfo(USBInfoReader& reader) {
    bool sawDevice = false;
    return CutBlocks(reader, false, sawDevice);
}
