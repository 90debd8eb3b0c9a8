// Devices of the devices-file road: which devices discovery makes in each
// mode, what each publishes (captions, descriptions, properties in order,
// tests), numbers and counters, the catalogue template, the root hub probe.
#include "UsbTestSupport.h"
#include "common/StringUtil.h"
#include "common/TvkError.h"
#include "tc/usb/linux/Discovery.h"
#include "tc/usb/linux/RootHubProbe.h"
#include "tc/usb/linux/RootHubTest.h"
#include "tc/usb/linux/usbxml.h"

namespace {

class UsbDeviceTest : public UsbComponentTest {
protected:
    void Discover(const std::string& text) {
        LiteralReader reader(text);
        EXPECT_EQ(ParseWithProcBusUsbDevices(reader, component.devices), 0);
    }
    std::vector<USBDevice*> UsbDevices() {
        std::vector<USBDevice*> result;
        for (Device* d : component.devices) result.push_back(dynamic_cast<USBDevice*>(d));
        return result;
    }
};

std::string N(int value) { return std::to_string(value); }
using Names = std::vector<std::string>;

}  // namespace

TEST_F(UsbDeviceTest, FieldModeGivesOneDevicePerNode) {
    Discover(Fixture("usb/data/ehci_uhci_stick.devices"));
    std::vector<USBDevice*> devices = UsbDevices();
    ASSERT_EQ(devices.size(), 3u);
    EXPECT_EQ(devices[2]->name, "usbDevice2");
    EXPECT_EQ(devices[0]->isController + 2 * devices[1]->isController + 4 * devices[2]->isController, 5);
    // One tree, held by every device.
    for (USBDevice* d : devices) EXPECT_EQ(d->TreeTop(), devices[0]->TreeTop());
    EXPECT_EQ(devices[0]->TreeTop()->Holders(), 3);

    const int d = USBDevice::fieldDeviceCounter, h = USBDevice::fieldHubCounter;
    const std::vector<XmlObject> xml = IdentifyAll();
    EXPECT_EQ(xml[0].GetAttributeValue(xmldef::category), "Communication|USB Controller(s)");
    EXPECT_EQ(Head(xml[0]), "USB Device " + N(d + 1) + " / USB 2.00 Controller EHCI-HCD");
    EXPECT_EQ(Properties(xml[0]), (PropertyList{{usbxml::TypeInfo, "2.00"}, {usbxml::SpeedInfo, "480 MBit/s"},
                                                {usbxml::HubNumber, N(h + 1)}, {usbxml::PortTotal, "6"}}));
    EXPECT_EQ(PropertyCaption(xml[0], usbxml::TypeInfo) + "|" + PropertyCaption(xml[0], usbxml::PortTotal),
              "USB Type|Total Number of Ports");
    EXPECT_EQ(TestNames(xml[0]), (Names{"rootHubTest", "FileWriteCompareTest", "UsbPortTest"}));

    EXPECT_EQ(Head(xml[1]), "USB Device " + N(d + 2) + " /          SanDisk  Cruzer");
    EXPECT_EQ(Properties(xml[1]),
              (PropertyList{{usbxml::TypeInfo, "2.00"}, {usbxml::SpeedInfo, "480 MBit/s"}, {usbxml::portNum, "3"}}));
    EXPECT_EQ(PropertyCaption(xml[1], usbxml::portNum), "Hub Number " + N(h + 1) + " portNum");
    EXPECT_TRUE(TestNames(xml[1]).empty()) << "only controllers offer tests";

    EXPECT_EQ(Head(xml[2]), "USB Device " + N(d + 3) + " / USB 1.10 Controller UHCI");
    EXPECT_EQ(Properties(xml[2]), (PropertyList{{usbxml::TypeInfo, "1.10"}, {usbxml::SpeedInfo, "12 MBit/s"},
                                                {usbxml::HubNumber, N(h + 2)}, {usbxml::PortTotal, "2"}}));
    EXPECT_EQ(TestNames(xml[2]), TestNames(xml[0]));
    int discovered = 0;
    for (const std::string& e : g_events) discovered += Caption(XmlObject(e)) == "Device Discovered";
    EXPECT_EQ(discovered, 3) << "each identification sends its event";

    // A second identification goes on counting.
    const std::vector<XmlObject> again = IdentifyAll();
    EXPECT_EQ(Caption(again[0]), "USB Device " + N(d + 4));
    EXPECT_EQ(Properties(again[2])[2].second, N(h + 4));

    // A device that goes leaves its number to the next discovery.
    component.RemoveDevice(component.FindDevice("usbDevice1"));
    Discover(Fixture("usb/data/uhci_external_hub.devices"));
    Names names;
    for (Device* dev : component.devices) names.push_back(dev->name);
    EXPECT_EQ(names, (Names{"usbDevice0", "usbDevice1", "usbDevice2", "usbDevice3", "usbDevice4"}));
    EXPECT_EQ(UsbDevices()[1]->node->product, "USB 1.10 Controller UHCI");
}

