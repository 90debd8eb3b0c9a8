// The text helpers that device order, expressions and commands rest on.
#include <gtest/gtest.h>

#include <string>
#include <vector>

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
    for (const auto& c : cases) {
        EXPECT_EQ(sign(strnumcmp(c.a, c.b)), c.expected) << c.a << " vs " << c.b;
        EXPECT_EQ(sign(strnumcmp(c.b, c.a)), -c.expected) << c.b << " vs " << c.a;
    }
}

TEST(Tokenizer, SeparatorsEmptyTokensAndLeftOver) {
    // Tokens, each followed by its separator ('|' at the end).
    auto split = [](const char* text, const char* separators) {
        std::string out;
        for (StringTokenizer t(text, separators); t.HasMoreTokens();) {
            out += t.NextToken();
            out += t.GetLastSeparator() ? t.GetLastSeparator() : '|';
        }
        return out;
    };
    EXPECT_EQ(split("2*3+4", "+-*/"), "2*3+4|");
    EXPECT_EQ(split("-5", "+-"), "-5|");  // a leading separator gives an empty token
    EXPECT_EQ(split("3*-2", "*-"), "3*-2|");
    EXPECT_EQ(split("a b ", " "), "a b ");  // nothing left behind a trailing one
    EXPECT_EQ(split("", " "), "");

    StringTokenizer t("10-2+3", "+-");
    EXPECT_EQ(t.NextToken(), "10");
    EXPECT_EQ(t.GetLastSeparator(), '-');
    EXPECT_EQ(t.LeftOverString(), "2+3");
    t.NextToken();
    EXPECT_EQ(t.NextToken(), "3");
    EXPECT_EQ(t.GetLastSeparator(), '\0');
    EXPECT_EQ(t.LeftOverString(), "");
    EXPECT_EQ(t.NextToken(), "");
}

TEST(TextHelpers, TrimFormatAndElapsedTime) {
    EXPECT_EQ(StringParseUtility::Trim("  2.00 \r\n", 0), "2.00");
    EXPECT_EQ(StringParseUtility::Trim(" \t ", 0), "");
    std::string wide(1000, 'x');
    EXPECT_EQ(strprintf("%s-%d", wide.c_str(), 7), wide + "-7");
    EXPECT_EQ(GetElapsedTimeString(0.0), "00:00:00.000");
    EXPECT_EQ(GetElapsedTimeString(3723.4567), "01:02:03.457");
    EXPECT_EQ(GetElapsedTimeString(-5), "00:00:00.000");
}

}  // namespace
