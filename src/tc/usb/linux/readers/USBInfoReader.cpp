#include "tc/usb/linux/readers/USBInfoReader.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "platform/SystemHelpers.h"
#include "tc/usb/linux/storage/ExternalTool.h"

const char* const kernelDevicesFile = "/proc/bus/usb/devices";
const char* const lsusbDevicesFile = "devices";

namespace {
const char* const reformatTraceFile = "bang1.txt";
const char* const releaseFile = "/etc/SuSE-release";
// A held trace is written out in pieces of about this size.
const size_t traceWriteSize = 64 * 1024;

// What one reformatted line adds to the trace: each token and a blank (the
// line itself), then "reformat", a blank, the line and a newline. `entry`
// holds the line; the rest is written behind it. Gives the entry's length.
size_t CompleteTraceEntry(char* entry, size_t lineSize) {
    static const char middle[] = "reformat ";
    const size_t middleSize = sizeof middle - 1;
    std::memcpy(entry + lineSize, middle, middleSize);
    std::memcpy(entry + lineSize + middleSize, entry, lineSize);
    entry[2 * lineSize + middleSize] = '\n';
    return 2 * lineSize + middleSize + 1;
}

// Room that CompleteTraceEntry needs for a line reformatted from `length`
// characters (at most length + 1).
size_t TraceEntryRoom(size_t length) { return 2 * (length + 1) + 16; }

// Where in `word` (eight bytes as loaded, the first lowest) the first blank
// (`blank` true) or the first byte that is not one stands; 8 for none.
int FirstInWord(uint64_t word, bool blank) {
    const uint64_t ones = 0x0101010101010101ULL, blanks = 0x2020202020202020ULL, highs = 0x8080808080808080ULL;
    const uint64_t x = word ^ blanks;  // a zero byte where a blank stands
    const uint64_t marks = blank ? (x - ones) & ~x & highs : x;
    return marks ? __builtin_ctzll(marks) / 8 : 8;
}

// From `at`, the first place in buffer[0, length) that is (`blank` true) or
// is not a blank; `length` when there is none. Eight bytes at a time where
// eight remain.
size_t Scan(const char* buffer, size_t at, size_t length, bool blank) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    for (; at + 8 <= length; at += 8) {
        uint64_t word;
        std::memcpy(&word, buffer + at, 8);
        const int found = FirstInWord(word, blank);
        if (found < 8) return at + static_cast<size_t>(found);
    }
#endif
    while (at < length && (buffer[at] == ' ') != blank) ++at;
    return at;
}

// The tokens of buffer[0, length) (at blanks, as strtok finds them; the
// buffer has no terminator before `length`), each with one blank behind it,
// written to `out` (room for length + 1); the buffer is cut as strtok cuts
// it. Gives the length written.
size_t Reformat(char* buffer, size_t length, char* out) {
    char* const begin = out;
    for (size_t at = 0;;) {
        const size_t start = Scan(buffer, at, length, false);
        if (start == length) break;
        at = Scan(buffer, start, length, true);
        std::memcpy(out, buffer + start, at - start);
        out += at - start;
        *out++ = ' ';
        if (at == length) break;
        buffer[at++] = '\0';
    }
    return static_cast<size_t>(out - begin);
}

