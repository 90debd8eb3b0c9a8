#include "tc/usb/linux/usbtests/LoopbackTest.h"

#include <unistd.h>

#include <memory>

#include "common/StringUtil.h"
#include "common/TestHooks.h"
#include "common/Translate.h"
#include "common/TvkError.h"
#include "tc/usb/linux/devices/USBDevice.h"
#include "tc/usb/linux/devices/newUSBDevice.h"
#include "tc/usb/linux/readers/USBInfoReader.h"
#include "tc/usb/linux/readers/USBtree.h"
#include "tc/usb/linux/usbxml.h"

namespace {

// Both set through the test hooks.
USBInfoReader* (*makeTestReader)() = nullptr;
unsigned int (*pauseSeconds)(unsigned int) = ::sleep;

void SetCatalogueValues(usbLoopbackTest& test) {
    test.caption = Translate("USB 2.0 Loopback Test");
    test.description = Translate("Factory USB 2.0 loopback speed test");
    test.interactive = true;
    test.requiresEquipment = true;
    test.complete = true;
    test.fieldtest = true;
    test.requiresMedia = false;
    test.requiresWindow = false;
    test.quick = false;
    test.localOnly = false;
    test.singleThread = false;
}

}  // namespace

void testhooks::SetLoopbackTestReader(USBInfoReader* (*make)()) { makeTestReader = make; }

void testhooks::SetLoopbackTestPause(unsigned int (*pause)(unsigned int)) { pauseSeconds = pause ? pause : ::sleep; }

usbLoopbackTest::usbLoopbackTest(USBDevice* usbDevice) : Test(usbxml::usbLoopbackTest, usbDevice) {
    useMountedDevicesFile = false;
    SetCatalogueValues(*this);
}

usbLoopbackTest::usbLoopbackTest(newUSBDevice* usbDevice) : Test(usbxml::usbLoopbackTest, usbDevice) {
    useMountedDevicesFile = true;
    SetCatalogueValues(*this);
}

void usbLoopbackTest::ReadAndWrite(ptstream& stream, direction dir, unsigned int) {
    Test::ReadAndWrite(stream, dir, 0);
}

void usbLoopbackTest::CopyFromPointer(const Persistent* other) { PersistentCopyFrom(this, other); }

void usbLoopbackTest::SetParameters() {
    numberDevices.Set(usbxml::numberdevices, Translate("Number of USB devices to test"),
                      Translate("Number of USB devices to test"), 0, 0, 8);
    AddParameter(&numberDevices);
}

void usbLoopbackTest::CompareResultsAndThrowError(int expected, int found) {
    const std::string detail = strprintf("expected: %d, found: %d", expected, found);
    if (expected != found) throw TvkError("Number of USB 2.0 devices found did not match parameter", detail, "");
}

bool usbLoopbackTest::DoRun(const XmlObject&) {
    const int expected = numberDevices.value;
    std::unique_ptr<USBInfoReader> reader(makeTestReader ? makeTestReader() : new USBInfoReader());
    if (useMountedDevicesFile)
        reader->setMountedDevicesFile();
    else
        reader->setDevicesFile();

    USBtree tree;
    TreeFinisher finish(tree);
    // A file that does not open leaves the tree empty and the count 0.
    tree.GrowUSBtree(reader.get());
    const int found = static_cast<int>(tree.usb20Devices.size());
    try {
        CompareResultsAndThrowError(expected, found);
    } catch (const TvkError&) {
        const std::string text =
            strprintf("%s... %s=%d  %s=%d", Translate("Verify all USB loopbacks are installed").c_str(),
                      Translate("Found").c_str(), found, Translate("Expected").c_str(), expected);
        // Time for the operator to look before and after the answer.
        pauseSeconds(5);
        PromptUser(text, Translate("OK"), "", "", "");
        pauseSeconds(10);
        throw;
    }
    return true;
}

static ClassRegistrar<usbLoopbackTest> usbLoopbackTestClassRegistrar;
