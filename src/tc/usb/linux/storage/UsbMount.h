// The port test's bridge from a USB serial number to a block device it can
// mount: the usb-storage files under /proc name the serial number on each
// SCSI host, `sg_scan` maps the host to its generic node and `sg_map` the
// node to its block device. It also mounts and unmounts. All tools run
// without a shell, and their output passes through "/tmp/OUTFILE".
#pragma once

#include <string>

class UsbMount {
public:
    UsbMount() = default;
    virtual ~UsbMount();

    // The whole device's block device for `serial`, or empty. Throws
    // TvkError "Could not locate files" when /proc/scsi/usb-storage/ cannot
    // be read.
    std::string GetMountPoint(std::string serial);
    // The block device when the host file `directory` + `entry` names
    // `serial`; throws TvkError "Could not locate files" when it won't open.
    std::string FindMountPoint(std::string directory, std::string entry, std::string serial);
    // The generic node of `host` ("scsi2") from `sg_scan`, or empty.
    std::string GetDevNode(std::string host);
    // The block device of a generic node from `sg_map`, or empty.
    std::string GetDevicePath(std::string node);
    // Mounts `device` (vfat) on `directory`; 0 when mounted.
    int MountUSB(std::string device, std::string directory);
    void UnMountUSB(const char* directory);
    void CreateMountDir(std::string directory);
    // Removes `directory` with all it holds, but never while anything is
    // mounted at or below it.
    void RemoveMountDir(std::string directory);

    // The parsing steps on a tool's text, for the operations above and tests.
    static std::string DevNodeFromText(const std::string& text, const std::string& host);
    static std::string DevicePathFromText(const std::string& text, const std::string& node);
};
