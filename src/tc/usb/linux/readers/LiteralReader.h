// The USB text source over text in memory, beside USBInfoReader's files:
// the parsers take their text from it in the tests, the benchmarks and the
// fuzz targets. It counts its opens, closes and mount attempts.
#pragma once

#include <algorithm>
#include <cstring>
#include <string>

#include "tc/usb/linux/readers/USBInfoReader.h"

// Literal text read as fgets reads a file: the end is seen only by a read
// that runs into it, not by one that stops at a newline or a full buffer.
class LiteralReader : public USBInfoReader {
public:
    explicit LiteralReader(std::string text, bool opens = true) : text(std::move(text)), opens(opens) {}
    int opened = 0, closed = 0, mounts = 0;
    bool isOpen = false;

    bool open() override {
        if (opens) {
            position = 0;
            atEnd = false;
            isOpen = true;
            ++opened;
        }
        return opens;
    }
    void close() override {
        closed += isOpen;
        isOpen = false;
    }
    char* readLine(char* buffer) override {
        if (!isOpen || position >= text.size()) {
            atEnd = true;
            return nullptr;
        }
        const size_t room = lineBufferSize - 1, newline = text.find('\n', position);
        const size_t length = std::min(room, (newline == std::string::npos ? text.size() : newline + 1) - position);
        std::memcpy(buffer, text.data() + position, length);
        buffer[length] = '\0';
        position += length;
        if (position >= text.size() && buffer[length - 1] != '\n' && length < room) atEnd = true;
        return buffer;
    }
    bool noMoreLines() override { return atEnd; }
    void mountProcUsb() override { ++mounts; }

private:
    std::string text;
    bool opens;
    size_t position = 0;
    bool atEnd = false;
};
