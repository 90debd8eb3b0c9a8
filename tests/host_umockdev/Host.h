// Host tests: each session is a fresh host process under umockdev-wrapper on a
// fake machine (a testbed from tests/fixtures, stub tools on PATH that log their
// calls) that loads libzorbus.so, plays a script of entry point calls and writes
// every answer and callback event to a transcript.
#pragma once

#include <string>
#include <utility>
#include <vector>

using Strings = std::vector<std::string>;
using Attributes = std::vector<std::pair<std::string, std::string>>;

// An answer read element by element.
struct Element {
    std::string name, text;
    Attributes attributes;  // in their order
    std::vector<Element> children;
    std::string Attr(const std::string& key) const;  // "<absent>" when missing
    static Element Parse(const std::string& xml);    // throws on what it cannot read
};

// One script line and what came back while it ran.
struct Step {
    std::string line, answer;
    Strings events;
};

struct Session {
    int status = -1;     // of the host process; 128 + n for signal n
    std::string errors;  // its standard output and error
    std::vector<Step> steps;
    const Step& Nth(const std::string& prefix, size_t n = 0) const;  // throws when missing
};

class FakeMachine {
public:
    explicit FakeMachine(const std::string& fixture);  // empty: a bare testbed
    ~FakeMachine();
    FakeMachine(const FakeMachine&) = delete;
    // Paths are relative to the machine's folder: "testbed/...", "work/..."
    // (the host's working directory), "data/TOOL" (what stub TOOL prints),
    // "data/TOOL.status" (its exit status when not empty), "calls.log".
    void Write(const std::string& path, const std::string& text) const;
    std::string Read(const std::string& path) const;
    bool Has(const std::string& path) const;
    // False when a testbed file taken out is on the real machine: umockdev
    // then shows the real one, and a test of its absence cannot run here.
    bool Remove(const std::string& path) const;
    Strings Calls() const;  // "tool [arg] [arg]" a line
    // Plays the script (see Host.cpp) in a fresh host; expects it to run to its end.
    Session Run(const Strings& script);
    const std::string folder;

private:
    int ioctlSocket = -1;
};

// Mode, translator, Initialize and SetCallback, then `then`.
Strings Opening(bool factory, const Strings& then = {});
std::string RunTest(const std::string& device, const std::string& test, const std::string& attributes = "");

struct Prop {
    std::string name, caption, value;
};
struct Dev {
    std::string caption, description;
    std::vector<Prop> properties;
    Strings tests;
};
// An idResult (devices usbDevice0...) or catResult (the template usbDevice),
// attributes, properties and tests in order; a rootHubTest in full.
void ExpectDevices(const std::string& answer, const std::string& category, const std::vector<Dev>& expected);

std::string LogEvent(const std::string& caption, const std::string& description);
std::string ErrorAnswer(const std::string& key);
Strings DiscoveryEvents(size_t devices);
Strings ErrorEvents(const std::string& key);
// A rootHubTest result and its events: passed, or failed with "Unable to detect root hub".
void ExpectRootHubResult(const Step& step, const std::string& device, bool passed);
// A test result: state, error key, error detail, then the text of each
// prompt; the percent of each progress update into `progress`.
Strings Outcome(const Step& step, std::vector<int>* progress = nullptr);
std::string ReadText(const std::string& path);
extern const char* const failureMark;
extern const char* const version;
