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
}
