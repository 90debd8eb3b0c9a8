#include "tc/usb/linux/filewtcmptest.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <vector>

#include "common/Debug.h"
#include "common/StringUtil.h"
#include "common/Translate.h"
#include "common/TvkError.h"
#include "common/xmldef.h"
#include "tc/usb/linux/FileCompare.h"
#include "tc/usb/linux/MountTable.h"
#include "tc/usb/linux/ScsiPathMapping.h"
#include "tc/usb/linux/TestElement.h"
#include "tc/usb/linux/USBDevice.h"
#include "tc/usb/linux/USBInfoReader.h"
#include "tc/usb/linux/USBtree.h"
#include "tc/usb/linux/usbxml.h"
#include "tc/usb/linux/newUSBDevice.h"

namespace {

const char* const referenceFile = "SSO.DAT";

// The tree of one try; its nodes are dropped with it.
struct TryTree {
    USBtree tree;
    ~TryTree() { tree.FinishTest(); }
};

bool WriteAll(int fd, const char* data, size_t size) {
    size_t done = 0;
    while (done < size) {
        const ssize_t n = write(fd, data + done, size - done);
        if (n > 0) {
            done += static_cast<size_t>(n);
        } else if (n < 0 && errno == EINTR) {
            continue;
        } else {
            break;
        }
    }
    return done > 0;
}

}  // namespace

bool CopyFileToDrive(const std::string& source, const std::string& path) {
    std::FILE* in = std::fopen(source.c_str(), "r");
    // The drive must exist already: a vanished disk is not made into a new
    // file under /dev, and what it holds is not truncated.
    const int out = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (!in && out >= 0) {
        close(out);
        dbgprintf("Missing SSO.DAT file\n");
        throw TvkError("Could not locate files", "", "");
    }
    if (out < 0) {
        if (in) std::fclose(in);
        dbgprintf("Device Not Connected\n");
        throw TvkError("Device Not Connected", strprintf("failed for drive %s", path.c_str()), "");
    }
    std::fseek(in, 0, SEEK_END);
    const long size = std::ftell(in);
    std::fseek(in, 0, SEEK_SET);
    std::vector<char> buffer(size > 0 ? static_cast<size_t>(size) : 0);
    const size_t got = buffer.empty() ? 0 : std::fread(buffer.data(), 1, buffer.size(), in);
    std::fclose(in);

    bool written = true;
    if (got > 0) {
        if (!WriteAll(out, buffer.data(), got)) {
            dbgprintf("Write failed\n");
            written = false;
        }
        // On the medium before anyone reads it back.
        FlushAndDropCache(out);
    }
    close(out);
    return written;
}

FileWriteCompareTest::FileWriteCompareTest(USBDevice* usbDevice) : Test(usbxml::filewritecomparetest, usbDevice) {
    Setup(usbDevice);
}

FileWriteCompareTest::FileWriteCompareTest(newUSBDevice* usbDevice)
    : Test(usbxml::filewritecomparetest, usbDevice) {
    Setup(usbDevice);
    useMountedDevicesFile = true;
}

FileWriteCompareTest::FileWriteCompareTest(const FileWriteCompareTest& other)
    : Test(other),
      numUSBdrives(other.numUSBdrives),
      userPrompt(other.userPrompt),
      useMountedDevicesFile(other.useMountedDevicesFile) {
    // The base copied pointers to the original's members.
    parameters.parameters.clear();
    SetParameters();
}

void FileWriteCompareTest::Setup(Device*) {
    caption = Translate("USB File Write Compare Test");
    description = Translate("USB File Write Compare Test");
    interactive = true;
    complete = true;
    quick = false;
    requiresMedia = false;
    requiresEquipment = false;
    requiresWindow = false;
    localOnly = false;
    singleThread = false;
    fieldtest = false;
}

void FileWriteCompareTest::ReadAndWrite(ptstream& stream, direction dir, unsigned int) {
    Test::ReadAndWrite(stream, dir, 0);
}

void FileWriteCompareTest::CopyFromPointer(const Persistent* other) { PersistentCopyFrom(this, other); }

std::string FileWriteCompareTest::GetXmlString() const { return WithRetriesDefaultZero(Test::GetXmlString()); }

void FileWriteCompareTest::SetParameters() {
    numUSBdrives.Set(usbxml::numUSBdrives, "Expected number of USB drives to test",
                     "Expected number of USB drives to test", 1, 1, 32);
    AddParameter(&numUSBdrives);
    userPrompt.Set(usbxml::userPrompt, "User Prompt", "User Prompt", "Please insert the USB drive keys into unit.");
    AddParameter(&userPrompt);
}

void FileWriteCompareTest::PromptMsgToUser(int connected, int expected) {
    if (connected == expected) return;
    PromptUser(userPrompt.GetValue() +
                   strprintf(" Number of USB Devices Connected:%d, Number of USB Devices Expected:%d", connected,
                             expected),
               "OK");
}

void FileWriteCompareTest::CompareFiles(std::string file1, std::string file2, std::string message) {
    CompareFileContents(file1, file2, message, CompareSpan::firstLength);
}

bool FileWriteCompareTest::DoRun(const XmlObject&) {
    USBInfoReader reader;
    if (useMountedDevicesFile)
        reader.setMountedDevicesFile();
    else
        reader.setDevicesFile();
    TryTree grown;
    grown.tree.GrowUSBtree(&reader);
    const std::vector<USBnode*> drives(grown.tree.usb20Devices.begin(), grown.tree.usb20Devices.end());
    const int connected = static_cast<int>(drives.size());
    const int expected = numUSBdrives.value;

    if (currentTry > 1) PromptMsgToUser(connected, expected);
    if (connected != expected) throw TvkError("Incorrect number of USB Devices", "", "");
    SetProgress(1, 100);
    if (!FileExists(referenceFile)) throw TvkError("Could not locate files", "Could not locate files", "");

    for (int i = 1; i <= connected; ++i) {
        const std::string path = GetUSB_DriveDiskPath(drives[i - 1]);
        if (path.empty()) throw TvkError("Device Not Connected", "", "");
        const std::string message = strprintf("failed for drive %s", path.c_str());
        // The reference overwrites the disk from its first byte: a drive
        // with a file system in use is never written.
        if (IsDeviceOrPartitionMounted(ReadMountTable(), path))
            throw TvkError("Drive has a mounted partition; it is not written", message, "");
        if (!CopyFileToDrive(referenceFile, path)) throw TvkError("File Copy Failure", message, "");
        SetProgress(static_cast<unsigned>(i), static_cast<unsigned>(connected + 1));
        CompareFiles(referenceFile, path, message);
    }
    SetProgress(99, 100);
    return true;
}

static ClassRegistrar<FileWriteCompareTest> FileWriteCompareTestClassRegistrar;
