// zorbus-state as an operator meets it: its help, and what it says of a file
// that is missing, is no state file, or is damaged.
#include "HostProgram.h"

TEST(StateTool, HelpGoesToStandardOutputAndAMissingFileIsNamedMissing) {
    // A program of the same build as the host program: where that one does not start, neither does this.
    if (!HostUnavailable().empty()) GTEST_SKIP() << HostUnavailable();
    const std::string tool = Quoted(ZORBUS_BINARY_DIR "/zorbus-state"), out = TemporaryFolder();
    auto run = [&](const std::string& arguments) {
        const int status = std::system((tool + " " + arguments + " >" + out + "/out 2>" + out + "/err").c_str());
        return HostRun{WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadFile(out + "/out"), ReadFile(out + "/err")};
    };
    for (const char* help : {"--help", "-h"}) {
        const HostRun shown = run(help);
        EXPECT_EQ(shown.status, 0) << help;
        EXPECT_HAS(shown.out, "usage: zorbus-state show FILE\n       zorbus-state copy FILE OUT\n", "Exit status:");
        EXPECT_EQ(shown.err, "");
    }
    const std::string notes = out + "/notes.txt", damaged = out + "/damaged.bin";
    std::ofstream(notes) << "my notes\n";
    std::ofstream(damaged, std::ios::binary) << std::string("ZORBUSPT\1\0\0\0\1\0\0\0\20\0\0\0US", 22);
    const struct {
        std::string arguments;
        int status;
        std::string error;
    } cases[] = {
        {"show /nonexistent/state.bin", 1, "zorbus-state: /nonexistent/state.bin: No such file or directory\n"},
        {"show " + notes, 1, "zorbus-state: " + notes + ": not a state file of this component\n"},
        {"show " + damaged, 1, "zorbus-state: " + damaged + ": damaged state file: "},
        {"", 2, "zorbus-state: no command given\nusage: zorbus-state show FILE\n"},
        {"show", 2, "zorbus-state: show takes one FILE\n"},
        {"frobnicate x", 2, "zorbus-state: unknown command 'frobnicate'\n"},
    };
    for (const auto& c : cases) {
        const HostRun shown = run(c.arguments);
        EXPECT_EQ(shown.status, c.status) << c.arguments;
        EXPECT_EQ(shown.err.rfind(c.error, 0), 0u) << shown.err;
        EXPECT_EQ(shown.out, "") << c.arguments;
    }
}
