// Tools without a shell, the scratch file never followed through a link, mounting, test steps.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <fstream>
#include <memory>

#include "common/TvkError.h"
#include "platform/SystemHelpers.h"
#include "tc/usb/linux/storage/ExternalTool.h"
#include "tc/usb/linux/storage/FileCompare.h"
#include "tc/usb/linux/storage/UsbMount.h"
#include "tc/usb/linux/usbtests/UsbPortTest.h"
#include "tc/usb/linux/usbtests/filewtcmptest.h"
#include "usb/UsbTestSupport.h"

namespace {}  // namespace

TEST(ExternalTool, HostileTextStaysOneArgumentAndTheScratchFileIsNoLink) {
    TempDir dir(true);
    std::string out;
    ASSERT_TRUE(CaptureTool({"printf", "%s|", "/dev/sdb; touch PWNED", "$(touch PWNED2)"}, out));
    EXPECT_EQ(out, "/dev/sdb; touch PWNED|$(touch PWNED2)|");
    EXPECT_FALSE(dir.Exists("PWNED") || dir.Exists("PWNED2"));
    EXPECT_TRUE(ToolSucceeded(RunTool({"true"})) && !ToolSucceeded(RunTool({"false"})));
    // No child, or under qemu-user (no failed exec reported by posix_spawn) one that exits 127.
    const int missing = RunTool({"no-such-tool-zorbus"});
    EXPECT_TRUE(missing == -1 || (WIFEXITED(missing) && WEXITSTATUS(missing) == 127)) << missing;
    {  // a tool waited for later: the work beside it happens while it runs, its status comes once
        RunningTool slow({"sh", "-c", "sleep 0.2; test -e beside"});
        dir.Write("beside", "");
        const int status = slow.Wait();
        EXPECT_TRUE(ToolSucceeded(status)) << status;
        EXPECT_EQ(slow.Wait(), status);
        RunningTool gone({"no-such-tool-zorbus"});
        EXPECT_EQ(gone.Wait(), missing);
    }
    EXPECT_FALSE(CaptureTool({}, out));
    EXPECT_FALSE(IsPathOperand("-o") || IsPathOperand(""));
    EXPECT_EQ(SplitLikeFgets("ab\ncdefg\nh", 4), (std::vector<std::string>{"ab\n", "cde", "fg\n", "h"}));

    // A link planted where the scratch file goes is replaced; its target is spared.
    const std::string victim = dir.Write("victim", "precious"), scratch = dir.Path("OUTFILE");
    ASSERT_EQ(symlink(victim.c_str(), scratch.c_str()), 0);
    const int fd = CreateScratchFile(scratch.c_str());
    ASSERT_GE(fd, 0);
    ASSERT_EQ(write(fd, "tool output\n", 12), 12);
    EXPECT_EQ(ReadWholeFd(fd), "tool output\n");
    close(fd);
    EXPECT_EQ(dir.Read("victim"), "precious");
    struct stat st {};
    ASSERT_EQ(lstat(scratch.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & (S_IFMT | 0777), S_IFREG | 0600u);
}

// The working directory's own files: appended to while they are the
// component's, replaced when something else stands at their name.
TEST(OpenOwnFile, AppendsToItsOwnFileAndReplacesAFifoWithoutWaiting) {
    TempDir dir(true);
    const std::string trace = dir.Write("trace", "first\n");
    int fd = OpenOwnFile(trace, O_APPEND);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(write(fd, "second\n", 7), 7);
    close(fd);
    EXPECT_EQ(dir.Read("trace"), "first\nsecond\n");

    const std::string fifo = dir.Path("devices");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0644), 0);
    fd = OpenOwnFile(fifo, O_TRUNC);
    ASSERT_GE(fd, 0);
    close(fd);
    struct stat st {};
    ASSERT_EQ(lstat(fifo.c_str(), &st), 0);
    EXPECT_TRUE(S_ISREG(st.st_mode));
    // With O_EXCL anything at the name is left alone.
    EXPECT_EQ(OpenOwnFile(trace, O_EXCL), -1);
    EXPECT_EQ(dir.Read("trace"), "first\nsecond\n");
}

