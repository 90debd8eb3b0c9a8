// What the component leaves of the process that hosts it: its names never meet
// the host's.
#include <regex>

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

}  // namespace

// A host whose own library, loaded globally first, defines every C++ name the
// component once exported, each a trap that aborts.
TEST(HostProcess, ADecoyOfEveryNameTheComponentOnceExportedIsNeverReached) {
    const Strings first = {"factory 0", "translator C", init, "callback", "run <catalog/>", "run <id/>",
                           RunTest("usbDevice0", "rootHubTest"), "uninit", "factory 1", init, "callback",
                           "run <catalog/>", "run <id/>", RunTest("usbDevice0", "rootHubTest"),
                           "uninit <u persistentFilename=\"state.bin\"/>", "file state.bin"};
    const Strings second = {"factory 1", "translator C",
                            "init <init persistentFilename=\"state.bin\" component=\"libzorbus.so\"/>", "callback",
                            "run <id/>", RunTest("usbDevice0", "rootHubTest"),
                            "uninit <u persistentFilename=\"state.bin\"/>", "file state.bin"};
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
