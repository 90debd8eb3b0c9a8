// The parser of one device's `lsusb -v` text (reformatted: single blanks,
// one leading blank on every line but the first). Sections are told apart by
// their marker lines alone, in the order lsusb prints them; the gates decide
// which record a level's values may go into.
//
// The text is cut into lines once, and each level's blocks once per parse:
// every level searches the whole device text, so the operations that take
// texts only cut them and pass lines on.
#include <array>
#include <cstring>
#include <functional>
#include <mutex>
#include <stdexcept>

#include "common/TvkError.h"
#include "tc/usb/linux/devices/newUSBDevice.h"
#include "tc/usb/linux/readers/USBInfoReader.h"
#include "tc/usb/linux/usbxml.h"

namespace {

const char* const enumerationFailure = "Device Failed Enumeration";

static_assert(lsusbKeywordCount <= 64, "a line's keywords are one bit each");

uint64_t Bit(LsusbKeyword key) { return uint64_t(1) << key; }

// The keywords that a line holds, wherever they stand in it: each line is
// searched once for all of them, not once per keyword and level. Keywords
// are looked up by their first two characters, so most places of a line
// cost a table read or two.
class KeywordFinder {
public:
    KeywordFinder() {
        // Every keyword has two characters at least ("ID" is the shortest).
        for (int k = 0; k < lsusbKeywordCount; ++k) {
            keys[k] = lsusbKeywords[k];
            starts[static_cast<unsigned char>(keys[k][0])] = true;
            candidates[Low(keys[k][0]) << 6 | Low(keys[k][1])] |= uint64_t(1) << k;
        }
    }
    uint64_t In(std::string_view line) const {
        uint64_t found = 0;
        if (line.size() < 2) return found;
        const char* at = line.data();
        const char* const last = at + line.size() - 1;
        for (; at < last; ++at) {
            if (!starts[static_cast<unsigned char>(*at)]) continue;
            for (uint64_t maybe = candidates[Low(at[0]) << 6 | Low(at[1])] & ~found; maybe; maybe &= maybe - 1) {
                const int k = __builtin_ctzll(maybe);
                const std::string_view key = keys[k];
                if (key.size() <= static_cast<size_t>(last - at) + 1 && std::memcmp(at, key.data(), key.size()) == 0)
                    found |= uint64_t(1) << k;
            }
        }
        return found;
    }
    std::string_view Key(LsusbKeyword k) const { return keys[k]; }

private:
    // A character's low six bits: two of them index the table.
    static size_t Low(char c) { return static_cast<unsigned char>(c) & 0x3f; }
    std::array<std::string_view, lsusbKeywordCount> keys;
    std::array<bool, 256> starts{};  // the first characters of keywords
    std::array<uint64_t, 64 * 64> candidates{};
};

const KeywordFinder& Keywords() {
    static const KeywordFinder finder;
    return finder;
}

// The same lines come back device after device (" bLength 18", the lines of
// every hub's ports): the keywords of a line are remembered by its text, in
// a small table that a parse holds while it cuts its text. Lines longer than
// a read (which only a caller's own text has) are not kept.
class KeywordMemo {
public:
    std::mutex lock;

    // With `lock` held.
    uint64_t Of(std::string_view line) {
        if (line.size() >= USBInfoReader::lineBufferSize) return Keywords().In(line);
        Known& slot = known[Hash(line) & (known.size() - 1)];
        if (slot.used && slot.line == line) return slot.keywords;
        slot.line.assign(line.data(), line.size());
        slot.keywords = Keywords().In(line);
        slot.used = true;
        return slot.keywords;
    }

private:
    // Lines that differ differ near their ends (" bLength 18", " bLength 9",
    // "Port 3: ..."), so their first and last eight bytes and their length
    // tell them apart well enough for a table that checks the text anyway.
    static size_t Hash(std::string_view line) {
        uint64_t head = line.size(), tail = 0;
        if (line.size() >= 8) {
            std::memcpy(&head, line.data(), 8);
            std::memcpy(&tail, line.data() + line.size() - 8, 8);
        } else {
            for (const char c : line) tail = tail << 8 | static_cast<unsigned char>(c);
        }
        // The high half of a product depends on every bit of its factors.
        const uint64_t mixed = (head ^ (tail << 29 | tail >> 35) ^ line.size()) * 0x9e3779b97f4a7c15ULL;
        return static_cast<size_t>(mixed >> 32);
    }

