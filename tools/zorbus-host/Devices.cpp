#include "Devices.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <pugixml.hpp>

#include "Language.h"

namespace host {

std::string Attr(const pugi::xml_node& node, const char* name) { return node.attribute(name).value(); }

std::string Trim(const std::string& text) {
    const size_t begin = text.find_first_not_of(" \t\r\n");
    if (begin == std::string::npos) return "";
    return text.substr(begin, text.find_last_not_of(" \t\r\n") - begin + 1);
}

std::string ErrorText(const pugi::xml_node& error) {
    const std::string text = Trim(error.text().get());
    return text.empty() ? Attr(error, "key") : text;
}

namespace {

const char* const flagNames[] = {"interactive", "requiresMedia",  "requiresEquipment", "quick",
                                 "complete",    "requiresWindow", "localOnly",         "singleThread",
                                 "destructive", "romTest",        "fieldtest",         "runMeNow"};

std::string Listed(const std::vector<std::string>& names) {
    std::string list;
    for (const std::string& name : names) list += (list.empty() ? "" : ", ") + name;
    return list;
}

bool Digits(const std::string& text) {
    return !text.empty() && text.size() <= 10 && text.find_first_not_of("0123456789") == std::string::npos;
}

// A whole number the way the component reads it (decimal), within 32 bits.
bool Number(const std::string& text, long long& value) {
    const bool negative = !text.empty() && text[0] == '-';
    if (!Digits(negative ? text.substr(1) : text)) return false;
    value = std::strtoll(text.c_str(), nullptr, 10);
    return value >= -2147483648LL && value <= 2147483647LL;
}

// The component takes a small expression for an integer parameter: numbers
// (decimal, 0x hexadecimal, K, M or G behind), MAX, MIN, + - * / and
// parentheses. What has any other word in it is no number at all.
bool Expression(const std::string& text) {
    if (text.find_first_not_of(' ') == std::string::npos) return false;
    size_t at = 0;
    while (at < text.size()) {
        if (std::string("+-*/() ").find(text[at]) != std::string::npos) {
            ++at;
            continue;
        }
        const size_t end = std::min(text.find_first_of("+-*/() ", at), text.size());
        std::string word = text.substr(at, end - at);
        at = end;
        if (word == "MAX" || word == "MIN") continue;
        if (word.size() > 2 && word.compare(0, 2, "0x") == 0) {
            if (word.find_first_not_of("0123456789abcdefABCDEF", 2) != std::string::npos) return false;
            continue;
        }
        if (word.size() > 1 && (word.back() == 'K' || word.back() == 'M' || word.back() == 'G')) word.pop_back();
        if (word.find_first_not_of("0123456789") != std::string::npos) return false;
    }
    return true;
}

std::string RangeText(const ParameterInfo& parameter) {
    long long min = 0, max = 0;
    const bool bounded = Number(parameter.max, max) && Number(parameter.min, min) && max > min;
    if (bounded) return Format(tr("a whole number from %s to %s"), {parameter.min, parameter.max});
    return Format(tr("a whole number of at least %s"), {parameter.min.empty() ? "0" : parameter.min});
}

std::string CheckValue(const ParameterInfo& parameter, const std::string& value) {
    if (parameter.type != "int") return "";
    long long number = 0, min = 0, max = 0;
    const bool hasMin = Number(parameter.min, min), hasMax = Number(parameter.max, max) && hasMin && max > min;
    const std::string wanted = Format(tr("%s takes %s, not '%s'"), {parameter.name, RangeText(parameter), value});
    // The retries count is read as digits only; other numbers may be expressions,
    // which the component works out and judges itself.
    if (parameter.name == "retries" && !Digits(value)) return wanted;
    if (!Number(value, number)) return Expression(value) ? "" : wanted;
    const bool zeroRefused = number == 0 && value != "0";
    if (zeroRefused || (hasMin && number < min) || (hasMax && number > max)) return wanted;
    return "";
}

std::string CheckParameters(const Command& command, const TestInfo& test) {
    for (const auto& given : command.parameters) {
        const std::string& name = given.first;
        if (!IsAttributeName(name)) return Format(tr("'%s' is no parameter name"), {name});
        if (name == "device" || name == "test" || name == "component")
            return Format(tr("%s is given by the command itself, not as a parameter"), {name});
        if (name == "loop" || name == "recordNum") {
            long long number = 0;
            if (!Number(given.second, number) || number < 0)
                return Format(tr("%s takes a whole number of at least 0, not '%s'"), {name, given.second});
            continue;
        }
        const ParameterInfo* found = nullptr;
        for (const ParameterInfo& parameter : test.parameters)
            if (parameter.name == name) found = &parameter;
        if (!found) {
            std::vector<std::string> names;
            for (const ParameterInfo& parameter : test.parameters) names.push_back(parameter.name);
            names.push_back("loop");
            names.push_back("recordNum");
            return Format(tr("%s takes no parameter %s (it takes %s)"), {test.name, name, Listed(names)});
        }
        const std::string refused = CheckValue(*found, given.second);
        if (!refused.empty()) return refused;
    }
    return "";
}

}  // namespace

bool TestInfo::Has(const std::string& flag) const { return std::find(flags.begin(), flags.end(), flag) != flags.end(); }

const TestInfo* DeviceInfo::Test(const std::string& wanted) const {
    for (const TestInfo& test : tests)
        if (test.name == wanted) return &test;
    return nullptr;
}

std::vector<DeviceInfo> ReadDevices(const std::string& answer) {
    std::vector<DeviceInfo> devices;
    pugi::xml_document document;
    if (!document.load_string(answer.c_str())) return devices;
    const std::string root = document.document_element().name();
    if (root != "catResult" && root != "idResult") return devices;
    for (const pugi::xml_node& device : document.document_element().children("device")) {
        DeviceInfo info{Attr(device, "name"), Attr(device, "caption"), Trim(Attr(device, "description")), {}, {}, {}};
        for (const pugi::xml_node& child : device.children()) {
            const std::string kind = child.name();
            if (kind == "property") {
                info.properties.push_back(Attr(child, "caption") + ": " + Attr(child, "value"));
            } else if (kind == "interface") {
                const std::string role = Attr(child, "role");
                info.notes.push_back((role.empty() ? tr("linked") : role) + ": " + Attr(child, "name") + " " +
                                     Attr(child, "caption"));
            } else if (kind == "error" || kind == "warning") {
                info.notes.push_back(tr(kind) + ": " + ErrorText(child));
            } else if (kind == "test") {
                TestInfo test{Attr(child, "name"),
                              Attr(child, "caption"),
                              Attr(child, "description"),
                              Attr(child, "unavailable"),
                              {},
                              {},
                              {}};
                for (const char* flag : flagNames)
                    if (Attr(child, flag) == "1") test.flags.push_back(flag);
                for (const pugi::xpath_node& found : child.select_nodes(".//parameter")) {
                    const pugi::xml_node p = found.node();
                    test.parameters.push_back({Attr(p, "name"), Attr(p, "caption"), Attr(p, "description"),
                                               Attr(p, "type"), Attr(p, "min"), Attr(p, "max"),
                                               Attr(p, "defaultValue")});
                }
                struct Collect : pugi::xml_writer {
                    std::string text;
                    void write(const void* data, size_t size) override {
                        text.append(static_cast<const char*>(data), size);
                    }
                } collect;
                child.print(collect, "", pugi::format_raw);
                test.text = collect.text;
                info.tests.push_back(test);
            }
        }
        devices.push_back(info);
    }
    return devices;
}

const std::vector<std::string>& TestClasses() {
    static const std::vector<std::string> classes = {"quick", "complete", "interactive", "fieldtest"};
    return classes;
}

bool IsAttributeName(const std::string& name) {
    if (name.empty()) return false;
    for (size_t i = 0; i < name.size(); ++i) {
        const unsigned char c = static_cast<unsigned char>(name[i]);
        const bool start = std::isalpha(c) || c == '_' || c >= 0x80;
        if (!(start || (i > 0 && (std::isdigit(c) || c == '-' || c == '.')))) return false;
    }
    return name.compare(0, 3, "xml") != 0;
}

std::string CheckCommand(const Command& command, const std::vector<DeviceInfo>& devices, bool devicesKnown) {
    if (command.kind != Command::RunTest && command.kind != Command::Cancel && command.kind != Command::Diagnose)
        return "";
    const DeviceInfo* device = nullptr;
    std::vector<std::string> names;
    for (const DeviceInfo& known : devices) {
        if (known.name == command.device) device = &known;
        names.push_back(known.name);
    }
    if (devicesKnown && !device)
        return Format(tr("no device %s: discovery found %s (zorbus-host id lists them)"),
                      {command.device, names.empty() ? tr("none") : Listed(names)});
    if (command.kind == Command::Diagnose) return "";
    // Without this run's discovery the catalogue's template stands for every device.
    if (!devicesKnown) device = devices.empty() ? nullptr : &devices.front();
    if (!device) return "";
    const TestInfo* test = device->Test(command.test);
    if (!test) {
        // The catalogue does not list every test that a device may offer.
        if (!devicesKnown) return "";
        names.clear();
        for (const TestInfo& offered : device->tests) names.push_back(offered.name);
        if (names.empty()) return Format(tr("%s offers no tests, so none named %s"), {command.device, command.test});
        return Format(tr("%s offers no test %s (it offers %s)"), {command.device, command.test, Listed(names)});
    }
    return command.kind == Command::RunTest ? CheckParameters(command, *test) : "";
}

std::vector<Command> ClassTests(const std::string& testClass, const std::vector<DeviceInfo>& devices) {
    std::vector<Command> tests;
    for (const DeviceInfo& device : devices)
        for (const TestInfo& test : device.tests)
            if (test.Has(testClass)) {
                Command command;
                command.kind = Command::RunTest;
                command.device = device.name;
                command.test = test.name;
                tests.push_back(command);
            }
    return tests;
}

}  // namespace host
