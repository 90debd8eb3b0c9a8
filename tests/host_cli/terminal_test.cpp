// zorbus-host on a terminal, as an operator sees it: a tmux session on a
// server of this test's own, driven with send-keys and read with capture-pane.
#include <chrono>
#include <regex>
#include <thread>

#include "HostProgram.h"

namespace {

const std::string install = "Install High Speed USB Flash Drives into all USB ports";

// How a session starts the program.
struct Session {
    unsigned width = 200;
    std::string environment;  // assignments before the program, e.g. "NO_COLOR=1 "
    bool state = true;        // with the state of one discovery: no discovery on the screen
    bool gate = false;        // the program starts only when Go() is called; keys typed before wait in the terminal
    std::string pipe;         // a command that standard output goes through
};

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
        for (; sessions > 0; --sessions) Tmux("kill-server");
    }
    // On the server of the latest session: each session has one of its own.
    std::string Tmux(const std::string& arguments) const {
        const std::string out = machine + "/tmux.out";
        return std::system(("tmux -L zorbus-" + std::to_string(getpid()) + "-" + std::to_string(sessions) + " " +
                            arguments + " >" + Quoted(out) + " 2>&1")
                               .c_str()) == 0
                   ? ReadFile(out)
                   : "";
    }
    // The shell ignores Ctrl-C, so that it reaches the program alone, and shows the exit status.
    void Start(Args args, const Session& session = Session()) {
        if (session.state) args.insert(args.begin(), {"--state", machine + "/state.bin"});
        std::ofstream script(machine + "/session.sh");
        script << "trap '' INT\ncd " << Quoted(machine + "/run") << "\n";
        if (session.gate) script << "while [ ! -e go ]; do sleep 0.05; done\n";
        script << session.environment << HostCommand(args, machine) << session.pipe << "\necho \"EXIT=$?\"\nsleep 60\n";
        script.close();
        ++sessions;
        Tmux("new-session -d -s cli -x " + std::to_string(session.width) + " -y 50 " +
             Quoted("sh " + machine + "/session.sh"));
    }
    void Go() const { std::ofstream(machine + "/run/go").close(); }
    // The screen, with its history (and colours: `escapes`), as it was when it first showed `text`.
    std::string WaitFor(const std::string& text, const std::string& capture = "-S -") const {
        std::string screen;
        for (auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
             std::chrono::steady_clock::now() < end; std::this_thread::sleep_for(std::chrono::milliseconds(50)))
            if ((screen = Tmux("capture-pane -p " + capture + " -t cli")).find(text) != std::string::npos)
                return screen;
        ADD_FAILURE() << "no \"" << text << "\" on the screen:\n" << screen;
        return screen;
    }
    void Type(const std::string& keys) const {
        Tmux("send-keys -t cli -l " + Quoted(keys) + " \\; send-keys -t cli Enter");
    }
    std::string machine;
    unsigned sessions = 0;
};

std::string TrailingBlanksRemoved(const std::string& text) {
    return std::regex_replace(text, std::regex(" +\n"), "\n");
}

}  // namespace

TEST_F(Terminal, ProgressBarIsDrawnInPlaceAndTheResultMarkedInColour) {
    Start({"test", "usbDevice0", "rootHubTest"});
    const std::string screen = WaitFor("EXIT=");
    EXPECT_HAS(screen,
               "[##############################] 100% rootHubTest on usbDevice0: passed\n"
               "log: Test passed: Device - Root Hub Detect Test;\n"
               "PASS rootHubTest on usbDevice0: passed in 00:00:",
               "EXIT=0");
    // The 0 % bar was overwritten by the next one: no plain progress lines.
    EXPECT_EQ(screen.find("progress:"), std::string::npos);
    EXPECT_EQ(screen.find("]   0%"), std::string::npos) << screen;
    // The mark and the state are green.
    const std::string colours = WaitFor("EXIT=", "-e");
    EXPECT_TRUE(std::regex_search(colours, std::regex("\033\\[[0-9;]*32m(\033\\[[0-9;]*m)*PASS"))) << colours;
}

