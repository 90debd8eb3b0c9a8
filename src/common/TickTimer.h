// Monotonic time, sleeping, and the elapsed-time text of results.
#pragma once

#include <cstdint>
#include <string>

class TickTimer {
public:
    // Monotonic clock in ticks of ms_ticksPerSecond per second.
    static uint64_t GetCurrentTimeInTicks();
    static const uint64_t ms_ticksPerSecond;  // 1,000,000 (microseconds)
};

// Wall-clock time as text, "YYYY-MM-DD HH:MM:SS".
std::string GetClockTime();
// Seconds as "HH:MM:SS.mmm" (hours may exceed 24); negative counts as 0.
std::string GetElapsedTimeString(double seconds);
// The time since `startTicks` (of GetCurrentTimeInTicks) in that form.
std::string GetElapsedTimeSince(uint64_t startTicks);
void SleepMS(unsigned int milliseconds);
