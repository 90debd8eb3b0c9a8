// Splits text at any of a set of separator characters.
//   - A leading separator gives an empty first token, and two separators in
//     a row an empty token between them.
//   - HasMoreTokens() is true while any text is left behind the last
//     separator read (or, before the first token, while the text is not
//     empty).
//   - NextToken() returns the text up to the next separator (or the end) and
//     records that separator for GetLastSeparator() ('\0' at the end).
//   - LeftOverString() is the text not yet read, unsplit.
#pragma once

#include <string>

class StringTokenizer {
public:
    StringTokenizer(const std::string& text, const std::string& separators);

    bool HasMoreTokens() const;
    std::string NextToken();
    char GetLastSeparator() const { return lastSeparator; }
    std::string LeftOverString() const;

private:
    std::string text;
    std::string separators;
    std::string::size_type position = 0;
    char lastSeparator = '\0';
};

namespace StringParseUtility {
// Removes blanks, tabs, carriage returns and newlines at both ends.
// `flags` is reserved and ignored.
std::string Trim(const std::string& text, int flags = 0);
}  // namespace StringParseUtility
