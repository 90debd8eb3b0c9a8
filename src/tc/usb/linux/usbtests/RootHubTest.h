// Asks whether the machine has a working root hub that it can reach.
#pragma once

#include "tc/framework/Test.h"

class USBDevice;
class newUSBDevice;

class RootHubTest : public Test {
public:
    // The registry's default object.
    RootHubTest() = default;
    explicit RootHubTest(USBDevice* device);

    void ReadAndWrite(ptstream& stream, direction dir, unsigned int version) override;
    void CopyFromPointer(const Persistent* other) override;
    const char* GetRealClassName() const override { return "RootHubTest"; }
    Persistent* CreateCopy() const override { return new RootHubTest(*this); }

    // Never locks its device.
    bool LocksDevice() override;
    // The first root hub's node must open; the device under test is not looked at.
    bool DoRun(const XmlObject& command) override;
};

// The same test for a device of the lsusb road.
class newusbRootHubTest : public Test {
public:
    // The registry's default object.
    newusbRootHubTest() = default;
    explicit newusbRootHubTest(newUSBDevice* device);

    void ReadAndWrite(ptstream& stream, direction dir, unsigned int version) override;
    void CopyFromPointer(const Persistent* other) override;
    const char* GetRealClassName() const override { return "newusbRootHubTest"; }
    Persistent* CreateCopy() const override { return new newusbRootHubTest(*this); }

    // Never locks its device.
    bool LocksDevice() override;
    // The first root hub's node must open; the device under test is not looked at.
    bool DoRun(const XmlObject& command) override;
};
