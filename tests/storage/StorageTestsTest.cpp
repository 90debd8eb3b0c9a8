// The port scan on devices-file text, the drive mounting helper and the two
// tests' own steps, with stub tools that only write inside a temp folder.
#include <gtest/gtest.h>

#include <memory>

#include "StorageSupport.h"
#include "common/TvkError.h"
#include "common/XmlObject.h"
#include "tc/usb/linux/ExternalTool.h"
#include "tc/usb/linux/UsbFileParser.h"
#include "tc/usb/linux/UsbMount.h"
#include "tc/usb/linux/UsbPortTest.h"
#include "tc/usb/linux/filewtcmptest.h"

namespace {

class FileScan : public UsbFileParser {
public:
    FileScan(const std::string& serial, const std::string& path) : UsbFileParser(serial), path(path) {
        devicesFile = this->path.c_str();
    }
    std::string path;
};

std::vector<USBDriveNode> Scan(const std::string& serial, const std::string& text, FileScan** keep = nullptr) {
    static TempTree tree;
    FileScan* scan = new FileScan(serial, tree.Write("devices", text));
    EXPECT_TRUE(scan->open());
    scan->ParseProcBusUsbDeviceFile();
    scan->close();
    std::vector<USBDriveNode> nodes = scan->nodes;
    EXPECT_EQ(scan->nodeCount, static_cast<int>(nodes.size()));
    if (keep)
        *keep = scan;
    else
        delete scan;
    return nodes;
}

const char* const twoBuses =
    "T:  Bus=01 Lev=00 Prnt=00 Port=00 Cnt=00 Dev#=  1 Spd=480  MxCh= 6\n"
    "S:  SerialNumber=0000:00:1d.7\n"
    "T:  Bus=01 Lev=01 Prnt=01 Port=02 Cnt=01 Dev#=  4 Spd=480  MxCh= 0\n"
    "S:  SerialNumber=STICK1\n"
    "I:  If#= 0 Alt= 0 #EPs= 2 Cls=08(stor.) Sub=06 Prot=50 Driver=usb-storage\n"
    "I:  If#= 1 Alt= 0 #EPs= 2 Cls=08(stor.) Sub=06 Prot=50 Driver=usb-storage\n"
    "T:  Bus=01 Lev=02 Prnt=04 Port=03 Cnt=01 Dev#=  5 Spd=1.5  MxCh= 0\n"
    "I:  If#= 0 Alt= 0 #EPs= 1 Cls=08(stor.) Sub=06 Prot=50 Driver=usb-storage\n"
    "T:  Bus=01 Lev=01 Prnt=01 Port=04 Cnt=02 Dev#=  6 Spd=480  MxCh= 0\n"
    "I:  If#= 0 Alt= 0 #EPs= 1 Cls=03(HID  ) Sub=01 Prot=01 Driver=usbhid\n"
    "T:  Bus=02 Lev=00 Prnt=00 Port=00 Cnt=00 Dev#=  1 Spd=12   MxCh= 2\n"
    "S:  SerialNumber=0000:00:1d.0\n"
    "T:  Bus=02 Lev=01 Prnt=01 Port=00 Cnt=01 Dev#=  2 Spd=12   MxCh= 0\n"
    "S:  SerialNumber=STICK2\n"
    "I:  If#= 0 Alt= 0 #EPs= 2 Cls=08(stor.) Sub=06 Prot=50 Driver=usb-storage\n";

}  // namespace

