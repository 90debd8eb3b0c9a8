#include "tc/frame/USBTestComponent.h"

#include <cstring>

#include "common/Translate.h"
#include "common/TvkError.h"
#include "common/xmldef.h"
#include "tc/usb/linux/Discovery.h"
#include "tc/usb/linux/devices/USBDevice.h"
#include "tc/usb/linux/storage/DriveCycle.h"
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
// into it, as if each had been added as a child. Room is made once and
// generously: pages of it that are never written cost no memory, while
// growing the answer would copy it and, for a moment, hold it twice.
class Answer {
public:
    Answer(const char* name, size_t devices) : name(name) {
        text.reserve(2 * std::strlen(name) + 5 + devices * 1024);
        text.append("<").append(name).append(">");
    }
    void Add(const std::string& device) {
        AppendWrittenElement(text, device);
        empty = false;
    }
    std::string Finish() {
        if (empty) return std::string("<") + name + "/>";
        return std::move(text.append("</").append(name).append(">"));
    }

private:
    const char* name;
    std::string text;
    bool empty = true;
};

std::string USBTestComponent::Catalog() {
    // A template: no node, no discovery. The dispatcher has set
    // buildingCatalog, so the name gets no number.
    USBDevice templateDevice(usbxml::usbDevice, nullptr, false);
    Answer answer(xmldef::catResult, 1);
    answer.Add(templateDevice.ID(true));
    return answer.Finish();
}

std::string USBTestComponent::ID() {
    FindUSBControllers(devices);
    Answer answer(xmldef::idResult, devices.size());
    for (Device* device : devices) answer.Add(device->ID(false));
    return answer.Finish();
}
