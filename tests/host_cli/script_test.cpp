// zorbus-host as scripts use it: exit statuses, --help, usage errors, the
// checks before anything is sent, tables, batch runs, the state file, German
// texts and the JSON lines of --xml, on the example machine under umockdev.
#include <sys/stat.h>

#include <regex>

#include "HostProgram.h"

namespace {

const std::string install = "Install High Speed USB Flash Drives into all USB ports";
const std::string hint = "(zorbus-host --help lists the commands and options)\n";
const std::string sevenDevices = "usbDevice0, usbDevice1, usbDevice2, usbDevice3, usbDevice4, usbDevice5, usbDevice6";

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
        // Off a terminal the tables are laid out for COLUMNS; the caller's must not count.
        setenv("COLUMNS", "80", 1);
    }
    HostRun Run(const Args& args, const std::string& prefix = "") const { return RunHost(args, machine, prefix); }
    std::string machine;
};

// The text from the line that starts with `from` up to the first `to` after it.
std::string Excerpt(const std::string& text, const std::string& from, const std::string& to) {
    const size_t start = text.find(from);
    return start == std::string::npos ? "" : text.substr(start, text.find(to, start) - start);
}

// Text with every run of blanks and line ends as one blank: what a table says, however it is wrapped.
std::string Words(const std::string& text) { return std::regex_replace(text, std::regex(R"(\s+)"), " "); }

size_t WidestLine(const std::string& text) {
    size_t widest = 0;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        size_t width = 0;
        for (unsigned char c : line) width += (c & 0xC0) != 0x80;
        widest = std::max(widest, width);
    }
    return widest;
}

std::string WithoutTimes(const std::string& text) {
    return std::regex_replace(text, std::regex(R"(\d\d:\d\d:\d\d\.\d\d\d)"), "TIME");
}

}  // namespace

TEST_F(HostCommandLine, HelpDocumentsEveryOptionStatusAndCommandAndEachOptionIsAccepted) {
    const HostRun help = RunHost({"--help"});
    ASSERT_EQ(help.status, 0) << help.err;
    EXPECT_EQ(RunHost({"-h"}).out, help.out);
    // Each option it names is taken: one it does not know is a usage error even beside --help.
    std::regex option(R"((?:^|\n)\s+(?:-[hvV], )?(--[a-z-]+)([ =][A-Z])?)");
    Args documented;
    for (std::sregex_iterator it(help.out.begin(), help.out.end(), option), end; it != end; ++it) {
        documented.push_back((*it)[1]);
        Args args = {(*it)[1]};
        if ((*it)[2].matched) args.push_back("1");
        args.push_back("--help");
        EXPECT_EQ(RunHost(args).status, 0) << (*it)[0];
    }
    EXPECT_EQ(
        documented,
        (Args{"--library",      "--component", "--state",        "--language",       "--debug",        "--factory",
              "--diags-medium", "--xml",       "--answer",       "--prompt-timeout", "--serial",       "--station",
              "--operator",     "--verbose",   "--kernel-paths", "--devices-source", "--usbfs-source", "--junit",
              "--json",         "--version",   "--help"}));
    for (int status = 0; status <= 8; ++status) EXPECT_HAS(help.out, "\n  " + std::to_string(status) + "  ");
    EXPECT_HAS(help.out, "catalog", "id", "test DEVICE TEST [NAME=VALUE...]", "run CLASS", "cancel DEVICE TEST",
               "diagnose DEVICE", "version",
               "print what goes to and comes from the component as\n"
               "                      JSON lines",
               "ZORBUS_SERIAL, ZORBUS_STATION, ZORBUS_OPERATOR", "NO_COLOR");
}

