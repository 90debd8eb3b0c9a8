// The file write compare and USB port tests on machines with USB drives: stub
// SCSI and mount tools that never mount anything, drives as plain testbed files
// (faults on them from drive_faults.cpp). Every drive is checked byte for byte
// after the run.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "Host.h"

namespace {

const std::string fwc = "FileWriteCompareTest", port = "UsbPortTest", none = "retries=\"0\"";
const std::string reference = "REFERENCE DATA OF THE FILE WRITE COMPARE TEST\n";
const std::string blank(4096, '.');
const std::string install = "Install High Speed USB Flash Drives into all USB ports";
const std::string sgMap =
    "/dev/sg0  /dev/sdb\n/dev/sg1  /dev/sdc\n/dev/sg2  /dev/sdd\n/dev/sg3  /dev/sde\n/dev/sg4  /dev/sdf\n";
const std::string disk = "standard INQUIRY:\n  PQual=0  Device_type=0  RMB=1  version=0x04\n";
const std::string swapHeads = "Filename\t\t\t\tType\t\tSize\t\tUsed\t\tPriority\n";
const std::string stick = "001CC0EC3450BB40D7A0012B";  // the serial number of /dev/sdb in storage_one
const Strings mountAndCopy = {"sg_scan",
                              "sg_map",
                              "sg_inq [/dev/sdb]",
                              "mkdir [-p] [/mnt/usbdrive]",
                              "mount [-t] [vfat] [/dev/sdb1] [/mnt/usbdrive]",
                              "cp [SSO.DAT] [/mnt/usbdrive/SSO.DAT]",
                              "umount [/mnt/usbdrive]",
                              "rm [-rf] [/mnt/usbdrive]"};

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
        Write("testbed/proc/swaps", swapHeads);  // none, whatever this machine has
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
    // The files of saved drive bytes in the working directory (the diagnostics write directory).
    Strings SavedFiles() const {
        Strings names;
        for (const auto& entry : std::filesystem::directory_iterator(folder + "/work"))
            if (entry.path().filename().string().compare(0, 13, "zorbus-drive-") == 0)
                names.push_back(entry.path().filename().string());
        return names;
    }
    // The log events a fresh Initialize leaves for the first command.
    Strings EventsOfInitialize() {
        return Run(Opening(false, {"run <getDiagVersion/>"})).Nth("run <getDiagVersion/>").events;
    }
};

// A fault of drive_faults.cpp for the sessions started while it lives.
struct Fault {
    explicit Fault(const std::string& fault) { setenv("ZORBUS_DRIVE_FAULT", fault.c_str(), 1); }
    ~Fault() { unsetenv("ZORBUS_DRIVE_FAULT"); }
};

}  // namespace

