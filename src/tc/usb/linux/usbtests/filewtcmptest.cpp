#include "tc/usb/linux/usbtests/filewtcmptest.h"

#include <exception>
#include <vector>

#include "common/Debug.h"
#include "common/StringUtil.h"
#include "common/Translate.h"
#include "common/TvkError.h"
#include "common/xmldef.h"
#include "tc/framework/ComponentOutlet.h"
#include "tc/usb/linux/devices/USBDevice.h"
#include "tc/usb/linux/devices/newUSBDevice.h"
#include "tc/usb/linux/readers/USBInfoReader.h"
#include "tc/usb/linux/readers/USBtree.h"
#include "tc/usb/linux/storage/DriveCycle.h"
#include "tc/usb/linux/storage/FileCompare.h"
#include "tc/usb/linux/storage/ScsiPathMapping.h"
#include "tc/usb/linux/usbxml.h"

namespace {

const char* const referenceFile = "SSO.DAT";

// The tree of one try; its nodes are dropped with it.
struct TryTree {
    USBtree tree;
    ~TryTree() { tree.FinishTest(); }
};

}  // namespace

FileWriteCompareTest::FileWriteCompareTest(USBDevice* usbDevice) : Test(usbxml::filewritecomparetest, usbDevice) {
    Setup(usbDevice);
}

FileWriteCompareTest::FileWriteCompareTest(newUSBDevice* usbDevice) : Test(usbxml::filewritecomparetest, usbDevice) {
    Setup(usbDevice);
    useMountedDevicesFile = true;
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

int FileWriteCompareTest::OfferedRetries() const { return 0; }

void FileWriteCompareTest::SetParameters() {
    numUSBdrives.Set(usbxml::numUSBdrives, "Expected number of USB drives to test",
                     "Expected number of USB drives to test", 1, 1, 32);
    AddParameter(&numUSBdrives);
    userPrompt.Set(usbxml::userPrompt, "User Prompt", "User Prompt", "Please insert the USB drive keys into unit.");
    AddParameter(&userPrompt);
}

void FileWriteCompareTest::PromptMsgToUser(int connected, int expected) {
    if (connected == expected) return;
    PromptUser(
        userPrompt.GetValue() +
            strprintf(" Number of USB Devices Connected:%d, Number of USB Devices Expected:%d", connected, expected),
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

    // Drives that an earlier run left holding the reference get their own
    // bytes back first.
    const std::string saveDirectory = outlet::WriteDirectory();
    for (const RecoveryEvent& event : RecoverSavedDrives(saveDirectory))
        outlet::WriteLog(event.caption, event.description);

    for (int i = 1; i <= connected; ++i) {
        USBnode* drive = drives[i - 1];
        const std::string path = GetUSB_DriveDiskPath(drive);
        if (path.empty()) throw TvkError("Device Not Connected", "", "");
        const std::string message = strprintf("failed for drive %s", path.c_str());
        // The reference overwrites the disk from its first byte: what it
        // covers is saved first and written back after the compare, and a
        // drive the system uses is never written.
        DriveCycle cycle(referenceFile, path, drive->serialNumber.empty() ? "None" : drive->serialNumber, saveDirectory,
                         message);
        cycle.Claim();
        cycle.Save();
        std::exception_ptr failure;
        try {
            if (!cycle.Write()) throw TvkError("File Copy Failure", message, "");
            SetProgress(static_cast<unsigned>(i), static_cast<unsigned>(connected + 1));
            // The drive read once against the checksum of what was written;
            // only a drive that differs is compared byte by byte, for the
            // error that says how.
            if (!cycle.ReadsBackAsReference()) CompareFiles(referenceFile, path, message);
        } catch (...) {
            failure = std::current_exception();
        }
        // Whatever the compare said; a failed restore is the error that counts.
        cycle.Restore();
        if (failure) std::rethrow_exception(failure);
    }
    SetProgress(99, 100);
    return true;
}

static ClassRegistrar<FileWriteCompareTest> FileWriteCompareTestClassRegistrar;
