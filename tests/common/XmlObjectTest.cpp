#include <gtest/gtest.h>
#include <pugixml.hpp>

#include <climits>
#include <string>

#include "common/TvkError.h"
#include "common/XmlObject.h"

namespace {

// What pugixml itself writes for the same tree; our writer must match it
// byte for byte, since hosts have only ever seen pugixml's output.
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

std::string PugiText(const XmlObject& element) {
    pugi::xml_document document;
    BuildPugi(element, document);
    StringWriter writer;
    document.save(writer, "", pugi::format_raw | pugi::format_no_declaration);
    return writer.text;
}

std::string MalformedDetail(const std::string& xml) {
    try {
        XmlObject parsed(xml);
    } catch (const TvkError& e) {
        EXPECT_STREQ("TvkError", e.GetErrorCode());
        EXPECT_EQ("Malformed XML", e.GetMessage());
        EXPECT_EQ("", e.GetExtra());
        return e.GetDetail();
    }
    ADD_FAILURE() << "no error for: " << xml;
    return "";
}

}  // namespace

TEST(XmlObject, ParseKeepsAttributeOrderTextAndChildren) {
    XmlObject x("<cmd zeta=\"1\" alpha='2' mid=\"3\">head<a/>tail<b k=\"v\">inner</b></cmd>");
    EXPECT_EQ("cmd", x.name);
    ASSERT_EQ(3u, x.GetAttributes().size());
    EXPECT_EQ("zeta", x.GetAttributes()[0].first);
    EXPECT_EQ("alpha", x.GetAttributes()[1].first);
    EXPECT_EQ("mid", x.GetAttributes()[2].first);
    EXPECT_EQ("headtail", x.value);
    ASSERT_EQ(2u, x.children.size());
    EXPECT_EQ("inner", x.children[1].value);
    // Text is written before the children.
    EXPECT_EQ("<cmd zeta=\"1\" alpha=\"2\" mid=\"3\">headtail<a/><b k=\"v\">inner</b></cmd>", x.GetXmlString());
}

TEST(XmlObject, ParseDecodesEntitiesAndCdata) {
    XmlObject x("<a k=\"&lt;&#65;&quot;&#10;\">x&amp;<![CDATA[<y>&]]><!-- note --><b/>z</a>");
    EXPECT_EQ("<A\"\n", x.GetAttributeValue("k"));
    EXPECT_EQ("x&<y>&z", x.value);
    ASSERT_EQ(1u, x.children.size());
}

TEST(XmlObject, AttributesSetReplaceRemoveAndDefault) {
    XmlObject x;
    x.name = "e";
    x.SetAttribute("b", "1");
    x.SetAttribute("a", std::string("2"));
    x.SetAttribute("c", "3");
    x.SetAttribute("a", "new");  // replaced where it stands
    x.SetAttribute("n", static_cast<const char*>(nullptr));
    EXPECT_EQ("<e b=\"1\" a=\"new\" c=\"3\" n=\"\"/>", x.GetXmlString());
    EXPECT_TRUE(x.HasAttribute("n"));
    EXPECT_EQ("", x.GetAttributeValue("n", "fallback"));
    EXPECT_FALSE(x.HasAttribute("missing"));
    EXPECT_EQ("fallback", x.GetAttributeValue("missing", "fallback"));
    EXPECT_EQ("", x.GetAttributeValue("missing"));
    x.RemoveAttribute("b");
    x.RemoveAttribute("missing");
    EXPECT_EQ("<e a=\"new\" c=\"3\" n=\"\"/>", x.GetXmlString());
}

TEST(XmlObject, EscapesSpecialCharactersAndParsesBack) {
    XmlObject x;
    x.name = "e";
    x.SetAttribute("a", "<&\">'\n\t\x01");
    x.value = "<&\">'\n\t\x1f";
    const std::string text = x.GetXmlString();
    EXPECT_EQ("<e a=\"&lt;&amp;&quot;>'&#10;&#09;&#01;\">&lt;&amp;\"&gt;'\n\t&#31;</e>", text);
    XmlObject back(text);
    EXPECT_EQ(x.GetAttributeValue("a"), back.GetAttributeValue("a"));
    EXPECT_EQ(x.value, back.value);
}

TEST(XmlObject, WriterMatchesPugixmlForEveryByte) {
    std::string all;
    for (int c = 1; c < 256; ++c) all += static_cast<char>(c);
    XmlObject x;
    x.name = "root";
    x.SetAttribute("all", all);
    x.value = all;
    XmlObject child;
    child.name = "c";
    child.SetAttribute("q", "it's \"quoted\" & <b>");
    child.value = "]]> and <![CDATA[";
    x.AddObject(child);
    XmlObject empty;
    empty.name = "empty";
    x.AddObject(empty);
    EXPECT_EQ(PugiText(x), x.GetXmlString());
}

TEST(XmlObject, NamelessChildrenAreFlattenedAtAnyDepth) {
    XmlObject inner;  // nameless, holding one element and text
    inner.value = "t2";
    XmlObject c;
    c.name = "c";
    inner.AddObject(c);
    XmlObject holder;  // nameless, holding another nameless one
    holder.value = "t1";
    XmlObject b;
    b.name = "b";
    holder.AddObject(b);
    holder.AddObject(inner);
    XmlObject root;
    root.name = "a";
    root.AddObject(holder);
    EXPECT_EQ("<a>t1<b/>t2<c/></a>", root.GetXmlString());

    // A holder with nothing in it leaves an empty element.
    XmlObject lone;
    lone.name = "test";
    lone.AddObject(XmlObject());
    EXPECT_EQ("<test/>", lone.GetXmlString());
}

