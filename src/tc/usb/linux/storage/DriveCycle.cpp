#include "tc/usb/linux/storage/DriveCycle.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>

#include "common/Debug.h"
#include "common/StringUtil.h"
#include "common/Translate.h"
#include "common/TvkError.h"
#include "platform/SystemHelpers.h"
#include "tc/usb/linux/storage/DriveGuard.h"
#include "tc/usb/linux/storage/FileCompare.h"
#include "tc/usb/linux/storage/Hash64.h"
#include "tc/usb/linux/storage/ScsiPathMapping.h"

const char* const drivePendingText = "Drive has saved bytes not yet restored; it is not written";
const char* const driveNotSavedText = "Drive bytes could not be saved; it is not written";
const char* const driveNotRestoredText = "Drive could not be restored; its saved bytes are kept";

namespace {

// The unit of every transfer: a multiple of any logical block size and of
// the alignment of direct reads. A few buffers of this size are all the
// memory a cycle needs, whatever the reference's length.
const size_t chunkSize = 1 << 20;
// Longer than any header: two texts of at most 4096 bytes and short fields.
const size_t headerLimit = 16384;

class Fd {
public:
    explicit Fd(int fd = -1) : fd(fd) {}
    ~Fd() { Reset(); }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    int get() const { return fd; }
    void Reset(int other = -1) {
        if (fd >= 0) close(fd);
        fd = other;
    }
    int Release() {
        const int kept = fd;
        fd = -1;
        return kept;
    }

private:
    int fd;
};

bool ReadAt(int fd, char* buffer, size_t size, uint64_t offset) {
    size_t done = 0;
    while (done < size) {
        const ssize_t n = pread(fd, buffer + done, size - done, static_cast<off_t>(offset + done));
        if (n > 0) {
            done += static_cast<size_t>(n);
        } else if (n == 0 || errno != EINTR) {
            return false;
        }
    }
    return true;
}

// Bytes written; fewer than `size` when the file takes no more.
size_t WriteAt(int fd, const char* buffer, size_t size, uint64_t offset) {
    size_t done = 0;
    while (done < size) {
        const ssize_t n = pwrite(fd, buffer + done, size - done, static_cast<off_t>(offset + done));
        if (n > 0) {
            done += static_cast<size_t>(n);
        } else if (n == 0 || errno != EINTR) {
            break;
        }
    }
    return done;
}

// Copies `size` bytes of `in` from `inOffset` to the start of `out`; gives
// the bytes copied, fewer when either side ends. The kernel copies from
// cache to cache where it can (one copy instead of two through a buffer);
// devices that take no such copy go through `buffer` (chunkSize bytes).
uint64_t CopyToStart(int out, int in, uint64_t inOffset, uint64_t size, char* buffer) {
    uint64_t done = 0;
    if (lseek(out, 0, SEEK_SET) == 0) {
        while (done < size) {
            off_t from = static_cast<off_t>(inOffset + done);
            const ssize_t n = sendfile(out, in, &from, static_cast<size_t>(std::min<uint64_t>(size - done, 1 << 30)));
            if (n > 0) {
                done += static_cast<uint64_t>(n);
            } else if (n < 0 && errno == EINTR) {
                continue;
            } else {
                if (n == 0 || done > 0 || (errno != EINVAL && errno != ENOSYS)) return done;
                dbgprintf("No copy in the kernel; copying through a buffer\n");
                break;
            }
        }
        if (done == size) return done;
    }
    while (done < size) {
        const size_t n = static_cast<size_t>(std::min<uint64_t>(chunkSize, size - done));
        const ssize_t got = pread(in, buffer, n, static_cast<off_t>(inOffset + done));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        const size_t put = WriteAt(out, buffer, static_cast<size_t>(got), done);
        done += put;
        if (put < static_cast<size_t>(got)) break;
    }
    return done;
}

// Fills `buffer` from the file's position; fewer bytes only at its end.
size_t ReadUpTo(int fd, char* buffer, size_t size) {
    size_t done = 0;
    while (done < size) {
        const ssize_t n = read(fd, buffer + done, size - done);
        if (n > 0) {
            done += static_cast<size_t>(n);
        } else if (n == 0 || errno != EINTR) {
            break;
        }
    }
    return done;
}

// What a drive holds: a disk's size, a stand-in file's length; nothing for
// other devices (/dev/null, /dev/zero), which keep no bytes to save.
uint64_t DriveSize(int fd) {
    struct stat info {};
    if (fstat(fd, &info) != 0) return 0;
    if (S_ISREG(info.st_mode)) return static_cast<uint64_t>(info.st_size);
    if (!S_ISBLK(info.st_mode)) return 0;
    const off_t end = lseek(fd, 0, SEEK_END);
    return end > 0 ? static_cast<uint64_t>(end) : 0;
}

// A rename or removal in `directory` survives a power cut from here on.
void SyncDirectory(const std::string& directory) {
    Fd dir(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (dir.get() >= 0) fsync(dir.get());
}

// Empty when `disk` reads back, from the medium, as the saved bytes.
std::string ReadsBackAsSaved(const std::string& disk, const SavedDriveFile& file) {
    MediumReader reader(disk);
    if (!reader.IsOpen()) return "the drive cannot be read";
    AlignedBuffer buffer(chunkSize);
    Hash64 hash;
    for (uint64_t done = 0; done < file.length;) {
        const size_t wanted = static_cast<size_t>(std::min<uint64_t>(chunkSize, file.length - done));
        const size_t got = reader.Read(buffer.data(), chunkSize);
        if (got < wanted) return "the drive reads back shorter";
        hash.Update(buffer.data(), wanted);
        done += wanted;
    }
    return hash.Digest() == file.savedSum ? "" : "the drive reads back other bytes";
}

// Writes the saved bytes of `saved` back to the drive and proves them on
// the medium; empty on success, else what failed.
std::string WriteBack(int drive, const std::string& disk, int saved, const SavedDriveFile& file) {
    std::unique_ptr<char[]> buffer(new char[chunkSize]);
    if (CopyToStart(drive, saved, file.DataOffset(), file.length, buffer.get()) != file.length)
        return "the drive refused the write";
    // A stand-in file that the reference made longer gets its length back.
    struct stat info {};
    if (fstat(drive, &info) == 0 && S_ISREG(info.st_mode) && static_cast<uint64_t>(info.st_size) > file.size &&
        ftruncate(drive, static_cast<off_t>(file.size)) != 0)
        return "the drive refused the write";
    // Devices without a cache (/dev/null) answer EINVAL.
    if (fsync(drive) != 0 && errno != EINVAL) return "the drive refused the flush";
    posix_fadvise(drive, 0, 0, POSIX_FADV_DONTNEED);
    return ReadsBackAsSaved(disk, file);
}

// Reads and checks a saved-bytes file; empty when it is whole.
std::string CheckSavedFile(int fd, SavedDriveFile& file) {
    std::string head(headerLimit, '\0');
    head.resize(ReadUpTo(fd, &head[0], headerLimit));
    const std::string problem = ParseSavedDriveHeader(head, file);
    if (!problem.empty()) return problem;
    struct stat info {};
    if (fstat(fd, &info) != 0 || static_cast<uint64_t>(info.st_size) != file.FileSize()) return "file length wrong";
    std::unique_ptr<char[]> buffer(new char[chunkSize]);
    Hash64 list, data;
    for (uint64_t at = file.ListOffset(); at < file.FileSize();) {
        const size_t n = static_cast<size_t>(std::min<uint64_t>(chunkSize, file.FileSize() - at));
        if (!ReadAt(fd, buffer.get(), n, at)) return "file length wrong";
        // The block list ends inside a chunk; each side gets its bytes.
        const uint64_t listLeft = at < file.DataOffset() ? file.DataOffset() - at : 0;
        const size_t inList = static_cast<size_t>(std::min<uint64_t>(n, listLeft));
        list.Update(buffer.get(), inList);
        data.Update(buffer.get() + inList, n - inList);
        at += n;
    }
    if (list.Digest() != file.writtenSum) return "block list checksum wrong";
    if (data.Digest() != file.savedSum) return "saved bytes checksum wrong";
    return "";
}

// True when every block of the drive's region holds its saved bytes or
// what the test wrote there: nobody but the test changed the drive since.
bool OnlyTheTestChangedIt(const std::string& disk, int saved, const SavedDriveFile& file) {
    MediumReader reader(disk);
    if (!reader.IsOpen()) return false;
    AlignedBuffer onDrive(chunkSize);
    std::unique_ptr<char[]> kept(new char[chunkSize]);
    std::unique_ptr<unsigned char[]> list(new unsigned char[chunkSize / 512 * 8]);
    for (uint64_t done = 0; done < file.length;) {
        const size_t n = static_cast<size_t>(std::min<uint64_t>(chunkSize, file.length - done));
        const size_t blocks = static_cast<size_t>((n + file.block - 1) / file.block);
        if (reader.Read(onDrive.data(), chunkSize) < n || !ReadAt(saved, kept.get(), n, file.DataOffset() + done) ||
            !ReadAt(saved, reinterpret_cast<char*>(list.get()), blocks * 8, file.ListOffset() + done / file.block * 8))
            return false;
        for (size_t b = 0; b < blocks; ++b) {
            const size_t start = b * file.block, size = std::min<size_t>(file.block, n - start);
            if (std::memcmp(onDrive.data() + start, kept.get() + start, size) != 0 &&
                Hash64::Of(onDrive.data() + start, size) != GetChecksum(list.get() + 8 * b))
                return false;
        }
        done += n;
    }
    return true;
}

std::string Format(const char* text, const std::string& a, const std::string& b = "", const std::string& c = "",
                   const std::string& d = "") {
    return strprintf(Translate(text).c_str(), a.c_str(), b.c_str(), c.c_str(), d.c_str());
}

RecoveryEvent NotRestored(const std::string& description) { return {Translate("Drive Not Restored"), description}; }

// Serial number to disk path of the connected drives, listed when first
// asked: a directory of damaged files runs no tool.
class ConnectedDrives {
public:
    std::string DiskOf(const std::string& serial) {
        if (!listed) {
            listed = true;
            try {
                disks = MapUSB_SerialNumbersToDiskPaths();
            } catch (const std::exception& e) {
                dbgprintf("Drives not listed: %s\n", e.what());
            }
        }
        const auto found = disks.find(serial);
        return found == disks.end() ? std::string() : found->second;
    }

private:
    bool listed = false;
    std::map<std::string, std::string> disks;
};

RecoveryEvent RecoverOne(const std::string& directory, const std::string& name, ConnectedDrives& drives) {
    const std::string path = directory + "/" + name;
    Fd saved(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat info {};
    SavedDriveFile file;
    std::string problem = "not a saved drive file";
    if (saved.get() >= 0 && fstat(saved.get(), &info) == 0 && S_ISREG(info.st_mode))
        problem = CheckSavedFile(saved.get(), file);
    if (!problem.empty()) return NotRestored(Format("%s is damaged (%s); it is left alone", path, Translate(problem)));

    const std::string disk = drives.DiskOf(file.serial);
    if (disk.empty())
        return NotRestored(
            Format("No drive with serial %s is connected; its saved bytes stay in %s", file.serial, path));
    const char* const notWritten = "%s (serial %s) is not written back (%s); its saved bytes stay in %s";
    Fd drive;
    try {
        RefuseDriveInUse(disk, disk);
        drive.Reset(OpenDriveExclusively(disk, disk));
    } catch (const TvkError& refused) {
        return NotRestored(Format(notWritten, disk, file.serial, refused.GetMessage(), path));
    }
    if (!OnlyTheTestChangedIt(disk, saved.get(), file))
        return NotRestored(
            Format(notWritten, disk, file.serial, Translate("it was changed after the test wrote it"), path));
    problem = WriteBack(drive.get(), disk, saved.get(), file);
    if (!problem.empty()) return NotRestored(Format(notWritten, disk, file.serial, Translate(problem), path));
    unlink(path.c_str());
    SyncDirectory(directory);
    return {Translate("Drive Restored"),
            Format("%s (serial %s) holds its saved bytes again; %s removed", disk, file.serial, path)};
}

// The saved-bytes files in `directory`. Partial ones are dropped: their
// drive was never written.
std::vector<std::string> SavedFilesIn(const std::string& directory) {
    std::vector<std::string> names;
    DIR* dir = opendir(directory.c_str());
    if (!dir) return names;
    while (const dirent* entry = readdir(dir)) {
        const std::string name = entry->d_name;
        struct stat info {};
        if (lstat((directory + "/" + name).c_str(), &info) != 0) continue;
        if (IsSavedDriveFileName(name)) {
            names.push_back(name);
        } else if (S_ISREG(info.st_mode) && name.size() > 5 && IsSavedDriveFileName(name.substr(0, name.size() - 5)) &&
                   PartialName(name.substr(0, name.size() - 5)) == name) {
            dbgprintf("Removing %s/%s: a save that never finished\n", directory.c_str(), name.c_str());
            unlink((directory + "/" + name).c_str());
        }
    }
    closedir(dir);
    std::sort(names.begin(), names.end());
    return names;
}

std::mutex heldLock;
std::vector<RecoveryEvent> held;
// Every command asks; almost always there is nothing, and no lock is taken.
std::atomic<bool> anyHeld{false};

}  // namespace

DriveCycle::DriveCycle(const std::string& reference, const std::string& disk, const std::string& serial,
                       const std::string& directory, const std::string& detail)
    : reference(reference), disk(disk), serial(serial), directory(directory), detail(detail) {}

DriveCycle::~DriveCycle() {
    if (drive >= 0) close(drive);
    if (savedIn >= 0) close(savedIn);
}

void DriveCycle::Claim() {
    RefuseDriveInUse(disk, detail);
    const std::string pending = directory + "/" + SavedDriveFileName(serial);
    struct stat info {};
    if (lstat(pending.c_str(), &info) == 0) throw TvkError(Translate(drivePendingText), detail + ": " + pending, "");
    drive = OpenDriveExclusively(disk, detail);
}

void DriveCycle::Save() {
    Fd source(open(reference.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat info {};
    if (source.get() < 0 || fstat(source.get(), &info) != 0) {
        dbgprintf("Missing SSO.DAT file\n");
        throw TvkError("Could not locate files", "", "");
    }
    const uint64_t block = LogicalBlockSize(drive);
    referenceLength = static_cast<uint64_t>(info.st_size);
    const uint64_t region = (referenceLength + block - 1) / block * block;
    saved = SavedDriveFile{disk, serial, block, DriveSize(drive), 0, 0, 0};
    saved.length = std::min(region, saved.size);

    const std::string name = SavedDriveFileName(serial);
    const std::string partial = directory + "/" + PartialName(name);
    Fd out(OpenOwnFile(partial, O_TRUNC, 0600));
    auto fail = [&](const std::string& why) {
        out.Reset();
        unlink(partial.c_str());
        return TvkError(Translate(driveNotSavedText), detail + ": " + why, "");
    };
    if (out.get() < 0) throw fail("cannot create " + partial);
    // Read back later through this descriptor, whatever is put at the
    // file's name meanwhile.
    Fd in(open(partial.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    struct stat made {
    }, reading{};
    if (in.get() < 0 || fstat(out.get(), &made) != 0 || fstat(in.get(), &reading) != 0 ||
        made.st_dev != reading.st_dev || made.st_ino != reading.st_ino)
        throw fail("cannot create " + partial);
    // The whole file at once: a full write directory refuses the drive here,
    // and its space is taken in one step rather than page by page.
    if (fallocate(out.get(), 0, 0, static_cast<off_t>(saved.FileSize())) != 0 && errno != EOPNOTSUPP && errno != ENOSYS)
        throw fail("no room for " + partial);

    std::unique_ptr<char[]> kept(new char[chunkSize]), written(new char[chunkSize]);
    std::unique_ptr<unsigned char[]> list(new unsigned char[chunkSize / 512 * 8]);
    Hash64 savedHash, listHash, referenceHash;
    for (uint64_t done = 0; done < saved.length;) {
        const size_t n = static_cast<size_t>(std::min<uint64_t>(chunkSize, saved.length - done));
        if (!ReadAt(drive, kept.get(), n, done)) throw fail("the drive cannot be read");
        const size_t ours = ReadUpTo(source.get(), written.get(), n);
        referenceHash.Update(written.get(), static_cast<size_t>(std::min<uint64_t>(ours, referenceLength - done)));
        // Each block as it will read after the write: the reference, and
        // behind its end the drive's own bytes.
        const size_t blocks = static_cast<size_t>((n + block - 1) / block);
        for (size_t b = 0; b < blocks; ++b) {
            const size_t start = b * block, end = std::min<size_t>(start + block, n);
            const size_t cut = std::max(start, std::min(end, ours));
            Hash64 hash;
            hash.Update(written.get() + start, cut - start);
            hash.Update(kept.get() + cut, end - cut);
            PutChecksum(hash.Digest(), list.get() + 8 * b);
        }
        savedHash.Update(kept.get(), n);
        listHash.Update(list.get(), blocks * 8);
        const uint64_t listAt = saved.ListOffset() + done / block * 8;
        if (WriteAt(out.get(), reinterpret_cast<char*>(list.get()), blocks * 8, listAt) != blocks * 8 ||
            WriteAt(out.get(), kept.get(), n, saved.DataOffset() + done) != n)
            throw fail("cannot write " + partial);
        done += n;
    }
    saved.savedSum = savedHash.Digest();
    saved.writtenSum = listHash.Digest();
    referenceSum = referenceHash.Digest();
    const std::string header = saved.Header();
    if (WriteAt(out.get(), header.data(), header.size(), 0) != header.size() || fsync(out.get()) != 0)
        throw fail("cannot write " + partial);
    const std::string path = directory + "/" + name;
    if (rename(partial.c_str(), path.c_str()) != 0) throw fail("cannot write " + path);
    SyncDirectory(directory);
    savedPath = path;
    savedIn = in.Release();
    savedOnDisk = true;
}

bool DriveCycle::Write() {
    Fd source(open(reference.c_str(), O_RDONLY | O_CLOEXEC));
    if (source.get() < 0) throw TvkError("Could not locate files", "", "");
    struct stat info {};
    uint64_t size = fstat(source.get(), &info) == 0 ? static_cast<uint64_t>(info.st_size) : 0;
    // A reference that grew since it was saved for is cut there: nothing
    // beyond the saved bytes is ever written.
    size = std::min(size, referenceLength);
    std::unique_ptr<char[]> buffer(new char[chunkSize]);
    const bool wrote = size == 0 || CopyToStart(drive, source.get(), 0, size, buffer.get()) > 0;
    if (!wrote) dbgprintf("Write failed\n");
    // On the medium before anyone reads it back.
    FlushAndDropCache(drive);
    return wrote;
}

bool DriveCycle::ReadsBackAsReference() const {
    // An empty reference is a failure of its own, which the byte compare names.
    if (!savedOnDisk || referenceLength == 0 || saved.length < referenceLength) return false;
    MediumReader reader(disk);
    if (!reader.IsOpen()) return false;
    AlignedBuffer buffer(chunkSize);
    Hash64 hash;
    for (uint64_t done = 0; done < referenceLength;) {
        const size_t wanted = static_cast<size_t>(std::min<uint64_t>(chunkSize, referenceLength - done));
        if (reader.Read(buffer.data(), chunkSize) < wanted) return false;
        hash.Update(buffer.data(), wanted);
        done += wanted;
    }
    return hash.Digest() == referenceSum;
}

void DriveCycle::Restore() {
    if (!savedOnDisk) return;
    const std::string problem = WriteBack(drive, disk, savedIn, saved);
    if (!problem.empty())
        throw TvkError(Translate(driveNotRestoredText), detail + ": " + problem + "; saved bytes in " + savedPath, "");
    // Only the cycle's own file goes; whatever else stands at its name stays.
    struct stat own {
    }, named{};
    if (fstat(savedIn, &own) == 0 && lstat(savedPath.c_str(), &named) == 0 && own.st_dev == named.st_dev &&
        own.st_ino == named.st_ino)
        unlink(savedPath.c_str());
    SyncDirectory(directory);
    savedOnDisk = false;
}

std::vector<RecoveryEvent> RecoverSavedDrives(const std::string& directory) {
    std::vector<RecoveryEvent> events;
    try {
        ConnectedDrives drives;
        for (const std::string& name : SavedFilesIn(directory)) {
            events.push_back(RecoverOne(directory, name, drives));
            dbgprintf("%s: %s\n", events.back().caption.c_str(), events.back().description.c_str());
        }
    } catch (const std::exception& e) {
        dbgprintf("Saved drive bytes not recovered: %s\n", e.what());
    }
    return events;
}

void HoldRecoveryEvents(const std::vector<RecoveryEvent>& events) {
    if (events.empty()) return;
    std::lock_guard<std::mutex> hold(heldLock);
    held.insert(held.end(), events.begin(), events.end());
    anyHeld = true;
}

std::vector<RecoveryEvent> TakeHeldRecoveryEvents() {
    std::vector<RecoveryEvent> events;
    if (!anyHeld.load(std::memory_order_acquire)) return events;
    std::lock_guard<std::mutex> hold(heldLock);
    events.swap(held);
    anyHeld = false;
    return events;
}
