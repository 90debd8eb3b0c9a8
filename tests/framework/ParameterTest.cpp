// String and numeric parameters, the list, and the value expressions.
#include <climits>

#include "FrameworkSupport.h"
#include "common/TvkError.h"

using namespace fw;

namespace {

std::string refusal(NumericParameter<int>& p, const std::string& text) {
    try {
        p.SetValue(text);
    } catch (FrontendError& e) {
        EXPECT_EQ(e.GetMessage(), "Parameter outside acceptable range");
        return e.GetDetail();
    }
    return "accepted";
}

NumericParameter<int> oneToEight() {
    NumericParameter<int> p;
    p.Set("count", "Count", "How many", 2, 1, 8);
    return p;
}

TEST(StringParameter, DefaultComesIntoForceOnlyThroughSetValue) {
    StringParameter p("mode", "Mode", "The mode", "fast");
    EXPECT_EQ(p.GetValue(), "");
    p.SetValue("slow");
    EXPECT_EQ(p.GetValue(), "slow");
    p.SetValue("");
    EXPECT_EQ(p.GetValue(), "fast");
    p.Set("m2", "C2", "D2", "other");
    EXPECT_EQ(p.GetValue(), "fast");
    EXPECT_EQ(p.ToXml().GetXmlString(),
              "<parameter name=\"m2\" caption=\"C2\" description=\"D2\" type=\"string\" defaultValue=\"other\"/>");
}

TEST_F(FrameworkTest, EveryRunSetsEveryParameterAnew) {
    StringParameter mode;
    ScriptedTest* test = AddTest("t1");
    test->onSetParameters = [&mode](ScriptedTest& t) {
        mode.Set("mode", "Mode", "", "fast");
        t.AddParameter(&mode);
    };
    std::string seen;
    test->body = [&](ScriptedTest&, const XmlObject&, int) {
        seen = mode.GetValue();
        return true;
    };
    RunTest("t1", "mode=\"slow\"");
    EXPECT_EQ(seen, "slow");
    RunTest("t1");
    EXPECT_EQ(seen, "fast");
    RunTest("t1", "mode=\"\"");
    EXPECT_EQ(seen, "fast");
}

TEST(ParameterList, ToXmlAndParse) {
    ParameterList list;
    XmlObject empty = list.ToXml();
    EXPECT_TRUE(empty.name.empty());
    EXPECT_TRUE(empty.children.empty());

    StringParameter a("a", "A", "", "x");
    NumericParameter<int> n = oneToEight();
    StringParameter b("b", "B", "", "y");
    list.Insert(&a);
    list.Insert(&n);
    list.Insert(&b);
    XmlObject xml = list.ToXml();
    ASSERT_EQ(xml.children.size(), 3u);
    EXPECT_EQ(xml.children[1].GetXmlString(),
              "<parameter name=\"count\" caption=\"Count\" description=\"How many\" type=\"int\" defaultValue=\"2\" "
              "min=\"1\" max=\"8\"/>");

    // The first refusal ends the parse; entries before it keep their values.
    EXPECT_THROW(list.Parse(XmlObject("<run a=\"new\" count=\"99\" b=\"late\"/>")), FrontendError);
    EXPECT_EQ(a.GetValue(), "new");
    EXPECT_EQ(n.value, 99);
    EXPECT_EQ(b.GetValue(), "");
    list.Parse(XmlObject("<run/>"));
    EXPECT_EQ(n.value, 2);
    EXPECT_EQ(b.GetValue(), "y");
}

TEST(NumericParameter, ExpressionExamples) {
    NumericParameter<int> p = oneToEight();
    const std::pair<const char*, int> examples[] = {
        {"2*(3+4)-1", 13}, {"2+3*4", 14},     {"2*3+4", 10},        {"8/2/2", 2},        {"MAX-1", 7},
        {"((1+2)*3)", 9},  {"1K+1", 1025},    {"0x10*2", 32},       {"2M", 2097152},     {"10-2-3", 11},
        {"10-2+3", 5},     {"(1))", 1},       {"()", 0},            {"0X10", 0},         {"12abc", 12},
        {"010", 10},       {"0x10K", 0},      {"2G", INT_MIN},      {"4G", 0},           {"1 + 2 * 3", 7},
        {"", 0},           {"   ", 0},        {"MIN*MAX", 8},       {"max", 0},          {"-5", -5},
        {"3*-2", -2},      {"(7)/(0-2)", -3}, {"2147483647+1", INT_MIN}, {"65536*65536", 0}, {"2G/(0-1)", INT_MIN},
        {"2G-1", INT_MAX}, {"(1+(2*(3+4)))*2", 30},
    };
    for (const auto& e : examples) EXPECT_EQ(p.CalculateFromString(e.first), e.second) << e.first;
}

TEST(NumericParameter, RefusalsQuoteTheTextAndTheRange) {
    NumericParameter<int> p = oneToEight();
    EXPECT_EQ(refusal(p, "9"), "You entered 9, please enter a value between 1 and 8");
    EXPECT_EQ(p.value, 9);  // the refused number stays
    EXPECT_EQ(refusal(p, "   "), "You entered    , please enter a value between 1 and 8");
    EXPECT_EQ(refusal(p, "abc"), "You entered abc, please enter a value between 1 and 8");
    EXPECT_EQ(refusal(p, "MAX"), "accepted");
    p.value = 5;
    EXPECT_EQ(refusal(p, "1/0"), "Please don't divide by zero.");
    EXPECT_EQ(refusal(p, "(2"), "Malformed expression, Check your parenthesis.");
    EXPECT_EQ(refusal(p, "((1+2)"), "Malformed expression, Check your parenthesis.");
    EXPECT_EQ(p.value, 5);  // unchanged when the evaluation itself failed
    p.SetValue("");
    EXPECT_EQ(p.value, 2);

    NumericParameter<int> zeroBased;
    zeroBased.Set("z", "", "", 0, 0, 10);
    EXPECT_EQ(refusal(zeroBased, "0"), "accepted");
    for (const char* text : {"00", "0x0", "MIN", "0+0", "()"})
        EXPECT_EQ(refusal(zeroBased, text), std::string("You entered ") + text + ", please enter a value between 0 and 10");

    NumericParameter<int> open;
    open.Set("o", "", "", 5, 5, 5);  // no upper bound
    EXPECT_EQ(refusal(open, "1G"), "accepted");
    EXPECT_EQ(refusal(open, "4"), "You entered 4, please enter a value between 5 and 5");

    NumericParameter<int> wide;
    wide.Set("w", "", "", 0, INT_MIN, INT_MAX);
    EXPECT_EQ(refusal(wide, "2G"), "accepted");
    EXPECT_EQ(wide.value, INT_MIN);
    EXPECT_EQ(refusal(wide, "4G"), "You entered 4G, please enter a value between -2147483648 and 2147483647");
}

TEST(NumericParameter, DeepNestingIsRefusedNotOverflowingTheStack) {
    NumericParameter<int> p = oneToEight();
    EXPECT_EQ(p.CalculateFromString(std::string(100, '(') + "3" + std::string(100, ')')), 3);
    EXPECT_EQ(refusal(p, std::string(10000, '(') + "1" + std::string(10000, ')')),
              "Malformed expression, Check your parenthesis.");
    std::string longSum = "1";
    for (int i = 0; i < 100000; ++i) longSum += "+0";
    EXPECT_EQ(p.CalculateFromString(longSum), 1);
}

TEST(NumericParameter, DefaultsAndSet) {
    NumericParameter<int> p;
    EXPECT_EQ(p.GetDefaultValue(), "0");
    p.value = 4;
    p.Set("n", "N", "D", -7, -10, 10);
    EXPECT_EQ(p.value, 4);
    EXPECT_EQ(p.GetDefaultValue(), "-7");
    EXPECT_STREQ(p.GetRealClassName(), "NumericParameter < T >");
}

}  // namespace
