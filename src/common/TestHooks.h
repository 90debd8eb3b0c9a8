// The seams through which unit tests, benchmarks and fuzz targets put their
// own in place of what the product reads or waits for. Product code never
// calls these. Each is defined beside the state it replaces; a null or
// empty argument gives the product's own back.
#pragma once

#include <string>

class USBInfoReader;

namespace testhooks {

// The folder of PCI functions (in place of "/sys/bus/pci/devices") and the
// physical memory file (in place of "/dev/mem") that the host services'
// fallbacks read.
void SetHostServicePaths(const std::string& pciDevices, const std::string& physicalMemory);
// The devices-file parser's process-wide state (last bus seen, root hub
// product pending) back to its start.
void ResetUsbDiscoveryState();
// What makes the reader each count of the descriptor test reads (the test
// deletes it), in place of the source a fresh reader chooses.
void SetDescTestReader(USBInfoReader* (*make)());
// What makes the reader of the loopback test's count (deleted by the test).
void SetLoopbackTestReader(USBInfoReader* (*make)());
// What the loopback test calls in place of sleep() around its prompt.
void SetLoopbackTestPause(unsigned int (*pause)(unsigned int seconds));

}  // namespace testhooks
