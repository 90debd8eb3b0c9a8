// Hand-built stored bytes, independent of optstream, for exact-format checks
// and for damaged input.
#pragma once

#include <cstdint>
#include <string>

class ByteBuilder {
public:
    // Starts with the state file header unless told otherwise.
    explicit ByteBuilder(bool header = true) {
        if (header) Raw("ZORBUSPT").U32(1);
    }
    ByteBuilder& U32(uint32_t v) {
        for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<char>((v >> (8 * i)) & 0xff));
        return *this;
    }
    ByteBuilder& Byte(unsigned char b) {
        bytes.push_back(static_cast<char>(b));
        return *this;
    }
    ByteBuilder& Raw(const std::string& text) {
        bytes += text;
        return *this;
    }
    ByteBuilder& Str(const std::string& text) { return U32(static_cast<uint32_t>(text.size())).Raw(text); }
    ByteBuilder& Null() { return U32(0); }
    ByteBuilder& New(const std::string& className) { return U32(1).Str(className); }
    ByteBuilder& Ref(uint32_t index) { return U32(2).U32(index); }
    // A TestLeaf's fields.
    ByteBuilder& LeafFields(int32_t number, uint32_t code, unsigned char flag, const std::string& text) {
        return U32(static_cast<uint32_t>(number)).U32(code).Byte(flag).Str(text);
    }
    const std::string& str() const { return bytes; }

private:
    std::string bytes;
};
