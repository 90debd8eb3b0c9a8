// From a serial number to a disk: port scan, usb-storage files, sg_scan/sg_map lines, mount table.
#include <climits>
#include <map>
#include <stdexcept>

#include "tc/usb/linux/readers/UsbFileParser.h"
#include "tc/usb/linux/storage/DriveGuard.h"
#include "tc/usb/linux/storage/MountTable.h"
#include "tc/usb/linux/storage/ScsiPathMapping.h"
#include "tc/usb/linux/storage/UsbMount.h"
#include "usb/UsbTestSupport.h"

namespace {

using Map = std::map<std::string, std::string>;
struct FileScan : UsbFileParser {
    FileScan(const std::string& serial, const std::string& path) : UsbFileParser(serial) { devicesFile = path.c_str(); }
};

// serial:port:speed of each node the scan collects.
std::string Scan(const std::string& serial, const std::string& text) {
    TempDir dir;
    const std::string path = dir.Write("devices", text);
    FileScan scan(serial, path);
    EXPECT_TRUE(scan.open());
    scan.ParseProcBusUsbDeviceFile();
    scan.close();
    EXPECT_EQ(scan.nodeCount, static_cast<int>(scan.nodes.size()));
    std::string found;
    for (const USBDriveNode& n : scan.nodes)
        found += " " + n.serial + ":" + std::to_string(n.port) + ":" + std::to_string(n.speed);
    return found;
}

}  // namespace

TEST(PortScan, CollectsStorageInterfacesOfTheOneBus) {
    const std::string twoBuses = Fixture("storage/data/two_buses.txt");
    // Two storage interfaces give two nodes; a device without a serial line
    // keeps the one before; 1.5 reads as 1.
    EXPECT_EQ(Scan("0000:00:1d.7", twoBuses), " STICK1:2:480 STICK1:2:480 STICK1:3:1");
    EXPECT_EQ(Scan("0000:00:1d.0", twoBuses), " STICK2:0:12");
    EXPECT_EQ(Scan("no such controller", twoBuses), "");
    // An over-long line comes in pieces and is no serial line; a last line
    // without its newline is not parsed; serials match exactly.
    const std::string root = "T:  Bus=03 Lev=00 Port=00 Spd=480\nS:  SerialNumber=R\n"
                             "T:  Bus=03 Lev=01 Port=01 Spd=480\nS:  SerialNumber=" +
                             std::string(300, 'a') + "\n";
    EXPECT_EQ(Scan("R", root + "I:  Cls=08(stor.)\n"), " :1:480");
    EXPECT_EQ(Scan("R", root + "I:  Cls=08(stor.)"), "");
    EXPECT_EQ(Scan("", root + "I:  Cls=08(stor.)\n"), "");
    UsbFileParser parser;
    std::string cut;
    parser.GetString(&cut, ("S: SerialNumber=" + std::string(300, 'b')).c_str(), "SerialNumber=", 254);
    EXPECT_EQ(cut, std::string(254, 'b'));
    EXPECT_EQ(parser.GetInt("", "Bus=", 10), 0);
    EXPECT_EQ(parser.GetInt("T: Bus=0x1f", "Bus=", 16), 31);
}

TEST(ScsiMapping, ToolAndProcTextGiveHostNodeAndDisk) {
    Map serials;
    MapSerialNumbersFromText("   Host scsi2: usb-storage\n       Vendor: Kingston\nSerial Number: 001CC0EC\n", serials);
    MapSerialNumbersFromText("   Host scsi3: usb-storage\nSerial Number: None\n", serials);
    MapSerialNumbersFromText("   Host scsi4: usb-storage\nSerial Number: None\n", serials);  // the first keeps it
    MapSerialNumbersFromText("Serial Number: 42\n   Host scsi5: usb-storage\n", serials);
    EXPECT_EQ(serials, (Map{{"001CC0EC", "scsi2"}, {"None", "scsi3"}, {"42", ""}}));
    // A line that ends right behind its colon is the out-of-range failure.
    EXPECT_THROW(MapSerialNumbersFromText("Host scsi6: x\nSerial Number:\n", serials), std::out_of_range);

    Map hosts;
    MapHostIDsFromText("/dev/sg0: scsi2 channel=0 id=0 lun=0 [em]\n/dev/sg1: scsi10 channel=0 id=0 lun=0\n"
                       "/dev/sg9: scsi2 channel=0 id=0 lun=0\n",
                       hosts);
    EXPECT_EQ(hosts, (Map{{"scsi2", "/dev/sg0"}, {"scsi10", "/dev/sg1"}}));
    EXPECT_THROW(MapHostIDsFromText("/dev/sg0: host2 channel=0\n", hosts), std::out_of_range);

    // Whatever the tool prints is a name, nothing more; a node alone keeps its line end and is never found.
    Map disks;
    MapGenericPathsFromText("/dev/sg0  /dev/sda\n/dev/sg1\n/dev/sg2  /dev/sdb; touch PWNED\n", disks);
    EXPECT_EQ(disks.erase("/dev/sg1\n"), 1u);
    EXPECT_EQ(disks, (Map{{"/dev/sg0", "/dev/sda"}, {"/dev/sg2", "/dev/sdb; touch PWNED"}}));

    // Host 1 also hits the line of host 10 first; a node over 8 characters leaves a blank before the disk.
    const std::string scan = "/dev/sg3: scsi10 channel=0 id=0 lun=0\n/dev/sg0: scsi1 channel=0 id=0 lun=0\n";
    EXPECT_EQ(UsbMount::DevNodeFromText(scan, "scsi1"), "/dev/sg3");
    EXPECT_EQ(UsbMount::DevNodeFromText(scan, "scsi7"), "");
    EXPECT_EQ(UsbMount::DevNodeFromText(scan, ""), "");
    EXPECT_EQ(UsbMount::DevNodeFromText("scsi1 at the start\n", "scsi1"), "");
    const std::string map = "/dev/sg0  /dev/sda\n/dev/sg10  /dev/sdk\n";
    EXPECT_EQ(UsbMount::DevicePathFromText(map, "/dev/sg0"), "/dev/sda");
    EXPECT_EQ(UsbMount::DevicePathFromText(map, "/dev/sg10"), " /dev/sdk");
    EXPECT_EQ(UsbMount::DevicePathFromText(map, ""), "");
    EXPECT_EQ(UsbMount::DevicePathFromText(map, "/dev/sg7"), "");
}

