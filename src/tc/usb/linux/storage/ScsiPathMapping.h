// From a drive's USB serial number to its disk device, in three maps: the
// usb-storage files under /proc name the SCSI host of each serial number,
// "./sg_scan" the generic node of each host, "./sg_map" the disk of each
// generic node. The maps are made anew for every drive.
#pragma once

#include <map>
#include <string>
#include <vector>

class USBnode;

// The disk path of the drive `node` stands for, or empty when a link of the
// chain is missing. A node without a serial number is looked up as "None".
std::string GetUSB_DriveDiskPath(USBnode* node);

// The same chain for every drive at once: serial number to disk path, for
// the drives whose chain is whole. Throws as the steps below do.
std::map<std::string, std::string> MapUSB_SerialNumbersToDiskPaths();

// Appends the plain files under /proc/scsi/usb-storage/.
void FindUSB_DriveProcFiles(std::vector<std::string>& files);
// Serial number to host ("scsi2") from each file; throws std::runtime_error
// for a file that does not open.
void MapUSB_SerialNumbersToSCSI_HostIDs(std::vector<std::string>& files, std::map<std::string, std::string>& map);
// Host to generic node, from the output of "./sg_scan".
void MapSCSI_HostIDsToSCSI_GenericPaths(std::map<std::string, std::string>& map);
// Generic node to disk, from the output of "./sg_map".
void MapSCSI_GenericPathsToSCSI_DiskPaths(std::map<std::string, std::string>& map);

// The parsing steps on text, for the functions above and for tests. A
// later line with a key already present changes nothing.
void MapSerialNumbersFromText(const std::string& text, std::map<std::string, std::string>& map);
void MapHostIDsFromText(const std::string& text, std::map<std::string, std::string>& map);
void MapGenericPathsFromText(const std::string& text, std::map<std::string, std::string>& map);
