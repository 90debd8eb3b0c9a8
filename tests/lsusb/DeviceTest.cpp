// The device of the lsusb road: what a device publishes (caption counter,
// product and manufacturer names with their fallbacks, description,
// properties, hub data, tests), the catalogue template, the stored form,
// copies, and the root hub test on this road.
#include <gtest/gtest.h>

#include <memory>

#include "LsusbSupport.h"
#include "common/StringUtil.h"
#include "common/TvkError.h"
#include "common/xmldef.h"
#include "tc/usb/linux/Discovery.h"
#include "tc/usb/linux/RootHubTest.h"
#include "tc/usb/linux/USBDevice.h"
#include "tc/usb/linux/newUSBDevice.h"
#include "tc/usb/linux/usbxml.h"
#include "usb/LiteralReader.h"

namespace {

class NewUsbDeviceTest : public LsusbComponentTest {
protected:
    // Discovery on the lsusb road over `raw`, then every device identified.
    std::vector<XmlObject> Discover(const std::string& raw) {
        ScopedWorkDir work;
        LiteralReader reader(raw);
        EXPECT_EQ(ParseWithLsusbDevices(reader, component.devices), 0);
        std::vector<XmlObject> elements;
        for (Device* d : component.devices) elements.emplace_back(d->ID(false));
        return elements;
    }
    // One device made from raw lines, identified.
    XmlObject IdentifyOne(const std::string& raw) {
        newUSBDevice device(DeviceText(raw));
        return XmlObject(device.ID(false));
    }
};

std::string Head(const XmlObject& xml) {
    return xml.GetAttributeValue(xmldef::caption) + " / " + xml.GetAttributeValue(xmldef::description);
}

// A device text from its identity lines and an optional tail.
std::string Identity(const std::string& vendor, const std::string& product, const std::string& manufacturerLine,
                     const std::string& productLine, const std::string& tail = "") {
    std::string raw = "Bus 004 Device 002: ID 0000:0000\nDevice Descriptor:\n";
    if (!vendor.empty()) raw += "  idVendor           " + vendor + "\n";
    if (!product.empty()) raw += "  idProduct          " + product + "\n";
    if (!manufacturerLine.empty()) raw += "  iManufacturer           " + manufacturerLine + "\n";
    if (!productLine.empty()) raw += "  iProduct                " + productLine + "\n";
    return raw + tail + "Device Status:     0x0000\n";
}

const char* const hubInterface =
    "  Configuration Descriptor:\n"
    "    Interface Descriptor:\n"
    "      bInterfaceClass         9 Hub\n"
    "      Endpoint Descriptor:\n"
    "        bInterval              12\n"
    "Hub Descriptor:\n"
    "  bDescriptorType      41\n"
    "  nNbrPorts             3\n"
    " Hub Port Status:\n"
    "   Port 1: 0000.0100 power\n";

// What a controller offers, in order.
std::vector<std::string> ControllerTests(bool factory) {
    std::vector<std::string> names{usbxml::rootHubTest};
    if (factory) names.push_back(usbxml::usbLoopbackTest);
    names.push_back(usbxml::filewritecomparetest);
    return names;
}

}  // namespace

TEST_F(NewUsbDeviceTest, NamesFallBackFromStringToNumberToUnknown) {
    struct Case {
        std::string vendor, product, manufacturerLine, productLine, description;
    };
    const Case cases[] = {
        {"0x1d6b Linux Foundation", "0x0002 2.0 root hub", "0 ", "0 ", "2.0 root hub - Linux Foundation"},
        {"0x1234 ", "0x0000 ", "1 Maker", "0 ", "0x0000"},
        {"", "", "0 ", "0 ", "Unknown product name - Unknown Manufacture name"},
        {"1 ", "2 ", "0 ", "0 ", "Unknown product name - Unknown Manufacture name"},
        // Nothing at all is no bare index: empty names, no fallback.
        {"", "", "", "", " - "},
        {"0x1234 ", "0x5678 ", "1 M", "2 X", "X - M"},
        {"0x1234 ", "0x5678 ", "1 7", "2 7", "0x5678 - 0x1234"},
        {"0x0000 ", "0x5678 ", "1 Maker", "2 Gadget", "Gadget"},
        {"0x0000 Somebody", "0x5678 ", "0 ", "2 Gadget", "Gadget - Somebody"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.description);
        const XmlObject xml = IdentifyOne(Identity(c.vendor, c.product, c.manufacturerLine, c.productLine));
        EXPECT_EQ(xml.GetAttributeValue(xmldef::description), c.description);
    }
}