TEST_F(UsbDeviceTest, FactoryModeGivesAnEntryPerPort) {
    g_factoryMode = 1;
    Discover(Fixture("usb/data/ehci_uhci_stick.devices"));
    std::vector<USBDevice*> devices = UsbDevices();
    // EHCI, its 6 ports (one taken), UHCI, its 2 empty ports.
    ASSERT_EQ(devices.size(), 10u);
    EXPECT_EQ(devices[1]->node, devices[0]->TreeTop()) << "the root stands for an empty port";

    const int c = USBDevice::factoryHubCounter;
    const std::vector<XmlObject> xml = IdentifyAll();
    EXPECT_EQ(Head(xml[0]), "USB 2.0 Controller " + N(c + 1) + " / USB 2.00 Controller EHCI-HCD");
    EXPECT_EQ(Properties(xml[0]),
              (PropertyList{{usbxml::TypeInfo, "2.00"}, {usbxml::SpeedInfo, "480 MBit/s"}, {usbxml::HubNumber, N(c + 1)}}));
    EXPECT_EQ(TestNames(xml[0]), (Names{"rootHubTest", "descTest", "usbLoopbackTest", "FileWriteCompareTest", "UsbPortTest"}));
    EXPECT_EQ(Head(xml[1]), "USB 2.00 Controller  " + N(c + 1) + " Port 1 / USB Port");
    EXPECT_EQ(Properties(xml[1]), (PropertyList{{usbxml::DeviceConnected, "No"}}));
    EXPECT_EQ(PropertyCaption(xml[1], usbxml::DeviceConnected), "DeviceConnected");
    EXPECT_TRUE(TestNames(xml[1]).empty());
    EXPECT_EQ(Head(xml[3]), "USB Controller " + N(c + 1) + " Port 3 / USB Port");
    EXPECT_EQ(Properties(xml[3]), (PropertyList{{usbxml::DeviceConnected, "Yes"}, {usbxml::DeviceType, "Cruzer"},
                                                {usbxml::TypeInfo, "2.00"}, {usbxml::SpeedInfo, "480 MBit/s"}}));
    EXPECT_EQ(Caption(xml[6]), "USB 2.00 Controller  " + N(c + 1) + " Port 6");
    EXPECT_EQ(Head(xml[7]), "USB Controller " + N(c + 2) + " / USB UHCI Root Hub");
    EXPECT_EQ(Caption(xml[9]), "USB 1.10 Controller  " + N(c + 2) + " Port 2");

    // An external hub stands as a controller of its own behind its port entry.
    component.PurgeDevices();
    Discover(Fixture("usb/data/uhci_external_hub.devices"));
    devices = UsbDevices();
    ASSERT_EQ(devices.size(), 8u);
    EXPECT_EQ(devices[1]->node->kind, usbKindInterfaceDevice);
    EXPECT_EQ(devices[1]->TreeTop(), devices[1]->node) << "the hub's port entry stands on a node of its own";
    EXPECT_EQ(devices[2]->node->kind, usbKindEmptyPort);
    EXPECT_TRUE(devices[3]->isController);
    EXPECT_EQ(devices[3]->node, devices[0]->node->children[0]);
    EXPECT_EQ(devices[6]->node->product, "Optical USB Mouse");
    const int k = USBDevice::factoryHubCounter;
    Names captions;
    for (const XmlObject& x : IdentifyAll()) captions.push_back(Caption(x));
    EXPECT_EQ(captions, (Names{"USB Controller " + N(k + 1), "USB Controller " + N(k + 1) + " Port 1",
                               "USB 1.10 Controller  " + N(k + 1) + " Port 2", "USB Controller " + N(k + 2),
                               "USB 1.10 Controller  " + N(k + 2) + " Port 1", "USB 1.10 Controller  " + N(k + 2) + " Port 2",
                               "USB Controller " + N(k + 2) + " Port 3", "USB 1.10 Controller  " + N(k + 2) + " Port 4"}));
    EXPECT_EQ(Properties(XmlObject(devices[1]->ID(false)))[1], PropertyList::value_type(usbxml::DeviceType, "General Purpose USB Hub"));
    EXPECT_EQ(TestNames(XmlObject(devices[3]->ID(false))), TestNames(xml[0]));
}