TEST(UsbMountTools, SerialToDiskAndMountingThroughStubs) {
    TempDir dir(true);
    dir.Stub("sg_scan", "echo '/dev/sg0: scsi7 channel=0 id=0 lun=0'");
    dir.Stub("sg_map", "echo '/dev/sg0  /dev/sdb; touch PWNED'");
    for (const char* tool : {"mount", "umount", "mkdir", "rm"}) dir.Stub(tool, "exit 0");
    UsbMount mount;
    EXPECT_EQ(mount.GetDevNode("scsi7"), "/dev/sg0");
    EXPECT_EQ(mount.GetDevNode("scsi8"), "");
    dir.Write("storage/7", "   Host scsi7: usb-storage\nSerial Number: ABC123\n");
    EXPECT_EQ(mount.FindMountPoint(dir.Path("storage/"), "7", "ABC123"), "/dev/sdb; touch PWNED");
    EXPECT_EQ(mount.FindMountPoint(dir.Path("storage/"), "7", "XYZ"), "");
    EXPECT_EQ(ErrorOf([&] { mount.FindMountPoint(dir.Path("storage/"), "9", "ABC123"); }), "Could not locate files|9");

    EXPECT_EQ(mount.MountUSB("/dev/sdb; touch PWNED1", "/mnt/usbdrive"), 0);
    EXPECT_NE(mount.MountUSB("--bind", "/mnt/usbdrive"), 0);
    mount.UnMountUSB("/mnt/usbdrive");
    mount.CreateMountDir("/mnt/usbdrive");
    mount.RemoveMountDir("/mnt/usbdrive");
    mount.RemoveMountDir("/proc");  // a file system is mounted there: never removed
    mount.RemoveMountDir("/");
    EXPECT_EQ(dir.Calls(), "sg_scan\nsg_scan\nsg_scan\nsg_map\n"
                           "mount [-t] [vfat] [/dev/sdb; touch PWNED1] [/mnt/usbdrive]\n"
                           "umount [/mnt/usbdrive]\nmkdir [-p] [/mnt/usbdrive]\nrm [-rf] [/mnt/usbdrive]\n");
    EXPECT_FALSE(dir.Exists("PWNED"));
    dir.Stub("mount", "exit 32");
    EXPECT_EQ(mount.MountUSB("/dev/sdb1", "/mnt/usbdrive"), 32 << 8);
    dir.Stub("sg_scan", "echo '/dev/sg0: scsi7 channel=0'; exit 1");
    EXPECT_EQ(mount.GetDevNode("scsi7"), "") << "a failing tool gives nothing";
}

TEST(UsbPortTestSteps, DiskInquiryCopyAndCompare) {
    TempDir dir(true);
    dir.Stub("sg_inq", "case \"$1\" in /dev/sdb) echo 'PQual=0  Device_type=0  RMB=1';; "
                       "/dev/sr0) echo 'PQual=0  Device_type=5';; *) exit 1;; esac");
    UsbPortTest test;
    unlink(toolOutputFile);
    EXPECT_TRUE(test.isUSBFlashDrive("/dev/sdb"));
    EXPECT_EQ(access(toolOutputFile, F_OK), 0) << "a disk's answer stays in the scratch file";
    EXPECT_FALSE(test.isUSBFlashDrive("/dev/sr0"));
    EXPECT_NE(access(toolOutputFile, F_OK), 0) << "another is removed";
    EXPECT_FALSE(test.isUSBFlashDrive("/dev/sdz"));
    EXPECT_FALSE(test.isUSBFlashDrive("-x"));
    EXPECT_EQ(dir.Calls(), "sg_inq [/dev/sdb]\nsg_inq [/dev/sr0]\nsg_inq [/dev/sdz]\n");

    dir.Write("SSO.DAT", "reference");
    const std::string target = dir.Write("drive/SSO.DAT", "old copy that is longer");
    EXPECT_EQ(test.CopyFileToUSB("SSO.DAT", target), 0);
    EXPECT_EQ(dir.Read("drive/SSO.DAT"), "reference");
    EXPECT_EQ(ErrorOf([&] { test.CompareFiles("SSO.DAT", target, "Failed for port-2"); }), "passed");
    dir.Write("drive/SSO.DAT", "referencf");
    EXPECT_EQ(ErrorOf([&] { test.CompareFiles("SSO.DAT", target, "Failed for port-2"); }),
              "Data Comparison Failure|Failed for port-2");
    EXPECT_NE(test.CopyFileToUSB("SSO.DAT", dir.Path("no/such/dir/SSO.DAT")), 0);
}

