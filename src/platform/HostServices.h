// Services the diagnostics host provides. The library carries fallbacks
// (weak symbols): field mode, not the diagnostics medium, the scheduler's
// own processor calls. A host that defines these names itself wins.
#pragma once

#include <cstdint>

extern "C" {
// Non-zero in a factory run. Fallback: 0 (field mode).
int nvxIsFactory();
// Non-zero when the machine runs from the diagnostics medium. Fallback: 0.
int nvxIsDiagsCD();
// Number of the processor the caller runs on. Fallback: sched_getcpu().
int nvxGetCurrentCPU();
// Mask of the processors available to the process (bit n = processor n).
// Fallback: from sched_getaffinity.
uint64_t nvxGetCpuAvailMask();
// Lets the calling thread run on the processors of `mask`. Fallback:
// sched_setaffinity; returns 0 on success.
int nvxSetTaskAffinity(uint64_t mask);
// One byte of the configuration space of PCI function bus:device.function
// (domain 0) at byte `offset`. An absent function or a byte that cannot be
// read answers all ones, as the bus does for nothing there. Fallback: the
// kernel's sysfs "config" files.
uint8_t nvxGetPciConfigBYTE(int bus, int device, int function, int offset);
// The 32-bit register number `reg` (byte offset reg * 4, so 4 to 9 are the
// base address registers) of the same space; all ones as above.
uint32_t nvxGetPciConfigDWORD(int bus, int device, int function, int reg);
// Copies `length` bytes of physical memory at addressHigh:addressLow into
// `buffer`; `flags` must be 0. Returns 0 on success; on failure -1, with
// the buffer zeroed. Fallback: /dev/mem (root only).
int CopyPhysicalMemory(void* buffer, uint32_t addressLow, uint32_t addressHigh, uint32_t length, int flags);
}
