// A fake machine for one test: a temporary folder with a umockdev testbed
// (a copy of a fixture under tests/fixtures/), stub mount, sync and lsusb
// programs that only log their calls, and a working directory. Each Run
// plays a script in a fresh host process under umockdev-wrapper, so the
// component's process-wide counters start from zero in every session.
#pragma once

#include <string>
#include <vector>

#include "Xml.h"

// One script line and what came back while it ran.
struct Step {
    std::string line;
    bool answered = false;
    std::string answer;
    std::vector<std::string> events;
};

struct Session {
    int status = -1;        // exit status of the host process; 128 + n for signal n
    std::string errors;     // its standard output and error
    std::vector<Step> steps;

    // The n-th step whose line begins with `prefix`; throws if there is none.
    const Step& Nth(const std::string& prefix, size_t n = 0) const;
    // All answers of steps whose line begins with `prefix`, in order.
    std::vector<std::string> Answers(const std::string& prefix) const;
};

class FakeMachine {
public:
    // `fixture` names a folder of tests/fixtures/; empty gives a bare testbed.
    explicit FakeMachine(const std::string& fixture);
    ~FakeMachine();
    FakeMachine(const FakeMachine&) = delete;
    FakeMachine& operator=(const FakeMachine&) = delete;

    // Takes `path` (relative to the testbed root, e.g.
    // "proc/bus/usb/001/001") out of the testbed. False when the real machine
    // has that file: umockdev then shows the real one, and a test of its
    // absence cannot run here.
    bool Remove(const std::string& path);
    // What the stub lsusb prints.
    void SetLsusbOutput(const std::string& text);

    Session Run(const std::vector<std::string>& script);

    // The stub programs' calls, one line each: program and arguments.
    std::vector<std::string> ToolCalls() const;
    bool HasWorkFile(const std::string& name) const;
    std::string WorkFile(const std::string& name) const;
    const std::string& Folder() const { return folder; }

private:
    std::string folder;
    std::string testbed;
    std::string work;
    std::string stubs;
};

// Script helpers.
std::string InitLine(const std::string& attributes = "component=\"libzorbus.so\"");
// The usual opening of a session: mode, translator, Initialize, SetCallback.
std::vector<std::string> Opening(bool factory, const std::string& initAttributes = "component=\"libzorbus.so\"");

std::string ReadText(const std::string& path);
