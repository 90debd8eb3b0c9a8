// zorbus-host as scripts use it: exit statuses, --help, usage errors, readable
// and raw XML output, German texts, on the example machine under umockdev.
#include <regex>

#include "HostProgram.h"

namespace {

const std::string install = "Install High Speed USB Flash Drives into all USB ports";

// The program on no machine at all: options, usage and loading.
class HostCommandLine : public ::testing::Test {
protected:
    void SetUp() override {
        if (!HostUnavailable().empty()) GTEST_SKIP() << HostUnavailable();
    }
};

class HostProgram : public ::testing::Test {
protected:
    void SetUp() override {
        if (!HostUnavailable().empty()) GTEST_SKIP() << HostUnavailable();
        if (!MachineUnavailable().empty()) GTEST_SKIP() << MachineUnavailable();
        ASSERT_FALSE((machine = CopyMachine("example")).empty());
    }
    HostRun Run(const Args& args) const { return RunHost(args, machine); }
    std::string machine;
};

// The text from the line that starts with `from` up to the first `to` after it.
std::string Excerpt(const std::string& text, const std::string& from, const std::string& to) {
    const size_t start = text.find(from);
    return start == std::string::npos ? "" : text.substr(start, text.find(to, start) - start);
}

}  // namespace

TEST_F(HostCommandLine, HelpDocumentsEveryOptionStatusAndCommandAndEachOptionIsAccepted) {
    const HostRun help = RunHost({"--help"});
    ASSERT_EQ(help.status, 0) << help.err;
    // Each option it names is taken: one it does not know is a usage error even beside --help.
    std::regex option(R"((?:^|\n)\s+(?:-h, )?(--[a-z-]+)([ =][A-Z])?)");
    Args documented;
    for (std::sregex_iterator it(help.out.begin(), help.out.end(), option), end; it != end; ++it) {
        documented.push_back((*it)[1]);
        Args args = {(*it)[1]};
        if ((*it)[2].matched) args.push_back("x");
        args.push_back("--help");
        EXPECT_EQ(RunHost(args).status, 0) << (*it)[0];
    }
    EXPECT_EQ(documented, (Args{"--library", "--component", "--state", "--language", "--debug", "--factory",
                                "--diags-medium", "--xml", "--answer", "--kernel-paths", "--devices-source",
                                "--usbfs-source", "--junit", "--json", "--version", "--help"}));
    EXPECT_HAS(help.out, "\n  0  ", "\n  1  ", "\n  2  ", "\n  3  ", "\n  4  ", "\n  5  ", "catalog", "id",
               "test DEVICE TEST [NAME=VALUE...]", "cancel DEVICE TEST", "diagnose DEVICE", "version");
}

TEST_F(HostCommandLine, UsageErrorsExitTwoAndComponentsThatCannotBeLoadedThree) {
    const struct {
        Args args;
        int status;
        const char* reason;
    } cases[] = {
        {{}, 2, "no command given"},
        {{"--frobnicate", "id"}, 2, "unknown option --frobnicate"},
        {{"id", "--library"}, 2, "--library needs a value"},
        {{"--factory=1", "id"}, 2, "--factory takes no value"},
        {{"test", "usbDevice0"}, 2, "usage: test DEVICE TEST [NAME=VALUE...]"},
        {{"test", "usbDevice0", "--xml"}, 2, "usage: test DEVICE TEST"},
        {{"cancel", "usbDevice0"}, 2, "usage: cancel DEVICE TEST"},
        {{"diagnose"}, 2, "usage: diagnose DEVICE"},
        {{"id", "frobnicate"}, 2, "unknown command 'frobnicate'"},
        {{"--library", "/nonexistent/lib.so", "id", "bogus"}, 2, "unknown command 'bogus'"},  // checked before loading
        {{"--library", "/nonexistent/libzorbus.so", "version"}, 3, "cannot load /nonexistent/libzorbus.so"},
        {{"--library", "libm.so.6", "version"}, 3, "the library has no entry point Initialize"},
    };
    for (const auto& c : cases) {
        const HostRun run = RunHost(c.args);
        EXPECT_EQ(run.status, c.status) << c.reason;
        EXPECT_HAS(run.err, std::string("zorbus-host: ") + c.reason);
        EXPECT_EQ(run.err.find("--help") != std::string::npos, c.status == 2) << run.err;
        EXPECT_EQ(run.out, "") << c.reason;
    }
    EXPECT_EQ(RunHost({"version"}).out, "Version: 8.6.0.3755A\n");
    EXPECT_EQ(RunHost({"--xml", "version"}).out, "answer: <diagVersion>8.6.0.3755A</diagVersion>\n");
}

