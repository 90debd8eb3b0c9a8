// The command line of zorbus-host: options and the commands to run.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace host {

// What one command on the command line asks for.
struct Command {
    enum Kind { Catalog, Discover, RunTest, Cancel, Diagnose, Version, RawXml, RunClass };
    Kind kind = RawXml;
    std::string device;
    std::string test;                                             // RunClass: the class
    std::vector<std::pair<std::string, std::string>> parameters;  // name=value, in order
    std::string xml;                                              // RawXml only
    bool ActsOnDevices() const { return kind == RunTest || kind == Cancel || kind == Diagnose || kind == RunClass; }
};

// Exit statuses. With several outcomes in one run the highest counts.
enum ExitStatus {
    Passed = 0,          // every test and diagnosis passed, every command succeeded
    Failed = 1,          // a test or diagnosis did not pass
    UsageError = 2,      // the command line, or a name or value in it
    ComponentError = 3,  // the library cannot be loaded, or a command was answered with an error
    NoAnswer = 4,        // a prompt could not be answered
    NoKernelPaths = 5,   // --kernel-paths cannot be set up
    Canceled = 6,        // the operator canceled a test (Ctrl-C)
    PromptTimeout = 7,   // a prompt went unanswered for --prompt-timeout
    StateNotSaved = 8,   // the state could not be saved in the --state file
};

struct Options {
    std::string library;  // empty: libzorbus.so beside the program
    std::string component = "libzorbus.so";
    std::string state;
    std::string language;
    bool debug = false;
    bool factory = false;
    bool diagsMedium = false;
    bool rawXml = false;
    bool verbose = false;
    std::vector<std::string> answers;
    double promptTimeout = 0;  // seconds; 0: wait for the operator
    std::string serial, station, operatorName;
    bool kernelPaths = false;
    std::string devicesSource = "/sys/kernel/debug/usb/devices";
    std::string usbfsSource = "/dev/bus/usb";
    std::string junit;  // report files; empty: none
    std::string json;
    std::vector<Command> commands;
    bool help = false;
    bool version = false;
};

// Parses argv (with getopt_long: options anywhere, "--" ends them). On a
// usage error returns false with the reason, in the selected language.
// --serial, --station and --operator default to ZORBUS_SERIAL,
// ZORBUS_STATION and ZORBUS_OPERATOR.
bool ParseCommandLine(int argc, char** argv, Options& options, std::string& error);

// The text of --help (and so of the man page).
std::string HelpText();

// The XML text that the component is sent for a command; for RawXml the
// text as given.
std::string CommandXml(const Command& command, const std::string& component);

// The reply to a prompt: the value chosen, or none.
std::string PromptResponseXml(const std::string* value);

// The <initialize> and <uninitialize> texts.
std::string InitializeXml(const std::string& component, const std::string& stateFile, bool debug);
std::string StateXml(const std::string& element, const std::string& stateFile);

}  // namespace host
