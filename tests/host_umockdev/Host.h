// Host tests: each session is a fresh host process under umockdev-wrapper on a
// fake machine (a testbed from tests/fixtures, stub tools on PATH that log their
// calls) that loads libzorbus.so, plays a script of entry point calls and writes
// every answer and callback event to a transcript.
#pragma once

#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <utility>
#include <vector>

using Strings = std::vector<std::string>;
using Attributes = std::vector<std::pair<std::string, std::string>>;

const char* const failureMark = "work/libzorbus.so.failure.version";
const char* const version = "<diagVersion>8.6.0.3755A</diagVersion>";
const int hostProcessor = 3;  // what this host's nvxGetCurrentCPU answers

// An answer read element by element.
struct Element {
    std::string name, text;
    Attributes attributes;  // in their order
    std::vector<Element> children;
    std::string Attr(const std::string& key) const {
        for (const auto& a : attributes)
            if (a.first == key) return a.second;
        return "<absent>";
    }
    static Element Parse(const std::string& xml);  // throws on what it cannot read
};

// One script line and what came back while it ran.
struct Step {
    std::string line, answer;
    Strings events;
};

struct Session {
    std::string errors;  // its standard output and error
    std::vector<Step> steps;
    const Step& Nth(const std::string& prefix, size_t n = 0) const {
        for (const Step& step : steps)
            if (step.line.compare(0, prefix.size(), prefix) == 0 && n-- == 0) return step;
        throw std::runtime_error("no step \"" + prefix + "\" in the transcript; host said: " + errors);
    }
};

std::string ReadText(const std::string& path);

// Why umockdev does not divert this program's file calls here, or empty.
const std::string& DiversionUnavailable();

// The base of every test here: each runs its host on a testbed, and where
// umockdev does not divert, it is skipped with the reason. Parameterised
// fixtures derive from OnTestbed<::testing::TestWithParam<T>>; plain TEST
// takes OnTestbed<> as its base through the definition below, so that no
// test is left out.
template <class Base = ::testing::Test>
class OnTestbed : public Base {
protected:
    void SetUp() override {
        if (!DiversionUnavailable().empty()) GTEST_SKIP() << DiversionUnavailable();
    }
};

#undef TEST
#define TEST(suite, name) GTEST_TEST_(suite, name, OnTestbed<>, ::testing::internal::GetTypeId<OnTestbed<>>())

class FakeMachine {
public:
    explicit FakeMachine(const std::string& fixture);  // empty: a bare testbed
    ~FakeMachine();
    FakeMachine(const FakeMachine&) = delete;
    // Paths are relative to the machine's folder: "testbed/...", "work/..." (the host's
    // working directory), "data/TOOL" (what stub TOOL prints), "data/TOOL.status" (its
    // exit status when not empty), "calls.log".
    void Write(const std::string& path, const std::string& text) const;
    std::string Read(const std::string& path) const { return ReadText(folder + "/" + path); }
    bool Has(const std::string& path) const;
    // False when a testbed file taken out is on the real machine: umockdev then shows
    // the real one, and a test of its absence cannot run here.
    bool Remove(const std::string& path) const;
    Strings Calls() const;  // "tool [arg] [arg]" a line
    // Puts a program in front of each stub ("stubs/TOOL", "work/TOOL") that logs the
    // descriptors it was started with, as a line "TOOL N N ..." of "descriptors.log".
    void WatchDescriptors(const Strings& stubs) const;
    // Plays the script (see Host.cpp) in a fresh host; expects it to run to its end.
    Session Run(const Strings& script);
    const std::string folder;
    std::string decoy;  // a library the host loads globally before the component
    Strings wrapper;    // a program the host runs under, with its arguments

private:
    int ioctlSocket = -1;
};

// Mode, translator, Initialize and SetCallback, then `then`.
inline Strings Opening(bool factory, const Strings& then = {}) {
    Strings script{std::string("factory ") + (factory ? "1" : "0"), "translator C",
                   "init <init component=\"libzorbus.so\"/>", "callback"};
    script.insert(script.end(), then.begin(), then.end());
    return script;
}

inline std::string RunTest(const std::string& device, const std::string& test, const std::string& attributes = "") {
    return "run <runTest device=\"" + device + "\" test=\"" + test + "\" component=\"libzorbus.so\"" +
           (attributes.empty() ? "" : " " + attributes) + "/>";
}

inline std::string LogEvent(const std::string& caption, const std::string& description) {
    return "<diagEvent component=\"libzorbus.so\" caption=\"" + caption + "\" description=\"" + description + "\"/>";
}

// An error element: its text is the key, and the detail behind it when there is one.
inline std::string Error(const std::string& key, const std::string& detail = "", const std::string& extra = "") {
    return "<error errorCode=\"TvkError\" key=\"" + key + "\" detail=\"" + detail + "\"" + extra + ">" + key +
           (detail.empty() ? "" : ": " + detail) + "</error>";
}

inline Strings ErrorEvents(const std::string& key) {
    return {LogEvent("Device Discovery Started", ""), LogEvent("Error", "TvkError - " + key + ";" + key)};
}

struct Prop {
    std::string name, caption, value;
};
struct Dev {
    std::string caption, description;
    std::vector<Prop> properties;
    Strings tests;
};

