// The text steps from a serial number to a disk: the usb-storage files, the
// lines of sg_scan and sg_map, and the mount table.
#include <gtest/gtest.h>

#include <map>
#include <stdexcept>

#include "StorageSupport.h"
#include "tc/usb/linux/MountTable.h"
#include "tc/usb/linux/ScsiPathMapping.h"
#include "tc/usb/linux/UsbMount.h"

using Map = std::map<std::string, std::string>;

TEST(ScsiMapping, UsbStorageFilesPairSerialWithTheHostAboveIt) {
    Map map;
    MapSerialNumbersFromText("   Host scsi2: usb-storage\n       Vendor: Kingston\n"
                             "Serial Number: 001CC0EC\n     Protocol: Transparent SCSI\n",
                             map);
    MapSerialNumbersFromText("   Host scsi3: usb-storage\nSerial Number: None\n", map);
    // The first file to name a serial number keeps it.
    MapSerialNumbersFromText("   Host scsi4: usb-storage\nSerial Number: None\n", map);
    EXPECT_EQ(map, (Map{{"001CC0EC", "scsi2"}, {"None", "scsi3"}}));

    Map early;
    MapSerialNumbersFromText("Serial Number: 42\n   Host scsi5: usb-storage\n", early);
    EXPECT_EQ(early, (Map{{"42", ""}}));
    // A serial line that ends right behind its colon is the out-of-range failure.
    EXPECT_THROW(MapSerialNumbersFromText("Host scsi6: x\nSerial Number:\n", early), std::out_of_range);
}

TEST(ScsiMapping, SgScanLinesGiveHostToGenericNode) {
    Map map;
    MapHostIDsFromText("/dev/sg0: scsi2 channel=0 id=0 lun=0 [em]\n/dev/sg1: scsi10 channel=0 id=0 lun=0\n"
                       "/dev/sg9: scsi2 channel=0 id=0 lun=0\n",
                       map);
    EXPECT_EQ(map, (Map{{"scsi2", "/dev/sg0"}, {"scsi10", "/dev/sg1"}}));
    EXPECT_THROW(MapHostIDsFromText("/dev/sg0: host2 channel=0\n", map), std::out_of_range);
}

TEST(ScsiMapping, SgMapLinesGiveGenericNodeToDisk) {
    Map map;
    MapGenericPathsFromText("/dev/sg0  /dev/sda\n/dev/sg1\n/dev/sg2  /dev/sdb; touch PWNED\n", map);
    EXPECT_EQ(map.at("/dev/sg0"), "/dev/sda");
    // A node alone keeps its line end in the key and is never found.
    EXPECT_EQ(map.count("/dev/sg1"), 0u);
    EXPECT_EQ(map.count("/dev/sg1\n"), 1u);
    // Whatever the tool prints is a name, nothing more.
    EXPECT_EQ(map.at("/dev/sg2"), "/dev/sdb; touch PWNED");
}

TEST(UsbMountText, HostAndNodeLookups) {
    const std::string scan = "/dev/sg3: scsi10 channel=0 id=0 lun=0\n/dev/sg0: scsi1 channel=0 id=0 lun=0\n";
    // The host with the number 1 also hits the line of host 10 first.
    EXPECT_EQ(UsbMount::DevNodeFromText(scan, "scsi1"), "/dev/sg3");
    EXPECT_EQ(UsbMount::DevNodeFromText(scan, "scsi7"), "");
    EXPECT_EQ(UsbMount::DevNodeFromText(scan, ""), "");
    EXPECT_EQ(UsbMount::DevNodeFromText("scsi1 at the start\n", "scsi1"), "");

    const std::string map = "/dev/sg0  /dev/sda\n/dev/sg10  /dev/sdk\n";
    EXPECT_EQ(UsbMount::DevicePathFromText(map, "/dev/sg0"), "/dev/sda");
    // A node longer than 8 characters leaves a blank in front of the disk.
    EXPECT_EQ(UsbMount::DevicePathFromText(map, "/dev/sg10"), " /dev/sdk");
    EXPECT_EQ(UsbMount::DevicePathFromText(map, ""), "");
    EXPECT_EQ(UsbMount::DevicePathFromText(map, "/dev/sg7"), "");
}

TEST(MountTableText, EntriesAndTheirEscapes) {
    const auto table = ParseMountTable("/dev/sdb1 /media/my\\040stick vfat rw 0 0\nproc /proc proc rw 0 0\n\n");
    ASSERT_EQ(table.size(), 2u);
    EXPECT_EQ(table[0].source, "/dev/sdb1");
    EXPECT_EQ(table[0].target, "/media/my stick");
    EXPECT_EQ(table[1].target, "/proc");
}

TEST(MountTableText, ADiskWithAMountedPartitionIsFound) {
    const auto table = ParseMountTable("/dev/sdb1 /media/a vfat rw 0 0\n/dev/nvme0n1p2 /b ext4 rw 0 0\n"
                                       "/dev/sdc /c ext4 rw 0 0\n");
    EXPECT_TRUE(IsDeviceOrPartitionMounted(table, "/dev/sdb"));
    EXPECT_TRUE(IsDeviceOrPartitionMounted(table, "/dev/nvme0n1"));
    EXPECT_TRUE(IsDeviceOrPartitionMounted(table, "/dev/sdc"));
    // Another disk whose name merely begins the same way is not it.
    EXPECT_FALSE(IsDeviceOrPartitionMounted(table, "/dev/sd"));
    EXPECT_FALSE(IsDeviceOrPartitionMounted(table, "/dev/sdba"));
    EXPECT_FALSE(IsDeviceOrPartitionMounted(table, "/dev/sdd"));
}

TEST(MountTableText, ALinkToTheDiskIsFollowed) {
    TempTree tree;
    const std::string disk = tree.Write("sdq", "disk");
    const std::string link = tree.Path() + "/by-id";
    ASSERT_EQ(symlink(disk.c_str(), link.c_str()), 0);
    const auto table = ParseMountTable(link + "1 /media/q vfat rw 0 0\n");
    EXPECT_TRUE(IsDeviceOrPartitionMounted(table, link));
    const auto viaLink = ParseMountTable(disk + " /media/q vfat rw 0 0\n");
    EXPECT_TRUE(IsDeviceOrPartitionMounted(viaLink, link));
}

TEST(MountTableText, MountsAtOrBelowADirectory) {
    const auto table = ParseMountTable("/dev/sdb1 /mnt/usbdrive vfat rw 0 0\n/dev/sdc1 /mnt/other/deep vfat rw 0 0\n");
    EXPECT_TRUE(HasMountAtOrBelow(table, "/mnt/usbdrive"));
    EXPECT_TRUE(HasMountAtOrBelow(table, "/mnt/usbdrive/"));
    EXPECT_TRUE(HasMountAtOrBelow(table, "/mnt/other"));
    EXPECT_FALSE(HasMountAtOrBelow(table, "/mnt/usbdrive2"));
    EXPECT_FALSE(HasMountAtOrBelow(table, "/mnt/usb"));
    EXPECT_FALSE(HasMountAtOrBelow(ParseMountTable(""), "/mnt/usbdrive"));
}
