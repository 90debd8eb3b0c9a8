// The file write compare and USB port tests on machines with USB drives: stub
// SCSI and mount tools that never mount anything, drives as plain testbed files.
#include <filesystem>

#include "Host.h"

namespace {

const std::string fwc = "FileWriteCompareTest", port = "UsbPortTest", none = "retries=\"0\"";
const std::string reference = "REFERENCE DATA OF THE FILE WRITE COMPARE TEST\n";
const std::string blank(4096, '.'), written = reference + blank.substr(reference.size());
const std::string install = "Install High Speed USB Flash Drives into all USB ports";
const std::string sgMap =
    "/dev/sg0  /dev/sdb\n/dev/sg1  /dev/sdc\n/dev/sg2  /dev/sdd\n/dev/sg3  /dev/sde\n/dev/sg4  /dev/sdf\n";
const std::string disk = "standard INQUIRY:\n  PQual=0  Device_type=0  RMB=1  version=0x04\n";
const Strings mountAndCopy = {"sg_scan", "sg_map", "sg_inq [/dev/sdb]", "mkdir [-p] [/mnt/usbdrive]",
                              "mount [-t] [vfat] [/dev/sdb1] [/mnt/usbdrive]", "cp [SSO.DAT] [/mnt/usbdrive/SSO.DAT]",
                              "umount [/mnt/usbdrive]", "rm [-rf] [/mnt/usbdrive]"};

struct Case {
    Attributes writes;  // files written before the run
    std::string device, attributes;
    Strings outcome;                 // state, error key, detail, prompts
    Strings calls = {};              // of the storage tools; not checked when empty
    std::vector<int> progress = {};  // not checked when empty
};

struct Drives : FakeMachine {
    explicit Drives(const char* fixture) : FakeMachine(fixture) {
        std::string scan;
        for (int i = 0; i < 5; ++i)
            scan += "/dev/sg" + std::to_string(i) + ": scsi" + std::to_string(i + 2) + " channel=0 id=0 lun=0 [em]\n";
        Write("data/sg_scan", scan);
        Write("data/sg_map", sgMap);
        Write("data/sg_inq", disk);
    }
    // One test after discovery in field mode; the storage tools' calls into `calls`.
    Strings Test(const std::string& device, const std::string& test, const std::string& attributes,
                 Strings* calls = nullptr, std::vector<int>* progress = nullptr) {
        Remove("calls.log");
        const Session s = Run(Opening(false, {"run <id/>", RunTest(device, test, attributes)}));
        for (const std::string& call : Calls())
            if (calls && call.compare(0, 19, "mount [-t] [usbfs] ") != 0 && call != "sync") calls->push_back(call);
        return Outcome(s.Nth(RunTest(device, test, attributes)), progress);
    }
    void Play(const std::string& test, const std::vector<Case>& cases) {
        for (const Case& c : cases) {
            SCOPED_TRACE(c.device + " " + c.attributes + (c.writes.empty() ? "" : " after " + c.writes[0].first));
            for (const auto& file : c.writes) Write(file.first, file.second);
            Strings calls;
            std::vector<int> progress;
            EXPECT_EQ(Test(c.device, test, c.attributes, &calls, &progress), c.outcome);
            EXPECT_TRUE(c.calls.empty() || calls == c.calls) << ::testing::PrintToString(calls);
            EXPECT_TRUE(c.progress.empty() || progress == c.progress) << ::testing::PrintToString(progress);
        }
    }
    bool AnyFileNamed(const std::string& text) const {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder))
            if (entry.path().filename().string().find(text) != std::string::npos) return true;
        return false;
    }
};

}  // namespace

