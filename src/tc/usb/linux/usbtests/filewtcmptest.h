// Proves that every high-speed USB storage drive of the machine takes data:
// checks the number of drives, writes the reference file "SSO.DAT" straight
// to each drive's disk device, reads it back from the medium and compares.
// Each drive is left as it was found: what the reference covers is saved
// before and written back after (DriveCycle.h); drives in use are refused.
#pragma once

#include <string>

#include "tc/framework/NumericParameter.h"
#include "tc/framework/Parameter.h"
#include "tc/framework/Test.h"

class USBDevice;
class newUSBDevice;

class FileWriteCompareTest : public Test {
public:
    NumericParameter<int> numUSBdrives;
    StringParameter userPrompt;
    // Read the kernel's devices file without the source choice (and without
    // making an lsusb file): set for devices of the lsusb road.
    bool useMountedDevicesFile = false;

    // The registry's default object.
    FileWriteCompareTest() = default;
    explicit FileWriteCompareTest(USBDevice* device);
    explicit FileWriteCompareTest(newUSBDevice* device);

    void ReadAndWrite(ptstream& stream, direction dir, unsigned int version) override;
    void CopyFromPointer(const Persistent* other) override;
    const char* GetRealClassName() const override { return "FileWriteCompareTest"; }
    Persistent* CreateCopy() const override { return new FileWriteCompareTest(*this); }

    // The base's element with a retries default of 0.
    // The catalogue offers no retries for a test that writes drives.
    int OfferedRetries() const override;
    void SetParameters() override;
    // True on a pass; every failure is thrown.
    bool DoRun(const XmlObject& command) override;

    // From the second try on: tells the operator how many drives are there.
    void PromptMsgToUser(int connected, int expected);
    // `file2` against `file1`, as far as `file1` goes.
    void CompareFiles(std::string file1, std::string file2, std::string message);

private:
    void Setup(Device* device);
};