TEST_F(Terminal, NoColourWithNoColorSetOrOnADumbTerminal) {
    for (const char* environment : {"NO_COLOR=1 ", "TERM=dumb "}) {
        Session plain;
        plain.environment = environment;
        Start({"test", "usbDevice0", "rootHubTest", "test", "usbDevice2", "UsbPortTest", "retries=0", "--answer=1"},
              plain);
        const std::string screen = WaitFor("EXIT=", "-e");
        EXPECT_HAS(screen, "PASS rootHubTest on usbDevice0: passed", "FAIL UsbPortTest on usbDevice2: failed",
                   "EXIT=1");
        EXPECT_EQ(screen.find('\033'), std::string::npos) << environment << screen;
        // Still drawn in place: a terminal without escapes gets a carriage return and blanks.
        EXPECT_EQ(screen.find("progress:"), std::string::npos) << environment << screen;
    }
}

TEST_F(Terminal, AFailedTestsBarShowsItsMarkAndNeverAFullBar) {
    Start({"test", "usbDevice2", "UsbPortTest", "retries=0", "--answer=1"});
    const std::string screen = WaitFor("EXIT=");
    EXPECT_HAS(screen, "\n[------------------------------] FAIL UsbPortTest on usbDevice2: failed\n",
               "\nFAIL UsbPortTest on usbDevice2: failed in 00:00:", "EXIT=1");
    EXPECT_EQ(screen.find("100%"), std::string::npos) << screen;
    EXPECT_EQ(screen.find("#]"), std::string::npos) << screen;
}

TEST_F(Terminal, TypeAheadIsDiscardedAndThePromptAndItsAnswerStayOnTheScreen) {
    Session gated;
    gated.gate = true;
    Start({"test", "usbDevice2", "UsbPortTest", "retries=0"}, gated);
    // A key pressed before the prompt appears: it must not answer it.
    Type("7");
    Go();
    std::string screen = WaitFor("answer (number or caption):");
    // The running test shows its time; the question stands below its bar.
    EXPECT_TRUE(std::regex_search(screen, std::regex("\\[-+\\]   0% UsbPortTest on usbDevice2: running  0:0\\d\n"
                                                     "prompt \\(UsbPortTest on usbDevice2\\): " +
                                                     install + "\n  1\\) OK\nanswer \\(number or caption\\):")))
        << screen;
    Type("ok");
    screen = WaitFor("EXIT=");
    EXPECT_HAS(screen,
               "prompt (UsbPortTest on usbDevice2): " + install +
                   "\n  1) OK\n"
                   "answer (number or caption): ok\n",
               "FAIL UsbPortTest on usbDevice2: failed in 00:00:", "EXIT=1");
    EXPECT_EQ(screen.find("no button 7"), std::string::npos) << "the type-ahead answered the prompt:\n" << screen;
    EXPECT_EQ(Count(screen, "answer (number or caption):"), 1u);
}

TEST_F(Terminal, CtrlCAtAPromptCancelsAtOnceAndTheTestsAfterItAreNotRun) {
    Start({"test", "usbDevice2", "UsbPortTest", "retries=1", "test", "usbDevice0", "rootHubTest"});
    WaitFor("answer (number or caption):");
    Tmux("send-keys -t cli C-c");
    // No answer is typed: the cancel alone ends the test.
    const std::string screen = WaitFor("EXIT=");
    EXPECT_HAS(screen, "zorbus-host: cancel requested", "no answer: the test is canceled\n",
               "Cancel UsbPortTest on usbDevice2: Success (loop 0, record 0)\n",
               "STOP UsbPortTest on usbDevice2: canceled in 00:00:", "0 passed, 0 failed, 2 canceled\n", "EXIT=6");
    EXPECT_TRUE(std::regex_search(screen, std::regex("\nusbDevice0  rootHubTest  canceled  +not run\n"))) << screen;
    // Without the cancel the second try would have asked again.
    EXPECT_EQ(screen.find("(try #2)"), std::string::npos);
    EXPECT_EQ(screen.find("rootHubTest on usbDevice0"), std::string::npos) << "the second test ran";
}

TEST_F(Terminal, AnUnansweredPromptTimesOutWithItsOwnStatus) {
    Start({"--prompt-timeout", "1", "test", "usbDevice2", "UsbPortTest"});
    const std::string screen = WaitFor("EXIT=");
    EXPECT_HAS(screen, "answer (number or caption):\n",
               "zorbus-host: no answer to the prompt \"" + install + "\" within --prompt-timeout 1\n", "EXIT=7");
}