TEST(StorageTests, TwoDrivesAreWrittenAndReadBackAndASlowOneFailsThePortTest) {
    Drives m("storage_two");
    m.Write("work/SSO.DAT", reference);
    m.Write("testbed/dev/sde", blank);
    m.Write("testbed/dev/sdf", blank);
    // The slow stick is no high-speed drive and is not touched.
    m.Play(fwc, {{{},
                  "usbDevice0",
                  "numUSBdrives=\"2\"",
                  {"passed", "", ""},
                  {"sg_scan", "sg_map", "sg_scan", "sg_map"},
                  {0, 1, 33, 66, 99, 100}}});
    // Written, read back, and left as they were.
    EXPECT_EQ(m.Read("testbed/dev/sde"), blank);
    EXPECT_EQ(m.Read("testbed/dev/sdf"), blank);
    EXPECT_EQ(m.SavedFiles(), Strings{});

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
    m.Play(
        fwc,
        {{{}, b, none, {"failed", "Could not locate files", "Could not locate files"}, {}, {0, 1, 100}},
         {{{"work/SSO.DAT", reference}, {"data/sg_map", "/dev/sg1  /dev/sdc\n"}},
          b,
          none,
          {"failed", "Device Not Connected", ""}},
         // A drive that keeps nothing of what is written to it, and one that gives nothing back.
         {{{"data/sg_map", "/dev/sg0  /dev/zero\n"}},
          b,
          none,
          {"failed", "Data Comparison Failure", "failed for drive /dev/zero"}},
         {{{"data/sg_map", "/dev/sg0  /dev/null\n"}},
          b,
          none,
          {"failed", "Read Data Failure", "failed for drive /dev/null"}},
         {{{"data/sg_map", "/dev/sg0  /dev/sdb; touch PWNED\n"}},
          b,
          none,
          {"failed", "Device Not Connected", "failed for drive /dev/sdb; touch PWNED"}},
         {{{"data/sg_map", sgMap}, {"testbed/proc/self/mounts", "/dev/sdb1 /m vfat rw 0 0\n"}},
          b,
          none,
          {"failed", mounted, "failed for drive /dev/sdb"}},
         {{{"testbed/proc/self/mounts", "/dev/sda1 / ext4 rw 0 0\n/dev/sdb /m vfat rw 0 0\n"}},
          b,
          none,
          {"failed", mounted, "failed for drive /dev/sdb"}},
         {{{"testbed/proc/self/mounts", "/dev/sda1 / ext4 rw 0 0\n/dev/sdba1 /m vfat rw 0 0\n"}, {"work/SSO.DAT", ""}},
          b,
          none,
          {"failed", "Read Data Failure", "failed for drive /dev/sdb"},
          {},
          {0, 1, 50, 100}},
         // The operator is asked from the second try on.
         {{{"work/SSO.DAT", reference}},
          b,
          "numUSBdrives=\"2\" retries=\"2\"",
          {"failed", "Incorrect number of USB Devices", "", count + "2 (try #2)", count + "2 (try #3)"}},
         {{},
          b,
          "numUSBdrives=\"3\" retries=\"1\" userPrompt=\"Plug in three sticks.\"",
          {"failed", "Incorrect number of USB Devices", "",
           "Plug in three sticks. Number of USB Devices Connected:1, Number of USB Devices Expected:3 (try #2)"}},
         {{},
          b,
          "numUSBdrives=\"33\"",
          {"failed", "Parameter outside acceptable range", "You entered 33, please enter a value between 1 and 32"}}});
    EXPECT_EQ(m.Read("testbed/dev/sdb"), blank);
    EXPECT_FALSE(m.AnyFileNamed("PWNED"));
    // Another drive's partition mounted: this one is written, read back and restored.
    EXPECT_EQ(m.Test(b, fwc, none), (Strings{"passed", "", ""}));
    EXPECT_EQ(m.Read("testbed/dev/sdb"), blank);
    EXPECT_EQ(m.SavedFiles(), Strings{});
}

TEST(FileWriteCompare, DrivesInUseAreRefusedEachWithItsTextAndNeverWritten) {
    Drives m("storage_one");
    m.Write("work/SSO.DAT", reference);
    m.Write("testbed/dev/sdb", blank);
    const std::string b = "usbDevice0", failed = "failed for drive /dev/sdb";
    m.Play(fwc, {{{{"testbed/proc/swaps", swapHeads + "/dev/sda2 partition\t1048572\t0\t-2\n"
                                                      "/dev/sdb2                       partition\t8\t0\t-3\n"}},
                  b,
                  none,
                  {"failed", "Drive is in use as swap; it is not written", failed + ": /dev/sdb2 is swap"}},
                 // Device mapper on the disk, RAID on a partition: the kernel lists both under holders.
                 {{{"testbed/proc/swaps", swapHeads},
                   {"testbed/sys/block/sdb/holders/dm-0", ""},
                   {"testbed/sys/block/sdb/sdb1/partition", "1\n"},
                   {"testbed/sys/block/sdb/sdb1/holders/md0", ""}},
                  b,
                  none,
                  {"failed", "Drive is held by another block device; it is not written",
                   failed + ": sdb held by dm-0, sdb1 held by md0"}}});
    std::filesystem::remove(m.folder + "/testbed/sys/block/sdb/holders/dm-0");
    EXPECT_EQ(m.Test(b, fwc, none), (Strings{"failed", "Drive is held by another block device; it is not written",
                                             failed + ": sdb1 held by md0"}));
    std::filesystem::remove_all(m.folder + "/testbed/sys");
    {
        const Fault busy("busy /dev/sdb");
        EXPECT_EQ(m.Test(b, fwc, none),
                  (Strings{"failed", "Drive is busy (exclusive open refused); it is not written", failed}));
    }
    EXPECT_EQ(m.Read("testbed/dev/sdb"), blank);
    EXPECT_EQ(m.SavedFiles(), Strings{});
}

