// Devices of the devices-file road: which devices discovery makes in each
// mode, what each publishes (captions, descriptions, properties in order,
// tests), counters that go on across identifications, the catalogue
// template, the root hub probe and test, and the cost of a large machine.
#include <gtest/gtest.h>


#include "LiteralReader.h"
#include "UsbTestSupport.h"
#include "common/StringUtil.h"
#include "common/TvkError.h"
#include "common/xmldef.h"
#include "tc/usb/linux/Discovery.h"
#include "tc/usb/linux/RootHubProbe.h"
#include "tc/usb/linux/RootHubTest.h"
#include "tc/usb/linux/USBtree.h"
#include "tc/usb/linux/usbxml.h"

namespace {

using PropertyList = std::vector<std::pair<std::string, std::string>>;

class UsbDeviceTest : public UsbComponentTest {
protected:
    void Discover(const std::string& fixture) {
        LiteralReader reader(Fixture(fixture));
        EXPECT_EQ(ParseWithProcBusUsbDevices(reader, component.devices), 0);
    }
};

std::string N(int value) { return std::to_string(value); }
std::string Caption(const XmlObject& xml) { return xml.GetAttributeValue(xmldef::caption); }
// Caption and description.
std::string Head(const XmlObject& xml) { return Caption(xml) + " / " + xml.GetAttributeValue(xmldef::description); }

}  // namespace

TEST_F(UsbDeviceTest, FieldModeGivesOneDevicePerNode) {
    Discover("ehci_uhci_stick.devices");
    std::vector<USBDevice*> devices = UsbDevices();
    ASSERT_EQ(devices.size(), 3u);
    EXPECT_EQ(devices[2]->name, "usbDevice2");
    EXPECT_FALSE(devices[1]->isController);
    EXPECT_TRUE(devices[2]->isController);
    // One tree, held by every device.
    USBnode* top = devices[0]->TreeTop();
    for (USBDevice* d : devices) EXPECT_EQ(d->TreeTop(), top);
    EXPECT_EQ(top->Holders(), 3);

    const int d = USBDevice::fieldDeviceCounter;
    const int h = USBDevice::fieldHubCounter;
    const std::vector<XmlObject> xml = IdentifyAll();

    EXPECT_EQ(xml[0].GetAttributeValue(xmldef::category), "Communication|USB Controller(s)");
    EXPECT_EQ(Head(xml[0]), "USB Device " + N(d + 1) + " / USB 2.00 Controller EHCI-HCD");
    EXPECT_EQ(Properties(xml[0]), (PropertyList{{usbxml::TypeInfo, "2.00"},
                                                {usbxml::SpeedInfo, "480 MBit/s"},
                                                {usbxml::HubNumber, N(h + 1)},
                                                {usbxml::PortTotal, "6"}}));
    EXPECT_EQ(PropertyCaption(xml[0], usbxml::TypeInfo), "USB Type");
    EXPECT_EQ(PropertyCaption(xml[0], usbxml::PortTotal), "Total Number of Ports");
    EXPECT_EQ(TestNames(xml[0]), (std::vector<std::string>{"rootHubTest", "FileWriteCompareTest", "UsbPortTest"}));

    EXPECT_EQ(Head(xml[1]), "USB Device " + N(d + 2) + " /          SanDisk  Cruzer");
    EXPECT_EQ(Properties(xml[1]),
              (PropertyList{{usbxml::TypeInfo, "2.00"}, {usbxml::SpeedInfo, "480 MBit/s"}, {usbxml::portNum, "3"}}));
    EXPECT_EQ(PropertyCaption(xml[1], usbxml::portNum), "Hub Number " + N(h + 1) + " portNum");
    EXPECT_TRUE(TestNames(xml[1]).empty()) << "only controllers offer tests";

    EXPECT_EQ(Head(xml[2]), "USB Device " + N(d + 3) + " / USB 1.10 Controller UHCI");
    EXPECT_EQ(Properties(xml[2]), (PropertyList{{usbxml::TypeInfo, "1.10"},
                                                {usbxml::SpeedInfo, "12 MBit/s"},
                                                {usbxml::HubNumber, N(h + 2)},
                                                {usbxml::PortTotal, "2"}}));

    // Each identification sent its event.
    int discovered = 0;
    for (const std::string& e : g_events) discovered += XmlObject(e).GetAttributeValue(xmldef::caption) == "Device Discovered";
    EXPECT_EQ(discovered, 3);

    // A second identification goes on counting.
    const std::vector<XmlObject> again = IdentifyAll();
    EXPECT_EQ(Caption(again[0]), "USB Device " + N(d + 4));
    EXPECT_EQ(Properties(again[2])[2].second, N(h + 4));
}

