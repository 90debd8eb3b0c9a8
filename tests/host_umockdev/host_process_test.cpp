// What the component leaves of the process that hosts it: its names never meet
// the host's, the programs it starts inherit nothing, the process state stays as
// it was, and the library can be loaded and unloaded again and again.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <regex>
#include <set>

#include "Host.h"

namespace {

const std::string init = "init <init component=\"libzorbus.so\"/>";

std::string Timeless(const std::string& answer) {
    static const std::regex time("testTime=\"[^\"]*\"");
    return std::regex_replace(answer, time, "testTime=\"T\"");
}

// Two runs of the same script answered and reported the same, run times aside.
void ExpectSameRun(const Session& got, const Session& want) {
    ASSERT_EQ(got.steps.size(), want.steps.size()) << got.errors;
    for (size_t i = 0; i < got.steps.size(); ++i) {
        EXPECT_EQ(Timeless(got.steps[i].answer), Timeless(want.steps[i].answer)) << want.steps[i].line;
        EXPECT_EQ(got.steps[i].events, want.steps[i].events) << want.steps[i].line;
    }
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
bool ValgrindWorks() {
    char name[] = "valgrind", option[] = "--version";
    char* argv[] = {name, option, nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    pid_t child = -1;
    int status = -1;
    if (posix_spawnp(&child, name, &actions, nullptr, argv, environ) == 0) waitpid(child, &status, 0);
    posix_spawn_file_actions_destroy(&actions);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}
#endif

}  // namespace

// A host whose own library, loaded globally first, defines every C++ name the
// component once exported, each a trap that aborts.
TEST(HostProcess, ADecoyOfEveryNameTheComponentOnceExportedIsNeverReached) {
    const Strings first = {"factory 0",
                           "translator C",
                           init,
                           "callback",
                           "run <catalog/>",
                           "run <id/>",
                           RunTest("usbDevice0", "rootHubTest"),
                           "uninit",
                           "factory 1",
                           init,
                           "callback",
                           "run <catalog/>",
                           "run <id/>",
                           RunTest("usbDevice0", "rootHubTest"),
                           "uninit <u persistentFilename=\"state.bin\"/>",
                           "file state.bin"};
    const Strings second = {"factory 1",
                            "translator C",
                            "init <init persistentFilename=\"state.bin\" component=\"libzorbus.so\"/>",
                            "callback",
                            "run <id/>",
                            RunTest("usbDevice0", "rootHubTest"),
                            "uninit <u persistentFilename=\"state.bin\"/>",
                            "file state.bin"};
    FakeMachine plain("example"), decoyed("example");
    decoyed.decoy = ZORBUS_DECOY_PATH;
    for (const Strings& script : {first, second}) {
        const Session want = plain.Run(script), got = decoyed.Run(script);
        EXPECT_EQ(got.errors.find("decoy trap"), std::string::npos) << got.errors;
        ExpectSameRun(got, want);
        // Not two runs that failed alike.
        EXPECT_NE(want.Nth("run <id/>").answer.find("<device "), std::string::npos);
        EXPECT_NE(want.Nth("run <runTest").answer.find("currentState=\"passed\""), std::string::npos);
        EXPECT_NE(want.Nth("file state.bin").answer.find("USBTestComponent"), std::string::npos);
    }
    EXPECT_EQ(plain.Read("work/state.bin"), decoyed.Read("work/state.bin"));
    // The decoy stood first in the global scope for a name the component defines.
    const Session where = decoyed.Run({"resolve _Z18FindUSBControllersRSt3setIP6Device13deref_compareIS0_St4lessIS0_EE"
                                       "SaIS1_EE"});
    EXPECT_EQ(where.Nth("resolve").answer, ZORBUS_DECOY_PATH);
}

TEST(HostProcess, ToolsInheritOnlyTheStandardDescriptorsAndTheProcessStaysAsItWas) {
    // Discovery on the lsusb road: no devices file.
    FakeMachine lsusb("");
    lsusb.Write("data/lsusb", ReadText(std::string(ZORBUS_SOURCE_DIR) + "/tests/fixtures/lsusb_texts/machine.txt"));
    lsusb.WatchDescriptors({"stubs/lsusb", "stubs/mount", "stubs/sync"});
    // The file write compare and the USB port test on a machine with one drive.
    FakeMachine drive("storage_one");
    drive.Write("data/sg_scan", "/dev/sg0: scsi2 channel=0 id=0 lun=0 [em]\n");
    drive.Write("data/sg_map", "/dev/sg0  /dev/sdb\n");
    drive.Write("data/sg_inq", "standard INQUIRY:\n  PQual=0  Device_type=0  RMB=1  version=0x04\n");
    drive.Write("work/SSO.DAT", "REFERENCE\n");
    drive.Write("testbed/dev/sdb", std::string(4096, '.'));
    const Strings tools = {"sg_scan", "sg_map", "sg_inq", "mkdir", "mount", "umount", "cp", "rm", "sync"};
    Strings paths = {"work/sg_scan", "work/sg_map"};
    for (const std::string& tool : tools) paths.push_back("stubs/" + tool);
    drive.WatchDescriptors(paths);

    const Strings around = {"inherit", "state"};
    Strings lsusbScript = around, driveScript = around;
    for (const std::string& line : Opening(false, {"run <id/>"})) lsusbScript.push_back(line);
    for (const std::string& line : Opening(false, {"run <id/>", RunTest("usbDevice0", "FileWriteCompareTest"),
                                                   RunTest("usbDevice0", "UsbPortTest", "retries=\"0\"")}))
        driveScript.push_back(line);
    lsusbScript.push_back("state");
    driveScript.push_back("state");
    for (auto* machine : {&lsusb, &drive}) {
        const Session s = machine->Run(machine == &lsusb ? lsusbScript : driveScript);
        EXPECT_GE(std::stoi(s.Nth("inherit").answer), 3);
        EXPECT_EQ(s.Nth("state", 1).answer, s.Nth("state").answer);
        if (machine == &drive) {  // the drive was written and read back
            EXPECT_NE(s.Nth(RunTest("usbDevice0", "FileWriteCompareTest")).answer.find("currentState=\"passed\""),
                      std::string::npos);
        }
    }

    std::set<std::string> seen;
    for (const std::string& log : {lsusb.Read("descriptors.log"), drive.Read("descriptors.log")})
        for (size_t at = 0, end; (end = log.find('\n', at)) != std::string::npos; at = end + 1) {
            const std::string line = log.substr(at, end - at), tool = line.substr(0, line.find(' '));
            EXPECT_EQ(line, tool + " 0 1 2");
            seen.insert(tool);
        }
    EXPECT_EQ(seen, (std::set<std::string>{"lsusb", "mount", "sync", "sg_scan", "sg_map", "sg_inq", "mkdir", "cp",
                                           "umount", "rm"}));
}

// dlopen, Initialize, discovery, a root hub test, Uninitialize, dlclose, a
// hundred times in one host; then again under valgrind for leaks. In the
// address sanitizer build LeakSanitizer watches the first run instead; the
// thread sanitizer build, which valgrind cannot run, leaves leaks to those two.
TEST(HostProcess, AHundredLoadsAndUnloadsLeaveNothingBehind) {
    FakeMachine m("example");
    const size_t cycles = 100;
    Strings script{"factory 0", "unload"};
    for (size_t i = 0; i < cycles; ++i)
        script.insert(script.end(), {"load", "translator C", init, "callback", "run <id/>",
                                     RunTest("usbDevice0", "rootHubTest"), "uninit", "unload", "resources"});
    script.push_back("loaded");
    const Session s = m.Run(script);
    ASSERT_EQ(s.steps.size(), script.size()) << s.errors;
    // Captions and hub numbers count on over the identifications of the process.
    static const std::regex number("[0-9]+");
    const std::string firstAnswer = std::regex_replace(s.Nth("run <id/>").answer, number, "N");
    EXPECT_NE(firstAnswer.find("<device "), std::string::npos);
    for (size_t i = 0; i < cycles; ++i) {
        EXPECT_EQ(std::regex_replace(s.Nth("run <id/>", i).answer, number, "N"), firstAnswer) << "cycle " << i + 1;
        EXPECT_NE(s.Nth("run <runTest", i).answer.find("currentState=\"passed\""), std::string::npos) << i + 1;
    }
    // Whatever the first cycle set up for good stays; nothing grows after it.
    EXPECT_EQ(s.Nth("resources", cycles - 1).answer, s.Nth("resources", 1).answer);
    // The code stays mapped after the last dlclose (see the library's link options).
    EXPECT_EQ(s.Nth("loaded").answer, "1");
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    if (!ValgrindWorks()) GTEST_SKIP() << "valgrind does not run here, and this build has no LeakSanitizer";
    m.wrapper = {"valgrind", "--quiet", "--leak-check=full", "--errors-for-leak-kinds=definite,indirect",
                 "--error-exitcode=97"};
    EXPECT_EQ(m.Run(script).steps.size(), script.size());  // and the session's exit status, checked by Run
#endif
}