TEST(UsbFileParser, CollectsStorageInterfacesOfTheOneBus) {
    FileScan* scan = nullptr;
    const auto nodes = Scan("0000:00:1d.7", twoBuses, &scan);
    ASSERT_EQ(nodes.size(), 3u);
    EXPECT_EQ(scan->rootBus, 1);
    EXPECT_EQ(scan->rootSpeed, 480);
    EXPECT_TRUE(scan->rootHubFound);
    EXPECT_TRUE(scan->searchOver);
    delete scan;
    // Two storage interfaces of one device give two nodes.
    EXPECT_EQ(nodes[0].serial, "STICK1");
    EXPECT_EQ(nodes[0].port, 2);
    EXPECT_EQ(nodes[0].speed, 480);
    EXPECT_EQ(nodes[1].serial, "STICK1");
    // A device without a serial line keeps the one before it; 1.5 reads as 1.
    EXPECT_EQ(nodes[2].serial, "STICK1");
    EXPECT_EQ(nodes[2].port, 3);
    EXPECT_EQ(nodes[2].speed, 1);
    EXPECT_TRUE(nodes[2].mountPoint.empty());

    const auto second = Scan("0000:00:1d.0", twoBuses);
    ASSERT_EQ(second.size(), 1u);
    EXPECT_EQ(second[0].serial, "STICK2");
    EXPECT_EQ(second[0].speed, 12);
    EXPECT_TRUE(Scan("no such controller", twoBuses).empty());
}

TEST(UsbFileParser, LineEdges) {
    const std::string root = "T:  Bus=03 Lev=00 Port=00 Spd=480\nS:  SerialNumber=R\n"
                             "T:  Bus=03 Lev=01 Port=01 Spd=480\nS:  SerialNumber=" + std::string(300, 'a') + "\n";
    const auto nodes = Scan("R", root + "I:  Cls=08(stor.)\n");
    ASSERT_EQ(nodes.size(), 1u);
    // A line longer than the read buffer arrives in pieces; only its tail ends
    // in a newline, and that is no serial line.
    EXPECT_EQ(nodes[0].serial, "");
    // The last line, without its newline, is not parsed.
    EXPECT_TRUE(Scan("R", root + "I:  Cls=08(stor.)").empty());
    // A serial number must match exactly.
    EXPECT_TRUE(Scan("", root + "I:  Cls=08(stor.)\n").empty());
    UsbFileParser parser;
    std::string cut;
    parser.GetString(&cut, ("S: SerialNumber=" + std::string(300, 'b')).c_str(), "SerialNumber=", 254);
    EXPECT_EQ(cut, std::string(254, 'b'));
    EXPECT_EQ(parser.GetInt("", "Bus=", 10), 0);
    EXPECT_EQ(parser.GetInt("T: Bus=0x1f", "Bus=", 16), 31);
    EXPECT_FALSE(parser.checkUSBFlashDeviceClass("I: Cls=09(hub  )"));
}

TEST(UsbMountTools, SerialToBlockDeviceThroughTheTools) {
    TempTree tree;
    tree.Stub("sg_scan", "echo '/dev/sg0: scsi7 channel=0 id=0 lun=0'");
    tree.Stub("sg_map", "echo '/dev/sg0  /dev/sdb; touch PWNED'");
    tree.Enter();
    UsbMount mount;
    EXPECT_EQ(mount.GetDevNode("scsi7"), "/dev/sg0");
    EXPECT_EQ(mount.GetDevicePath("/dev/sg0"), "/dev/sdb; touch PWNED");
    EXPECT_EQ(mount.GetDevNode("scsi8"), "");
    EXPECT_FALSE(tree.Exists("PWNED"));

    tree.Write("storage/7", "   Host scsi7: usb-storage\nSerial Number: ABC123\n");
    EXPECT_EQ(mount.FindMountPoint(tree.Path() + "/storage/", "7", "ABC123"), "/dev/sdb; touch PWNED");
    EXPECT_EQ(mount.FindMountPoint(tree.Path() + "/storage/", "7", "XYZ"), "");
    try {
        mount.FindMountPoint(tree.Path() + "/storage/", "9", "ABC123");
        ADD_FAILURE() << "an unreadable host file must fail";
    } catch (TvkError& e) {
        EXPECT_EQ(e.GetMessage(), "Could not locate files");
        EXPECT_EQ(e.GetDetail(), "9");
    }

    // A failing tool gives nothing.
    tree.Stub("sg_scan", "echo '/dev/sg0: scsi7 channel=0'; exit 1");
    EXPECT_EQ(mount.GetDevNode("scsi7"), "");
}

