// What zorbus-host prints: the component's answers and events in a form
// people read (tables that fit the screen, log lines, a progress bar with
// the elapsed time, results marked PASS, FAIL or STOP), or, with --xml,
// everything that goes to and comes from the component as JSON lines.
#pragma once

#include <chrono>
#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

#include "Options.h"

namespace host {

struct Screen {
    std::FILE* out = stdout;
    bool inPlace = false;  // a terminal: the bar is drawn in place
    bool colour = false;
    bool escapes = true;   // the terminal takes escape sequences (TERM is not dumb)
    bool raw = false;      // --xml
    bool verbose = false;  // shared test lists in full under each device
    size_t width = 80;

    // Colour only on a terminal, and never with NO_COLOR set or TERM=dumb.
    static Screen ForStandardOutput(bool raw, bool verbose);
};

// How one command ended.
struct Result {
    enum Outcome { Ok, NotPassed, Error } outcome = Ok;
    bool isCase = false;  // a test or a diagnosis
    std::string device, test, state, time, error;
};

class Display {
public:
    explicit Display(const Screen& screen) : screen(screen) {}

    void Sent(const std::string& xml);
    void Event(const std::string& xml);
    void Reply(const std::string& xml);
    Result Answer(const Command& command, const std::string& xml);
    // With --xml: the first and the last line of the stream.
    void Start(const std::vector<std::pair<std::string, std::string>>& fields);
    void End(int status);

    // A line of the host's own; clears the progress bar first.
    void Line(const std::string& text);
    // Ends a bar drawn in place, so that what follows starts on a new line.
    void EndBar();
    // A test starts: its bar counts the time from now.
    void TestStarts();
    // Draws the bar again with the time elapsed (called once a second).
    void Tick();

    // The run's tests and diagnoses in a table, and the counts.
    void Summary(const std::vector<Result>& results);

    // The mark of a result state, coloured where colour is on.
    std::string Mark(const std::string& state) const;
    bool Raw() const { return screen.raw; }
    const Screen& Settings() const { return screen; }

private:
    void Print(const std::string& text);
    void Json(const char* kind, const std::string& xml);
    void Progress(const std::string& what, unsigned percent, const std::string& state, const std::string& caption);
    void Draw();
    std::string Colour(const std::string& state, const std::string& text) const;
    std::string DeviceTable(const std::string& xml, const std::string& heading);

    Screen screen;
    bool barShown = false;
    struct Bar {
        std::string fill, percent, tail, state;
        bool marked = false;   // ended otherwise than passed: a mark instead of the percentage
        bool running = false;  // shows the time
    } bar;
    size_t drawnWidth = 0;     // columns of the bar on the screen
    std::string lastProgress;  // the last progress line off a terminal
    unsigned lastPercent = 0;  // before an end state
    std::chrono::steady_clock::time_point started = std::chrono::steady_clock::now();
    std::recursive_mutex lock;  // events may come from a prompt's own thread, the ticks from theirs
};

}  // namespace host
