#include "tc/usb/linux/FileCompare.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

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

void CompareFileContents(const std::string& first, const std::string& second, const std::string& detail,
                         CompareSpan span) {
    Fd one(open(first.c_str(), O_RDONLY | O_CLOEXEC));
    Fd two(open(second.c_str(), O_RDONLY | O_CLOEXEC));
    if (one.get() < 0 || two.get() < 0) throw TvkError("Could not locate files", detail, "");
    posix_fadvise(one.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
    // What the drive holds, not what the page cache remembers of the write.
    FlushAndDropCache(two.get());
    posix_fadvise(two.get(), 0, 0, POSIX_FADV_SEQUENTIAL);

    std::unique_ptr<char[]> a(new char[chunkSize]);
    std::unique_ptr<char[]> b(new char[chunkSize]);
    size_t total = 0;
    for (;;) {
        const size_t gotA = ReadFull(one.get(), a.get(), chunkSize);
        if (gotA == 0 && total == 0) throw TvkError("Read Data Failure", detail, "");
        const size_t wantB = gotA == 0 ? 1 : gotA;
        const size_t gotB = gotA == 0 && span == CompareSpan::firstLength ? 0 : ReadFull(two.get(), b.get(), wantB);
        if (gotB == 0 && total == 0) throw TvkError("Read Data Failure", detail, "");
        if (gotA == 0) {
            // The end of `first`: a whole compare wants `second` to end too.
            if (gotB != 0) throw TvkError("Data Comparison Failure", detail, "");
            return;
        }
        if (gotB != gotA || std::memcmp(a.get(), b.get(), gotA) != 0)
            throw TvkError("Data Comparison Failure", detail, "");
        total += gotA;
        if (gotA < chunkSize) {
            if (span == CompareSpan::whole && ReadFull(two.get(), b.get(), 1) != 0)
                throw TvkError("Data Comparison Failure", detail, "");
            return;
        }
    }
}