    struct Known {
        std::string line;
        uint64_t keywords = 0;
        bool used = false;
    };
    std::array<Known, 1024> known;
};

KeywordMemo& Memo() {
    static KeywordMemo memo;
    return memo;
}

// The lines of `text` as StringTokenizer cuts it at newlines (two newlines in
// a row give an empty line, a text ending in a newline no empty last one),
// and the keywords of each.
struct CutLines {
    explicit CutLines(const std::string& text) {
        // Lines of lsusb text are some twenty characters long.
        lines.reserve(text.size() / 16 + 1);
        keywords.reserve(text.size() / 16 + 1);
        KeywordMemo& memo = Memo();
        const std::lock_guard<std::mutex> hold(memo.lock);
        const char* const begin = text.data();
        const char* const end = begin + text.size();
        for (const char* at = begin; at < end;) {
            const char* newline = static_cast<const char*>(std::memchr(at, '\n', static_cast<size_t>(end - at)));
            if (!newline) newline = end;
            lines.emplace_back(at, static_cast<size_t>(newline - at));
            keywords.push_back(memo.Of(lines.back()));
            at = newline + 1;
        }
    }
    newUSBDevice::Lines All() const { return {lines.data(), lines.data() + lines.size(), keywords.data()}; }

    std::vector<std::string_view> lines;
    std::vector<uint64_t> keywords;
};

struct Field {
    LsusbKeyword key;
    std::string* value;
};

// The fields of one record, and which field each keyword fills: a line
// mostly holds one keyword, whose field is then found at once.
template <size_t N>
struct FieldSet {
    explicit FieldSet(const Field (&fields)[N]) : fields(fields) {
        slot.fill(-1);
        for (size_t i = 0; i < N; ++i) {
            // A keyword of two fields stores both: such a set takes the walk.
            if (wanted & Bit(fields[i].key)) oneEach = false;
            wanted |= Bit(fields[i].key);
            slot[fields[i].key] = static_cast<int8_t>(i);
        }
    }
    const Field (&fields)[N];
    uint64_t wanted = 0;
    bool oneEach = true;
    std::array<int8_t, 64> slot;
};

void StoreField(std::string_view line, const Field& field) {
    const size_t skip = Keywords().Key(field.key).size() + 1;
    if (line.size() < skip) throw std::out_of_range("basic_string::substr");
    field.value->assign(line.data() + skip, line.size() - skip);
}

// Every keyword of the line stores its value when the gate is open: the line
// behind the key and one character, wherever the key stands (the last line
// with a keyword wins), field by field in the set's order. A line too short
// for that fails as extractStringIn.
template <size_t N>
void Store(std::string_view line, uint64_t keywords, bool gate, const FieldSet<N>& set) {
    const uint64_t hits = keywords & set.wanted;
    if (!gate || !hits) return;
    if (set.oneEach && !(hits & (hits - 1))) {
        StoreField(line, set.fields[set.slot[__builtin_ctzll(hits)]]);
        return;
    }
    for (const Field& field : set.fields)
        if (keywords & Bit(field.key)) StoreField(line, field);
}

template <class T>
void Refuse(const T* record) {
    if (!record) throw TvkError(enumerationFailure, "", "");
}

}  // namespace

// One device text cut into lines, and the blocks of each pair of keys,
// cut the first time a level asks for them.
struct newUSBDevice::Text : CutLines {
    using CutLines::CutLines;
    Text(const Text&) = delete;
    Text& operator=(const Text&) = delete;

    // From a line holding `start` through the next line holding `end`; a
    // start line inside an open block changes nothing, an open block at the
    // end is dropped.
    const std::vector<Lines>& Blocks(LsusbKeyword start, LsusbKeyword end) {
        for (size_t i = 0; i < used; ++i)
            if (cuts[i].start == start && cuts[i].end == end) return cuts[i].blocks;
        // The parse asks for six pairs; a cut stays where it is while an
        // outer level still walks its own.
        if (used == cuts.size()) throw std::logic_error("lsusb parse asked for more cuts than it has");
        Cut& cut = cuts[used++];
        cut.start = start;
        cut.end = end;
        size_t open = lines.size();
        for (size_t i = 0; i < lines.size(); ++i) {
            if (open == lines.size() && (keywords[i] & Bit(start))) open = i;
            if (open != lines.size() && (keywords[i] & Bit(end))) {
                cut.blocks.push_back({lines.data() + open, lines.data() + i + 1, keywords.data() + open});
                open = lines.size();
            }
        }
        return cut.blocks;
    }

private:
    struct Cut {
        LsusbKeyword start, end;
        std::vector<Lines> blocks;
    };
    std::array<Cut, 6> cuts;
    size_t used = 0;
};

