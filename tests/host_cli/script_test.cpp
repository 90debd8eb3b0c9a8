// zorbus-host as scripts use it: exit statuses, --help, usage errors, the
// readable output, German texts and the raw XML mode, on the bundled example
// machine under umockdev.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <regex>

#include "HostProgram.h"

namespace {

class HostProgram : public ::testing::Test {
protected:
    void SetUp() override {
        const std::string why = HostUnavailable();
        if (!why.empty()) GTEST_SKIP() << why;
    }
    static HostRun Run(std::vector<std::string> args) {
        HostCall call;
        call.args = std::move(args);
        return RunHost(call);
    }
};

class ExampleMachine : public HostProgram {
protected:
    void SetUp() override {
        HostProgram::SetUp();
        if (IsSkipped()) return;
        if (!OnPath("umockdev-wrapper")) GTEST_SKIP() << "umockdev-wrapper is not installed";
        machine = CopyMachine("example");
        ASSERT_FALSE(machine.empty());
    }
    HostRun Run(std::vector<std::string> args) const {
        HostCall call;
        call.args = std::move(args);
        call.machine = machine;
        HostRun run = RunHost(call);
        EXPECT_FALSE(run.timedOut) << run.out;
        return run;
    }
    std::string machine;
};

TEST_F(HostProgram, HelpDocumentsEveryOptionAndStatusAndEachIsAccepted) {
    const HostRun help = Run({"--help"});
    ASSERT_EQ(help.status, 0) << help.err;
    // Every option that --help names must be one the program takes: an
    // option it does not know is a usage error even beside --help.
    std::regex optionPattern(R"((?:^|\n)\s+(?:-h, )?(--[a-z-]+)(=?))");
    std::vector<std::string> documented;
    for (std::sregex_iterator it(help.out.begin(), help.out.end(), optionPattern), end; it != end; ++it)
        documented.push_back((*it)[1]);
    const std::vector<std::string> expected = {"--library", "--component", "--state", "--language",
                                               "--debug", "--factory", "--diags-medium", "--xml", "--answer",
                                               "--kernel-paths", "--devices-source", "--usbfs-source", "--help"};
    for (const std::string& option : expected)
        EXPECT_NE(std::find(documented.begin(), documented.end(), option), documented.end()) << option;
    const std::vector<std::string> takesValue = {"--library", "--component", "--state", "--language", "--answer",
                                                 "--devices-source", "--usbfs-source"};
    for (const std::string& option : documented) {
        std::vector<std::string> args = {option};
        if (std::find(takesValue.begin(), takesValue.end(), option) != takesValue.end()) args.push_back("x");
        args.push_back("--help");
        EXPECT_EQ(Run(args).status, 0) << option;
    }
    for (const char* status : {"\n  0  ", "\n  1  ", "\n  2  ", "\n  3  ", "\n  4  ", "\n  5  "})
        EXPECT_NE(help.out.find(status), std::string::npos) << "exit status" << status;
    for (const char* command : {"catalog", "id", "test DEVICE TEST [NAME=VALUE...]", "cancel DEVICE TEST",
                                "diagnose DEVICE", "version"})
        EXPECT_NE(help.out.find(command), std::string::npos) << command;
}

TEST_F(HostProgram, UsageErrorsExitTwoWithTheReasonAndLoadNothing) {
    const struct {
        std::vector<std::string> args;
        const char* reason;
    } cases[] = {
        {{}, "no command given"},
        {{"--frobnicate", "id"}, "unknown option --frobnicate"},
        {{"id", "--library"}, "--library needs a value"},
        {{"--factory=1", "id"}, "--factory takes no value"},
        {{"test", "usbDevice0"}, "usage: test DEVICE TEST [NAME=VALUE...]"},
        {{"test", "usbDevice0", "--xml"}, "usage: test DEVICE TEST"},
        {{"cancel", "usbDevice0"}, "usage: cancel DEVICE TEST"},
        {{"diagnose"}, "usage: diagnose DEVICE"},
        {{"id", "frobnicate"}, "unknown command 'frobnicate'"},
        {{"--library", "/nonexistent/lib.so", "id", "bogus"}, "unknown command 'bogus'"},
    };
    for (const auto& c : cases) {
        const HostRun run = Run(c.args);
        EXPECT_EQ(run.status, 2) << c.reason;
        EXPECT_NE(run.err.find(std::string("zorbus-host: ") + c.reason), std::string::npos) << run.err;
        EXPECT_NE(run.err.find("--help"), std::string::npos);
        EXPECT_EQ(run.out, "") << c.reason;  // nothing ran
    }
}

TEST_F(HostProgram, ComponentThatCannotBeLoadedExitsThree) {
    const HostRun missing = Run({"--library", "/nonexistent/libzorbus.so", "version"});
    EXPECT_EQ(missing.status, 3);
    EXPECT_NE(missing.err.find("cannot load /nonexistent/libzorbus.so"), std::string::npos) << missing.err;
    // A library that loads but is no component.
    const HostRun foreign = Run({"--library", "libm.so.6", "version"});
    EXPECT_EQ(foreign.status, 3);
    EXPECT_NE(foreign.err.find("the library has no entry point Initialize"), std::string::npos) << foreign.err;
}

TEST_F(HostProgram, VersionNeedsNoMachine) {
    const HostRun run = Run({"version"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, "Version: 8.6.0.3755A\n");
    EXPECT_EQ(Run({"--xml", "version"}).out, "answer: <diagVersion>8.6.0.3755A</diagVersion>\n");
}

TEST_F(ExampleMachine, DiscoveryIsATableOfDevicesTestsAndParameters) {
    const HostRun run = Run({"id"});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find("Discovered: 7 devices\n"
                           "DEVICE      CAPTION       DESCRIPTION\n"
                           "usbDevice0  USB Device 1  USB 2.00 Controller EHCI-HCD\n"
                           "            USB Type: 2.00, USB Speed: 480 MBit/s, Hub Number: 1, Total Number of Ports: 4\n"
                           "            test rootHubTest: Root Hub Detect Test - Discovers the presence of a working "
                           "root hub [quick, complete, fieldtest]\n"
                           "              retries=1  Retries (int 0..5) - Number of retries if test fails\n"),
              std::string::npos)
        << run.out;
    EXPECT_NE(run.out.find("\nusbDevice1  USB Device 2  SanDisk  Cruzer\n"
                           "            USB Type: 2.00, USB Speed: 480 MBit/s, Hub Number 1 portNum: 2\n"),
              std::string::npos);
    EXPECT_NE(run.out.find("\n              numUSBdrives=1  Expected number of USB drives to test (int 1..32) - "),
              std::string::npos);
    // Every controller offers the test; the devices behind them do not.
    EXPECT_EQ(Count(run.out, "test rootHubTest:"), 3u);
    EXPECT_EQ(Count(run.out, "\nlog: Device Discovered: "), 7u);
    EXPECT_EQ(run.out.find("log: Device Discovery Started\n"), 0u);
    EXPECT_EQ(run.out.find('<'), std::string::npos) << "no XML in the readable form";
}

TEST_F(ExampleMachine, FactoryModeAndCatalogue) {
    const HostRun factory = Run({"--factory", "catalog", "id"});
    ASSERT_EQ(factory.status, 0) << factory.err;
    EXPECT_NE(factory.out.find("Catalogue: 1 device\n"
                               "DEVICE     CAPTION     DESCRIPTION\n"
                               "usbDevice  USB Device  USB Device\n"
                               "           test rootHubTest: Root Hub Detect Test"),
              std::string::npos)
        << factory.out;
    // Each port of each controller is an entry of its own.
    EXPECT_NE(factory.out.find("Discovered: 16 devices\n"), std::string::npos);
    EXPECT_EQ(Count(factory.out, "  USB Port\n"), 12u) << factory.out;  // 4 + 2 + 2 + the hub's 4
    EXPECT_NE(factory.out.find("DeviceConnected: Yes, DeviceType: Cruzer"), std::string::npos);
    // --factory reaches the component: field mode has no port entries.
    EXPECT_EQ(Count(Run({"id"}).out, "  USB Port\n"), 0u);
}

TEST_F(ExampleMachine, PassingTestShowsLogProgressAndResultAndExitsZero) {
    const HostRun run = Run({"id", "test", "usbDevice0", "rootHubTest"});
    ASSERT_EQ(run.status, 0) << run.err;
    const std::string tail = run.out.substr(run.out.find("log: Test Started"));
    EXPECT_EQ(tail.substr(0, tail.find(" in 00:00:")),
              "log: Test Started: Device - Root Hub Detect Test\n"
              "progress: 0% rootHubTest on usbDevice0: running\n"
              "progress: 100% rootHubTest on usbDevice0: passed\n"
              "log: Test passed: Device - Root Hub Detect Test;\n"
              "Result: rootHubTest on usbDevice0: passed");
    EXPECT_EQ(run.out.find('\r'), std::string::npos) << "no bar drawn in place off a terminal";
}

TEST_F(ExampleMachine, FailedTestExitsOneWithTheErrorText) {
    struct stat real;
    if (stat("/proc/bus/usb/001/001", &real) == 0) GTEST_SKIP() << "this machine has a real root hub node";
    ASSERT_EQ(unlink((machine + "/machine/proc/bus/usb/001/001").c_str()), 0);
    const HostRun run = Run({"id", "test", "usbDevice0", "rootHubTest", "retries=0"});
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.out.find("progress: 100% rootHubTest on usbDevice0: failed\n"), std::string::npos);
    EXPECT_NE(run.out.find("Result: rootHubTest on usbDevice0: failed in 00:00:"), std::string::npos);
    EXPECT_NE(run.out.find("\n  error: Device, Unable to detect root hub, Ran on CPU "), std::string::npos) << run.out;
    // Field mode writes no failure mark; factory mode from the medium does.
    EXPECT_NE(access((machine + "/run/libzorbus.so.failure.version").c_str(), F_OK), 0);
    EXPECT_EQ(Run({"--factory", "id", "test", "usbDevice0", "rootHubTest", "retries=0"}).status, 1);
    EXPECT_NE(access((machine + "/run/libzorbus.so.failure.version").c_str(), F_OK), 0);
    EXPECT_EQ(Run({"--factory", "--diags-medium", "id", "test", "usbDevice0", "rootHubTest", "retries=0"}).status, 1);
    EXPECT_EQ(ReadFile(machine + "/run/libzorbus.so.failure.version"), "<diagVersion>8.6.0.3755A</diagVersion>\n");
}