TEST_F(NewUsbDeviceTest, SerialAndTypeAreAlwaysThere) {
    const XmlObject bare = IdentifyOne(Identity("0x1234 ", "0x5678 ", "", "2 Gadget"));
    EXPECT_EQ(Properties(bare), (PropertyList{{usbxml::TypeInfo, ""}, {usbxml::SerialNumber, ""}}));
    EXPECT_EQ(PropertyCaption(bare, usbxml::TypeInfo), "USB Type");
    EXPECT_EQ(PropertyCaption(bare, usbxml::SerialNumber), "Serial Number");
    const XmlObject zero =
        IdentifyOne(Identity("0x1234 ", "0x5678 ", "", "2 Gadget", "  bcdUSB               1.10\n  iSerial                 0 \n"));
    EXPECT_EQ(Properties(zero), (PropertyList{{usbxml::TypeInfo, "1.10"}, {usbxml::SerialNumber, "Not available"}}));
}

TEST_F(NewUsbDeviceTest, TestsHangOnHubInterfacesOfControllers) {
    for (int factory : {0, 1}) {
        SCOPED_TRACE(factory ? "factory" : "field");
        g_factoryMode = factory;
        ResetLsusbState();
        // A controller whose text has no hub descriptor still gets its tests.
        const std::string bare =
            "  Configuration Descriptor:\n    Interface Descriptor:\n      bInterfaceClass         9 Hub\n"
            "      Endpoint Descriptor:\n        bInterval              12\n";
        const XmlObject controller = IdentifyOne(Identity("0x1d6b ", "0x0003 ", "3 Linux", "2 xHCI Host Controller", bare));
        EXPECT_EQ(Properties(controller).size(), 2u);
        EXPECT_EQ(TestNames(controller), ControllerTests(factory));

        // Hub data without "Controller": properties, no test.
        ResetLsusbState();
        const XmlObject hub = IdentifyOne(Identity("0x05e3 ", "0x0608 ", "0 ", "1 USB2.0 Hub", hubInterface));
        EXPECT_EQ(Properties(hub), (PropertyList{{usbxml::TypeInfo, ""},
                                                 {usbxml::SerialNumber, ""},
                                                 {usbxml::HubTypeInfo, " 41"},
                                                 {usbxml::HubCharacteristic, ""},
                                                 {usbxml::HubDeviceRemovable, ""},
                                                 {usbxml::HubNumPort, " 3"},
                                                 {usbxml::usbPortnum, " Port 1: 0000.0100 power"}}));
        EXPECT_TRUE(TestNames(hub).empty());

        // "lowercase controller" does not count; 3 and 9 together are no hub.
        ResetLsusbState();
        EXPECT_TRUE(TestNames(IdentifyOne(Identity("0x1 ", "0x2 ", "0 ", "2 host controller", hubInterface))).empty());
        ResetLsusbState();
        std::string mixed = hubInterface;
        mixed.replace(mixed.find("9 Hub"), 5, "39 Odd");
        const XmlObject odd = IdentifyOne(Identity("0x1 ", "0x2 ", "0 ", "2 Host Controller", mixed));
        EXPECT_TRUE(TestNames(odd).empty());
        EXPECT_EQ(Properties(odd).size(), 2u);
    }
}

