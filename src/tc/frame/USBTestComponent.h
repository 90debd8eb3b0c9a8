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

    // Also puts back drives that an unfinished file write compare run left.
    void Initialize() override;
    // Sends the log events of that first, once the host has a callback.
    std::string ExecuteXMLCommand(const std::string& xml) override;
    std::string Catalog() override;
    std::string ID() override;
};