namespace {

// A block's text: its lines, each with its newline.
std::string Join(const newUSBDevice::Lines& block) {
    size_t size = 0;
    for (const std::string_view* line = block.begin; line != block.end; ++line) size += line->size() + 1;
    std::string text;
    text.reserve(size);
    for (const std::string_view* line = block.begin; line != block.end; ++line) {
        text.append(line->data(), line->size());
        text += '\n';
    }
    return text;
}

// Collect: each line stores what its keywords hold; a line with the stop
// keyword closes this level's gate, opens the next one and ends the
// collection.
template <size_t N>
void Collect(const newUSBDevice::Lines& lines, bool& gate, const Field (&fields)[N], LsusbKeyword stop, bool& next) {
    const FieldSet<N> set(fields);
    const uint64_t* keywords = lines.keywords;
    for (const std::string_view* line = lines.begin; line != lines.end; ++line, ++keywords) {
        Store(*line, *keywords, gate, set);
        if (!(*keywords & Bit(stop))) continue;
        gate = false;
        next = true;
        return;
    }
}

void CollectDevice(const newUSBDevice::Lines& lines, USBDevicesNode* node) {
    const Field fields[] = {{kwbLength, &node->bLength},
                            {kwbDescriptorType, &node->bDescriptorType},
                            {kwbcdUSB, &node->bcdUSB},
                            {kwbDeviceClass, &node->bDeviceClass},
                            {kwbDeviceSubClass, &node->bDeviceSubClass},
                            {kwbDeviceProtocol, &node->bDeviceProtocol},
                            {kwbMaxPacketSize0, &node->bMaxPacketSize0},
                            {kwidVendor, &node->idVendor},
                            {kwidProduct, &node->idProduct},
                            {kwbcdDevice, &node->bcdDevice},
                            {kwiManufacturer, &node->iManufacturer},
                            {kwiProduct, &node->iProduct},
                            {kwiSerial, &node->iSerial},
                            {kwbNumConfigurations, &node->bNumConfigurations},
                            {kwDeviceStatus, &node->deviceStatus}};
    const FieldSet<sizeof fields / sizeof fields[0]> set(fields);
    const uint64_t* keywords = lines.keywords;
    for (const std::string_view* line = lines.begin; line != lines.end; ++line, ++keywords) {
        if (*keywords & Bit(kwDeviceDescriptor)) newUSBDevice::bDeviceDescriptor = true;
        Store(*line, *keywords, newUSBDevice::bDeviceDescriptor, set);
        if (!(*keywords & Bit(kwConfigurationDescriptor))) continue;
        newUSBDevice::bDeviceDescriptor = false;
        newUSBDevice::bConfigurationDescriptor = true;
        return;
    }
}

void CollectConfig(const newUSBDevice::Lines& lines, USBConfiguration* configuration) {
    const Field fields[] = {{kwbLength, &configuration->bLength},
                            {kwbDescriptorType, &configuration->bDescriptorType},
                            {kwwTotalLength, &configuration->wTotalLength},
                            {kwbNumInterfaces, &configuration->bNumInterfaces},
                            {kwbConfigurationValue, &configuration->bConfigurationValue},
                            {kwiConfiguration, &configuration->iConfiguration},
                            {kwbmAttributes, &configuration->bmAttributes},
                            {kwMaxPower, &configuration->MaxPower}};
    Collect(lines, newUSBDevice::bConfigurationDescriptor, fields, kwInterfaceDescriptor,
            newUSBDevice::bInterfaceDescriptor);
}

void CollectInterface(const newUSBDevice::Lines& lines, USBInterfaces* interface) {
    const Field fields[] = {{kwbLength, &interface->bLength},
                            {kwbDescriptorType, &interface->bDescriptorType},
                            {kwbInterfaceNumber, &interface->bInterfaceNumber},
                            {kwbAlternateSetting, &interface->bAlternateSetting},
                            {kwbNumEndpoints, &interface->bNumEndpoints},
                            {kwbInterfaceClass, &interface->bInterfaceClass},
                            {kwbInterfaceSubClass, &interface->bInterfaceSubClass},
                            {kwbInterfaceProtocol, &interface->bInterfaceProtocol},
                            {kwiInterface, &interface->iInterface}};
    Collect(lines, newUSBDevice::bInterfaceDescriptor, fields, kwEndpointDescriptor, newUSBDevice::bEndpointDescriptor);
}

void CollectEndpoint(const newUSBDevice::Lines& lines, USBEndpoints* endpoint) {
    const Field fields[] = {{kwbLength, &endpoint->bLength},
                            {kwbDescriptorType, &endpoint->bDescriptorType},
                            {kwbEndpointAddress, &endpoint->bEndpointAddress},
                            {kwbmAttributes, &endpoint->bmAttributes},
                            {kwTransferType, &endpoint->transferType},
                            {kwSynchType, &endpoint->synchType},
                            {kwUsageType, &endpoint->usageType},
                            {kwwMaxPacketSize, &endpoint->wMaxPacketSize},
                            {kwbInterval, &endpoint->bInterval}};
    const FieldSet<sizeof fields / sizeof fields[0]> set(fields);
    const uint64_t* keywords = lines.keywords;
    for (const std::string_view* line = lines.begin; line != lines.end; ++line, ++keywords)
        Store(*line, *keywords, newUSBDevice::bEndpointDescriptor, set);
}

void CollectHub(const newUSBDevice::Lines& lines, USBHub* hub) {
    const Field fields[] = {{kwbLength, &hub->bLength},
                            {kwbDescriptorType, &hub->bDescriptorType},
                            {kwnNbrPorts, &hub->nNbrPorts},
                            {kwwHubCharacteristic, &hub->wHubCharacteristic},
                            {kwbPwrOn2PwrGood, &hub->bPwrOn2PwrGood},
                            {kwbHubContrCurrent, &hub->bHubContrCurrent},
                            {kwDeviceRemovable, &hub->DeviceRemovable},
                            {kwPortPwrCtrlMask, &hub->PortPwrCtrlMask}};
    Collect(lines, newUSBDevice::bHubDescriptor, fields, kwDeviceStatus, newUSBDevice::bHidDeviceDescriptor);
}

void CollectHid(const newUSBDevice::Lines& lines, USBHidDevices* hid) {
    const Field fields[] = {{kwbLength, &hid->bLength},
                            {kwbDescriptorType, &hid->bDescriptorType},
                            {kwbcdHID, &hid->bcdHID},
                            {kwbCountryCode, &hid->bCountryCode},
                            {kwbNumDescriptors, &hid->bNumDescriptors},
                            {kwwDescriptorLength, &hid->wDescriptorLength}};
    Collect(lines, newUSBDevice::bHidDeviceDescriptor, fields, kwEndpointDescriptor, newUSBDevice::bHubDescriptor);
}

}  // namespace

