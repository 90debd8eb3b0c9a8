// The device of the lsusb road: what it publishes (caption counter, names
// with their fallbacks, properties, hub data, tests), the catalogue template,
// and the root hub test on this road.
#include "common/StringUtil.h"
#include "common/TvkError.h"
#include "tc/usb/linux/RootHubTest.h"
#include "tc/usb/linux/usbxml.h"
#include "usb/UsbTestSupport.h"

std::vector<std::string> DeviceTexts(const std::string& raw);
std::string DeviceText(const std::string& raw);

namespace {

using Names = std::vector<std::string>;

XmlObject IdentifyOne(const std::string& raw) {
    ResetLsusbState();
    newUSBDevice device(DeviceText(raw));
    return XmlObject(device.ID(false));
}
// A device text from its identity lines (left out when empty) and a tail.
std::string Identity(const std::string& vendor, const std::string& product, const std::string& manufacturerLine,
                     const std::string& productLine, const std::string& tail = "") {
    std::string raw = "Bus 004 Device 002: ID 0000:0000\nDevice Descriptor:\n";
    if (!vendor.empty()) raw += "  idVendor           " + vendor + "\n";
    if (!product.empty()) raw += "  idProduct          " + product + "\n";
    if (!manufacturerLine.empty()) raw += "  iManufacturer           " + manufacturerLine + "\n";
    if (!productLine.empty()) raw += "  iProduct                " + productLine + "\n";
    return raw + tail + "Device Status:     0x0000\n";
}
const std::string hubInterface =
    "  Configuration Descriptor:\n    Interface Descriptor:\n      bInterfaceClass         9 Hub\n"
    "      Endpoint Descriptor:\n        bInterval              12\n";
const std::string hubData = "Hub Descriptor:\n  bDescriptorType      41\n  nNbrPorts             3\n"
                            " Hub Port Status:\n   Port 1: 0000.0100 power\n";
Names ControllerTests(bool factory) {
    return factory ? Names{"rootHubTest", "usbLoopbackTest", "FileWriteCompareTest"} : Names{"rootHubTest", "FileWriteCompareTest"};
}

}  // namespace

TEST_F(UsbComponentTest, LsusbNamesFallBackFromStringToNumberToUnknown) {
    const std::vector<std::pair<Names, std::string>> cases = {
        {{"0x1d6b Linux Foundation", "0x0002 2.0 root hub", "0 ", "0 "}, "2.0 root hub - Linux Foundation"},
        {{"0x1234 ", "0x0000 ", "1 Maker", "0 "}, "0x0000"},
        {{"", "", "0 ", "0 "}, "Unknown product name - Unknown Manufacture name"},
        {{"1 ", "2 ", "0 ", "0 "}, "Unknown product name - Unknown Manufacture name"},
        {{"", "", "", ""}, " - "},  // nothing at all is no bare index: no fallback
        {{"0x1234 ", "0x5678 ", "1 M", "2 X"}, "X - M"},
        {{"0x1234 ", "0x5678 ", "1 7", "2 7"}, "0x5678 - 0x1234"},
        {{"0x0000 ", "0x5678 ", "1 Maker", "2 Gadget"}, "Gadget"},
        {{"0x0000 Somebody", "0x5678 ", "0 ", "2 Gadget"}, "Gadget - Somebody"},
    };
    for (const auto& [lines, description] : cases)
        EXPECT_EQ(IdentifyOne(Identity(lines[0], lines[1], lines[2], lines[3])).GetAttributeValue(xmldef::description),
                  description);

    const XmlObject bare = IdentifyOne(Identity("0x1234 ", "0x5678 ", "", "2 Gadget"));
    EXPECT_EQ(Properties(bare), (PropertyList{{usbxml::TypeInfo, ""}, {usbxml::SerialNumber, ""}})) << "always there";
    EXPECT_EQ(PropertyCaption(bare, usbxml::TypeInfo) + "|" + PropertyCaption(bare, usbxml::SerialNumber), "USB Type|Serial Number");
    const XmlObject zero = IdentifyOne(Identity("0x1 ", "0x2 ", "", "2 G", "  bcdUSB               1.10\n  iSerial                 0 \n"));
    EXPECT_EQ(Properties(zero), (PropertyList{{usbxml::TypeInfo, "1.10"}, {usbxml::SerialNumber, "Not available"}}));
}

TEST_F(UsbComponentTest, LsusbTestsHangOnHubInterfacesOfControllers) {
    for (int factory : {0, 1}) {
        SCOPED_TRACE(factory ? "factory" : "field");
        g_factoryMode = factory;
        // A controller without a hub descriptor still gets its tests.
        const XmlObject controller = IdentifyOne(Identity("0x1d6b ", "0x0003 ", "3 Linux", "2 xHCI Host Controller", hubInterface));
        EXPECT_EQ(Properties(controller).size(), 2u);
        EXPECT_EQ(TestNames(controller), ControllerTests(factory));
        // Hub data without "Controller": properties, no test.
        const XmlObject hub = IdentifyOne(Identity("0x05e3 ", "0x0608 ", "0 ", "1 USB2.0 Hub", hubInterface + hubData));
        EXPECT_EQ(Properties(hub), (PropertyList{{usbxml::TypeInfo, ""}, {usbxml::SerialNumber, ""}, {usbxml::HubTypeInfo, " 41"},
                                                 {usbxml::HubCharacteristic, ""}, {usbxml::HubDeviceRemovable, ""},
                                                 {usbxml::HubNumPort, " 3"}, {usbxml::usbPortnum, " Port 1: 0000.0100 power"}}));
        EXPECT_TRUE(TestNames(hub).empty());
        // "controller" in lower case does not count; 3 and 9 together are no hub.
        EXPECT_TRUE(TestNames(IdentifyOne(Identity("0x1 ", "0x2 ", "0 ", "2 host controller", hubInterface + hubData))).empty());
        std::string mixed = hubInterface + hubData;
        mixed.replace(mixed.find("9 Hub"), 5, "39 Odd");
        const XmlObject odd = IdentifyOne(Identity("0x1 ", "0x2 ", "0 ", "2 Host Controller", mixed));
        EXPECT_TRUE(TestNames(odd).empty());
        EXPECT_EQ(Properties(odd).size(), 2u);
    }
}

