// Shared pieces of these tests: the host's mode switch, a component that
// records events (prompts among them), a temporary folder, result readers.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "common/xmldef.h"
#include "tc/frame/USBTestComponent.h"
#include "tc/framework/Test.h"

extern int g_factory;
extern std::vector<std::string> g_events;

inline char* RecordEvent(const char* xml) {
    g_events.emplace_back(xml);
    return nullptr;
}

class ComponentTest : public ::testing::Test {
protected:
    void SetUp() override {
        g_factory = 0;
        g_events.clear();
        component.componentName = "libzorbus.so";
        component.eventCallback = RecordEvent;
        pTestComponent = &component;
    }
    void TearDown() override { pTestComponent = nullptr; }
    static std::vector<std::string> Prompts() {
        std::vector<std::string> texts;
        for (const std::string& e : g_events)
            if (XmlObject(e).name == xmldef::diagPrompt) texts.push_back(XmlObject(e).value);
        return texts;
    }
    // The run's state, and the key of its error ("" without one).
    static std::pair<std::string, std::string> Run(::Test& test, const std::string& attributes) {
        XmlObject command("<runTest retries=\"0\" " + attributes + "/>");
        lastResult = test.Run(command);
        const XmlObject result(lastResult);
        std::string key;
        for (const XmlObject& child : result.children)
            if (child.name == xmldef::error) key = child.GetAttributeValue("key");
        return {result.GetAttributeValue(xmldef::currentState), key};
    }

    static inline std::string lastResult;
    USBTestComponent component;
};

class TempDir {
public:
    TempDir() {
        char pattern[] = "/tmp/zorbus-usbtests-XXXXXX";
        if (mkdtemp(pattern)) path = pattern;
        EXPECT_FALSE(path.empty());
    }
    ~TempDir() { Shell("rm -rf '" + path + "'"); }
    std::string Path(const std::string& name) const { return path + "/" + name; }
    void Write(const std::string& name, const std::string& bytes) const {
        Shell("mkdir -p \"$(dirname '" + Path(name) + "')\"");
        std::ofstream(Path(name), std::ios::binary) << bytes;
    }
    static void Shell(const std::string& command) { EXPECT_EQ(std::system(command.c_str()), 0) << command; }

private:
    std::string path;
};