TEST(MountTable, MountedDisksAndDirectories) {
    const auto table = ParseMountTable("/dev/sdb1 /media/my\\040stick vfat rw 0 0\n/dev/nvme0n1p2 /b ext4 rw 0 0\n"
                                       "/dev/sdc /mnt/other/deep ext4 rw 0 0\nproc /proc proc rw 0 0\n\n");
    ASSERT_EQ(table.size(), 4u);
    EXPECT_EQ(table[0].source, "/dev/sdb1");
    EXPECT_EQ(table[0].target, "/media/my stick");
    EXPECT_EQ(table[3].target, "/proc");
    const std::pair<const char*, bool> disks[] = {{"/dev/sdb", true}, {"/dev/nvme0n1", true}, {"/dev/sdc", true},
                                                  {"/dev/sd", false}, {"/dev/sdba", false},   {"/dev/sdd", false}};
    for (const auto& [disk, mounted] : disks) EXPECT_EQ(IsDeviceOrPartitionMounted(table, disk), mounted) << disk;
    const std::pair<const char*, bool> dirs[] = {{"/media/my stick", true}, {"/media/my stick/", true},
                                                 {"/mnt/other", true},      {"/media/my stick2", false},
                                                 {"/media/my", false},      {"/mnt/oth", false}};
    for (const auto& [dir, mounted] : dirs) EXPECT_EQ(HasMountAtOrBelow(table, dir), mounted) << dir;
    EXPECT_FALSE(HasMountAtOrBelow(ParseMountTable(""), "/mnt/usbdrive"));

    // A link to the disk is followed, either way round.
    TempDir dir;
    const std::string disk = dir.Write("sdq", "disk"), link = dir.Path("by-id");
    ASSERT_EQ(symlink(disk.c_str(), link.c_str()), 0);
    EXPECT_TRUE(IsDeviceOrPartitionMounted(ParseMountTable(link + "1 /media/q vfat rw 0 0\n"), link));
    EXPECT_TRUE(IsDeviceOrPartitionMounted(ParseMountTable(disk + " /media/q vfat rw 0 0\n"), link));
}

TEST(SwapTable, AreasAndTheDrivesTheyAreOn) {
    const auto swaps = ParseSwapTable("Filename\t\t\t\tType\t\tSize\t\tUsed\t\tPriority\n"
                                      "/dev/sdb2                               partition\t1048572\t0\t-2\n"
                                      "/var/swap\\040file                       file\t\t65532\t\t0\t\t-3\n");
    ASSERT_EQ(swaps.size(), 2u);
    EXPECT_EQ(swaps[1].source, "/var/swap file");
    EXPECT_EQ(swaps[1].target, "file");
    ASSERT_NE(FindDeviceOrPartition(swaps, "/dev/sdb"), nullptr);
    EXPECT_EQ(FindDeviceOrPartition(swaps, "/dev/sdb")->source, "/dev/sdb2");
    EXPECT_EQ(FindDeviceOrPartition(swaps, "/dev/sdc"), nullptr);
    EXPECT_TRUE(ParseSwapTable("Filename Type Size Used Priority\n").empty());
    EXPECT_EQ(BlockDeviceName("/dev/sdb; x/sdq"), "sdq");
}

// The port scan and the tree parser read one number alike, also beyond 32 bits.
TEST(PortScan, NumbersBeyondAnIntAreHeldAsTheTreeParserHoldsThem) {
    UsbFileParser parser;
    const char* line = "T:  Bus=01 Lev=01 Port=4294967298 Spd=-4294967296";
    EXPECT_EQ(parser.GetInt(line, "Port=", 10), INT_MAX);
    EXPECT_EQ(parser.GetInt(line, "Spd=", 10), INT_MIN);
    EXPECT_EQ(USBtree::GetInt(line, "Port=", 10), INT_MAX);
    EXPECT_EQ(USBtree::GetInt(line, "Spd=", 10), INT_MIN);
}