TEST_F(NewUsbDeviceTest, SecondIdentificationCountsOnAndReplacesTests) {
    const std::vector<std::string> texts = DeviceTexts(LsusbFixture("machine.txt"));
    newUSBDevice device(texts.at(0));
    EXPECT_EQ(device.name, "usbDevice0");
    const XmlObject first(device.ID(false));
    USBDevicesNode* firstNode = device.devicesNode;
    const XmlObject second(device.ID(false));
    EXPECT_EQ(first.GetAttributeValue(xmldef::caption), "USB Device 1");
    EXPECT_EQ(second.GetAttributeValue(xmldef::caption), "USB Device 2");
    EXPECT_NE(device.devicesNode, firstNode) << "each identification parses afresh";
    ASSERT_EQ(device.tests.size(), ControllerTests(false).size());
    EXPECT_EQ(device.tests[0]->name, usbxml::rootHubTest);
    EXPECT_EQ(TestNames(second), ControllerTests(false));
    EXPECT_EQ(device.vecConfigurations.size(), 1u);
    EXPECT_EQ(device.vecHubs.size(), 1u);
    EXPECT_EQ(device.vecPortBlocks.size(), 1u);
}

TEST_F(NewUsbDeviceTest, CatalogueNeedsNoTextAndIdNeedsANode) {
    component.buildingCatalog = true;
    newUSBDevice templateDevice("");
    component.buildingCatalog = false;
    const XmlObject xml(templateDevice.ID(true));
    EXPECT_EQ(xml.GetAttributeValue(xmldef::name), "usbDevice");
    EXPECT_EQ(Head(xml), "USB Device / USB Device");
    EXPECT_EQ(xml.GetAttributeValue(xmldef::category), "Communication|USB Controller");
    ASSERT_NE(templateDevice.devicesNode, nullptr);
    EXPECT_EQ(templateDevice.devicesNode->getNumObjects(), 0);
    EXPECT_EQ(TestNames(xml), std::vector<std::string>{usbxml::filewritecomparetest});
    EXPECT_EQ(newUSBDevice::index, 0) << "the template takes no number";

    newUSBDevice unparsed("");
    XmlObject element;
    try {
        unparsed.id(element);
        ADD_FAILURE() << "id without a node must fail";
    } catch (const TvkError& error) {
        EXPECT_EQ(error.GetMessage(), "Device General Failure");
    }
    EXPECT_EQ(newUSBDevice::index, 0);
}

TEST_F(NewUsbDeviceTest, StoredFormKeepsNodeStringsAndTheCounter) {
    const std::vector<std::string> texts = DeviceTexts(LsusbFixture("machine.txt"));
    newUSBDevice device(texts.at(3));
    device.ID(false);
    ASSERT_EQ(newUSBDevice::index, 1);
    optstream out;
    out << static_cast<const Persistent*>(&device);

    newUSBDevice::index = 41;
    Persistent* read = nullptr;
    iptstream in = iptstream::FromMemory(out.GetBuffer());
    in >> read;
    std::unique_ptr<newUSBDevice> restored(dynamic_cast<newUSBDevice*>(read));
    ASSERT_NE(restored, nullptr);
    EXPECT_EQ(newUSBDevice::index, 1) << "the stored counter comes back";
    EXPECT_EQ(restored->name, device.name);
    EXPECT_EQ(restored->deviceInfo, "");
    ASSERT_NE(restored->devicesNode, nullptr);
    EXPECT_EQ(restored->devicesNode->iSerial, " 3 4C530001090312117392");
    EXPECT_EQ(restored->devicesNode->idVendor, " 0x0781 SanDisk Corp.");
    EXPECT_EQ(restored->devicesNode->getNumObjects(), 0);

    std::unique_ptr<Persistent> copy(device.CreateCopy());
    newUSBDevice* twin = dynamic_cast<newUSBDevice*>(copy.get());
    ASSERT_NE(twin, nullptr);
    EXPECT_EQ(twin->deviceInfo, device.deviceInfo);
    EXPECT_EQ(twin->devicesNode, nullptr);
    EXPECT_EQ(twin->GetRealClassName(), std::string("newUSBDevice"));
    EXPECT_EQ(twin->GetClassName(), std::string("usbDevice"));
}