TEST_F(ExampleMachine, ParametersReachTheRunCommand) {
    // retries above 5 is refused by the component before any try.
    const HostRun run = Run({"id", "test", "usbDevice0", "rootHubTest", "retries=9"});
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.out.find("  error: Device, Parameter outside acceptable range, Ran on CPU "), std::string::npos)
        << run.out;
    EXPECT_EQ(Run({"id", "test", "usbDevice0", "rootHubTest", "retries=5", "loop=3"}).status, 0);
}

TEST_F(ExampleMachine, WorstOutcomeDecidesTheStatusAndEveryCommandRuns) {
    const HostRun run = Run({"id", "<frobnicate/>", "test", "usbDevice9", "rootHubTest", "test", "usbDevice0",
                             "rootHubTest", "version"});
    EXPECT_EQ(run.status, 3);
    EXPECT_NE(run.out.find("log: Error: TvkError - Invalid Command;Invalid Command: frobnicate\n"
                           "Error: Invalid Command: frobnicate\n"),
              std::string::npos)
        << run.out;
    EXPECT_NE(run.out.find("Result: rootHubTest on usbDevice9: failed\n  error: Device not found: usbDevice9\n"),
              std::string::npos);
    EXPECT_NE(run.out.find("Result: rootHubTest on usbDevice0: passed"), std::string::npos);
    EXPECT_NE(run.out.find("Version: 8.6.0.3755A"), std::string::npos);
    // A test that fails and one that passes: the failure wins.
    EXPECT_EQ(Run({"id", "test", "usbDevice9", "rootHubTest", "test", "usbDevice0", "rootHubTest"}).status, 1);
}

