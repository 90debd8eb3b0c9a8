// USB discovery as a host sees it: the real library, loaded by a host
// process, on fixture machines under umockdev, in field and factory mode.
// Every session is a fresh process, so the device and hub numbers start at 1.
#include <gtest/gtest.h>

#include "Expectations.h"
#include "Machine.h"

namespace {

const char* const runRootHubTest = "run <runTest device=\"%s\" test=\"rootHubTest\" component=\"libzorbus.so\"/>";
const std::string failureMark = "libzorbus.so.failure.version";
const std::string discoveryFailure = "An Error occurred while discovering USB devices in the system";

std::string RunRootHubTest(const std::string& device) {
    char line[256];
    std::snprintf(line, sizeof line, runRootHubTest, device.c_str());
    return line;
}

std::string ErrorAnswer(const std::string& text) {
    return "<error errorCode=\"TvkError\" key=\"" + text + "\" detail=\"\">" + text + "</error>";
}

std::vector<std::string> ErrorEvents(const std::string& text) {
    return {LogEvent("Device Discovery Started", ""), LogEvent("Error", "TvkError - " + text + ";" + text)};
}

void ExpectSessionRan(const Session& session) {
    ASSERT_EQ(session.status, 0) << session.errors;
    EXPECT_EQ(session.Nth("callback").answer, "<diagOutput type=\"setCallback\" status=\"Success\"/>");
}

std::string ModeName(bool factory) { return factory ? "factory" : "field"; }

struct MachineCase {
    const char* fixture;
    MachineTable table;
    bool factory;
};

void PrintTo(const MachineCase& c, std::ostream* out) { *out << c.fixture << " in " << ModeName(c.factory) << " mode"; }

class KnownMachine : public ::testing::TestWithParam<MachineCase> {};

}  // namespace

TEST_P(KnownMachine, PublishesCatalogueAndDevices) {
    const MachineCase& c = GetParam();
    FakeMachine machine(c.fixture);
    std::vector<std::string> script = Opening(c.factory);
    script.push_back("run <catalog/>");
    script.push_back("run <id/>");
    const Session session = machine.Run(script);
    ASSERT_NO_FATAL_FAILURE(ExpectSessionRan(session));

    const Step& catalog = session.Nth("run <catalog/>");
    ExpectCatalogAnswer(catalog.answer, c.factory);
    EXPECT_EQ(catalog.events, (std::vector<std::string>{LogEvent("Building Catalog", ""),
                                                        LogEvent("Device Discovered", "Device")}));

    const Step& id = session.Nth("run <id/>");
    const Published expected = c.table(c.factory, Counters{});
    ExpectIdAnswer(id.answer, expected.devices, c.factory);
    ExpectDiscoveryEvents(id, expected.devices.size());

    // The devices file was read: no lsusb, nothing written here.
    EXPECT_EQ(machine.ToolCalls(), DevicesFileToolCalls(1));
    EXPECT_FALSE(machine.HasWorkFile("devices"));
    EXPECT_FALSE(machine.HasWorkFile("bang1.txt"));
}

INSTANTIATE_TEST_SUITE_P(Fixtures, KnownMachine,
                         ::testing::Values(MachineCase{"ehci_uhci_stick", &EhciUhciStick, false},
                                           MachineCase{"ehci_uhci_stick", &EhciUhciStick, true},
                                           MachineCase{"external_hub", &ExternalHub, false},
                                           MachineCase{"external_hub", &ExternalHub, true},
                                           MachineCase{"example", &Example, false},
                                           MachineCase{"example", &Example, true}),
                         [](const ::testing::TestParamInfo<MachineCase>& info) {
                             return std::string(info.param.fixture) + "_" + ModeName(info.param.factory);
                         });

class EachMode : public ::testing::TestWithParam<bool> {};

INSTANTIATE_TEST_SUITE_P(Modes, EachMode, ::testing::Bool(),
                         [](const ::testing::TestParamInfo<bool>& info) { return ModeName(info.param); });