TEST_F(NewUsbDeviceTest, RootHubTestOnThisRoad) {
    newUSBDevice device("");
    newusbRootHubTest test(&device);
    EXPECT_EQ(test.name, usbxml::rootHubTest);
    EXPECT_EQ(test.caption, "Root Hub Detect Test");
    EXPECT_EQ(test.description, "Discovers the presence of a working root hub");
    EXPECT_TRUE(test.quick && test.complete && test.fieldtest);
    EXPECT_FALSE(test.interactive || test.requiresMedia || test.requiresEquipment || test.requiresWindow ||
                 test.localOnly || test.singleThread);
    EXPECT_FALSE(test.LocksDevice());
    EXPECT_TRUE(PersistentClassRegistry::IsRegistered("newusbRootHubTest"));

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
    newusbRootHubTest onOther(reinterpret_cast<newUSBDevice*>(0));
    onOther.device = &other;
    EXPECT_EQ(failure(onOther), "No USB device associated with this USB test!");
    if (FileExists("/proc/bus/usb/001/001")) GTEST_SKIP() << "this machine has a first root hub node";
    EXPECT_EQ(failure(test), "Unable to detect root hub");
    EXPECT_FALSE(device.checkRootHub());
}

TEST_F(NewUsbDeviceTest, RealLsusbOutputOfAMadeUpMachine) {
    // lsusb's own order, not bus and device number.
    const std::vector<XmlObject> xml = Discover(LsusbFixture("lsusb_real/machine.lsusb"));
    ASSERT_EQ(xml.size(), 6u);
    const std::vector<std::string> heads = {
        "USB Device 1 / USB 10/100/1000 LAN - Realtek",
        "USB Device 2 / Cruzer Blade - SanDisk",
        "USB Device 3 / USB2.0 Hub - 0x05e3",
        "USB Device 4 / EHCI Host Controller - Linux 6.1.0-13-amd64 ehci_hcd",
        "USB Device 5 / USB Optical Mouse - Logitech",
        "USB Device 6 / UHCI Host Controller - Linux 6.1.0-13-amd64 uhci_hcd",
    };
    for (size_t i = 0; i < xml.size(); ++i) EXPECT_EQ(Head(xml[i]), heads[i]) << i;
    // Properties and tests of every device are checked end to end in the
    // host tests; here the records behind them.
    EXPECT_EQ(TestNames(xml[3]), ControllerTests(false));
    EXPECT_EQ(Properties(xml[2])[2].second, " 6") << "the device qualifier's type is the hub block's last";

    // The records behind the mouse and the two configurations.
    newUSBDevice* mouse = nullptr;
    newUSBDevice* adapter = nullptr;
    for (Device* d : component.devices) {
        newUSBDevice* usb = dynamic_cast<newUSBDevice*>(d);
        ASSERT_NE(usb, nullptr);
        if (usb->deviceInfo.find("046d:c077") != std::string::npos) mouse = usb;
        if (usb->deviceInfo.find("0bda:8153") != std::string::npos) adapter = usb;
    }
    ASSERT_TRUE(mouse && adapter);
    const USBInterfaces& hidInterface = *mouse->devicesNode->configurations.at(0)->interfaces.at(0);
    ASSERT_EQ(hidInterface.getNumHidObjects(), 1);
    EXPECT_EQ(hidInterface.hidDevices[0]->wDescriptorLength, " 46");
    EXPECT_EQ(adapter->devicesNode->getNumObjects(), 2);
    EXPECT_EQ(adapter->devicesNode->configurations[1]->bConfigurationValue, "");
}
