// What the host program says of itself: --version, and the man page that is
// made from --help at build time and must say the same.
#include <regex>

#include "HostProgram.h"

namespace {

class Release : public ::testing::Test {
protected:
    void SetUp() override {
        if (!HostUnavailable().empty()) GTEST_SKIP() << HostUnavailable();
    }
};

// Text with every run of blanks and line ends as one blank.
std::string Words(const std::string& text) { return std::regex_replace(text, std::regex(R"(\s+)"), " "); }

}  // namespace

TEST_F(Release, VersionNamesTheProgramAndTheComponentsVersionRecordWithoutAMachine) {
    const HostRun run = RunHost({"--version"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, "zorbus-host 8.6.0\ncomponent: <diagVersion>8.6.0.3755A</diagVersion>\nlibrary: " +
                           std::string(ZORBUS_BINARY_DIR) + "/libzorbus.so\n");
    const HostRun missing = RunHost({"--version", "--library", "/nonexistent/libzorbus.so"});
    EXPECT_EQ(missing.status, 3);
    EXPECT_EQ(missing.out, "zorbus-host 8.6.0\n");
    EXPECT_HAS(missing.err, "zorbus-host: cannot load /nonexistent/libzorbus.so");
}

TEST_F(Release, ManPageSaysWhatHelpSays) {
    const std::string page = ZORBUS_BINARY_DIR "/zorbus-host.1";
    if (access(page.c_str(), F_OK) != 0) GTEST_SKIP() << "no man page in this build (help2man runs in plain builds)";
    if (std::system("command -v man >/dev/null") != 0) GTEST_SKIP() << "man is not installed";
    const std::string shown = TemporaryFolder() + "/shown";
    // Wide enough that no word is hyphenated; plain ASCII so that quotes and dashes stay as typed.
    const std::string show = "MANWIDTH=1000 man -E ascii -l " + Quoted(page) + " >" + Quoted(shown) + " 2>/dev/null";
    ASSERT_EQ(std::system(show.c_str()), 0);
    const std::string man = Words(ReadFile(shown)), help = RunHost({"--help"}).out;
    ASSERT_GT(help.size(), 1000u);
    // Each line of --help stands in the page, in the same words.
    std::istringstream lines(help);
    for (std::string line; std::getline(lines, line);) {
        line = Words(line);
        if (line.find_first_not_of(' ') == std::string::npos) continue;
        line = line.substr(line.find_first_not_of(' '));
        if (line.back() == ' ') line.pop_back();
        // help2man makes "Options:" the page's OPTIONS section.
        if (line == "Options:") line = "OPTIONS";
        EXPECT_NE(man.find(line), std::string::npos) << "the man page lacks: " << line;
    }
    EXPECT_HAS(man, "ZORBUS-HOST(1)", "zorbus-host - drive the USB test component libzorbus.so as a diagnostics host",
               "zorbus-host 8.6.0");
}