void newUSBDevice::processDeviceInfo() {
    recordsLeft = maxRecordsPerParse;
    // The text stays as it is for the whole parse, so the lines may point
    // into it.
    Text text(deviceInfo);
    ParseDeviceNode(text, createDevicesNode());
}

USBDevicesNode* newUSBDevice::createDevicesNode() {
    USBDevicesNode* node = new USBDevicesNode();
    delete devicesNode;
    devicesNode = node;
    return node;
}

std::vector<std::string> newUSBDevice::getVecInfo(std::string text, std::string startKey, std::string endKey) {
    std::vector<std::string> blocks;
    std::string buffer;
    bool open = false;
    const CutLines lines(text);
    for (const std::string_view line : lines.lines) {
        if (line.find(startKey) != std::string_view::npos) open = true;
        if (open) {
            buffer.append(line.data(), line.size());
            buffer += '\n';
        }
        if (open && line.find(endKey) != std::string_view::npos) {
            blocks.push_back(std::move(buffer));
            buffer.clear();
            open = false;
        }
    }
    return blocks;
}

bool newUSBDevice::Allow() {
    if (recordsLeft <= 0) return false;
    --recordsLeft;
    return true;
}

// ---- the parse on lines ----

void newUSBDevice::ParseDeviceNode(Text& text, USBDevicesNode* node) {
    CollectDevice(text.All(), node);
    for (const Lines& block : text.Blocks(kwConfigurationDescriptor, kwInterfaceDescriptor)) {
        if (!Allow()) break;
        USBConfiguration* configuration = node->createUSBConfiguration();
        ParseConfigNode(block, configuration, text);
        node->addObjectToVector(configuration);
    }
}

void newUSBDevice::ParseConfigNode(const Lines& block, USBConfiguration* configuration, Text& text) {
    CollectConfig(block, configuration);
    for (const Lines& interfaceBlock : text.Blocks(kwInterfaceDescriptor, kwEndpointDescriptor)) {
        if (!Allow()) break;
        USBInterfaces* interface = configuration->createUSBInterfaces();
        ParseInterfaceNode(interfaceBlock, interface, text);
        configuration->addObjectToVector(interface);
    }
}