TEST_F(HostProgram, DiscoveryIsATableOfDevicesTestsAndParametersInEachMode) {
    const HostRun run = Run({"id"});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out.find("log: Device Discovery Started\n"), 0u) << run.out;
    EXPECT_HAS(run.out,
               "Discovered: 7 devices\nDEVICE      CAPTION       DESCRIPTION\n"
               "usbDevice0  USB Device 1  USB 2.00 Controller EHCI-HCD\n"
               "            USB Type: 2.00, USB Speed: 480 MBit/s, Hub Number: 1, Total Number of Ports: 4\n"
               "            test rootHubTest: Root Hub Detect Test - Discovers the presence of a working "
               "root hub [quick, complete, fieldtest]\n"
               "              retries=1  Retries (int 0..5) - Number of retries if test fails\n",
               "\nusbDevice1  USB Device 2  SanDisk  Cruzer\n"
               "            USB Type: 2.00, USB Speed: 480 MBit/s, Hub Number 1 portNum: 2\n",
               "\n              numUSBdrives=1  Expected number of USB drives to test (int 1..32) - ");
    // Every controller offers the test; the devices behind them do not.
    EXPECT_EQ(Count(run.out, "test rootHubTest:"), 3u);
    EXPECT_EQ(Count(run.out, "\nlog: Device Discovered: "), 7u);
    EXPECT_EQ(run.out.find('<'), std::string::npos) << "no XML in the readable form";
    EXPECT_EQ(Count(run.out, "  USB Port\n"), 0u);

    // Factory mode: each port of each controller is an entry of its own.
    const HostRun factory = Run({"--factory", "catalog", "id"});
    ASSERT_EQ(factory.status, 0) << factory.err;
    EXPECT_HAS(factory.out,
               "Catalogue: 1 device\nDEVICE     CAPTION     DESCRIPTION\n"
               "usbDevice  USB Device  USB Device\n           test rootHubTest: Root Hub Detect Test",
               "Discovered: 16 devices\n", "DeviceConnected: Yes, DeviceType: Cruzer");
    EXPECT_EQ(Count(factory.out, "  USB Port\n"), 12u);  // 4 + 2 + 2 + the hub's 4
}

