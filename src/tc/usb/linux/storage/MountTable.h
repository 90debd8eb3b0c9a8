// What is mounted on this machine, from the kernel's mount table, and what
// serves as swap, from its swap table. The storage tests write straight to
// drives and remove their mount directory; neither may ever reach into a
// mounted file system or a swap area.
#pragma once

#include <string>
#include <vector>

struct MountEntry {
    std::string source;  // the device, as the table names it
    std::string target;  // the mount point
};

// The entries of a mount table text (the kernel's format, with its octal
// escapes for blanks and the like undone).
std::vector<MountEntry> ParseMountTable(const std::string& text);

// The table of this process: /proc/self/mounts, else /proc/mounts. Empty
// when neither can be read.
std::vector<MountEntry> ReadMountTable();

// The swap areas of a /proc/swaps text (column heads first): the area's file
// or device as source, its type ("partition", "file") as target.
std::vector<MountEntry> ParseSwapTable(const std::string& text);
// The swap areas of /proc/swaps; empty when it cannot be read.
std::vector<MountEntry> ReadSwapTable();

// The entry whose source is `device` or one of its partitions, null when
// there is none. Sources are matched as IsDeviceOrPartitionMounted says.
const MountEntry* FindDeviceOrPartition(const std::vector<MountEntry>& table, const std::string& device);

// True when `device` or one of its partitions ("/dev/sdb1", "/dev/nvme0n1p2",
// also when named through a link) is the source of an entry.
bool IsDeviceOrPartitionMounted(const std::vector<MountEntry>& table, const std::string& device);

// True when something is mounted at `directory` or anywhere below it.
bool HasMountAtOrBelow(const std::vector<MountEntry>& table, const std::string& directory);
