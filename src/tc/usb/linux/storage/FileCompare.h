// The byte compare of the storage tests: a reference file against what a
// drive gives back. The drive is read past the page cache, so the bytes come
// from the medium and a drive that loses writes fails: with O_DIRECT into
// aligned buffers where the device takes it, otherwise after its written
// pages are flushed and its cached pages dropped.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

// How much of `second` is compared.
enum class CompareSpan {
    firstLength,  // as many bytes as `first` has: `second` is a disk, longer than the file
    whole,        // all of it: `second` is a file that must equal `first`
};

// Throws TvkError with `detail` as its second text: "Could not locate
// files" when either file cannot be opened, "Read Data Failure" when a side
// gives no bytes at all (`first` is read first), "Data Comparison Failure"
// when the lengths or the bytes differ.
void CompareFileContents(const std::string& first, const std::string& second, const std::string& detail,
                         CompareSpan span);

// Writes what is buffered for `fd` to the medium and asks the kernel to drop
// its cached pages, so that the next read comes from the device.
void FlushAndDropCache(int fd);

// Memory that O_DIRECT transfers accept: aligned to MediumReader::alignment.
struct AlignedBuffer {
    explicit AlignedBuffer(size_t size);
    char* data() const { return bytes.get(); }
    size_t size;

private:
    struct Free {
        void operator()(char* p) const;
    };
    std::unique_ptr<char, Free> bytes;
};

// Reads a file or disk from its first byte, from the medium.
class MediumReader {
public:
    // Buffer addresses, read sizes and offsets of direct transfers are
    // multiples of this; it covers the logical block sizes of disks.
    static const size_t alignment = 4096;

    explicit MediumReader(const std::string& path);
    ~MediumReader();
    MediumReader(const MediumReader&) = delete;
    MediumReader& operator=(const MediumReader&) = delete;

    bool IsOpen() const { return fd >= 0; }
    // True while reads bypass the page cache with O_DIRECT.
    bool Direct() const { return direct; }
    // Fills `buffer` (from an AlignedBuffer; `size` a multiple of alignment)
    // as far as the file allows: fewer bytes only at its end.
    size_t Read(char* buffer, size_t size);

private:
    // The cached road from the current offset on, for a device that refused
    // a direct transfer after it accepted the open.
    bool FallBack();
    std::string path;
    int fd = -1;
    bool direct = false;
    off_t offset = 0;
};
