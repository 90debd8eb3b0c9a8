// A USBInfoReader over literal text, with the end-of-file behaviour of
// fgets on a file: a read that stops at a newline or a full buffer does not
// look further; the end is seen only by a read that runs into it.
#pragma once

#include <algorithm>
#include <cstring>
#include <string>

#include "tc/usb/linux/USBInfoReader.h"

class LiteralReader : public USBInfoReader {
public:
    explicit LiteralReader(std::string text, bool opens = true) : text(std::move(text)), opens(opens) {}

    int opened = 0;
    int closed = 0;
    int mounts = 0;
    bool isOpen = false;

    bool open() override {
        if (!opens) return false;
        position = 0;
        atEnd = false;
        isOpen = true;
        ++opened;
        return true;
    }
    void close() override {
        if (isOpen) ++closed;
        isOpen = false;
    }
    char* readLine(char* buffer) override {
        if (!isOpen || position >= text.size()) {
            atEnd = true;
            return nullptr;
        }
        const size_t room = lineBufferSize - 1;
        const size_t newline = text.find('\n', position);
        size_t length = (newline == std::string::npos ? text.size() : newline + 1) - position;
        if (length > room) length = room;
        std::memcpy(buffer, text.data() + position, length);
        buffer[length] = '\0';
        position += length;
        // Stopping short of a newline and of a full buffer means the end was hit.
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
