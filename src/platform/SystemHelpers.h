// Wrappers of library and file calls: dynamic libraries, the short name of a
// library path, and whole-file locks.
#pragma once

#include <string>

// dlopen with lazy binding; null on failure (the reason goes to the debug log).
void* OpenDynamicLib(char* path);
// The symbol's address, null when it is missing.
void* GetFnAddress(void* library, char* name);
void CloseDynamicLib(void* library);
// "/usr/lib/libfoo.so.1" gives "foo": directory, a leading "lib" and
// everything from the first ".so" on are dropped.
std::string GetLibName(const char* path);
// lockf over the file's length from the current position; lockfile blocks
// until the lock is granted. Results are those of lockf.
int lockfile(int fd);
int unlockfile(int fd);
