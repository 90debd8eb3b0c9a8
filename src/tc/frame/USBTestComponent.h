// The one concrete component: binds the command frame to USB. It registers
// the component's catalogues, answers the catalogue command with a template
// USB device and runs discovery for the id command.
#pragma once

#include <string>

#include "tc/frame/TestComponent.h"

class USBTestComponent : public TestComponent {
public:
    USBTestComponent() = default;
    explicit USBTestComponent(const std::string& initXml);

    void ReadAndWrite(ptstream& stream, direction dir, unsigned int version) override;
    void CopyFromPointer(const Persistent* other) override;
    const char* GetRealClassName() const override { return "USBTestComponent"; }
    Persistent* CreateCopy() const override { return new USBTestComponent(*this); }

    void Initialize() override;
    std::string Catalog() override;
    std::string ID() override;
};
