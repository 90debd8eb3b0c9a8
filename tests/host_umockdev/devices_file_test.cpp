// Discovery from the kernel's devices file as a host sees it, on fixture
// machines in field and factory mode, and the controllers' tests there.
#include "Host.h"

namespace {

const std::string category = "Communication|USB Controller(s)";
const std::string usbfsMount = "mount [-t] [usbfs] [none] [/proc/bus/usb]";

std::string N(size_t n) { return std::to_string(n); }

Strings CatalogueTests(bool factory) {
    return factory ? Strings{"rootHubTest", "descTest", "usbLoopbackTest", "FileWriteCompareTest"}
                   : Strings{"rootHubTest", "FileWriteCompareTest"};
}

std::string Mode(bool factory) { return factory ? "factory" : "field"; }

struct MachineCase {
    const char* fixture;
    bool factory;
};

void PrintTo(const MachineCase& c, std::ostream* out) { *out << c.fixture << " " << Mode(c.factory); }

// The answer to a runTest that finds no device or no test.
std::string NotFound(const std::string& device, const std::string& key, const std::string& detail) {
    return "<testResult device=\"" + device +
           "\" test=\"rootHubTest\" component=\"libzorbus.so\" "
           "currentState=\"failed\">" +
           Error(key, detail, " reference=\"frontEnd, frontEnd\"") + "</testResult>";
}

class KnownMachine : public OnTestbed<::testing::TestWithParam<MachineCase>> {};
class EachMode : public OnTestbed<::testing::TestWithParam<bool>> {};

}  // namespace

// What the identifications publish is held to the references beside each
// fixture; here the catalogue and what discovery may touch.
TEST_P(KnownMachine, PublishesTheCatalogueAndReadsOnlyTheDevicesFile) {
    const MachineCase& c = GetParam();
    FakeMachine m(c.fixture);
    const Session s = m.Run(Opening(c.factory, {"run <catalog/>", "run <id/>", "run <id/>"}));
    const Step& catalog = s.Nth("run <catalog/>");
    ExpectDevices(catalog.answer, category, {{"USB Device", "USB Device", {}, CatalogueTests(c.factory)}});
    EXPECT_EQ(catalog.events, (Strings{LogEvent("Building Catalog", ""), LogEvent("Device Discovered", "Device")}));
    // The devices file was read: no lsusb, nothing written here.
    EXPECT_EQ(m.Calls(), (Strings{usbfsMount, "sync", usbfsMount, "sync"}));
    EXPECT_FALSE(m.Has("work/devices"));
    EXPECT_FALSE(m.Has("work/bang1.txt"));
}

INSTANTIATE_TEST_SUITE_P(Fixtures, KnownMachine,
                         ::testing::Values(MachineCase{"ehci_uhci_stick", false}, MachineCase{"ehci_uhci_stick", true},
                                           MachineCase{"external_hub", false}, MachineCase{"external_hub", true},
                                           MachineCase{"empty", false}, MachineCase{"empty", true}));
INSTANTIATE_TEST_SUITE_P(Modes, EachMode, ::testing::Bool());

TEST_P(EachMode, RootHubTestNeedsTheFirstRootHubNode) {
    const bool factory = GetParam();
    FakeMachine m("ehci_uhci_stick");
    const std::string second = factory ? "usbDevice7" : "usbDevice2", stick = factory ? "usbDevice3" : "usbDevice1";
    // The probe opens bus 1's root hub, whichever controller asks.
    Session s = m.Run(Opening(factory, {"medium 1", "run <id/>", RunTest("usbDevice0", "rootHubTest"),
                                        RunTest(second, "rootHubTest"), RunTest(stick, "rootHubTest")}));
    ExpectRootHubResult(s.Nth(RunTest("usbDevice0", "rootHubTest")), "usbDevice0", true);
    ExpectRootHubResult(s.Nth(RunTest(second, "rootHubTest")), second, true);
    // Only controllers offer tests; a failed answer marks a factory run from the medium.
    const Step& onStick = s.Nth(RunTest(stick, "rootHubTest"));
    EXPECT_EQ(onStick.answer, NotFound(stick, "Test not found", "rootHubTest"));
    EXPECT_TRUE(onStick.events.empty());
    EXPECT_EQ(m.Has(failureMark), factory);
    m.Remove(failureMark);

    if (!m.Remove("testbed/proc/bus/usb/001/001")) GTEST_SKIP() << "this machine has /proc/bus/usb/001/001";
    s = m.Run(Opening(factory, {"medium 1", "run <id/>", RunTest("usbDevice0", "rootHubTest")}));
    // Discovery does not need the node: the devices are those it finds with it.
    const std::string recorded = "fixtures/ehci_uhci_stick/reference/" + Mode(factory) + ".txt";
    EXPECT_EQ(s.Nth("run <id/>").answer, RecordedAnswer(recorded, 0));
    ExpectRootHubResult(s.Nth(RunTest("usbDevice0", "rootHubTest")), "usbDevice0", false);
    EXPECT_EQ(m.Read(failureMark), factory ? std::string(version) + "\n" : "");
}

