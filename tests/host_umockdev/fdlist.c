/* Stands in front of a stub tool of a fake machine: appends "TOOL N N ..."
   (the descriptors it was started with) to MACHINE/descriptors.log, then
   runs the shell stub MACHINE/shell/TOOL in its place. A program of its own
   rather than a line of the shell stub: a shell holds descriptors of its own
   (its script) while it runs. It is copied to MACHINE/stubs/TOOL. */
#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

int main(int argc, char** argv) {
    (void)argc;
    char self[PATH_MAX], line[4096], path[PATH_MAX + 32];
    const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
    if (length <= 0) return 125;
    self[length] = '\0';
    /* self: MACHINE/stubs/TOOL, cut into MACHINE and TOOL */
    char* slash = strrchr(self, '/');
    if (!slash) return 125;
    *slash = '\0';
    const char* tool = slash + 1;
    if (!(slash = strrchr(self, '/'))) return 125;
    *slash = '\0';
    const char* machine = self;

    int used = snprintf(line, sizeof line, "%s", tool);
    DIR* listing = opendir("/proc/self/fd");
    if (!listing) return 125;
    for (struct dirent* entry; (entry = readdir(listing));) {
        if (entry->d_name[0] == '.' || atoi(entry->d_name) == dirfd(listing)) continue;
        used += snprintf(line + used, sizeof line - (size_t)used, " %s", entry->d_name);
        if ((size_t)used >= sizeof line) return 125;
    }
    closedir(listing);
    snprintf(path, sizeof path, "%s/descriptors.log", machine);
    const int log = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (log < 0 || dprintf(log, "%s\n", line) < 0) return 125;
    close(log);

    snprintf(path, sizeof path, "%s/shell/%s", machine, tool);
    execv(path, argv);
    return 126;
}
