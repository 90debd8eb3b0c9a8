// The file write compare test as a host runs it: the real library under
// umockdev on machines with USB drives, the SCSI tools as stubs in the
// working directory and the drives as plain files of the testbed.
#include <gtest/gtest.h>

#include "Expectations.h"
#include "StorageMachine.h"

namespace {

const std::string fwc = "FileWriteCompareTest";
const std::string reference = "REFERENCE DATA OF THE FILE WRITE COMPARE TEST\n";
const std::string blank(4096, '.');

std::vector<std::string> Script(const std::string& attributes) {
    std::vector<std::string> script = Opening(false);
    script.push_back("run <id/>");
    script.push_back(RunTestLine("usbDevice0", fwc, attributes));
    return script;
}

Outcome RunOn(StorageMachine& m, const std::string& attributes) {
    const Session session = m.Run(Script(attributes));
    EXPECT_EQ(session.status, 0) << session.errors;
    return ReadOutcome(session.Nth(RunTestLine("usbDevice0", fwc, attributes)));
}

}  // namespace

TEST(FileWriteCompare, TwoDrivesAreWrittenAndReadBack) {
    StorageMachine m("storage_two");
    m.SetReference(reference);
    m.AddDisk("sde", blank);
    m.AddDisk("sdf", blank);
    const Outcome o = RunOn(m, "numUSBdrives=\"2\"");
    EXPECT_EQ(o.state, "passed") << o.error << " / " << o.detail;
    EXPECT_EQ(o.progress, (std::vector<int>{0, 1, 33, 66, 99, 100}));
    EXPECT_TRUE(o.prompts.empty());
    EXPECT_EQ(m.Disk("sde"), reference + blank.substr(reference.size()));
    EXPECT_EQ(m.Disk("sdf"), reference + blank.substr(reference.size()));
    // The slow stick is no high-speed drive and is not touched.
    EXPECT_EQ(m.Calls(), (std::vector<std::string>{"sg_scan", "sg_map", "sg_scan", "sg_map"}));
}

TEST(FileWriteCompare, WrongNumberPromptsFromTheSecondTry) {
    StorageMachine m("storage_one");
    m.SetReference(reference);
    m.AddDisk("sdb", blank);
    const Outcome o = RunOn(m, "numUSBdrives=\"2\" retries=\"2\"");
    EXPECT_EQ(o.state, "failed");
    EXPECT_EQ(o.error, "Incorrect number of USB Devices");
    EXPECT_EQ(o.detail, "");
    const std::string prompt = "Please insert the USB drive keys into unit. Number of USB Devices Connected:1, "
                               "Number of USB Devices Expected:2";
    EXPECT_EQ(o.prompts, (std::vector<std::string>{prompt + " (try #2)", prompt + " (try #3)"}));
    EXPECT_EQ(m.Disk("sdb"), blank);

    const Outcome own = RunOn(m, "numUSBdrives=\"3\" retries=\"1\" userPrompt=\"Plug in three sticks.\"");
    EXPECT_EQ(own.prompts, (std::vector<std::string>{"Plug in three sticks. Number of USB Devices Connected:1, "
                                                     "Number of USB Devices Expected:3 (try #2)"}));
    const Outcome range = RunOn(m, "numUSBdrives=\"33\"");
    EXPECT_EQ(range.error, "Parameter outside acceptable range");
}

TEST(FileWriteCompare, EachCheckFailsWithItsText) {
    StorageMachine m("storage_one");
    m.AddDisk("sdb", blank);
    Outcome o = RunOn(m, "retries=\"0\"");
    EXPECT_EQ(o.error, "Could not locate files");
    EXPECT_EQ(o.detail, "Could not locate files");
    EXPECT_EQ(o.progress, (std::vector<int>{0, 1, 100}));

    m.SetReference(reference);
    m.SetSgMap("/dev/sg1  /dev/sdc\n");
    o = RunOn(m, "retries=\"0\"");
    EXPECT_EQ(o.error, "Device Not Connected");
    EXPECT_EQ(o.detail, "");

    // A drive that keeps nothing of what is written to it.
    m.SetSgMap("/dev/sg0  /dev/zero\n");
    o = RunOn(m, "retries=\"0\"");
    EXPECT_EQ(o.error, "Data Comparison Failure");
    EXPECT_EQ(o.detail, "failed for drive /dev/zero");
    m.SetSgMap("/dev/sg0  /dev/null\n");
    o = RunOn(m, "retries=\"0\"");
    EXPECT_EQ(o.error, "Read Data Failure");
    EXPECT_EQ(o.detail, "failed for drive /dev/null");

    m.SetSgMap("/dev/sg0  /dev/sdb\n");
    m.SetReference("");
    o = RunOn(m, "retries=\"0\"");
    EXPECT_EQ(o.error, "Read Data Failure");
    EXPECT_EQ(o.detail, "failed for drive /dev/sdb");
    EXPECT_EQ(m.Disk("sdb"), blank);
    EXPECT_EQ(o.progress, (std::vector<int>{0, 1, 50, 100}));
}

TEST(FileWriteCompare, ADriveWithAMountedPartitionIsNotWritten) {
    StorageMachine m("storage_one");
    m.SetReference(reference);
    m.AddDisk("sdb", blank);
    m.SetMounts("/dev/sda1 / ext4 rw 0 0\n/dev/sdb1 /media/stick vfat rw 0 0\n");
    const Outcome o = RunOn(m, "retries=\"0\"");
    EXPECT_EQ(o.state, "failed");
    EXPECT_EQ(o.error, "Drive has a mounted partition; it is not written");
    EXPECT_EQ(o.detail, "failed for drive /dev/sdb");
    EXPECT_EQ(m.Disk("sdb"), blank);

    m.SetMounts("/dev/sda1 / ext4 rw 0 0\n/dev/sdb /media/whole vfat rw 0 0\n");
    EXPECT_EQ(RunOn(m, "retries=\"0\"").error, "Drive has a mounted partition; it is not written");
    m.SetMounts("/dev/sda1 / ext4 rw 0 0\n/dev/sdba1 /media/other vfat rw 0 0\n");
    EXPECT_EQ(RunOn(m, "retries=\"0\"").state, "passed");
    EXPECT_EQ(m.Disk("sdb"), reference + blank.substr(reference.size()));
}

TEST(FileWriteCompare, ToolOutputNeverReachesAShell) {
    StorageMachine m("storage_one");
    m.SetReference(reference);
    m.AddDisk("sdb", blank);
    m.SetSgMap("/dev/sg0  /dev/sdb; touch PWNED\n");
    const Outcome o = RunOn(m, "retries=\"0\"");
    EXPECT_EQ(o.error, "Device Not Connected");
    EXPECT_EQ(o.detail, "failed for drive /dev/sdb; touch PWNED");
    EXPECT_FALSE(m.AnyFileNamed("PWNED"));
    EXPECT_EQ(m.Disk("sdb"), blank);
}
