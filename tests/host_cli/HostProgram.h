// Runs the built zorbus-host as a shell would, optionally under umockdev-wrapper
// on a copy of a fixture machine.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

using Args = std::vector<std::string>;

inline std::string Quoted(const std::string& text) {
    std::string out = "'";
    for (char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

inline std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

inline size_t Count(const std::string& text, const std::string& needle) {
    size_t count = 0;
    for (size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, at + 1)) ++count;
    return count;
}

// Each part occurs in `text`.
#define EXPECT_HAS(text, ...)                                                         \
    for (const std::string& part_ : std::vector<std::string>{__VA_ARGS__})            \
    EXPECT_NE((text).find(part_), std::string::npos) << "no \"" << part_ << "\" in:\n" << (text)

// A fresh folder, removed when the test program ends.
inline std::string TemporaryFolder() {
    static struct Made : std::vector<std::string> {
        ~Made() {
            for (const std::string& folder : *this)
                if (std::system(("rm -rf " + Quoted(folder)).c_str()) != 0) continue;
        }
    } made;
    char pattern[] = "/tmp/zorbus-host-cli.XXXXXX";
    made.push_back(mkdtemp(pattern) ? pattern : "/nonexistent");
    return made.back();
}

// A copy of tests/fixtures/NAME as "machine", do-nothing mount, sync and lsusb
// in "stubs", and "run" as working folder.
inline std::string CopyMachine(const std::string& fixture) {
    const std::string folder = TemporaryFolder(), stubs = Quoted(folder + "/stubs/");
    return std::system(("cp -r " + Quoted(std::string(ZORBUS_SOURCE_DIR) + "/tests/fixtures/" + fixture) + " " +
                        Quoted(folder + "/machine") + " && mkdir " + stubs + " " + Quoted(folder + "/run") +
                        " && for t in mount sync lsusb; do printf '#!/bin/sh\\nexit 0\\n' > " + stubs +
                        "$t && chmod 755 " + stubs + "$t; done").c_str()) == 0 ? folder : "";
}

// zorbus-host on `machine` (none: this machine as it is), started by `prefix`.
inline std::string HostCommand(const Args& args, const std::string& machine, const std::string& prefix = "") {
    std::string command = machine.empty() ? prefix
                                          : "UMOCKDEV_DIR=" + Quoted(machine + "/machine") + " PATH=" +
                                                Quoted(machine + "/stubs") + ":\"$PATH\" " + prefix +
                                                "umockdev-wrapper ";
    command += Quoted(std::string(ZORBUS_BINARY_DIR) + "/zorbus-host");
    for (const std::string& arg : args) command += " " + Quoted(arg);
    return command;
}

struct HostRun {
    int status;  // 137 when killed after a minute
    std::string out, err;
};

// Standard input from /dev/null; in `folder`, by default the machine's "run" folder or a fresh one.
inline HostRun RunHost(const Args& args, const std::string& machine = "", const std::string& prefix = "",
                       std::string folder = "") {
    const std::string output = TemporaryFolder();
    if (folder.empty()) folder = machine.empty() ? output : machine + "/run";
    const int status = std::system(("cd " + Quoted(folder) + " && " +
                                    HostCommand(args, machine, "timeout -s KILL 60 " + prefix) + " </dev/null >" +
                                    Quoted(output + "/out") + " 2>" + Quoted(output + "/err")).c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadFile(output + "/out"), ReadFile(output + "/err")};
}

// Why zorbus-host cannot run here (say, a 32-bit build on a 64-bit-only kernel), or empty.
inline std::string HostUnavailable() {
    static const std::string why = RunHost({"--help"}).status == 0 ? "" : "zorbus-host does not start here";
    return why;
}
