// Shared pieces of the lsusb road's tests: the host's mode switch, the
// fixture texts, device texts cut the way discovery cuts them, a fresh set
// of gates, and a component that records events.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "common/XmlObject.h"
#include "tc/frame/USBTestComponent.h"

extern int g_factoryMode;

// tests/fixtures/lsusb_texts/<name> (or another folder's file, as "dir/name").
std::string LsusbFixture(const std::string& name);
// The device texts discovery cuts from raw `lsusb -v` output.
std::vector<std::string> DeviceTexts(const std::string& raw);
// One device's text in the road's form, from raw lines of lsusb output.
std::string DeviceText(const std::string& raw);
// Gates closed and the caption counter at 0, as at load.
void ResetLsusbState();

// Runs in a fresh temporary working directory (discovery writes its trace
// files there); the folder goes afterwards.
class ScopedWorkDir {
public:
    ScopedWorkDir();
    ~ScopedWorkDir();
    const std::string& Path() const { return path; }

private:
    std::string previous;
    std::string path;
};

// The component is the process's pTestComponent while a test runs.
class LsusbComponentTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
    USBTestComponent component;
    std::vector<std::string> events;
};

using PropertyList = std::vector<std::pair<std::string, std::string>>;
PropertyList Properties(const XmlObject& device);
std::string PropertyCaption(const XmlObject& device, const std::string& name);
std::vector<std::string> TestNames(const XmlObject& device);
