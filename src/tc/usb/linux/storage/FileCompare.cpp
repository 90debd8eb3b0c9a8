#include "tc/usb/linux/storage/FileCompare.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

#include "common/Debug.h"
#include "common/TvkError.h"

namespace {

// Large reads keep the system call count low; two buffers of this size are
// all the memory a compare of any length needs.
const size_t chunkSize = 1 << 20;

class Fd {
public:
    explicit Fd(int fd) : fd(fd) {}
    ~Fd() {
        if (fd >= 0) close(fd);
    }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    int get() const { return fd; }

private:
    int fd;
};

// Fills `buffer` as far as the file allows; fewer bytes only at its end.
size_t ReadFull(int fd, char* buffer, size_t wanted) {
    size_t got = 0;
    while (got < wanted) {
        const ssize_t n = read(fd, buffer + got, wanted - got);
        if (n > 0) {
            got += static_cast<size_t>(n);
        } else if (n == 0 || errno != EINTR) {
            break;
        }
    }
    return got;
}

}  // namespace

void FlushAndDropCache(int fd) {
    fsync(fd);
    posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
}

AlignedBuffer::AlignedBuffer(size_t size) : size(size) {
    void* memory = nullptr;
    if (posix_memalign(&memory, MediumReader::alignment, size ? size : 1) != 0) throw std::bad_alloc();
    bytes.reset(static_cast<char*>(memory));
}

void AlignedBuffer::Free::operator()(char* p) const { std::free(p); }

MediumReader::MediumReader(const std::string& path) : path(path) {
    // A file system without direct transfers (tmpfs) refuses the open.
    fd = open(path.c_str(), O_RDONLY | O_DIRECT | O_CLOEXEC);
    if (fd >= 0) {
        direct = true;
    } else if ((fd = open(path.c_str(), O_RDONLY | O_CLOEXEC)) >= 0) {
        FlushAndDropCache(fd);
        posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
    }
    if (fd >= 0) dbgprintf("%s is read back %s\n", path.c_str(), direct ? "directly" : "through a dropped cache");
}

MediumReader::~MediumReader() {
    if (fd >= 0) close(fd);
}

bool MediumReader::FallBack() {
    const int cached = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (cached < 0) return false;
    close(fd);
    fd = cached;
    direct = false;
    FlushAndDropCache(fd);
    dbgprintf("%s refused a direct read; read back through a dropped cache\n", path.c_str());
    return lseek(fd, offset, SEEK_SET) == offset;
}

size_t MediumReader::Read(char* buffer, size_t size) {
    size_t got = 0;
    while (got < size) {
        const ssize_t n = read(fd, buffer + got, size - got);
        if (n > 0) {
            got += static_cast<size_t>(n);
            offset += n;
            // A direct transfer that ends short has met the end; what
            // follows would be misaligned.
            if (direct && got % alignment != 0) break;
        } else if (n < 0 && errno == EINTR) {
            continue;
        } else if (n < 0 && errno == EINVAL && direct && FallBack()) {
            continue;
        } else {
            break;
        }
    }
    return got;
}

void CompareFileContents(const std::string& first, const std::string& second, const std::string& detail,
                         CompareSpan span) {
    Fd one(open(first.c_str(), O_RDONLY | O_CLOEXEC));
    MediumReader two(second);
    if (one.get() < 0 || !two.IsOpen()) throw TvkError("Could not locate files", detail, "");
    posix_fadvise(one.get(), 0, 0, POSIX_FADV_SEQUENTIAL);

    std::unique_ptr<char[]> a(new char[chunkSize]);
    AlignedBuffer b(chunkSize);
    size_t total = 0;
    for (;;) {
        const size_t gotA = ReadFull(one.get(), a.get(), chunkSize);
        if (gotA == 0 && total == 0) throw TvkError("Read Data Failure", detail, "");
        // Past the end of `first`, a disk has nothing left to compare.
        if (gotA == 0 && span == CompareSpan::firstLength) return;
        // `second` is read in whole chunks: a direct transfer takes no
        // other size, and a whole compare sees there whether it is longer.
        const size_t gotB = two.Read(b.data(), chunkSize);
        if (gotB == 0 && total == 0) throw TvkError("Read Data Failure", detail, "");
        if (gotB < gotA || std::memcmp(a.get(), b.data(), gotA) != 0)
            throw TvkError("Data Comparison Failure", detail, "");
        if (span == CompareSpan::whole && gotB != gotA) throw TvkError("Data Comparison Failure", detail, "");
        total += gotA;
        if (gotA < chunkSize) return;
    }
}
