// Proves the USB ports behind one high-speed controller with real drives:
// the operator puts a flash drive into every port; the test counts the
// drives below the controller, checks the controller's and each drive's
// speed, then mounts each drive in turn, copies the reference file "SSO.DAT"
// onto it and compares the copy.
#pragma once

#include <string>
#include <vector>

#include "tc/framework/NumericParameter.h"
#include "tc/framework/Test.h"
#include "tc/usb/linux/readers/UsbFileParser.h"

class USBDevice;
class newUSBDevice;
class UsbMount;

class UsbPortTest : public Test {
public:
    NumericParameter<int> numUSBdrives;
    UsbFileParser* fileParser = nullptr;  // owned, within one run
    UsbMount* usbMount = nullptr;         // owned, within one run
    int32_t numFlashDrives = 0;

    // The registry's default object.
    UsbPortTest();
    explicit UsbPortTest(USBDevice* device);
    explicit UsbPortTest(newUSBDevice* device);
    // The copy has no run under way.
    UsbPortTest(const UsbPortTest& other);
    ~UsbPortTest() override;

    void ReadAndWrite(ptstream& stream, direction dir, unsigned int version) override;
    void CopyFromPointer(const Persistent* other) override;
    const char* GetRealClassName() const override { return "UsbPortTest"; }
    Persistent* CreateCopy() const override { return new UsbPortTest(*this); }

    // The base's element with a retries default of 0.
    // The catalogue offers no retries for a test that writes drives.
    int OfferedRetries() const override;
    void SetParameters() override;
    bool DoRun(const XmlObject& command) override;

    // Looks up each node's block device; a device that is no disk is taken
    // off the count. Makes usbMount.
    int FindNumUSBFlashDrivesAndMountPoint(std::vector<USBDriveNode>& nodes);
    // True when `sg_inq` reports the device as a disk.
    bool isUSBFlashDrive(std::string device);
    // The parsing step on `sg_inq`'s text: a line that gives the device
    // type 0, a disk.
    static bool IsDiskInquiry(const std::string& text);
    // Replaces any old copy of `target`; the status of the copy.
    int CopyFileToUSB(std::string source, std::string target);
    // The whole of `target` against `source`, read back from the drive.
    void CompareFiles(std::string source, std::string target, std::string failureText);
    // Closes and drops the parser and the mount helper.
    void clean();

protected:
    // Where drives are mounted. Fixed for the component; a test may point it
    // into its own tree.
    std::string mountDirectory = "/mnt/usbdrive";

private:
    void Setup();
};