TEST_F(HostCommandLine, UsageErrorsExitTwoAndComponentsThatCannotBeLoadedThree) {
    const struct {
        Args args;
        int status;
        const char* reason;
    } cases[] = {
        {{}, 2, "no command given"},
        {{"--frobnicate", "id"}, 2, "unknown option --frobnicate"},
        {{"-x", "id"}, 2, "unknown option -x"},
        {{"id", "--library"}, 2, "--library needs a value"},
        {{"--factory=1", "id"}, 2, "--factory takes no value"},
        {{"--verbose=1", "id"}, 2, "--verbose takes no value"},
        {{"--d", "id"}, 2, "option --d is ambiguous: --debug, --diags-medium, --devices-source"},
        {{"--prompt-timeout", "0", "id"}, 2, "--prompt-timeout takes a number of seconds above 0, not '0'"},
        {{"--prompt-timeout=soon", "id"}, 2, "--prompt-timeout takes a number of seconds above 0, not 'soon'"},
        {{"test", "usbDevice0"}, 2, "usage: test DEVICE TEST [NAME=VALUE...]"},
        {{"test", "usbDevice0", "--xml"}, 2, "usage: test DEVICE TEST"},
        {{"test", "usbDevice0", "rootHubTest", "x y=1"}, 2, "'x y' is no parameter name"},
        {{"id", "retries=1"}, 2, "retries=1 stands after no test (test DEVICE TEST NAME=VALUE...)"},
        {{"cancel", "usbDevice0"}, 2, "usage: cancel DEVICE TEST"},
        {{"diagnose"}, 2, "usage: diagnose DEVICE"},
        {{"run"}, 2, "usage: run CLASS"},
        {{"run", "slow"}, 2, "no test class slow (run takes quick, complete, interactive, fieldtest)"},
        {{"id", "frobnicate"}, 2, "unknown command 'frobnicate'"},
        // After "--" an operand that starts with a dash is a command.
        {{"id", "--", "--xml"}, 2, "unknown command '--xml'"},
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
    EXPECT_EQ(RunHost({"-V"}).out.rfind("zorbus-host 8.6.0\ncomponent: <diagVersion>", 0), 0u);
}

TEST_F(HostProgram, EachExitStatusTellsAScriptWhatHappened) {
    const struct {
        Args args;
        int status;
        const char* error;  // what standard error begins with
    } cases[] = {
        {{"test", "usbDevice0", "rootHubTest"}, 0, ""},
        {{"test", "usbDevice2", "UsbPortTest", "retries=0", "--answer=OK"}, 1, "prompt (UsbPortTest on usbDevice2)"},
        {{"test", "usbDevice9", "rootHubTest"}, 2, "zorbus-host: no device usbDevice9"},
        {{"--library", "/nonexistent/libzorbus.so", "id"}, 3, "zorbus-host: cannot load /nonexistent/libzorbus.so"},
        {{"id", "<frobnicate/>"}, 3, ""},
        {{"test", "usbDevice2", "UsbPortTest"}, 4, "prompt (UsbPortTest on usbDevice2)"},
        {{"--kernel-paths", "--devices-source", "/nonexistent/devices", "id"}, 5, "zorbus-host: "},
    };
    for (const auto& c : cases) {
        const HostRun run = Run(c.args);
        EXPECT_EQ(run.status, c.status) << c.args.back() << "\n" << run.err;
        EXPECT_EQ(run.err.rfind(c.error, 0), 0u) << run.err;
    }
}

TEST_F(HostProgram, DiscoveryIsATableThatFitsTheWidthAndPrintsASharedTestListOnce) {
    const HostRun run = Run({"id"});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out.find("log: Device Discovery Started\n"), 0u) << run.out;
    EXPECT_HAS(run.out,
               "Discovered: 7 devices\nDEVICE      CAPTION       DESCRIPTION\n"
               "usbDevice0  USB Device 1  USB 2.00 Controller EHCI-HCD\n"
               "            USB Type: 2.00, USB Speed: 480 MBit/s, Hub Number: 1, Total Number\n"
               "              of Ports: 4\n"
               "            tests: list A below (rootHubTest, FileWriteCompareTest, UsbPortTest)\n"
               "usbDevice1  USB Device 2  SanDisk  Cruzer\n"
               "            USB Type: 2.00, USB Speed: 480 MBit/s, Hub Number 1 portNum: 2\n",
               "\nTest list A, of usbDevice0, usbDevice2, usbDevice4:\n"
               "  test rootHubTest: Root Hub Detect Test - Discovers the presence of a working\n"
               "    root hub [quick, complete, fieldtest]\n"
               "      retries=1  Retries (int 0..5) - Number of retries if test fails\n",
               "\n      numUSBdrives=1  Expected number of USB drives to test (int 1..32) -\n");
    // The list once; each controller refers to it; no line is wider than 80 columns.
    EXPECT_EQ(Count(run.out, "test rootHubTest:"), 1u);
    EXPECT_EQ(Count(run.out, "tests: list A below"), 3u);
    EXPECT_LE(WidestLine(Excerpt(run.out, "\nDiscovered:", "\nlog:")), 80u);
    EXPECT_EQ(Count(run.out, "\nlog: Device Discovered: "), 7u);
    EXPECT_EQ(run.out.find('<'), std::string::npos) << "no XML in the readable form";
    // --verbose: the whole list under each device.
    const HostRun verbose = Run({"--verbose", "id"});
    EXPECT_EQ(Count(verbose.out, "test rootHubTest:"), 3u);
    EXPECT_EQ(verbose.out.find("list A"), std::string::npos);

    // Factory mode at 60 columns: each port is an entry; wrapped between words only.
    const HostRun factory = Run({"--factory", "catalog", "id"}, "env COLUMNS=60 ");
    ASSERT_EQ(factory.status, 0) << factory.err;
    const std::string table = Excerpt(factory.out, "\nDiscovered:", "\nlog:");
    EXPECT_HAS(factory.out, "Catalogue: 1 device\nDEVICE     CAPTION     DESCRIPTION\n"
                            "usbDevice  USB Device  USB Device\n           test rootHubTest: Root Hub Detect Test -\n");
    EXPECT_HAS(table, "\nDiscovered: 16 devices\n");
    EXPECT_LE(WidestLine(factory.out.substr(factory.out.find("Catalogue:"))), 60u);
    EXPECT_HAS(Words(table), " Test list A, of usbDevice0, usbDevice5, usbDevice8, usbDevice11: ",
               " DeviceConnected: Yes, DeviceType: Cruzer, USB Type: 2.00, USB Speed: 480 MBit/s ",
               " test UsbPortTest: USB Port Test - Number of USB Flash drive connected, its Operating Speed and file "
               "Write Compare Test [interactive, complete] ");
    EXPECT_EQ(Count(table, "tests: list A below"), 4u);
    EXPECT_EQ(Count(table, "USB Port\n"), 12u);  // 4 + 2 + 2 + the hub's 4
}

