// A component, device, test and diagnosis of the tests' own, and a host
// callback that records every event (it may run on a prompt's thread).
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "common/StringUtil.h"
#include "tc/frame/EntryPoints.h"
#include "tc/frame/TestComponent.h"
#include "tc/framework/Diagnosis.h"
#include "tc/framework/NumericParameter.h"
#include "tc/framework/Test.h"

namespace fw {

struct Host {
    std::mutex mutex;
    std::vector<std::string> events;
    int promptReply = 0;                            // diagPrompt replies carry value="N"; none when negative
    std::function<void(const XmlObject&)> onEvent;  // runs inside the callback
    void Reset() {
        std::lock_guard<std::mutex> lock(mutex);
        events.clear();
        promptReply = 0;
        onEvent = nullptr;
    }
    std::vector<XmlObject> Events(const std::string& only = "") {
        std::lock_guard<std::mutex> lock(mutex);
        std::vector<XmlObject> parsed;
        for (const std::string& e : events)
            if (XmlObject x(e); only.empty() || x.name == only) parsed.push_back(x);
        return parsed;
    }
};
inline Host host;

inline char* RecordEvent(const char* xml) {
    XmlObject event{std::string(xml)};
    std::function<void(const XmlObject&)> hook;
    std::string reply;
    {
        std::lock_guard<std::mutex> lock(host.mutex);
        host.events.emplace_back(xml);
        hook = host.onEvent;
        if (event.name == "diagPrompt" && host.promptReply >= 0)
            reply = strprintf("<a value=\"%d\"/>", host.promptReply);
    }
    if (hook) hook(event);
    return reply.empty() ? nullptr : stringdup(reply.c_str());
}

#define FW_PERSISTENT(T)                                                                        \
    void CopyFromPointer(const Persistent* other) override { PersistentCopyFrom(this, other); } \
    const char* GetRealClassName() const override { return #T; }                                \
    Persistent* CreateCopy() const override { return new T(*this); }

struct RecordingComponent : TestComponent {
    std::string Catalog() override { return ""; }
    std::string ID() override { return ""; }
    FW_PERSISTENT(RecordingComponent)
};

struct FakeDevice : Device {
    int lifeCycleCalls = 0;  // Initialize and Uninitialize
    explicit FakeDevice(const std::string& name = "") : Device(name, false) {}
    void Initialize() override { ++lifeCycleCalls; }
    void Uninitialize() override { ++lifeCycleCalls; }
    void DoID(XmlObject&, bool) override {}
    FW_PERSISTENT(FakeDevice)
};

// A test whose tries follow a script: `body` gets the try number (from 1).
struct ScriptedTest : Test {
    std::function<bool(ScriptedTest&, int)> body;
    std::function<void(ScriptedTest&)> onSetParameters;
    bool locks = false;
    int tries = 0, cleanups = 0;
    std::string lastTryAttribute;
    StringParameter mode;  // in the list only where a test adds it
    explicit ScriptedTest(const std::string& name = "", Device* device = nullptr) : Test(name, device) {}
    bool LocksDevice() override { return locks; }
    void SetParameters() override {
        if (onSetParameters) onSetParameters(*this);
    }
    void DoCleanup(const XmlObject&) override { ++cleanups; }
    bool DoRun(const XmlObject& command) override {
        lastTryAttribute = command.GetAttributeValue("currentTry");
        return body ? body(*this, ++tries) : (++tries, true);
    }
    FW_PERSISTENT(ScriptedTest)
};

struct ScriptedDiagnosis : Diagnosis {
    std::function<void(ScriptedDiagnosis&, XmlObject&)> body;
    explicit ScriptedDiagnosis(const std::string& name = "", Device* device = nullptr) : Diagnosis(name, device) {}
    void DoRun(XmlObject&, XmlObject& result) override {
        if (body) body(*this, result);
    }
    FW_PERSISTENT(ScriptedDiagnosis)
};

// A component with the recording callback and one device "dev0": caption
// "Dev Caption", description "Dev Desc", class "FakeClass".
class FrameworkTest : public ::testing::Test {
protected:
    FakeDevice* device = nullptr;
    void SetUp() override {
        host.Reset();
        pTestComponent = new RecordingComponent;
        pTestComponent->componentName = "libzorbus.so";
        pTestComponent->eventCallback = RecordEvent;
        pTestComponent->devices.insert(device = new FakeDevice("dev0"));
        device->caption = "Dev Caption";
        device->description = "Dev Desc";
        device->className = "FakeClass";
    }
    void TearDown() override { delete std::exchange(pTestComponent, nullptr); }
    ScriptedTest* AddTest(const std::string& name, const std::string& caption = "Test Caption") {
        auto* test = new ScriptedTest(name, device);
        test->caption = caption;
        device->AddTest(test);
        return test;
    }
    XmlObject RunTest(const std::string& testName, const std::string& attributes = "") {
        XmlObject command("<runTest device=\"dev0\" test=\"" + testName + "\" " + attributes + "/>");
        return XmlObject(device->RunTest(command));
    }
};

// The real component through the entry points, with the recording callback
// and a device "canceldev0" of the tests' own holding the test "slow" and a
// diagnosis.
class Dispatch : public ::testing::Test {
protected:
    ScriptedTest* test = nullptr;
    void SetUp() override {
        host.Reset();
        Initialize("<init component=\"libzorbus.so\"/>");
        ASSERT_NE(pTestComponent, nullptr);
        SetCallback(RecordEvent);
        FreeLastSetCallbackResult();
        auto* device = new FakeDevice("canceldev0");
        pTestComponent->devices.insert(device);
        device->AddTest(test = new ScriptedTest("slow", device));
        device->AddDiagnosis(new ScriptedDiagnosis("d", device));
    }
    void TearDown() override {
        Uninitialize(nullptr);
        host.Reset();
    }
    static std::string Execute(const std::string& xml) {
        std::string answer = ExecuteXMLCommand(xml.c_str());
        FreeLastExecuteXMLCommandResult();
        return answer;
    }
};

// Attribute names of an element, in order.
inline std::string AttributeNames(const XmlObject& element) {
    std::string names;
    for (const auto& a : element.GetAttributes()) names += (names.empty() ? "" : " ") + a.first;
    return names;
}
// Whether each named attribute has its value; a failure names every one that differs.
inline ::testing::AssertionResult HasAttributes(const XmlObject& element,
                                                std::initializer_list<std::pair<const char*, std::string>> expected) {
    std::string wrong;
    for (const auto& [name, value] : expected)
        if (element.GetAttributeValue(name) != value)
            wrong += std::string("\n  ") + name + "=\"" + element.GetAttributeValue(name) + "\", not \"" + value + "\"";
    if (wrong.empty()) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "<" << element.name << ">" << wrong;
}
// The key of the error child of a result, or "none".
inline std::string ErrorKey(const XmlObject& result) {
    const XmlObject* error = result.FindFirstMatch("error");
    return error ? error->GetAttributeValue("key") : "none";
}

}  // namespace fw
