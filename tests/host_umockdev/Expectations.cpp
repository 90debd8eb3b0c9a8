#include "Expectations.h"

#include <gtest/gtest.h>

#include <regex>

#include "HostSession.h"

namespace {

const std::string usbClass = "usbDevice";
const std::string category = "Communication|USB Controller(s)";
const std::string ehciName = "USB 2.00 Controller EHCI-HCD";
const std::string uhciName = "USB 1.10 Controller UHCI";
const std::string fullSpeed = "12 MBit/s";
const std::string highSpeed = "480 MBit/s";
const std::string lowSpeed = "1.5 MBit/s";

std::string N(int value) { return std::to_string(value); }

// ---- field mode: numbered devices and hubs ----

Dev FieldHub(int number, const std::string& description, const std::string& version, const std::string& speed,
             int hub, int ports, bool controller) {
    return {"USB Device " + N(number),
            description,
            {{"TypeInfo", "USB Type", version},
             {"SpeedInfo", "USB Speed", speed},
             {"HubNumber", "Hub Number", N(hub)},
             {"PortTotal", "Total Number of Ports", N(ports)}},
            controller};
}

Dev FieldDevice(int number, const std::string& manufacturer, const std::string& product, const std::string& version,
                const std::string& speed, int hub, int port) {
    return {"USB Device " + N(number),
            "         " + manufacturer + "  " + product,
            {{"TypeInfo", "USB Type", version},
             {"SpeedInfo", "USB Speed", speed},
             {"portNum", "Hub Number " + N(hub) + " portNum", N(port)}},
            false};
}

// ---- factory mode: controllers and their numbered ports ----

Dev FactoryController(int number, const std::string& version, const std::string& speed) {
    const bool ehci = version == "2.00";
    return {ehci ? "USB 2.0 Controller " + N(number) : "USB Controller " + N(number),
            ehci ? ehciName : "USB UHCI Root Hub",
            {{"TypeInfo", "USB Type", version}, {"SpeedInfo", "USB Speed", speed}, {"HubNumber", "Hub Number", N(number)}},
            true};
}

Dev EmptyPort(const std::string& version, int controller, int port) {
    return {"USB " + version + " Controller  " + N(controller) + " Port " + N(port),
            "USB Port",
            {{"DeviceConnected", "DeviceConnected", "No"}},
            false};
}

Dev OccupiedPort(int controller, int port, const std::string& type, const std::string& version,
                 const std::string& speed) {
    return {"USB Controller " + N(controller) + " Port " + N(port),
            "USB Port",
            {{"DeviceConnected", "DeviceConnected", "Yes"},
             {"DeviceType", "DeviceType", type},
             {"TypeInfo", "USB Type", version},
             {"SpeedInfo", "USB Speed", speed}},
            false};
}

void ExpectAttributes(const Element& e, const std::vector<std::pair<std::string, std::string>>& expected) {
    EXPECT_EQ(e.attributes, expected) << "element <" << e.name << ">";
}

}  // namespace

Published EhciUhciStick(bool factory, Counters c) {
    Published p{{}, c};
    if (!factory) {
        p.devices = {FieldHub(c.devices + 1, ehciName, "2.00", highSpeed, c.hubs + 1, 6, true),
                     FieldDevice(c.devices + 2, "Kingston", "DT 101 G2", "2.00", highSpeed, c.hubs + 1, 3),
                     FieldHub(c.devices + 3, uhciName, "1.10", fullSpeed, c.hubs + 2, 2, true)};
        p.after.devices += 3;
        p.after.hubs += 2;
        return p;
    }
    const int ehci = c.controllers + 1, uhci = c.controllers + 2;
    p.devices = {FactoryController(ehci, "2.00", highSpeed),
                 EmptyPort("2.00", ehci, 1),
                 EmptyPort("2.00", ehci, 2),
                 OccupiedPort(ehci, 3, "DT 101 G2", "2.00", highSpeed),
                 EmptyPort("2.00", ehci, 4),
                 EmptyPort("2.00", ehci, 5),
                 EmptyPort("2.00", ehci, 6),
                 FactoryController(uhci, "1.10", fullSpeed),
                 EmptyPort("1.10", uhci, 1),
                 EmptyPort("1.10", uhci, 2)};
    p.after.controllers += 2;
    return p;
}