TEST_F(UsbComponentTest, LsusbSecondIdentificationCountsOnAndCatalogueNeedsNoText) {
    newUSBDevice device(DeviceTexts(Fixture("fixtures/lsusb_texts/machine.txt")).at(0));
    EXPECT_EQ(device.name, "usbDevice0");
    const XmlObject first(device.ID(false));
    USBDevicesNode* firstNode = device.devicesNode;
    const XmlObject second(device.ID(false));
    EXPECT_EQ(Caption(first) + "|" + Caption(second), "USB Device 1|USB Device 2");
    EXPECT_NE(device.devicesNode, firstNode) << "each identification parses afresh";
    EXPECT_EQ(TestNames(second), ControllerTests(false));
    EXPECT_EQ(device.tests.size(), 2u) << "the tests are replaced, not added";
    EXPECT_EQ(device.vecConfigurations.size() + device.vecHubs.size() + device.vecPortBlocks.size(), 3u);

    ResetLsusbState();
    component.buildingCatalog = true;
    newUSBDevice templateDevice("");
    component.buildingCatalog = false;
    const XmlObject xml(templateDevice.ID(true));
    EXPECT_EQ(xml.GetAttributeValue(xmldef::name), "usbDevice");
    EXPECT_EQ(Head(xml), "USB Device / USB Device");
    EXPECT_EQ(xml.GetAttributeValue(xmldef::category), "Communication|USB Controller");
    EXPECT_EQ(TestNames(xml), Names{"FileWriteCompareTest"});
    EXPECT_EQ(newUSBDevice::index, 0) << "the template takes no number";
    XmlObject element;
    try {
        newUSBDevice("").id(element);
        ADD_FAILURE() << "id without a node must fail";
    } catch (const TvkError& error) {
        EXPECT_EQ(error.GetMessage(), "Device General Failure");
    }
    EXPECT_EQ(newUSBDevice::index, 0);
}

TEST_F(UsbComponentTest, LsusbRootHubTest) {
    auto failure = [](::Test& t) -> std::string {
        try {
            t.DoRun(XmlObject());
        } catch (const TvkError& error) {
            return error.GetMessage();
        }
        return "passed";
    };
    newusbRootHubTest restored;
    EXPECT_EQ(failure(restored), "No USB device associated with this USB test!");
    USBDevice other;
    newusbRootHubTest onOther(static_cast<newUSBDevice*>(nullptr));
    onOther.device = &other;
    EXPECT_EQ(failure(onOther), "No USB device associated with this USB test!");
    if (FileExists("/proc/bus/usb/001/001")) GTEST_SKIP() << "this machine has a first root hub node";
    newUSBDevice device("");
    newusbRootHubTest test(&device);
    EXPECT_EQ(failure(test), "Unable to detect root hub");
    EXPECT_FALSE(device.checkRootHub());
}

TEST_F(UsbComponentTest, LsusbRealOutputOfAMadeUpMachine) {
    TempDir work(true);
    LiteralReader reader(Fixture("fixtures/lsusb_real/machine.lsusb"));
    EXPECT_EQ(ParseWithLsusbDevices(reader, component.devices), 0);
    const std::vector<XmlObject> xml = IdentifyAll();
    Names heads;
    for (const XmlObject& x : xml) heads.push_back(Head(x));
    // lsusb's own order, not bus and device number.
    EXPECT_EQ(heads, (Names{"USB Device 1 / USB 10/100/1000 LAN - Realtek", "USB Device 2 / Cruzer Blade - SanDisk",
                            "USB Device 3 / USB2.0 Hub - 0x05e3",
                            "USB Device 4 / EHCI Host Controller - Linux 6.1.0-13-amd64 ehci_hcd",
                            "USB Device 5 / USB Optical Mouse - Logitech",
                            "USB Device 6 / UHCI Host Controller - Linux 6.1.0-13-amd64 uhci_hcd"}));
    ASSERT_EQ(xml.size(), 6u);
    EXPECT_EQ(TestNames(xml[3]), ControllerTests(false));
    EXPECT_EQ(Properties(xml[2])[2].second, " 6") << "the device qualifier's type is the hub block's last";
    std::string records;
    for (Device* d : component.devices) {
        const USBDevicesNode& node = *dynamic_cast<newUSBDevice&>(*d).devicesNode;
        records += std::to_string(node.getNumObjects()) + node.configurations.at(0)->interfaces.at(0)->bInterfaceClass + "|";
    }
    EXPECT_EQ(records, "2 255 |1 8 |1 9 |1 9 |1 3 |1 9 |");
}
