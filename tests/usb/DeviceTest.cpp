// Devices-file road devices: what they publish beyond the host tests, numbers, template, root hub probe.
#include "UsbTestSupport.h"
#include "common/StringUtil.h"
#include "common/TvkError.h"
#include "tc/usb/linux/devices/RootHubProbe.h"
#include "tc/usb/linux/usbtests/RootHubTest.h"

namespace {

class UsbDeviceTest : public UsbComponentTest {
protected:
    std::vector<USBDevice*> Discover(const std::string& text) {
        LiteralReader reader(text);
        EXPECT_EQ(ParseWithProcBusUsbDevices(reader, component.devices), 0);
        return UsbDevicesOf(component.devices);
    }
};

std::string N(int value) { return std::to_string(value); }
using Names = std::vector<std::string>;

}  // namespace

// What each fixture machine publishes in each mode is checked end to end by
// the host tests; here the trees behind the devices and the numbers.
TEST_F(UsbDeviceTest, FieldModeGivesOneDevicePerNodeAndNumbersAreReused) {
    std::vector<USBDevice*> devices = Discover(Fixture("usb/data/ehci_uhci_stick.devices"));
    ASSERT_EQ(devices.size(), 3u);
    const int d = USBDevice::fieldDeviceCounter, h = USBDevice::fieldHubCounter;
    const std::vector<XmlObject> xml = IdentifyAll();
    EXPECT_EQ(Summary(xml[1]), "USB Device " + N(d + 2) +
                                   " /          SanDisk  Cruzer {TypeInfo=2.00;SpeedInfo=480 "
                                   "MBit/s;portNum=3;} []")
        << "only controllers offer tests";
    EXPECT_EQ(PropertyCaption(xml[1], "portNum"), "Hub Number " + N(h + 1) + " portNum");
    EXPECT_EQ(Properties(xml[2])[2].second, N(h + 2)) << "the second controller's hub number";
    // A device that goes leaves its number to the next discovery.
    component.RemoveDevice(component.FindDevice("usbDevice1"));
    devices = Discover(Fixture("usb/data/uhci_external_hub.devices"));
    Names names;
    for (Device* dev : component.devices) names.push_back(dev->name);
    EXPECT_EQ(names, (Names{"usbDevice0", "usbDevice1", "usbDevice2", "usbDevice3", "usbDevice4"}));
    EXPECT_EQ(devices[1]->node->product, "USB 1.10 Controller UHCI");
}

TEST_F(UsbDeviceTest, FactoryModeGivesAnEntryPerPort) {
    g_factoryMode = 1;
    // EHCI, its 6 ports (one taken), UHCI, its 2 empty ports.
    std::vector<USBDevice*> devices = Discover(Fixture("usb/data/ehci_uhci_stick.devices"));
    ASSERT_EQ(devices.size(), 10u);
    EXPECT_EQ(devices[1]->node, devices[0]->TreeTop()) << "the root stands for an empty port";
    const std::string c1 = N(USBDevice::factoryHubCounter + 1);
    EXPECT_EQ(Summary(IdentifyAll()[3]), "USB Controller " + c1 +
                                             " Port 3 / USB Port {DeviceConnected=Yes;"
                                             "DeviceType=Cruzer;TypeInfo=2.00;SpeedInfo=480 MBit/s;} []");
    // An external hub stands as a controller of its own behind its port entry
    // (the store tests check the tree of this machine after a round trip).
    component.PurgeDevices();
    devices = Discover(Fixture("usb/data/uhci_external_hub.devices"));
    ASSERT_EQ(devices.size(), 8u);
    EXPECT_EQ(devices[1]->node->kind, usbKindInterfaceDevice);
    EXPECT_EQ(devices[2]->node->kind, usbKindEmptyPort);
    EXPECT_EQ(devices[3]->node, devices[0]->node->children[0]);
    EXPECT_EQ(Properties(XmlObject(devices[1]->ID(false)))[1].second, "General Purpose USB Hub");
    EXPECT_EQ(TestNames(XmlObject(devices[3]->ID(false))), TestNames(XmlObject(devices[0]->ID(false))));
}