TEST(FileWriteCompareSteps, CatalogueAndCompare) {
    const std::string head = "interactive=\"1\" requiresMedia=\"0\" requiresEquipment=\"0\" quick=\"0\" complete=\"1\" "
                             "requiresWindow=\"0\" localOnly=\"0\" singleThread=\"0\" destructive=\"0\" romTest=\"0\" "
                             "fieldtest=\"0\"><parameter name=\"retries\" caption=\"Retries\" description=\"Number of "
                             "retries if test fails\" type=\"int\" min=\"0\" max=\"5\" defaultValue=\"0\"/><parameter "
                             "name=\"numUSBdrives\" caption=\"Expected number of USB drives to test\" "
                             "description=\"Expected number of USB drives to test\" type=\"int\" defaultValue=\"1\" "
                             "min=\"1\" max=\"32\"/>";
    auto original = std::make_unique<FileWriteCompareTest>(static_cast<USBDevice*>(nullptr));
    original->SetParameters();
    UsbPortTest port(static_cast<USBDevice*>(nullptr));
    port.SetParameters();
    EXPECT_EQ(port.GetXmlString(), "<test name=\"UsbPortTest\" caption=\"USB Port Test\" description=\"Number of "
                                   "USB Flash drive connected, its Operating Speed and file Write Compare Test\" " +
                                       head + "</test>");
    // A copy owns its parameters: it outlives the original.
    std::unique_ptr<Persistent> copy(original->CreateCopy());
    original.reset();
    EXPECT_EQ(static_cast<::Test*>(copy.get())->GetXmlString(),
              "<test name=\"FileWriteCompareTest\" caption=\"USB File Write Compare Test\" "
              "description=\"USB File Write Compare Test\" " +
                  head +
                  "<parameter name=\"userPrompt\" caption=\"User Prompt\" description=\"User Prompt\" "
                  "type=\"string\" defaultValue=\"Please insert the USB drive keys into unit.\"/></test>");

    // The test compares a disk only as far as the reference goes.
    TempDir dir(true);
    dir.Write("SSO.DAT", "REFERENCE");
    const std::string disk = dir.Write("sdb", "REFERENCE" + std::string(23, '.'));
    FileWriteCompareTest test(static_cast<USBDevice*>(nullptr));
    EXPECT_EQ(ErrorOf([&] { test.CompareFiles("SSO.DAT", disk, "x"); }), "passed");
}

TEST(FileCompare, OutcomesInTheirOrder) {
    TempDir dir;
    const size_t chunk = 1 << 20;
    std::string big(2 * chunk, 'x');
    const std::string ref = dir.Write("ref", "reference data"), bigRef = dir.Write("big", big);
    big[chunk + 17] = 'z';
    const std::vector<std::tuple<std::string, std::string, CompareSpan, std::string>> cases = {
        {ref, dir.Write("same", "reference data"), CompareSpan::whole, "passed"},
        {ref, dir.Write("longer", "reference data and more"), CompareSpan::firstLength, "passed"},
        {ref, dir.Path("longer"), CompareSpan::whole, "Data Comparison Failure"},
        {ref, dir.Write("other", "reference dat!"), CompareSpan::firstLength, "Data Comparison Failure"},
        {ref, dir.Write("shorter", "refer"), CompareSpan::firstLength, "Data Comparison Failure"},
        {dir.Write("empty", ""), dir.Path("same"), CompareSpan::whole, "Read Data Failure"},
        {ref, dir.Path("empty"), CompareSpan::firstLength, "Read Data Failure"},
        {dir.Path("missing"), dir.Path("same"), CompareSpan::whole, "Could not locate files"},
        {ref, dir.Path("missing"), CompareSpan::whole, "Could not locate files"},
        {ref, "/dev/zero", CompareSpan::firstLength, "Data Comparison Failure"},  // keeps nothing written
        {ref, "/dev/null", CompareSpan::firstLength, "Read Data Failure"},
        // Across read chunks: one byte more behind an exact multiple, a late difference, a cut.
        {bigRef, dir.Write("copy", std::string(2 * chunk, 'x')), CompareSpan::whole, "passed"},
        {bigRef, dir.Write("plus", std::string(2 * chunk, 'x') + "y"), CompareSpan::whole, "Data Comparison Failure"},
        {bigRef, dir.Path("plus"), CompareSpan::firstLength, "passed"},
        {bigRef, dir.Write("late", big), CompareSpan::whole, "Data Comparison Failure"},
        {bigRef, dir.Write("cut", big.substr(0, chunk + 5)), CompareSpan::firstLength, "Data Comparison Failure"},
    };
    for (const auto& [a, b, span, outcome] : cases)
        EXPECT_EQ(ErrorOf([&] { CompareFileContents(a, b, "failed for drive X", span); }),
                  outcome == "passed" ? outcome : outcome + "|failed for drive X")
            << b;
}

// Past the page cache, on /tmp and on tmpfs, whichever road each takes: a length that ends inside a block.
TEST(MediumReader, ReadsAFileToItsEndOnEitherRoad) {
    std::string bytes(3 * MediumReader::alignment + 5, '\0');
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>('a' + i % 23);
    for (const char* base : {"/tmp", "/dev/shm"}) {
        if (access(base, W_OK) != 0) continue;
        const std::string path = std::string(base) + "/zorbus-medium-" + std::to_string(getpid());
        std::ofstream(path, std::ios::binary) << bytes;
        {
            MediumReader reader(path);
            ASSERT_TRUE(reader.IsOpen());
            AlignedBuffer buffer(2 * MediumReader::alignment);
            std::string got;
            for (size_t n; (n = reader.Read(buffer.data(), buffer.size)) > 0;) got.append(buffer.data(), n);
            EXPECT_EQ(got, bytes) << base << (reader.Direct() ? " direct" : " cached");
        }
        unlink(path.c_str());
    }
    EXPECT_FALSE(MediumReader("/nonexistent/zorbus").IsOpen());
}
