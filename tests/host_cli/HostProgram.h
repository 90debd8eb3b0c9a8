// Runs the built zorbus-host as an operator's shell would: as a child
// process with arguments, environment and working folder, and collects its
// exit status and what it printed.
#pragma once

#include <string>
#include <vector>

struct HostRun {
    int status = -1;  // exit status, or 128 + signal
    bool timedOut = false;
    std::string out;
    std::string err;
};

struct HostCall {
    std::vector<std::string> args;            // after the program's name
    std::vector<std::string> env;             // NAME=VALUE added to this process's environment
    std::string folder;                       // working folder; empty: a fresh temporary one
    std::string machine;                      // from CopyMachine: run under umockdev-wrapper on it
    std::vector<std::string> prefix;          // a program that starts zorbus-host (e.g. setpriv ...)
    int seconds = 60;                         // killed after this
};

// The built program and the library beside it.
std::string HostProgramPath();

// Runs it. Exit status 127 with "cannot exec" on stderr when it cannot start.
HostRun RunHost(const HostCall& call);

// A fresh folder under the temporary folder, removed at the end of the test
// program.
std::string TemporaryFolder();

// A copy of tests/fixtures/NAME in a temporary folder, with stub mount, sync
// and lsusb programs that do nothing in its "stubs" folder; its path.
std::string CopyMachine(const std::string& fixture);

// Whether a program can be found on the search path.
bool OnPath(const std::string& program);

// Why zorbus-host cannot run here, or empty when it can.
std::string HostUnavailable();

// The number of times `needle` occurs in `text`.
size_t Count(const std::string& text, const std::string& needle);

std::string ReadFile(const std::string& path);