// Errors end the write; the trace is no part of the result.
void WriteAll(int fd, const char* bytes, size_t size) {
    size_t done = 0;
    while (done < size) {
        const ssize_t n = ::write(fd, bytes + done, size - done);
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

USBInfoReader::~USBInfoReader() {}

bool USBInfoReader::open() {
    // A second open starts the text again; the old handle is not needed.
    close();
    if (!devicesFile) return false;
    file = std::fopen(devicesFile, "re");
    return file != nullptr;
}

void USBInfoReader::close() {
    if (file) std::fclose(file);
    file = nullptr;
    readStart = readEnd = 0;
    endSeen = false;
}

// As fgets with lineBufferSize would: up to a newline, a full buffer or the
// end of the text, which only a read that runs into it sees. The text is
// read in large pieces and the lines cut from them: a large machine's lsusb
// text has hundreds of thousands of lines, and a stream call for each costs
// more than the line.
char* USBInfoReader::readLine(char* buffer) {
    if (!file) return nullptr;
    if (!readBuffer) readBuffer.reset(new char[readBufferSize]);
    const size_t room = lineBufferSize - 1;
    size_t copied = 0;
    while (copied < room) {
        if (readStart == readEnd) {
            readStart = 0;
            readEnd = std::fread(readBuffer.get(), 1, readBufferSize, file);
            if (readEnd == 0) {
                endSeen = std::feof(file) != 0;
                // A failed read gives no line, as fgets gives none.
                if (std::ferror(file)) return nullptr;
                break;
            }
        }
        const char* from = readBuffer.get() + readStart;
        const size_t available = std::min(readEnd - readStart, room - copied);
        const char* newline = static_cast<const char*>(std::memchr(from, '\n', available));
        const size_t take = newline ? static_cast<size_t>(newline - from) + 1 : available;
        std::memcpy(buffer + copied, from, take);
        copied += take;
        readStart += take;
        if (newline) break;
    }
    if (copied == 0) return nullptr;
    buffer[copied] = '\0';
    return buffer;
}

void USBInfoReader::mountProcUsb() {
    // Fixed commands, so no shell is needed; results are ignored as before.
    RunTool({"mount", "-t", "usbfs", "none", "/proc/bus/usb"}, -1, ToolOutput::inherit, ToolOutput::discard);
    RunTool({"sync"});
}

bool USBInfoReader::noMoreLines() {
    // Without an open file there is nothing more to read.
    return !file || endSeen;
}

bool USBInfoReader::moreLines() { return !noMoreLines(); }

bool USBInfoReader::isSles10() {
    std::FILE* release = std::fopen(releaseFile, "re");
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
    std::FILE* probe = std::fopen(kernelDevicesFile, "re");
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
    std::string line;
    reformatLineInto(buffer, line);
    return line;
}

size_t USBInfoReader::reformatLineInto(char* buffer, std::string& out) {
    // The line and its trace entry are built on the stack for a line of the
    // usual size, in a string of their own for a longer one (from a caller's
    // own buffer).
    const size_t length = std::strlen(buffer);
    char local[4 * lineBufferSize];
    std::string large;
    const size_t room = TraceEntryRoom(length);
    char* const entry = room <= sizeof local ? local : (large.resize(room), &large[0]);
    const size_t size = Reformat(buffer, length, entry);
    out.append(entry, size);
    if (traceHeld) {
        if (traceFd >= 0 || traceDeferred) {
            traceBuffer.append(entry, CompleteTraceEntry(entry, size));
            if (traceFd >= 0 && traceBuffer.size() >= traceWriteSize) FlushTrace();
        }
        return size;
    }
    const int fd = OpenOwnFile(reformatTraceFile, O_APPEND, 0666);
    if (fd >= 0) {
        WriteAll(fd, entry, CompleteTraceEntry(entry, size));
        ::close(fd);
    }
    return size;
}

void USBInfoReader::FlushTrace() {
    if (traceFd >= 0) WriteAll(traceFd, traceBuffer.data(), traceBuffer.size());
    traceBuffer.clear();
}

USBInfoReader::TraceHold::TraceHold(USBInfoReader& reader, bool openNow)
    : reader(reader), owner(!reader.traceHeld), pending(owner) {
    if (!owner) return;
    reader.traceHeld = true;
    reader.traceDeferred = true;
    reader.traceBuffer.reserve(traceWriteSize + 2 * lineBufferSize + 16);
    if (openNow) Open();
}

void USBInfoReader::TraceHold::Open() {
    if (!pending) return;
    pending = false;
    reader.traceDeferred = false;
    reader.traceFd = OpenOwnFile(reformatTraceFile, O_APPEND, 0666);
    if (reader.traceFd < 0)
        reader.traceBuffer.clear();
    else if (reader.traceBuffer.size() >= traceWriteSize)
        reader.FlushTrace();
}

USBInfoReader::TraceHold::~TraceHold() {
    if (!owner) return;
    // What waits for a file never opened is dropped.
    if (!reader.traceDeferred) reader.FlushTrace();
    if (reader.traceFd >= 0) ::close(reader.traceFd);
    reader.traceFd = -1;
    reader.traceHeld = false;
    reader.traceDeferred = false;
    std::string().swap(reader.traceBuffer);
}

std::string USBInfoReader::extractMoreIn(std::string text) {
    // As a tokenizer at blanks: the first word, and what follows its blank
    // unsplit when anything does.
    const std::string::size_type blank = text.find(' ');
    if (blank == std::string::npos) return text;
    if (blank + 1 < text.size()) return text.substr(blank + 1);
    text.resize(blank);
    return text;
}

std::string USBInfoReader::extractStringIn(std::string line, std::string key) {
    // The standard library's own message, without the positions it adds.
    if (line.size() < key.length() + 1) throw std::out_of_range("basic_string::substr");
    return line.substr(key.length() + 1);
}

bool USBInfoReader::isFoundInLine(std::string line, std::string key) { return line.find(key) != std::string::npos; }

std::list<std::string> USBInfoReader::processHubPorts(std::string text) {
    // Every line, empty ones too, as a tokenizer at newlines cuts them.
    std::list<std::string> lines;
    for (std::string::size_type at = 0; at < text.size();) {
        std::string::size_type end = text.find('\n', at);
        if (end == std::string::npos) end = text.size();
        const std::string_view line(text.data() + at, end - at);
        if (line.find("Hub Port Status:") == std::string_view::npos &&
            line.find("Device Status:") == std::string_view::npos)
            lines.emplace_back(line);
        at = end + 1;
    }
    return lines;
}
