// The byte compare of the storage tests: a reference file against what a
// drive gives back. The drive's side is flushed and dropped from the page
// cache before it is read, so the bytes come from the medium and a drive
// that loses writes fails.
#pragma once

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
