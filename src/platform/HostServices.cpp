// The library's own versions of the host services. They are weak: a host
// program that defines these names itself (and exports them) wins.
#include "platform/HostServices.h"

#include <sched.h>

#define ZORBUS_HOST_FALLBACK extern "C" __attribute__((weak, visibility("default")))

ZORBUS_HOST_FALLBACK int nvxIsFactory() { return 0; }

ZORBUS_HOST_FALLBACK int nvxIsDiagsCD() { return 0; }

ZORBUS_HOST_FALLBACK int nvxGetCurrentCPU() {
    int cpu = sched_getcpu();
    return cpu < 0 ? 0 : cpu;
}

ZORBUS_HOST_FALLBACK uint64_t nvxGetCpuAvailMask() {
    cpu_set_t set;
    CPU_ZERO(&set);
    if (sched_getaffinity(0, sizeof(set), &set) != 0) return 0;
    uint64_t mask = 0;
    for (int cpu = 0; cpu < 64; ++cpu)
        if (CPU_ISSET(cpu, &set)) mask |= uint64_t(1) << cpu;
    return mask;
}

ZORBUS_HOST_FALLBACK int nvxSetTaskAffinity(uint64_t mask) {
    cpu_set_t set;
    // The mask cannot name processors from 64 on; whatever the thread has
    // there stays, so that a big machine is not cut down to 64 processors.
    if (sched_getaffinity(0, sizeof(set), &set) != 0) CPU_ZERO(&set);
    for (int cpu = 0; cpu < 64; ++cpu) {
        if (mask & (uint64_t(1) << cpu))
            CPU_SET(cpu, &set);
        else
            CPU_CLR(cpu, &set);
    }
    return sched_setaffinity(0, sizeof(set), &set) == 0 ? 0 : -1;
}
