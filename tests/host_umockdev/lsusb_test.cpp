// Discovery from `lsusb -v` as a host sees it: no devices file in the
// testbed, a stub lsusb first on the path that prints a text of ours, the
// real library loaded by a host process, in field and factory mode. Texts:
// a hand-written machine (two root hubs, an external hub with its hub
// descriptor and port lines, a stick, a mouse with a HID descriptor, an
// adapter with two configurations), real lsusb output of a made-up machine,
// a text without a device, a device cut off at the end, and odd text.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "Expectations.h"
#include "Machine.h"

namespace {

const std::string lsusbCategory = "Communication|USB Controller";

struct LsusbDev {
    std::string description;
    std::vector<Prop> properties;
    bool controller = false;
};

std::string ModeName(bool factory) { return factory ? "factory" : "field"; }

std::string TextFixture(const std::string& path) {
    return ReadText(std::string(ZORBUS_SOURCE_DIR) + "/tests/fixtures/" + path);
}

// What a controller of this road offers, in order.
std::vector<std::string> ControllerTests(bool factory) {
    std::vector<std::string> tests{"rootHubTest"};
    if (factory) tests.push_back("usbLoopbackTest");
    tests.push_back("FileWriteCompareTest");
    return tests;
}

Prop Type(const std::string& v) { return {"TypeInfo", "USB Type", v}; }
Prop Serial(const std::string& v) { return {"SerialNumber", "Serial Number", v}; }
Prop PortLine(const std::string& v) { return {"usbPortnum", " ", v}; }
std::vector<Prop> HubData(const std::string& type, const std::string& characteristic, const std::string& ports) {
    return {{"HubTypeInfo", "USB Hub", type},
            {"HubCharacteristic", "USB Hub Characteristic", characteristic},
            {"HubDeviceRemovable", "USB Device Removable", " 0x00"},
            {"HubNumPort", "Number of hub ports", ports}};
}

LsusbDev RootHub(const std::string& description, const std::string& version, const std::string& serial,
                 const std::vector<std::string>& ports) {
    LsusbDev d{description, {Type(version), Serial(serial)}, true};
    for (const Prop& p : HubData(" 41", " 0x000a", " 2")) d.properties.push_back(p);
    for (const std::string& port : ports) d.properties.push_back(PortLine(port));
    return d;
}

LsusbDev Plain(const std::string& description, const std::string& version, const std::string& serial) {
    return {description, {Type(version), Serial(serial)}, false};
}

// The external hub: its port block runs on through the device qualifier to
// the status line, and the qualifier's type is the hub block's last.
LsusbDev ExternalHub(const std::string& description, const std::vector<std::string>& ports,
                     const std::vector<std::string>& qualifierClassLines) {
    LsusbDev d{description, {Type("2.00"), Serial("Not available")}, false};
    for (const Prop& p : HubData(" 6", " 0x00e0", " 4")) d.properties.push_back(p);
    for (const std::string& port : ports) d.properties.push_back(PortLine(port));
    std::vector<std::string> qualifier{" Device Qualifier (for other device speed):", " bLength 10",
                                       " bDescriptorType 6", " bcdUSB 2.00"};
    qualifier.insert(qualifier.end(), qualifierClassLines.begin(), qualifierClassLines.end());
    qualifier.push_back(" bMaxPacketSize0 64");
    qualifier.push_back(" bNumConfigurations 1");
    for (const std::string& line : qualifier) d.properties.push_back(PortLine(line));
    return d;
}

const std::string ehciMaker = " - Linux 6.1.0-13-amd64 ehci_hcd";
const std::string uhciMaker = " - Linux 6.1.0-13-amd64 uhci_hcd";

std::vector<LsusbDev> HandMadeMachine() {
    return {RootHub("EHCI Host Controller" + ehciMaker, "2.00", "0000:00:1d.7",
                    {" Port 1: 0000.0503 highspeed power enable connect", " Port 2: 0000.0100 power"}),
            RootHub("UHCI Host Controller" + uhciMaker, "1.10", "0000:00:1d.0",
                    {" Port 1: 0000.0103 power enable connect", " Port 2: 0000.0100 power"}),
            ExternalHub("USB2.0 Hub - Genesys Logic, Inc.",
                        {" Port 1: 0000.0103 power enable connect", " Port 2: 0000.0303 lowspeed power enable connect",
                         " Port 3: 0000.0100 power", " Port 4: 0000.0100 power"},
                        {" bDeviceClass 9 Hub", " bDeviceSubClass 0 ", " bDeviceProtocol 0 Full speed (or root) hub"}),
            Plain("Cruzer Blade - SanDisk", "2.00", "4C530001090312117392"),
            Plain("USB Optical Mouse - Logitech", "2.00", "Not available"),
            Plain("USB 10/100/1000 LAN - Realtek", "2.10", "000001")};
}

// In the order lsusb printed them; no names from a hardware database.
std::vector<LsusbDev> RealMachine() {
    return {Plain("USB 10/100/1000 LAN - Realtek", "2.00", "000001"),
            Plain("Cruzer Blade - SanDisk", "2.00", "4C530001090312117392"),
            ExternalHub("USB2.0 Hub - 0x05e3",
                        {" Port 1: 0000.0503 highspeed power enable connect", " Port 2: 0000.0100 power",
                         " Port 3: 0000.0100 power", " Port 4: 0000.0100 power"},
                        {" bDeviceClass 0 ", " bDeviceSubClass 0 ", " bDeviceProtocol 0 "}),
            RootHub("EHCI Host Controller" + ehciMaker, "2.00", "0000:00:1d.7",
                    {" Port 1: 0000.0503 highspeed power enable connect",
                     " Port 2: 0000.0503 highspeed power enable connect"}),
            Plain("USB Optical Mouse - Logitech", "2.00", "Not available"),
            RootHub("UHCI Host Controller" + uhciMaker, "1.10", "0000:00:1d.0",
                    {" Port 1: 0000.0303 lowspeed power enable connect", " Port 2: 0000.0100 power"})};
}

// Devices named usbDevice<first>... with captions counting on from `index`.
void ExpectLsusbIdAnswer(const std::string& answer, const std::vector<LsusbDev>& expected, bool factory,
                         int index = 0, size_t first = 0) {
    const Element result = Element::Parse(answer);
    EXPECT_EQ(result.name, "idResult");
    ASSERT_EQ(result.children.size(), first + expected.size()) << answer;
    for (size_t i = 0; i < expected.size(); ++i) {
        const LsusbDev& want = expected[i];
        const Element& device = result.children[first + i];
        SCOPED_TRACE("device " + std::to_string(first + i) + " (" + want.description + ")");
        EXPECT_EQ(device.AttributeNames(), (std::vector<std::string>{"name", "class", "caption", "description",
                                                                     "category", "diagnosable"}));
        EXPECT_EQ(device.Attr("name"), "usbDevice" + std::to_string(first + i));
        EXPECT_EQ(device.Attr("class"), "usbDevice");
        EXPECT_EQ(device.Attr("caption"), "USB Device " + std::to_string(index + static_cast<int>(i) + 1));
        EXPECT_EQ(device.Attr("description"), want.description);
        EXPECT_EQ(device.Attr("category"), lsusbCategory);
        EXPECT_EQ(device.Attr("diagnosable"), "0");
        std::vector<std::string> tests = want.controller ? ControllerTests(factory) : std::vector<std::string>();
        ASSERT_EQ(device.children.size(), want.properties.size() + tests.size());
        for (size_t p = 0; p < want.properties.size(); ++p) {
            const Element& prop = device.children[p];
            EXPECT_EQ(prop.name, "property");
            EXPECT_EQ(prop.Attr("name"), want.properties[p].name) << p;
            EXPECT_EQ(prop.Attr("caption"), want.properties[p].caption) << p;
            EXPECT_EQ(prop.Attr("value"), want.properties[p].value) << p;
        }
        for (size_t t = 0; t < tests.size(); ++t) {
            const Element& test = device.children[want.properties.size() + t];
            EXPECT_EQ(test.name, "test");
            EXPECT_EQ(test.Attr("name"), tests[t]);
            if (tests[t] == "rootHubTest") ExpectRootHubTestElement(test);
        }
    }
}

void ExpectSessionRan(const Session& session) {
    ASSERT_EQ(session.status, 0) << session.errors;
    EXPECT_EQ(session.Nth("callback").answer, "<diagOutput type=\"setCallback\" status=\"Success\"/>");
}

std::string ErrorAnswer(const std::string& text) {
    return "<error errorCode=\"TvkError\" key=\"" + text + "\" detail=\"\">" + text + "</error>";
}

// Discovery without the devices file: mount and sync, lsusb into "devices",
// and the road's own mount.
const char* const lsusbRoadCalls = "mount -t usbfs none /proc/bus/usb\nsync \nlsusb -v\nmount -t usbfs none /proc/bus/usb\n";

struct TextCase {
    const char* name;
    const char* fixture;
    std::vector<LsusbDev> (*table)();
    bool factory;
};

void PrintTo(const TextCase& c, std::ostream* out) { *out << c.name << " in " << ModeName(c.factory) << " mode"; }

class LsusbMachine : public ::testing::TestWithParam<TextCase> {
protected:
    void SetUp() override {
        machine.reset(new FakeMachine(GetParam().name == std::string("real_root_hub_node") ? "ehci_uhci_stick" : ""));
        if (!machine->Remove("proc/bus/usb/devices")) GTEST_SKIP() << "this machine has /proc/bus/usb/devices";
    }
    std::unique_ptr<FakeMachine> machine;
};

}  // namespace

