#include "tc/usb/linux/usbtests/DescTest.h"

#include <memory>

#include "common/TestHooks.h"
#include "common/Translate.h"
#include "common/TvkError.h"
#include "tc/usb/linux/devices/USBDevice.h"
#include "tc/usb/linux/readers/USBInfoReader.h"
#include "tc/usb/linux/readers/USBtree.h"
#include "tc/usb/linux/usbxml.h"

namespace {

// Set through the test hook; null: the reader chooses its own source.
USBInfoReader* (*makeTestReader)() = nullptr;

}  // namespace

void testhooks::SetDescTestReader(USBInfoReader* (*make)()) { makeTestReader = make; }

DescTest::DescTest(USBDevice* usbDevice) : Test(usbxml::descTest, usbDevice) {
    caption = Translate("USB Descriptor Test");
    description = Translate("Run a USB descriptor test with USB loopback");
    interactive = true;
    requiresEquipment = true;
    singleThread = true;
    requiresMedia = false;
    requiresWindow = false;
    quick = false;
    complete = false;
    localOnly = false;
    fieldtest = false;
}

void DescTest::ReadAndWrite(ptstream& stream, direction dir, unsigned int) { Test::ReadAndWrite(stream, dir, 0); }

void DescTest::CopyFromPointer(const Persistent* other) { PersistentCopyFrom(this, other); }

bool DescTest::LocksDevice() { return false; }

void DescTest::SetParameters() {
    loopbackNumber.Set(usbxml::usbLoopback, Translate("Number of Loopback"),
                       Translate("Input the number of USB loopback"), 0, 0, 4);
    AddParameter(&loopbackNumber);
    vendorId.Set(usbxml::usbVendorID, Translate("Vendor ID"), Translate("Vendor ID"), "0");
    AddParameter(&vendorId);
    productId.Set(usbxml::usbDeviceID, Translate("Product ID"), Translate("Product ID"), "0");
    AddParameter(&productId);
}

int DescTest::CountDescriptors(USBtree& tree) {
    if (!makeTestReader) return tree.RunDescriptorTest();
    std::unique_ptr<USBInfoReader> reader(makeTestReader());
    return tree.RunDescriptorTest(*reader);
}

bool DescTest::DoRun(const XmlObject&) {
    const int expected = loopbackNumber.value;
    const std::string vendor = vendorId.GetValue();
    const std::string product = productId.GetValue();
    (void)vendor;
    (void)product;

    USBtree tree;
    TreeFinisher finish(tree);
    int found = CountDescriptors(tree);
    if (found == expected) return true;
    // The operator may fit the plugs now; the answer itself does not matter.
    PromptUser(Translate("Loopback"), Translate("OK"), "", "", "");
    found = CountDescriptors(tree);
    if (found != expected) throw TvkError("Descriptor test failed", "", "");
    return true;
}

static ClassRegistrar<DescTest> DescTestClassRegistrar;
