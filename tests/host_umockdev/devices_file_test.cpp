// Discovery from the kernel's devices file as a host sees it, on fixture
// machines in field and factory mode, and the controllers' tests there.
#include "Host.h"

namespace {

const std::string ehci = "USB 2.00 Controller EHCI-HCD", uhci = "USB 1.10 Controller UHCI";
const std::string high = "480 MBit/s", full = "12 MBit/s", category = "Communication|USB Controller(s)";
const std::string usbfsMount = "mount [-t] [usbfs] [none] [/proc/bus/usb]";

std::string N(int n) { return std::to_string(n); }

Strings Tests(bool factory, bool catalog = false) {
    Strings tests{"rootHubTest"};
    if (factory) tests.insert(tests.end(), {"descTest", "usbLoopbackTest"});
    tests.push_back("FileWriteCompareTest");
    if (!catalog) tests.push_back("UsbPortTest");  // identified controllers only
    return tests;
}

// Field mode counts devices and hubs, factory mode controllers, on over identifications.
struct Counters {
    int devices = 0, hubs = 0, controllers = 0;
    Dev Device(const std::string& description, const std::string& version, const std::string& speed) {
        return {"USB Device " + N(++devices), description,
                {{"TypeInfo", "USB Type", version}, {"SpeedInfo", "USB Speed", speed}}, {}};
    }
    // Field mode: a hub (a root hub is a controller), or a device on a port of the last hub.
    Dev Hub(const std::string& description, const std::string& version, const std::string& speed, int ports,
            bool root) {
        Dev d = Device(description, version, speed);
        d.properties.insert(d.properties.end(), {{"HubNumber", "Hub Number", N(++hubs)},
                                                 {"PortTotal", "Total Number of Ports", N(ports)}});
        if (root) d.tests = Tests(false);
        return d;
    }
    Dev OnPort(const std::string& maker, const std::string& product, const std::string& version,
               const std::string& speed, int port) {
        Dev d = Device("         " + maker + "  " + product, version, speed);
        d.properties.push_back({"portNum", "Hub Number " + N(hubs) + " portNum", N(port)});
        return d;
    }
    // Factory mode: a controller, then each of its ports; port `busy` has a device of type `type`.
    void Controller(std::vector<Dev>& out, const std::string& version, const std::string& speed, int ports,
                    int busy = 0, const std::string& type = "") {
        const std::string n = N(++controllers);
        const bool usb2 = version == "2.00";
        const Prop kind{"TypeInfo", "USB Type", version}, rate{"SpeedInfo", "USB Speed", speed};
        out.push_back({(usb2 ? "USB 2.0 Controller " : "USB Controller ") + n, usb2 ? ehci : "USB UHCI Root Hub",
                       {kind, rate, {"HubNumber", "Hub Number", n}}, Tests(true)});
        for (int p = 1; p <= ports; ++p)
            out.push_back(p == busy ? Dev{"USB Controller " + n + " Port " + N(p), "USB Port",
                                          {{"DeviceConnected", "DeviceConnected", "Yes"},
                                           {"DeviceType", "DeviceType", type}, kind, rate}, {}}
                                    : Dev{"USB " + version + " Controller  " + n + " Port " + N(p), "USB Port",
                                          {{"DeviceConnected", "DeviceConnected", "No"}}, {}});
    }
};

std::vector<Dev> EhciUhciStick(bool factory, Counters& c) {
    std::vector<Dev> d;
    if (!factory)
        return {c.Hub(ehci, "2.00", high, 6, true), c.OnPort("Kingston", "DT 101 G2", "2.00", high, 3),
                c.Hub(uhci, "1.10", full, 2, true)};
    c.Controller(d, "2.00", high, 6, 3, "DT 101 G2");
    c.Controller(d, "1.10", full, 2);
    return d;
}

// In factory mode the hub on port 1 comes back as a controller of its own, its ports after the root hub's.
std::vector<Dev> ExternalHub(bool factory, Counters& c) {
    std::vector<Dev> d;
    if (!factory)
        return {c.Hub(uhci, "1.10", full, 2, true), c.Hub("USB 4-Port Hub", "1.10", full, 4, false),
                c.OnPort("Hewlett-Packard", "LaserJet 1020", "1.10", full, 2)};
    c.Controller(d, "1.10", full, 2, 1, "USB 4-Port Hub");
    c.Controller(d, "1.10", full, 4, 2, "LaserJet 1020");
    return d;
}

std::vector<Dev> Nothing(bool, Counters&) { return {}; }

// ehci_uhci_stick restored: the state keeps neither hub flag nor kind, so field
// mode shows every node on a port and counts no hub, factory mode their own texts.
std::vector<Dev> Restored(bool factory, Counters& c) {
    std::vector<Dev> d(10, Dev{"Device", "Device", {}, {}});
    if (factory) {
        d[0].tests = d[7].tests = Tests(true);
        return d;
    }
    d = {c.OnPort("", ehci, "2.00", high, 1), c.OnPort("Kingston", "DT 101 G2", "2.00", high, 3),
         c.OnPort("INTEL Corporation", uhci, "1.10", full, 1)};
    d[0].properties.push_back({"PortTotal", "Total Number of Ports", "6"});
    d[2].properties.push_back({"PortTotal", "Total Number of Ports", "2"});
    d[0].tests = d[2].tests = Tests(false);
    return d;
}

std::vector<Dev> Join(std::vector<Dev> a, const std::vector<Dev>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

struct MachineCase {
    const char* fixture;
    std::vector<Dev> (*table)(bool factory, Counters& c);
    bool factory;
};

void PrintTo(const MachineCase& c, std::ostream* out) { *out << c.fixture << (c.factory ? " factory" : " field"); }

// The answer to a runTest that finds no device or no test.
std::string NotFound(const std::string& device, const std::string& key, const std::string& detail) {
    return "<testResult device=\"" + device + "\" test=\"rootHubTest\" component=\"libzorbus.so\" "
           "currentState=\"failed\">" + Error(key, detail, " reference=\"frontEnd, frontEnd\"") + "</testResult>";
}

class KnownMachine : public OnTestbed<::testing::TestWithParam<MachineCase>> {};
class EachMode : public OnTestbed<::testing::TestWithParam<bool>> {};

}  // namespace

TEST_P(KnownMachine, PublishesCatalogueAndDevicesAndCountsOnWhenAskedAgain) {
    const MachineCase& c = GetParam();
    FakeMachine m(c.fixture);
    const Session s = m.Run(Opening(c.factory, {"run <catalog/>", "run <id/>", "run <id/>"}));
    const Step& catalog = s.Nth("run <catalog/>");
    ExpectDevices(catalog.answer, category, {{"USB Device", "USB Device", {}, Tests(c.factory, true)}});
    EXPECT_EQ(catalog.events, (Strings{LogEvent("Building Catalog", ""), LogEvent("Device Discovered", "Device")}));

    Counters counters;
    const std::vector<Dev> first = c.table(c.factory, counters);
    ExpectDevices(s.Nth("run <id/>").answer, category, first);
    EXPECT_EQ(s.Nth("run <id/>").events, DiscoveryEvents(first.size()));
    // The devices found first are identified again, before the new ones.
    const std::vector<Dev> second = c.table(c.factory, counters);
    const std::vector<Dev> both = Join(second, c.table(c.factory, counters));
    ExpectDevices(s.Nth("run <id/>", 1).answer, category, both);
    EXPECT_EQ(s.Nth("run <id/>", 1).events, DiscoveryEvents(both.size()));
    // The devices file was read: no lsusb, nothing written here.
    EXPECT_EQ(m.Calls(), (Strings{usbfsMount, "sync", usbfsMount, "sync"}));
    EXPECT_FALSE(m.Has("work/devices") || m.Has("work/bang1.txt"));
}

INSTANTIATE_TEST_SUITE_P(Fixtures, KnownMachine,
                         ::testing::Values(MachineCase{"ehci_uhci_stick", &EhciUhciStick, false},
                                           MachineCase{"ehci_uhci_stick", &EhciUhciStick, true},
                                           MachineCase{"external_hub", &ExternalHub, false},
                                           MachineCase{"external_hub", &ExternalHub, true},
                                           MachineCase{"empty", &Nothing, false},
                                           MachineCase{"empty", &Nothing, true}));
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
    Counters counters;
    ExpectDevices(s.Nth("run <id/>").answer, category, EhciUhciStick(factory, counters));
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
    const Strings cycle = {init, "callback", "run <id/>", init, "callback", "run <id/>",
                           "uninit <u persistentFilename=\"state.bin\"/>", "file state.bin",
                           "init <init persistentFilename=\"state.bin\" component=\"libzorbus.so\"/>", "callback",
                           "run <id/>", RunTest("usbDevice0", "rootHubTest"), "uninit"};
    const size_t cycles = 3;
    Strings script{std::string("factory ") + (factory ? "1" : "0"), "translator C"}, calls;
    for (size_t i = 0; i < cycles; ++i) script.insert(script.end(), cycle.begin(), cycle.end());
    FakeMachine m("ehci_uhci_stick");
    const Session s = m.Run(script);
    EXPECT_EQ(s.errors.find("Sanitizer"), std::string::npos) << s.errors;

    Counters c;
    for (size_t i = 0; i < cycles; ++i) {
        SCOPED_TRACE("cycle " + N(static_cast<int>(i) + 1));
        ExpectDevices(s.Nth("run <id/>", 3 * i).answer, category, EhciUhciStick(factory, c));
        // A second Initialize discards the component with its devices, unsaved.
        ExpectDevices(s.Nth("run <id/>", 3 * i + 1).answer, category, EhciUhciStick(factory, c));
        // Restored devices first, then those found again.
        const std::vector<Dev> restored = Restored(factory, c);
        ExpectDevices(s.Nth("run <id/>", 3 * i + 2).answer, category, Join(restored, EhciUhciStick(factory, c)));
        EXPECT_NE(s.Nth("file state.bin", i).answer.find("USBTestComponent"), std::string::npos);
        EXPECT_EQ(s.Nth("file state.bin", i).answer, s.Nth("file state.bin").answer);
        ExpectRootHubResult(s.Nth("run <runTest", i), "usbDevice0", true);
        for (int id = 0; id < 3; ++id) calls.insert(calls.end(), {usbfsMount, "sync"});
    }
    EXPECT_EQ(m.Calls(), calls);
}
