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
}  // namespace

USBInfoReader::USBInfoReader() : file(nullptr), devicesFile(nullptr) {}

USBInfoReader::~USBInfoReader() {}

bool USBInfoReader::open() {
    // A second open starts the text again; the old handle is not needed.
    close();
    if (!devicesFile) return false;
    file = std::fopen(devicesFile, "r");
    return file != nullptr;
}

void USBInfoReader::close() {
    if (file) std::fclose(file);
    file = nullptr;
}

char* USBInfoReader::readLine(char* buffer) {
    if (!file) return nullptr;
    return std::fgets(buffer, lineBufferSize, file);
}

void USBInfoReader::mountProcUsb() {
    // Fixed commands, so no shell is needed; results are ignored as before.
    RunTool({"mount", "-t", "usbfs", "none", "/proc/bus/usb"}, -1, ToolOutput::inherit, ToolOutput::discard);
    RunTool({"sync"});
}

bool USBInfoReader::noMoreLines() {
    // Without an open file there is nothing more to read.
    return !file || std::feof(file) != 0;
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
    std::string result;
    const int traceFd = OpenOwnFile(reformatTraceFile, O_APPEND, 0666);
    std::FILE* trace = traceFd >= 0 ? fdopen(traceFd, "a") : nullptr;
    if (traceFd >= 0 && !trace) ::close(traceFd);
    // strtok_r: same splitting as strtok, without its hidden global state.
    char* save = nullptr;
    for (char* token = strtok_r(buffer, " ", &save); token; token = strtok_r(nullptr, " ", &save)) {
        if (trace) std::fprintf(trace, "%s ", token);
        result += token;
        result += ' ';
    }
    if (trace) {
        std::fprintf(trace, "reformat %s\n", result.c_str());
        std::fclose(trace);
    }
    return result;
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