TEST_F(HostProgram, TestsShowLogProgressAndAMarkedResultAndTheWorstOutcomeDecidesTheStatus) {
    // Without a discovery in the run the program discovers first.
    const HostRun pass = Run({"test", "usbDevice0", "rootHubTest"});
    ASSERT_EQ(pass.status, 0) << pass.err;
    EXPECT_EQ(pass.out.find("discovering first: test usbDevice0 rootHubTest needs this run's devices\n"
                            "log: Device Discovery Started\n"),
              0u)
        << pass.out;
    EXPECT_HAS(pass.out, "\nDiscovered: 7 devices: " + sevenDevices + "\n");
    EXPECT_EQ(Excerpt(pass.out, "log: Test Started", " in 00:00:"), "log: Test Started: Device - Root Hub Detect Test\n"
                                                                    "progress: 0% rootHubTest on usbDevice0: running\n"
                                                                    "progress: 100% rootHubTest on usbDevice0: passed\n"
                                                                    "log: Test passed: Device - Root Hub Detect Test;\n"
                                                                    "PASS rootHubTest on usbDevice0: passed");
    EXPECT_EQ(pass.out.find('\r'), std::string::npos) << "no bar drawn in place off a terminal";
    EXPECT_EQ(pass.out.find('\033'), std::string::npos) << "no colour off a terminal";
    EXPECT_EQ(pass.out.find("Summary:"), std::string::npos) << "one test needs no summary";

    // An error answer counts above a pass, and the commands after it still run.
    const HostRun mixed = Run({"id", "<frobnicate/>", "test", "usbDevice0", "rootHubTest", "version"});
    EXPECT_EQ(mixed.status, 3);
    EXPECT_HAS(mixed.out,
               "log: Error: TvkError - Invalid Command;Invalid Command: frobnicate\n"
               "Error: Invalid Command: frobnicate\n",
               "PASS rootHubTest on usbDevice0: passed", "Version: 8.6.0.3755A");

    const HostRun cancel = Run({"id", "cancel", "usbDevice0", "rootHubTest", "diagnose", "usbDevice0"});
    EXPECT_EQ(cancel.status, 0) << cancel.out;
    EXPECT_HAS(cancel.out, "Cancel rootHubTest on usbDevice0: Success (loop 0, record 0)\n",
               "PASS diagnosis of usbDevice0: passed in 00:00:");
}

