#include "tc/usb/linux/storage/DriveGuard.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>

#include "common/Debug.h"
#include "common/Translate.h"
#include "common/TvkError.h"
#include "tc/usb/linux/storage/MountTable.h"

const char* const driveMountedText = "Drive has a mounted partition; it is not written";
const char* const driveSwapText = "Drive is in use as swap; it is not written";
const char* const driveHeldText = "Drive is held by another block device; it is not written";
const char* const driveBusyText = "Drive is busy (exclusive open refused); it is not written";

namespace {

const char* const sysBlock = "/sys/block/";

std::string LastElement(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// The entries of a sysfs folder, without "." and "..", sorted.
std::vector<std::string> Entries(const std::string& folder) {
    std::vector<std::string> names;
    DIR* dir = opendir(folder.c_str());
    if (!dir) return names;
    while (const dirent* entry = readdir(dir)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") names.push_back(name);
    }
    closedir(dir);
    std::sort(names.begin(), names.end());
    return names;
}

void AddHolders(const std::string& folder, const std::string& held, std::vector<std::string>& holders) {
    for (const std::string& holder : Entries(folder + "/holders")) holders.push_back(held + " held by " + holder);
}

}  // namespace

std::string BlockDeviceName(const std::string& disk) {
    struct stat info {};
    if (stat(disk.c_str(), &info) == 0 && S_ISBLK(info.st_mode)) {
        char target[PATH_MAX];
        const std::string link =
            "/sys/dev/block/" + std::to_string(major(info.st_rdev)) + ":" + std::to_string(minor(info.st_rdev));
        const ssize_t length = readlink(link.c_str(), target, sizeof target - 1);
        if (length > 0) return LastElement(std::string(target, static_cast<size_t>(length)));
    }
    char* resolved = realpath(disk.c_str(), nullptr);
    const std::string path = resolved ? resolved : disk;
    std::free(resolved);
    return LastElement(path);
}

std::vector<std::string> HoldersOf(const std::string& disk) {
    std::vector<std::string> holders;
    const std::string name = BlockDeviceName(disk);
    if (name.empty() || name == "." || name == "..") return holders;
    const std::string folder = sysBlock + name;
    AddHolders(folder, name, holders);
    // The partitions are the sub-folders named after the disk ("sdb1",
    // "nvme0n1p2").
    for (const std::string& entry : Entries(folder))
        if (entry.size() > name.size() && entry.compare(0, name.size(), name) == 0)
            AddHolders(folder + "/" + entry, entry, holders);
    return holders;
}

void RefuseDriveInUse(const std::string& disk, const std::string& detail) {
    if (FindDeviceOrPartition(ReadMountTable(), disk)) throw TvkError(Translate(driveMountedText), detail, "");
    const std::vector<MountEntry> swaps = ReadSwapTable();
    if (const MountEntry* swap = FindDeviceOrPartition(swaps, disk))
        throw TvkError(Translate(driveSwapText), detail + ": " + swap->source + " is swap", "");
    const std::vector<std::string> holders = HoldersOf(disk);
    if (!holders.empty()) {
        std::string list;
        for (const std::string& holder : holders) list += (list.empty() ? "" : ", ") + holder;
        throw TvkError(Translate(driveHeldText), detail + ": " + list, "");
    }
}

int OpenDriveExclusively(const std::string& disk, const std::string& detail) {
    // O_EXCL without O_CREAT claims a block device; the drive must exist
    // already, so a vanished disk is not made into a new file under /dev.
    const int fd = open(disk.c_str(), O_RDWR | O_EXCL | O_CLOEXEC);
    if (fd >= 0) return fd;
    if (errno == EBUSY) throw TvkError(Translate(driveBusyText), detail, "");
    dbgprintf("Device Not Connected\n");
    throw TvkError("Device Not Connected", detail, "");
}

unsigned LogicalBlockSize(int fd) {
    struct stat info {};
    int size = 0;
    // Only a real block device is asked: an ioctl on a test bed's stand-in
    // would go to its ioctl emulation.
    if (fstat(fd, &info) == 0 && S_ISBLK(info.st_mode) && ioctl(fd, BLKSSZGET, &size) == 0 && size >= 512 &&
        (size & (size - 1)) == 0)
        return static_cast<unsigned>(size);
    return 512;
}
