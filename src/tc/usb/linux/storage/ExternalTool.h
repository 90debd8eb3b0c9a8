// Runs the external tools of the storage tests (sg_scan, sg_map, sg_inq,
// mount, umount, mkdir, cp, rm) without a shell: every argument travels as
// an argument of its own, so text taken from the kernel or from another
// tool's output can never become a command.
#pragma once

#include <string>
#include <vector>

// What the child's standard output and error are tied to.
enum class ToolOutput { inherit, discard };

// Runs argv[0] (searched on PATH unless it holds a '/') and waits for it.
// `stdoutFd` >= 0 becomes the child's standard output. The child inherits
// standard input, output and error and no other descriptor. The result has the
// form of system()'s: a wait status, or -1 when no child could be started.
int RunTool(const std::vector<std::string>& argv, int stdoutFd = -1, ToolOutput stdoutMode = ToolOutput::inherit,
            ToolOutput stderrMode = ToolOutput::inherit);

// A tool started as RunTool starts it, and waited for when the work that
// may go on beside it is done (at the latest when the object goes).
class RunningTool {
public:
    RunningTool(const std::vector<std::string>& argv, int stdoutFd = -1, ToolOutput stdoutMode = ToolOutput::inherit,
                ToolOutput stderrMode = ToolOutput::inherit);
    ~RunningTool() { Wait(); }
    RunningTool(const RunningTool&) = delete;
    RunningTool& operator=(const RunningTool&) = delete;
    // RunTool's result; the same on every later call.
    int Wait();

private:
    int child = -1;
    int status = -1;
};

// True when `status` (from RunTool) says the tool ran and exited with 0.
bool ToolSucceeded(int status);

// Runs the tool with its standard output on a pipe and collects it; false
// when no child could be started. The exit status is not looked at.
bool CaptureTool(const std::vector<std::string>& argv, std::string& output);

// An operand that is safe to hand to a tool as a path: not empty and not
// taken for an option.
bool IsPathOperand(const std::string& text);

// The fixed scratch file of the tools' output, "/tmp/OUTFILE".
extern const char* const toolOutputFile;

// Creates `path` afresh for writing: whatever stood there (a file, a link
// planted by someone else) is unlinked first, and the new file is made with
// O_EXCL|O_NOFOLLOW so that no link is ever followed. -1 on failure.
int CreateScratchFile(const char* path);

// The whole text behind `fd`, read from its start.
std::string ReadWholeFd(int fd);

// Cuts `text` into lines as fgets with a buffer of `bufferSize` would: a line
// longer than bufferSize - 1 comes in several pieces, and every piece but the
// last of a line lacks the newline.
std::vector<std::string> SplitLikeFgets(const std::string& text, size_t bufferSize);