TEST_F(HostProgram, NamesAndValuesAreCheckedAgainstDiscoveryBeforeAnyTestIsSent) {
    const struct {
        Args args;
        std::string error;
    } cases[] = {
        {{"test", "usbDevice9", "rootHubTest"},
         "no device usbDevice9: discovery found " + sevenDevices + " (zorbus-host id lists them)"},
        {{"test", "usbDevice0", "noSuchTest"},
         "usbDevice0 offers no test noSuchTest (it offers rootHubTest, FileWriteCompareTest, UsbPortTest)"},
        {{"test", "usbDevice1", "rootHubTest"}, "usbDevice1 offers no tests, so none named rootHubTest"},
        {{"test", "usbDevice0", "rootHubTest", "retries=9"}, "retries takes a whole number from 0 to 5, not '9'"},
        {{"test", "usbDevice0", "rootHubTest", "retries=abc"}, "retries takes a whole number from 0 to 5, not 'abc'"},
        {{"test", "usbDevice0", "rootHubTest", "retries=1+1"}, "retries takes a whole number from 0 to 5, not '1+1'"},
        {{"test", "usbDevice0", "rootHubTest", "bogus=1"},
         "rootHubTest takes no parameter bogus (it takes retries, loop, recordNum)"},
        {{"test", "usbDevice0", "rootHubTest", "loop=-1"}, "loop takes a whole number of at least 0, not '-1'"},
        {{"test", "usbDevice0", "rootHubTest", "device=usbDevice2"},
         "device is given by the command itself, not as a parameter"},
        {{"test", "usbDevice2", "UsbPortTest", "numUSBdrives=33"},
         "numUSBdrives takes a whole number from 1 to 32, not '33'"},
        {{"test", "usbDevice2", "UsbPortTest", "numUSBdrives=0"},
         "numUSBdrives takes a whole number from 1 to 32, not '0'"},
        {{"test", "usbDevice2", "UsbPortTest", "numUSBdrives=two"},
         "numUSBdrives takes a whole number from 1 to 32, not 'two'"},
        {{"diagnose", "usbDevice9"},
         "no device usbDevice9: discovery found " + sevenDevices + " (zorbus-host id lists them)"},
        {{"cancel", "usbDevice0", "speedTest"},
         "usbDevice0 offers no test speedTest (it offers rootHubTest, FileWriteCompareTest, UsbPortTest)"},
        // A good test first: the bad one behind it is found before the first is sent.
        {{"test", "usbDevice0", "rootHubTest", "test", "usbDevice2", "rootHubTest", "retries=6"},
         "retries takes a whole number from 0 to 5, not '6'"},
    };
    for (const auto& c : cases) {
        const HostRun run = Run(c.args);
        EXPECT_EQ(run.status, 2) << c.error;
        EXPECT_EQ(run.err, "zorbus-host: " + c.error + "\n" + hint);
        EXPECT_HAS(run.out, "\nDiscovered: 7 devices: ");
        EXPECT_EQ(run.out.find("Test Started"), std::string::npos) << run.out;
        EXPECT_EQ(run.out.find("Diagnosis Started"), std::string::npos) << run.out;
    }
    // With a discovery of the run's own, its table stands and nothing more is discovered.
    const HostRun named = Run({"id", "test", "usbDevice9", "rootHubTest"});
    EXPECT_EQ(named.status, 2);
    EXPECT_HAS(named.out, "Discovered: 7 devices\nDEVICE ");
    EXPECT_EQ(named.out.find("discovering first"), std::string::npos);
    // Expressions are the component's to work out; a control character is escaped, not refused.
    const HostRun sent = Run({"--xml", "test", "usbDevice0", "FileWriteCompareTest", "retries=0", "numUSBdrives=2*3",
                              "userPrompt=a<b\"&\x01"});
    EXPECT_HAS(sent.out, "{\"kind\": \"command\", \"xml\": \"<runTest device=\\\"usbDevice0\\\" "
                         "test=\\\"FileWriteCompareTest\\\" component=\\\"libzorbus.so\\\" retries=\\\"0\\\" "
                         "numUSBdrives=\\\"2*3\\\" userPrompt=\\\"a&lt;b&quot;&amp;&#01;\\\"/>\"}\n");
    EXPECT_EQ(sent.out.find("Malformed"), std::string::npos) << sent.out;
}

