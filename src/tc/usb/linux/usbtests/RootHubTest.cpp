#include "tc/usb/linux/usbtests/RootHubTest.h"

#include "common/Translate.h"
#include "common/TvkError.h"
#include "tc/usb/linux/devices/USBDevice.h"
#include "tc/usb/linux/devices/newUSBDevice.h"
#include "tc/usb/linux/usbxml.h"

namespace {

// The catalogue values both root hub tests share.
void SetCatalogueValues(Test& test) {
    test.caption = Translate("Root Hub Detect Test");
    test.description = Translate("Discovers the presence of a working root hub");
    test.quick = true;
    test.complete = true;
    test.fieldtest = true;
    test.interactive = false;
    test.requiresMedia = false;
    test.requiresEquipment = false;
    test.requiresWindow = false;
    test.localOnly = false;
    test.singleThread = false;
}

}  // namespace

RootHubTest::RootHubTest(USBDevice* usbDevice) : Test(usbxml::rootHubTest, usbDevice) { SetCatalogueValues(*this); }

void RootHubTest::ReadAndWrite(ptstream& stream, direction dir, unsigned int) { Test::ReadAndWrite(stream, dir, 0); }

void RootHubTest::CopyFromPointer(const Persistent* other) { PersistentCopyFrom(this, other); }

bool RootHubTest::LocksDevice() { return false; }

bool RootHubTest::DoRun(const XmlObject&) {
    USBDevice* usbDevice = dynamic_cast<USBDevice*>(device);
    if (!usbDevice) throw TvkError("No USB device associated with this USB test!", "", "");
    if (usbDevice->checkRootHub()) return true;
    throw TvkError("Unable to detect root hub", "", "");
}

static ClassRegistrar<RootHubTest> RootHubTestClassRegistrar;

newusbRootHubTest::newusbRootHubTest(newUSBDevice* usbDevice) : Test(usbxml::rootHubTest, usbDevice) {
    SetCatalogueValues(*this);
}

void newusbRootHubTest::ReadAndWrite(ptstream& stream, direction dir, unsigned int) {
    Test::ReadAndWrite(stream, dir, 0);
}

void newusbRootHubTest::CopyFromPointer(const Persistent* other) { PersistentCopyFrom(this, other); }

bool newusbRootHubTest::LocksDevice() { return false; }

bool newusbRootHubTest::DoRun(const XmlObject&) {
    newUSBDevice* usbDevice = dynamic_cast<newUSBDevice*>(device);
    if (!usbDevice) throw TvkError("No USB device associated with this USB test!", "", "");
    if (usbDevice->checkRootHub()) return true;
    throw TvkError("Unable to detect root hub", "", "");
}

static ClassRegistrar<newusbRootHubTest> newusbRootHubTestClassRegistrar;
