// Many lives of the component in one host process: Initialize, discovery,
// a discarded component, a saved and restored one, Uninitialize. What is
// published stays the same from cycle to cycle but for the device and hub
// numbers, the saved state is the same each time, and the process ends
// without a leak (the sanitizer build reports any at the session's exit).
#include <gtest/gtest.h>

#include "Expectations.h"
#include "Machine.h"

namespace {

const int cycles = 20;

const std::vector<std::string> oneCycle = {
    InitLine(),
    "callback",
    "run <id/>",
    // A second Initialize discards the component with its devices, unsaved.
    InitLine(),
    "callback",
    "run <id/>",
    "uninit <u persistentFilename=\"state.bin\"/>",
    "file state.bin",
    InitLine("persistentFilename=\"state.bin\" component=\"libzorbus.so\""),
    "callback",
    // The restored devices and the newly found ones.
    "run <id/>",
    "run <runTest device=\"usbDevice0\" test=\"rootHubTest\" component=\"libzorbus.so\"/>",
    "uninit",
};

class Lifecycle : public ::testing::TestWithParam<bool> {};

}  // namespace

TEST_P(Lifecycle, CyclesPublishTheSameAndLeaveNothingBehind) {
    const bool factory = GetParam();
    FakeMachine machine("ehci_uhci_stick");
    std::vector<std::string> script = {std::string("factory ") + (factory ? "1" : "0"), "translator C"};
    for (int i = 0; i < cycles; ++i) script.insert(script.end(), oneCycle.begin(), oneCycle.end());
    const Session session = machine.Run(script);
    // Under the sanitizers a leak or a bad access ends the session with an
    // error status and a report.
    ASSERT_EQ(session.status, 0) << session.errors;
    EXPECT_EQ(session.errors.find("Sanitizer"), std::string::npos) << session.errors;

    const std::vector<std::string> ids = session.Answers("run <id/>");
    const std::vector<std::string> states = session.Answers("file state.bin");
    const std::vector<std::string> runs = session.Answers("run <runTest");
    ASSERT_EQ(ids.size(), 3u * cycles);
    ASSERT_EQ(states.size(), static_cast<size_t>(cycles));
    ASSERT_EQ(runs.size(), static_cast<size_t>(cycles));

    Counters counters;
    size_t step = 0;
    for (int i = 0; i < cycles; ++i) {
        SCOPED_TRACE("cycle " + std::to_string(i + 1));
        for (int fresh = 0; fresh < 2; ++fresh) {
            const Published published = EhciUhciStick(factory, counters);
            ExpectIdAnswer(ids[step++], published.devices, factory);
            counters = published.after;
        }
        // Restored devices first, then those of the new discovery.
        Published both = EhciUhciStickRestored(factory, counters);
        const Published found = EhciUhciStick(factory, both.after);
        both.devices.insert(both.devices.end(), found.devices.begin(), found.devices.end());
        ExpectIdAnswer(ids[step++], both.devices, factory);
        counters = found.after;

        EXPECT_NE(states[i].find("USBTestComponent"), std::string::npos);
        EXPECT_EQ(states[i], states[0]) << "the saved state drifts";
        EXPECT_NE(runs[i].find("currentState=\"passed\""), std::string::npos) << runs[i];
        if (::testing::Test::HasFailure()) break;  // one cycle's report is enough
    }
    EXPECT_EQ(machine.ToolCalls(), DevicesFileToolCalls(3 * cycles));
}

INSTANTIATE_TEST_SUITE_P(Modes, Lifecycle, ::testing::Bool(),
                         [](const ::testing::TestParamInfo<bool>& info) {
                             return std::string(info.param ? "factory" : "field");
                         });