TEST_F(ExampleMachine, CancelAndDiagnoses) {
    const HostRun run = Run({"id", "cancel", "usbDevice0", "rootHubTest", "diagnose", "usbDevice0"});
    EXPECT_EQ(run.status, 0) << run.out;
    EXPECT_NE(run.out.find("Cancel rootHubTest on usbDevice0: Success (loop 0, record 0)\n"), std::string::npos);
    EXPECT_NE(run.out.find("Diagnosis of usbDevice0: passed in 00:00:"), std::string::npos) << run.out;
    const HostRun unknownTest = Run({"id", "cancel", "usbDevice0", "speedTest"});
    EXPECT_EQ(unknownTest.status, 3);
    EXPECT_NE(unknownTest.out.find("Error: Test not found: speedTest\n"), std::string::npos);
    const HostRun unknownDevice = Run({"id", "diagnose", "usbDevice9"});
    EXPECT_EQ(unknownDevice.status, 1);
    EXPECT_NE(unknownDevice.out.find("Diagnosis of usbDevice9: failed\n  error: Device not found: usbDevice9\n"),
              std::string::npos);
}

TEST_F(ExampleMachine, StateFileCarriesTheDevicesToTheNextRun) {
    const std::string state = machine + "/state.bin";
    ASSERT_EQ(Run({"--state", state, "id"}).status, 0);
    const HostRun next = Run({"--state", state, "test", "usbDevice2", "rootHubTest"});
    EXPECT_EQ(next.status, 0) << next.out;
    EXPECT_NE(next.out.find("Result: rootHubTest on usbDevice2: passed"), std::string::npos);
    // Without the state the same command finds no device.
    EXPECT_EQ(Run({"test", "usbDevice2", "rootHubTest"}).status, 1);
}