TEST_F(HostProgram, FailedTestExitsOneAndMarksOnlyFactoryRunsFromTheMedium) {
    if (access("/proc/bus/usb/001/001", F_OK) == 0) GTEST_SKIP() << "this machine has a real root hub node";
    ASSERT_EQ(unlink((machine + "/machine/proc/bus/usb/001/001").c_str()), 0);
    Args failing = {"id", "test", "usbDevice0", "rootHubTest", "retries=0"};
    const HostRun run = Run(failing);
    EXPECT_EQ(run.status, 1);
    // A failed test is marked so, never as 100 % done.
    EXPECT_HAS(run.out, "progress: FAIL rootHubTest on usbDevice0: failed\n",
               "FAIL rootHubTest on usbDevice0: failed in 00:00:",
               "\n  error: Device, Unable to detect root hub, Ran on CPU ");
    EXPECT_EQ(run.out.find("100%"), std::string::npos);
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

TEST_F(HostProgram, BatchRunsEveryTestOfAClassOnEveryDeviceAndEndsWithASummary) {
    const HostRun quick = Run({"run", "quick"});
    ASSERT_EQ(quick.status, 0) << quick.err;
    EXPECT_EQ(quick.out.find("discovering first: run quick needs this run's devices\n"), 0u) << quick.out;
    EXPECT_HAS(quick.out, "\nrun quick: 3 tests\n");
    EXPECT_HAS(WithoutTimes(quick.out), "\nSummary:\n"
                                        "DEVICE      TEST         RESULT  TIME          ERROR\n"
                                        "usbDevice0  rootHubTest  passed  TIME\n"
                                        "usbDevice2  rootHubTest  passed  TIME\n"
                                        "usbDevice4  rootHubTest  passed  TIME\n"
                                        "3 passed, 0 failed, 0 canceled\n");
    EXPECT_EQ(Count(quick.out, "\nPASS rootHubTest on "), 3u);

    // Interactive tests take their answers like any other; the failures count.
    Args complete = {"id", "run", "complete"};
    for (int prompt = 0; prompt < 6; ++prompt) complete.push_back("--answer=OK");
    const HostRun run = Run(complete);
    EXPECT_EQ(run.status, 1) << run.err;
    const std::string summary = WithoutTimes(run.out.substr(run.out.find("\nSummary:\n")));
    EXPECT_HAS(summary, "\nusbDevice0  rootHubTest           passed  TIME\n",
               "\nusbDevice2  UsbPortTest           failed  TIME  Device, Could not locate\n",
               "\n3 passed, 6 failed, 0 canceled\n");
    EXPECT_EQ(Count(summary, "\nusbDevice"), 9u);
    EXPECT_EQ(run.err.find("left unused"), std::string::npos) << run.err;
}

TEST_F(HostProgram, AMachineWithoutDevicesIsAWarningAndABatchWithoutTestsAFailure) {
    if (access("/proc/bus/usb/devices", F_OK) == 0) GTEST_SKIP() << "this machine has a real devices file";
    std::ofstream(machine + "/machine/proc/bus/usb/devices", std::ios::trunc);
    const HostRun none = Run({"id"});
    EXPECT_EQ(none.status, 0);
    EXPECT_HAS(none.out, "Discovered: 0 devices\n");
    EXPECT_EQ(none.err, "zorbus-host: warning: discovery found no USB devices\n");
    const HostRun batch = Run({"run", "quick"});
    EXPECT_EQ(batch.status, 1);
    EXPECT_HAS(batch.err, "zorbus-host: no device offers a quick test\n");
}

TEST_F(HostProgram, StateFileIsRestoredOrRefusedAndAFailedSaveLeavesTheOldOne) {
    const std::string folder = TemporaryFolder(), state = folder + "/state.bin", notes = folder + "/notes.txt";
    // A file that is no state file is refused before anything runs, and left as it was.
    std::ofstream(notes) << "my notes\n";
    const HostRun refused = Run({"--state", notes, "id"});
    EXPECT_EQ(refused.status, 2);
    EXPECT_EQ(refused.err, "zorbus-host: --state " + notes +
                               " is not a state file of this component; it is left "
                               "as it is\n" +
                               hint);
    EXPECT_EQ(refused.out, "");
    EXPECT_EQ(ReadFile(notes), "my notes\n");

    // The state carries the devices to the next run, which then discovers nothing.
    ASSERT_EQ(Run({"--state", state, "id"}).status, 0);
    EXPECT_EQ(ReadFile(state).compare(0, 8, "ZORBUSPT"), 0);
    const HostRun next = Run({"--state", state, "test", "usbDevice2", "rootHubTest"});
    EXPECT_EQ(next.status, 0) << next.out << next.err;
    EXPECT_HAS(next.out, "PASS rootHubTest on usbDevice2: passed");
    EXPECT_EQ(next.out.find("Discovery"), std::string::npos) << next.out;
    // The program does not know the restored devices: the component's answer tells an unknown one.
    const HostRun unknown = Run({"--state", state, "test", "usbDevice77", "rootHubTest"});
    EXPECT_EQ(unknown.status, 2);
    EXPECT_HAS(unknown.err, "zorbus-host: the restored state " + state +
                                " has no device usbDevice77 with a test "
                                "rootHubTest\n");
    // Values are still checked against the catalogue before anything is sent.
    const HostRun value = Run({"--state", state, "test", "usbDevice2", "rootHubTest", "retries=7"});
    EXPECT_EQ(value.status, 2);
    EXPECT_EQ(value.err, "zorbus-host: retries takes a whole number from 0 to 5, not '7'\n" + hint);
    EXPECT_EQ(value.out, "");
    const HostRun batch = Run({"--state", state, "run", "quick"});
    EXPECT_EQ(batch.status, 2);
    EXPECT_HAS(batch.err, "run quick needs the devices, and those of the restored state " + state +
                              " are not known to the program: put id before it");

    // A save that fails half-way (a file size limit of 4 KiB) says why and leaves the old file whole.
    const std::string before = ReadFile(state);
    ASSERT_GT(before.size(), 4096u);
    const HostRun full =
        Run({"--state", state, "test", "usbDevice2", "rootHubTest"}, "sh -c 'ulimit -f 8 && exec \"$0\" \"$@\"' ");
    EXPECT_EQ(full.status, 8) << full.err;
    EXPECT_HAS(full.out, "PASS rootHubTest on usbDevice2: passed");
    EXPECT_EQ(full.err, "zorbus-host: cannot save the state in " + state +
                            " (writing: File too large); the file "
                            "is left as it was\n");
    EXPECT_EQ(ReadFile(state), before);
    // Nothing is left beside it.
    size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) files += entry.is_regular_file();
    EXPECT_EQ(files, 2u);
}

