#include "common/Debug.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>

static std::atomic<bool> debugEnabled{false};

void EnableDebugOutput(bool on) { debugEnabled = on; }
bool IsDebugOutputEnabled() { return debugEnabled; }

void dbgprintf(const char* format, ...) {
    if (!debugEnabled) return;
    va_list args;
    va_start(args, format);
    vfprintf(stderr, format, args);
    va_end(args);
}
