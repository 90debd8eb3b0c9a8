// The lsusb road device: name fallbacks, where tests hang, caption counter, template, root hub test.
#include "common/StringUtil.h"
#include "common/TvkError.h"
#include "tc/usb/linux/usbtests/RootHubTest.h"
#include "usb/UsbTestSupport.h"

std::vector<std::string> DeviceTexts(const std::string& raw);
std::string DeviceText(const std::string& raw);

namespace {

using Names = std::vector<std::string>;

// The element of one device from its identity lines (left out when empty) and a tail.
XmlObject IdentifyOne(const Names& lines, const std::string& tail = "") {
    const char* const keys[] = {"  idVendor           ", "  idProduct          ", "  iManufacturer           ",
                                "  iProduct                "};
    std::string raw = "Bus 004 Device 002: ID 0000:0000\nDevice Descriptor:\n";
    for (size_t i = 0; i < 4; ++i)
        if (!lines[i].empty()) raw += keys[i] + lines[i] + "\n";
    ResetLsusbState();
    newUSBDevice device(DeviceText(raw + tail + "Device Status:     0x0000\n"));
    return XmlObject(device.ID(false));
}
const std::string hubInterface = "  Configuration Descriptor:\n    Interface Descriptor:\n"
                                 "      bInterfaceClass         9 Hub\n"
                                 "      Endpoint Descriptor:\n        bInterval              12\n";
const std::string hubData = "Hub Descriptor:\n  bDescriptorType      41\n  nNbrPorts             3\n"
                            " Hub Port Status:\n   Port 1: 0000.0100 power\n";
const std::string fieldTests = "[rootHubTest FileWriteCompareTest ]";

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
        EXPECT_EQ(IdentifyOne(lines).GetAttributeValue(xmldef::description), description);

    // Type and serial are always there.
    const XmlObject bare = IdentifyOne({"0x1234 ", "0x5678 ", "", "2 Gadget"});
    EXPECT_EQ(Summary(bare), "USB Device 1 / Gadget -  {TypeInfo=;SerialNumber=;} []");
    EXPECT_EQ(PropertyCaption(bare, "TypeInfo"), "USB Type");
    EXPECT_EQ(PropertyCaption(bare, "SerialNumber"), "Serial Number");
    const std::string versionAndNoSerial = "  bcdUSB               1.10\n  iSerial                 0 \n";
    EXPECT_EQ(Properties(IdentifyOne({"0x1 ", "0x2 ", "", "2 G"}, versionAndNoSerial)),
              (PropertyList{{"TypeInfo", "1.10"}, {"SerialNumber", "Not available"}}));
}

TEST_F(UsbComponentTest, LsusbTestsHangOnHubInterfacesOfControllers) {
    for (int factory : {0, 1}) {
        g_factoryMode = factory;
        // A controller without a hub descriptor still gets its tests; the loopback test only in the factory.
        EXPECT_EQ(Summary(IdentifyOne({"0x1d6b ", "0x0003 ", "3 Linux", "2 xHCI Host Controller"}, hubInterface)),
                  "USB Device 1 / xHCI Host Controller - Linux {TypeInfo=;SerialNumber=;} " +
                      (factory ? "[rootHubTest usbLoopbackTest FileWriteCompareTest ]" : fieldTests));
        // "controller" in lower case does not count; 3 and 9 together are no hub.
        EXPECT_EQ(Summary(IdentifyOne({"0x1 ", "0x2 ", "0 ", "2 host controller"}, hubInterface + hubData)),
                  "USB Device 1 / host controller - 0x1 {TypeInfo=;SerialNumber=;HubTypeInfo= 41;HubCharacteristic=;"
                  "HubDeviceRemovable=;HubNumPort= 3;usbPortnum= Port 1: 0000.0100 power;} []");
        std::string mixed = hubInterface + hubData;
        mixed.replace(mixed.find("9 Hub"), 5, "39 Odd");
        EXPECT_EQ(Summary(IdentifyOne({"0x1 ", "0x2 ", "0 ", "2 Host Controller"}, mixed)),
                  "USB Device 1 / Host Controller - 0x1 {TypeInfo=;SerialNumber=;} []");
    }
}

TEST_F(UsbComponentTest, LsusbSecondIdentificationCountsOnAndCatalogueNeedsNoText) {
    newUSBDevice device(DeviceTexts(Fixture("fixtures/lsusb_texts/machine.txt")).at(0));
    device.ID(false);
    USBDevicesNode* firstNode = device.devicesNode;
    EXPECT_EQ(Caption(XmlObject(device.ID(false))), "USB Device 2");
    EXPECT_NE(device.devicesNode, firstNode) << "each identification parses afresh";
    EXPECT_EQ(device.tests.size(), 2u) << "the tests are replaced, not added";
    EXPECT_EQ(device.vecConfigurations.size(), 1u);
    EXPECT_EQ(device.vecHubs.size(), 1u);
    EXPECT_EQ(device.vecPortBlocks.size(), 1u);

    ResetLsusbState();
    component.buildingCatalog = true;
    newUSBDevice templateDevice("");
    component.buildingCatalog = false;
    const XmlObject xml(templateDevice.ID(true));
    EXPECT_EQ(xml.GetAttributeValue(xmldef::name), "usbDevice");
    EXPECT_EQ(xml.GetAttributeValue(xmldef::category), "Communication|USB Controller");
    EXPECT_EQ(Summary(xml), "USB Device / USB Device {} [FileWriteCompareTest ]");
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
    newusbRootHubTest restored, onOther(static_cast<newUSBDevice*>(nullptr));
    USBDevice other;
    onOther.device = &other;
    EXPECT_EQ(failure(restored), "No USB device associated with this USB test!") << "restored without a device";
    EXPECT_EQ(failure(onOther), "No USB device associated with this USB test!") << "on a devices-file device";
    if (FileExists("/proc/bus/usb/001/001")) GTEST_SKIP() << "this machine has a first root hub node";
    newUSBDevice device("");
    newusbRootHubTest test(&device);
    EXPECT_EQ(failure(test), "Unable to detect root hub");
    EXPECT_FALSE(device.checkRootHub());
}
