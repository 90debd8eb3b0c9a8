// The three test classes in the state stream and as copies: each comes back
// as its own class with its device, state and catalogue values, and a copy
// reads its own parameters, not those of the test it was made from.
#include <gtest/gtest.h>

#include <memory>

#include "Support.h"
#include "common/Persistent.h"
#include "tc/usb/linux/DescTest.h"
#include "tc/usb/linux/LoopbackTest.h"
#include "tc/usb/linux/SpeedTest.h"
#include "tc/usb/linux/USBDevice.h"

namespace {

// The device with its test, written and read back; the test refers to the
// device stored around it.
std::unique_ptr<USBDevice> RoundTrip(const USBDevice& device, std::string* bytes) {
    optstream out;
    out << static_cast<const Persistent*>(&device);
    *bytes = out.GetBuffer();
    iptstream in = iptstream::FromMemory(out.GetBuffer());
    Persistent* read = nullptr;
    in >> read;
    USBDevice* typed = dynamic_cast<USBDevice*>(read);
    if (!typed) delete read;
    return std::unique_ptr<USBDevice>(typed);
}

template <class T>
void ExpectRestored(T* original) {
    SCOPED_TRACE(original->GetRealClassName());
    USBDevice device("usbDevice", nullptr, true);
    original->device = &device;
    device.AddTest(original);
    original->currentState = "failed";
    original->currentTry = 2;
    std::string first;
    std::unique_ptr<USBDevice> back = RoundTrip(device, &first);
    ASSERT_NE(back, nullptr);
    ASSERT_EQ(back->tests.size(), 1u);
    T* test = dynamic_cast<T*>(back->tests[0]);
    ASSERT_NE(test, nullptr);
    EXPECT_EQ(test->device, back.get());
    EXPECT_EQ(test->name, original->name);
    EXPECT_EQ(test->caption, original->caption);
    EXPECT_EQ(test->currentState, "failed");
    EXPECT_EQ(test->currentTry, 2);
    EXPECT_EQ(test->interactive, original->interactive);
    EXPECT_EQ(test->singleThread, original->singleThread);
    EXPECT_EQ(test->complete, original->complete);
    EXPECT_TRUE(test->parameters.parameters.empty()) << "parameters are not stored";
    // Nothing beyond the base's fields: writing it again gives the same bytes.
    std::string second;
    EXPECT_NE(RoundTrip(*back, &second), nullptr);
    EXPECT_EQ(second, first);
}

}  // namespace

TEST(UsbTestStore, EachClassComesBackAsItself) {
    for (const char* name : {"SpeedTest", "DescTest", "usbLoopbackTest"})
        EXPECT_TRUE(PersistentClassRegistry::IsRegistered(name)) << name;
    ExpectRestored(new SpeedTest(nullptr));
    ExpectRestored(new DescTest(nullptr));
    ExpectRestored(new usbLoopbackTest(static_cast<USBDevice*>(nullptr)));
}

TEST(UsbTestStore, CopiesOwnTheirParameters) {
    USBDevice device("usbDevice", nullptr, true);
    auto desc = std::make_unique<DescTest>(&device);
    desc->SetParameters();
    desc->loopbackNumber.SetValue("3");
    std::unique_ptr<DescTest> descCopy(static_cast<DescTest*>(desc->CreateCopy()));
    desc.reset();
    ASSERT_EQ(descCopy->parameters.parameters.size(), 3u);
    EXPECT_EQ(descCopy->parameters.parameters[0], &descCopy->loopbackNumber);
    EXPECT_EQ(descCopy->parameters.parameters[1], &descCopy->vendorId);
    EXPECT_EQ(descCopy->parameters.parameters[2], &descCopy->productId);
    EXPECT_EQ(descCopy->loopbackNumber.value, 3);

    usbLoopbackTest loopback(static_cast<newUSBDevice*>(nullptr));
    loopback.SetParameters();
    usbLoopbackTest target(&device);
    target.CopyFromPointer(&loopback);
    EXPECT_TRUE(target.useMountedDevicesFile);
    ASSERT_EQ(target.parameters.parameters.size(), 1u);
    EXPECT_EQ(target.parameters.parameters[0], &target.numberDevices);
}