void newUSBDevice::ParseInterfaceNode(const Lines& block, USBInterfaces* interface, Text& text) {
    CollectInterface(block, interface);
    for (const Lines& endpointBlock : text.Blocks(kwEndpointDescriptor, kwbInterval)) {
        if (!Allow()) break;
        USBEndpoints* endpoint = interface->createUSBEndpoints();
        ParseEndpointNode(endpointBlock, endpoint);
        interface->addObjectToEndpointVector(endpoint);
    }
    // The class decides by its digits alone, on the raw value: a 3 anywhere
    // is HID, else a 9 anywhere is a hub.
    if (interface->bInterfaceClass.find('3') != std::string::npos) {
        for (const Lines& hidBlock : text.Blocks(kwHIDDeviceDescriptor, kwEndpointDescriptor)) {
            if (!Allow()) break;
            USBHidDevices* hid = interface->createUSBHidDevices();
            CollectHid(hidBlock, hid);
            interface->addObjectToHidVector(hid);
        }
    } else if (interface->bInterfaceClass.find('9') != std::string::npos) {
        for (const Lines& hubBlock : text.Blocks(kwHubDescriptor, kwDeviceStatus)) {
            if (!Allow()) break;
            USBHub* hub = interface->createUSBHub();
            ParseHubNode(hubBlock, hub, text);
            interface->addObjectToHubVector(hub);
        }
    }
}

void newUSBDevice::ParseEndpointNode(const Lines& block, USBEndpoints* endpoint) {
    CollectEndpoint(block, endpoint);
    bEndpointDescriptor = false;
    bHubDescriptor = true;
    bHidDeviceDescriptor = true;
}

void newUSBDevice::ParseHubNode(const Lines& block, USBHub* hub, Text& text) {
    CollectHub(block, hub);
    for (const Lines& portBlock : text.Blocks(kwHubPortStatus, kwDeviceStatus)) {
        if (!Allow()) break;
        hub->addObjectToVector(Join(portBlock));
    }
}

// ---- node operations on texts ----

void newUSBDevice::addInformationToDeviceNode(std::string text, USBDevicesNode* node) {
    Refuse(node);
    Text lines(text);
    ParseDeviceNode(lines, node);
}

void newUSBDevice::addInformationToConfigNode(std::string block, USBConfiguration* configuration, std::string text) {
    Refuse(configuration);
    Text lines(text);
    ParseConfigNode(CutLines(block).All(), configuration, lines);
}

void newUSBDevice::addInformationToInterfaceNode(std::string block, USBInterfaces* interface, std::string text) {
    Refuse(interface);
    Text lines(text);
    ParseInterfaceNode(CutLines(block).All(), interface, lines);
}

void newUSBDevice::addInformationToEndpointNode(std::string block, USBEndpoints* endpoint, std::string) {
    Refuse(endpoint);
    ParseEndpointNode(CutLines(block).All(), endpoint);
}

void newUSBDevice::addInformationToHubNode(std::string block, USBHub* hub, std::string text) {
    Refuse(hub);
    Text lines(text);
    ParseHubNode(CutLines(block).All(), hub, lines);
}

void newUSBDevice::addInformationToHidNode(std::string block, USBHidDevices* hid, std::string) {
    Refuse(hid);
    CollectHid(CutLines(block).All(), hid);
}

// ---- collect operations on texts ----

void newUSBDevice::addInformationToDevice(std::string text, USBDevicesNode* node) {
    Refuse(node);
    CollectDevice(CutLines(text).All(), node);
}

void newUSBDevice::addInformationToConfig(std::string block, USBConfiguration* configuration) {
    Refuse(configuration);
    CollectConfig(CutLines(block).All(), configuration);
}

void newUSBDevice::addInformationToInterface(std::string block, USBInterfaces* interface) {
    Refuse(interface);
    CollectInterface(CutLines(block).All(), interface);
}

void newUSBDevice::addInformationToEndpoint(std::string block, USBEndpoints* endpoint) {
    Refuse(endpoint);
    CollectEndpoint(CutLines(block).All(), endpoint);
}

void newUSBDevice::addInformationToHub(std::string block, USBHub* hub) {
    Refuse(hub);
    CollectHub(CutLines(block).All(), hub);
}

void newUSBDevice::addInformationToHid(std::string block, USBHidDevices* hid) {
    Refuse(hid);
    CollectHid(CutLines(block).All(), hid);
}
