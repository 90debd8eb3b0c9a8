// Lines and tables laid out for a screen width: breaks between words, columns
// that share the width, details under their row.
#include <gtest/gtest.h>

#include <sstream>

// The host program is no library: its layout code is compiled in here.
#include "../../tools/zorbus-host/Layout.cpp"

namespace {

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

}  // namespace

TEST(HostProgramLayout, WrapBreaksBetweenWordsAndCutsOnlyAWordWiderThanTheLine) {
    EXPECT_EQ(host::Wrap("Discovers the presence of a working root hub", 20),
              (std::vector<std::string>{"Discovers the", "presence of a", "working root hub"}));
    // Exactly the width fits; blanks inside a line and before the first word stay.
    EXPECT_EQ(host::Wrap("USB 2.00 Controller  1 Port 1", 29),
              (std::vector<std::string>{"USB 2.00 Controller  1 Port 1"}));
    EXPECT_EQ(host::Wrap("  retries=1  Retries", 12), (std::vector<std::string>{"  retries=1", "Retries"}));
    EXPECT_EQ(host::Wrap("a /very/long/path/name b", 8),
              (std::vector<std::string>{"a", "/very/lo", "ng/path/", "name b"}));
    // Characters, not bytes, count.
    EXPECT_EQ(host::Wrap("Geräteerkennung läuft", 15), (std::vector<std::string>{"Geräteerkennung", "läuft"}));
    EXPECT_EQ(host::Wrap("", 10), (std::vector<std::string>{""}));
    EXPECT_EQ(host::TextWidth("GERÄT"), 5u);
    // A colour code takes no column and is never cut.
    EXPECT_EQ(host::TextWidth("\033[1;32mpassed\033[0m"), 6u);
    EXPECT_EQ(host::Wrap("\033[1;31mfailed\033[0m in 00:00:01", 15),
              (std::vector<std::string>{"\033[1;31mfailed\033[0m in", "00:00:01"}));
    EXPECT_EQ(host::Wrap("\033[1mabcdef\033[0m", 3), (std::vector<std::string>{"\033[1mabc", "def\033[0m"}));
    EXPECT_EQ(host::WrapIndented("test rootHubTest: Root Hub Detect Test", 24, 4, 2),
              "    test rootHubTest:\n      Root Hub Detect\n      Test");
}

TEST(HostProgramLayout, TableColumnsShareTheWidthAndDetailsWrapUnderTheirRow) {
    const std::vector<host::Row> rows = {
        {{"usbDevice0", "USB 2.0 Controller 1", "USB 2.00 Controller EHCI-HCD"},
         {"USB Type: 2.00, USB Speed: 480 MBit/s, Hub Number: 1", "  retries=1  Retries (int 0..5)"}},
        {{"usbDevice10", "USB Controller 3 Port 2", "USB Port"}, {}},
    };
    // Wide enough: every column as wide as its widest cell, two blanks apart.
    EXPECT_EQ(host::Table({"DEVICE", "CAPTION", "DESCRIPTION"}, rows, 200),
              "DEVICE       CAPTION                  DESCRIPTION\n"
              "usbDevice0   USB 2.0 Controller 1     USB 2.00 Controller EHCI-HCD\n"
              "             USB Type: 2.00, USB Speed: 480 MBit/s, Hub Number: 1\n"
              "               retries=1  Retries (int 0..5)\n"
              "usbDevice10  USB Controller 3 Port 2  USB Port\n");
    // Narrow: the widest columns give up room and wrap between words; no line is wider than the screen.
    const std::vector<std::string> lines = Lines(host::Table({"DEVICE", "CAPTION", "DESCRIPTION"}, rows, 40));
    for (const std::string& line : lines) EXPECT_LE(host::TextWidth(line), 40u) << line;
    EXPECT_EQ(lines, (std::vector<std::string>{
                         "DEVICE       CAPTION       DESCRIPTION", "usbDevice0   USB 2.0       USB 2.00",
                         "             Controller 1  Controller", "                           EHCI-HCD",
                         "             USB Type: 2.00, USB Speed:", "               480 MBit/s, Hub Number: 1",
                         "               retries=1  Retries (int", "                 0..5)",
                         "usbDevice10  USB           USB Port", "             Controller 3", "             Port 2"}));
    // Cells are painted after the layout, each with its row.
    const std::string painted = host::Table({"A", "B"}, {{{"x", "pass"}, {}}, {{"y", "fail"}, {}}}, 80,
                                            [](size_t row, size_t column, const std::string& text) {
                                                return column == 1 ? "<" + std::to_string(row) + text + ">" : text;
                                            });
    EXPECT_EQ(painted, "A  B\nx  <0pass>\ny  <1fail>\n");
}
