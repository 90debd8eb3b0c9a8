#include "tc/usb/linux/storage/SavedDriveFile.h"

#include <cinttypes>
#include <cstdio>

#include "tc/usb/linux/storage/Hash64.h"

namespace {

const char* const magic = "zorbus saved drive bytes 1\n";
const char* const namePrefix = "zorbus-drive-";
const char* const nameSuffix = ".saved";
// Longer texts than these are no disk path or serial number.
const size_t longestText = 4096;
const size_t serialInName = 40;

std::string Hex(uint64_t value) {
    char text[17];
    std::snprintf(text, sizeof text, "%016" PRIx64, value);
    return text;
}

bool EndsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// Reads the header field by field; every read checks what it finds.
class HeaderReader {
public:
    explicit HeaderReader(const std::string& text) : text(text) {}
    size_t Position() const { return at; }

    bool Literal(const std::string& expected) {
        if (text.compare(at, expected.size(), expected) != 0) return false;
        at += expected.size();
        return true;
    }
    // Decimal digits up to `end`, no sign, no leading zeros, within limits.
    bool Number(char end, uint64_t& value) {
        const size_t start = at;
        value = 0;
        while (at < text.size() && text[at] >= '0' && text[at] <= '9') {
            if (at - start >= 19) return false;
            value = value * 10 + static_cast<uint64_t>(text[at++] - '0');
        }
        if (at == start || (text[start] == '0' && at - start > 1)) return false;
        return Literal(std::string(1, end));
    }
    // "NAME LENGTH TEXT\n"
    bool Text(const std::string& name, std::string& value) {
        uint64_t length = 0;
        if (!Literal(name + " ") || !Number(' ', length) || length > longestText || text.size() - at < length + 1)
            return false;
        value = text.substr(at, length);
        at += length;
        return Literal("\n");
    }
    bool Field(const std::string& name, uint64_t& value) { return Literal(name + " ") && Number('\n', value); }
    bool Checksum(const std::string& name, uint64_t& value) {
        if (!Literal(name + " ") || text.size() - at < 17 || text[at + 16] != '\n') return false;
        value = 0;
        for (size_t i = 0; i < 16; ++i) {
            const char c = text[at + i];
            const int digit = c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
            if (digit < 0) return false;
            value = value << 4 | static_cast<uint64_t>(digit);
        }
        at += 17;
        return true;
    }

private:
    const std::string& text;
    size_t at = 0;
};

}  // namespace

std::string SavedDriveFile::Header() const {
    std::string header = magic;
    header += "disk " + std::to_string(disk.size()) + " " + disk + "\n";
    header += "serial " + std::to_string(serial.size()) + " " + serial + "\n";
    header += "block " + std::to_string(block) + "\n";
    header += "size " + std::to_string(size) + "\n";
    header += "length " + std::to_string(length) + "\n";
    header += "saved " + Hex(savedSum) + "\n";
    header += "written " + Hex(writtenSum) + "\n";
    return header + "check " + Hex(Hash64::Of(header.data(), header.size())) + "\n";
}

std::string ParseSavedDriveHeader(const std::string& text, SavedDriveFile& file) {
    HeaderReader in(text);
    if (!in.Literal(magic)) return "not a saved drive file";
    uint64_t check = 0;
    if (!in.Text("disk", file.disk) || !in.Text("serial", file.serial) || !in.Field("block", file.block) ||
        !in.Field("size", file.size) || !in.Field("length", file.length) || !in.Checksum("saved", file.savedSum) ||
        !in.Checksum("written", file.writtenSum))
        return "header unreadable";
    const size_t checked = in.Position();
    if (!in.Checksum("check", check)) return "header unreadable";
    if (check != Hash64::Of(text.data(), checked)) return "header checksum wrong";
    if (file.block < 512 || file.block > 65536 || (file.block & (file.block - 1)) != 0 || file.length > file.size ||
        file.disk.empty())
        return "header unreadable";
    return "";
}

std::string SavedDriveFileName(const std::string& serial) {
    std::string plain;
    for (char c : serial) {
        if (plain.size() == serialInName) break;
        const bool safe =
            (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
        plain += safe ? c : '_';
    }
    return namePrefix + plain + "-" + Hex(Hash64::Of(serial.data(), serial.size())) + nameSuffix;
}

bool IsSavedDriveFileName(const std::string& name) {
    return name.compare(0, 13, namePrefix) == 0 && EndsWith(name, nameSuffix);
}

std::string PartialName(const std::string& name) { return name + ".part"; }

void PutChecksum(uint64_t value, unsigned char* bytes) {
    for (int i = 0; i < 8; ++i) bytes[i] = static_cast<unsigned char>(value >> (8 * i));
}

uint64_t GetChecksum(const unsigned char* bytes) {
    uint64_t value = 0;
    for (int i = 7; i >= 0; --i) value = value << 8 | bytes[i];
    return value;
}
