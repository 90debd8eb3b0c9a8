// The text helpers that device order, expressions and commands rest on.
#include <gtest/gtest.h>

#include <string>

#include "common/StringTokenizer.h"
#include "common/StringUtil.h"
#include "common/TickTimer.h"

namespace {

TEST(StrNumCmp, DigitRunsCompareByValue) {
    const struct { const char *a, *b; int expected; } cases[] = {
        {"usbDevice2", "usbDevice10", -1}, {"usbDevice10", "usbDevice9", 1}, {"usbDevice3", "usbDevice3", 0},
        {"usbDevice", "usbDevice0", -1}, {"a2b10", "a2b9", 1}, {"a01", "a1", 1}, {"abc", "abd", -1}, {"", "", 0},
        {"9", "10", -1}, {"x99999999999999999999", "x100000000000000000000", -1}, {"Hub", "hub", -1},
    };
    auto sign = [](int v) { return (v > 0) - (v < 0); };
    for (const auto& c : cases)
        EXPECT_EQ(std::make_pair(sign(strnumcmp(c.a, c.b)), sign(strnumcmp(c.b, c.a))),
                  std::make_pair(c.expected, -c.expected)) << c.a << " vs " << c.b;
}

TEST(Tokenizer, SeparatorsEmptyTokensAndLeftOver) {
    // Each token, its separator ('|' at the end) and what is left behind it, then one more token past the end.
    auto split = [](const char* text, const char* separators) {
        std::string out;
        StringTokenizer t(text, separators);
        while (t.HasMoreTokens()) {
            out += t.NextToken();
            out += (t.GetLastSeparator() ? t.GetLastSeparator() : '|') + t.LeftOverString() + " ";
        }
        return out + "[" + t.NextToken() + "]";
    };
    EXPECT_EQ(split("10-2+3", "+-"), "10-2+3 2+3 3| []");
    EXPECT_EQ(split("-5", "+-"), "-5 5| []");  // a leading separator gives an empty token
    EXPECT_EQ(split("3*-2", "*-"), "3*-2 -2 2| []");
    EXPECT_EQ(split("a b ", " "), "a b  b  []");  // nothing left behind a trailing one
    EXPECT_EQ(split("", " "), "[]");
}

TEST(TextHelpers, TrimFormatAndElapsedTime) {
    EXPECT_EQ(StringParseUtility::Trim("  2.00 \r\n", 0) + "|" + StringParseUtility::Trim(" \t ", 0), "2.00|");
    std::string wide(1000, 'x');
    EXPECT_EQ(strprintf("%s-%d", wide.c_str(), 7), wide + "-7");
    EXPECT_EQ(GetElapsedTimeString(0.0) + GetElapsedTimeString(3723.4567) + GetElapsedTimeString(-5),
              "00:00:00.00001:02:03.45700:00:00.000");
}

}  // namespace