TEST_F(HostProgram, TestsShowLogProgressAndResultAndTheWorstOutcomeDecidesTheStatus) {
    const HostRun pass = Run({"id", "test", "usbDevice0", "rootHubTest"});
    ASSERT_EQ(pass.status, 0) << pass.err;
    EXPECT_EQ(Excerpt(pass.out, "log: Test Started", " in 00:00:"),
              "log: Test Started: Device - Root Hub Detect Test\n"
              "progress: 0% rootHubTest on usbDevice0: running\n"
              "progress: 100% rootHubTest on usbDevice0: passed\n"
              "log: Test passed: Device - Root Hub Detect Test;\n"
              "Result: rootHubTest on usbDevice0: passed");
    EXPECT_EQ(pass.out.find('\r'), std::string::npos) << "no bar drawn in place off a terminal";

    // Parameters reach the component: more than 5 retries is refused before any try.
    const HostRun mixed = Run({"id", "<frobnicate/>", "test", "usbDevice9", "rootHubTest", "test", "usbDevice0",
                               "rootHubTest", "retries=9", "version"});
    EXPECT_EQ(mixed.status, 3);
    EXPECT_HAS(mixed.out,
               "log: Error: TvkError - Invalid Command;Invalid Command: frobnicate\n"
               "Error: Invalid Command: frobnicate\n",
               "Result: rootHubTest on usbDevice9: failed\n  error: Device not found: usbDevice9\n",
               "  error: Device, Parameter outside acceptable range, Ran on CPU ", "Version: 8.6.0.3755A");
    // A test that fails and one that passes: the failure wins.
    EXPECT_EQ(Run({"id", "test", "usbDevice9", "rootHubTest", "test", "usbDevice0", "rootHubTest"}).status, 1);

    const HostRun cancel = Run({"id", "cancel", "usbDevice0", "rootHubTest", "diagnose", "usbDevice0"});
    EXPECT_EQ(cancel.status, 0) << cancel.out;
    EXPECT_HAS(cancel.out, "Cancel rootHubTest on usbDevice0: Success (loop 0, record 0)\n",
               "Diagnosis of usbDevice0: passed in 00:00:");
    const HostRun unknownTest = Run({"id", "cancel", "usbDevice0", "speedTest"});
    EXPECT_EQ(unknownTest.status, 3);
    EXPECT_HAS(unknownTest.out, "Error: Test not found: speedTest\n");
    const HostRun unknownDevice = Run({"id", "diagnose", "usbDevice9"});
    EXPECT_EQ(unknownDevice.status, 1);
    EXPECT_HAS(unknownDevice.out, "Diagnosis of usbDevice9: failed\n  error: Device not found: usbDevice9\n");
}

TEST_F(HostProgram, FailedTestExitsOneAndMarksOnlyFactoryRunsFromTheMedium) {
    if (access("/proc/bus/usb/001/001", F_OK) == 0) GTEST_SKIP() << "this machine has a real root hub node";
    ASSERT_EQ(unlink((machine + "/machine/proc/bus/usb/001/001").c_str()), 0);
    Args failing = {"id", "test", "usbDevice0", "rootHubTest", "retries=0"};
    const HostRun run = Run(failing);
    EXPECT_EQ(run.status, 1);
    EXPECT_HAS(run.out, "progress: 100% rootHubTest on usbDevice0: failed\n",
               "Result: rootHubTest on usbDevice0: failed in 00:00:",
               "\n  error: Device, Unable to detect root hub, Ran on CPU ");
    // Only a factory run from the medium leaves the failure mark.
    const std::string mark = machine + "/run/libzorbus.so.failure.version";
    EXPECT_NE(access(mark.c_str(), F_OK), 0);
    for (const char* option : {"--factory", "--diags-medium"}) {
        failing.insert(failing.begin(), option);
        EXPECT_EQ(Run(failing).status, 1);
        EXPECT_EQ(access(mark.c_str(), F_OK) == 0, failing.size() == 7u) << option;
    }
    EXPECT_EQ(ReadFile(mark), "<diagVersion>8.6.0.3755A</diagVersion>\n");
}

TEST_F(HostProgram, StateGermanAndRawXml) {
    // The state file carries the devices to the next run.
    const std::string state = machine + "/state.bin";
    ASSERT_EQ(Run({"--state", state, "id"}).status, 0);
    const HostRun next = Run({"--state", state, "test", "usbDevice2", "rootHubTest"});
    EXPECT_EQ(next.status, 0) << next.out;
    EXPECT_HAS(next.out, "Result: rootHubTest on usbDevice2: passed");
    EXPECT_EQ(Run({"test", "usbDevice2", "rootHubTest"}).status, 1);

    const HostRun german = Run({"--language", "de", "catalog", "id", "test", "usbDevice0", "rootHubTest"});
    ASSERT_EQ(german.status, 0) << german.err;
    EXPECT_HAS(german.out, "test rootHubTest: Root-Hub-Erkennungstest - ", "retries=1  Wiederholungen (int 0..5)",
               "log: Geräteerkennung gestartet\n");
    EXPECT_EQ(german.out.find("Root Hub Detect Test"), std::string::npos);

    const HostRun raw = Run({"--xml", "id", "test", "usbDevice0", "rootHubTest"});
    ASSERT_EQ(raw.status, 0) << raw.err;
    EXPECT_EQ(raw.out.find("event: <diagEvent component=\"libzorbus.so\" caption=\"Device Discovery Started\" "
                           "description=\"\"/>\n"), 0u) << raw.out;
    EXPECT_HAS(raw.out, "\nanswer: <idResult><device name=\"usbDevice0\"",
               "\nevent: <diagUpdate device=\"usbDevice0\" test=\"rootHubTest\" percentComplete=\"100\" "
               "currentState=\"passed\"",
               "\nanswer: <testResult device=\"usbDevice0\" test=\"rootHubTest\"");
    EXPECT_EQ(raw.out.find("DEVICE "), std::string::npos);
    EXPECT_EQ(raw.out.find("progress:"), std::string::npos);
    EXPECT_EQ(Run({"--xml", "id", "test", "usbDevice0", "rootHubTest", "retries=9"}).status, 1);
}

