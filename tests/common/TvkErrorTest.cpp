#include <gtest/gtest.h>

#include "common/TvkError.h"
#include "common/XmlObject.h"

TEST(TvkError, XmlHasAttributesInFixedOrder) {
    EXPECT_EQ("<error errorCode=\"TvkError\" key=\"Device not found\" detail=\"usb1\">Device not found: usb1</error>",
              TvkError("Device not found", "usb1", "").GetXml());
    // The detail attribute is there even when empty, and the text has no ": ".
    EXPECT_EQ("<error errorCode=\"TvkError\" key=\"Invalid Command\" detail=\"\">Invalid Command</error>",
              TvkError("Invalid Command", "", "").GetXml());
    EXPECT_EQ("<error errorCode=\"TvkError\" key=\"m\" detail=\"d\" extra=\"x\">m: d</error>",
              TvkError("m", "d", "x").GetXml());
    EXPECT_EQ("<warning errorCode=\"TvkWarning\" key=\"Low\" detail=\"\">Low</warning>",
              TvkWarning("Low", "", "").GetXml());
    EXPECT_EQ("<error errorCode=\"FrontendError\" key=\"Bad\" detail=\"value\">Bad: value</error>",
              FrontendError("Bad", "value").GetXml());
}

TEST(TvkError, CrossReferenceIsWrittenLastAndReplacedByALaterOne) {
    TvkError e("Test not found", "speed", "x");
    e.CrossReference("frontEnd", "frontEnd");
    EXPECT_EQ(
        "<error errorCode=\"TvkError\" key=\"Test not found\" detail=\"speed\" extra=\"x\" "
        "reference=\"frontEnd, frontEnd\">Test not found: speed</error>",
        e.GetXml());
    e.CrossReference("USBDevice", "RootHubTest");
    EXPECT_EQ("USBDevice", e.GetReferenceA());
    EXPECT_EQ("RootHubTest", e.GetReferenceB());
    EXPECT_EQ(
        "<error errorCode=\"TvkError\" key=\"Test not found\" detail=\"speed\" extra=\"x\" "
        "reference=\"USBDevice, RootHubTest\">Test not found: speed</error>",
        e.GetXml());
}

TEST(TvkError, MarkupInTextsParsesBack) {
    const std::string message = "a < b & \"c\"";
    const std::string detail = "x>y 'z' \n&amp;";
    TvkError e(message, detail, "<e>");
    e.CrossReference("A&B", "<C>");
    XmlObject x(e.GetXml());
    EXPECT_EQ("error", x.name);
    EXPECT_EQ("TvkError", x.GetAttributeValue("errorCode"));
    EXPECT_EQ(message, x.GetAttributeValue("key"));
    EXPECT_EQ(detail, x.GetAttributeValue("detail"));
    EXPECT_EQ("<e>", x.GetAttributeValue("extra"));
    EXPECT_EQ("A&B, <C>", x.GetAttributeValue("reference"));
    EXPECT_EQ(message + ": " + detail, x.value);

    // The fast writer and the element agree, also where a NUL cuts the text
    // or only the detail is there.
    const std::pair<std::string, std::string> texts[] = {
        {message, detail}, {"", "d"}, {"", ""}, {std::string("ab\0c", 4), "d"}, {std::string("\0", 1), "d"}};
    for (const auto& t : texts) {
        const TvkError error(t.first, t.second, "");
        EXPECT_EQ(error.GetXmlObject().GetXmlString(), error.GetXml()) << t.first << "|" << t.second;
    }
}

TEST(TvkError, PlainCopyOfAFrontendErrorIsATvkError) {
    try {
        throw FrontendError("Parameter outside acceptable range", "");
    } catch (const TvkError& caught) {
        EXPECT_STREQ("FrontendError", caught.GetErrorCode());
        EXPECT_STREQ("Parameter outside acceptable range", caught.what());
        // A copy as a plain TvkError loses the frontend mark, as the retry
        // loop relies on when it rethrows.
        TvkError plain(caught);
        EXPECT_STREQ("TvkError", plain.GetErrorCode());
        EXPECT_STREQ("error", plain.GetTagName());
    }
}
