// The library's own versions of the host services. They are weak: a host
// program that defines these names itself (and exports them) wins.
#include "platform/HostServices.h"

#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <bitset>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>

#include "common/TestHooks.h"

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

// ---- PCI configuration space and physical memory ----
//
// A walk of all 65,536 addresses must not open 65,536 files: one listing of
// the sysfs folder says which functions exist, and only those are opened.
// The listing is kept for a second, so that a walk costs one listing and a
// function that comes or goes is seen soon after.

namespace {

const char* const pciDevicesDefault = "/sys/bus/pci/devices";
const char* const physicalMemoryDefault = "/dev/mem";

struct PciState {
    std::mutex lock;
    std::string devicesDir = pciDevicesDefault;
    std::string memoryPath = physicalMemoryDefault;
    std::bitset<65536> present;  // bus << 8 | device << 3 | function
    bool listed = false;
    struct timespec listedAt = {0, 0};
};

PciState& Pci() {
    static PciState* state = new PciState();  // never destroyed: usable from any static destructor
    return *state;
}

int HexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// "0000:BB:DD.F" of domain 0 to its slot; -1 for any other name.
int SlotOfName(const char* name) {
    if (std::strlen(name) != 12 || std::strncmp(name, "0000:", 5) != 0 || name[7] != ':' || name[10] != '.') return -1;
    const int b1 = HexDigit(name[5]), b0 = HexDigit(name[6]), d1 = HexDigit(name[8]), d0 = HexDigit(name[9]);
    const int f = name[11] - '0';
    if (b1 < 0 || b0 < 0 || d1 < 0 || d0 < 0 || f < 0 || f > 7) return -1;
    const int device = d1 * 16 + d0;
    if (device > 31) return -1;
    return (b1 * 16 + b0) << 8 | device << 3 | f;
}

// Called with the lock held.
void ListFunctions(PciState& state) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    if (state.listed && now.tv_sec - state.listedAt.tv_sec < 1) return;
    state.present.reset();
    if (DIR* dir = opendir(state.devicesDir.c_str())) {
        while (struct dirent* entry = readdir(dir)) {
            const int slot = SlotOfName(entry->d_name);
            if (slot >= 0) state.present.set(static_cast<size_t>(slot));
        }
        closedir(dir);
    }
    state.listed = true;
    state.listedAt = now;
}

// Reads `length` bytes at `offset` of the function's configuration space;
// false for an absent function, a bad address or a short read.
bool ReadConfig(int bus, int device, int function, int offset, unsigned char* bytes, size_t length) {
    if (bus < 0 || bus > 255 || device < 0 || device > 31 || function < 0 || function > 7 || offset < 0 ||
        offset > 4095)
        return false;
    std::string path;
    {
        PciState& state = Pci();
        std::lock_guard<std::mutex> guard(state.lock);
        ListFunctions(state);
        if (!state.present.test(static_cast<size_t>(bus << 8 | device << 3 | function))) return false;
        char name[32];
        std::snprintf(name, sizeof name, "/0000:%02x:%02x.%d/config", bus, device, function);
        path = state.devicesDir + name;
    }
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    // Without privilege the kernel shows only the first 64 bytes: the rest
    // reads short and counts as unreadable.
    const ssize_t got = pread(fd, bytes, length, offset);
    close(fd);
    return got == static_cast<ssize_t>(length);
}

bool CopyWithRead(int fd, unsigned char* target, uint64_t address, size_t length) {
    size_t done = 0;
    while (done < length) {
        const ssize_t got = pread64(fd, target + done, length - done, static_cast<off64_t>(address + done));
        if (got <= 0) return false;
        done += static_cast<size_t>(got);
    }
    return true;
}

// Device memory that read() refuses can often still be mapped. Only for a
// character device: a mapping beyond the end of a plain file would fault.
bool CopyWithMap(int fd, unsigned char* target, uint64_t address, size_t length) {
    const uint64_t page = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    const uint64_t start = address & ~(page - 1);
    const size_t span = static_cast<size_t>(address - start) + length;
    void* map = mmap64(nullptr, span, PROT_READ, MAP_SHARED, fd, static_cast<off64_t>(start));
    if (map == MAP_FAILED) return false;
    // Register space: one access per byte, none merged or repeated.
    const volatile unsigned char* source = static_cast<const volatile unsigned char*>(map) + (address - start);
    for (size_t i = 0; i < length; ++i) target[i] = source[i];
    munmap(map, span);
    return true;
}

}  // namespace

void testhooks::SetHostServicePaths(const std::string& pciDevices, const std::string& physicalMemory) {
    PciState& state = Pci();
    std::lock_guard<std::mutex> guard(state.lock);
    state.devicesDir = pciDevices.empty() ? pciDevicesDefault : pciDevices;
    state.memoryPath = physicalMemory.empty() ? physicalMemoryDefault : physicalMemory;
    state.listed = false;
}

ZORBUS_HOST_FALLBACK uint8_t nvxGetPciConfigBYTE(int bus, int device, int function, int offset) {
    unsigned char byte = 0;
    return ReadConfig(bus, device, function, offset, &byte, 1) ? byte : 0xFF;
}

ZORBUS_HOST_FALLBACK uint32_t nvxGetPciConfigDWORD(int bus, int device, int function, int reg) {
    unsigned char bytes[4];
    if (reg < 0 || reg > 1023 || !ReadConfig(bus, device, function, reg * 4, bytes, 4)) return 0xFFFFFFFFu;
    // Configuration space is little-endian.
    return uint32_t(bytes[0]) | uint32_t(bytes[1]) << 8 | uint32_t(bytes[2]) << 16 | uint32_t(bytes[3]) << 24;
}

ZORBUS_HOST_FALLBACK int CopyPhysicalMemory(void* buffer, uint32_t addressLow, uint32_t addressHigh, uint32_t length,
                                            int flags) {
    if (!buffer) return -1;
    unsigned char* target = static_cast<unsigned char*>(buffer);
    std::memset(target, 0, length);
    if (flags != 0) return -1;
    if (length == 0) return 0;
    const uint64_t address = uint64_t(addressHigh) << 32 | addressLow;
    if (address > UINT64_MAX - length || address + length > uint64_t(INT64_MAX)) return -1;
    std::string path;
    {
        PciState& state = Pci();
        std::lock_guard<std::mutex> guard(state.lock);
        path = state.memoryPath;
    }
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_SYNC);
    if (fd < 0) return -1;
    bool copied = CopyWithRead(fd, target, address, length);
    if (!copied) {
        struct stat info;
        if (fstat(fd, &info) == 0 && S_ISCHR(info.st_mode)) copied = CopyWithMap(fd, target, address, length);
    }
    close(fd);
    if (copied) return 0;
    std::memset(target, 0, length);
    return -1;
}