TEST(StorageTests, TwoDrivesAreWrittenAndReadBackAndASlowOneFailsThePortTest) {
    Drives m("storage_two");
    m.Write("work/SSO.DAT", reference);
    m.Write("testbed/dev/sde", blank);
    m.Write("testbed/dev/sdf", blank);
    // The slow stick is no high-speed drive and is not touched.
    m.Play(fwc, {{{}, "usbDevice0", "numUSBdrives=\"2\"", {"passed", "", ""},
                  {"sg_scan", "sg_map", "sg_scan", "sg_map"}, {0, 1, 33, 66, 99, 100}}});
    EXPECT_EQ(m.Read("testbed/dev/sde"), written);
    EXPECT_EQ(m.Read("testbed/dev/sdf"), written);

    Strings calls;
    EXPECT_EQ(m.Test("usbDevice0", port, "retries=\"0\" numUSBdrives=\"3\"", &calls),
              (Strings{"failed", "High Speed USB Flash Drive NOT connected. Expected Speed: 480 Mbps",
                       "Actual USB Device Speed: 12 Mbps, Failed at  port-1", install}));
    ASSERT_GE(calls.size(), 3u);
    EXPECT_EQ(Strings(calls.end() - 3, calls.end()),
              (Strings{"mkdir [-p] [/mnt/usbdrive]", "umount [/mnt/usbdrive]", "rm [-rf] [/mnt/usbdrive]"}));
}

TEST(FileWriteCompare, EachCheckFailsWithItsTextAndTheDriveIsNotWritten) {
    Drives m("storage_one");
    m.Write("testbed/dev/sdb", blank);
    const std::string count = "Please insert the USB drive keys into unit. Number of USB Devices Connected:1, "
                              "Number of USB Devices Expected:";
    const std::string mounted = "Drive has a mounted partition; it is not written", b = "usbDevice0";
    m.Play(fwc,
           {{{}, b, none, {"failed", "Could not locate files", "Could not locate files"}, {}, {0, 1, 100}},
            {{{"work/SSO.DAT", reference}, {"data/sg_map", "/dev/sg1  /dev/sdc\n"}}, b, none,
             {"failed", "Device Not Connected", ""}},
            // A drive that keeps nothing of what is written to it, and one that gives nothing back.
            {{{"data/sg_map", "/dev/sg0  /dev/zero\n"}}, b, none,
             {"failed", "Data Comparison Failure", "failed for drive /dev/zero"}},
            {{{"data/sg_map", "/dev/sg0  /dev/null\n"}}, b, none,
             {"failed", "Read Data Failure", "failed for drive /dev/null"}},
            {{{"data/sg_map", "/dev/sg0  /dev/sdb; touch PWNED\n"}}, b, none,
             {"failed", "Device Not Connected", "failed for drive /dev/sdb; touch PWNED"}},
            {{{"data/sg_map", sgMap}, {"testbed/proc/self/mounts", "/dev/sdb1 /m vfat rw 0 0\n"}}, b, none,
             {"failed", mounted, "failed for drive /dev/sdb"}},
            {{{"testbed/proc/self/mounts", "/dev/sda1 / ext4 rw 0 0\n/dev/sdb /m vfat rw 0 0\n"}}, b, none,
             {"failed", mounted, "failed for drive /dev/sdb"}},
            {{{"testbed/proc/self/mounts", "/dev/sda1 / ext4 rw 0 0\n/dev/sdba1 /m vfat rw 0 0\n"},
              {"work/SSO.DAT", ""}}, b, none,
             {"failed", "Read Data Failure", "failed for drive /dev/sdb"}, {}, {0, 1, 50, 100}},
            // The operator is asked from the second try on.
            {{{"work/SSO.DAT", reference}}, b, "numUSBdrives=\"2\" retries=\"2\"",
             {"failed", "Incorrect number of USB Devices", "", count + "2 (try #2)", count + "2 (try #3)"}},
            {{}, b, "numUSBdrives=\"3\" retries=\"1\" userPrompt=\"Plug in three sticks.\"",
             {"failed", "Incorrect number of USB Devices", "",
              "Plug in three sticks. Number of USB Devices Connected:1, Number of USB Devices Expected:3 (try #2)"}},
            {{}, b, "numUSBdrives=\"33\"",
             {"failed", "Parameter outside acceptable range",
              "You entered 33, please enter a value between 1 and 32"}}});
    EXPECT_EQ(m.Read("testbed/dev/sdb"), blank);
    EXPECT_FALSE(m.AnyFileNamed("PWNED"));
    // Another drive's partition mounted: this one is written and read back.
    EXPECT_EQ(m.Test(b, fwc, none), (Strings{"passed", "", ""}));
    EXPECT_EQ(m.Read("testbed/dev/sdb"), written);
}

