// Wrappers of library and file calls: dynamic libraries, the short name of a
// library path, whole-file locks, and the files the component writes in a
// folder that others may write to.
#pragma once

#include <sys/types.h>

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

// Opens for writing a file of the component's own in a shared folder (the
// working directory, the diagnostics write directory). `flags` adds O_TRUNC,
// O_APPEND or O_EXCL to O_WRONLY; the file is created when missing. A link
// planted at `path` is never followed and a file with other names (a hard
// link) never written: the name is taken back and a new file made in its
// place, except with O_EXCL, where anything at `path` is an error. A FIFO or
// device there is replaced the same way, without blocking. The descriptor is
// close-on-exec; -1 with errno set on failure.
int OpenOwnFile(const std::string& path, int flags, mode_t mode = 0644);
