#include "tc/usb/linux/storage/ScsiPathMapping.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <sstream>
#include <stdexcept>

#include "common/Debug.h"
#include "tc/usb/linux/records/USBRecords.h"
#include "tc/usb/linux/storage/ExternalTool.h"

namespace {

// The name under which these functions have always logged.
const char* const logSource = "../../src/tc/usb/linux/filewtcmptest";
const char* const usbStorageDir = "/proc/scsi/usb-storage/";
// The tools' lines were read with a buffer of 2048 bytes.
const size_t toolLineBuffer = 2048;

bool IsDirectory(const std::string& path) {
    DIR* dir = opendir(path.c_str());
    if (!dir) return false;
    closedir(dir);
    return true;
}

}  // namespace

void FindUSB_DriveProcFiles(std::vector<std::string>& files) {
    // opendir rather than glob: glob reads directories behind the back of
    // interposed file access, so a test bed would not be seen.
    DIR* dir = opendir(usbStorageDir);
    if (!dir) {
        dbgprintf("File(%s) Function(%s) Line(%d): Failed to fill out the glob buffer get the usb drives' proc "
                  "files.",
                  logSource, "FindUSB_DriveProcFiles", 414);
        return;
    }
    while (const dirent* entry = readdir(dir)) {
        const std::string name = entry->d_name;
        if (name == "." || name == "..") continue;
        const std::string path = usbStorageDir + name;
        if (IsDirectory(path)) continue;
        files.push_back(path);
    }
    closedir(dir);
}

void MapSerialNumbersFromText(const std::string& text, std::map<std::string, std::string>& map) {
    std::istringstream in(text);
    std::string host;
    std::string serial;
    for (std::string line; std::getline(in, line);) {
        if (line.find("Host scsi") != std::string::npos) {
            const size_t start = line.find("scsi");
            host = line.substr(start, line.find(':') - start);
        } else if (line.find("Serial Number") != std::string::npos) {
            // Throws std::out_of_range for a line that ends right behind ':'.
            serial = line.substr(line.find(':') + 2);
            map.insert(std::make_pair(serial, host));
        }
    }
}

void MapUSB_SerialNumbersToSCSI_HostIDs(std::vector<std::string>& files, std::map<std::string, std::string>& map) {
    for (const std::string& file : files) {
        const int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0) throw std::runtime_error("Unable to open file for reading: " + file);
        const std::string text = ReadWholeFd(fd);
        close(fd);
        MapSerialNumbersFromText(text, map);
    }
}

void MapHostIDsFromText(const std::string& text, std::map<std::string, std::string>& map) {
    for (const std::string& line : SplitLikeFgets(text, toolLineBuffer)) {
        // A line without "scsi" throws std::out_of_range here.
        const size_t start = line.find("scsi");
        const std::string key = line.substr(start, line.find("channel") - start - 1);
        map.insert(std::make_pair(key, line.substr(0, line.find(':'))));
    }
}

void MapGenericPathsFromText(const std::string& text, std::map<std::string, std::string>& map) {
    for (const std::string& line : SplitLikeFgets(text, toolLineBuffer)) {
        const size_t blank = line.find(' ');
        const std::string key = line.substr(0, blank);
        const size_t start = blank + 2;
        const std::string value = start >= line.size() ? std::string() : line.substr(start, line.size() - start - 1);
        map.insert(std::make_pair(key, value));
    }
}

void MapSCSI_HostIDsToSCSI_GenericPaths(std::map<std::string, std::string>& map) {
    std::string output;
    if (!CaptureTool({"./sg_scan"}, output)) {
        dbgprintf("File(%s) Function(%s) Line(%d): Failed to run sg_scan.", logSource,
                  "MapSCSI_HostIDsToSCSI_GenericPaths", 515);
        return;
    }
    MapHostIDsFromText(output, map);
}

void MapSCSI_GenericPathsToSCSI_DiskPaths(std::map<std::string, std::string>& map) {
    std::string output;
    if (!CaptureTool({"./sg_map"}, output)) {
        dbgprintf("File(%s) Function(%s) Line(%d): Failed to run sg_map.", logSource,
                  "MapSCSI_GenericPathsToSCSI_DiskPaths", 546);
        return;
    }
    MapGenericPathsFromText(output, map);
}

std::map<std::string, std::string> MapUSB_SerialNumbersToDiskPaths() {
    std::vector<std::string> files;
    std::map<std::string, std::string> serialToHost;
    std::map<std::string, std::string> hostToGeneric;
    std::map<std::string, std::string> genericToDisk;
    FindUSB_DriveProcFiles(files);
    MapUSB_SerialNumbersToSCSI_HostIDs(files, serialToHost);
    MapSCSI_HostIDsToSCSI_GenericPaths(hostToGeneric);
    MapSCSI_GenericPathsToSCSI_DiskPaths(genericToDisk);
    std::map<std::string, std::string> disks;
    for (const auto& serialAndHost : serialToHost) {
        const auto generic = hostToGeneric.find(serialAndHost.second);
        if (generic == hostToGeneric.end()) continue;
        const auto disk = genericToDisk.find(generic->second);
        if (disk != genericToDisk.end() && !disk->second.empty()) disks[serialAndHost.first] = disk->second;
    }
    return disks;
}

std::string GetUSB_DriveDiskPath(USBnode* node) {
    std::vector<std::string> files;
    std::map<std::string, std::string> serialToHost;
    std::map<std::string, std::string> hostToGeneric;
    std::map<std::string, std::string> genericToDisk;
    FindUSB_DriveProcFiles(files);
    MapUSB_SerialNumbersToSCSI_HostIDs(files, serialToHost);
    MapSCSI_HostIDsToSCSI_GenericPaths(hostToGeneric);
    MapSCSI_GenericPathsToSCSI_DiskPaths(genericToDisk);

    const std::string serial = node && !node->serialNumber.empty() ? node->serialNumber : "None";
    const auto find = [](const std::map<std::string, std::string>& map, const std::string& key) {
        const auto it = map.find(key);
        return it == map.end() ? std::string() : it->second;
    };
    const std::string host = find(serialToHost, serial);
    const std::string generic = find(hostToGeneric, host);
    const std::string disk = find(genericToDisk, generic);
    dbgprintf("serial %s, host %s, generic %s, disk %s\n", serial.c_str(), host.c_str(), generic.c_str(), disk.c_str());
    return disk;
}
