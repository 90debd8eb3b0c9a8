#include "common/StringUtil.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

std::string strprintf(const char* format, ...) {
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    char small[256];
    int needed = vsnprintf(small, sizeof small, format, args);
    va_end(args);
    std::string result;
    if (needed < 0) {
        va_end(again);
        return result;
    }
    if (static_cast<size_t>(needed) < sizeof small) {
        result.assign(small, static_cast<size_t>(needed));
    } else {
        result.resize(static_cast<size_t>(needed) + 1);
        vsnprintf(&result[0], result.size(), format, again);
        result.resize(static_cast<size_t>(needed));
    }
    va_end(again);
    return result;
}

char* stringdup(const char* text) {
    if (!text) text = "";
    size_t length = strlen(text);
    char* copy = new char[length + 1];
    memcpy(copy, text, length + 1);
    return copy;
}

int compare_nocase(const std::string& a, const std::string& b, std::string::size_type length) {
    std::string::size_type n = std::min(length, std::max(a.size(), b.size()));
    for (std::string::size_type i = 0; i < n; ++i) {
        int ca = i < a.size() ? std::tolower(static_cast<unsigned char>(a[i])) : 0;
        int cb = i < b.size() ? std::tolower(static_cast<unsigned char>(b[i])) : 0;
        if (ca != cb) return ca < cb ? -1 : 1;
        if (ca == 0) break;
    }
    return 0;
}

static bool isDigit(char c) { return c >= '0' && c <= '9'; }

int strnumcmp(const std::string& a, const std::string& b) {
    const std::string::size_type na = a.size(), nb = b.size();
    // Names of one kind share a long prefix ("usbDevice"). Equal characters
    // compare equal either way, so the walk may start where the texts first
    // differ, moved back to the start of the digit run it falls in: a run is
    // compared whole, by value.
    std::string::size_type start = 0;
    const std::string::size_type shorter = std::min(na, nb);
    for (uint64_t x = 0, y = 0; start + sizeof x <= shorter; start += sizeof x) {
        std::memcpy(&x, a.data() + start, sizeof x);
        std::memcpy(&y, b.data() + start, sizeof y);
        if (x != y) break;
    }
    while (start < shorter && a[start] == b[start]) ++start;
    while (start > 0 && isDigit(a[start - 1])) --start;
    std::string::size_type i = start, j = start;
    while (i < na && j < nb) {
        if (isDigit(a[i]) && isDigit(b[j])) {
            // Compare the two digit runs by value: skip leading zeros, then
            // the longer run is larger, then digit by digit.
            std::string::size_type si = i, sj = j;
            while (i < na && a[i] == '0') ++i;
            while (j < nb && b[j] == '0') ++j;
            std::string::size_type di = i, dj = j;
            while (i < na && isDigit(a[i])) ++i;
            while (j < nb && isDigit(b[j])) ++j;
            std::string::size_type la = i - di, lb = j - dj;
            if (la != lb) return la < lb ? -1 : 1;
            int c = std::memcmp(a.data() + di, b.data() + dj, la);
            if (c != 0) return c < 0 ? -1 : 1;
            // Same value: fewer leading zeros first, so "1" and "01" differ.
            std::string::size_type ra = i - si, rb = j - sj;
            if (ra != rb) return ra < rb ? -1 : 1;
            continue;
        }
        unsigned char ca = static_cast<unsigned char>(a[i]), cb = static_cast<unsigned char>(b[j]);
        if (ca != cb) return ca < cb ? -1 : 1;
        ++i;
        ++j;
    }
    if (i < na) return 1;
    if (j < nb) return -1;
    return 0;
}

bool FileExists(const std::string& path) {
    FILE* f = fopen(path.c_str(), "re");
    if (!f) return false;
    fclose(f);
    return true;
}

bool ReadFileContents(const std::string& path, std::string& text, size_t limit) {
    text.clear();
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    char buffer[8192];
    bool fits = true;
    for (;;) {
        const ssize_t n = read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        if (static_cast<size_t>(n) > limit - text.size()) {
            fits = false;
            break;
        }
        text.append(buffer, static_cast<size_t>(n));
    }
    close(fd);
    return fits;
}
