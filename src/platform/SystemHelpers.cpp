#include "platform/SystemHelpers.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "common/Debug.h"

void* OpenDynamicLib(char* path) {
    void* library = dlopen(path, RTLD_LAZY);
    if (!library) {
        const char* reason = dlerror();
        dbgprintf("%s\n", reason ? reason : "dlopen failed");
    }
    return library;
}

void* GetFnAddress(void* library, char* name) { return dlsym(library, name); }

void CloseDynamicLib(void* library) { dlclose(library); }

std::string GetLibName(const char* path) {
    if (!path) return std::string();
    std::string name(path);
    std::string::size_type slash = name.rfind('/');
    if (slash != std::string::npos) name.erase(0, slash + 1);
    if (name.compare(0, 3, "lib") == 0) name.erase(0, 3);
    std::string::size_type so = name.find(".so");
    if (so != std::string::npos) name.erase(so);
    return name;
}

// The file's size; the position is left where it was. -1 when the first or
// the last seek fails.
static off_t fileSize(int fd) {
    off_t current = lseek(fd, 0, SEEK_CUR);
    if (current == -1) return -1;
    off_t end = lseek(fd, 0, SEEK_END);
    if (lseek(fd, current, SEEK_SET) == -1) return -1;
    return end;
}

int lockfile(int fd) { return lockf(fd, F_LOCK, fileSize(fd)); }

int unlockfile(int fd) { return lockf(fd, F_ULOCK, fileSize(fd)); }

// A plain file with no other name: what the component may write into.
static bool isOwnFile(int fd) {
    struct stat info;
    return fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_nlink == 1;
}

int OpenOwnFile(const std::string& path, int flags, mode_t mode) {
    const bool truncate = (flags & O_TRUNC) != 0;
    const int openFlags = (flags & ~O_TRUNC) | O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC;
    // Non-blocking first: a FIFO planted here must not hang the caller.
    int fd = open(path.c_str(), openFlags | O_NONBLOCK, mode);
    if (fd >= 0) {
        if (isOwnFile(fd)) {
            if (fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK) == 0 && (!truncate || ftruncate(fd, 0) == 0))
                return fd;
            const int saved = errno;
            close(fd);
            errno = saved;
            return -1;
        }
        close(fd);
    } else if ((flags & O_EXCL) || (errno != ELOOP && errno != ENXIO)) {
        return -1;  // with O_EXCL, whatever stands there stays untouched
    }
    // A link, a FIFO or a file shared with another name: unlink removes the
    // name only, never what a link points to.
    if (unlink(path.c_str()) != 0) return -1;
    return open(path.c_str(), openFlags | O_EXCL, mode);
}
