#include "tc/frame/CommandGate.h"

#include <strings.h>

#include <cstring>
#include <mutex>

#include "common/xmldef.h"

namespace commandgate {
namespace {

std::mutex commandLock;
std::mutex deviceLock;

// What this thread holds and does, counted over nested calls. Initial-exec:
// a command reads it several times, and the library is loaded once.
struct ThreadState {
    unsigned commands;      // command passes held
    unsigned deviceHolds;   // device passes held
    unsigned devicesInUse;  // commands working on the devices
};
thread_local ThreadState state __attribute__((tls_model("initial-exec")));

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

}  // namespace

CommandPass::CommandPass() {
    if (state.commands == 0) {
        if (state.deviceHolds > 0) return;
        commandLock.lock();
        locked = true;
    }
    ++state.commands;
    granted = true;
}

CommandPass::~CommandPass() {
    if (!granted) return;
    --state.commands;
    if (locked) commandLock.unlock();
}

DevicePass::DevicePass() {
    if (state.deviceHolds == 0) {
        deviceLock.lock();
        locked = true;
    }
    ++state.deviceHolds;
}

DevicePass::~DevicePass() {
    --state.deviceHolds;
    if (locked) deviceLock.unlock();
}

DevicesInUse::DevicesInUse() { ++state.devicesInUse; }

DevicesInUse::~DevicesInUse() { --state.devicesInUse; }

bool MayReplaceDevices() { return state.devicesInUse == 0 && state.deviceHolds == 0; }

bool IsCancelText(const char* text) {
    if (!text) return false;
    const char* p = text;
    if (*p == '\xEF' && std::strncmp(p, "\xEF\xBB\xBF", 3) == 0) p += 3;
    while (isBlank(*p)) ++p;
    if (p[0] == '<' && p[1] == '?' && std::strncmp(p, "<?xml", 5) == 0) {
        const char* end = std::strstr(p, "?>");
        if (!end) return false;
        p = end + 2;
        while (isBlank(*p)) ++p;
    }
    if (*p++ != '<' || (*p != 'c' && *p != 'C')) return false;
    const size_t length = std::strlen(xmldef::cancelTest);
    if (strncasecmp(p, xmldef::cancelTest, length) != 0) return false;
    const char after = p[length];
    return isBlank(after) || after == '/' || after == '>';
}

}  // namespace commandgate
