#include "tc/usb/linux/storage/ExternalTool.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

extern char** environ;

const char* const toolOutputFile = "/tmp/OUTFILE";

namespace {

int Spawn(const std::vector<std::string>& argv, int stdoutFd, ToolOutput stdoutMode, ToolOutput stderrMode,
          pid_t& child) {
    if (argv.empty()) return -1;
    std::vector<char*> args;
    for (const std::string& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    if (posix_spawn_file_actions_init(&actions) != 0) return -1;
    if (stdoutFd >= 0)
        posix_spawn_file_actions_adddup2(&actions, stdoutFd, STDOUT_FILENO);
    else if (stdoutMode == ToolOutput::discard)
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    if (stderrMode == ToolOutput::discard)
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    // The tool gets standard input, output and error and nothing else of the
    // host: its own descriptors may lack close-on-exec.
    if (posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1) != 0) {
        posix_spawn_file_actions_destroy(&actions);
        return -1;
    }
    const int rc = posix_spawnp(&child, args[0], &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return rc == 0 ? 0 : -1;
}

int WaitFor(pid_t child) {
    int status = 0;
    for (;;) {
        if (waitpid(child, &status, 0) == child) return status;
        if (errno != EINTR) return -1;
    }
}

}  // namespace

int RunTool(const std::vector<std::string>& argv, int stdoutFd, ToolOutput stdoutMode, ToolOutput stderrMode) {
    pid_t child = 0;
    if (Spawn(argv, stdoutFd, stdoutMode, stderrMode, child) != 0) return -1;
    return WaitFor(child);
}

RunningTool::RunningTool(const std::vector<std::string>& argv, int stdoutFd, ToolOutput stdoutMode,
                         ToolOutput stderrMode) {
    pid_t started = 0;
    if (Spawn(argv, stdoutFd, stdoutMode, stderrMode, started) == 0) child = started;
}

int RunningTool::Wait() {
    if (child > 0) {
        status = WaitFor(child);
        child = -1;
    }
    return status;
}

bool ToolSucceeded(int status) { return status != -1 && WIFEXITED(status) && WEXITSTATUS(status) == 0; }

bool CaptureTool(const std::vector<std::string>& argv, std::string& output) {
    output.clear();
    int pipeFds[2];
    if (pipe2(pipeFds, O_CLOEXEC) != 0) return false;
    pid_t child = 0;
    if (Spawn(argv, pipeFds[1], ToolOutput::inherit, ToolOutput::inherit, child) != 0) {
        close(pipeFds[0]);
        close(pipeFds[1]);
        return false;
    }
    close(pipeFds[1]);
    char buffer[4096];
    for (;;) {
        const ssize_t n = read(pipeFds[0], buffer, sizeof buffer);
        if (n > 0) {
            output.append(buffer, static_cast<size_t>(n));
        } else if (n == 0 || errno != EINTR) {
            break;
        }
    }
    close(pipeFds[0]);
    WaitFor(child);
    return true;
}

bool IsPathOperand(const std::string& text) { return !text.empty() && text[0] != '-'; }

int CreateScratchFile(const char* path) {
    // unlink removes a planted link itself, never what it points to.
    if (unlink(path) != 0 && errno != ENOENT) return -1;
    return open(path, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
}

std::string ReadWholeFd(int fd) {
    std::string text;
    if (lseek(fd, 0, SEEK_SET) != 0) return text;
    char buffer[4096];
    for (;;) {
        const ssize_t n = read(fd, buffer, sizeof buffer);
        if (n > 0) {
            text.append(buffer, static_cast<size_t>(n));
        } else if (n == 0 || errno != EINTR) {
            break;
        }
    }
    return text;
}

std::vector<std::string> SplitLikeFgets(const std::string& text, size_t bufferSize) {
    std::vector<std::string> pieces;
    const size_t limit = bufferSize > 1 ? bufferSize - 1 : 1;
    size_t start = 0;
    while (start < text.size()) {
        const size_t newline = text.find('\n', start);
        const size_t lineEnd = newline == std::string::npos ? text.size() : newline + 1;
        const size_t length = std::min(lineEnd - start, limit);
        pieces.push_back(text.substr(start, length));
        start += length;
    }
    return pieces;
}
