// --junit and --json as a CI server or a factory line reads them: the JUnit
// report through junitparser, the JSON report through python's json module,
// on the example machine, for runs that end normally, stop at a prompt, or die.
#include <signal.h>

#include <chrono>
#include <thread>

#include "HostProgram.h"

namespace {

const std::string install = "Install High Speed USB Flash Drives into all USB ports";

// Debian's python3, the one that python3-junitparser installs into.
const char* const python = "/usr/bin/python3";

// One line per suite and per case, as junitparser sees them.
const char* const readJunit = R"(
import re, sys
from junitparser import JUnitXml
def shown(text):  # the processor a test ran on and the time an answer took vary
    return re.sub(r"after \d+\.\d{3} s", "after N s", re.sub(r"Ran on CPU \d+", "Ran on CPU N", text))
report = JUnitXml.fromfile(sys.argv[1])
print(f"tests={report.tests} failures={report.failures} errors={report.errors} skipped={report.skipped}")
for suite in report:
    print(f"suite {suite.name} tests={suite.tests} failures={suite.failures} skipped={suite.skipped}")
    properties = {p.name: p.value for p in suite.properties()}
    if "serial" in properties:
        print(f"  serial={properties['serial']} station={properties['station']} operator={properties['operator']}")
    for case in suite:
        results = ", ".join(f"{type(r).__name__}: {shown(r.message)}" for r in case.result) or "passed"
        print(f"  {case.classname} {case.name} timed={case._elem.get('time') is not None}: {results}")
        for line in (case.system_out or "").splitlines():
            print(f"    out: {shown(line)}")
)";

// The fields of each record, after python's json module has read the file.
const char* const readJson = R"(
import json, re, sys
report = json.load(open(sys.argv[1], encoding="utf-8"))
print(f"status={report['status']} stopped={report['stopped']} program={report['properties']['program']}")
print("summary " + " ".join(f"{k}={v}" for k, v in report["summary"].items()))
for k in ("serial", "station", "operator"):
    if k in report["properties"]:
        print(f"{k}={report['properties'][k]}")
for r in report["records"]:
    times = re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ", r["started"]) is not None and (
        r["seconds"] is None or r["seconds"] >= 0) and all(e["seconds"] >= r["startSeconds"] for e in r["events"])
    answer = "none" if r["answer"] is None else r["answer"].split(" ")[0]
    error = None if r["error"] is None else re.sub(r"Ran on CPU \d+", "Ran on CPU N", r["error"])
    print(f"{r['command']}: {r['result']} error={error} answer={answer} events={len(r['events'])} "
          f"times={times}")
    for p in r["prompts"]:
        print(f"  prompt {p['text']} options={p['options']} answer={p['answer']} by={p['answeredBy']} "
              f"timed={p['seconds'] >= 0}")
)";

int Shell(const std::string& command) { return std::system(command.c_str()); }

class Reports : public ::testing::Test {
protected:
    void SetUp() override {
        if (!HostUnavailable().empty()) GTEST_SKIP() << HostUnavailable();
        if (!MachineUnavailable().empty()) GTEST_SKIP() << MachineUnavailable();
        if (std::system((std::string(python) + " -c 'import junitparser' 2>/dev/null").c_str()) != 0)
            GTEST_SKIP() << "python3-junitparser is not installed";
        ASSERT_FALSE((machine = CopyMachine("example")).empty());
    }
    HostRun Run(Args args) const {
        args.insert(args.begin(), {"--junit", junit, "--json", json});
        return RunHost(args, machine);
    }
    // `script` run by python on `file`: its output, or the reason it failed.
    static std::string Read(const char* script, const std::string& file) {
        const std::string out = TemporaryFolder() + "/out";
        const int status = std::system(
            (std::string(python) + " -c " + Quoted(script) + " " + Quoted(file) + " >" + Quoted(out) + " 2>&1")
                .c_str());
        return (status == 0 ? "" : "python failed: ") + ReadFile(out);
    }
    // What `python3 -m json.tool` says of the file: empty when it reads it.
    static std::string JsonTool(const std::string& file) {
        const std::string out = TemporaryFolder() + "/out";
        const int status = std::system(
            (std::string(python) + " -m json.tool " + Quoted(file) + " >/dev/null 2>" + Quoted(out)).c_str());
        return status == 0 ? "" : "json.tool refuses it: " + ReadFile(out);
    }
    std::string machine;
    const std::string junit = TemporaryFolder() + "/report.xml", json = TemporaryFolder() + "/report.json";
};

}  // namespace

