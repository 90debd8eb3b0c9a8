// zorbus-host on a terminal, as an operator sees it: a tmux session on a
// server of this test's own, driven with send-keys and read with
// capture-pane.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <thread>

#include "HostProgram.h"

namespace {

std::string Shell(const std::string& command) {
    std::string out;
    if (FILE* pipe = popen(command.c_str(), "r")) {
        char buffer[4096];
        size_t n;
        while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) out.append(buffer, n);
        pclose(pipe);
    }
    return out;
}

std::string Quoted(const std::string& text) {
    std::string out = "'";
    for (char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

class Terminal : public ::testing::Test {
protected:
    void SetUp() override {
        const std::string why = HostUnavailable();
        if (!why.empty()) GTEST_SKIP() << why;
        if (!OnPath("tmux")) GTEST_SKIP() << "tmux is not installed (scripts/install-deps.sh installs it)";
        if (!OnPath("umockdev-wrapper")) GTEST_SKIP() << "umockdev-wrapper is not installed";
        machine = CopyMachine("example");
        ASSERT_FALSE(machine.empty());
        server = "zorbus-host-cli-" + std::to_string(getpid());
        // Discovery once, off the terminal, so that the screen holds the test alone.
        HostCall discover;
        discover.args = {"--state", machine + "/state.bin", "id"};
        discover.machine = machine;
        ASSERT_EQ(RunHost(discover).status, 0);
    }
    void TearDown() override {
        if (!server.empty()) Tmux("kill-server");
    }
    std::string Tmux(const std::string& arguments) const {
        return Shell("tmux -L " + server + " " + arguments + " 2>&1");
    }
    // Starts the program in a session 200 columns wide; a script notes its
    // exit status where the test reads it.
    void Start(const std::string& args) {
        const std::string script = machine + "/session.sh";
        // The shell ignores Ctrl-C, so that it reaches the program alone.
        std::ofstream(script) << "trap '' INT\n"
                              << "cd " << Quoted(machine + "/run") << "\n"
                              << "export PATH=" << Quoted(machine + "/stubs") << ":\"$PATH\"\n"
                              << "export UMOCKDEV_DIR=" << Quoted(machine + "/machine") << "\n"
                              << "umockdev-wrapper " << Quoted(HostProgramPath()) << " --state " << Quoted(machine + "/state.bin")
                              << " " << args << "\n"
                              << "echo \"EXIT=$?\"\n"
                              << "sleep 60\n";
        Tmux("new-session -d -s cli -x 200 -y 50 " + Quoted("sh " + script));
    }
    std::string Screen() const { return Tmux("capture-pane -p -t cli"); }
    // Waits until the screen shows `text`; the screen as it was then.
    std::string WaitFor(const std::string& text, int seconds = 30) const {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
        std::string screen;
        while (std::chrono::steady_clock::now() < deadline) {
            screen = Screen();
            if (screen.find(text) != std::string::npos) return screen;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        ADD_FAILURE() << "no \"" << text << "\" on the screen:\n" << screen;
        return screen;
    }
    void Type(const std::string& keys) const { Tmux("send-keys -t cli -l " + Quoted(keys) + " \\; send-keys -t cli Enter"); }

    std::string machine;
    std::string server;
};

TEST_F(Terminal, ProgressBarIsDrawnInPlaceAndEndsFull) {
    Start("test usbDevice0 rootHubTest");
    const std::string screen = WaitFor("EXIT=");
    EXPECT_NE(screen.find("[##############################] 100% rootHubTest on usbDevice0: passed\n"
                          "log: Test passed: Device - Root Hub Detect Test;\n"
                          "Result: rootHubTest on usbDevice0: passed in 00:00:"),
              std::string::npos)
        << screen;
    // The 0 % bar was overwritten by the next one: no plain progress lines.
    EXPECT_EQ(screen.find("progress:"), std::string::npos);
    EXPECT_EQ(screen.find("]   0%"), std::string::npos) << screen;
    EXPECT_NE(screen.find("EXIT=0"), std::string::npos);
}

TEST_F(Terminal, OperatorAnswersThePromptByCaptionAfterAWrongNumber) {
    Start("test usbDevice2 UsbPortTest retries=0");
    std::string screen = WaitFor("answer (number or caption):");
    // A log line goes above the bar; the bar stays, the question below it.
    EXPECT_EQ(screen.find("log: Test Started: Device - USB Port Test\n"
                          "log: Test Prompts User: Device - USB Port Test;Install High Speed USB Flash Drives into "
                          "all USB ports\n"
                          "[------------------------------]   0% UsbPortTest on usbDevice2: running\n"
                          "prompt (UsbPortTest on usbDevice2): Install High Speed USB Flash Drives into all USB ports\n"
                          "  1) OK\n"
                          "answer (number or caption):"),
              0u)
        << screen;
    EXPECT_EQ(screen.find("EXIT="), std::string::npos) << "the program waits for the operator";
    Type("2");
    screen = WaitFor("no button 2 (1 to 1)");
    EXPECT_EQ(Count(screen, "answer (number or caption):"), 2u) << screen;
    Type("ok");
    screen = WaitFor("EXIT=");
    EXPECT_NE(screen.find("] 100% UsbPortTest on usbDevice2: failed\n"), std::string::npos) << screen;
    EXPECT_NE(screen.find("Result: UsbPortTest on usbDevice2: failed in 00:00:"), std::string::npos);
    EXPECT_NE(screen.find("EXIT=1"), std::string::npos);
}

TEST_F(Terminal, AnswerOptionsGoFirstThenTheOperatorIsAsked) {
    Start("test usbDevice2 UsbPortTest --answer=1");
    std::string screen = WaitFor("answer (number or caption):");
    EXPECT_NE(screen.find("answer: 1 (from --answer)\n"), std::string::npos) << screen;
    EXPECT_NE(screen.find("Install High Speed USB Flash Drives into all USB ports (try #2)\n  1) OK\n"),
              std::string::npos);
    Type("1");
    screen = WaitFor("EXIT=");
    EXPECT_NE(screen.find("EXIT=1"), std::string::npos) << screen;
}

TEST_F(Terminal, CtrlCAtAPromptCancelsTheTestBeforeItsNextTry) {
    Start("test usbDevice2 UsbPortTest retries=1");
    WaitFor("answer (number or caption):");
    Tmux("send-keys -t cli C-c");
    WaitFor("zorbus-host: cancel requested");
    Type("1");
    const std::string screen = WaitFor("EXIT=");
    EXPECT_NE(screen.find("Cancel UsbPortTest on usbDevice2: Success (loop 0, record 0)\n"), std::string::npos)
        << screen;
    EXPECT_NE(screen.find("Result: UsbPortTest on usbDevice2: canceled in 00:00:"), std::string::npos);
    // Without the cancel the second try would have asked again.
    EXPECT_EQ(screen.find("(try #2)"), std::string::npos);
    EXPECT_NE(screen.find("EXIT=1"), std::string::npos);
}

}  // namespace
