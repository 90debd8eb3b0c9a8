#include "tc/frame/USBTestComponent.h"

#include "common/Translate.h"
#include "common/TvkError.h"
#include "common/xmldef.h"
#include "tc/usb/linux/Discovery.h"
#include "tc/usb/linux/DriveCycle.h"
#include "tc/usb/linux/USBDevice.h"
#include "tc/usb/linux/usbxml.h"

USBTestComponent::USBTestComponent(const std::string&) {}

void USBTestComponent::ReadAndWrite(ptstream& stream, direction dir, unsigned int) {
    TestComponent::ReadAndWrite(stream, dir, 0);
}

void USBTestComponent::CopyFromPointer(const Persistent* other) { PersistentCopyFrom(this, other); }

static ClassRegistrar<USBTestComponent> USBTestComponentClassRegistrar;

void USBTestComponent::Initialize() {
    TranslatorAddCatalog("rkl");
    TranslatorAddCatalog("zorbus");
    // A file write compare run that never ended may have left a drive
    // holding its reference. The host has no callback yet: the events wait.
    HoldRecoveryEvents(RecoverSavedDrives(GetDiagsWriteDirectory()));
}

std::string USBTestComponent::ExecuteXMLCommand(const std::string& xml) {
    if (eventCallback) {
        try {
            for (const RecoveryEvent& event : TakeHeldRecoveryEvents()) WriteEventLog(event.caption, event.description);
        } catch (const TvkError&) {
            // The callback went away meanwhile; the command still runs.
        }
    }
    return TestComponent::ExecuteXMLCommand(xml);
}

std::string USBTestComponent::Catalog() {
    XmlObject result;
    result.name = xmldef::catResult;
    // A template: no node, no discovery. The dispatcher has set
    // buildingCatalog, so the name gets no number.
    USBDevice templateDevice(usbxml::usbDevice, nullptr, false);
    result.AddObject(XmlObject(templateDevice.ID(true)));
    return result.GetXmlString();
}

std::string USBTestComponent::ID() {
    FindUSBControllers(devices);
    XmlObject result;
    result.name = xmldef::idResult;
    for (Device* device : devices) result.AddObject(XmlObject(device->ID(false)));
    return result.GetXmlString();
}