// The USB port test asks for flash drives before it looks; on the example's UHCI controller it then fails.
TEST_F(HostProgram, PromptsAreAnsweredFromAnswerOptionsInOrderOrTheRunStops) {
    const HostRun run = Run({"id", "test", "usbDevice2", "UsbPortTest", "--answer=ok", "--answer", "1"});
    EXPECT_EQ(run.status, 1) << run.err;
    EXPECT_EQ(Excerpt(run.out, "log: Test Started", "Result: "),
              "log: Test Started: Device - USB Port Test\n"
              "progress: 0% UsbPortTest on usbDevice2: running\n"
              "log: Test Prompts User: Device - USB Port Test;" + install + "\n"
              "prompt (UsbPortTest on usbDevice2): " + install + "\n  1) OK\n"
              "answer: ok (from --answer)\n"
              "log: Test Prompts User: Device - USB Port Test;" + install + " (try #2)\n"
              "prompt (UsbPortTest on usbDevice2): " + install + " (try #2)\n  1) OK\n"
              "answer: 1 (from --answer)\n"
              "progress: 100% UsbPortTest on usbDevice2: failed\n"
              "log: Test failed: Device - USB Port Test;\n");
    EXPECT_EQ(run.err, "");
    // What goes back is the button's position.
    const HostRun raw = Run({"--xml", "id", "test", "usbDevice2", "UsbPortTest", "retries=0", "--answer=OK"});
    EXPECT_HAS(raw.out, "\nevent: <diagPrompt test=\"UsbPortTest\" device=\"usbDevice2\" type=\"button\"",
               "\nreply: <diagPromptResponse value=\"0\"/>\n");

    // Standard input is no terminal: no answer left stops the run instead of hanging.
    const HostRun none = Run({"id", "test", "usbDevice2", "UsbPortTest"});
    EXPECT_EQ(none.status, 4);
    EXPECT_HAS(none.err, "zorbus-host: the component asks \"" + install +
                             "\", but no --answer is left and standard input is no terminal");
    EXPECT_EQ(none.out.find("Result: "), std::string::npos);
    const HostRun tooFew = Run({"id", "test", "usbDevice2", "UsbPortTest", "--answer=OK"});
    EXPECT_EQ(tooFew.status, 4);
    EXPECT_EQ(Count(tooFew.out, "\nprompt (UsbPortTest on usbDevice2)"), 2u);
    const HostRun wrong = Run({"id", "test", "usbDevice2", "UsbPortTest", "--answer=Cancel"});
    EXPECT_EQ(wrong.status, 4);
    EXPECT_HAS(wrong.err,
               "--answer=Cancel does not answer the prompt: 'Cancel' is neither a button's number nor its caption");
    const HostRun leftOver = Run({"id", "test", "usbDevice0", "rootHubTest", "--answer=OK"});
    EXPECT_EQ(leftOver.status, 0);
    EXPECT_HAS(leftOver.err, "1 --answer value(s) left unused");
}
