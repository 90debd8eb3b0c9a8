// Who may run a command now. A host may call the entry points from several
// threads and from inside its callback:
// - Commands run one at a time under the command lock; another thread's
//   command waits for the running one. A command that the running command's
//   own thread sends from inside the callback runs at once.
// - A cancel does not take the command lock, so that it overtakes a running
//   test; it holds the device lock while it looks its test up.
// - What replaces or destroys the devices or the component (discovery,
//   Initialize, Uninitialize) holds both locks, and is refused on a thread
//   that is still working on them further up its own stack.
// Lock order: command lock, then device lock. A thread that holds the device
// lock for a cancel never waits for the command lock.
#pragma once

namespace commandgate {

// Held for the length of a command (also SetCallback, Initialize,
// Uninitialize). Not granted on a thread that is inside a cancel without
// holding the command lock: waiting there could close a circle with a
// command that waits for the device lock.
class CommandPass {
public:
    CommandPass();
    ~CommandPass();
    CommandPass(const CommandPass&) = delete;
    CommandPass& operator=(const CommandPass&) = delete;
    bool Granted() const { return granted; }

private:
    bool granted = false;
    bool locked = false;
};

// Held while the devices or the component may change under a reader that
// holds no command lock (a cancel, IsInitialized), and by what changes them.
// Taken again by its own thread, it does not wait.
class DevicePass {
public:
    DevicePass();
    ~DevicePass();
    DevicePass(const DevicePass&) = delete;
    DevicePass& operator=(const DevicePass&) = delete;

private:
    bool locked = false;
};

// Marks a command that works on the devices (a test run, a diagnosis, a
// discovery, a catalogue, a device action, a cancel) for as long as it runs.
class DevicesInUse {
public:
    DevicesInUse();
    ~DevicesInUse();
    DevicesInUse(const DevicesInUse&) = delete;
    DevicesInUse& operator=(const DevicesInUse&) = delete;
};

// Whether this thread may replace or destroy the devices or the component:
// not while it works on them, or holds the device lock, further up its stack.
bool MayReplaceDevices();

// Whether a command text takes the cancel's road: its element, after
// optional blanks and an XML declaration, is a cancelTest (any case). Other
// spellings of a cancel still work, on the command road.
bool IsCancelText(const char* text);

}  // namespace commandgate