TEST(UsbMountTools, MountAndDirectoriesAsSeparateArguments) {
    TempTree tree;
    for (const char* tool : {"mount", "umount", "mkdir", "rm"}) tree.Stub(tool, "exit 0");
    tree.Enter();
    UsbMount mount;
    EXPECT_EQ(mount.MountUSB("/dev/sdb; touch PWNED1", "/mnt/usbdrive"), 0);
    EXPECT_NE(mount.MountUSB("--bind", "/mnt/usbdrive"), 0);
    mount.UnMountUSB("/mnt/usbdrive");
    mount.CreateMountDir("/mnt/usbdrive");
    mount.RemoveMountDir("/mnt/usbdrive");
    EXPECT_EQ(tree.Calls(),
              "mount [-t] [vfat] [/dev/sdb; touch PWNED1] [/mnt/usbdrive]\n"
              "umount [/mnt/usbdrive]\nmkdir [-p] [/mnt/usbdrive]\nrm [-rf] [/mnt/usbdrive]\n");
    EXPECT_FALSE(tree.Exists("PWNED"));

    tree.Stub("mount", "exit 32");
    EXPECT_EQ(mount.MountUSB("/dev/sdb1", "/mnt/usbdrive"), 32 << 8);
}

TEST(UsbPortTestSteps, DiskInquiryAndScratchFile) {
    TempTree tree;
    tree.Stub("sg_inq", "case \"$1\" in /dev/sdb) echo 'PQual=0  Device_type=0  RMB=1';; "
                        "/dev/sr0) echo 'PQual=0  Device_type=5';; *) exit 1;; esac");
    tree.Enter();
    UsbPortTest test;
    unlink(toolOutputFile);
    EXPECT_TRUE(test.isUSBFlashDrive("/dev/sdb"));
    // A disk's answer stays in the scratch file; another is removed.
    EXPECT_EQ(access(toolOutputFile, F_OK), 0);
    EXPECT_FALSE(test.isUSBFlashDrive("/dev/sr0"));
    EXPECT_NE(access(toolOutputFile, F_OK), 0);
    EXPECT_FALSE(test.isUSBFlashDrive("/dev/sdz"));
    EXPECT_FALSE(test.isUSBFlashDrive("-x"));
    EXPECT_EQ(tree.Calls(), "sg_inq [/dev/sdb]\nsg_inq [/dev/sr0]\nsg_inq [/dev/sdz]\n");
    unlink(toolOutputFile);
}

TEST(UsbPortTestSteps, CopyReplacesAnOldFileAndTheCompareSeesTheDrive) {
    TempTree tree;
    tree.Enter();
    tree.Write("SSO.DAT", "reference");
    tree.Write("drive/SSO.DAT", "old copy that is longer");
    UsbPortTest test;
    const std::string target = tree.Path() + "/drive/SSO.DAT";
    EXPECT_EQ(test.CopyFileToUSB("SSO.DAT", target), 0);
    EXPECT_EQ(tree.Read("drive/SSO.DAT"), "reference");
    EXPECT_NO_THROW(test.CompareFiles("SSO.DAT", target, "Failed for port-2"));
    tree.Write("drive/SSO.DAT", "referencf");
    try {
        test.CompareFiles("SSO.DAT", target, "Failed for port-2");
        ADD_FAILURE() << "different contents must fail";
    } catch (TvkError& e) {
        EXPECT_EQ(e.GetMessage(), "Data Comparison Failure");
        EXPECT_EQ(e.GetDetail(), "Failed for port-2");
    }
    EXPECT_NE(test.CopyFileToUSB("SSO.DAT", tree.Path() + "/no/such/dir/SSO.DAT"), 0);
}

