// The USB port test as a host runs it: the real library under umockdev,
// the SCSI and mount tools as stubs on PATH. The stub mount only writes its
// entry into the testbed's mount table, so no drive is ever mounted.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include "Expectations.h"
#include "StorageMachine.h"

namespace {

const std::string port = "UsbPortTest";
const std::string install = "Install High Speed USB Flash Drives into all USB ports";

Outcome RunOn(StorageMachine& m, const std::string& device, const std::string& attributes,
              bool withReference = true) {
    if (withReference) m.SetReference("PORT TEST REFERENCE\n");
    std::vector<std::string> script = Opening(false);
    script.push_back("run <id/>");
    script.push_back(RunTestLine(device, port, attributes));
    const Session session = m.Run(script);
    EXPECT_EQ(session.status, 0) << session.errors;
    return ReadOutcome(session.Nth(RunTestLine(device, port, attributes)));
}

using Calls = std::vector<std::string>;

}  // namespace

TEST(UsbPortTest, CountsAndSpeedsAreCheckedBeforeAnyMount) {
    {
        StorageMachine m("storage_one");
        const Outcome o = RunOn(m, "usbDevice0", "retries=\"0\"", false);
        EXPECT_EQ(o.error, "Could not locate files");
        EXPECT_EQ(o.detail, "SSO.DAT");
        EXPECT_EQ(o.prompts, (Calls{install}));
        EXPECT_EQ(o.progress, (std::vector<int>{0, 100}));
    }
    {
        StorageMachine m("storage_one");
        const Outcome o = RunOn(m, "usbDevice0", "retries=\"0\" numUSBdrives=\"2\"");
        EXPECT_EQ(o.error, "Incorrect number of USB Devices");
        EXPECT_EQ(o.detail, "\nFound:1,Expected:2");
        EXPECT_EQ(o.prompts, (Calls{install, install + "\nFound:1,Expected:2"}));
        EXPECT_EQ(m.Calls(), (Calls{"sg_scan", "sg_map", "sg_inq [/dev/sdb]"}));
    }
    {
        // A device that sg_inq does not call a disk is taken off the count.
        StorageMachine m("storage_one");
        m.SetSgInq("PQual=0  Device_type=5\n");
        const Outcome o = RunOn(m, "usbDevice0", "retries=\"0\"");
        EXPECT_EQ(o.error, "Incorrect number of USB Devices");
        EXPECT_EQ(o.detail, "\nFound:0,Expected:1");
    }
    {
        // The full-speed controller with its stick.
        StorageMachine m("storage_one");
        const Outcome o = RunOn(m, "usbDevice2", "retries=\"0\"");
        EXPECT_EQ(o.error, "High Speed USB Controller NOT connected. Expected Speed: 480 Mbps");
        EXPECT_EQ(o.detail, "Controller Actual Speed: 12 Mbps");
        EXPECT_EQ(m.Calls(), (Calls{"sg_scan", "sg_map", "sg_inq [/dev/sdc]"}));
    }
}

TEST(UsbPortTest, ASlowDriveFailsAndTheMountDirectoryGoes) {
    StorageMachine m("storage_two");
    const Outcome o = RunOn(m, "usbDevice0", "retries=\"0\" numUSBdrives=\"3\"");
    EXPECT_EQ(o.error, "High Speed USB Flash Drive NOT connected. Expected Speed: 480 Mbps");
    EXPECT_EQ(o.detail, "Actual USB Device Speed: 12 Mbps, Failed at  port-1");
    const Calls calls = m.Calls();
    ASSERT_GE(calls.size(), 3u);
    EXPECT_EQ(Calls(calls.end() - 3, calls.end()),
              (Calls{"mkdir [-p] [/mnt/usbdrive]", "umount [/mnt/usbdrive]", "rm [-rf] [/mnt/usbdrive]"}));
}

TEST(UsbPortTest, MountCopyAndCompareFailures) {
    {
        StorageMachine m("storage_one");
        m.FailMount(32);
        const Outcome o = RunOn(m, "usbDevice0", "retries=\"0\"");
        EXPECT_EQ(o.error, "USB Drive could not be mounted");
        EXPECT_EQ(o.detail, "Failed for port-1");
        EXPECT_EQ(o.prompts, (Calls{install, "Mount failed: err code:8192"}));
        EXPECT_EQ(m.Calls(), (Calls{"sg_scan", "sg_map", "sg_inq [/dev/sdb]", "mkdir [-p] [/mnt/usbdrive]",
                                    "mount [-t] [vfat] [/dev/sdb1] [/mnt/usbdrive]", "umount [/mnt/usbdrive]",
                                    "rm [-rf] [/mnt/usbdrive]"}));
    }
    struct stat st {};
    if (stat("/mnt/usbdrive/SSO.DAT", &st) == 0) GTEST_SKIP() << "this machine has /mnt/usbdrive/SSO.DAT";
    {
        // The stub cp writes nothing, so the copy is not on the drive.
        StorageMachine m("storage_one");
        const Outcome o = RunOn(m, "usbDevice0", "retries=\"0\"");
        EXPECT_EQ(o.error, "Could not locate files");
        EXPECT_EQ(o.detail, "Failed for port-1");
        EXPECT_EQ(m.Calls(), (Calls{"sg_scan", "sg_map", "sg_inq [/dev/sdb]", "mkdir [-p] [/mnt/usbdrive]",
                                    "mount [-t] [vfat] [/dev/sdb1] [/mnt/usbdrive]",
                                    "cp [SSO.DAT] [/mnt/usbdrive/SSO.DAT]", "umount [/mnt/usbdrive]",
                                    "rm [-rf] [/mnt/usbdrive]"}));
        EXPECT_EQ(m.Mounts().find("/mnt/usbdrive"), std::string::npos);
    }
}

TEST(UsbPortTest, AStuckMountIsNeverRemovedRecursively) {
    struct stat st {};
    if (stat("/mnt/usbdrive/SSO.DAT", &st) == 0) GTEST_SKIP() << "this machine has /mnt/usbdrive/SSO.DAT";
    StorageMachine m("storage_one");
    m.StickMount();
    const Outcome o = RunOn(m, "usbDevice0", "retries=\"0\"");
    EXPECT_EQ(o.error, "Could not locate files");
    EXPECT_NE(m.Mounts().find("/dev/sdb1 /mnt/usbdrive vfat"), std::string::npos);
    for (const std::string& call : m.Calls()) EXPECT_EQ(call.find("rm [-rf]"), std::string::npos) << call;
}

TEST(UsbPortTest, ToolOutputNeverReachesAShell) {
    StorageMachine m("storage_one");
    m.SetSgMap("/dev/sg0  /dev/sdb; touch PWNED\n");
    m.FailMount(1);
    const Outcome o = RunOn(m, "usbDevice0", "retries=\"0\"");
    EXPECT_EQ(o.error, "USB Drive could not be mounted");
    const Calls calls = m.Calls();
    ASSERT_GE(calls.size(), 5u);
    EXPECT_EQ(calls[2], "sg_inq [/dev/sdb; touch PWNED]");
    EXPECT_EQ(calls[4], "mount [-t] [vfat] [/dev/sdb; touch PWNED1] [/mnt/usbdrive]");
    EXPECT_FALSE(m.AnyFileNamed("PWNED"));
}

TEST(UsbPortTest, OnlyIdentifiedControllersOfferIt) {
    StorageMachine m("storage_one");
    const Outcome o = RunOn(m, "usbDevice1", "retries=\"0\"");
    EXPECT_EQ(o.error, "Test not found");
}