TEST_F(UsbDeviceTest, UnknownVersionsAndKinds) {
    g_factoryMode = 1;
    // A 1.50 controller has no caption and its ports keep the version text of
    // the one before; a vendor-class device in a port publishes nothing.
    Discover(Fixture("usb/data/unknown_versions.txt"));
    const std::string c1 = N(USBDevice::factoryHubCounter + 1), c2 = N(USBDevice::factoryHubCounter + 2);
    const std::vector<XmlObject> xml = IdentifyAll();
    ASSERT_EQ(xml.size(), 5u);
    EXPECT_EQ(Caption(xml[1]), "USB 1.10 Controller  " + c1 + " Port 1");
    EXPECT_EQ(Caption(xml[4]), "USB 1.10 Controller  " + c2 + " Port 1");
    EXPECT_EQ(Caption(xml[2]), "Device");
    EXPECT_EQ(Properties(xml[2]).size(), 3u);
    EXPECT_EQ(Summary(xml[3]), "Device / Device {} []");
    const XmlObject withoutNode(USBDevice(usbxml::usbDevice, nullptr, true).ID(false));
    EXPECT_EQ(Summary(withoutNode), "Device / Device {} []");
}

TEST_F(UsbDeviceTest, CatalogueTemplateInBothModes) {
    for (int mode : {0, 1}) {
        g_factoryMode = mode;
        const XmlObject answer(component.ExecuteXMLCommand("<catalog/>"));
        EXPECT_EQ(answer.name, xmldef::catResult);
        ASSERT_EQ(answer.children.size(), 1u);
        const XmlObject& device = answer.children[0];
        EXPECT_EQ(device.GetAttributeValue(xmldef::name), "usbDevice") << "a template gets no number";
        EXPECT_EQ(device.GetAttributeValue(xmldef::class_x), "usbDevice");
        EXPECT_EQ(device.GetAttributeValue(xmldef::category), "Communication|USB Controller(s)");
        const std::string factoryTests = "rootHubTest descTest usbLoopbackTest FileWriteCompareTest ";
        EXPECT_EQ(Summary(device),
                  "USB Device / USB Device {} [" + (mode ? factoryTests : "rootHubTest FileWriteCompareTest ") + "]");
    }
    EXPECT_TRUE(component.devices.empty()) << "the catalogue discovers nothing";
}

TEST_F(UsbDeviceTest, RootHubProbeWithoutTheNode) {
    if (FileExists(rootHubNodePath)) GTEST_SKIP() << rootHubNodePath << " exists here";
    EXPECT_EQ(OpenHandle(), -1);
    USBDevice device(usbxml::usbDevice, nullptr, true);
    EXPECT_FALSE(device.checkRootHub());
    RootHubTest test(&device);
    SearchDevice other("other");
    for (Device* under : {static_cast<Device*>(&device), static_cast<Device*>(&other)}) {
        test.device = under;
        try {
            test.DoRun(XmlObject("<runTest/>"));
            ADD_FAILURE() << "the test must fail";
        } catch (const TvkError& error) {
            EXPECT_EQ(error.GetMessage(),
                      under == &device ? "Unable to detect root hub" : "No USB device associated with this USB test!");
        }
    }
}

TEST_F(UsbDeviceTest, TheLargestMachineIsFoundWholeAndInOrder) {
    std::string text;  // per bus a root hub with 7 hubs of 17 ports, all taken: 127 devices
    for (int bus = 1; bus <= 32; ++bus)
        for (int hub = -1; hub < 7; ++hub)
            for (int port = -1; port < (hub < 0 ? 0 : 17); ++port) {
                const std::string line = hub < 0    ? " Lev=00 Port=00 MxCh= 7\n"
                                         : port < 0 ? " Lev=01 Port=0" + N(hub) + " MxCh=17\n"
                                                    : " Lev=02 Port=" + N(port) + " MxCh= 0\n";
                text += "T:  Bus=" + N(bus) + line;
            }
    Discover(text);
    ASSERT_EQ(component.devices.size(), 32u * 127u);
    int i = 0;
    for (Device* d : component.devices) EXPECT_EQ(d->name, "usbDevice" + N(i++)) << "usbDevice2 before usbDevice10";
    EXPECT_EQ(IdentifyAll().size(), 32u * 127u);
}

TEST_F(UsbDeviceTest, TheLaterOfTwoDevicesOnOnePortIsFound) {
    std::vector<USBDevice*> devices = Discover(Fixture("usb/data/two_on_one_port.devices"));
    ASSERT_EQ(devices.size(), 2u);
    EXPECT_EQ(devices[1]->node->product, "Optical USB Mouse");

    g_factoryMode = 1;
    component.RemoveDevice(component.FindDevice("usbDevice0"));
    component.RemoveDevice(component.FindDevice("usbDevice1"));
    devices = Discover(Fixture("usb/data/two_on_one_port.devices"));
    ASSERT_EQ(devices.size(), 5u) << "the root hub and its four ports";
    EXPECT_EQ(devices[3]->node->product, "Optical USB Mouse");
}