TEST_F(Terminal, TablesFitEightyColumnsAndBreakBetweenWords) {
    Session narrow;
    narrow.width = 80;
    narrow.state = false;
    Start({"--factory", "catalog", "id"}, narrow);
    const std::string screen = WaitFor("EXIT=");
    // The terminal wrapped no line of its own: joined, the lines are the same.
    EXPECT_EQ(TrailingBlanksRemoved(Tmux("capture-pane -p -J -S - -t cli")), TrailingBlanksRemoved(screen));
    const std::string words = std::regex_replace(screen, std::regex(R"(\s+)"), " ");
    EXPECT_HAS(words,
               " test UsbPortTest: USB Port Test - Number of USB Flash drive connected, its Operating Speed "
               "and file Write Compare Test [interactive, complete] ",
               " DeviceConnected: Yes, DeviceType: USB Optical Mouse, USB Type: 2.00, USB Speed: 1.5 MBit/s ");
    EXPECT_HAS(screen, "\nDiscovered: 16 devices\nDEVICE ",
               "\nTest list A, of usbDevice0, usbDevice5, usbDevice8, "
               "usbDevice11:\n",
               "EXIT=0");
}

TEST_F(Terminal, WithOutputInAPipeTheQuestionStillReachesTheTerminalAndNotTheLog) {
    Session piped;
    const std::string log = machine + "/log";
    piped.pipe = " | tee " + Quoted(log);
    Start({"test", "usbDevice2", "UsbPortTest", "retries=0"}, piped);
    // The log lines come through the pipe, the question straight: in which order they meet is open.
    EXPECT_HAS(WaitFor("answer (number or caption):"), "prompt (UsbPortTest on usbDevice2): " + install + "\n",
               "\n  1) OK\n");
    Type("1");
    EXPECT_HAS(WaitFor("EXIT="), "FAIL UsbPortTest on usbDevice2: failed");
    const std::string written = ReadFile(log);
    EXPECT_HAS(written, "log: Test Prompts User: Device - USB Port Test;" + install + "\n",
               "FAIL UsbPortTest on usbDevice2: failed");
    EXPECT_EQ(written.find("prompt ("), std::string::npos) << written;
    EXPECT_EQ(written.find("answer ("), std::string::npos) << written;
}

TEST_F(Terminal, ABatchRunEndsWithItsSummaryAndASaveThatFailsLeavesTheOldState) {
    // A state without devices: the run's discovery is its only one.
    const std::string saved = machine + "/saved.bin";
    ASSERT_EQ(RunHost({"--state", saved, "version"}, machine).status, 0);
    const std::string before = ReadFile(saved);
    ASSERT_EQ(before.compare(0, 8, "ZORBUSPT"), 0);
    Session limited;
    limited.width = 80;
    limited.state = false;
    // Writes beyond 4 KiB fail: the state of seven devices cannot be saved whole.
    limited.environment = "ulimit -f 8; ";
    Start({"--state", saved, "id", "run", "quick", "test", "usbDevice2", "UsbPortTest", "retries=0", "--answer=OK"},
          limited);
    const std::string screen = WaitFor("EXIT=");
    const std::string summary = screen.substr(std::min(screen.find("\nSummary:\n"), screen.size()));
    EXPECT_TRUE(std::regex_search(summary, std::regex("\nusbDevice4  rootHubTest  passed  00:00:\\d\\d\\.\\d{3} *\n")))
        << summary;
    // The error wraps within its column: the colour codes before it take no room.
    EXPECT_TRUE(std::regex_search(summary, std::regex("\nusbDevice2  UsbPortTest  failed  00:00:[0-9.]+  Device, Could "
                                                      "not locate files:\n {40,}SSO\\.DAT, Ran on CPU \\d+ *\n")))
        << summary;
    EXPECT_HAS(summary, "\n3 passed, 1 failed, 0 canceled\n", "EXIT=8");
    EXPECT_HAS(
        std::regex_replace(summary, std::regex(R"(\s+)"), " "),
        " zorbus-host: cannot save the state in " + saved + " (writing: File too large); the file is left as it was ");
    // Neither the coloured table nor the message was wrapped by the terminal, mid-word.
    EXPECT_EQ(TrailingBlanksRemoved(Tmux("capture-pane -p -J -S - -t cli")), TrailingBlanksRemoved(screen));
    EXPECT_EQ(ReadFile(saved), before);
    const std::string colours = WaitFor("EXIT=", "-e");
    EXPECT_TRUE(std::regex_search(colours, std::regex("\nusbDevice2  UsbPortTest  (\033\\[[0-9;]*m)*\033\\[[0-9;]*31m"
                                                      "(\033\\[[0-9;]*m)*failed")))
        << colours;
}
