#include "KernelPaths.h"

#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace host {

namespace {

const char* const procBus = "/proc/bus";
const char* const procBusUsb = "/proc/bus/usb";
const char* const defaultDebugfs = "/sys/kernel/debug";

std::string Why(const std::string& what) { return what + ": " + std::strerror(errno); }

bool IsDirectory(const std::string& path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool Readable(const std::string& path) { return access(path.c_str(), R_OK) == 0 && !IsDirectory(path); }

std::vector<std::string> Entries(const std::string& folder) {
    std::vector<std::string> names;
    if (DIR* dir = opendir(folder.c_str())) {
        while (dirent* entry = readdir(dir)) {
            const std::string name = entry->d_name;
            if (name != "." && name != "..") names.push_back(name);
        }
        closedir(dir);
    }
    return names;
}

bool Bind(const std::string& source, const std::string& target, std::string& error) {
    if (mount(source.c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0) {
        error = Why("cannot bind " + source + " at " + target);
        return false;
    }
    return true;
}

// /proc/bus/usb does not exist on these kernels and procfs takes no new
// folder, so /proc/bus itself becomes a tmpfs that carries its old entries
// again beside the new usb folder.
bool MakeProcBusUsb(std::string& error) {
    if (IsDirectory(procBusUsb)) {
        if (mount("zorbus-usb", procBusUsb, "tmpfs", 0, "mode=0755") != 0) {
            error = Why(std::string("cannot mount a tmpfs on ") + procBusUsb);
            return false;
        }
        return true;
    }
    char stash[] = "/tmp/zorbus-host-bus.XXXXXX";
    if (!mkdtemp(stash)) {
        error = Why("cannot make a folder under /tmp");
        return false;
    }
    bool done = Bind(procBus, stash, error);
    if (done && mount("zorbus-bus", procBus, "tmpfs", 0, "mode=0555") != 0) {
        error = Why(std::string("cannot mount a tmpfs on ") + procBus);
        done = false;
    }
    if (done) {
        for (const std::string& name : Entries(stash)) {
            const std::string target = std::string(procBus) + "/" + name;
            if (mkdir(target.c_str(), 0555) != 0 || !Bind(std::string(stash) + "/" + name, target, error)) {
                if (error.empty()) error = Why("cannot make " + target);
                done = false;
                break;
            }
        }
    }
    if (done && mkdir(procBusUsb, 0755) != 0) {
        error = Why(std::string("cannot make ") + procBusUsb);
        done = false;
    }
    umount2(stash, MNT_DETACH);
    rmdir(stash);
    return done;
}

}  // namespace

bool EnterKernelPaths(const std::string& devicesSource, const std::string& usbfsSource, std::vector<std::string>& notes,
                      std::string& error) {
    if (geteuid() != 0) {
        error = "--kernel-paths needs root: it mounts the kernel's USB files under /proc/bus/usb in a private "
                "mount namespace";
        return false;
    }
    if (unshare(CLONE_NEWNS) != 0) {
        error = Why("cannot make a private mount namespace (unshare)");
        return false;
    }
    // Nothing done from here on may reach the mounts of the rest of the machine.
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        error = Why("cannot make the mounts private");
        return false;
    }
    if (!Readable(devicesSource) && devicesSource.rfind(std::string(defaultDebugfs) + "/", 0) == 0) {
        // debugfs not mounted yet: mount it here, where only this program sees it.
        if (mount("debugfs", defaultDebugfs, "debugfs", 0, nullptr) == 0)
            notes.push_back(std::string("mounted debugfs on ") + defaultDebugfs);
    }
    if (!Readable(devicesSource)) {
        error = Why("cannot read the devices text " + devicesSource);
        return false;
    }
    if (!MakeProcBusUsb(error)) return false;

    const std::string devices = std::string(procBusUsb) + "/devices";
    const int file = open(devices.c_str(), O_CREAT | O_WRONLY, 0444);
    if (file < 0) {
        error = Why("cannot make " + devices);
        return false;
    }
    close(file);
    if (!Bind(devicesSource, devices, error)) return false;
    notes.push_back(devices + " <- " + devicesSource);

    int buses = 0;
    for (const std::string& bus : Entries(usbfsSource)) {
        const std::string source = usbfsSource + "/" + bus;
        if (!IsDirectory(source)) continue;
        const std::string target = std::string(procBusUsb) + "/" + bus;
        if (mkdir(target.c_str(), 0755) != 0) {
            error = Why("cannot make " + target);
            return false;
        }
        if (!Bind(source, target, error)) return false;
        ++buses;
    }
    if (buses == 0)
        notes.push_back("no usbfs nodes under " + usbfsSource + ": the root hub and port tests will not find them");
    else
        notes.push_back(std::string(procBusUsb) + "/BBB <- " + usbfsSource + "/BBB (" + std::to_string(buses) +
                        (buses == 1 ? " bus)" : " buses)"));
    return true;
}

}  // namespace host
