// Discovery from `lsusb -v` as a host sees it: no devices file in the testbed,
// and a stub lsusb that prints hand-written, captured, broken or odd text.
#include <algorithm>
#include <filesystem>

#include "Host.h"

namespace {

const std::string category = "Communication|USB Controller", linux61 = " - Linux 6.1.0-13-amd64 ";
const std::string usbfsMount = "mount [-t] [usbfs] [none] [/proc/bus/usb]";
const std::string off = "0100 power", full = "0103 power enable connect", high = "0503 highspeed power enable connect",
                  low = "0303 lowspeed power enable connect";

std::string N(size_t n) { return std::to_string(n); }

Dev Plain(const std::string& description, const std::string& version, const std::string& serial) {
    return {"", description, {{"TypeInfo", "USB Type", version}, {"SerialNumber", "Serial Number", serial}}, {}};
}

// Hub data, then a line for each port: " Port N: 0000.STATUS", then `after`.
Dev Hub(Dev d, const std::string& type, const std::string& characteristic, const Strings& ports,
        const Strings& after = {}) {
    d.properties.insert(d.properties.end(), {{"HubTypeInfo", "USB Hub", type},
                                             {"HubCharacteristic", "USB Hub Characteristic", characteristic},
                                             {"HubDeviceRemovable", "USB Device Removable", " 0x00"},
                                             {"HubNumPort", "Number of hub ports", " " + N(ports.size())}});
    for (size_t p = 0; p < ports.size(); ++p)
        d.properties.push_back({"usbPortnum", " ", " Port " + N(p + 1) + ": 0000." + ports[p]});
    for (const std::string& line : after) d.properties.push_back({"usbPortnum", " ", line});
    return d;
}

Dev RootHub(bool factory, const std::string& kind, const std::string& version, const std::string& serial,
            const Strings& ports) {
    const std::string driver = kind == "EHCI" ? "ehci_hcd" : "uhci_hcd";
    Dev d = Hub(Plain(kind + " Host Controller" + linux61 + driver, version, serial), " 41", " 0x000a", ports);
    d.tests = factory ? Strings{"rootHubTest", "usbLoopbackTest", "FileWriteCompareTest"}
                      : Strings{"rootHubTest", "FileWriteCompareTest"};
    return d;
}

// The external hub: its port block runs on through the device qualifier up to the status line.
Dev ExternalHub(const std::string& description, const Strings& ports, const Strings& qualifierClass) {
    Strings after = {" Device Qualifier (for other device speed):", " bLength 10", " bDescriptorType 6",
                     " bcdUSB 2.00"};
    after.insert(after.end(), qualifierClass.begin(), qualifierClass.end());
    after.insert(after.end(), {" bMaxPacketSize0 64", " bNumConfigurations 1"});
    return Hub(Plain(description, "2.00", "Not available"), " 6", " 0x00e0", ports, after);
}

const Dev stick = Plain("Cruzer Blade - SanDisk", "2.00", "4C530001090312117392"),
          mouse = Plain("USB Optical Mouse - Logitech", "2.00", "Not available");

std::vector<Dev> HandMade(bool factory) {
    return {RootHub(factory, "EHCI", "2.00", "0000:00:1d.7", {high, off}),
            RootHub(factory, "UHCI", "1.10", "0000:00:1d.0", {full, off}),
            ExternalHub("USB2.0 Hub - Genesys Logic, Inc.", {full, low, off, off},
                        {" bDeviceClass 9 Hub", " bDeviceSubClass 0 ", " bDeviceProtocol 0 Full speed (or root) hub"}),
            stick, mouse, Plain("USB 10/100/1000 LAN - Realtek", "2.10", "000001")};
}

// In the order lsusb printed them; no names from a hardware database.
std::vector<Dev> Real(bool factory) {
    return {Plain("USB 10/100/1000 LAN - Realtek", "2.00", "000001"), stick,
            ExternalHub("USB2.0 Hub - 0x05e3", {high, off, off, off},
                        {" bDeviceClass 0 ", " bDeviceSubClass 0 ", " bDeviceProtocol 0 "}),
            RootHub(factory, "EHCI", "2.00", "0000:00:1d.7", {high, high}), mouse,
            RootHub(factory, "UHCI", "1.10", "0000:00:1d.0", {low, off})};
}

// Captions count on from `from` over every identification.
std::vector<Dev> Numbered(std::vector<Dev> devices, size_t from) {
    for (Dev& d : devices) d.caption = "USB Device " + std::to_string(++from);
    return devices;
}

struct TextCase {
    const char* name;
    const char* fixture;
    std::vector<Dev> (*table)(bool factory);
    bool factory;
    bool rootHubNode;  // the testbed has bus 1's root hub node
};

void PrintTo(const TextCase& c, std::ostream* out) { *out << c.name << (c.factory ? " factory" : " field"); }

class LsusbMachine : public OnTestbed<::testing::TestWithParam<TextCase>> {};

// A bare testbed without a devices file, where stub lsusb prints `text`; null when this machine has one.
std::unique_ptr<FakeMachine> LsusbOnly(const std::string& fixture, const std::string& text) {
    auto m = std::make_unique<FakeMachine>(fixture);
    if (!m->Remove("testbed/proc/bus/usb/devices")) return nullptr;
    m->Write("data/lsusb", text);
    return m;
}

}  // namespace

