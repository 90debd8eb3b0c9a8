// The text helpers that device order, expressions and commands rest on.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/StringTokenizer.h"
#include "common/StringUtil.h"
#include "common/TickTimer.h"

namespace {

int sign(int v) { return (v > 0) - (v < 0); }

TEST(StrNumCmp, DigitRunsCompareByValue) {
    const struct {
        const char *a, *b;
        int expected;
    } cases[] = {
        {"usbDevice2", "usbDevice10", -1}, {"usbDevice10", "usbDevice9", 1}, {"usbDevice3", "usbDevice3", 0},
        {"usbDevice", "usbDevice0", -1},   {"a2b10", "a2b9", 1},             {"a01", "a1", 1},
        {"a1", "a01", -1},                 {"abc", "abd", -1},               {"", "", 0},
        {"9", "10", -1},                   {"x99999999999999999999", "x100000000000000000000", -1},
        {"Hub", "hub", -1},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(sign(strnumcmp(c.a, c.b)), c.expected) << c.a << " vs " << c.b;
        EXPECT_EQ(sign(strnumcmp(c.b, c.a)), -c.expected) << c.b << " vs " << c.a;
    }
}

TEST(CompareNoCase, WholeLengthWithoutRegardToCase) {
    EXPECT_EQ(compare_nocase("GetDiagVersion", "getdiagversion", 14), 0);
    EXPECT_NE(compare_nocase("catalog", "catalogs", 8), 0);
    EXPECT_EQ(compare_nocase("catalog", "catalogs", 7), 0);
    EXPECT_LT(compare_nocase("abc", "ABD", 3), 0);
}

std::vector<std::string> tokens(StringTokenizer t, std::string* separators = nullptr) {
    std::vector<std::string> out;
    while (t.HasMoreTokens()) {
        out.push_back(t.NextToken());
        if (separators) *separators += t.GetLastSeparator() ? t.GetLastSeparator() : '|';
    }
    return out;
}

TEST(Tokenizer, SeparatorsAndLeftOver) {
    std::string seps;
    EXPECT_EQ(tokens(StringTokenizer("2*3+4", "+-*/"), &seps), (std::vector<std::string>{"2", "3", "4"}));
    EXPECT_EQ(seps, "*+|");
    // A leading separator and two in a row give empty tokens; a trailing
    // separator leaves nothing more to read.
    EXPECT_EQ(tokens(StringTokenizer("-5", "+-")), (std::vector<std::string>{"", "5"}));
    EXPECT_EQ(tokens(StringTokenizer("3*-2", "*-")), (std::vector<std::string>{"3", "", "2"}));
    EXPECT_EQ(tokens(StringTokenizer("a b ", " ")), (std::vector<std::string>{"a", "b"}));
    EXPECT_TRUE(tokens(StringTokenizer("", " ")).empty());

    StringTokenizer t("10-2+3", "+-");
    EXPECT_EQ(t.NextToken(), "10");
    EXPECT_EQ(t.GetLastSeparator(), '-');
    EXPECT_EQ(t.LeftOverString(), "2+3");
    EXPECT_EQ(t.NextToken(), "2");
    EXPECT_EQ(t.NextToken(), "3");
    EXPECT_EQ(t.GetLastSeparator(), '\0');
    EXPECT_EQ(t.LeftOverString(), "");
    EXPECT_EQ(t.NextToken(), "");
}

TEST(TextHelpers, TrimFormatCopyAndElapsedTime) {
    EXPECT_EQ(StringParseUtility::Trim("  2.00 \n", 0), "2.00");
    EXPECT_EQ(StringParseUtility::Trim(" \t ", 0), "");
    std::string wide(1000, 'x');
    EXPECT_EQ(strprintf("%s-%d", wide.c_str(), 7), wide + "-7");
    char* copy = stringdup("abc");
    EXPECT_STREQ(copy, "abc");
    delete[] copy;
    copy = stringdup(nullptr);
    EXPECT_STREQ(copy, "");
    delete[] copy;
    EXPECT_EQ(GetElapsedTimeString(0.0), "00:00:00.000");
    EXPECT_EQ(GetElapsedTimeString(3723.4567), "01:02:03.457");
    EXPECT_EQ(GetElapsedTimeString(-5), "00:00:00.000");
    EXPECT_TRUE(FileExists("/"));
    EXPECT_FALSE(FileExists("/no/such/file"));
}

}  // namespace
