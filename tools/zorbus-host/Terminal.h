// The operator's terminal, where prompts are asked and answered: read from
// standard input when that is a terminal; written to standard output when
// that is the terminal, else to the terminal itself (/dev/tty), so that a
// question never waits unseen in a pipe (zorbus-host ... | tee log).
#pragma once

#include <cstdio>
#include <string>

namespace host {

class Terminal {
public:
    // `outputIsTerminal`: standard output is the terminal.
    void Open(bool outputIsTerminal);
    // Standard input is a terminal: the operator can be asked.
    bool CanAsk() const { return canAsk; }
    // Where the prompt's lines go.
    std::FILE* Out() const { return out; }
    // Throws away what was typed before the question was shown.
    void DiscardTypeAhead();

    enum Outcome { Answered, Interrupted, TimedOut, Closed };
    // One line typed by the operator, without its line end. `seconds` > 0
    // bounds the wait. Interrupted: Ctrl-C came (see Wake).
    Outcome ReadLine(std::string& line, double seconds);

    // Ends a ReadLine at once; safe in a signal handler.
    static void Wake();

private:
    bool canAsk = false;
    std::FILE* out = stderr;
};

}  // namespace host