TEST(StorageTestElements, CatalogueOffersNoRetryByDefault) {
    FileWriteCompareTest fwc(static_cast<USBDevice*>(nullptr));
    fwc.SetParameters();
    UsbPortTest port(static_cast<USBDevice*>(nullptr));
    port.SetParameters();
    for (::Test* test : std::initializer_list<::Test*>{&fwc, &port}) {
        SCOPED_TRACE(test->name);
        XmlObject element(test->GetXmlString());
        const XmlObject* retries = element.FindFirstMatch("parameter", "@name='retries'");
        ASSERT_NE(retries, nullptr);
        EXPECT_EQ(retries->GetAttributeValue("defaultValue", ""), "0");
        EXPECT_EQ(retries->GetAttributeValue("max", ""), "5");
        const XmlObject* drives = element.FindFirstMatch("parameter", "@name='numUSBdrives'");
        ASSERT_NE(drives, nullptr);
        EXPECT_EQ(drives->GetAttributeValue("defaultValue", ""), "1");
        EXPECT_EQ(drives->GetAttributeValue("min", ""), "1");
        EXPECT_EQ(drives->GetAttributeValue("max", ""), "32");
        EXPECT_EQ(element.GetAttributeValue("interactive", ""), "1");
        EXPECT_EQ(element.GetAttributeValue("complete", ""), "1");
        EXPECT_EQ(element.GetAttributeValue("quick", ""), "0");
    }
    XmlObject fwcElement(fwc.GetXmlString());
    EXPECT_EQ(fwcElement.GetAttributeValue("name", ""), "FileWriteCompareTest");
    const XmlObject* prompt = fwcElement.FindFirstMatch("parameter", "@name='userPrompt'");
    ASSERT_NE(prompt, nullptr);
    EXPECT_EQ(prompt->GetAttributeValue("defaultValue", ""), "Please insert the USB drive keys into unit.");
    EXPECT_EQ(XmlObject(port.GetXmlString()).GetAttributeValue("name", ""), "UsbPortTest");
    EXPECT_EQ(XmlObject(port.GetXmlString()).FindFirstMatch("parameter", "@name='userPrompt'"), nullptr);

    // A copy owns its parameters: it outlives the original.
    FileWriteCompareTest* original = new FileWriteCompareTest(fwc);
    std::unique_ptr<Persistent> copy(original->CreateCopy());
    delete original;
    EXPECT_NE(XmlObject(static_cast<::Test*>(copy.get())->GetXmlString()).FindFirstMatch("parameter",
                                                                                       "@name='numUSBdrives'"),
              nullptr);
}

TEST(FileWriteCompareSteps, CopyToDriveWritesFromTheFirstByte) {
    TempTree tree;
    tree.Enter();
    tree.Write("SSO.DAT", "REFERENCE");
    const std::string disk = tree.Write("sdb", std::string(32, '.'));
    EXPECT_TRUE(CopyFileToDrive("SSO.DAT", disk));
    EXPECT_EQ(tree.Read("sdb"), "REFERENCE" + std::string(23, '.'));
    FileWriteCompareTest test(static_cast<USBDevice*>(nullptr));
    EXPECT_NO_THROW(test.CompareFiles("SSO.DAT", disk, "failed for drive " + disk));

    // A missing disk is not created.
    try {
        CopyFileToDrive("SSO.DAT", tree.Path() + "/sdc");
        ADD_FAILURE() << "a missing disk must fail";
    } catch (TvkError& e) {
        EXPECT_EQ(e.GetMessage(), "Device Not Connected");
        EXPECT_EQ(e.GetDetail(), "failed for drive " + tree.Path() + "/sdc");
    }
    EXPECT_FALSE(tree.Exists("sdc"));
    try {
        CopyFileToDrive("NONE.DAT", disk);
        ADD_FAILURE() << "a missing reference must fail";
    } catch (TvkError& e) {
        EXPECT_EQ(e.GetMessage(), "Could not locate files");
    }
    // A drive that swallows the data passes the write and fails the read-back.
    EXPECT_TRUE(CopyFileToDrive("SSO.DAT", "/dev/null"));
    EXPECT_THROW(test.CompareFiles("SSO.DAT", "/dev/null", "x"), TvkError);
    // An empty reference writes nothing and cannot be read back.
    tree.Write("EMPTY.DAT", "");
    EXPECT_TRUE(CopyFileToDrive("EMPTY.DAT", disk));
    EXPECT_EQ(tree.Read("sdb"), "REFERENCE" + std::string(23, '.'));
}
