// Machine-readable results of a run, for CI servers, test management systems
// and factory lines: a JUnit XML report of its tests and diagnoses and a JSON
// report with one record per command. Both files are written again after
// each command and event (to a side file, then renamed), so that a run that
// ends early, however it ends, leaves them readable and complete up to then.
#pragma once

#include <chrono>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "Options.h"

namespace host {

using Fields = std::vector<std::pair<std::string, std::string>>;

struct ReportEvent {
    double seconds;  // since the run began
    std::string xml;
};

// A prompt of the component and how it was answered.
struct PromptRecord {
    std::string text;
    std::vector<std::string> options;
    std::string answer;  // the caption of the button chosen, or the text typed
    std::string by;      // "--answer", "operator"; without an answer: "canceled", "timeout", "none"
    double seconds = 0;  // from the question to the answer
};

// One command of the run, as the reports carry it.
struct Record {
    std::string command;  // as on the command line
    std::string xml;      // as sent to the component
    std::string answer;   // empty until it ends
    std::vector<ReportEvent> events;
    std::vector<PromptRecord> prompts;
    std::string startedAt;           // UTC, ISO 8601
    double started = 0, ended = -1;  // seconds since the run began; -1: not ended
    std::string stopped;             // why the run ended during this command
    bool Ended() const { return ended >= 0; }
};

class Report {
public:
    // Paths may be empty (that report is not wanted). False, with the reason
    // in `error`, when a wanted report cannot be written.
    bool Open(const std::string& junitPath, const std::string& jsonPath, std::string& error);
    bool Wanted() const { return !junitPath.empty() || !jsonPath.empty(); }

    // Facts about the whole run (program, component, serial, station,
    // operator): JSON "properties", JUnit <properties> of every suite.
    void SetProperty(const std::string& name, const std::string& value);

    void Begin(const Command& command, const std::string& xml);
    void Event(const std::string& xml);
    void Prompt(const PromptRecord& prompt);
    void End(const std::string& answer);
    // The run ends now, for `why`; the running command, if any, is marked.
    void Stop(const std::string& why);
    void Finish(int status);

    // The texts as written; for the tests.
    std::string Junit() const;
    std::string Json() const;

    // A command in its command-line form.
    static std::string CommandLine(const Command& command);

private:
    double Now() const;
    void Write();

    std::string junitPath, jsonPath;
    std::chrono::steady_clock::time_point begun = std::chrono::steady_clock::now();
    std::string startedAt;
    Fields properties;
    std::vector<Record> records;
    std::string stopped;
    int status = -1;  // -1 while the run goes on
    double ended = -1;
    bool warned = false;                // about a report that cannot be written
    mutable std::recursive_mutex lock;  // events may come from a prompt's own thread
};

// `text` as a JSON string: bytes that are no UTF-8 become U+FFFD.
std::string JsonString(const std::string& text);

}  // namespace host
