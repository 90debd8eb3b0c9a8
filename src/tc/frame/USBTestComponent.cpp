#include "tc/frame/USBTestComponent.h"

#include "common/Translate.h"
#include "common/xmldef.h"

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
    return result.GetXmlString();
}

std::string USBTestComponent::ID() {
    XmlObject result;
    result.name = xmldef::idResult;
    for (Device* device : devices) result.AddObject(XmlObject(device->ID(false)));
    return result.GetXmlString();
}
