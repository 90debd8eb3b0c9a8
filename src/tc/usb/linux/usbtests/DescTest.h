// Compares the count the descriptor pass takes from the devices file with
// the number of USB loopback plugs the operator says are fitted. Offered in
// factory mode, on controllers.
#pragma once

#include "tc/framework/NumericParameter.h"
#include "tc/framework/Parameter.h"
#include "tc/framework/Test.h"

class USBDevice;
class USBInfoReader;
class USBtree;

class DescTest : public Test {
public:
    NumericParameter<int> loopbackNumber;
    StringParameter vendorId;   // read at the start of a run, not used further
    StringParameter productId;  // read at the start of a run, not used further

    // The registry's default object.
    DescTest() = default;
    explicit DescTest(USBDevice* device);

    void ReadAndWrite(ptstream& stream, direction dir, unsigned int version) override;
    void CopyFromPointer(const Persistent* other) override;
    const char* GetRealClassName() const override { return "DescTest"; }
    Persistent* CreateCopy() const override { return new DescTest(*this); }

    // Never locks its device.
    bool LocksDevice() override;
    // Loopback number (0 to 4), vendor and product id.
    void SetParameters() override;
    // One prompt and a second count when the first does not match.
    bool DoRun(const XmlObject& command) override;

private:
    // RunDescriptorTest on `tree`, from a test's reader when there is one.
    int CountDescriptors(USBtree& tree);
};