TEST_F(HostProgram, GermanTranslatesTheProgramsOwnWordsAndAnUnknownLanguageWarns) {
    const HostRun german = Run({"--language", "de", "catalog", "id", "test", "usbDevice0", "rootHubTest"});
    ASSERT_EQ(german.status, 0) << german.err;
    EXPECT_HAS(german.out,
               "Katalog: 1 Gerät\nGERÄT      NAME       BESCHREIBUNG\n"
               "usbDevice  USB-Gerät  USB-Gerät\n",
               "Test rootHubTest: Root-Hub-Erkennungstest - ", "retries=1  Wiederholungen (int 0..5)",
               "log: Geräteerkennung gestartet\n", "Erkannt: 7 Geräte\n", "Tests: Liste A unten (",
               "OK rootHubTest auf usbDevice0: bestanden in 00:00:");
    EXPECT_EQ(german.out.find("Root Hub Detect Test"), std::string::npos);
    const HostRun usage = Run({"--language", "de", "test", "usbDevice0", "rootHubTest", "retries=9"});
    EXPECT_EQ(usage.status, 2);
    EXPECT_EQ(usage.err, "zorbus-host: retries nimmt eine ganze Zahl von 0 bis 5, nicht „9“\n"
                         "(zorbus-host --help listet die Befehle und Optionen auf)\n");
    EXPECT_EQ(RunHost({"--language", "de", "--frobnicate"}).err,
              "zorbus-host: unbekannte Option --frobnicate\n"
              "(zorbus-host --help listet die Befehle und Optionen auf)\n");

    const HostRun unknown = Run({"--language", "xx", "version"});
    EXPECT_EQ(unknown.status, 0);
    EXPECT_EQ(unknown.err, "zorbus-host: warning: no catalogue for the language 'xx': texts stay in English\n");
    EXPECT_EQ(unknown.out, "Version: 8.6.0.3755A\n");
    EXPECT_EQ(Run({"--language", "de:/nonexistent", "version"}).err,
              "zorbus-host: warning: no catalogue for the language 'de': texts stay in English\n");
}

