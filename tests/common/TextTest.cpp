// The text helpers that device order, expressions and commands rest on, the
// error elements, and XmlObject, whose output must match pugixml's.
#include <gtest/gtest.h>
#include <pugixml.hpp>

#include <climits>
#include <string>

#include "common/StringTokenizer.h"
#include "common/StringUtil.h"
#include "common/TickTimer.h"
#include "common/TvkError.h"
#include "common/XmlObject.h"

namespace {

XmlObject Element(const std::string& name, const std::string& value = "") {
    XmlObject x;
    x.name = name;
    x.value = value;
    return x;
}

// What pugixml itself writes for the same tree; hosts have only ever seen
// pugixml's output, so ours must match it byte for byte.
struct StringWriter : pugi::xml_writer {
    std::string text;
    void write(const void* data, size_t size) override { text.append(static_cast<const char*>(data), size); }
};
void BuildPugi(const XmlObject& from, pugi::xml_node parent) {
    pugi::xml_node node = from.name.empty() ? parent : parent.append_child(from.name.c_str());
    for (const auto& a : from.GetAttributes()) node.append_attribute(a.first.c_str()).set_value(a.second.c_str());
    if (!from.value.empty()) node.append_child(pugi::node_pcdata).set_value(from.value.c_str());
    for (const XmlObject& child : from.children) BuildPugi(child, node);
}

TEST(TextHelpers, NaturalOrderTokensTrimFormatAndElapsedTime) {
    const struct {
        const char *a, *b;
        int expected;
    } cases[] = {
        {"usbDevice2", "usbDevice10", -1},
        {"usbDevice10", "usbDevice9", 1},
        {"usbDevice3", "usbDevice3", 0},
        {"usbDevice", "usbDevice0", -1},
        {"a2b10", "a2b9", 1},
        {"a01", "a1", 1},
        {"abc", "abd", -1},
        {"", "", 0},
        {"9", "10", -1},
        {"x99999999999999999999", "x100000000000000000000", -1},
        {"Hub", "hub", -1},
    };
    auto sign = [](int v) { return (v > 0) - (v < 0); };
    for (const auto& c : cases) {
        EXPECT_EQ(sign(strnumcmp(c.a, c.b)), c.expected) << c.a << " vs " << c.b;
        EXPECT_EQ(sign(strnumcmp(c.b, c.a)), -c.expected) << c.b << " vs " << c.a;
    }

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

    EXPECT_EQ(StringParseUtility::Trim("  2.00 \r\n", 0), "2.00");
    EXPECT_EQ(StringParseUtility::Trim(" \t ", 0), "");
    std::string wide(1000, 'x');
    EXPECT_EQ(strprintf("%s-%d", wide.c_str(), 7), wide + "-7");
    EXPECT_EQ(GetElapsedTimeString(0.0) + GetElapsedTimeString(3723.4567) + GetElapsedTimeString(-5),
              "00:00:00.00001:02:03.45700:00:00.000");
    // Ticks are microseconds; the few that pass during the call land in the fraction.
    const uint64_t hourAgo = TickTimer::GetCurrentTimeInTicks() - 3723 * TickTimer::ms_ticksPerSecond;
    EXPECT_EQ(GetElapsedTimeSince(hourAgo).substr(0, 9), "01:02:03.");
}

TEST(TvkError, XmlHasAttributesInFixedOrderTheLatestReferenceAndBothWritersAgree) {
    TvkError referenced("Test not found", "speed", "x");
    referenced.CrossReference("frontEnd", "frontEnd");
    referenced.CrossReference("USBDevice", "RootHubTest");
    // The detail attribute is there even when empty, and then the text has no ": ".
    EXPECT_EQ(TvkWarning("Low", "", "").GetXml(),
              "<warning errorCode=\"TvkWarning\" key=\"Low\" detail=\"\">Low</warning>");
    EXPECT_EQ(FrontendError("Bad", "value").GetXml(),
              "<error errorCode=\"FrontendError\" key=\"Bad\" detail=\"value\">Bad: value</error>");
    EXPECT_EQ(referenced.GetXml(), "<error errorCode=\"TvkError\" key=\"Test not found\" detail=\"speed\" extra=\"x\" "
                                   "reference=\"USBDevice, RootHubTest\">Test not found: speed</error>");

    const std::string message = "a < b & \"c\"", detail = "x>y 'z' \n&amp;";
    TvkError e(message, detail, "<e>");
    e.CrossReference("A&B", "<C>");
    XmlObject x(e.GetXml());
    EXPECT_EQ(x.name, "error");
    EXPECT_EQ(x.value, message + ": " + detail);
    for (const auto& a : {std::pair<std::string, std::string>{"errorCode", "TvkError"},
                          {"key", message},
                          {"detail", detail},
                          {"extra", "<e>"},
                          {"reference", "A&B, <C>"}})
        EXPECT_EQ(x.GetAttributeValue(a.first), a.second) << a.first;

    // The direct writer and the tree agree, also where a NUL cuts the text or only the
    // detail is there, and for texts that outgrow the writer's own buffer more than once.
    std::string controls;
    for (char c = 1; c < 32; ++c) controls += c;
    const std::pair<std::string, std::string> texts[] = {{message, detail},
                                                         {"", "d"},
                                                         {"", ""},
                                                         {std::string("ab\0c", 4), "d"},
                                                         {std::string("\0", 1), "d"},
                                                         {std::string(200, 'm') + "<&>", std::string(90, '"')},
                                                         {controls + std::string(3000, '&'), controls}};
    auto tree = [](const TvkWarning& w) { return w.GetXmlObject().GetXmlString(); };
    EXPECT_EQ(tree(e), e.GetXml());
    for (const auto& t : texts) {
        const TvkWarning warning(t.first, t.second, "");
        const TvkError error(t.first, t.second, "");
        SCOPED_TRACE("key \"" + t.first + "\", detail \"" + t.second + "\"");
        EXPECT_EQ(tree(warning), warning.GetXml());
        EXPECT_EQ(tree(error), error.GetXml());
    }
}

TEST(XmlObject, ParseKeepsAttributeOrderTextAndChildrenAndWritesCompactly) {
    XmlObject x("<cmd zeta=\"1\" alpha='2' mid=\"&lt;&#65;&quot;&#10;\">head<a/>x&amp;<![CDATA[<y>&]]><!-- c -->"
                "<b k=\"v\">inner</b></cmd>");
    EXPECT_EQ(x.GetAttributeValue("mid"), "<A\"\n");
    EXPECT_EQ(x.value, "headx&<y>&");
    // Text is written before the children, with no indentation.
    EXPECT_EQ(x.GetXmlString(), "<cmd zeta=\"1\" alpha=\"2\" mid=\"&lt;A&quot;&#10;\">headx&amp;&lt;y&gt;&amp;<a/>"
                                "<b k=\"v\">inner</b></cmd>");
    x.SetAttribute("alpha", "new");  // replaced where it stands
    x.SetAttribute("n", static_cast<const char*>(nullptr));
    x.RemoveAttribute("zeta");
    x.RemoveAttribute("missing");
    x.children.clear();
    EXPECT_EQ(x.GetXmlString(), "<cmd alpha=\"new\" mid=\"&lt;A&quot;&#10;\" n=\"\">headx&amp;&lt;y&gt;&amp;</cmd>");
    EXPECT_EQ(x.GetAttributeValue("n", "fallback") + x.GetAttributeValue("missing", "fallback"), "fallback");
    EXPECT_TRUE(x.HasAttribute("n"));
    EXPECT_FALSE(x.HasAttribute("missing"));
}

TEST(XmlObject, WriterMatchesPugixmlForEveryByteAndParsesBack) {
    std::string all;
    for (int c = 1; c < 256; ++c) all += static_cast<char>(c);
    XmlObject x = Element("root", all), child = Element("c", "]]> and <![CDATA[");
    x.SetAttribute("all", all);
    child.SetAttribute("q", "it's \"quoted\" & <b>\t");
    x.AddObject(child);
    x.AddObject(Element("empty"));
    pugi::xml_document document;
    BuildPugi(x, document);
    StringWriter pugiText;
    document.save(pugiText, "", pugi::format_raw | pugi::format_no_declaration);
    EXPECT_EQ(pugiText.text, x.GetXmlString());
    XmlObject back(x.GetXmlString());
    EXPECT_EQ(back.GetAttributeValue("all"), all);
    EXPECT_EQ(back.children.at(0).GetAttributeValue("q"), "it's \"quoted\" & <b>\t");
}

TEST(XmlObject, NamelessChildrenNumbersAndPropertiesAreWrittenInTheirForms) {
    XmlObject inner = Element("", "t2"), holder = Element("", "t1"), root = Element("a"), lone = Element("test");
    inner.AddObject(Element("c"));
    holder.AddObject(Element("b"));
    holder.AddObject(inner);
    root.AddObject(holder);  // a nameless child gives its own children in its place, at any depth
    lone.AddObject(XmlObject());
    EXPECT_EQ(root.GetXmlString() + lone.GetXmlString(), "<a>t1<b/>t2<c/></a><test/>");

    XmlObject x = Element("n");
    x.SetAttribute<int>("negHex", -1, 16);
    x.SetAttribute<long long>("min", LLONG_MIN, 10);
    x.SetAttribute<int>("zero", 0, 16);
    x.AddProperty("vendor", "Vendor & Co", "<ACME>");
    x.AddProperty("ports", "Ports", -7, 0);
    EXPECT_EQ(x.GetXmlString(), "<n negHex=\"ffffffff\" min=\"-9223372036854775808\" zero=\"0\">"
                                "<property name=\"vendor\" caption=\"Vendor &amp; Co\" value=\"&lt;ACME>\"/>"
                                "<property name=\"ports\" caption=\"Ports\" value=\"-7\"/></n>");
}

TEST(XmlObject, FindFirstMatch) {
    XmlObject x("<parameter name=\"top\"><group><parameter name=\"retries\" id=\"deep\"/></group>"
                "<parameter name=\"retries\" id=\"late\"/><parameter id=\"noname\"/></parameter>");
    EXPECT_EQ(x.FindFirstMatch("parameter", ""), &x);  // without a predicate the element itself comes first
    // Document order: the nested one precedes its parent's later sibling.
    for (const char* predicate : {"@name='retries'", "@name=\"retries\""}) {
        const XmlObject* found = x.FindFirstMatch("parameter", predicate);
        EXPECT_EQ(found ? found->GetAttributeValue("id") : "none", "deep") << predicate;
    }
    // An absent attribute does not equal an empty one; predicates of other shapes match nothing.
    for (const char* predicate : {"@name='nothing'", "name='retries'", "@name='retries\"", "@name='a'b'", "@='top'"})
        EXPECT_EQ(x.FindFirstMatch("parameter", predicate), nullptr) << predicate;
    EXPECT_EQ(x.FindFirstMatch("group", "@name=''"), nullptr);
    EXPECT_EQ(x.FindFirstMatch("missing"), nullptr);
    EXPECT_EQ(static_cast<const XmlObject&>(x).FindFirstMatch("group"), &x.children[0]);
}

// A host may nest its elements this deep; every tree operation must live
// without a call a level.
TEST(XmlObject, TreesAMillionLevelsDeepAreConvertedCopiedWrittenSearchedAndFreed) {
    const size_t depth = 1000000;
    std::string text = "<r>";
    for (size_t i = 0; i < depth; ++i) text += "<a>";
    text += "<leaf k=\"v\"/>";
    for (size_t i = 0; i < depth; ++i) text += "</a>";
    text += "</r>";

    XmlObject parsed(text);
    const XmlObject copy(parsed);
    EXPECT_EQ(copy.GetXmlString(), text);
    const XmlObject* leaf = copy.FindFirstMatch("leaf", "@k='v'");
    ASSERT_NE(leaf, nullptr);
    EXPECT_EQ(leaf->GetAttributeValue("k"), "v");
    EXPECT_EQ(parsed.FindObjects("a").size(), depth);

    XmlObject assigned;
    assigned = copy;
    EXPECT_EQ(assigned.GetXmlString().size(), text.size());
    // Taking a descendant's place frees the levels above it.
    parsed = std::move(parsed.children[0].children[0]);
    EXPECT_EQ(parsed.GetXmlString().size(), text.size() - 14);
}

// An answer is written from its devices' texts as if each had been parsed
// and added as a child: the same text, also where a parse changes it.
TEST(XmlObject, WrittenElementsAreAppendedAsTheirParseWouldWriteThem) {
    for (const char* element : {"<device name=\"a&amp;b\" note=\"&#13;\"><p v=\"1\"/></device>",
                                "<error key=\"k\">line one\r\nline two\rend</error>"}) {
        std::string appended = "<answer>";
        AppendWrittenElement(appended, element);
        EXPECT_EQ(appended, "<answer>" + XmlObject(element).GetXmlString()) << element;
    }
}

TEST(XmlObject, MalformedTextGivesExactError) {
    const std::pair<const char*, const char*> cases[] = {
        {"", "No document element found at offset 0"},
        {"  ", "No document element found at offset 2"},
        {"junk", "No document element found at offset 4"},
        {"<a>", "Start-end tags mismatch at offset 2"},
        {"<a", "Error parsing start element tag at offset 1"},
        {"<a><b></a>", "Start-end tags mismatch at offset 8"},
        {"<a x='1></a>", "Error parsing element attribute at offset 6"},
    };
    for (const auto& c : cases) {
        try {
            XmlObject parsed(c.first);
            ADD_FAILURE() << "no error for: " << c.first;
        } catch (const TvkError& e) {
            SCOPED_TRACE(c.first);
            EXPECT_STREQ(e.GetErrorCode(), "TvkError");
            EXPECT_EQ(e.GetMessage(), "Malformed XML");
            EXPECT_EQ(e.GetDetail(), c.second);
            EXPECT_EQ(e.GetExtra(), "");
        }
    }
}

}  // namespace