TEST_F(Reports, EveryTestAndDiagnosisReachesJunitAndEveryCommandJson) {
    // A name that is no text: a control character and a byte that is no UTF-8, echoed in the error.
    const std::string odd = "usb\x01"
                            "Dev\xff"
                            "ice";
    const HostRun run = Run({"--serial", "SN-1", "--station", "line 3", "--operator", "Ann", "id", "test", "usbDevice0",
                             "rootHubTest", "diagnose", "usbDevice0", "test", "usbDevice2", "UsbPortTest", "retries=0",
                             "--answer=OK", "<runTest device=\"" + odd + "\" test=\"rootHubTest\"/>", "version"});
    EXPECT_EQ(run.status, 1) << run.err;

    EXPECT_EQ(Read(readJunit, junit),
              "tests=4 failures=2 errors=0 skipped=0\n"
              "suite usbDevice0 tests=2 failures=0 skipped=0\n"
              "  serial=SN-1 station=line 3 operator=Ann\n"
              "  usbDevice0 rootHubTest timed=True: passed\n"
              "    out: Test Started: Device - Root Hub Detect Test\n"
              "    out: Test passed: Device - Root Hub Detect Test;\n"
              "  usbDevice0 diagnosis timed=True: passed\n"
              "suite usbDevice2 tests=1 failures=1 skipped=0\n"
              "  serial=SN-1 station=line 3 operator=Ann\n"
              "  usbDevice2 UsbPortTest timed=True: Failure: Device, Could not locate files: SSO.DAT, Ran on CPU N\n"
              "    out: Test Started: Device - USB Port Test\n"
              "    out: Test Prompts User: Device - USB Port Test;" +
                  install +
                  "\n"
                  "    out: prompt: " +
                  install +
                  "\n"
                  "    out: answer: OK (--answer) after N s\n"
                  "    out: Test failed: Device - USB Port Test;\n"
                  "suite usb\uFFFDDev\uFFFDice tests=1 failures=1 skipped=0\n"
                  "  serial=SN-1 station=line 3 operator=Ann\n"
                  "  usb\uFFFDDev\uFFFDice rootHubTest timed=True: Failure: Device not found: usb\uFFFDDev\uFFFDice\n");

    EXPECT_EQ(JsonTool(json), "");
    EXPECT_EQ(Read(readJson, json),
              "status=1 stopped=None program=zorbus-host 8.6.0\n"
              "summary passed=2 failed=2 canceled=0\n"
              "serial=SN-1\nstation=line 3\noperator=Ann\n"
              "id: ok error=None answer=<idResult><device events=8 times=True\n"
              "test usbDevice0 rootHubTest: passed error=None answer=<testResult events=4 times=True\n"
              "diagnose usbDevice0: passed error=None answer=<diagnosisResult events=0 times=True\n"
              "test usbDevice2 UsbPortTest retries=0: failed error=Device, Could not locate files: SSO.DAT, "
              "Ran on CPU N answer=<testResult events=6 times=True\n"
              "  prompt " +
                  install +
                  " options=['OK'] answer=OK by=--answer timed=True\n"
                  "<runTest device=\"usb\x01"
                  "Dev\uFFFDice\" test=\"rootHubTest\"/>: failed error=Device not found: "
                  "usb\x01"
                  "Dev\uFFFDice answer=<testResult events=0 times=True\n"
                  "version: ok error=None answer=<diagVersion>8.6.0.3755A</diagVersion> events=0 times=True\n");
}

TEST_F(Reports, ARunThatStopsAtAPromptLeavesBothReportsWithTheReason) {
    const HostRun run = Run({"id", "test", "usbDevice0", "rootHubTest", "test", "usbDevice2", "UsbPortTest"});
    EXPECT_EQ(run.status, 4);
    const std::string why = "the component asks \"Install High Speed USB Flash Drives into all USB ports\", but no "
                            "--answer is left and standard input is no terminal; give one --answer=... per prompt";
    const std::string junitText = Read(readJunit, junit);
    EXPECT_HAS(junitText, "tests=2 failures=0 errors=1 skipped=0\n", "  usbDevice0 rootHubTest timed=True: passed\n",
               "  usbDevice2 UsbPortTest timed=True: Error: " + why + "\n",
               "    out: prompt: Install High Speed USB Flash Drives into all USB ports\n");
    EXPECT_EQ(JsonTool(json), "");
    const std::string jsonText = Read(readJson, json);
    EXPECT_HAS(jsonText, "status=4 stopped=" + why + " program=", "test usbDevice0 rootHubTest: passed",
               "test usbDevice2 UsbPortTest: stopped error=" + why +
                   " answer=none events=4 times=True\n"
                   "  prompt " +
                   install + " options=['OK'] answer=None by=none timed=True\n");
}