// --xml: one JSON object a line, as python's json module reads them.
TEST_F(HostProgram, XmlIsJsonLinesOfKindAndText) {
    if (std::system("python3 -c 'import json' 2>/dev/null") != 0) GTEST_SKIP() << "python3 is not installed";
    const HostRun raw = Run({"--xml", "--serial", "SN-1", "--operator", "Ann", "id", "test", "usbDevice0",
                             "rootHubTest", "test", "usbDevice2", "UsbPortTest", "retries=0", "--answer=OK"},
                            "env ZORBUS_STATION=S7 ");
    EXPECT_EQ(raw.status, 1) << raw.err;
    const std::string stream = TemporaryFolder() + "/stream";
    std::ofstream(stream) << raw.out;
    const std::string read = TemporaryFolder() + "/read";
    const char* script = R"py(
import json, re, sys
for line in open(sys.argv[1], encoding="utf-8"):
    o = json.loads(line)
    if o["kind"] in ("start", "end"):
        print(o["kind"], " ".join(f"{k}={v}" for k, v in o.items() if k not in ("kind", "library")))
    else:
        print(o["kind"], re.match(r"<(\w+)", o["xml"]).group(1), o["xml"].count("\n"))
)py";
    ASSERT_EQ(std::system(("python3 -c " + Quoted(script) + " " + Quoted(stream) + " >" + Quoted(read)).c_str()), 0)
        << raw.out;
    const std::string kinds = ReadFile(read);
    EXPECT_EQ(kinds.find("start program=zorbus-host 8.6.0 component=libzorbus.so serial=SN-1 station=S7 operator=Ann\n"
                         "command id 0\nevent diagEvent 0\n"),
              0u)
        << kinds;
    EXPECT_HAS(kinds, "\nanswer idResult 0\ncommand runTest 0\nevent diagEvent 0\nevent diagUpdate 0\n",
               "\nevent diagPrompt 0\nreply diagPromptResponse 0\n", "\nanswer testResult 0\nend status=1\n");
    EXPECT_HAS(raw.out, "{\"kind\": \"reply\", \"xml\": \"<diagPromptResponse value=\\\"0\\\"/>\"}\n");
    EXPECT_EQ(raw.out.find("DEVICE "), std::string::npos);
    EXPECT_EQ(raw.out.find("progress:"), std::string::npos);
}