TEST(UsbPortTest, EachCheckFailsWithItsTextAndAStuckMountIsNeverRemovedRecursively) {
    if (std::filesystem::exists("/mnt/usbdrive/SSO.DAT")) GTEST_SKIP() << "this machine has /mnt/usbdrive/SSO.DAT";
    Drives m("storage_one");
    Strings mountFails = mountAndCopy, stuck = mountAndCopy;
    mountFails.erase(mountFails.begin() + 5);  // no copy
    stuck.pop_back();                          // no removal
    Strings hostile = mountFails;
    hostile[2] = "sg_inq [/dev/sdb; touch PWNED]";
    hostile[4] = "mount [-t] [vfat] [/dev/sdb; touch PWNED1] [/mnt/usbdrive]";
    const std::string b = "usbDevice0";
    m.Play(port,
           {{{}, b, none, {"failed", "Could not locate files", "SSO.DAT", install}, {}, {0, 100}},
            // Counts and speeds are checked before any mount.
            {{{"work/SSO.DAT", "PORT TEST REFERENCE\n"}}, b, "retries=\"0\" numUSBdrives=\"2\"",
             {"failed", "Incorrect number of USB Devices", "\nFound:1,Expected:2", install,
              install + "\nFound:1,Expected:2"}, {"sg_scan", "sg_map", "sg_inq [/dev/sdb]"}},
            // A device that sg_inq does not call a disk is taken off the count.
            {{{"data/sg_inq", "PQual=0  Device_type=5\n"}}, b, none,
             {"failed", "Incorrect number of USB Devices", "\nFound:0,Expected:1", install,
              install + "\nFound:0,Expected:1"}},
            // The full-speed controller with its stick.
            {{{"data/sg_inq", disk}}, "usbDevice2", none,
             {"failed", "High Speed USB Controller NOT connected. Expected Speed: 480 Mbps",
              "Controller Actual Speed: 12 Mbps", install}, {"sg_scan", "sg_map", "sg_inq [/dev/sdc]"}},
            {{{"data/mount.status", "32"}}, b, none,
             {"failed", "USB Drive could not be mounted", "Failed for port-1", install, "Mount failed: err code:8192"},
             mountFails},
            // The stub cp writes nothing, so the copy is not on the drive.
            {{{"data/mount.status", ""}}, b, none, {"failed", "Could not locate files", "Failed for port-1", install},
             mountAndCopy},
            {{}, "usbDevice1", none, {"failed", "Test not found", "UsbPortTest"}}});
    EXPECT_EQ(m.Read("testbed/proc/self/mounts").find("/mnt/usbdrive"), std::string::npos);

    m.Play(port,
           {{{{"data/sg_map", "/dev/sg0  /dev/sdb; touch PWNED\n"}, {"data/mount.status", "1"}}, b, none,
             {"failed", "USB Drive could not be mounted", "Failed for port-1", install, "Mount failed: err code:256"},
             hostile},
            {{{"data/sg_map", sgMap}, {"data/mount.status", ""}, {"data/umount.status", "32"}}, b, none,
             {"failed", "Could not locate files", "Failed for port-1", install}, stuck}});
    EXPECT_FALSE(m.AnyFileNamed("PWNED"));
    EXPECT_NE(m.Read("testbed/proc/self/mounts").find("/dev/sdb1 /mnt/usbdrive vfat"), std::string::npos);
}
