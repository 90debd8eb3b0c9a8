#include "tc/usb/linux/storage/MountTable.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>

#include "tc/usb/linux/storage/ExternalTool.h"

namespace {

// "\040" and its kin back to the characters they stand for.
std::string Unescape(const std::string& field) {
    std::string out;
    for (size_t i = 0; i < field.size(); ++i) {
        if (field[i] == '\\' && i + 3 < field.size() && field[i + 1] >= '0' && field[i + 1] <= '3' &&
            field[i + 2] >= '0' && field[i + 2] <= '7' && field[i + 3] >= '0' && field[i + 3] <= '7') {
            out += static_cast<char>((field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 + (field[i + 3] - '0'));
            i += 3;
        } else {
            out += field[i];
        }
    }
    return out;
}

// The whole text of a kernel table; false when it cannot be opened.
bool ReadTable(const char* path, std::string& text) {
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    text = ReadWholeFd(fd);
    close(fd);
    return true;
}

std::string Canonical(const std::string& path) {
    char* resolved = realpath(path.c_str(), nullptr);
    if (!resolved) return path;
    std::string result(resolved);
    std::free(resolved);
    return result;
}

std::string WithoutTrailingSlashes(std::string path) {
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
}

// `candidate` names `device` itself or a partition of it: the device's
// name, an optional "p", then digits only.
bool IsSelfOrPartition(const std::string& device, const std::string& candidate) {
    if (device.empty() || candidate.compare(0, device.size(), device) != 0) return false;
    std::string rest = candidate.substr(device.size());
    if (rest.empty()) return true;
    if (rest[0] == 'p') rest.erase(0, 1);
    if (rest.empty()) return false;
    for (char c : rest)
        if (c < '0' || c > '9') return false;
    return true;
}

}  // namespace

std::vector<MountEntry> ParseMountTable(const std::string& text) {
    std::vector<MountEntry> table;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        std::istringstream fields(line);
        std::string source, target;
        if (fields >> source >> target) table.push_back(MountEntry{Unescape(source), Unescape(target)});
    }
    return table;
}

std::vector<MountEntry> ReadMountTable() {
    std::string text;
    for (const char* path : {"/proc/self/mounts", "/proc/mounts"})
        if (ReadTable(path, text)) return ParseMountTable(text);
    return {};
}

std::vector<MountEntry> ParseSwapTable(const std::string& text) {
    std::vector<MountEntry> table;
    std::istringstream in(text);
    std::string line;
    std::getline(in, line);  // the column heads
    while (std::getline(in, line)) {
        std::istringstream fields(line);
        std::string file, type;
        if (fields >> file >> type) table.push_back(MountEntry{Unescape(file), type});
    }
    return table;
}

std::vector<MountEntry> ReadSwapTable() {
    std::string text;
    ReadTable("/proc/swaps", text);
    return ParseSwapTable(text);
}

const MountEntry* FindDeviceOrPartition(const std::vector<MountEntry>& table, const std::string& device) {
    const std::string canonicalDevice = Canonical(device);
    struct stat deviceStat {};
    const bool isBlock = stat(device.c_str(), &deviceStat) == 0 && S_ISBLK(deviceStat.st_mode);
    for (const MountEntry& entry : table) {
        if (IsSelfOrPartition(device, entry.source) || IsSelfOrPartition(canonicalDevice, entry.source) ||
            IsSelfOrPartition(canonicalDevice, Canonical(entry.source)))
            return &entry;
        struct stat sourceStat {};
        if (isBlock && entry.source.compare(0, 1, "/") == 0 && stat(entry.source.c_str(), &sourceStat) == 0 &&
            S_ISBLK(sourceStat.st_mode) && sourceStat.st_rdev == deviceStat.st_rdev)
            return &entry;
    }
    return nullptr;
}

bool IsDeviceOrPartitionMounted(const std::vector<MountEntry>& table, const std::string& device) {
    return FindDeviceOrPartition(table, device) != nullptr;
}

bool HasMountAtOrBelow(const std::vector<MountEntry>& table, const std::string& directory) {
    const std::string base = WithoutTrailingSlashes(directory);
    const std::string canonicalBase = WithoutTrailingSlashes(Canonical(directory));
    for (const MountEntry& entry : table) {
        const std::string target = WithoutTrailingSlashes(entry.target);
        for (const std::string& dir : {base, canonicalBase}) {
            if (target == dir) return true;
            if (dir == "/" ||
                (target.size() > dir.size() && target.compare(0, dir.size(), dir) == 0 && target[dir.size()] == '/'))
                return true;
        }
    }
    return false;
}