// The USB port test asks for flash drives before it looks; on the example's UHCI controller it then fails.
TEST_F(HostProgram, PromptsAreAnsweredFromAnswerOptionsInOrderOrTheRunStops) {
    const HostRun run =
        Run({"--serial", "SN-1", "id", "test", "usbDevice2", "UsbPortTest", "--answer=ok", "--answer", "1"});
    EXPECT_EQ(run.status, 1) << run.err;
    EXPECT_EQ(run.out.find("serial: SN-1\n"), 0u) << run.out;
    EXPECT_EQ(Excerpt(run.out, "log: Test Started", "\nFAIL "), "log: Test Started: Device - USB Port Test\n"
                                                                "progress: 0% UsbPortTest on usbDevice2: running\n"
                                                                "log: Test Prompts User: Device - USB Port Test;" +
                                                                    install +
                                                                    "\n"
                                                                    "log: Test Prompts User: Device - USB Port Test;" +
                                                                    install +
                                                                    " (try #2)\n"
                                                                    "progress: FAIL UsbPortTest on usbDevice2: failed\n"
                                                                    "log: Test failed: Device - USB Port Test;");
    // Without a terminal the questions go to standard error, never to standard output.
    EXPECT_EQ(run.err, "prompt (UsbPortTest on usbDevice2): " + install +
                           "\n  1) OK\n"
                           "answer: ok (from --answer)\n"
                           "prompt (UsbPortTest on usbDevice2): " +
                           install +
                           " (try #2)\n  1) OK\n"
                           "answer: 1 (from --answer)\n");

    // Standard input is no terminal: no answer left stops the run instead of hanging.
    const HostRun none = Run({"id", "test", "usbDevice2", "UsbPortTest"});
    EXPECT_EQ(none.status, 4);
    EXPECT_HAS(none.err, "zorbus-host: the component asks \"" + install +
                             "\", but no --answer is left and standard input is no terminal");
    EXPECT_EQ(none.out.find("FAIL "), std::string::npos);
    const HostRun tooFew = Run({"id", "test", "usbDevice2", "UsbPortTest", "--answer=OK"});
    EXPECT_EQ(tooFew.status, 4);
    EXPECT_EQ(Count(tooFew.err, "prompt (UsbPortTest on usbDevice2)"), 2u);
    const HostRun wrong = Run({"id", "test", "usbDevice2", "UsbPortTest", "--answer=Cancel"});
    EXPECT_EQ(wrong.status, 4);
    EXPECT_HAS(wrong.err,
               "--answer=Cancel does not answer the prompt: 'Cancel' is neither a button's number nor its caption");
    const HostRun leftOver = Run({"id", "test", "usbDevice0", "rootHubTest", "--answer=OK"});
    EXPECT_EQ(leftOver.status, 0);
    EXPECT_HAS(leftOver.err, "1 --answer value(s) left unused");
}