TEST_P(LsusbMachine, PublishesEveryDeviceOfTheText) {
    const TextCase& c = GetParam();
    const std::string text = ReadText(std::string(ZORBUS_SOURCE_DIR) + "/tests/fixtures/" + c.fixture);
    const auto m = LsusbOnly(c.rootHubNode ? "ehci_uhci_stick" : "", text);
    if (!m || (!c.rootHubNode && !m->Remove("testbed/proc/bus/usb/001/001")))
        GTEST_SKIP() << "this machine has /proc/bus/usb";
    const std::vector<Dev> devices = c.table(c.factory);
    const size_t n = devices.size();
    const auto controller = std::find_if(devices.begin(), devices.end(), [](const Dev& d) { return !d.tests.empty(); });
    const std::string name = "usbDevice" + std::to_string(controller - devices.begin());
    const Session s = m->Run(Opening(c.factory, {"run <id/>", "run <id/>", RunTest(name, "rootHubTest")}));

    ExpectDevices(s.Nth("run <id/>").answer, category, Numbered(devices, 0));
    EXPECT_EQ(s.Nth("run <id/>").events, DiscoveryEvents(n));
    // A second identification identifies the same devices again and adds them anew.
    std::vector<Dev> twice = Numbered(devices, n), added = Numbered(devices, 2 * n);
    twice.insert(twice.end(), added.begin(), added.end());
    ExpectDevices(s.Nth("run <id/>", 1).answer, category, twice);
    // Only bus 1's root hub node counts, whichever controller is tested.
    ExpectRootHubResult(s.Nth("run <runTest"), name, c.rootHubNode);

    EXPECT_EQ(m->Calls(), (Strings{usbfsMount, "sync", "lsusb [-v]", usbfsMount, usbfsMount, "sync", "lsusb [-v]",
                                   usbfsMount}));
    EXPECT_EQ(m->Read("work/devices"), text);
    const std::string firstLine = text.substr(1, text.find('\n', 1) - 1);
    EXPECT_NE(m->Read("work/bang1.txt").find("reformat " + firstLine + "\n \n"), std::string::npos) << firstLine;
}

INSTANTIATE_TEST_SUITE_P(
    Texts, LsusbMachine,
    ::testing::Values(TextCase{"hand_made", "lsusb_texts/machine.txt", &HandMade, false, false},
                      TextCase{"hand_made", "lsusb_texts/machine.txt", &HandMade, true, true},
                      TextCase{"real_lsusb", "lsusb_real/machine.lsusb", &Real, false, true},
                      TextCase{"real_lsusb", "lsusb_real/machine.lsusb", &Real, true, false},
                      TextCase{"cut_off_block", "lsusb_texts/with_cut_off_block.txt", &HandMade, false, false}));

TEST(LsusbRoad, TextWithoutADeviceFailsEnumeration) {
    for (const bool factory : {false, true})
        for (const std::string text : {"", "\n  bcdUSB               2.00\n",
                                       "\nDevice Descriptor:\n  bLength                18\n"
                                       "  idVendor           0x1d6b \nDevice Status:     0x0001\n  Self Powered\n"}) {
            SCOPED_TRACE((factory ? "factory, lsusb prints: " : "field, lsusb prints: ") + text);
            const auto m = LsusbOnly("", text);
            if (!m) GTEST_SKIP() << "this machine has /proc/bus/usb/devices";
            const Session s = m->Run(Opening(factory, {"run <id/>"}));
            EXPECT_EQ(s.Nth("run <id/>").answer, Error("Device Failed Enumeration"));
            EXPECT_EQ(s.Nth("run <id/>").events, ErrorEvents("Device Failed Enumeration"));
            // The text lands in "devices"; the road stops before its own mount.
            EXPECT_EQ(m->Calls(), (Strings{usbfsMount, "sync", "lsusb [-v]"}));
            EXPECT_EQ(m->Read("work/devices"), text);
        }
}

