#include "HostProgram.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

namespace {

struct Folders {
    std::vector<std::string> made;
    ~Folders() {
        for (const std::string& folder : made) {
            const std::string command = "rm -rf '" + folder + "'";
            if (std::system(command.c_str()) != 0) continue;
        }
    }
};
Folders folders;

void Drain(int fd, std::string& into, bool& open) {
    char buffer[4096];
    const ssize_t n = read(fd, buffer, sizeof buffer);
    if (n > 0) into.append(buffer, static_cast<size_t>(n));
    else if (n == 0 || errno != EINTR) open = false;
}

}  // namespace

std::string HostProgramPath() { return std::string(ZORBUS_BINARY_DIR) + "/zorbus-host"; }

std::string TemporaryFolder() {
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/zorbus-host-cli.XXXXXX";
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    if (!mkdtemp(name.data())) return "";
    folders.made.push_back(name.data());
    return name.data();
}

bool OnPath(const std::string& program) {
    const char* path = std::getenv("PATH");
    std::stringstream folders(path ? path : "");
    std::string folder;
    while (std::getline(folders, folder, ':'))
        if (!folder.empty() && access((folder + "/" + program).c_str(), X_OK) == 0) return true;
    return false;
}

std::string CopyMachine(const std::string& fixture) {
    const std::string folder = TemporaryFolder();
    const std::string command = "cp -r '" + std::string(ZORBUS_SOURCE_DIR) + "/tests/fixtures/" + fixture + "' '" +
                                folder + "/machine' && mkdir '" + folder + "/stubs' '" + folder + "/run'";
    if (std::system(command.c_str()) != 0) return "";
    for (const char* tool : {"mount", "sync", "lsusb"}) {
        const std::string stub = folder + "/stubs/" + tool;
        std::ofstream(stub) << "#!/bin/sh\nexit 0\n";
        chmod(stub.c_str(), 0755);
    }
    return folder;
}

HostRun RunHost(const HostCall& call) {
    HostRun run;
    int out[2], err[2];
    if (pipe(out) != 0 || pipe(err) != 0) return run;
    const std::string folder =
        !call.folder.empty() ? call.folder : !call.machine.empty() ? call.machine + "/run" : TemporaryFolder();
    std::vector<std::string> argv = call.prefix;
    if (!call.machine.empty()) argv.push_back("umockdev-wrapper");
    argv.push_back(HostProgramPath());
    argv.insert(argv.end(), call.args.begin(), call.args.end());

    const pid_t child = fork();
    if (child == 0) {
        dup2(out[1], STDOUT_FILENO);
        dup2(err[1], STDERR_FILENO);
        const int none = open("/dev/null", O_RDONLY);
        dup2(none, STDIN_FILENO);
        close(out[0]);
        close(err[0]);
        if (chdir(folder.c_str()) != 0) _exit(126);
        if (!call.machine.empty()) {
            setenv("UMOCKDEV_DIR", (call.machine + "/machine").c_str(), 1);
            const char* path = std::getenv("PATH");
            setenv("PATH", (call.machine + "/stubs:" + (path ? path : "/usr/bin:/bin")).c_str(), 1);
        }
        for (const std::string& variable : call.env) putenv(strdup(variable.c_str()));
        std::vector<char*> pointers;
        for (const std::string& arg : argv) pointers.push_back(const_cast<char*>(arg.c_str()));
        pointers.push_back(nullptr);
        execvp(pointers[0], pointers.data());
        const std::string why = std::string("cannot exec ") + pointers[0] + ": " + std::strerror(errno) + "\n";
        if (write(STDERR_FILENO, why.data(), why.size()) < 0) _exit(127);
        _exit(127);
    }
    close(out[1]);
    close(err[1]);
    bool outOpen = true, errOpen = true;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(call.seconds);
    while (outOpen || errOpen) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            run.timedOut = true;
            kill(child, SIGKILL);
            break;
        }
        pollfd fds[2] = {{outOpen ? out[0] : -1, POLLIN, 0}, {errOpen ? err[0] : -1, POLLIN, 0}};
        if (poll(fds, 2, static_cast<int>(left.count())) <= 0) continue;
        if (fds[0].revents) Drain(out[0], run.out, outOpen);
        if (fds[1].revents) Drain(err[0], run.err, errOpen);
    }
    close(out[0]);
    close(err[0]);
    int status = 0;
    waitpid(child, &status, 0);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return run;
}

std::string HostUnavailable() {
    static const std::string why = [] {
        if (access(HostProgramPath().c_str(), X_OK) != 0) return "zorbus-host is not built at " + HostProgramPath();
        HostCall call;
        call.args = {"--help"};
        const HostRun run = RunHost(call);
        if (run.status == 0) return std::string();
        // A 32-bit build on a kernel that runs only 64-bit programs.
        return "zorbus-host does not start here: " + run.err;
    }();
    return why;
}

size_t Count(const std::string& text, const std::string& needle) {
    size_t count = 0;
    for (size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, at + needle.size())) ++count;
    return count;
}

std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}
