// Small text helpers of the support library.
#pragma once

#include <cstdint>
#include <string>

// printf into a std::string; no length limit.
std::string strprintf(const char* format, ...) __attribute__((format(printf, 1, 2)));
// A copy of `text` allocated with new[]; the caller releases it with
// delete[]. A null `text` gives a copy of "".
char* stringdup(const char* text);
// 0 when the first `length` characters of a and b are equal without regard
// to ASCII case (comparison stops at the end of the shorter text, as
// strncasecmp does); otherwise the sign of the first difference.
int compare_nocase(const std::string& a, const std::string& b, std::string::size_type length);
// Natural order: runs of decimal digits compare by value (leading zeros
// ignored; on equal value the shorter run first), other characters byte by
// byte. Gives <0, 0 or >0. Equal under strnumcmp means the same device name.
int strnumcmp(const std::string& a, const std::string& b);
// True when the file can be opened for reading (a directory counts).
bool FileExists(const std::string& path);
// The whole content of `path` into `text`, read through a close-on-exec
// descriptor (a stream cannot ask for one, and a program the host starts
// meanwhile must not inherit it). False when the file cannot be opened or
// holds more than `limit` bytes; a read error ends the text where it
// happened, as with a stream.
bool ReadFileContents(const std::string& path, std::string& text, size_t limit = SIZE_MAX);
