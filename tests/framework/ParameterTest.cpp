// String and numeric parameters, the list, and the value expressions.
#include <climits>

#include "FrameworkSupport.h"

using namespace fw;

namespace {

// The refusal's second text, or "accepted".
std::string refusal(NumericParameter<int>& p, const std::string& text) {
    try {
        return p.SetValue(text), "accepted";
    } catch (FrontendError& e) {
        EXPECT_EQ(e.GetMessage(), "Parameter outside acceptable range");
        return e.GetDetail();
    }
}

NumericParameter<int> bounded(int min, int max) {
    NumericParameter<int> p;
    p.Set("count", "Count", "How many", 2, min, max);
    return p;
}

TEST_F(FrameworkTest, ParametersTakeTheirDefaultOnEveryRunWithoutAValueAndTheListStopsAtTheFirstRefusal) {
    StringParameter mode;
    ScriptedTest* test = AddTest("t1");
    test->onSetParameters = [&mode](ScriptedTest& t) { mode.Set("mode", "Mode", "", "fast"), t.AddParameter(&mode); };
    std::vector<std::string> seen;
    test->body = [&](ScriptedTest&, int) { return seen.push_back(mode.GetValue()), true; };
    for (const char* attributes : {"mode=\"slow\"", "", "mode=\"\""}) RunTest("t1", attributes);
    EXPECT_EQ(seen, (std::vector<std::string>{"slow", "fast", "fast"}));

    ParameterList list;
    EXPECT_TRUE(list.ToXml().name.empty() && list.ToXml().children.empty());
    StringParameter a("a", "A", "", "x"), b("b", "B", "", "y");
    NumericParameter<int> n = bounded(1, 8);
    for (Parameter* p : std::initializer_list<Parameter*>{&a, &n, &b}) list.Insert(p);
    XmlObject xml = list.ToXml();
    EXPECT_EQ(xml.children.size() == 3 ? xml.children[1].GetXmlString() : "",
              "<parameter name=\"count\" caption=\"Count\" description=\"How many\" type=\"int\" defaultValue=\"2\" "
              "min=\"1\" max=\"8\"/>");
    EXPECT_THROW(list.Parse(XmlObject("<run a=\"new\" count=\"99\" b=\"late\"/>")), FrontendError);
    EXPECT_EQ(a.GetValue() + "|" + std::to_string(n.value) + "|" + b.GetValue(), "new|99|");
    list.Parse(XmlObject("<run/>"));
    EXPECT_EQ(n.value, 2);

    // Stored: the list refers to parameters stored before it in the stream.
    ParameterList stored;
    stored.Insert(&a);
    iptstream in = iptstream::FromMemory(
        (optstream() << static_cast<const Persistent*>(&a) << static_cast<const Persistent*>(&stored)).GetBuffer());
    Persistent *readA = nullptr, *readList = nullptr;
    in >> readA >> readList;
    std::unique_ptr<StringParameter> copy(dynamic_cast<StringParameter*>(readA));
    std::unique_ptr<ParameterList> copiedList(dynamic_cast<ParameterList*>(readList));
    ASSERT_TRUE(copy && copiedList);
    EXPECT_EQ(copy->GetValue() + "|" + copy->GetDefaultValue() + "|" + copy->GetCaption(), "x|x|A");
    EXPECT_EQ(copiedList->parameters, std::vector<Parameter*>{copy.get()});
}

TEST(NumericParameter, ExpressionResults) {
    NumericParameter<int> p = bounded(1, 8);
    const std::pair<const char*, int> examples[] = {
        {"2*(3+4)-1", 13}, {"2+3*4", 14}, {"2*3+4", 10}, {"8/2/2", 2}, {"MAX-1", 7}, {"((1+2)*3)", 9},
        {"1K+1", 1025}, {"0x10*2", 32}, {"2M", 2097152}, {"10-2-3", 11}, {"10-2+3", 5}, {"(1))", 1}, {"()", 0},
        {"0X10", 0}, {"12abc", 12}, {"010", 10}, {"0x10K", 0}, {"2G", INT_MIN}, {"4G", 0}, {"1 + 2 * 3", 7},
        {"   ", 0}, {"MIN*MAX", 8}, {"max", 0}, {"3*-2", -2}, {"(7)/(0-2)", -3}, {"2147483647+1", INT_MIN},
        {"65536*65536", 0}, {"2G/(0-1)", INT_MIN}, {"2G-1", INT_MAX}, {"(1+(2*(3+4)))*2", 30},
    };
    for (const auto& e : examples) EXPECT_EQ(p.CalculateFromString(e.first), e.second) << e.first;
    // Deep parentheses are refused before they exhaust the stack; long sums are fine.
    EXPECT_EQ(p.CalculateFromString(std::string(100, '(') + "3" + std::string(100, ')')), 3);
    EXPECT_EQ(refusal(p, std::string(10000, '(') + "1" + std::string(10000, ')')),
              "Malformed expression, Check your parenthesis.");
    std::string sum = "1";
    for (int i = 0; i < 100000; ++i) sum += "+0";
    EXPECT_EQ(p.CalculateFromString(sum), 1);
}

TEST(NumericParameter, RefusalsQuoteTheTextAndTheRange) {
    NumericParameter<int> p = bounded(1, 8);
    EXPECT_EQ(refusal(p, "9"), "You entered 9, please enter a value between 1 and 8");
    EXPECT_EQ(p.value, 9);  // the refused number stays
    EXPECT_EQ(refusal(p, "   "), "You entered    , please enter a value between 1 and 8");
    EXPECT_EQ(refusal(p, "MAX"), "accepted");
    EXPECT_EQ(refusal(p, "1/0"), "Please don't divide by zero.");
    EXPECT_EQ(refusal(p, "(2"), "Malformed expression, Check your parenthesis.");
    EXPECT_EQ(refusal(p, "((1+2)"), "Malformed expression, Check your parenthesis.");
    EXPECT_EQ(p.value, 8);  // unchanged when the evaluation failed
    p.SetValue("");
    EXPECT_EQ(p.value, 2);

    // 5..5 has no upper bound.
    NumericParameter<int> zero = bounded(0, 10), open = bounded(5, 5), wide = bounded(INT_MIN, INT_MAX);
    EXPECT_EQ(refusal(zero, "0") + refusal(open, "1G") + refusal(wide, "2G"), "acceptedacceptedaccepted");
    for (const char* text : {"00", "0x0", "MIN", "0+0", "abc"})
        EXPECT_EQ(refusal(zero, text), std::string("You entered ") + text + ", please enter a value between 0 and 10");
    EXPECT_EQ(refusal(open, "4"), "You entered 4, please enter a value between 5 and 5");
    EXPECT_EQ(refusal(wide, "4G"), "You entered 4G, please enter a value between -2147483648 and 2147483647");
}

}  // namespace
