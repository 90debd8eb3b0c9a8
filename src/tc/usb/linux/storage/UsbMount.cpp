#include "tc/usb/linux/storage/UsbMount.h"

#include <dirent.h>
#include <unistd.h>

#include <sstream>

#include "common/Debug.h"
#include "common/StringUtil.h"
#include "common/TvkError.h"
#include "tc/usb/linux/storage/ExternalTool.h"
#include "tc/usb/linux/storage/MountTable.h"

namespace {

const char* const usbStorageDir = "/proc/scsi/usb-storage/";

// Runs a tool with its output in the scratch file and gives that text back;
// false when the tool could not run or did not succeed.
bool RunIntoScratch(const std::vector<std::string>& argv, ToolOutput stderrMode, std::string& text) {
    const int fd = CreateScratchFile(toolOutputFile);
    if (fd < 0) return false;
    const int status = RunTool(argv, fd, ToolOutput::inherit, stderrMode);
    if (!ToolSucceeded(status)) {
        close(fd);
        return false;
    }
    text = ReadWholeFd(fd);
    close(fd);
    return true;
}

}  // namespace

UsbMount::~UsbMount() = default;

std::string UsbMount::GetMountPoint(std::string serial) {
    DIR* dir = opendir(usbStorageDir);
    if (!dir) throw TvkError("Could not locate files", "/proc/scsi/usb-storage", "");
    std::string result;
    // An empty serial number would match any line: it finds nothing.
    if (!serial.empty()) {
        try {
            while (const dirent* entry = readdir(dir)) {
                if (entry->d_name[0] == '.') continue;
                result = FindMountPoint(usbStorageDir, entry->d_name, serial);
                if (!result.empty()) break;
            }
        } catch (...) {
            closedir(dir);
            throw;
        }
    }
    closedir(dir);
    return result;
}

std::string UsbMount::FindMountPoint(std::string directory, std::string entry, std::string serial) {
    std::string text;
    if (!ReadFileContents(directory + entry, text)) throw TvkError("Could not locate files", entry, "");
    std::istringstream in(text);
    std::string result;
    for (std::string line; std::getline(in, line);) {
        if (line.find(serial) == std::string::npos) continue;
        result = GetDevicePath(GetDevNode("scsi" + entry));
        break;
    }
    return result;
}

std::string UsbMount::DevNodeFromText(const std::string& text, const std::string& host) {
    if (host.empty()) return std::string();
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        const size_t at = line.find(host);
        if (at == std::string::npos) continue;
        // The line is "<node>: <host> ..."; a host less than two characters
        // in leaves no node in front of it.
        if (at < 2) return std::string();
        return line.substr(0, at - 2);
    }
    return std::string();
}

std::string UsbMount::DevicePathFromText(const std::string& text, const std::string& node) {
    if (node.empty()) return std::string();
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        const size_t at = line.find(node);
        if (at == std::string::npos) continue;
        // A node of 8 characters and two blanks stand in front of the disk.
        const size_t start = at + 10;
        return start >= line.size() ? std::string() : line.substr(start);
    }
    return std::string();
}

std::string UsbMount::GetDevNode(std::string host) {
    std::string text;
    if (!RunIntoScratch({"sg_scan"}, ToolOutput::discard, text)) return std::string();
    const std::string node = DevNodeFromText(text, host);
    if (!node.empty()) dbgprintf("Dev Node for USB Drive:%s\n", node.c_str());
    unlink(toolOutputFile);
    return node;
}

std::string UsbMount::GetDevicePath(std::string node) {
    if (node.empty()) return std::string();
    std::string text;
    if (!RunIntoScratch({"sg_map"}, ToolOutput::inherit, text)) return std::string();
    const std::string path = DevicePathFromText(text, node);
    if (!path.empty()) dbgprintf("Devce path found for USB Drive:%s\n", path.c_str());
    unlink(toolOutputFile);
    return path;
}

int UsbMount::MountUSB(std::string device, std::string directory) {
    dbgprintf("dev Name: %s, mount dir:%s\n", device.c_str(), directory.c_str());
    // Nothing that mount could take for an option.
    if (!IsPathOperand(device) || !IsPathOperand(directory)) return -1;
    return RunTool({"mount", "-t", "vfat", device, directory}, -1, ToolOutput::discard, ToolOutput::discard);
}

void UsbMount::UnMountUSB(const char* directory) {
    if (!directory || !IsPathOperand(directory)) return;
    RunTool({"umount", directory});
}

void UsbMount::CreateMountDir(std::string directory) {
    if (!IsPathOperand(directory)) return;
    RunTool({"mkdir", "-p", directory});
}

void UsbMount::RemoveMountDir(std::string directory) {
    if (!IsPathOperand(directory)) return;
    // An unmount that did not work must not turn into the removal of what
    // the drive holds.
    if (HasMountAtOrBelow(ReadMountTable(), directory)) {
        dbgprintf("%s still has a file system mounted; not removed\n", directory.c_str());
        return;
    }
    RunTool({"rm", "-rf", directory});
}
