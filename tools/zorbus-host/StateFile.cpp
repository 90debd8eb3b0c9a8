#include "StateFile.h"

#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <thread>

#include "Language.h"

namespace host {

namespace {

// "ZORBUSPT" and the format number, as the component's state files begin.
const char stateMagic[] = "ZORBUSPT";
const size_t magicSize = sizeof stateMagic - 1;

std::string Folder(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

std::string Why(int error) { return std::strerror(error); }

}  // namespace

bool StateFile::IsState(const std::string& head) {
    return head.size() >= magicSize + 4 && head.compare(0, magicSize, stateMagic) == 0;
}

bool StateFile::Check(const std::string& file, std::string& error) {
    given = path = file;
    restore = false;
    struct stat status {};
    if (stat(file.c_str(), &status) != 0) {
        const int why = errno;
        struct stat link {};
        if (why == ENOENT && lstat(file.c_str(), &link) == 0) {
            error = Format(tr("--state %s is a link to nothing; it is left as it is"), {file});
            return false;
        }
        if (why != ENOENT || access(Folder(file).c_str(), W_OK) != 0) {
            error = Format(tr("--state %s cannot be made there: %s"), {file, Why(why == ENOENT ? errno : why)});
            return false;
        }
        return true;
    }
    if (!S_ISREG(status.st_mode)) {
        error = Format(tr("--state %s is no regular file; it is left as it is"), {file});
        return false;
    }
    const int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        error = Format(tr("--state %s cannot be read: %s"), {file, Why(errno)});
        return false;
    }
    char head[magicSize + 4];
    const ssize_t got = read(fd, head, sizeof head);
    close(fd);
    if (got > 0 && !IsState(std::string(head, static_cast<size_t>(got)))) {
        error = Format(tr("--state %s is not a state file of this component; it is left as it is"), {file});
        return false;
    }
    // A link is followed: the file it names is the one replaced.
    char resolved[PATH_MAX];
    if (realpath(file.c_str(), resolved)) path = resolved;
    if (access(Folder(path).c_str(), W_OK) != 0) {
        error = Format(tr("--state %s cannot be replaced: %s"), {file, Why(errno)});
        return false;
    }
    restore = got > 0;
    return true;
}

bool StateFile::Save(const std::function<void(const std::string&)>& save, std::string& error) const {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        error = Format(tr("cannot save the state in %s: %s"), {given, Why(errno)});
        return false;
    }
    std::string bytes;
    std::thread reader([&] {
        char chunk[65536];
        for (;;) {
            const ssize_t got = read(ends[0], chunk, sizeof chunk);
            if (got > 0)
                bytes.append(chunk, static_cast<size_t>(got));
            else if (got == 0 || errno != EINTR)
                break;
        }
    });
    save("/proc/self/fd/" + std::to_string(ends[1]));
    close(ends[1]);
    reader.join();
    close(ends[0]);
    if (!IsState(bytes)) {
        error =
            Format(tr("cannot save the state in %s: the component wrote none; the file is left as it was"), {given});
        return false;
    }
    return WriteReplacing(path, bytes, error);
}

bool StateFile::WriteReplacing(const std::string& path, const std::string& bytes, std::string& error) {
    const size_t slash = path.rfind('/');
    std::string temporary = Folder(path) + "/." + path.substr(slash == std::string::npos ? 0 : slash + 1) + ".XXXXXX";
    const int fd = mkostemp(&temporary[0], O_CLOEXEC);
    auto failed = [&](const char* step, int why) {
        if (fd >= 0) unlink(temporary.c_str());
        error =
            Format(tr("cannot save the state in %s (%s: %s); the file is left as it was"), {path, tr(step), Why(why)});
        return false;
    };
    if (fd < 0) return failed("creating a file beside it", errno);
    // The new file takes the old one's mode and owner; a new one the usual mode.
    struct stat old {};
    if (stat(path.c_str(), &old) == 0) {
        if (fchown(fd, old.st_uid, old.st_gid) != 0) {
            // Only root may give a file away; the file stays the program's.
        }
        fchmod(fd, old.st_mode & 07777);
    } else {
        const mode_t mask = umask(0);
        umask(mask);
        fchmod(fd, 0666 & ~mask);
    }
    for (size_t done = 0; done < bytes.size();) {
        const ssize_t wrote = write(fd, bytes.data() + done, bytes.size() - done);
        if (wrote < 0 && errno == EINTR) continue;
        if (wrote <= 0) {
            const int why = wrote < 0 ? errno : ENOSPC;
            close(fd);
            return failed("writing", why);
        }
        done += static_cast<size_t>(wrote);
    }
    if (fsync(fd) != 0) {
        const int why = errno;
        close(fd);
        return failed("flushing", why);
    }
    if (close(fd) != 0) return failed("closing", errno);
    if (rename(temporary.c_str(), path.c_str()) != 0) return failed("renaming", errno);
    // The rename itself reaches the disk with the folder.
    const int folder = open(Folder(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder >= 0) {
        fsync(folder);
        close(folder);
    }
    return true;
}

}  // namespace host
