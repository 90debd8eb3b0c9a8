// The command line of zorbus-host: options and the commands to run.
#pragma once

#include <string>
#include <vector>

namespace host {

// What one command on the command line asks for.
struct Command {
    enum Kind { Catalog, Discover, RunTest, Cancel, Diagnose, Version, RawXml };
    Kind kind = RawXml;
    std::string device;
    std::string test;
    std::vector<std::pair<std::string, std::string>> parameters;  // name=value, in order
    std::string xml;                                               // RawXml only
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
    std::vector<std::string> answers;
    bool kernelPaths = false;
    std::string devicesSource = "/sys/kernel/debug/usb/devices";
    std::string usbfsSource = "/dev/bus/usb";
    std::string junit;  // report files; empty: none
    std::string json;
    std::vector<Command> commands;
    bool help = false;
    bool version = false;
};

// Parses argv. On a usage error returns false with the reason in `error`.
bool ParseCommandLine(int argc, char** argv, Options& options, std::string& error);

// The text of --help.
std::string HelpText();

// Escapes text for an XML attribute value.
std::string XmlEscape(const std::string& text);

// The XML text that the component is sent for a command.
std::string CommandXml(const Command& command, const std::string& component);

}  // namespace host