TEST_F(UsbDeviceTest, FactoryModeGivesAnEntryPerPort) {
    g_factoryMode = 1;
    Discover("ehci_uhci_stick.devices");
    std::vector<USBDevice*> devices = UsbDevices();
    // EHCI, its 6 ports (one taken), UHCI, its 2 empty ports.
    ASSERT_EQ(devices.size(), 10u);
    EXPECT_EQ(devices[1]->node, devices[0]->TreeTop()) << "the root stands for an empty port";

    const int c = USBDevice::factoryHubCounter;
    const std::vector<XmlObject> xml = IdentifyAll();
    EXPECT_EQ(Head(xml[0]), "USB 2.0 Controller " + N(c + 1) + " / USB 2.00 Controller EHCI-HCD");
    EXPECT_EQ(Properties(xml[0]),
              (PropertyList{{usbxml::TypeInfo, "2.00"}, {usbxml::SpeedInfo, "480 MBit/s"}, {usbxml::HubNumber, N(c + 1)}}));

    EXPECT_EQ(Head(xml[1]), "USB 2.00 Controller  " + N(c + 1) + " Port 1 / USB Port");
    EXPECT_EQ(Properties(xml[1]), (PropertyList{{usbxml::DeviceConnected, "No"}}));
    EXPECT_EQ(PropertyCaption(xml[1], usbxml::DeviceConnected), "DeviceConnected");

    EXPECT_EQ(Head(xml[3]), "USB Controller " + N(c + 1) + " Port 3 / USB Port");
    EXPECT_EQ(Properties(xml[3]), (PropertyList{{usbxml::DeviceConnected, "Yes"},
                                                {usbxml::DeviceType, "Cruzer"},
                                                {usbxml::TypeInfo, "2.00"},
                                                {usbxml::SpeedInfo, "480 MBit/s"}}));
    EXPECT_EQ(Caption(xml[6]), "USB 2.00 Controller  " + N(c + 1) + " Port 6");

    EXPECT_EQ(Head(xml[7]), "USB Controller " + N(c + 2) + " / USB UHCI Root Hub");
    EXPECT_EQ(Caption(xml[9]), "USB 1.10 Controller  " + N(c + 2) + " Port 2");
}

TEST_F(UsbDeviceTest, FactoryModeWithAnExternalHub) {
    g_factoryMode = 1;
    Discover("uhci_external_hub.devices");
    std::vector<USBDevice*> devices = UsbDevices();
    // Root hub, occupied port 1, empty port 2, then the hub as a controller
    // and its four ports.
    ASSERT_EQ(devices.size(), 8u);
    EXPECT_EQ(devices[1]->node->kind, usbKindInterfaceDevice);
    EXPECT_EQ(devices[1]->node->parent, nullptr) << "the hub's port entry stands on a node of its own";
    EXPECT_EQ(devices[1]->TreeTop(), devices[1]->node);
    EXPECT_EQ(devices[2]->node->kind, usbKindEmptyPort);
    EXPECT_TRUE(devices[3]->isController);
    EXPECT_EQ(devices[3]->node, devices[0]->node->children[0]);
    EXPECT_EQ(devices[6]->node->product, "Optical USB Mouse");

    const int c = USBDevice::factoryHubCounter;
    const std::vector<XmlObject> xml = IdentifyAll();
    EXPECT_EQ(Caption(xml[0]), "USB Controller " + N(c + 1));
    EXPECT_EQ(Caption(xml[1]), "USB Controller " + N(c + 1) + " Port 1");
    EXPECT_EQ(Properties(xml[1])[1], std::make_pair(std::string(usbxml::DeviceType), std::string("General Purpose USB Hub")));
    EXPECT_EQ(Caption(xml[2]), "USB 1.10 Controller  " + N(c + 1) + " Port 2");
    EXPECT_EQ(Caption(xml[3]), "USB Controller " + N(c + 2));
    EXPECT_EQ(TestNames(xml[3]), (std::vector<std::string>{"rootHubTest", "descTest", "usbLoopbackTest",
                                                           "FileWriteCompareTest", "UsbPortTest"}))
        << "a hub stands as a controller of its own and offers what a controller offers";
    EXPECT_EQ(Caption(xml[4]), "USB 1.10 Controller  " + N(c + 2) + " Port 1");
    EXPECT_EQ(Caption(xml[6]), "USB Controller " + N(c + 2) + " Port 3");
    EXPECT_EQ(Caption(xml[7]), "USB 1.10 Controller  " + N(c + 2) + " Port 4");
}