TEST(FileWriteCompare, ALostWriteFailsTheCompareAndAnyReadBackRoadRestoresTheDrive) {
    Drives m("storage_one");
    m.Write("work/SSO.DAT", reference);
    m.Write("testbed/dev/sdb", blank);
    {
        const Fault lost("lose-write /dev/sdb");
        EXPECT_EQ(m.Test("usbDevice0", fwc, none),
                  (Strings{"failed", "Data Comparison Failure", "failed for drive /dev/sdb"}));
    }
    EXPECT_EQ(m.Read("testbed/dev/sdb"), blank) << "the saved bytes went back";
    EXPECT_EQ(m.SavedFiles(), Strings{});
    // Read back past the page cache: directly where the device takes it, else after dropping the cache.
    // Copied in the kernel where the device takes it, else through a buffer.
    const Strings debugRun = {"factory 0", "translator C", "init <init component=\"libzorbus.so\" debugEnabled=\"1\"/>",
                              "callback",  "run <id/>",    RunTest("usbDevice0", fwc, none)};
    const int probe = open((m.folder + "/testbed/dev/sdb").c_str(), O_RDONLY | O_DIRECT);
    const bool directHere = probe >= 0;  // what the file system of the stand-in takes
    if (probe >= 0) close(probe);
    for (const char* fault : {"", "no-direct /dev/sdb", "no-splice /dev/sdb"}) {
        const Fault set(fault);
        const Session s = m.Run(debugRun);
        EXPECT_EQ(Outcome(s.Nth(RunTest("usbDevice0", fwc, none))), (Strings{"passed", "", ""})) << fault;
        const bool cached = std::string(fault) == "no-direct /dev/sdb" || !directHere;
        const std::string road = cached ? "through a dropped cache" : "directly";
        EXPECT_NE(s.errors.find("/dev/sdb is read back " + road), std::string::npos) << s.errors;
        const bool buffered = s.errors.find("copying through a buffer") != std::string::npos;
        EXPECT_EQ(buffered, std::string(fault) == "no-splice /dev/sdb");
        EXPECT_EQ(m.Read("testbed/dev/sdb"), blank) << fault;
    }
}

