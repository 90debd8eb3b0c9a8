// Shared pieces of the USB tests: the host's mode switch, fixture files,
// a component with a recording callback, and small XML readers.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "common/XmlObject.h"
#include "tc/frame/USBTestComponent.h"
#include "tc/usb/linux/USBDevice.h"

// What this program's nvxIsFactory answers.
extern int g_factoryMode;
// Events the component sent, as XML text.
extern std::vector<std::string> g_events;

// The text of tests/usb/data/<name>.
std::string Fixture(const std::string& name);

// The component is the process's pTestComponent while a test runs, so that
// device names get their numbers and events go to g_events.
class UsbComponentTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Devices of the set, in set order, as USBDevice.
    std::vector<USBDevice*> UsbDevices();
    // Every device's element, as the id command builds it.
    std::vector<XmlObject> IdentifyAll();

    USBTestComponent component;
};

// (name, value) of each property child, in order.
std::vector<std::pair<std::string, std::string>> Properties(const XmlObject& device);
// The caption of the property named `name`, or "" without one.
std::string PropertyCaption(const XmlObject& device, const std::string& name);
// Names of the test children, in order.
std::vector<std::string> TestNames(const XmlObject& device);

// Runs the test in a fresh temporary folder as working directory, for code
// that writes files there; the folder goes afterwards.
class ScopedWorkDir {
public:
    ScopedWorkDir();
    ~ScopedWorkDir();
    const std::string& Path() const { return path; }

private:
    std::string previous;
    std::string path;
};
