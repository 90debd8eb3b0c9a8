// The texts the storage tests read from tools and kernel tables, of any
// content: the usb-storage files, `sg_scan`, `sg_map`, `sg_inq`, the mount
// and swap tables, the port scan of the devices file and the header of a
// drive's saved bytes. The first byte picks the reader; each either finds
// what it looks for or not, never crashes, overruns or leaks.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "tc/usb/linux/readers/UsbFileParser.h"
#include "tc/usb/linux/storage/MountTable.h"
#include "tc/usb/linux/storage/SavedDriveFile.h"
#include "tc/usb/linux/storage/ScsiPathMapping.h"
#include "tc/usb/linux/storage/UsbMount.h"
#include "tc/usb/linux/usbtests/UsbPortTest.h"

namespace {

// Each line as the port scan's reader gives it: ending in a newline, at
// most a read long.
void PortScan(const std::string& text) {
    UsbFileParser scan("0000:00:1d.7");
    char line[UsbFileParser::lineBufferSize];
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        const size_t length = std::min(end - at, sizeof line - 2);
        text.copy(line, length, at);
        line[length] = '\n';
        line[length + 1] = '\0';
        scan.usb_parse_line(line);
        if (scan.searchOver) break;
        at += length + (end - at == length ? 1 : 0);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    std::map<std::string, std::string> map;
    switch (data[0] % 8) {
        // A "Serial Number" line that ends behind its colon and an sg_scan
        // line without "scsi" end in the out-of-range error of substr, as
        // they always did: the test reports it as an internal error.
        case 0: try { MapSerialNumbersFromText(text, map);
            } catch (const std::out_of_range&) {
            }
            break;
        case 1: try { MapHostIDsFromText(text, map);
            } catch (const std::out_of_range&) {
            }
            break;
        case 2: MapGenericPathsFromText(text, map); break;
        case 3: {
            const std::vector<MountEntry> table = ParseMountTable(text);
            IsDeviceOrPartitionMounted(table, "/dev/sdb");
            HasMountAtOrBelow(table, "/mnt/usbdrive");
            break;
        }
        case 4: FindDeviceOrPartition(ParseSwapTable(text), "/dev/sdb"); break;
        case 5:
            UsbMount::DevNodeFromText(text, "scsi2");
            UsbMount::DevicePathFromText(text, "/dev/sg0");
            UsbPortTest::IsDiskInquiry(text);
            break;
        case 6: PortScan(text); break;
        default: {
            SavedDriveFile file;
            ParseSavedDriveHeader(text, file);
            break;
        }
    }
    return 0;
}