TEST_P(EachMode, SecondIdentificationGoesOnCounting) {
    const bool factory = GetParam();
    FakeMachine machine("ehci_uhci_stick");
    std::vector<std::string> script = Opening(factory);
    script.push_back("run <id/>");
    script.push_back("run <id/>");
    const Session session = machine.Run(script);
    ASSERT_NO_FATAL_FAILURE(ExpectSessionRan(session));

    const Published first = EhciUhciStick(factory, Counters{});
    ExpectIdAnswer(session.Nth("run <id/>", 0).answer, first.devices, factory);
    // The devices of the first discovery stay and are identified again,
    // before the new ones; the numbers go on from where they stopped.
    const Published second = Twice(&EhciUhciStick, factory, first.after);
    ASSERT_EQ(second.devices.size(), 2 * first.devices.size());
    ExpectIdAnswer(session.Nth("run <id/>", 1).answer, second.devices, factory);
    ExpectDiscoveryEvents(session.Nth("run <id/>", 1), second.devices.size());
    EXPECT_EQ(machine.ToolCalls(), DevicesFileToolCalls(2));
}

TEST_P(EachMode, RootHubTestPassesWhileTheFirstRootHubNodeOpens) {
    const bool factory = GetParam();
    FakeMachine machine("ehci_uhci_stick");
    // The UHCI controller and the stick, by mode.
    const std::string second = factory ? "usbDevice7" : "usbDevice2";
    const std::string stick = factory ? "usbDevice3" : "usbDevice1";
    std::vector<std::string> script = Opening(factory);
    script.push_back("medium 1");
    script.push_back("run <id/>");
    script.push_back(RunRootHubTest("usbDevice0"));
    // The probe always opens bus 1's root hub, whichever controller asks.
    script.push_back(RunRootHubTest(second));
    script.push_back(RunRootHubTest(stick));
    const Session session = machine.Run(script);
    ASSERT_NO_FATAL_FAILURE(ExpectSessionRan(session));

    {
        SCOPED_TRACE("first controller");
        ExpectRootHubResult(session.Nth(RunRootHubTest("usbDevice0")), "usbDevice0", true);
    }
    {
        SCOPED_TRACE("second controller");
        ExpectRootHubResult(session.Nth(RunRootHubTest(second)), second, true);
    }
    // Only controllers offer tests.
    const Step& onStick = session.Nth(RunRootHubTest(stick));
    EXPECT_EQ(onStick.answer, "<testResult device=\"" + stick +
                                  "\" test=\"rootHubTest\" component=\"libzorbus.so\" currentState=\"failed\">"
                                  "<error errorCode=\"TvkError\" key=\"Test not found\" detail=\"rootHubTest\" "
                                  "reference=\"frontEnd, frontEnd\">Test not found: rootHubTest</error></testResult>");
    EXPECT_TRUE(onStick.events.empty());
    // A failed answer marks the factory run from the medium.
    EXPECT_EQ(machine.HasWorkFile(failureMark), factory);
}

TEST_P(EachMode, RootHubTestFailsWithoutTheNode) {
    const bool factory = GetParam();
    FakeMachine machine("ehci_uhci_stick");
    if (!machine.Remove("proc/bus/usb/001/001")) GTEST_SKIP() << "this machine has /proc/bus/usb/001/001";
    std::vector<std::string> script = Opening(factory);
    script.push_back("medium 1");
    script.push_back("run <id/>");
    script.push_back(RunRootHubTest("usbDevice0"));
    const Session session = machine.Run(script);
    ASSERT_NO_FATAL_FAILURE(ExpectSessionRan(session));

    // Discovery does not need the node.
    ExpectIdAnswer(session.Nth("run <id/>").answer, EhciUhciStick(factory, Counters{}).devices, factory);
    ExpectRootHubResult(session.Nth(RunRootHubTest("usbDevice0")), "usbDevice0", false);
    ASSERT_EQ(machine.HasWorkFile(failureMark), factory);
    if (factory) {
        EXPECT_EQ(machine.WorkFile(failureMark), "<diagVersion>8.6.0.3755A</diagVersion>\n");
    }
}

