#include <gtest/gtest.h>

#include "common/TvkError.h"
#include "common/XmlObject.h"

TEST(TvkError, XmlHasAttributesInFixedOrderTheLatestReferenceAndBothWritersAgree) {
    TvkError referenced("Test not found", "speed", "x");
    referenced.CrossReference("frontEnd", "frontEnd");
    referenced.CrossReference("USBDevice", "RootHubTest");
    // The detail attribute is there even when empty, and then the text has no ": ".
    EXPECT_EQ(TvkWarning("Low", "", "").GetXml(), "<warning errorCode=\"TvkWarning\" key=\"Low\" detail=\"\">Low</warning>");
    EXPECT_EQ(FrontendError("Bad", "value").GetXml(),
              "<error errorCode=\"FrontendError\" key=\"Bad\" detail=\"value\">Bad: value</error>");
    EXPECT_EQ(referenced.GetXml(), "<error errorCode=\"TvkError\" key=\"Test not found\" detail=\"speed\" extra=\"x\" "
                                   "reference=\"USBDevice, RootHubTest\">Test not found: speed</error>");

    const std::string message = "a < b & \"c\"", detail = "x>y 'z' \n&amp;";
    TvkError e(message, detail, "<e>");
    e.CrossReference("A&B", "<C>");
    XmlObject x(e.GetXml());
    EXPECT_EQ(x.name + "|" + x.value, "error|" + message + ": " + detail);
    for (const auto& a : {std::pair<std::string, std::string>{"errorCode", "TvkError"}, {"key", message},
                          {"detail", detail}, {"extra", "<e>"}, {"reference", "A&B, <C>"}})
        EXPECT_EQ(x.GetAttributeValue(a.first), a.second) << a.first;

    // The direct writer and the tree agree, also where a NUL cuts the text or only the
    // detail is there, and for texts that outgrow the writer's own buffer more than once.
    std::string controls;
    for (char c = 1; c < 32; ++c) controls += c;
    const std::pair<std::string, std::string> texts[] = {
        {message, detail}, {"", "d"}, {"", ""}, {std::string("ab\0c", 4), "d"}, {std::string("\0", 1), "d"},
        {std::string(200, 'm') + "<&>", std::string(90, '"')}, {controls + std::string(3000, '&'), controls}};
    auto tree = [](const TvkWarning& w) { return w.GetXmlObject().GetXmlString(); };
    EXPECT_EQ(tree(e), e.GetXml());
    for (const auto& t : texts) {
        const TvkWarning warning(t.first, t.second, "");
        const TvkError error(t.first, t.second, "");
        EXPECT_EQ(tree(warning) + tree(error), warning.GetXml() + error.GetXml()) << t.first << "|" << t.second;
    }
}