// An element's name and attributes in one line; with `deep`, its children and text in braces.
inline std::string Flat(const Element& e, bool deep = false) {
    std::string line = e.name;
    for (const auto& a : e.attributes) line += " " + a.first + "=\"" + a.second + "\"";
    if (deep) {
        line += " {" + e.text;
        for (const Element& child : e.children) line += Flat(child, true);
        line += "}";
    }
    return line;
}

// An answer a line per element down to the devices' children: a test by its
// name alone, unless it is the test `inFull`; for a diff line by line.
inline std::string Listing(const std::string& answer, const std::string& inFull = "") {
    const Element root = Element::Parse(answer);
    std::string lines = Flat(root) + "\n";
    for (const Element& device : root.children) {
        lines += Flat(device) + "\n";
        for (const Element& c : device.children) {
            const bool full = c.name != "test" || c.Attr("name") == inFull;
            lines += (full ? Flat(c, c.name == "test") : "test " + c.Attr("name")) + "\n";
        }
    }
    return lines;
}

// An idResult (devices usbDevice0...) or catResult (the template usbDevice), a
// line for each device, property and test name; a rootHubTest in full.
inline void ExpectDevices(const std::string& answer, const std::string& category, const std::vector<Dev>& expected) {
    static const std::string rootHubTest = Flat(
        Element::Parse(
            "<test name=\"rootHubTest\" caption=\"Root Hub Detect Test\" description=\"Discovers the presence of a "
            "working "
            "root hub\" interactive=\"0\" requiresMedia=\"0\" requiresEquipment=\"0\" quick=\"1\" complete=\"1\" "
            "requiresWindow=\"0\" localOnly=\"0\" singleThread=\"0\" destructive=\"0\" romTest=\"0\" fieldtest=\"1\">"
            "<parameter name=\"retries\" caption=\"Retries\" description=\"Number of retries if test fails\" "
            "type=\"int\" "
            "min=\"0\" max=\"5\" defaultValue=\"1\"/></test>"),
        true);
    const std::string root = Element::Parse(answer).name;
    std::string want = root + "\n";  // a diff when they differ
    for (size_t i = 0; i < expected.size(); ++i) {
        const Dev& d = expected[i];
        want += Flat({"device",
                      "",
                      {{"name", "usbDevice" + (root == "catResult" ? "" : std::to_string(i))},
                       {"class", "usbDevice"},
                       {"caption", d.caption},
                       {"description", d.description},
                       {"category", category},
                       {"diagnosable", "0"}},
                      {}}) +
                "\n";
        for (const Prop& p : d.properties)
            want += Flat({"property", "", {{"name", p.name}, {"caption", p.caption}, {"value", p.value}}, {}}) + "\n";
        for (const std::string& t : d.tests) want += (t == "rootHubTest" ? rootHubTest : "test " + t) + "\n";
    }
    EXPECT_EQ(Listing(answer, "rootHubTest"), want);
}

// `got` against the text of the file at `path` under tests/. With the variable
// ZORBUS_WRITE_REFERENCES set, the file is written from `got` first.
void ExpectRecorded(const std::string& got, const std::string& path);

// The answer of the `n`th identification (from 0) in a reference file under
// tests/, as the reference tests record them.
std::string RecordedAnswer(const std::string& path, size_t n);

// A rootHubTest result and its events: passed, or failed with "Unable to detect root hub".
inline void ExpectRootHubResult(const Step& step, const std::string& device, bool passed) {
    const std::string state = passed ? "passed" : "failed";
    auto update = [&](int percent, const std::string& now) {
        return "<diagUpdate device=\"" + device + "\" test=\"rootHubTest\" percentComplete=\"" +
               std::to_string(percent) + "\" currentState=\"" + now +
               "\" loop=\"0\" recordNum=\"0\" "
               "OperationCaption=\"\"/>";
    };
    EXPECT_EQ(step.events, (Strings{LogEvent("Test Started", "Device - Root Hub Detect Test"), update(0, "running"),
                                    update(100, state), LogEvent("Test " + state, "Device - Root Hub Detect Test;")}));
    static const std::regex time("testTime=\"[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}\"");
    // The device's own description, the error, and the processor the host named.
    EXPECT_EQ(std::regex_replace(step.answer, time, "testTime=\"T\""),
              "<testResult device=\"" + device + "\" test=\"rootHubTest\" percentComplete=\"100\" currentState=\"" +
                  state + "\" loop=\"0\" recordNum=\"0\" OperationCaption=\"\" testTime=\"T\"><output/>" +
                  (passed ? ""
                          : "<error errorCode=\"TvkError\" key=\"Unable to detect root hub\" detail=\"\" "
                            "reference=\"usbDevice, rootHubTest\">Device, Unable to detect root hub, Ran on CPU " +
                                std::to_string(hostProcessor) + "</error>") +
                  "</testResult>");
}

// A test result: state, error key, error detail, then the text of each prompt;
// the percent of each progress update into `progress`.
inline Strings Outcome(const Step& step, std::vector<int>* progress = nullptr) {
    const Element result = Element::Parse(step.answer);
    Strings outcome{result.Attr("currentState"), "", ""};
    for (const Element& child : result.children)
        if (child.name == "error") {
            outcome[1] = child.Attr("key");
            outcome[2] = child.Attr("detail");
        }
    for (const std::string& event : step.events) {
        const Element e = Element::Parse(event);
        if (e.name == "diagPrompt") outcome.push_back(e.text);
        if (e.name == "diagUpdate" && progress) progress->push_back(std::stoi(e.Attr("percentComplete")));
    }
    return outcome;
}