TEST_P(EachMode, EmptyDevicesFilePublishesNoDevice) {
    const bool factory = GetParam();
    FakeMachine machine("empty");
    std::vector<std::string> script = Opening(factory);
    script.push_back("run <id/>");
    const Session session = machine.Run(script);
    ASSERT_NO_FATAL_FAILURE(ExpectSessionRan(session));

    const Step& id = session.Nth("run <id/>");
    EXPECT_EQ(id.answer, "<idResult/>");
    ExpectDiscoveryEvents(id, 0);
    // The file is there, so lsusb is not asked.
    EXPECT_EQ(machine.ToolCalls(), DevicesFileToolCalls(1));
    EXPECT_FALSE(machine.HasWorkFile("devices"));
}

TEST_P(EachMode, DeviceWithoutItsParentHubFailsDiscovery) {
    const bool factory = GetParam();
    FakeMachine machine("orphan");
    std::vector<std::string> script = Opening(factory);
    script.push_back("medium 1");
    script.push_back("run <id component=\"libzorbus.so\"/>");
    script.push_back("run <id/>");
    script.push_back(RunRootHubTest("usbDevice0"));
    const Session session = machine.Run(script);
    ASSERT_NO_FATAL_FAILURE(ExpectSessionRan(session));

    for (size_t i = 0; i < 2; ++i) {
        SCOPED_TRACE("identification " + std::to_string(i + 1));
        const Step& id = session.Nth("run <id", i);
        EXPECT_EQ(id.answer, ErrorAnswer(discoveryFailure));
        EXPECT_EQ(id.events, ErrorEvents(discoveryFailure));
    }
    // The root hub before the orphan did not stay behind as a device.
    const Step& run = session.Nth(RunRootHubTest("usbDevice0"));
    EXPECT_EQ(run.answer,
              "<testResult device=\"usbDevice0\" test=\"rootHubTest\" component=\"libzorbus.so\" "
              "currentState=\"failed\"><error errorCode=\"TvkError\" key=\"Device not found\" detail=\"usbDevice0\" "
              "reference=\"frontEnd, frontEnd\">Device not found: usbDevice0</error></testResult>");
    EXPECT_TRUE(run.events.empty());
    EXPECT_EQ(machine.HasWorkFile(failureMark), factory);
}

TEST_P(EachMode, LsusbRoadWithoutDevicesFailsEnumeration) {
    const bool factory = GetParam();
    // No devices file, and an lsusb that lists no device: nothing at all, or
    // text without a device line.
    for (const std::string& output : {std::string(), std::string("\n  bcdUSB               2.00\n")}) {
        SCOPED_TRACE("lsusb prints \"" + output + "\"");
        FakeMachine machine("");
        if (!machine.Remove("proc/bus/usb/devices")) GTEST_SKIP() << "this machine has /proc/bus/usb/devices";
        machine.SetLsusbOutput(output);
        std::vector<std::string> script = Opening(factory);
        script.push_back("run <id/>");
        const Session session = machine.Run(script);
        ASSERT_NO_FATAL_FAILURE(ExpectSessionRan(session));

        const Step& id = session.Nth("run <id/>");
        EXPECT_EQ(id.answer, ErrorAnswer("Device Failed Enumeration"));
        EXPECT_EQ(id.events, ErrorEvents("Device Failed Enumeration"));
        // The lsusb text lands in "devices" here; the road stops before its
        // own mount.
        EXPECT_EQ(Joined(machine.ToolCalls()), "mount -t usbfs none /proc/bus/usb\nsync \nlsusb -v\n");
        ASSERT_TRUE(machine.HasWorkFile("devices"));
        EXPECT_EQ(machine.WorkFile("devices"), output);
    }
}

TEST_P(EachMode, CatalogueNeedsNoUsbInformation) {
    const bool factory = GetParam();
    FakeMachine machine("");
    std::vector<std::string> script = Opening(factory);
    script.push_back("run <CATALOG/>");
    const Session session = machine.Run(script);
    ASSERT_NO_FATAL_FAILURE(ExpectSessionRan(session));

    ExpectCatalogAnswer(session.Nth("run <CATALOG/>").answer, factory);
    EXPECT_TRUE(machine.ToolCalls().empty());
    EXPECT_FALSE(machine.HasWorkFile("devices"));
}
