// What zorbus-host prints: the component's answers and events in a form
// people read (tables, log lines, a progress bar, results), or as raw XML.
#pragma once

#include <cstdio>
#include <mutex>
#include <string>

#include "Options.h"

namespace host {

// How a command ended, worst last.
enum class Outcome { Ok = 0, NotPassed = 1, ComponentError = 3 };

class Display {
public:
    // `terminal`: draw the progress bar in place; otherwise plain lines.
    Display(std::FILE* out, bool terminal, bool rawXml);

    void Event(const std::string& xml);
    Outcome Answer(const Command& command, const std::string& xml);
    // A line of the host's own; clears the progress bar first.
    void Line(const std::string& text);
    // Ends a bar drawn in place, so that what follows starts on a new line.
    void EndBar();
    bool Raw() const { return rawXml; }

    // Column width of UTF-8 text, in characters.
    static size_t Width(const std::string& text);

private:
    void Progress(const std::string& what, unsigned percent, const std::string& state, const std::string& caption);
    void Print(const std::string& text);
    std::string DeviceTable(const std::string& xml, const char* heading);

    std::FILE* out;
    bool terminal;
    bool rawXml;
    bool barShown = false;
    std::string lastBar;
    std::string lastProgress;
    std::recursive_mutex lock;  // events may come from a prompt's own thread
};

}  // namespace host
