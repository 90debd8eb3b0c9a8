// Runs the built zorbus-host as a shell would, optionally under umockdev-wrapper
// on a copy of a fixture machine.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
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
#define EXPECT_HAS(text, ...)                                              \
    for (const std::string& part_ : std::vector<std::string>{__VA_ARGS__}) \
    EXPECT_NE((text).find(part_), std::string::npos) << "no \"" << part_ << "\" in:\n" << (text)

// A fresh folder, removed when the test program ends.
inline std::string TemporaryFolder() {
    static struct Made : std::vector<std::string> {
        ~Made() {
            std::error_code ignored;
            for (const std::string& folder : *this) std::filesystem::remove_all(folder, ignored);
        }
    } made;
    char pattern[] = "/tmp/zorbus-host-cli.XXXXXX";
    made.push_back(mkdtemp(pattern) ? pattern : "/nonexistent");
    return made.back();
}

// A copy of tests/fixtures/NAME as "machine", do-nothing mount, sync and lsusb
// in "stubs", and "run" as working folder.
inline std::string CopyMachine(const std::string& fixture) {
    namespace fs = std::filesystem;
    const std::string folder = TemporaryFolder();
    std::error_code failed;
    fs::copy(ZORBUS_SOURCE_DIR "/tests/fixtures/" + fixture, folder + "/machine", fs::copy_options::recursive, failed);
    if (failed || !fs::create_directory(folder + "/run") || !fs::create_directory(folder + "/stubs")) return "";
    for (const char* tool : {"mount", "sync", "lsusb"}) {
        const std::string stub = folder + "/stubs/" + tool;
        std::ofstream(stub) << "#!/bin/sh\nexit 0\n";
        fs::permissions(stub, fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec |
                                  fs::perms::others_read | fs::perms::others_exec);
    }
    return folder;
}

// How a fake machine reaches a program. umockdev's preload diverts /proc and /dev to the machine's copy;
// it needs libumockdev-preload.so.0 in the program's word size. A private mount namespace (root only) puts
// the machine's /proc/bus in place of the real one instead, for programs of any word size.
enum class Road { Umockdev, Namespace };

// `program` (quoted, with its arguments) on `machine` (none: this machine as it is), started by `prefix`.
inline std::string OnMachine(const std::string& program, const std::string& machine, const std::string& prefix,
                             Road road) {
    if (machine.empty()) return prefix + program;
    if (road == Road::Umockdev)
        return "UMOCKDEV_DIR=" + Quoted(machine + "/machine") + " PATH=" + Quoted(machine + "/stubs") + ":\"$PATH\" " +
               prefix + "umockdev-wrapper " + program;
    // The stubs come first on PATH only after the real mount has put the tmpfs in place.
    return prefix + "unshare -m --propagation private sh -c " +
           Quoted("mount -t tmpfs zorbus /proc/bus && cp -R \"$1\"/. /proc/bus && PATH=\"$2:$PATH\" && shift 2 && "
                  "exec \"$@\"") +
           " sh " + Quoted(machine + "/machine/proc/bus") + " " + Quoted(machine + "/stubs") + " " + program;
}

// The road to a fake machine for this build's programs here, or why there is none. ZORBUS_MACHINE_ROADS
// (default "umockdev namespace") names the roads to try, in order.
inline const std::string& MachineUnavailable(Road* found = nullptr) {
    static Road road = Road::Umockdev;
    static const std::string why = [] {
        const char* wanted = std::getenv("ZORBUS_MACHINE_ROADS");
        const std::string roads = wanted ? wanted : "umockdev namespace";
        const std::string bits = std::to_string(sizeof(void*) * 8) + "-bit";
        const std::string probe = TemporaryFolder(), output = TemporaryFolder() + "/out";
        std::filesystem::create_directories(probe + "/machine/proc/bus/usb");
        std::filesystem::create_directories(probe + "/stubs");
        std::ofstream(probe + "/machine/proc/bus/usb/zorbus-probe") << "fake machine\n";
        const std::string program = Quoted(ZORBUS_BINARY_DIR "/machine_probe") + " /proc/bus/usb/zorbus-probe";
        std::string reasons;
        for (const Road candidate : {Road::Umockdev, Road::Namespace}) {
            const char* name = candidate == Road::Umockdev ? "umockdev" : "namespace";
            if (roads.find(name) == std::string::npos) {
                reasons += std::string(reasons.empty() ? "" : "; ") + "the " + name +
                           " road is turned off (ZORBUS_MACHINE_ROADS=" + roads + ")";
                continue;
            }
            const std::string command = OnMachine(program, probe, "timeout -s KILL 60 ", candidate);
            if (std::system((command + " >" + Quoted(output) + " 2>&1").c_str()) == 0 &&
                ReadFile(output) == "fake machine\n") {
                road = candidate;
                return std::string();
            }
            reasons += std::string(reasons.empty() ? "" : "; ") +
                       (candidate == Road::Umockdev
                            ? "umockdev-wrapper does not divert " + bits +
                                  " programs here (no libumockdev-preload.so.0 of that word size, or it is hidden)"
                            : "no private mount namespace with a tmpfs on /proc/bus here (needs root)");
        }
        return "no fake machine reaches " + bits + " programs: " + reasons;
    }();
    if (found) *found = road;
    return why;
}

// zorbus-host on `machine` (none: this machine as it is), started by `prefix`.
inline std::string HostCommand(const Args& args, const std::string& machine, const std::string& prefix = "") {
    std::string program = Quoted(std::string(ZORBUS_BINARY_DIR) + "/zorbus-host");
    for (const std::string& arg : args) program += " " + Quoted(arg);
    Road road = Road::Umockdev;
    if (!machine.empty()) MachineUnavailable(&road);
    return OnMachine(program, machine, prefix, road);
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
    const int status =
        std::system(("cd " + Quoted(folder) + " && " + HostCommand(args, machine, "timeout -s KILL 60 " + prefix) +
                     " </dev/null >" + Quoted(output + "/out") + " 2>" + Quoted(output + "/err"))
                        .c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadFile(output + "/out"), ReadFile(output + "/err")};
}

// Why zorbus-host cannot run here (say, a 32-bit build on a 64-bit-only kernel), or empty.
inline std::string HostUnavailable() {
    static const std::string why = RunHost({"--help"}).status == 0 ? "" : "zorbus-host does not start here";
    return why;
}
