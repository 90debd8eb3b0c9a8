// The kernel's devices file as both of its readers take it, the tree parser
// (USBtree) and the port scan (UsbFileParser): the loop over the reader's
// lines, the newline cut off a line, and the one reader of a number or a
// text behind a key. All inline: the tree parser of a large machine comes
// through here for every line and every key.
#pragma once

#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tc/usb/linux/readers/USBInfoReader.h"

namespace devicesfile {

// Hands every whole line of the reader's open text to `parse`, newline and
// all, until the text ends or `parse` returns false. `buffer` holds
// USBInfoReader::lineBufferSize bytes. A line longer than that arrives in
// pieces and only its last piece ends in a newline, so only that piece is
// parsed; a last line without a newline is not parsed at all.
template <class Parse>
void ScanLines(USBInfoReader& reader, char* buffer, Parse&& parse) {
    std::memset(buffer, 0, USBInfoReader::lineBufferSize);
    for (;;) {
        if (!reader.readLine(buffer)) break;  // the end, or a read error that would never reach it
        // A reader that does not terminate its text cannot make us read on.
        buffer[USBInfoReader::lineBufferSize - 1] = '\0';
        const size_t length = std::strlen(buffer);
        if (length > 0 && buffer[length - 1] == '\n' && !parse(buffer)) break;
        if (reader.noMoreLines()) break;
    }
}

// Cuts the newline that ends a line from ScanLines; false for an empty line.
// The first character then says what the line is.
inline bool CutNewline(char* line) {
    const size_t length = std::strlen(line);
    if (length == 0) return false;
    line[length - 1] = '\0';
    return true;
}

// Where `key` first stands in `line`, as strstr finds it; null without it.
// The key's first character is looked for with strchr and the rest compared
// there: lines are short and most keys' first letters rare in them.
template <size_t N>
const char* Find(const char* line, const char (&key)[N]) {
    static_assert(N >= 2, "a key has a character at least");
    for (const char* at = std::strchr(line, key[0]); at; at = std::strchr(at + 1, key[0]))
        if (std::strncmp(at + 1, key + 1, N - 2) == 0) return at;
    return nullptr;
}

inline bool IsDigit(char c, int base) {
    if (c >= '0' && c <= '9') return true;
    return base == 16 && ((c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'));
}

inline int DigitValue(char c) {
    if (c <= '9') return c - '0';
    return (c | 0x20) - 'a' + 10;
}

// strtol(text, nullptr, base) held to 32 bits, as strtol itself holds it on
// the 32-bit target, so that no value wraps into range on another. The
// usual forms (blanks, then a few digits) are read here; anything else
// (signs, other white space, a "0x", long runs of digits) is left to strtol.
// Out of line, so that the key readers that call it stay small enough to be
// inlined into every line handler of the tree parser.
[[gnu::noinline]] inline int Number(const char* text, int base) {
    const char* at = text;
    while (*at == ' ') ++at;
    if (IsDigit(*at, base) && !(base == 16 && at[0] == '0' && (at[1] == 'x' || at[1] == 'X'))) {
        // Seven hex digits or nine decimal ones fit in an int.
        const int most = base == 16 ? 7 : 9;
        int value = 0, count = 0;
        for (; count < most && IsDigit(at[count], base); ++count) value = value * base + DigitValue(at[count]);
        if (!IsDigit(at[count], base)) return value;
    }
    const long value = std::strtol(text, nullptr, base);
    if (value > INT_MAX) return INT_MAX;
    if (value < INT_MIN) return INT_MIN;
    return static_cast<int>(value);
}

// The number right behind `key`; 0 when the line has no such key.
template <size_t N>
int IntAfter(const char* line, const char (&key)[N], int base) {
    const char* found = Find(line, key);
    return found ? Number(found + N - 1, base) : 0;
}

// `target` becomes at most `maxLength` characters right behind `key`;
// unchanged when the line has no such key.
template <size_t N>
void StringAfter(std::string& target, const char* line, const char (&key)[N], size_t maxLength) {
    const char* found = Find(line, key);
    if (!found) return;
    const char* value = found + N - 1;
    target.assign(value, strnlen(value, maxLength));
}

// The same two for a key known only at run time.
inline int IntAfterKey(const char* line, const char* key, int base) {
    const char* found = line ? std::strstr(line, key) : nullptr;
    return found ? Number(found + std::strlen(key), base) : 0;
}

inline void StringAfterKey(std::string& target, const char* line, const char* key, size_t maxLength) {
    const char* found = line ? std::strstr(line, key) : nullptr;
    if (!found) return;
    const char* value = found + std::strlen(key);
    target.assign(value, strnlen(value, maxLength));
}

}  // namespace devicesfile
