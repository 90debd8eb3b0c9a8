// Looks on the PCI bus for a USB 2.0 (EHCI) host controller and for the
// character '5' in 12 bytes of memory behind its first non-zero base
// address register. No device offers it; it can only come back from a
// stored state.
#pragma once

#include "tc/framework/Test.h"

class USBDevice;

class SpeedTest : public Test {
public:
    // The registry's default object.
    SpeedTest() = default;
    explicit SpeedTest(USBDevice* device);

    void ReadAndWrite(ptstream& stream, direction dir, unsigned int version) override;
    void CopyFromPointer(const Persistent* other) override;
    const char* GetRealClassName() const override { return "SpeedTest"; }
    Persistent* CreateCopy() const override { return new SpeedTest(*this); }

    // Never locks its device.
    bool LocksDevice() override;
    // Walks all of PCI, whatever it finds on the way.
    bool DoRun(const XmlObject& command) override;
};