TEST_F(Reports, AReportThatCannotBeWrittenIsAUsageErrorBeforeAnythingRuns) {
    const HostRun run = RunHost({"--json", "/nonexistent/report.json", "id"}, machine);
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.err, "zorbus-host: cannot write the report /nonexistent/report.json: No such file or directory\n"
                       "(zorbus-host --help lists the commands and options)\n");
    EXPECT_EQ(run.out, "");
}

// On a terminal: Ctrl-C at a prompt cancels the test (a skipped case); a
// program killed while it waits at a prompt leaves the test unfinished.
TEST_F(Reports, CanceledTestsAreSkippedAndADeadRunLeavesItsLastCommandUnfinished) {
    if (std::system("command -v tmux >/dev/null") != 0) GTEST_SKIP() << "tmux is not installed";
    ASSERT_EQ(RunHost({"--state", machine + "/state.bin", "id"}, machine).status, 0);
    const std::string tmux = "tmux -L zorbus-report-" + std::to_string(getpid()) + " ";
    auto screen = [&] {
        const std::string out = machine + "/screen";
        Shell(tmux + "capture-pane -p -t run >" + Quoted(out) + " 2>/dev/null");
        return ReadFile(out);
    };
    auto waitFor = [&](const std::string& text) {
        for (int i = 0; i < 600 && screen().find(text) == std::string::npos; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        return screen().find(text) != std::string::npos;
    };
    auto start = [&](const Args& args) {
        Args all = {"--state", machine + "/state.bin", "--junit", junit, "--json", json};
        all.insert(all.end(), args.begin(), args.end());
        std::ofstream(machine + "/run.sh") << "trap '' INT\ncd " << Quoted(machine + "/run") << "\n"
                                           << HostCommand(all, machine) << "\necho \"EXIT=$?\"\nsleep 60\n";
        Shell(tmux + "new-session -d -s run -x 200 -y 50 " + Quoted("sh " + machine + "/run.sh"));
    };

    start({"test", "usbDevice2", "UsbPortTest", "retries=1"});
    ASSERT_TRUE(waitFor("answer (number or caption):")) << screen();
    Shell(tmux + "send-keys -t run C-c");
    ASSERT_TRUE(waitFor("EXIT=6")) << screen();
    Shell(tmux + "kill-server");
    EXPECT_HAS(Read(readJunit, junit), "tests=1 failures=0 errors=0 skipped=1\n",
               "  usbDevice2 UsbPortTest timed=True: Skipped: canceled\n", "    out: answer: (canceled) after N s\n");
    EXPECT_HAS(Read(readJson, json), "status=6 stopped=None", "test usbDevice2 UsbPortTest retries=1: canceled ",
               "  prompt " + install + " options=['OK'] answer=None by=canceled timed=True\n");

    start({"test", "usbDevice0", "rootHubTest", "test", "usbDevice2", "UsbPortTest"});
    ASSERT_TRUE(waitFor("answer (number or caption):")) << screen();
    // The program, the one child of the session's shell, dies where it waits.
    const std::string pane = machine + "/pane";
    Shell(tmux + "display -p -t run '#{pane_pid}' >" + Quoted(pane));
    const std::string shell = std::to_string(std::atoi(ReadFile(pane).c_str()));
    const pid_t program = std::atoi(ReadFile("/proc/" + shell + "/task/" + shell + "/children").c_str());
    ASSERT_GT(program, 0);
    ASSERT_EQ(kill(program, SIGKILL), 0);
    ASSERT_TRUE(waitFor("EXIT=137")) << screen();
    Shell(tmux + "kill-server");
    EXPECT_HAS(Read(readJunit, junit), "tests=2 failures=0 errors=1 skipped=0\n",
               "  usbDevice0 rootHubTest timed=True: passed\n",
               "  usbDevice2 UsbPortTest timed=True: Error: the run ended before this command did\n");
    EXPECT_EQ(JsonTool(json), "");
    EXPECT_HAS(Read(readJson, json), "status=None stopped=None",
               "test usbDevice2 UsbPortTest: unfinished error=the run ended before this command did answer=none "
               "events=4 times=True\n");
}