Published ExternalHub(bool factory, Counters c) {
    Published p{{}, c};
    if (!factory) {
        // The external hub is a numbered device and hub, but no controller.
        p.devices = {FieldHub(c.devices + 1, uhciName, "1.10", fullSpeed, c.hubs + 1, 2, true),
                     FieldHub(c.devices + 2, "USB 4-Port Hub", "1.10", fullSpeed, c.hubs + 2, 4, false),
                     FieldDevice(c.devices + 3, "Hewlett-Packard", "LaserJet 1020", "1.10", fullSpeed, c.hubs + 2, 2)};
        p.after.devices += 3;
        p.after.hubs += 2;
        return p;
    }
    // The hub occupies port 1 of the root hub and comes back as a controller
    // of its own, with its four ports, after the root hub's ports.
    const int root = c.controllers + 1, hub = c.controllers + 2;
    p.devices = {FactoryController(root, "1.10", fullSpeed),
                 OccupiedPort(root, 1, "USB 4-Port Hub", "1.10", fullSpeed),
                 EmptyPort("1.10", root, 2),
                 FactoryController(hub, "1.10", fullSpeed),
                 EmptyPort("1.10", hub, 1),
                 OccupiedPort(hub, 2, "LaserJet 1020", "1.10", fullSpeed),
                 EmptyPort("1.10", hub, 3),
                 EmptyPort("1.10", hub, 4)};
    p.after.controllers += 2;
    return p;
}

Published Example(bool factory, Counters c) {
    Published p{{}, c};
    const int d = c.devices, h = c.hubs;
    if (!factory) {
        p.devices = {FieldHub(d + 1, ehciName, "2.00", highSpeed, h + 1, 4, true),
                     FieldDevice(d + 2, "SanDisk", "Cruzer", "2.00", highSpeed, h + 1, 2),
                     FieldHub(d + 3, uhciName, "1.10", fullSpeed, h + 2, 2, true),
                     FieldDevice(d + 4, "Logitech", "USB Optical Mouse", "2.00", lowSpeed, h + 2, 1),
                     FieldHub(d + 5, uhciName, "1.10", fullSpeed, h + 3, 2, true),
                     FieldHub(d + 6, "General Purpose USB Hub", "1.10", fullSpeed, h + 4, 4, false),
                     FieldDevice(d + 7, "Dell", "Dell USB Keyboard", "1.10", lowSpeed, h + 4, 3)};
        p.after.devices += 7;
        p.after.hubs += 4;
        return p;
    }
    const int ehci = c.controllers + 1, uhci1 = c.controllers + 2, uhci2 = c.controllers + 3,
              hub = c.controllers + 4;
    p.devices = {FactoryController(ehci, "2.00", highSpeed),
                 EmptyPort("2.00", ehci, 1),
                 OccupiedPort(ehci, 2, "Cruzer", "2.00", highSpeed),
                 EmptyPort("2.00", ehci, 3),
                 EmptyPort("2.00", ehci, 4),
                 FactoryController(uhci1, "1.10", fullSpeed),
                 OccupiedPort(uhci1, 1, "USB Optical Mouse", "2.00", lowSpeed),
                 EmptyPort("1.10", uhci1, 2),
                 FactoryController(uhci2, "1.10", fullSpeed),
                 EmptyPort("1.10", uhci2, 1),
                 OccupiedPort(uhci2, 2, "General Purpose USB Hub", "1.10", fullSpeed),
                 FactoryController(hub, "1.10", fullSpeed),
                 EmptyPort("1.10", hub, 1),
                 EmptyPort("1.10", hub, 2),
                 OccupiedPort(hub, 3, "Dell USB Keyboard", "1.10", lowSpeed),
                 EmptyPort("1.10", hub, 4)};
    p.after.controllers += 4;
    return p;
}