TEST_P(LsusbMachine, PublishesEveryDeviceOfTheText) {
    const TextCase& c = GetParam();
    const std::string text = TextFixture(c.fixture);
    machine->SetLsusbOutput(text);
    std::vector<std::string> script = Opening(c.factory);
    script.push_back("run <id/>");
    script.push_back("run <id/>");
    const std::vector<LsusbDev> expected = c.table();
    size_t controller = 0;
    while (controller < expected.size() && !expected[controller].controller) ++controller;
    const std::string controllerName = "usbDevice" + std::to_string(controller);
    script.push_back("run <runTest device=\"" + controllerName + "\" test=\"rootHubTest\" component=\"libzorbus.so\"/>");
    const Session session = machine->Run(script);
    ASSERT_NO_FATAL_FAILURE(ExpectSessionRan(session));

    const Step& first = session.Nth("run <id/>", 0);
    ExpectLsusbIdAnswer(first.answer, expected, c.factory);
    ExpectDiscoveryEvents(first, expected.size());
    // A second identification adds the same devices again and counts on.
    const Step& second = session.Nth("run <id/>", 1);
    ExpectLsusbIdAnswer(second.answer, expected, c.factory, static_cast<int>(2 * expected.size()), expected.size());

    // The root hub test of this road: the device under test does not matter,
    // only the first root hub's node, which this testbed does not have.
    const Step& run = session.Nth("run <runTest");
    ExpectRootHubResult(run, controllerName, false);

    EXPECT_EQ(Joined(machine->ToolCalls()), std::string(lsusbRoadCalls) + lsusbRoadCalls);
    ASSERT_TRUE(machine->HasWorkFile("devices"));
    EXPECT_EQ(machine->WorkFile("devices"), text);
    ASSERT_TRUE(machine->HasWorkFile("bang1.txt"));
    const std::string trace = machine->WorkFile("bang1.txt");
    const std::string firstLine = text.substr(1, text.find('\n', 1) - 1);
    EXPECT_NE(trace.find("reformat " + firstLine + "\n \n"), std::string::npos) << firstLine;
}