TEST_F(ExampleMachine, GermanTextsThroughTheShippedCatalogue) {
    const HostRun german = Run({"--language", "de", "catalog", "id", "test", "usbDevice0", "rootHubTest"});
    ASSERT_EQ(german.status, 0) << german.err;
    EXPECT_NE(german.out.find("test rootHubTest: Root-Hub-Erkennungstest - "), std::string::npos) << german.out;
    EXPECT_NE(german.out.find("retries=1  Wiederholungen (int 0..5)"), std::string::npos);
    EXPECT_NE(german.out.find("log: Geräteerkennung gestartet\n"), std::string::npos);
    EXPECT_EQ(german.out.find("Root Hub Detect Test"), std::string::npos);
    // The table's columns count characters, not bytes: "USB-Geschwindigkeit"
    // lines up however many umlauts stand before it.
    const HostRun english = Run({"catalog"});
    EXPECT_NE(english.out.find("test rootHubTest: Root Hub Detect Test - "), std::string::npos);
}

TEST_F(ExampleMachine, RawXmlModeShowsTheComponentsOwnText) {
    const HostRun run = Run({"--xml", "id", "test", "usbDevice0", "rootHubTest"});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out.find("event: <diagEvent component=\"libzorbus.so\" caption=\"Device Discovery Started\" "
                           "description=\"\"/>\n"),
              0u)
        << run.out;
    EXPECT_NE(run.out.find("\nanswer: <idResult><device name=\"usbDevice0\""), std::string::npos);
    EXPECT_NE(run.out.find("\nevent: <diagUpdate device=\"usbDevice0\" test=\"rootHubTest\" percentComplete=\"100\" "
                           "currentState=\"passed\""),
              std::string::npos);
    EXPECT_NE(run.out.find("\nanswer: <testResult device=\"usbDevice0\" test=\"rootHubTest\""), std::string::npos);
    EXPECT_EQ(run.out.find("DEVICE "), std::string::npos);
    EXPECT_EQ(run.out.find("progress:"), std::string::npos);
    // The status still follows the result.
    EXPECT_EQ(Run({"--xml", "id", "test", "usbDevice0", "rootHubTest", "retries=9"}).status, 1);
}