Published EhciUhciStickRestored(bool factory, Counters c) {
    Published p{{}, c};
    if (!factory) {
        // Neither hubs nor kinds: every node is published as a plain device
        // on a port, and no hub is counted.
        auto plain = [&](int n, const std::string& manufacturer, const std::string& name, const std::string& version,
                         const std::string& speed, int port, int ports, bool controller) {
            Dev d = FieldDevice(c.devices + n, manufacturer, name, version, speed, c.hubs, port);
            if (ports > 0) d.properties.push_back({"PortTotal", "Total Number of Ports", N(ports)});
            d.controller = controller;
            return d;
        };
        p.devices = {plain(1, "", ehciName, "2.00", highSpeed, 1, 6, true),
                     plain(2, "Kingston", "DT 101 G2", "2.00", highSpeed, 3, 0, false),
                     plain(3, "INTEL Corporation", uhciName, "1.10", fullSpeed, 1, 2, true)};
        p.after.devices += 3;
        return p;
    }
    // No kind, so nothing of the factory form: the device's own caption and
    // description, no property, nothing counted. Controllers keep their tests.
    p.devices.assign(10, Dev{"Device", "Device", {}, false});
    p.devices[0].controller = true;
    p.devices[7].controller = true;
    return p;
}

Published Twice(MachineTable table, bool factory, Counters before) {
    Published first = table(factory, before);
    Published second = table(factory, first.after);
    first.devices.insert(first.devices.end(), second.devices.begin(), second.devices.end());
    first.after = second.after;
    return first;
}

std::vector<std::string> OfferedTests(bool factory, bool catalog) {
    // The root hub test is the one test class the library has so far. The
    // descriptor and loopback tests (factory mode), the file write compare
    // test and the USB port test (identified controllers only) join these
    // lists as they are written.
    std::vector<std::string> tests{"rootHubTest"};
    if (factory) {
        tests.push_back("descTest");
        tests.push_back("usbLoopbackTest");
    }
    tests.push_back("FileWriteCompareTest");
    if (!catalog) tests.push_back("UsbPortTest");
    return tests;
}

std::string LogEvent(const std::string& caption, const std::string& description) {
    return "<diagEvent component=\"libzorbus.so\" caption=\"" + caption + "\" description=\"" + description + "\"/>";
}

std::string TestUpdate(const std::string& device, int percent, const std::string& state) {
    return "<diagUpdate device=\"" + device + "\" test=\"rootHubTest\" percentComplete=\"" + N(percent) +
           "\" currentState=\"" + state + "\" loop=\"0\" recordNum=\"0\" OperationCaption=\"\"/>";
}

void ExpectRootHubTestElement(const Element& test) {
    EXPECT_EQ(test.name, "test");
    ExpectAttributes(test, {{"name", "rootHubTest"},
                            {"caption", "Root Hub Detect Test"},
                            {"description", "Discovers the presence of a working root hub"},
                            {"interactive", "0"},
                            {"requiresMedia", "0"},
                            {"requiresEquipment", "0"},
                            {"quick", "1"},
                            {"complete", "1"},
                            {"requiresWindow", "0"},
                            {"localOnly", "0"},
                            {"singleThread", "0"},
                            {"destructive", "0"},
                            {"romTest", "0"},
                            {"fieldtest", "1"}});
    // The built-in retries parameter; the test has no parameters of its own.
    ASSERT_EQ(test.children.size(), 1u);
    const Element& retries = test.children[0];
    EXPECT_EQ(retries.name, "parameter");
    ExpectAttributes(retries, {{"name", "retries"},
                               {"caption", "Retries"},
                               {"description", "Number of retries if test fails"},
                               {"type", "int"},
                               {"min", "0"},
                               {"max", "5"},
                               {"defaultValue", "1"}});
    EXPECT_TRUE(retries.children.empty());
}

namespace {

// One published device: attributes in order, then its properties, then its
// tests.
void ExpectDevice(const Element& device, const std::string& name, const Dev& expected,
                  const std::vector<std::string>& tests) {
    EXPECT_EQ(device.name, "device");
    ExpectAttributes(device, {{"name", name},
                              {"class", usbClass},
                              {"caption", expected.caption},
                              {"description", expected.description},
                              {"category", category},
                              {"diagnosable", "0"}});
    std::vector<std::string> kinds;
    for (const Element& child : device.children) kinds.push_back(child.name);
    std::vector<std::string> expectedKinds(expected.properties.size(), "property");
    expectedKinds.insert(expectedKinds.end(), tests.size(), "test");
    ASSERT_EQ(kinds, expectedKinds) << "properties first, then tests";

    for (size_t i = 0; i < expected.properties.size(); ++i) {
        const Prop& p = expected.properties[i];
        ExpectAttributes(device.children[i], {{"name", p.name}, {"caption", p.caption}, {"value", p.value}});
    }
    for (size_t i = 0; i < tests.size(); ++i) {
        const Element& test = device.children[expected.properties.size() + i];
        EXPECT_EQ(test.Attr("name"), tests[i]);
        if (tests[i] == "rootHubTest") ExpectRootHubTestElement(test);
    }
}

}  // namespace

