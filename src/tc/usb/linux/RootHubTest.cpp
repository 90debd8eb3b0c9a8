#include "tc/usb/linux/RootHubTest.h"

#include "common/Translate.h"
#include "common/TvkError.h"
#include "tc/usb/linux/USBDevice.h"
#include "tc/usb/linux/usbxml.h"

RootHubTest::RootHubTest(USBDevice* usbDevice) : Test(usbxml::rootHubTest, usbDevice) {
    caption = Translate("Root Hub Detect Test");
    description = Translate("Discovers the presence of a working root hub");
    quick = true;
    complete = true;
    fieldtest = true;
    interactive = false;
    requiresMedia = false;
    requiresEquipment = false;
    requiresWindow = false;
    localOnly = false;
    singleThread = false;
}

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
