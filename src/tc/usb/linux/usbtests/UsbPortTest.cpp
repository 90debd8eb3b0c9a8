#include "tc/usb/linux/usbtests/UsbPortTest.h"

#include <unistd.h>

#include <sstream>

#include "common/Debug.h"
#include "common/StringUtil.h"
#include "common/Translate.h"
#include "common/TvkError.h"
#include "common/xmldef.h"
#include "tc/usb/linux/devices/USBDevice.h"
#include "tc/usb/linux/devices/newUSBDevice.h"
#include "tc/usb/linux/storage/ExternalTool.h"
#include "tc/usb/linux/storage/FileCompare.h"
#include "tc/usb/linux/storage/UsbMount.h"
#include "tc/usb/linux/usbxml.h"

namespace {

const char* const referenceFile = "SSO.DAT";
const char* const installPrompt = "Install High Speed USB Flash Drives into all USB ports";
const int highSpeed = 480;

}  // namespace

UsbPortTest::UsbPortTest() { Setup(); }

UsbPortTest::UsbPortTest(USBDevice* usbDevice) : Test(usbxml::UsbPortTest, usbDevice) { Setup(); }

// No flow offers this test on the lsusb road; a run there ends at once for
// want of a devices-file node.
UsbPortTest::UsbPortTest(newUSBDevice* usbDevice) : Test(usbxml::UsbPortTest, usbDevice) { Setup(); }

UsbPortTest::UsbPortTest(const UsbPortTest& other)
    : Test(other), numUSBdrives(other.numUSBdrives), mountDirectory(other.mountDirectory) {}

UsbPortTest::~UsbPortTest() { clean(); }

void UsbPortTest::Setup() {
    caption = Translate("USB Port Test");
    description = Translate("Number of USB Flash drive connected, its Operating Speed and file Write Compare Test");
    interactive = true;
    complete = true;
}

void UsbPortTest::ReadAndWrite(ptstream& stream, direction dir, unsigned int) { Test::ReadAndWrite(stream, dir, 0); }

void UsbPortTest::CopyFromPointer(const Persistent* other) { PersistentCopyFrom(this, other); }

int UsbPortTest::OfferedRetries() const { return 0; }

void UsbPortTest::SetParameters() {
    numUSBdrives.Set(usbxml::numUSBdrives, "Expected number of USB drives to test",
                     "Expected number of USB drives to test", 1, 1, 32);
    AddParameter(&numUSBdrives);
}

void UsbPortTest::clean() {
    if (fileParser) fileParser->close();
    delete fileParser;
    fileParser = nullptr;
    delete usbMount;
    usbMount = nullptr;
}

bool UsbPortTest::DoRun(const XmlObject&) {
    // What an earlier run left behind on its way out.
    clean();
    PromptUser(installPrompt, "OK");
    if (!FileExists(referenceFile)) throw TvkError("Could not locate files", referenceFile, "");
    const int expected = numUSBdrives.value;

    USBDevice* usbDevice = dynamic_cast<USBDevice*>(device);
    if (!usbDevice || !usbDevice->node || usbDevice->node->serialNumber.empty()) return false;

    fileParser = new UsbFileParser(usbDevice->node->serialNumber);
    fileParser->setDevicesFile();
    if (!fileParser->isDevicesFileAvalable()) {
        clean();
        throw TvkError("Could not locate files", "/proc/bus/usb/devices", "");
    }
    if (!fileParser->open()) {
        fileParser->mountProcUsb();
        if (!fileParser->open()) {
            clean();
            throw TvkError("Could not locate files", "/proc/bus/usb/devices", "");
        }
    }
    fileParser->ParseProcBusUsbDeviceFile();
    numFlashDrives = fileParser->nodeCount;

    const auto countText = [&]() { return strprintf("\nFound:%d,Expected:%d", numFlashDrives, expected); };
    if (numFlashDrives == 0) {
        const std::string found = countText();
        PromptUser(installPrompt + found, "OK");
        clean();
        throw TvkError("Incorrect number of USB Devices", found, "");
    }
    FindNumUSBFlashDrivesAndMountPoint(fileParser->nodes);
    if (numFlashDrives != expected) {
        const std::string found = countText();
        PromptUser(installPrompt + found, "OK");
        clean();
        throw TvkError("Incorrect number of USB Devices", found, "");
    }
    if (fileParser->rootSpeed != highSpeed) {
        const std::string actual = strprintf("Controller Actual Speed: %d Mbps", fileParser->rootSpeed);
        clean();
        throw TvkError("High Speed USB Controller NOT connected. Expected Speed: 480 Mbps", actual, "");
    }

    usbMount->CreateMountDir(mountDirectory);
    const std::string target = mountDirectory + "/" + referenceFile;
    for (const USBDriveNode& node : fileParser->nodes) {
        if (node.mountPoint.empty()) continue;
        try {
            if (node.speed != fileParser->rootSpeed)
                throw TvkError("High Speed USB Flash Drive NOT connected. Expected Speed: 480 Mbps",
                               strprintf("Actual USB Device Speed: %d Mbps, Failed at  port-%d", node.speed, node.port),
                               "");
            const std::string failure = strprintf("Failed for port-%d", node.port);
            const int status = usbMount->MountUSB(node.mountPoint, mountDirectory);
            if (status != 0) {
                PromptUser(strprintf("Mount failed: err code:%d", status), "OK");
                throw TvkError("USB Drive could not be mounted", failure, "");
            }
            if (CopyFileToUSB(referenceFile, target) != 0) throw TvkError("File Copy Failure", failure, "");
            CompareFiles(referenceFile, target, failure);
            usbMount->UnMountUSB(mountDirectory.c_str());
        } catch (...) {
            usbMount->UnMountUSB(mountDirectory.c_str());
            usbMount->RemoveMountDir(mountDirectory);
            clean();
            throw;
        }
    }
    usbMount->RemoveMountDir(mountDirectory);
    clean();
    return true;
}

int UsbPortTest::FindNumUSBFlashDrivesAndMountPoint(std::vector<USBDriveNode>& nodes) {
    delete usbMount;
    usbMount = new UsbMount();
    for (USBDriveNode& node : nodes) {
        const std::string device = usbMount->GetMountPoint(node.serial);
        if (device.empty()) continue;
        if (isUSBFlashDrive(device)) {
            node.mountPoint = device + "1";
        } else {
            --numFlashDrives;
        }
    }
    return numFlashDrives;
}

bool UsbPortTest::isUSBFlashDrive(std::string device) {
    if (!IsPathOperand(device)) return false;
    const int fd = CreateScratchFile(toolOutputFile);
    if (fd < 0) return false;
    const int status = RunTool({"sg_inq", device}, fd, ToolOutput::inherit, ToolOutput::discard);
    if (!ToolSucceeded(status)) {
        close(fd);
        return false;
    }
    const std::string text = ReadWholeFd(fd);
    close(fd);
    if (IsDiskInquiry(text)) return true;
    unlink(toolOutputFile);
    return false;
}

bool UsbPortTest::IsDiskInquiry(const std::string& text) {
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        if (line.find("Device_type=0") != std::string::npos) return true;
    return false;
}

int UsbPortTest::CopyFileToUSB(std::string source, std::string target) {
    if (FileExists(target)) RunTool({"rm", "-f", target}, -1, ToolOutput::discard, ToolOutput::discard);
    return RunTool({"cp", source, target});
}

void UsbPortTest::CompareFiles(std::string source, std::string target, std::string failureText) {
    CompareFileContents(source, target, failureText, CompareSpan::whole);
}

static ClassRegistrar<UsbPortTest> UsbPortTestClassRegistrar;
