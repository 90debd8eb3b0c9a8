#include <gtest/gtest.h>

#include "common/TvkError.h"
#include "common/XmlObject.h"

TEST(TvkError, XmlHasAttributesInFixedOrderAndTheLatestReference) {
    TvkError referenced("Test not found", "speed", "x");
    referenced.CrossReference("frontEnd", "frontEnd");
    referenced.CrossReference("USBDevice", "RootHubTest");
    const std::pair<std::string, std::string> cases[] = {
        {TvkError("Device not found", "usb1", "").GetXml(),
         "<error errorCode=\"TvkError\" key=\"Device not found\" detail=\"usb1\">Device not found: usb1</error>"},
        // The detail attribute is there even when empty, and the text has no ": ".
        {TvkError("Invalid Command", "", "").GetXml(),
         "<error errorCode=\"TvkError\" key=\"Invalid Command\" detail=\"\">Invalid Command</error>"},
        {TvkWarning("Low", "", "").GetXml(), "<warning errorCode=\"TvkWarning\" key=\"Low\" detail=\"\">Low</warning>"},
        {FrontendError("Bad", "value").GetXml(),
         "<error errorCode=\"FrontendError\" key=\"Bad\" detail=\"value\">Bad: value</error>"},
        {referenced.GetXml(), "<error errorCode=\"TvkError\" key=\"Test not found\" detail=\"speed\" extra=\"x\" "
                              "reference=\"USBDevice, RootHubTest\">Test not found: speed</error>"},
    };
    for (const auto& c : cases) EXPECT_EQ(c.first, c.second);
}

TEST(TvkError, MarkupInTextsParsesBackAndBothWritersAgree) {
    const std::string message = "a < b & \"c\"", detail = "x>y 'z' \n&amp;";
    TvkError e(message, detail, "<e>");
    e.CrossReference("A&B", "<C>");
    XmlObject x(e.GetXml());
    EXPECT_EQ(x.name, "error");
    for (const auto& a : {std::pair<std::string, std::string>{"errorCode", "TvkError"}, {"key", message},
                          {"detail", detail}, {"extra", "<e>"}, {"reference", "A&B, <C>"}})
        EXPECT_EQ(x.GetAttributeValue(a.first), a.second) << a.first;
    EXPECT_EQ(x.value, message + ": " + detail);
    EXPECT_EQ(e.GetXmlObject().GetXmlString(), e.GetXml());

    // Also where a NUL cuts the text or only the detail is there, and texts
    // long enough to outgrow the writer's own buffer more than once.
    std::string controls;
    for (char c = 1; c < 32; ++c) controls += c;
    const std::pair<std::string, std::string> texts[] = {
        {"", "d"}, {"", ""}, {std::string("ab\0c", 4), "d"}, {std::string("\0", 1), "d"},
        {std::string(200, 'm') + "<&>", std::string(90, '"')}, {controls + std::string(3000, '&'), controls}};
    for (const auto& t : texts) {
        const TvkWarning warning(t.first, t.second, "");
        const TvkError error(t.first, t.second, "");
        EXPECT_EQ(error.GetXmlObject().GetXmlString(), error.GetXml()) << t.first << "|" << t.second;
        EXPECT_EQ(warning.GetXmlObject().GetXmlString(), warning.GetXml()) << t.first << "|" << t.second;
    }
}