TEST(XmlObject, FindFirstMatch) {
    XmlObject x(
        "<parameter name=\"top\">"
        "<group><parameter name=\"retries\" id=\"deep\"/></group>"
        "<parameter name=\"retries\" id=\"late\"/>"
        "<parameter id=\"noname\"/>"
        "</parameter>");
    // Without a predicate the element itself comes first.
    ASSERT_NE(nullptr, x.FindFirstMatch("parameter"));
    EXPECT_EQ(&x, x.FindFirstMatch("parameter", ""));
    // Document order: the nested one precedes its parent's later sibling.
    XmlObject* found = x.FindFirstMatch("parameter", "@name='retries'");
    ASSERT_NE(nullptr, found);
    EXPECT_EQ("deep", found->GetAttributeValue("id"));
    found = x.FindFirstMatch("parameter", "@name=\"retries\"");
    ASSERT_NE(nullptr, found);
    EXPECT_EQ("deep", found->GetAttributeValue("id"));
    EXPECT_EQ(nullptr, x.FindFirstMatch("parameter", "@name='nothing'"));
    EXPECT_EQ(nullptr, x.FindFirstMatch("missing"));
    // An absent attribute does not equal an empty one.
    EXPECT_EQ(nullptr, x.FindFirstMatch("group", "@name=''"));
    // Predicates of other shapes match nothing.
    EXPECT_EQ(nullptr, x.FindFirstMatch("parameter", "name='retries'"));
    EXPECT_EQ(nullptr, x.FindFirstMatch("parameter", "@name='retries\""));
    EXPECT_EQ(nullptr, x.FindFirstMatch("parameter", "@name='a'b'"));
    EXPECT_EQ(nullptr, x.FindFirstMatch("parameter", "@='top'"));

    const XmlObject& constant = x;
    const XmlObject* c = constant.FindFirstMatch("group");
    ASSERT_NE(nullptr, c);
    EXPECT_EQ("group", c->name);
}

TEST(XmlObject, FindObjectsListsDescendantsInDocumentOrder) {
    XmlObject x("<error><a><error id=\"1\"><error id=\"2\"/></error></a><error id=\"3\"/></error>");
    std::vector<XmlObject*> found = x.FindObjects("error");
    ASSERT_EQ(3u, found.size());
    EXPECT_EQ("1", found[0]->GetAttributeValue("id"));
    EXPECT_EQ("2", found[1]->GetAttributeValue("id"));
    EXPECT_EQ("3", found[2]->GetAttributeValue("id"));
    EXPECT_TRUE(x.FindObjects("nothing").empty());
}

TEST(XmlObject, NumbersInBases) {
    XmlObject x;
    x.name = "n";
    x.SetAttribute<int>("dec", 1234, 10);
    x.SetAttribute<int>("neg", -42, 10);
    x.SetAttribute<int>("hex", 0x1a2b, 16);
    x.SetAttribute<int>("negHex", -1, 16);
    x.SetAttribute<unsigned short>("vendor", 0xabcd, 16);
    x.SetAttribute<long long>("min", LLONG_MIN, 10);
    x.SetAttribute<unsigned>("bin", 5u, 2);
    x.SetAttribute<int>("zero", 0, 16);
    EXPECT_EQ("1234", x.GetAttributeValue("dec"));
    EXPECT_EQ("-42", x.GetAttributeValue("neg"));
    EXPECT_EQ("1a2b", x.GetAttributeValue("hex"));
    EXPECT_EQ("ffffffff", x.GetAttributeValue("negHex"));
    EXPECT_EQ("abcd", x.GetAttributeValue("vendor"));
    EXPECT_EQ("-9223372036854775808", x.GetAttributeValue("min"));
    EXPECT_EQ("101", x.GetAttributeValue("bin"));
    EXPECT_EQ("0", x.GetAttributeValue("zero"));
    EXPECT_EQ("3w5e11264sgsf", XmlFormatNumber(ULLONG_MAX, 36));
    EXPECT_EQ("18446744073709551615", XmlFormatNumber(ULLONG_MAX, 10));
    EXPECT_EQ("-7", XmlFormatNumber(-7LL, 10));
}

TEST(XmlObject, AddPropertyWritesOneChildPerCall) {
    XmlObject device;
    device.name = "device";
    device.AddProperty("vendor", "Vendor & Co", "<ACME>");
    device.AddProperty("ports", "Ports", -7, 0);
    EXPECT_EQ(
        "<device><property name=\"vendor\" caption=\"Vendor &amp; Co\" value=\"&lt;ACME>\"/>"
        "<property name=\"ports\" caption=\"Ports\" value=\"-7\"/></device>",
        device.GetXmlString());
}

TEST(XmlObject, MalformedTextGivesExactError) {
    EXPECT_EQ("No document element found at offset 0", MalformedDetail(""));
    EXPECT_EQ("No document element found at offset 2", MalformedDetail("  "));
    EXPECT_EQ("No document element found at offset 4", MalformedDetail("junk"));
    EXPECT_EQ("Start-end tags mismatch at offset 2", MalformedDetail("<a>"));
    EXPECT_EQ("Error parsing start element tag at offset 1", MalformedDetail("<a"));
    EXPECT_EQ("Start-end tags mismatch at offset 8", MalformedDetail("<a><b></a>"));
    EXPECT_EQ("Error parsing element attribute at offset 6", MalformedDetail("<a x='1></a>"));
}
