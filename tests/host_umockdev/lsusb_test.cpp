// Discovery from `lsusb -v` as a host sees it: no devices file in the testbed,
// and a stub lsusb that prints hand-written, captured, broken or odd text.
#include <algorithm>
#include <filesystem>

#include "Host.h"

namespace {

const std::string usbfsMount = "mount [-t] [usbfs] [none] [/proc/bus/usb]";

struct TextCase {
    const char* name;
    const char* text;        // under tests/fixtures
    const char* reference;   // under tests/fixtures, up to the mode
    const char* controller;  // one with a rootHubTest
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

// What the text publishes is held to the references of the bare testbed; here
// that the testbed's devices do not show through, and the root hub probe.
TEST_P(LsusbMachine, PublishesTheTextWhateverTheTestbedHolds) {
    const TextCase& c = GetParam();
    const std::string fixtures = std::string(ZORBUS_SOURCE_DIR) + "/tests/fixtures/";
    const std::string text = ReadText(fixtures + c.text);
    const auto m = LsusbOnly(c.rootHubNode ? "ehci_uhci_stick" : "", text);
    if (!m || (!c.rootHubNode && !m->Remove("testbed/proc/bus/usb/001/001")))
        GTEST_SKIP() << "this machine has /proc/bus/usb";
    const Session s = m->Run(Opening(c.factory, {"run <id/>", "run <id/>", RunTest(c.controller, "rootHubTest")}));

    const std::string reference = std::string("fixtures/") + c.reference + (c.factory ? "factory" : "field") + ".txt";
    EXPECT_EQ(s.Nth("run <id/>").answer, RecordedAnswer(reference, 0));
    EXPECT_EQ(s.Nth("run <id/>", 1).answer, RecordedAnswer(reference, 1));
    // Only bus 1's root hub node counts, whichever controller is tested.
    ExpectRootHubResult(s.Nth("run <runTest"), c.controller, c.rootHubNode);

    EXPECT_EQ(m->Calls(),
              (Strings{usbfsMount, "sync", "lsusb [-v]", usbfsMount, usbfsMount, "sync", "lsusb [-v]", usbfsMount}));
    EXPECT_EQ(m->Read("work/devices"), text);
    const std::string firstLine = text.substr(1, text.find('\n', 1) - 1);
    EXPECT_NE(m->Read("work/bang1.txt").find("reformat " + firstLine + "\n \n"), std::string::npos) << firstLine;
}

INSTANTIATE_TEST_SUITE_P(
    Texts, LsusbMachine,
    ::testing::Values(
        TextCase{"hand_made", "lsusb_texts/machine.txt", "lsusb_texts/reference/machine.", "usbDevice0", false, false},
        TextCase{"hand_made", "lsusb_texts/machine.txt", "lsusb_texts/reference/machine.", "usbDevice0", true, true},
        TextCase{"real_lsusb", "lsusb_real/machine.lsusb", "lsusb_real/reference/machine.", "usbDevice3", false, true},
        TextCase{"real_lsusb", "lsusb_real/machine.lsusb", "lsusb_real/reference/machine.", "usbDevice3", true, false},
        TextCase{"cut_off_block", "lsusb_texts/with_cut_off_block.txt", "lsusb_texts/reference/with_cut_off_block.",
                 "usbDevice0", false, false}));

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
        text += "\nBus 002 Device " + std::to_string(i) +
                ": ID 0781:5567\nDevice Descriptor:\n  iProduct 2 Stick\n"
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
