#include "platform/SystemHelpers.h"

#include <dlfcn.h>
#include <unistd.h>

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
