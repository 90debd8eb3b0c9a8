// The frame's side of the framework's outlet: the one component answers.
#include "tc/framework/ComponentOutlet.h"

#include "tc/frame/TestComponent.h"

namespace outlet {

std::string SendEvent(const std::string& xml) {
    return pTestComponent ? pTestComponent->SendEventNotification(xml) : std::string();
}

void WriteLog(const std::string& caption, const std::string& description) {
    if (pTestComponent) pTestComponent->WriteEventLog(caption, description);
}

std::string ComponentName() { return pTestComponent ? pTestComponent->componentName : std::string(); }

std::string WriteDirectory() { return TestComponent::GetDiagsWriteDirectory(); }

bool TakeDeviceNumber(const std::string& base, unsigned int& number) {
    TestComponent* component = pTestComponent;
    if (!component || component->buildingCatalog) return false;
    // Numbers below the component's hint for this base are known to be
    // taken, so a long run of devices of one kind is named in linear time.
    number = component->NameHint(base);
    while (component->FindDevice(base + std::to_string(number))) ++number;
    // This number is taken from now on: the next device starts above it.
    component->SetNameHint(base, number + 1);
    return true;
}

}  // namespace outlet
