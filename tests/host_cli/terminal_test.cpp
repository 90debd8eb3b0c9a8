// zorbus-host on a terminal, as an operator sees it: a tmux session on a
// server of this test's own, driven with send-keys and read with capture-pane.
#include <chrono>
#include <thread>

#include "HostProgram.h"

namespace {

const std::string install = "Install High Speed USB Flash Drives into all USB ports";

class Terminal : public ::testing::Test {
protected:
    void SetUp() override {
        if (!HostUnavailable().empty()) GTEST_SKIP() << HostUnavailable();
        if (!MachineUnavailable().empty()) GTEST_SKIP() << MachineUnavailable();
        if (std::system("command -v tmux >/dev/null") != 0) GTEST_SKIP() << "tmux is not installed";
        ASSERT_FALSE((machine = CopyMachine("example")).empty());
        // Discovery once, off the terminal, so that the screen holds the test alone.
        ASSERT_EQ(RunHost({"--state", machine + "/state.bin", "id"}, machine).status, 0);
    }
    void TearDown() override {
        if (!machine.empty()) Tmux("kill-server");
    }
    std::string Tmux(const std::string& arguments) const {
        const std::string out = machine + "/tmux.out";
        return std::system(("tmux -L zorbus-" + std::to_string(getpid()) + " " + arguments + " >" + Quoted(out) +
                            " 2>&1").c_str()) == 0 ? ReadFile(out) : "";
    }
    // 200 columns wide; the shell ignores Ctrl-C, so that it reaches the program alone, and shows the exit status.
    void Start(Args args) {
        args.insert(args.begin(), {"--state", machine + "/state.bin"});
        std::ofstream(machine + "/session.sh") << "trap '' INT\ncd " << Quoted(machine + "/run") << "\n"
                                               << HostCommand(args, machine) << "\necho \"EXIT=$?\"\nsleep 60\n";
        Tmux("new-session -d -s cli -x 200 -y 50 " + Quoted("sh " + machine + "/session.sh"));
    }
    // The screen as it was when it first showed `text`.
    std::string WaitFor(const std::string& text) const {
        std::string screen;
        for (auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
             std::chrono::steady_clock::now() < end; std::this_thread::sleep_for(std::chrono::milliseconds(50)))
            if ((screen = Tmux("capture-pane -p -t cli")).find(text) != std::string::npos) return screen;
        ADD_FAILURE() << "no \"" << text << "\" on the screen:\n" << screen;
        return screen;
    }
    void Type(const std::string& keys) const {
        Tmux("send-keys -t cli -l " + Quoted(keys) + " \\; send-keys -t cli Enter");
    }
    std::string machine;
};

}  // namespace

TEST_F(Terminal, ProgressBarIsDrawnInPlaceAndEndsFull) {
    Start({"test", "usbDevice0", "rootHubTest"});
    const std::string screen = WaitFor("EXIT=");
    EXPECT_HAS(screen, "[##############################] 100% rootHubTest on usbDevice0: passed\n"
                       "log: Test passed: Device - Root Hub Detect Test;\n"
                       "Result: rootHubTest on usbDevice0: passed in 00:00:", "EXIT=0");
    // The 0 % bar was overwritten by the next one: no plain progress lines.
    EXPECT_EQ(screen.find("progress:"), std::string::npos);
    EXPECT_EQ(screen.find("]   0%"), std::string::npos) << screen;
}

TEST_F(Terminal, AnswerOptionsGoFirstThenTheOperatorAnswersBelowTheBar) {
    Start({"test", "usbDevice2", "UsbPortTest", "--answer=1"});
    std::string screen = WaitFor("answer (number or caption):");
    // A log line goes above the bar; the bar stays, the questions below it.
    EXPECT_EQ(screen.find("log: Test Started: Device - USB Port Test\n"
                          "log: Test Prompts User: Device - USB Port Test;" + install + "\n"
                          "[------------------------------]   0% UsbPortTest on usbDevice2: running\n"
                          "prompt (UsbPortTest on usbDevice2): " + install + "\n  1) OK\n"
                          "answer: 1 (from --answer)\n"
                          "log: Test Prompts User: Device - USB Port Test;" + install + " (try #2)\n"
                          "prompt (UsbPortTest on usbDevice2): " + install + " (try #2)\n  1) OK\n"
                          "answer (number or caption):"), 0u) << screen;
    EXPECT_EQ(screen.find("EXIT="), std::string::npos) << "the program waits for the operator";
    Type("2");
    EXPECT_EQ(Count(WaitFor("no button 2 (1 to 1)"), "answer (number or caption):"), 2u);
    Type("ok");
    EXPECT_HAS(WaitFor("EXIT="), "] 100% UsbPortTest on usbDevice2: failed\n",
               "Result: UsbPortTest on usbDevice2: failed in 00:00:", "EXIT=1");
}

TEST_F(Terminal, CtrlCAtAPromptCancelsTheTestBeforeItsNextTry) {
    Start({"test", "usbDevice2", "UsbPortTest", "retries=1"});
    WaitFor("answer (number or caption):");
    Tmux("send-keys -t cli C-c");
    WaitFor("zorbus-host: cancel requested");
    Type("1");
    const std::string screen = WaitFor("EXIT=");
    EXPECT_HAS(screen, "Cancel UsbPortTest on usbDevice2: Success (loop 0, record 0)\n",
               "Result: UsbPortTest on usbDevice2: canceled in 00:00:", "EXIT=1");
    // Without the cancel the second try would have asked again.
    EXPECT_EQ(screen.find("(try #2)"), std::string::npos);
}
