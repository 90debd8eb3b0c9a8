// Drive faults for the storage host tests. The host program defines open and
// pwrite itself: a program's own definitions come before every preloaded
// library, so the library under test reaches these first, and they pass on
// to umockdev's (which diverts the path to the testbed) and libc's. A session
// whose environment has ZORBUS_DRIVE_FAULT="FAULT PATH" meets FAULT on PATH
// exactly as the library names it ("/dev/sdb"); every other call, every call
// in a session without the variable and every call of the test program
// itself (which runs without UMOCKDEV_DIR) passes through unchanged.
//   busy          an exclusive open (O_EXCL without O_CREAT) fails with EBUSY,
//                 as for a block device that something has claimed
//   no-direct     an open with O_DIRECT fails with EINVAL, as on a file system
//                 without direct transfers
//   lose-write    the first write through a descriptor opened for writing
//                 reports success and stores nothing, as a drive that loses data
//   no-splice     copies by sendfile to a descriptor opened for writing fail
//                 with EINVAL, as for a device without in-kernel copies
//   end-at-readback  the first read-only open ends the process on the spot
//                 (no unwinding, no cleanup), as a power cut after the write
//                 leaves the drive and the files; the exit status is 0 so that
//                 the session itself counts as run
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/sendfile.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

struct Fault {
    std::string kind, path;
};

const Fault& Configured() {
    static const Fault fault = [] {
        const char* text = getenv("UMOCKDEV_DIR") ? getenv("ZORBUS_DRIVE_FAULT") : nullptr;
        const char* blank = text ? std::strchr(text, ' ') : nullptr;
        return blank ? Fault{std::string(text, blank), blank + 1} : Fault{};
    }();
    return fault;
}

std::atomic<int> writeFd{-1};

// Gives -2 to go on with the real call, else the result to return.
int Inject(const char* path, int flags) {
    const Fault& fault = Configured();
    if (fault.kind.empty() || !path || fault.path != path) return -2;
    const bool readOnly = (flags & O_ACCMODE) == O_RDONLY;
    if (fault.kind == "busy" && (flags & O_EXCL) && !(flags & O_CREAT)) {
        errno = EBUSY;
        return -1;
    }
    if (fault.kind == "no-direct" && (flags & O_DIRECT)) {
        errno = EINVAL;
        return -1;
    }
    if (fault.kind == "end-at-readback" && readOnly) _exit(0);
    return -2;
}

// Notes the descriptor that lose-write and no-splice are for.
int Opened(const char* path, int flags, int fd) {
    const Fault& fault = Configured();
    if (fd >= 0 && (flags & O_ACCMODE) != O_RDONLY && (fault.kind == "lose-write" || fault.kind == "no-splice") &&
        fault.path == path)
        writeFd = fd;
    return fd;
}

mode_t ModeOf(int flags, va_list args) {
    return (flags & (O_CREAT | O_TMPFILE)) ? static_cast<mode_t>(va_arg(args, int)) : 0;
}

template <class Function>
Function Next(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// The library is built with 64-bit file offsets: its open, sendfile and
// pwrite are these symbols.
extern "C" {

int open64(const char* path, int flags, ...) {
    va_list args;
    va_start(args, flags);
    const mode_t mode = ModeOf(flags, args);
    va_end(args);
    const int injected = Inject(path, flags);
    if (injected != -2) return injected;
    static const auto next = Next<int (*)(const char*, int, ...)>("open64");
    return Opened(path, flags, next(path, flags, mode));
}

ssize_t sendfile64(int out, int in, off64_t* offset, size_t size) {
    if (out >= 0 && out == writeFd && Configured().kind == "no-splice") {
        errno = EINVAL;
        return -1;
    }
    int expected = out;
    if (out >= 0 && Configured().kind == "lose-write" && writeFd.compare_exchange_strong(expected, -3)) {
        if (offset) *offset += static_cast<off64_t>(size);
        return static_cast<ssize_t>(size);
    }
    static const auto next = Next<ssize_t (*)(int, int, off64_t*, size_t)>("sendfile64");
    return next(out, in, offset, size);
}

ssize_t pwrite64(int fd, const void* data, size_t size, off64_t offset) {
    int expected = fd;
    if (fd >= 0 && Configured().kind == "lose-write" && writeFd.compare_exchange_strong(expected, -3))
        return static_cast<ssize_t>(size);
    static const auto next = Next<ssize_t (*)(int, const void*, size_t, off64_t)>("pwrite64");
    return next(fd, data, size, offset);
}

}  // extern "C"