TEST_P(EachMode, DeviceWithoutItsParentHubFailsDiscoveryAndLeavesNoDevice) {
    const bool factory = GetParam();
    FakeMachine m("orphan");
    const Session s = m.Run(Opening(factory, {"medium 1", "run <id component=\"libzorbus.so\"/>", "run <id/>",
                                              RunTest("usbDevice0", "rootHubTest")}));
    const std::string failure = "An Error occurred while discovering USB devices in the system";
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(s.Nth("run <id", i).answer, Error(failure));
        EXPECT_EQ(s.Nth("run <id", i).events, ErrorEvents(failure));
    }
    // The root hub read before the orphan did not stay behind.
    EXPECT_EQ(s.Nth("run <runTest").answer, NotFound("usbDevice0", "Device not found", "usbDevice0"));
    EXPECT_TRUE(s.Nth("run <runTest").events.empty());
    EXPECT_EQ(m.Has(failureMark), factory);
}

// Discarded, saved and restored components in one host process; under the
// sanitizers a leak or a bad access ends the session with a report.
TEST_P(EachMode, ComponentLivesPublishTheSameAndTheSavedStateDoesNotDrift) {
    const bool factory = GetParam();
    const std::string init = "init <init component=\"libzorbus.so\"/>";
    const Strings cycle = {init,
                           "callback",
                           "run <id/>",
                           init,
                           "callback",
                           "run <id/>",
                           "uninit <u persistentFilename=\"state.bin\"/>",
                           "file state.bin",
                           "init <init persistentFilename=\"state.bin\" component=\"libzorbus.so\"/>",
                           "callback",
                           "run <id/>",
                           RunTest("usbDevice0", "rootHubTest"),
                           "uninit"};
    const size_t cycles = 3;
    Strings script{std::string("factory ") + (factory ? "1" : "0"), "translator C"}, calls;
    for (size_t i = 0; i < cycles; ++i) script.insert(script.end(), cycle.begin(), cycle.end());
    FakeMachine m("ehci_uhci_stick");
    const Session s = m.Run(script);
    EXPECT_EQ(s.errors.find("Sanitizer"), std::string::npos) << s.errors;

    // Each life: devices found, found again by a fresh component that discarded
    // the first unsaved, then the restored devices before those found again.
    std::string lists;
    for (size_t i = 0; i < cycles; ++i) {
        SCOPED_TRACE("cycle " + N(i + 1));
        for (size_t id = 0; id < 3; ++id)
            lists += "run <id/> " + N(3 * i + id + 1) + "\n" + Listing(s.Nth("run <id/>", 3 * i + id).answer);
        EXPECT_NE(s.Nth("file state.bin", i).answer.find("USBTestComponent"), std::string::npos);
        EXPECT_EQ(s.Nth("file state.bin", i).answer, s.Nth("file state.bin").answer);
        ExpectRootHubResult(s.Nth("run <runTest", i), "usbDevice0", true);
        for (int id = 0; id < 3; ++id) calls.insert(calls.end(), {usbfsMount, "sync"});
    }
    ExpectRecorded(lists, "fixtures/ehci_uhci_stick/component_lives." + Mode(factory) + ".expected");
    EXPECT_EQ(m.Calls(), calls);
}
