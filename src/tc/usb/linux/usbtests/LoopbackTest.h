// Counts the USB 2.0 mass storage devices the devices file shows and
// compares the count with what the operator set. In the factory the
// loopback plugs on the ports appear as such devices, so the count tells
// whether every port works at high speed. Offered in factory mode, on
// controllers.
#pragma once

#include "tc/framework/NumericParameter.h"
#include "tc/framework/Test.h"

class USBDevice;
class newUSBDevice;
class USBInfoReader;

class usbLoopbackTest : public Test {
public:
    // Read the kernel's devices file directly: the lsusb road must not run
    // lsusb for this count.
    bool useMountedDevicesFile = false;
    NumericParameter<int> numberDevices;

    // The registry's default object.
    usbLoopbackTest() = default;
    explicit usbLoopbackTest(USBDevice* device);
    explicit usbLoopbackTest(newUSBDevice* device);

    void ReadAndWrite(ptstream& stream, direction dir, unsigned int version) override;
    void CopyFromPointer(const Persistent* other) override;
    const char* GetRealClassName() const override { return "usbLoopbackTest"; }
    Persistent* CreateCopy() const override { return new usbLoopbackTest(*this); }

    // Number of devices to test, 0 to 8.
    void SetParameters() override;
    // On a mismatch: a pause, a prompt, a longer pause, then the failure.
    bool DoRun(const XmlObject& command) override;
    // Throws "Number of USB 2.0 devices found did not match parameter" when
    // the two differ.
    virtual void CompareResultsAndThrowError(int expected, int found);
};