// The USB port test asks the operator to plug in flash drives before it
// looks; on the UHCI controller of the example machine it then fails.
TEST_F(ExampleMachine, PromptsAreAnsweredFromAnswerOptionsInOrder) {
    const HostRun run = Run({"id", "test", "usbDevice2", "UsbPortTest", "--answer=ok", "--answer", "1"});
    EXPECT_EQ(run.status, 1) << run.err;
    const std::string tail = run.out.substr(run.out.find("log: Test Started"));
    EXPECT_EQ(tail.substr(0, tail.find("Result: ")),
              "log: Test Started: Device - USB Port Test\n"
              "progress: 0% UsbPortTest on usbDevice2: running\n"
              "log: Test Prompts User: Device - USB Port Test;Install High Speed USB Flash Drives into all USB ports\n"
              "prompt (UsbPortTest on usbDevice2): Install High Speed USB Flash Drives into all USB ports\n"
              "  1) OK\n"
              "answer: ok (from --answer)\n"
              "log: Test Prompts User: Device - USB Port Test;Install High Speed USB Flash Drives into all USB ports "
              "(try #2)\n"
              "prompt (UsbPortTest on usbDevice2): Install High Speed USB Flash Drives into all USB ports (try #2)\n"
              "  1) OK\n"
              "answer: 1 (from --answer)\n"
              "progress: 100% UsbPortTest on usbDevice2: failed\n"
              "log: Test failed: Device - USB Port Test;\n");
    EXPECT_EQ(run.err, "");
    // What goes back is the button's position.
    const HostRun raw = Run({"--xml", "id", "test", "usbDevice2", "UsbPortTest", "retries=0", "--answer=OK"});
    EXPECT_NE(raw.out.find("\nevent: <diagPrompt test=\"UsbPortTest\" device=\"usbDevice2\" type=\"button\""),
              std::string::npos)
        << raw.out;
    EXPECT_NE(raw.out.find("\nreply: <diagPromptResponse value=\"0\"/>\n"), std::string::npos);
}

TEST_F(ExampleMachine, PromptWithoutAnAnswerStopsInsteadOfHanging) {
    // Standard input is /dev/null: no terminal to ask.
    const HostRun none = Run({"id", "test", "usbDevice2", "UsbPortTest"});
    EXPECT_FALSE(none.timedOut);
    EXPECT_EQ(none.status, 4);
    EXPECT_NE(none.err.find("zorbus-host: the component asks \"Install High Speed USB Flash Drives into all USB "
                            "ports\", but no --answer is left and standard input is no terminal"),
              std::string::npos)
        << none.err;
    EXPECT_EQ(none.out.find("Result: "), std::string::npos);
    // One answer for a run that asks twice.
    const HostRun short_ = Run({"id", "test", "usbDevice2", "UsbPortTest", "--answer=OK"});
    EXPECT_EQ(short_.status, 4);
    EXPECT_EQ(Count(short_.out, "\nprompt (UsbPortTest on usbDevice2)"), 2u);
    // An answer that names no button.
    const HostRun wrong = Run({"id", "test", "usbDevice2", "UsbPortTest", "--answer=Cancel"});
    EXPECT_EQ(wrong.status, 4);
    EXPECT_NE(wrong.err.find("--answer=Cancel does not answer the prompt: 'Cancel' is neither a button's number "
                             "nor its caption"),
              std::string::npos)
        << wrong.err;
    const HostRun leftOver = Run({"id", "test", "usbDevice0", "rootHubTest", "--answer=OK"});
    EXPECT_EQ(leftOver.status, 0);
    EXPECT_NE(leftOver.err.find("1 --answer value(s) left unused"), std::string::npos);
}

}  // namespace