TEST(FileWriteCompare, ARunEndedBetweenWriteAndRestoreIsPutBackOnlyOnItsOwnUnchangedDrive) {
    Drives m("storage_one");
    m.Write("work/SSO.DAT", reference);
    const std::string original = std::string(2000, 'a') + std::string(2096, 'z');
    m.Write("testbed/dev/sdb", original);
    const std::string afterWrite = reference + original.substr(reference.size());
    const auto endedRun = [&] {
        const Fault power("end-at-readback /dev/sdb");
        const Session s = m.Run(Opening(false, {"run <id/>", RunTest("usbDevice0", fwc, none)}));
        EXPECT_EQ(s.steps.back().line, RunTest("usbDevice0", fwc, none));
        EXPECT_EQ(s.steps.back().answer, "") << "the run never answered";
        EXPECT_EQ(m.Read("testbed/dev/sdb"), afterWrite);
        const Strings saved = m.SavedFiles();
        EXPECT_EQ(saved.size(), 1u);
        return saved.empty() ? std::string() : "./" + saved[0];
    };
    const std::string file = endedRun();
    const std::string kept = "; its saved bytes stay in " + file;
    const std::string storageFile = m.Read("testbed/proc/scsi/usb-storage/2");

    // Another stick where the drive was: not the one the bytes belong to.
    std::string otherStick = storageFile;
    otherStick.replace(otherStick.find(stick), stick.size(), "OTHERSTICK0001");
    m.Write("testbed/proc/scsi/usb-storage/2", otherStick);
    EXPECT_EQ(m.EventsOfInitialize(),
              Strings{LogEvent("Drive Not Restored", "No drive with serial " + stick + " is connected" + kept)});
    EXPECT_EQ(m.Read("testbed/dev/sdb"), afterWrite);

    // Its own drive, written to since: left as it is, and the test does not write it.
    m.Write("testbed/proc/scsi/usb-storage/2", storageFile);
    std::string changed = afterWrite;
    changed[300] = '!';
    m.Write("testbed/dev/sdb", changed);
    const std::string notBack = "/dev/sdb (serial " + stick +
                                ") is not written back (it was changed after the "
                                "test wrote it)" +
                                kept;
    EXPECT_EQ(m.EventsOfInitialize(), Strings{LogEvent("Drive Not Restored", notBack)});
    EXPECT_EQ(m.Read("testbed/dev/sdb"), changed);

    // As the run left it: the next Initialize puts the drive back.
    m.Write("testbed/dev/sdb", afterWrite);
    const std::string restored = LogEvent("Drive Restored", "/dev/sdb (serial " + stick +
                                                                ") holds its saved bytes "
                                                                "again; " +
                                                                file + " removed");
    EXPECT_EQ(m.EventsOfInitialize(), Strings{restored});
    EXPECT_EQ(m.Read("testbed/dev/sdb"), original);
    EXPECT_EQ(m.SavedFiles(), Strings{});

    // A damaged copy is left alone, by Initialize and by the next run of the test, which refuses the drive.
    EXPECT_EQ(endedRun(), file);
    const std::string whole = m.Read("work/" + file.substr(2));
    std::string damaged = whole;
    damaged.back() ^= 1;
    m.Write("work/" + file.substr(2), damaged);
    const std::string leftAlone = LogEvent("Drive Not Restored", file + " is damaged (saved bytes checksum wrong); "
                                                                        "it is left alone");
    const Session s = m.Run(Opening(false, {"run <id/>", RunTest("usbDevice0", fwc, none)}));
    EXPECT_EQ(s.Nth("run <id/>").events.front(), leftAlone) << "from Initialize";
    const Step& run = s.Nth(RunTest("usbDevice0", fwc, none));
    EXPECT_EQ(Outcome(run), (Strings{"failed", "Drive has saved bytes not yet restored; it is not written",
                                     "failed for drive /dev/sdb: " + file}));
    EXPECT_NE(std::find(run.events.begin(), run.events.end(), leftAlone), run.events.end()) << "from the run";
    EXPECT_EQ(m.Read("work/" + file.substr(2)), damaged);
    EXPECT_EQ(m.Read("testbed/dev/sdb"), afterWrite);

    // The whole copy again: put back at Initialize, and the test passes on the drive.
    m.Write("work/" + file.substr(2), whole);
    const Session again = m.Run(Opening(false, {"run <id/>", RunTest("usbDevice0", fwc, none)}));
    EXPECT_EQ(again.Nth("run <id/>").events.front(), restored);
    EXPECT_EQ(Outcome(again.Nth(RunTest("usbDevice0", fwc, none))), (Strings{"passed", "", ""}));
    EXPECT_EQ(m.Read("testbed/dev/sdb"), original);
    EXPECT_EQ(m.SavedFiles(), Strings{});
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
            {{{"work/SSO.DAT", "PORT TEST REFERENCE\n"}},
             b,
             "retries=\"0\" numUSBdrives=\"2\"",
             {"failed", "Incorrect number of USB Devices", "\nFound:1,Expected:2", install,
              install + "\nFound:1,Expected:2"},
             {"sg_scan", "sg_map", "sg_inq [/dev/sdb]"}},
            // A device that sg_inq does not call a disk is taken off the count.
            {{{"data/sg_inq", "PQual=0  Device_type=5\n"}},
             b,
             none,
             {"failed", "Incorrect number of USB Devices", "\nFound:0,Expected:1", install,
              install + "\nFound:0,Expected:1"}},
            // The full-speed controller with its stick.
            {{{"data/sg_inq", disk}},
             "usbDevice2",
             none,
             {"failed", "High Speed USB Controller NOT connected. Expected Speed: 480 Mbps",
              "Controller Actual Speed: 12 Mbps", install},
             {"sg_scan", "sg_map", "sg_inq [/dev/sdc]"}},
            {{{"data/mount.status", "32"}},
             b,
             none,
             {"failed", "USB Drive could not be mounted", "Failed for port-1", install, "Mount failed: err code:8192"},
             mountFails},
            // The stub cp writes nothing, so the copy is not on the drive.
            {{{"data/mount.status", ""}},
             b,
             none,
             {"failed", "Could not locate files", "Failed for port-1", install},
             mountAndCopy},
            {{}, "usbDevice1", none, {"failed", "Test not found", "UsbPortTest"}}});
    EXPECT_EQ(m.Read("testbed/proc/self/mounts").find("/mnt/usbdrive"), std::string::npos);

    m.Play(port,
           {{{{"data/sg_map", "/dev/sg0  /dev/sdb; touch PWNED\n"}, {"data/mount.status", "1"}},
             b,
             none,
             {"failed", "USB Drive could not be mounted", "Failed for port-1", install, "Mount failed: err code:256"},
             hostile},
            {{{"data/sg_map", sgMap}, {"data/mount.status", ""}, {"data/umount.status", "32"}},
             b,
             none,
             {"failed", "Could not locate files", "Failed for port-1", install},
             stuck}});
    EXPECT_FALSE(m.AnyFileNamed("PWNED"));
    EXPECT_NE(m.Read("testbed/proc/self/mounts").find("/dev/sdb1 /mnt/usbdrive vfat"), std::string::npos);
}
