// A component, device, test and diagnosis of the tests' own, and a host
// callback that records every event, for the framework's tests.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "common/XmlObject.h"
#include "tc/frame/TestComponent.h"
#include "tc/framework/Device.h"
#include "tc/framework/Diagnosis.h"
#include "tc/framework/NumericParameter.h"
#include "tc/framework/Test.h"

namespace fw {

// What the host saw and how it answers. The callback may run on a prompt's
// thread, so everything goes under the lock.
struct Host {
    std::mutex mutex;
    std::vector<std::string> events;
    int promptReply = 0;  // diagPrompt replies carry value="N"
    bool replyToPrompts = true;
    // Runs inside the callback, after the event was recorded.
    std::function<void(const XmlObject&)> onEvent;

    void Reset();
    std::vector<XmlObject> Events();
    std::vector<XmlObject> Events(const std::string& elementName);
};
extern Host host;

char* RecordEvent(const char* xml);

class RecordingComponent : public TestComponent {
public:
    std::string Catalog() override { return std::string(); }
    std::string ID() override { return std::string(); }
    void CopyFromPointer(const Persistent*) override {}
    const char* GetRealClassName() const override { return "RecordingComponent"; }
    Persistent* CreateCopy() const override { return new RecordingComponent(*this); }
};

class FakeDevice : public Device {
public:
    int initializeCalls = 0;
    int uninitializeCalls = 0;
    FakeDevice() = default;
    explicit FakeDevice(const std::string& name) : Device(name, false) {}
    void Initialize() override { ++initializeCalls; }
    void Uninitialize() override { ++uninitializeCalls; }
    void DoID(XmlObject&, bool) override {}
    void CopyFromPointer(const Persistent* other) override { PersistentCopyFrom(this, other); }
    const char* GetRealClassName() const override { return "FakeDevice"; }
    Persistent* CreateCopy() const override { return new FakeDevice(*this); }
};

// A test whose tries follow a script: `body` gets the try number (from 1).
class ScriptedTest : public Test {
public:
    std::function<bool(ScriptedTest&, const XmlObject&, int)> body;
    std::function<void(ScriptedTest&)> onSetParameters;
    bool locks = false;
    int tries = 0;
    int cleanups = 0;
    std::vector<std::string> currentTryAttributes;

    ScriptedTest() = default;
    ScriptedTest(const std::string& name, Device* device) : Test(name, device) {}
    bool LocksDevice() override { return locks; }
    void SetParameters() override {
        if (onSetParameters) onSetParameters(*this);
    }
    void DoCleanup(const XmlObject&) override { ++cleanups; }
    bool DoRun(const XmlObject& command) override {
        ++tries;
        currentTryAttributes.push_back(command.GetAttributeValue("currentTry", ""));
        return body ? body(*this, command, tries) : true;
    }
    void CopyFromPointer(const Persistent* other) override { PersistentCopyFrom(this, other); }
    const char* GetRealClassName() const override { return "ScriptedTest"; }
    Persistent* CreateCopy() const override { return new ScriptedTest(*this); }
};

class ScriptedDiagnosis : public Diagnosis {
public:
    std::function<void(ScriptedDiagnosis&, XmlObject&)> body;
    ScriptedDiagnosis() = default;
    ScriptedDiagnosis(const std::string& name, Device* device) : Diagnosis(name, device) {}
    void DoRun(XmlObject&, XmlObject& result) override {
        if (body) body(*this, result);
    }
    void CopyFromPointer(const Persistent* other) override { PersistentCopyFrom(this, other); }
    const char* GetRealClassName() const override { return "ScriptedDiagnosis"; }
    Persistent* CreateCopy() const override { return new ScriptedDiagnosis(*this); }
};

// A component with the recording callback and one device "dev0" with the
// caption "Dev Caption", description "Dev Desc" and class "FakeClass".
class FrameworkTest : public ::testing::Test {
protected:
    FakeDevice* device = nullptr;
    void SetUp() override;
    void TearDown() override;
    // A scripted test added to the device.
    ScriptedTest* AddTest(const std::string& name, const std::string& caption = "Test Caption");
    // Runs through Device::RunTest with the given attributes.
    XmlObject RunTest(const std::string& testName, const std::string& attributes = "");
};

// The attribute names of an element, in order, joined with blanks.
std::string AttributeNames(const XmlObject& element);

}  // namespace fw