// A product line far longer than a read, keywords with nothing behind them, a
// device without configuration, then hundreds of small devices.
TEST(LsusbRoad, OddTextIsNeverFatal) {
    std::string text = "\nBus 001 Device 001: ID 1d6b:0002\nDevice Descriptor:\n  iProduct 2 " +
                       std::string(3000, 'P') + "\n  iSerial\n  bcdUSB\nDevice Status:     0x0001\n";
    for (int i = 0; i < 600; ++i)
        text += "\nBus 002 Device " + std::to_string(i) + ": ID 0781:5567\nDevice Descriptor:\n  iProduct 2 Stick\n"
                "  Configuration Descriptor:\n    Interface Descriptor:\n      bInterfaceClass 9 Hub\n"
                "Device Status:     0x0000\n";
    for (const bool factory : {false, true}) {
        const auto m = LsusbOnly("", text);
        if (!m) GTEST_SKIP() << "this machine has /proc/bus/usb/devices";
        const Element result = Element::Parse(m->Run(Opening(factory, {"run <id/>"})).Nth("run <id/>").answer);
        ASSERT_EQ(result.children.size(), 601u);
        // The long line came in pieces of one read each (242 letters behind the
        // key in the first), joined by a blank; no vendor line: no maker.
        std::string description = result.children[0].Attr("description");
        EXPECT_EQ(description.find("P P"), 241u) << description.substr(0, 40);
        description.erase(std::remove(description.begin(), description.end(), ' '), description.end());
        EXPECT_EQ(description, std::string(3000, 'P') + "-");
        EXPECT_EQ(result.children[600].Attr("description"), "Stick - ");
        EXPECT_EQ(result.children[600].Attr("caption"), "USB Device 601");
    }
}

// Whatever was planted in the working directory at the names of the files the
// component writes there stays as it was, and so does what it points to.
TEST(LsusbRoad, PlantedLinksInTheWorkingDirectoryAreNeverFollowed) {
    namespace fs = std::filesystem;
    const std::string text = ReadText(std::string(ZORBUS_SOURCE_DIR) + "/tests/fixtures/lsusb_texts/machine.txt");
    const auto m = LsusbOnly("", text);
    if (!m) GTEST_SKIP() << "this machine has /proc/bus/usb/devices";
    const std::string folder = m->folder + "/";
    m->Write("victims/devices", "kept 1\n");
    m->Write("victims/trace", "kept 2\n");
    fs::create_symlink(folder + "victims/devices", folder + "work/devices");
    fs::create_hard_link(folder + "victims/trace", folder + "work/bang1.txt");
    fs::create_symlink(folder + "victims/mark", folder + "work/libzorbus.so.failure.version");

    m->Run(Opening(true, {"medium 1", "run <id/>", "run <bogus component=\"libzorbus.so\"/>",
                          "run <bogus component=\"../evil.so\"/>"}));

    EXPECT_EQ(m->Read("victims/devices"), "kept 1\n");
    EXPECT_EQ(m->Read("victims/trace"), "kept 2\n");
    EXPECT_FALSE(m->Has("victims/mark"));
    // The component wrote files of its own in place of the links.
    EXPECT_FALSE(fs::is_symlink(folder + "work/devices"));
    EXPECT_EQ(m->Read("work/devices"), text);
    EXPECT_EQ(fs::hard_link_count(folder + "work/bang1.txt"), 1u);
    EXPECT_NE(m->Read("work/bang1.txt").find("reformat "), std::string::npos);
    // An existing mark, a link too, is never replaced.
    EXPECT_TRUE(fs::is_symlink(folder + "work/libzorbus.so.failure.version"));
    // A component name with a path leaves its mark in the working directory.
    EXPECT_TRUE(m->Has("work/evil.so.failure.version"));
    EXPECT_FALSE(m->Has("evil.so.failure.version"));
}