TEST_F(UsbDeviceTest, UnknownVersionsAndKinds) {
    g_factoryMode = 1;
    // A 1.50 controller before a 1.10 one: the first has no caption and its
    // ports keep the version text of the controller before it.
    LiteralReader reader(
        "T:  Bus=01 Lev=00 Prnt=00 Port=00 Cnt=00 Dev#=  1 Spd=12   MxCh= 1\n"
        "D:  Ver= 1.10 Cls=09(hub  ) Sub=00 Prot=00 MxPS=64 #Cfgs=  1\n"
        "T:  Bus=02 Lev=00 Prnt=00 Port=00 Cnt=00 Dev#=  1 Spd=12   MxCh= 2\n"
        "D:  Ver= 1.50 Cls=09(hub  ) Sub=00 Prot=00 MxPS=64 #Cfgs=  1\n"
        "T:  Bus=02 Lev=01 Prnt=01 Port=00 Cnt=01 Dev#=  2 Spd=12   MxCh= 0\n"
        "D:  Ver= 1.10 Cls=ff(vend.) Sub=ff Prot=ff MxPS= 8 #Cfgs=  1\n");
    ParseWithProcBusUsbDevices(reader, component.devices);
    const int c = USBDevice::factoryHubCounter;
    const std::vector<XmlObject> xml = IdentifyAll();
    ASSERT_EQ(xml.size(), 5u);
    EXPECT_EQ(Caption(xml[1]), "USB 1.10 Controller  " + N(c + 1) + " Port 1");
    EXPECT_EQ(Caption(xml[2]), "Device") << "no caption of its own";
    EXPECT_EQ(Properties(xml[2]).size(), 3u);
    // A vendor-class device in a port: nothing published.
    EXPECT_EQ(Caption(xml[3]), "Device");
    EXPECT_TRUE(Properties(xml[3]).empty());
    // The vendor-class device did not count as a port either.
    EXPECT_EQ(Caption(xml[4]), "USB 1.10 Controller  " + N(c + 2) + " Port 1");
}

TEST_F(UsbDeviceTest, DeviceWithoutNodePublishesNothing) {
    USBDevice bare(usbxml::usbDevice, nullptr, true);
    const XmlObject xml(bare.ID(false));
    EXPECT_TRUE(Properties(xml).empty());
    EXPECT_TRUE(TestNames(xml).empty());
    EXPECT_EQ(xml.GetAttributeValue(xmldef::caption), "Device");
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
        EXPECT_EQ(Head(device), "USB Device / USB Device");
        EXPECT_EQ(device.GetAttributeValue(xmldef::category), "Communication|USB Controller(s)");
        EXPECT_TRUE(Properties(device).empty());
        const std::vector<std::string> tests = TestNames(device);
        ASSERT_FALSE(tests.empty());
        EXPECT_EQ(tests[0], "rootHubTest");
        for (const std::string& t : tests) EXPECT_NE(t, usbxml::UsbPortTest) << "only identified controllers";
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
            EXPECT_EQ(error.GetMessage(), under == &device ? "Unable to detect root hub"
                                                           : "No USB device associated with this USB test!");
        }
    }
}

TEST_F(UsbDeviceTest, ManyBusesAreDiscoveredInLinearTime) {
    // Per bus: a root hub with 7 hubs of 17 ports, all taken: 127 devices.
    auto machine = [](int buses) {
        std::string text;
        for (int bus = 1; bus <= buses; ++bus) {
            const std::string b = "Bus=" + std::to_string(bus);
            text += "T:  " + b + " Lev=00 Prnt=00 Port=00 Cnt=00 Dev#=  1 Spd=480  MxCh= 7\n"
                    "D:  Ver= 2.00 Cls=09(hub  ) Sub=00 Prot=01 MxPS=64 #Cfgs=  1\n"
                    "S:  Manufacturer=Linux 2.6.16 ehci_hcd\nS:  Product=EHCI Host Controller\n";
            for (int hub = 0; hub < 7; ++hub) {
                text += "T:  " + b + " Lev=01 Prnt=01 Port=0" + std::to_string(hub) +
                        " Cnt=01 Dev#=  2 Spd=480  MxCh=17\n"
                        "D:  Ver= 2.00 Cls=09(hub  ) Sub=00 Prot=02 MxPS=64 #Cfgs=  1\n";
                for (int port = 0; port < 17; ++port)
                    text += "T:  " + b + " Lev=02 Prnt=02 Port=" + std::to_string(port) +
                            " Cnt=01 Dev#=  3 Spd=480  MxCh= 0\n"
                            "D:  Ver= 2.00 Cls=00(>ifc ) Sub=00 Prot=00 MxPS=64 #Cfgs=  1\n"
                            "S:  Product=Stick\n"
                            "I:  If#= 0 Alt= 0 #EPs= 2 Cls=08(stor.) Sub=06 Prot=50 Driver=usb-storage\n"
                            "E:  Ad=81(I) Atr=02(Bulk) MxPS= 512 Ivl=0ms\n";
            }
        }
        return text;
    };
    // The largest machine there is: every device is found and published.
    // (Its speed is measured in bench/, not here.)
    LiteralReader reader(machine(32));
    ParseWithProcBusUsbDevices(reader, component.devices);
    EXPECT_EQ(component.devices.size(), 32u * 127u);
    for (Device* d : component.devices) XmlObject(d->ID(false));
    EXPECT_NE(component.FindDevice("usbDevice4063"), nullptr);
}
