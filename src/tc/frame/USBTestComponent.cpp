#include "tc/frame/USBTestComponent.h"

#include "common/Translate.h"
#include "common/xmldef.h"
#include "tc/usb/linux/Discovery.h"
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