void ExpectIdAnswer(const std::string& answer, const std::vector<Dev>& expected, bool factory) {
    const Element result = Element::Parse(answer);
    EXPECT_EQ(result.name, "idResult");
    EXPECT_TRUE(result.attributes.empty());
    ASSERT_EQ(result.children.size(), expected.size()) << answer;
    const std::vector<std::string> controllerTests = OfferedTests(factory, false);
    for (size_t i = 0; i < expected.size(); ++i) {
        SCOPED_TRACE("device " + N(static_cast<int>(i)) + " (" + expected[i].caption + ")");
        ExpectDevice(result.children[i], usbClass + N(static_cast<int>(i)), expected[i],
                     expected[i].controller ? controllerTests : std::vector<std::string>());
    }
}

void ExpectCatalogAnswer(const std::string& answer, bool factory) {
    const Element result = Element::Parse(answer);
    EXPECT_EQ(result.name, "catResult");
    EXPECT_TRUE(result.attributes.empty());
    ASSERT_EQ(result.children.size(), 1u) << answer;
    // The template: no number behind its name, no properties.
    ExpectDevice(result.children[0], usbClass, Dev{"USB Device", "USB Device", {}, false},
                 OfferedTests(factory, true));
}

void ExpectDiscoveryEvents(const Step& step, size_t devices) {
    std::vector<std::string> expected{LogEvent("Device Discovery Started", "")};
    // A USB device's own caption and description stay "Device": what the
    // host reads as caption is only in its element.
    expected.insert(expected.end(), devices, LogEvent("Device Discovered", "Device"));
    EXPECT_EQ(step.events, expected);
}

void ExpectRootHubResult(const Step& step, const std::string& device, bool passed) {
    const std::string state = passed ? "passed" : "failed";
    EXPECT_EQ(step.events, (std::vector<std::string>{LogEvent("Test Started", "Device - Root Hub Detect Test"),
                                                     TestUpdate(device, 0, "running"), TestUpdate(device, 100, state),
                                                     LogEvent("Test " + state, "Device - Root Hub Detect Test;")}));
    const Element result = Element::Parse(step.answer);
    EXPECT_EQ(result.name, "testResult");
    EXPECT_EQ(result.AttributeNames(), (std::vector<std::string>{"device", "test", "percentComplete", "currentState",
                                                                 "loop", "recordNum", "OperationCaption", "testTime"}));
    EXPECT_EQ(result.Attr("device"), device);
    EXPECT_EQ(result.Attr("test"), "rootHubTest");
    EXPECT_EQ(result.Attr("percentComplete"), "100");
    EXPECT_EQ(result.Attr("currentState"), state);
    EXPECT_EQ(result.Attr("loop"), "0");
    EXPECT_EQ(result.Attr("recordNum"), "0");
    EXPECT_EQ(result.Attr("OperationCaption"), "");
    EXPECT_TRUE(std::regex_match(result.Attr("testTime"), std::regex("[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}")))
        << result.Attr("testTime");
    EXPECT_EQ(result.text, "");
    ASSERT_EQ(result.children.size(), passed ? 1u : 2u) << step.answer;
    EXPECT_EQ(result.children[0].name, "output");
    EXPECT_EQ(result.children[0].text, "");
    EXPECT_TRUE(result.children[0].children.empty());
    if (passed) return;
    const Element& error = result.children[1];
    EXPECT_EQ(error.name, "error");
    ExpectAttributes(error, {{"errorCode", "TvkError"},
                             {"key", "Unable to detect root hub"},
                             {"detail", ""},
                             {"reference", "usbDevice, rootHubTest"}});
    // The device's own description, the error, and the processor the host named.
    EXPECT_EQ(error.text, "Device, Unable to detect root hub, Ran on CPU " + N(hostProcessor));
}

std::vector<std::string> DevicesFileToolCalls(int discoveries) {
    std::vector<std::string> calls;
    for (int i = 0; i < discoveries; ++i) {
        calls.push_back("mount -t usbfs none /proc/bus/usb");
        calls.push_back("sync ");
    }
    return calls;
}

std::string Joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) text += line + "\n";
    return text;
}
