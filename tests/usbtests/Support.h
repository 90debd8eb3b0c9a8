// Shared pieces of the USB test classes' tests: the host's mode switch, a
// component that records events (prompts among them), a temporary folder,
// and readers of the results.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/XmlObject.h"
#include "tc/frame/USBTestComponent.h"

extern int g_factory;
extern std::vector<std::string> g_events;

class ComponentTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
    // The texts of the prompts sent so far, in order.
    std::vector<std::string> Prompts() const;

    USBTestComponent component;
};

// A fresh folder below /tmp, removed with everything in it.
class TempDir {
public:
    TempDir();
    ~TempDir();
    std::string Path(const std::string& name = "") const { return name.empty() ? path : path + "/" + name; }
    void Write(const std::string& name, const std::string& bytes) const;

private:
    std::string path;
};

// The error element of a run's result (empty without one).
XmlObject ErrorOf(const std::string& text);