INSTANTIATE_TEST_SUITE_P(Texts, LsusbMachine,
                         ::testing::Values(TextCase{"hand_made", "lsusb_texts/machine.txt", &HandMadeMachine, false},
                                           TextCase{"hand_made", "lsusb_texts/machine.txt", &HandMadeMachine, true},
                                           TextCase{"real_lsusb", "lsusb_real/machine.lsusb", &RealMachine, false},
                                           TextCase{"real_lsusb", "lsusb_real/machine.lsusb", &RealMachine, true},
                                           TextCase{"cut_off_block", "lsusb_texts/with_cut_off_block.txt",
                                                    &HandMadeMachine, false}),
                         [](const ::testing::TestParamInfo<TextCase>& info) {
                             return std::string(info.param.name) + "_" + ModeName(info.param.factory);
                         });

class LsusbEachMode : public ::testing::TestWithParam<bool> {};

INSTANTIATE_TEST_SUITE_P(Modes, LsusbEachMode, ::testing::Bool(),
                         [](const ::testing::TestParamInfo<bool>& info) { return ModeName(info.param); });

TEST_P(LsusbEachMode, TextWithoutADeviceFailsEnumeration) {
    const bool factory = GetParam();
    FakeMachine machine("");
    if (!machine.Remove("proc/bus/usb/devices")) GTEST_SKIP() << "this machine has /proc/bus/usb/devices";
    // Descriptor lines and a status, but no first line of a device.
    const std::string text = "\nDevice Descriptor:\n  bLength                18\n  idVendor           0x1d6b \n"
                             "Device Status:     0x0001\n  Self Powered\n";
    machine.SetLsusbOutput(text);
    std::vector<std::string> script = Opening(factory);
    script.push_back("run <id/>");
    const Session session = machine.Run(script);
    ASSERT_NO_FATAL_FAILURE(ExpectSessionRan(session));
    const Step& id = session.Nth("run <id/>");
    EXPECT_EQ(id.answer, ErrorAnswer("Device Failed Enumeration"));
    EXPECT_EQ(id.events, (std::vector<std::string>{LogEvent("Device Discovery Started", ""),
                                                   LogEvent("Error", "TvkError - Device Failed Enumeration;Device "
                                                                     "Failed Enumeration")}));
    EXPECT_EQ(machine.WorkFile("devices"), text);
}

