#include "tc/usb/linux/USBInfoReader.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "common/StringTokenizer.h"
#include "platform/SystemHelpers.h"
#include "tc/usb/linux/ExternalTool.h"

const char* const kernelDevicesFile = "/proc/bus/usb/devices";
const char* const lsusbDevicesFile = "devices";

namespace {
const char* const reformatTraceFile = "bang1.txt";
const char* const releaseFile = "/etc/SuSE-release";
// A held trace is written out in pieces of about this size.
const size_t traceWriteSize = 64 * 1024;

// What one reformatted line adds to the trace: each token and a blank (the
// line itself), then "reformat", a blank, the line and a newline.
void AppendTrace(std::string& trace, const std::string& line) {
    trace += line;
    trace += "reformat ";
    trace += line;
    trace += '\n';
}

// Errors end the write; the trace is no part of the result.
void WriteAll(int fd, const std::string& bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n > 0)
            done += static_cast<size_t>(n);
        else if (n < 0 && errno == EINTR)
            continue;
        else
            return;
    }
}
}  // namespace

USBInfoReader::USBInfoReader() : file(nullptr), devicesFile(nullptr) {}

USBInfoReader::~USBInfoReader() {
    // A stream its opener left open stays open, as it always did, and keeps
    // the buffer it reads into.
    if (file) streamBuffer.release();
}

bool USBInfoReader::open() {
    // A second open starts the text again; the old handle is not needed.
    close();
    if (!devicesFile) return false;
    file = std::fopen(devicesFile, "r");
    if (!file) return false;
    // The lsusb text runs to megabytes: larger reads than the default.
    if (!streamBuffer) streamBuffer.reset(new char[streamBufferSize]);
    std::setvbuf(file, streamBuffer.get(), _IOFBF, streamBufferSize);
    return true;
}

void USBInfoReader::close() {
    if (file) std::fclose(file);
    file = nullptr;
}

char* USBInfoReader::readLine(char* buffer) {
    if (!file) return nullptr;
    // The reader belongs to one thread: the stream's lock is not needed for
    // each of the hundreds of thousands of lines of a large machine.
    return fgets_unlocked(buffer, lineBufferSize, file);
}

void USBInfoReader::mountProcUsb() {
    // Fixed commands, so no shell is needed; results are ignored as before.
    RunTool({"mount", "-t", "usbfs", "none", "/proc/bus/usb"}, -1, ToolOutput::inherit, ToolOutput::discard);
    RunTool({"sync"});
}

bool USBInfoReader::noMoreLines() {
    // Without an open file there is nothing more to read.
    return !file || feof_unlocked(file) != 0;
}

bool USBInfoReader::moreLines() { return !noMoreLines(); }

bool USBInfoReader::isSles10() {
    std::FILE* release = std::fopen(releaseFile, "r");
    if (!release) return false;
    char line[128];
    bool found = false;
    while (std::fgets(line, sizeof line, release)) {
        if (std::strstr(line, "10")) {
            found = true;
            break;
        }
    }
    std::fclose(release);
    return found;
}

bool USBInfoReader::isDevicesFileAvalable() {
    std::FILE* probe = std::fopen(kernelDevicesFile, "r");
    if (!probe) return false;
    std::fclose(probe);
    return true;
}

bool USBInfoReader::createDevicesFile() {
    // "lsusb -v > file" without a shell: the redirection is ours. As with a
    // shell, a file that cannot be made or a missing lsusb still counts as
    // success; the empty or missing file shows the failure later.
    errno = 0;
    int status = 0;
    const int out = devicesFile ? OpenOwnFile(devicesFile, O_TRUNC, 0666) : -1;
    if (out >= 0) {
        status = RunTool({"lsusb", "-v"}, out);
        ::close(out);
    }
    return !(status == 127 && errno != 0);
}

void USBInfoReader::deleteDevicesFile() {
    if (devicesFile) RunTool({"rm", devicesFile});
}

const char* USBInfoReader::getDevicesFile() { return devicesFile; }

bool USBInfoReader::setDevicesFile() {
    if (isDevicesFileAvalable()) {
        devicesFile = kernelDevicesFile;
        return true;
    }
    ownPath = lsusbDevicesFile;
    devicesFile = ownPath.c_str();
    return createDevicesFile();
}

void USBInfoReader::setMountedDevicesFile() { devicesFile = kernelDevicesFile; }

std::string USBInfoReader::reformatLine(char* buffer) {
    // Tokens at blanks as strtok finds them, and the buffer cut the same way:
    // the next read that meets the end of the text sees only the first token.
    // Each token and its blank take no more room than the line and one blank.
    std::string result(std::strlen(buffer) + 1, '\0');
    char* out = &result[0];
    for (char* at = buffer;;) {
        while (*at == ' ') ++at;
        if (!*at) break;
        char* const token = at;
        while (*at && *at != ' ') ++at;
        std::memcpy(out, token, static_cast<size_t>(at - token));
        out += at - token;
        *out++ = ' ';
        if (!*at) break;
        *at++ = '\0';
    }
    result.resize(static_cast<size_t>(out - result.data()));
    if (traceHeld) {
        if (traceFd >= 0) {
            AppendTrace(traceBuffer, result);
            if (traceBuffer.size() >= traceWriteSize) FlushTrace();
        }
        return result;
    }
    const int fd = OpenOwnFile(reformatTraceFile, O_APPEND, 0666);
    if (fd >= 0) {
        std::string trace;
        AppendTrace(trace, result);
        WriteAll(fd, trace);
        ::close(fd);
    }
    return result;
}

void USBInfoReader::FlushTrace() {
    if (traceFd >= 0) WriteAll(traceFd, traceBuffer);
    traceBuffer.clear();
}

USBInfoReader::TraceHold::TraceHold(USBInfoReader& reader) : reader(reader), owner(!reader.traceHeld) {
    if (!owner) return;
    reader.traceHeld = true;
    reader.traceFd = OpenOwnFile(reformatTraceFile, O_APPEND, 0666);
    reader.traceBuffer.reserve(traceWriteSize + 2 * lineBufferSize + 16);
}

USBInfoReader::TraceHold::~TraceHold() {
    if (!owner) return;
    reader.FlushTrace();
    if (reader.traceFd >= 0) ::close(reader.traceFd);
    reader.traceFd = -1;
    reader.traceHeld = false;
    std::string().swap(reader.traceBuffer);
}

std::string USBInfoReader::extractMoreIn(std::string text) {
    StringTokenizer tokens(text, " ");
    if (!tokens.HasMoreTokens()) return std::string();
    std::string first = tokens.NextToken();
    if (tokens.HasMoreTokens()) return tokens.LeftOverString();
    return first;
}

std::string USBInfoReader::extractStringIn(std::string line, std::string key) {
    // The standard library's own message, without the positions it adds.
    if (line.size() < key.length() + 1) throw std::out_of_range("basic_string::substr");
    return line.substr(key.length() + 1);
}

bool USBInfoReader::isFoundInLine(std::string line, std::string key) { return line.find(key) != std::string::npos; }

std::list<std::string> USBInfoReader::processHubPorts(std::string text) {
    std::list<std::string> lines;
    StringTokenizer tokens(text, "\n");
    while (tokens.HasMoreTokens()) {
        std::string line = tokens.NextToken();
        if (line.find("Hub Port Status:") == std::string::npos && line.find("Device Status:") == std::string::npos)
            lines.push_back(line);
    }
    return lines;
}
