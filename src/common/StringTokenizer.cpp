#include "common/StringTokenizer.h"

StringTokenizer::StringTokenizer(const std::string& text, const std::string& separators)
    : text(text), separators(separators) {}

bool StringTokenizer::HasMoreTokens() const { return position < text.size(); }

std::string StringTokenizer::NextToken() {
    if (position >= text.size()) {
        lastSeparator = '\0';
        return std::string();
    }
    std::string::size_type end = text.find_first_of(separators, position);
    std::string token;
    if (end == std::string::npos) {
        token = text.substr(position);
        position = text.size();
        lastSeparator = '\0';
    } else {
        token = text.substr(position, end - position);
        lastSeparator = text[end];
        position = end + 1;
    }
    return token;
}

std::string StringTokenizer::LeftOverString() const {
    return position < text.size() ? text.substr(position) : std::string();
}

namespace StringParseUtility {
std::string Trim(const std::string& text, int) {
    static const char* const blanks = " \t\r\n";
    std::string::size_type first = text.find_first_not_of(blanks);
    if (first == std::string::npos) return std::string();
    std::string::size_type last = text.find_last_not_of(blanks);
    return text.substr(first, last - first + 1);
}
}  // namespace StringParseUtility