TEST_F(UsbDeviceTest, UnknownVersionsAndKinds) {
    g_factoryMode = 1;
    // A 1.50 controller after a 1.10 one: it has no caption, and its ports
    // keep the version text of the controller before it.
    Discover("T:  Bus=01 Lev=00 Prnt=00 Port=00 Cnt=00 Dev#=  1 Spd=12   MxCh= 1\n"
             "D:  Ver= 1.10 Cls=09(hub  ) Sub=00 Prot=00 MxPS=64 #Cfgs=  1\n"
             "T:  Bus=02 Lev=00 Prnt=00 Port=00 Cnt=00 Dev#=  1 Spd=12   MxCh= 2\n"
             "D:  Ver= 1.50 Cls=09(hub  ) Sub=00 Prot=00 MxPS=64 #Cfgs=  1\n"
             "T:  Bus=02 Lev=01 Prnt=01 Port=00 Cnt=01 Dev#=  2 Spd=12   MxCh= 0\n"
             "D:  Ver= 1.10 Cls=ff(vend.) Sub=ff Prot=ff MxPS= 8 #Cfgs=  1\n");
    const int c = USBDevice::factoryHubCounter;
    const std::vector<XmlObject> xml = IdentifyAll();
    ASSERT_EQ(xml.size(), 5u);
    EXPECT_EQ(Caption(xml[1]), "USB 1.10 Controller  " + N(c + 1) + " Port 1");
    EXPECT_EQ(Caption(xml[2]), "Device");
    EXPECT_EQ(Properties(xml[2]).size(), 3u);
    // A vendor-class device in a port publishes nothing and is no port either.
    EXPECT_EQ(Caption(xml[3]), "Device");
    EXPECT_TRUE(Properties(xml[3]).empty());
    EXPECT_EQ(Caption(xml[4]), "USB 1.10 Controller  " + N(c + 2) + " Port 1");

    const XmlObject bare(USBDevice(usbxml::usbDevice, nullptr, true).ID(false));
    EXPECT_EQ(Caption(bare), "Device");
    EXPECT_TRUE(Properties(bare).empty() && TestNames(bare).empty()) << "no node, nothing published";
}

TEST_F(UsbDeviceTest, CatalogueTemplateInBothModes) {
    for (int mode : {0, 1}) {
        g_factoryMode = mode;
        const XmlObject answer(component.ExecuteXMLCommand("<catalog/>"));
        EXPECT_EQ(answer.name, xmldef::catResult);
        ASSERT_EQ(answer.children.size(), 1u);
        const XmlObject& device = answer.children[0];
        EXPECT_EQ(device.GetAttributeValue(xmldef::name) + "|" + device.GetAttributeValue(xmldef::class_x), "usbDevice|usbDevice")
            << "a template gets no number";
        EXPECT_EQ(Head(device), "USB Device / USB Device");
        EXPECT_EQ(device.GetAttributeValue(xmldef::category), "Communication|USB Controller(s)");
        EXPECT_TRUE(Properties(device).empty());
        EXPECT_EQ(TestNames(device), (mode ? Names{"rootHubTest", "descTest", "usbLoopbackTest", "FileWriteCompareTest"}
                                           : Names{"rootHubTest", "FileWriteCompareTest"}));
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

TEST_F(UsbDeviceTest, TheLargestMachineIsFoundWholeAndInOrder) {
    // Per bus: a root hub with 7 hubs of 17 ports, all taken: 127 devices.
    std::string text;
    for (int bus = 1; bus <= 32; ++bus) {
        const std::string b = "T:  Bus=" + N(bus);
        text += b + " Lev=00 Prnt=00 Port=00 Cnt=00 Dev#=  1 Spd=480  MxCh= 7\n";
        for (int hub = 0; hub < 7; ++hub) {
            text += b + " Lev=01 Prnt=01 Port=0" + N(hub) + " Cnt=01 Dev#=  2 Spd=480  MxCh=17\n"
                        "D:  Ver= 2.00 Cls=09(hub  ) Sub=00 Prot=02 MxPS=64 #Cfgs=  1\n";
            for (int port = 0; port < 17; ++port)
                text += b + " Lev=02 Prnt=02 Port=" + N(port) + " Cnt=01 Dev#=  3 Spd=480  MxCh= 0\nS:  Product=Stick\n"
                            "I:  If#= 0 Alt= 0 #EPs= 2 Cls=08(stor.) Sub=06 Prot=50 Driver=usb-storage\n";
        }
    }
    Discover(text);
    ASSERT_EQ(component.devices.size(), 32u * 127u);
    int i = 0;
    for (Device* d : component.devices) {
        EXPECT_EQ(d->name, "usbDevice" + N(i++)) << "numbers in order, usbDevice2 before usbDevice10";
        XmlObject(d->ID(false));
    }
}