TEST_P(LsusbEachMode, RootHubTestPassesWhereTheFirstRootHubNodeOpens) {
    const bool factory = GetParam();
    FakeMachine machine("ehci_uhci_stick");
    // The usbfs node stays; only the devices file goes, so lsusb is asked.
    if (!machine.Remove("proc/bus/usb/devices")) GTEST_SKIP() << "this machine has /proc/bus/usb/devices";
    machine.SetLsusbOutput(TextFixture("lsusb_texts/machine.txt"));
    std::vector<std::string> script = Opening(factory);
    script.push_back("run <id/>");
    script.push_back("run <runTest device=\"usbDevice1\" test=\"rootHubTest\" component=\"libzorbus.so\"/>");
    const Session session = machine.Run(script);
    ASSERT_NO_FATAL_FAILURE(ExpectSessionRan(session));
    ExpectLsusbIdAnswer(session.Nth("run <id/>").answer, HandMadeMachine(), factory);
    ExpectRootHubResult(session.Nth("run <runTest"), "usbDevice1", true);
}

TEST_P(LsusbEachMode, OddTextIsNeverFatal) {
    const bool factory = GetParam();
    FakeMachine machine("");
    if (!machine.Remove("proc/bus/usb/devices")) GTEST_SKIP() << "this machine has /proc/bus/usb/devices";
    // A product line far longer than a read, keywords with nothing behind
    // them, a device without configuration, then hundreds of small devices.
    std::string text = "\nBus 001 Device 001: ID 1d6b:0002\nDevice Descriptor:\n  iProduct 2 " + std::string(3000, 'P') +
                       "\n  iSerial\n  bcdUSB\nDevice Status:     0x0001\n";
    for (int i = 0; i < 600; ++i)
        text += "\nBus 002 Device " + std::to_string(i) + ": ID 0781:5567\nDevice Descriptor:\n  iProduct 2 Stick\n"
                "  Configuration Descriptor:\n    Interface Descriptor:\n      bInterfaceClass 9 Hub\n"
                "Device Status:     0x0000\n";
    machine.SetLsusbOutput(text);
    std::vector<std::string> script = Opening(factory);
    script.push_back("run <id/>");
    const Session session = machine.Run(script);
    ASSERT_NO_FATAL_FAILURE(ExpectSessionRan(session));
    const Element result = Element::Parse(session.Nth("run <id/>").answer);
    ASSERT_EQ(result.children.size(), 601u);
    // The long line came in pieces of one read each (242 letters behind the
    // key in the first), joined by a blank.
    std::string description = result.children[0].Attr("description");
    EXPECT_EQ(description.find("P P"), 241u) << description.substr(0, 40);
    description.erase(std::remove(description.begin(), description.end(), ' '), description.end());
    EXPECT_EQ(description, std::string(3000, 'P') + "-") << "no vendor line: an empty manufacturer";
    EXPECT_EQ(result.children[600].Attr("description"), "Stick - ");
    EXPECT_EQ(result.children[600].Attr("caption"), "USB Device 601");
}
