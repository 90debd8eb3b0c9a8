// What the framework asks of the component that holds its devices: events
// and log lines to the host, the component's name, its write directory, and
// numbers for device names. The frame answers these. While no component is
// up an event goes nowhere, the name is empty and a device keeps the name it
// is given.
#pragma once

#include <string>

namespace outlet {

// The host's reply to the event, or "" when it gave none or no component is
// up. Throws TvkError "Event callback not registered!" when the component
// has no callback.
std::string SendEvent(const std::string& xml);
// One "diagEvent" log line; throws as SendEvent does.
void WriteLog(const std::string& caption, const std::string& description);
std::string ComponentName();
// The folder for the tests' own files ("CORVANEWRITEDIR", else "."), also
// while no component is up.
std::string WriteDirectory();
// The lowest number free for `base` among the component's devices, taken
// from then on. False while no component is up or a catalogue is built:
// then no number is given.
bool TakeDeviceNumber(const std::string& base, unsigned int& number);

}  // namespace outlet
