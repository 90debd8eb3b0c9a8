#include "common/TickTimer.h"

#include <cerrno>
#include <cmath>
#include <ctime>

#include "common/StringUtil.h"

const uint64_t TickTimer::ms_ticksPerSecond = 1000000;

uint64_t TickTimer::GetCurrentTimeInTicks() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000u + static_cast<uint64_t>(now.tv_nsec) / 1000u;
}

std::string GetClockTime() {
    time_t now = time(nullptr);
    struct tm local;
    localtime_r(&now, &local);
    char text[32];
    strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
    return text;
}

std::string GetElapsedTimeString(double seconds) {
    if (!(seconds > 0)) seconds = 0;  // also catches NaN
    uint64_t ms = static_cast<uint64_t>(std::llround(seconds * 1000.0));
    uint64_t s = ms / 1000;
    return strprintf("%02llu:%02llu:%02llu.%03llu", static_cast<unsigned long long>(s / 3600),
                     static_cast<unsigned long long>(s / 60 % 60), static_cast<unsigned long long>(s % 60),
                     static_cast<unsigned long long>(ms % 1000));
}

std::string GetElapsedTimeSince(uint64_t startTicks) {
    const uint64_t elapsed = TickTimer::GetCurrentTimeInTicks() - startTicks;
    return GetElapsedTimeString(static_cast<double>(elapsed) / static_cast<double>(TickTimer::ms_ticksPerSecond));
}

void SleepMS(unsigned int milliseconds) {
    timespec wait;
    wait.tv_sec = milliseconds / 1000;
    wait.tv_nsec = static_cast<long>(milliseconds % 1000) * 1000000L;
    while (nanosleep(&wait, &wait) == -1 && errno == EINTR) {
    }
}
