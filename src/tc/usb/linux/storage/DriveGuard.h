// Whether a drive may be written at all. The file write compare test writes
// from a drive's first byte on; a drive that the system uses (a mounted
// partition, swap, a member of a device-mapper, RAID or LVM volume, or
// anything else that has claimed it) is never written, even though its
// bytes would be put back afterwards: the system reads and writes it
// meanwhile.
#pragma once

#include <string>
#include <vector>

// The refusals, as the test reports them (keys of TvkError, translated).
extern const char* const driveMountedText;
extern const char* const driveSwapText;
extern const char* const driveHeldText;
extern const char* const driveBusyText;

// "sdb" for the disk node `disk`: the kernel's name of a block device (from
// its device number), else the last element of the path, links resolved.
std::string BlockDeviceName(const std::string& disk);

// What holds the disk or one of its partitions, from sysfs: "sdb held by
// dm-0" for a holder of the disk, "sdb1 held by md0" for one of a partition.
std::vector<std::string> HoldersOf(const std::string& disk);

// Throws TvkError with one of the texts above and `detail` (followed by what
// uses the drive) when a partition of `disk` is mounted or swap, or when
// another block device holds it. Checks the kernel's tables, not the drive.
void RefuseDriveInUse(const std::string& disk, const std::string& detail);

// Opens `disk` for reading and writing and claims it: while the descriptor
// is open, nothing can mount it or build a volume on it. Throws TvkError
// "Device Not Connected" when it cannot be opened, and the busy refusal
// when the kernel refuses the claim because something has it already. A
// plain file (what tests use for a drive) cannot be claimed and opens as it is.
int OpenDriveExclusively(const std::string& disk, const std::string& detail);

// The drive's logical block size: the unit it writes whole. 512 for what
// is no block device.
unsigned LogicalBlockSize(int fd);
