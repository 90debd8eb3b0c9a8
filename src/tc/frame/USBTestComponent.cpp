#include "tc/frame/USBTestComponent.h"

#include <cstring>
#include <vector>

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

// The answer's element with each device's element written once, straight
// into it, as if each had been added as a child.
static std::string Answer(const char* name, const std::vector<std::string>& devices) {
    if (devices.empty()) return std::string("<") + name + "/>";
    size_t size = 2 * std::strlen(name) + 5;
    for (const std::string& device : devices) size += device.size();
    std::string answer;
    answer.reserve(size);
    answer.append("<").append(name).append(">");
    for (const std::string& device : devices) AppendWrittenElement(answer, device);
    return answer.append("</").append(name).append(">");
}

std::string USBTestComponent::Catalog() {
    // A template: no node, no discovery. The dispatcher has set
    // buildingCatalog, so the name gets no number.
    USBDevice templateDevice(usbxml::usbDevice, nullptr, false);
    return Answer(xmldef::catResult, {templateDevice.ID(true)});
}

std::string USBTestComponent::ID() {
    FindUSBControllers(devices);
    std::vector<std::string> elements;
    elements.reserve(devices.size());
    for (Device* device : devices) elements.push_back(device->ID(false));
    return Answer(xmldef::idResult, elements);
}
