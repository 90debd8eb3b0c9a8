#include <gtest/gtest.h>
#include <pugixml.hpp>

#include <climits>
#include <string>

#include "common/TvkError.h"
#include "common/XmlObject.h"

namespace {

XmlObject Element(const std::string& name, const std::string& value = "") {
    XmlObject x;
    x.name = name, x.value = value;
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

}  // namespace

TEST(XmlObject, ParseKeepsAttributeOrderTextAndChildrenAndWritesCompactly) {
    XmlObject x("<cmd zeta=\"1\" alpha='2' mid=\"&lt;&#65;&quot;&#10;\">head<a/>x&amp;<![CDATA[<y>&]]><!-- c -->"
                "<b k=\"v\">inner</b></cmd>");
    EXPECT_EQ(x.GetAttributeValue("mid") + "|" + x.value, "<A\"\n|headx&<y>&");
    // Text is written before the children, with no indentation.
    EXPECT_EQ(x.GetXmlString(),
              "<cmd zeta=\"1\" alpha=\"2\" mid=\"&lt;A&quot;&#10;\">headx&amp;&lt;y&gt;&amp;<a/><b k=\"v\">inner</b></cmd>");
    x.SetAttribute("alpha", "new");  // replaced where it stands
    x.SetAttribute("n", static_cast<const char*>(nullptr));
    x.RemoveAttribute("zeta");
    x.RemoveAttribute("missing");
    x.children.clear();
    EXPECT_EQ(x.GetXmlString(), "<cmd alpha=\"new\" mid=\"&lt;A&quot;&#10;\" n=\"\">headx&amp;&lt;y&gt;&amp;</cmd>");
    EXPECT_EQ(x.GetAttributeValue("n", "fallback") + x.GetAttributeValue("missing", "fallback"), "fallback");
    EXPECT_TRUE(x.HasAttribute("n") && !x.HasAttribute("missing"));
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

TEST(XmlObject, MalformedTextGivesExactError) {
    const std::pair<const char*, const char*> cases[] = {
        {"", "No document element found at offset 0"}, {"  ", "No document element found at offset 2"},
        {"junk", "No document element found at offset 4"}, {"<a>", "Start-end tags mismatch at offset 2"},
        {"<a", "Error parsing start element tag at offset 1"}, {"<a><b></a>", "Start-end tags mismatch at offset 8"},
        {"<a x='1></a>", "Error parsing element attribute at offset 6"},
    };
    for (const auto& c : cases) {
        try {
            XmlObject parsed(c.first);
            ADD_FAILURE() << "no error for: " << c.first;
        } catch (const TvkError& e) {
            EXPECT_EQ(std::string(e.GetErrorCode()) + "|" + e.GetMessage() + "|" + e.GetDetail() + "|" + e.GetExtra(),
                      std::string("TvkError|Malformed XML|") + c.second + "|");
        }
    }
}
