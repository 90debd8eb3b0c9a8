// What the catalogue and discovery publish, read from their answers: the
// devices, their tests, each test's class flags and parameters. The program
// lays them out as tables, and checks each command against them before it
// is sent, so that a misspelt name is a usage error and not a failed test.
#pragma once

#include <string>
#include <vector>

#include "Options.h"

namespace pugi {
class xml_node;
}

namespace host {

// An attribute's text, "" when it is missing.
std::string Attr(const pugi::xml_node& node, const char* name);
std::string Trim(const std::string& text);
// An error element's text, else its key.
std::string ErrorText(const pugi::xml_node& error);

struct ParameterInfo {
    std::string name, caption, description, type, min, max, defaultValue;
};

struct TestInfo {
    std::string name, caption, description, unavailable;
    std::vector<std::string> flags;  // the flags set, in the catalogue's order
    std::vector<ParameterInfo> parameters;
    std::string text;  // the whole element: tests alike on several devices are one list
    bool Has(const std::string& flag) const;
};

struct DeviceInfo {
    std::string name, caption, description;
    std::vector<std::string> properties;  // "caption: value"
    std::vector<std::string> notes;       // linked devices, errors, warnings
    std::vector<TestInfo> tests;
    const TestInfo* Test(const std::string& name) const;
};

// The devices of a catResult or idResult answer; none for anything else.
std::vector<DeviceInfo> ReadDevices(const std::string& answer);

// The classes of tests that `run` takes, as the catalogue flags them.
const std::vector<std::string>& TestClasses();

// Why `command` cannot go to the component, or empty when it can. With
// `devicesKnown` false the devices are those of a restored state, which
// the program does not know: `devices` is then the catalogue's template,
// and only the parameters of the tests it lists are checked.
std::string CheckCommand(const Command& command, const std::vector<DeviceInfo>& devices, bool devicesKnown);

// `run CLASS`: a test command for each test of that class on each device.
std::vector<Command> ClassTests(const std::string& testClass, const std::vector<DeviceInfo>& devices);

// Whether `name` may stand as an attribute name in a command.
bool IsAttributeName(const std::string& name);

}  // namespace host
