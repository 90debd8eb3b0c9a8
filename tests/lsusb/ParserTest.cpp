// The per-device parser: raw values per level, block cutting, the class-wide gates, odd text.
#include <functional>
#include <memory>
#include <stdexcept>

#include "common/TvkError.h"
#include "usb/UsbTestSupport.h"

extern "C" int nvxIsFactory() { return g_factoryMode; }

// The device texts discovery cuts from raw `lsusb -v` output.
std::vector<std::string> DeviceTexts(const std::string& raw) {
    TempDir work(true);
    LiteralReader reader(raw);
    return getVecDeviceInfo(reader);
}
std::string DeviceText(const std::string& raw) {
    const std::vector<std::string> texts = DeviceTexts(raw);
    EXPECT_EQ(texts.size(), 1u);
    return texts.empty() ? "" : texts[0];
}
std::string J(std::initializer_list<std::string> values) {
    std::string joined;
    for (const std::string& v : values) joined += v + "|";
    return joined;
}

namespace {

class LsusbParserTest : public ::testing::Test {
protected:
    void SetUp() override { ResetLsusbState(); }
    // Parses `text` on a device of its own, kept alive for the records.
    USBDevicesNode& Parse(const std::string& text) {
        devices.emplace_back(new newUSBDevice(text));
        devices.back()->processDeviceInfo();
        return *devices.back()->devicesNode;
    }
    std::vector<std::unique_ptr<newUSBDevice>> devices;
};

// device, configuration, interface, endpoint, hub and HID gates
std::string Gates() {
    return J({std::to_string(newUSBDevice::bDeviceDescriptor), std::to_string(newUSBDevice::bConfigurationDescriptor),
              std::to_string(newUSBDevice::bInterfaceDescriptor), std::to_string(newUSBDevice::bEndpointDescriptor),
              std::to_string(newUSBDevice::bHubDescriptor), std::to_string(newUSBDevice::bHidDeviceDescriptor)});
}

const std::string head = "Bus 003 Device 007: ID 1234:5678 Maker Thing\nDevice Descriptor:\n  bLength                18\n"
                         "  idVendor           0x1234 Maker\n  iProduct                2 Thing\n";
const std::string config = "  Configuration Descriptor:\n    bConfigurationValue     1\n";
const std::string hubPart = "Hub Descriptor:\n  bDescriptorType      41\n  nNbrPorts             4\n"
                            " Hub Port Status:\n   Port 1: 0000.0100 power\n";
const std::string status = "Device Status:     0x0001\n  Self Powered\n";
std::string Iface(const std::string& number, const std::string& cls) {
    return "    Interface Descriptor:\n      bLength                 9\n      bDescriptorType         4\n"
           "      bInterfaceNumber        " + number + "\n      bInterfaceClass       " + cls + "\n";
}
std::string Hid(const std::string& length) {
    return "        HID Device Descriptor:\n          bLength                 9\n          bcdHID               1.11\n"
           "          bDescriptorType        34 Report\n          wDescriptorLength      " + length + "\n";
}
std::string Endpoint(const std::string& address, const std::string& interval) {
    return "      Endpoint Descriptor:\n        bEndpointAddress     " + address + "\n        bInterval              " +
           interval + "\n";
}

}  // namespace

TEST_F(LsusbParserTest, RecordsOfRealTextKeepTheRawValues) {
    const std::vector<std::string> texts = DeviceTexts(Fixture("fixtures/lsusb_texts/machine.txt"));
    ASSERT_EQ(texts.size(), 6u);
    USBDevicesNode& node = Parse(texts[0]);
    EXPECT_EQ(J({node.bLength, node.bcdUSB, node.bDeviceClass, node.bDeviceSubClass, node.bDeviceProtocol,
                 node.bMaxPacketSize0, node.idVendor, node.idProduct, node.bcdDevice, node.iManufacturer, node.iProduct,
                 node.iSerial, node.bNumConfigurations, node.deviceStatus}),
              " 18| 2.00| 9 Hub| 0 | 0 Full speed (or root) hub| 64| 0x1d6b Linux Foundation| 0x0002 2.0 root hub| 6.01|"
              " 3 Linux 6.1.0-13-amd64 ehci_hcd| 2 EHCI Host Controller| 1 0000:00:1d.7| 1||")
        << "the device level stops at the configuration";
    ASSERT_EQ(node.getNumObjects(), 1);
    const USBConfiguration& c = *node.configurations[0];
    EXPECT_EQ(J({c.bDescriptorType, c.wTotalLength, c.bmAttributes, c.MaxPower}), " 2| 0x0019| 0xe0| 0mA|");
    ASSERT_EQ(c.getNumObjects(), 1);
    const USBInterfaces& i = *c.interfaces[0];
    EXPECT_EQ(J({i.bDescriptorType, i.bInterfaceClass, i.iInterface}), " 4| 9 Hub| 0 |");
    ASSERT_EQ(i.getNumEndpointObjects(), 1);
    const USBEndpoints& e = *i.endpoints[0];
    EXPECT_EQ(J({e.bLength, e.bEndpointAddress, e.bmAttributes, e.transferType, e.synchType, e.usageType,
                 e.wMaxPacketSize, e.bInterval}), " 7| 0x81 EP 1 IN| 3| Interrupt| None| Data| 0x0004 1x 4 bytes| 12|");
    ASSERT_EQ(std::pair(i.getNumHidObjects(), i.getNumHubObjects()), std::pair(0, 1));
    const USBHub& h = *i.hubs[0];
    EXPECT_EQ(J({h.bLength, h.bDescriptorType, h.nNbrPorts, h.wHubCharacteristic, h.bPwrOn2PwrGood, h.bHubContrCurrent,
                 h.DeviceRemovable, h.PortPwrCtrlMask}),
              " 9| 41| 2| 0x000a| 10 * 2 milli seconds| 0 milli Ampere| 0x00| 0xff|");
    EXPECT_EQ(h.getVecPortStatusBlocks(),
              std::vector<std::string>{" Hub Port Status:\n Port 1: 0000.0503 highspeed power enable connect\n"
                                       " Port 2: 0000.0100 power\n Device Status: 0x0001\n"});
    EXPECT_EQ(Gates(), "0|0|0|0|0|1|");

    // The HID descriptor overwrites the interface's length and type.
    const USBInterfaces& mouse = *Parse(texts[4]).configurations.at(0)->interfaces.at(0);
    EXPECT_EQ(J({mouse.bInterfaceClass, mouse.bDescriptorType}), " 3 Human Interface Device| 34 Report|");
    ASSERT_EQ(std::pair(mouse.getNumHidObjects(), mouse.getNumHubObjects()), std::pair(1, 0));
    const USBHidDevices& hid = *mouse.hidDevices[0];
    EXPECT_EQ(J({hid.bLength, hid.bDescriptorType, hid.bcdHID, hid.bCountryCode, hid.bNumDescriptors, hid.wDescriptorLength}),
              " 9| 34 Report| 1.11| 0 Not supported| 1| 46|");
    EXPECT_EQ(Gates(), "0|0|0|0|1|0|");

    // A second configuration is blank, its first interface is not: every interface block lies under every configuration.
    USBDevicesNode& two = Parse(texts[5]);
    ASSERT_EQ(two.getNumObjects(), 2);
    EXPECT_EQ(J({two.bNumConfigurations, two.configurations[0]->bConfigurationValue,
                 two.configurations[1]->bConfigurationValue, two.configurations[1]->MaxPower}), " 2| 1|||");
    for (const USBConfiguration* config : two.configurations) {
        ASSERT_EQ(config->getNumObjects(), 2);
        EXPECT_EQ(config->interfaces[0]->bInterfaceClass + "|" + config->interfaces[1]->bInterfaceClass,
                  " 255 Vendor Specific Class|");
        for (const USBInterfaces* interface : config->interfaces)
            EXPECT_EQ(J({interface->endpoints.at(0)->bEndpointAddress, interface->endpoints.at(1)->bEndpointAddress,
                         std::to_string(interface->getNumEndpointObjects())}), " 0x81 EP 1 IN||2|");
    }
}

TEST_F(LsusbParserTest, BlocksRunFromStartLineThroughEndLine) {
    newUSBDevice device("");
    const std::string text = "a\n S one\n b\n E two\n c\n S E\n S\n S again\n E\n S open\n d\n";
    EXPECT_EQ(device.getVecInfo(text, "S", "E"),
              (std::vector<std::string>{" S one\n b\n E two\n", " S E\n", " S\n S again\n E\n"}));
    EXPECT_TRUE(device.getVecInfo(text, "X", "E").empty());
    EXPECT_TRUE(device.getVecInfo("", "S", "E").empty());
}

TEST_F(LsusbParserTest, GatesCarryFromOneDeviceToTheNext) {
    USBDevicesNode& plain = Parse(DeviceText(head + status));
    EXPECT_EQ(J({plain.deviceStatus, plain.iProduct, std::to_string(plain.getNumObjects())}), " 0x0001| 2 Thing|0|")
        << "no configuration: read on to the status";
    EXPECT_EQ(Gates(), "1|0|0|0|0|0|") << "nothing closes the device gate";
    // The open gate fills a text without "Device Descriptor:"...
    const std::string headless = "Bus 003 Device 008: ID 1234:5679\n  idVendor 0x1234 Other\n" + status;
    EXPECT_EQ(Parse(DeviceText(headless)).idVendor, " 0x1234 Other");
    // ...but not after a device whose configuration closed it.
    Parse(DeviceText(head + config + status));
    EXPECT_EQ(Gates(), "0|1|0|0|0|0|");
    EXPECT_EQ(Parse(DeviceText(headless)).idVendor, "");
}

TEST_F(LsusbParserTest, GatesFillOnlyTheFirstRecordOfALevel) {
    USBDevicesNode& node = Parse(DeviceText(head + config + Iface("0", "3 HID") + Hid("46") + Endpoint("0x81", "10") +
                                            Iface("1", "3 HID") + Hid("99") + Endpoint("0x82", "20") + status));
    ASSERT_EQ(node.getNumObjects(), 1);
    ASSERT_EQ(node.configurations[0]->getNumObjects(), 2);
    const USBInterfaces& first = *node.configurations[0]->interfaces[0];
    const USBInterfaces& second = *node.configurations[0]->interfaces[1];
    ASSERT_EQ(std::tuple(first.getNumEndpointObjects(), first.getNumHidObjects(), second.getNumEndpointObjects(),
                         second.getNumHidObjects()), std::tuple(2, 2, 2, 0));
    EXPECT_EQ(J({first.bInterfaceNumber, first.endpoints[0]->bEndpointAddress, first.endpoints[1]->bEndpointAddress,
                 first.hidDevices[0]->wDescriptorLength, first.hidDevices[1]->wDescriptorLength}), " 0| 0x81|| 46||");
    // The second interface is blank and holds the first endpoint block again.
    EXPECT_EQ(J({second.bInterfaceNumber, second.bInterfaceClass, second.endpoints[0]->bEndpointAddress,
                 second.endpoints[1]->bInterval}), "|| 0x81||");

    // An interface needs an endpoint line to close it: alone it is no record, ahead of another the later values win.
    ResetLsusbState();
    EXPECT_EQ(Parse(DeviceText(head + config + Iface("0", "8 Mass") + status)).configurations.at(0)->getNumObjects(), 0);
    ResetLsusbState();
    USBDevicesNode& merged =
        Parse(DeviceText(head + config + Iface("0", "8 Mass") + Iface("1", "2 Comm") + Endpoint("0x81", "4") + status));
    ASSERT_EQ(merged.configurations.at(0)->getNumObjects(), 1);
    const USBInterfaces& interface = *merged.configurations[0]->interfaces[0];
    EXPECT_EQ(J({interface.bInterfaceNumber, interface.bInterfaceClass, interface.endpoints.at(0)->bInterval,
                 std::to_string(interface.getNumEndpointObjects())}), " 1| 2 Comm| 4|1|");

    // The class digits pick the HID or the hub branch.
    for (const auto& [cls, branches] : std::vector<std::pair<std::string, std::pair<int, int>>>{
             {"239 Miscellaneous Device", {1, 0}}, {"39 Odd", {1, 0}}, {"9 Hub", {0, 1}}, {"8 Mass Storage", {0, 0}}, {"255 Vendor", {0, 0}}}) {
        ResetLsusbState();
        const USBInterfaces& i = *Parse(DeviceText(head + config + Iface("0", cls) + Hid("52") + Endpoint("0x81", "8") +
                                                   hubPart + status)).configurations.at(0)->interfaces.at(0);
        EXPECT_EQ(std::tuple(i.getNumHidObjects(), i.getNumHubObjects(), i.getNumEndpointObjects()),
                  std::tuple(branches.first, branches.second, 1)) << cls;
        if (branches.second == 1) {
            EXPECT_EQ(i.hubs[0]->nNbrPorts + "|" + std::to_string(i.hubs[0]->getNumObjects()), " 4|1");
        }
    }
}

TEST_F(LsusbParserTest, NullRecordsAndKeywordsWithNothingBehindFail) {
    newUSBDevice device("");
    const std::string t = DeviceText(head + status);
    const std::vector<std::function<void()>> calls = {
        [&] { device.addInformationToDeviceNode(t, nullptr); }, [&] { device.addInformationToConfigNode(t, nullptr, t); },
        [&] { device.addInformationToInterfaceNode(t, nullptr, t); },
        [&] { device.addInformationToEndpointNode(t, nullptr, t); }, [&] { device.addInformationToHubNode(t, nullptr, t); },
        [&] { device.addInformationToHidNode(t, nullptr, t); }, [&] { device.addInformationToDevice(t, nullptr); },
        [&] { device.addInformationToConfig(t, nullptr); }, [&] { device.addInformationToInterface(t, nullptr); },
        [&] { device.addInformationToEndpoint(t, nullptr); }, [&] { device.addInformationToHub(t, nullptr); },
        [&] { device.addInformationToHid(t, nullptr); }};
    for (size_t i = 0; i < calls.size(); ++i) {
        try {
            calls[i]();
            ADD_FAILURE() << "a null record must be refused: operation " << i;
        } catch (const TvkError& error) {
            EXPECT_EQ(error.GetMessage() + "|" + error.GetDetail(), "Device Failed Enumeration|") << i;
        }
    }
    EXPECT_EQ(Gates(), "0|0|0|0|0|0|") << "a refused call changes no gate";

    newUSBDevice::bDeviceDescriptor = true;
    newUSBDevice cut("bLength\n Device Status: 0x0000\n ");
    EXPECT_THROW(cut.processDeviceInfo(), std::out_of_range);
    EXPECT_TRUE(cut.devicesNode && cut.devicesNode->deviceStatus.empty()) << "the new node is in place before the parse";
}

TEST_F(LsusbParserTest, OddTextGivesBoundedRecords) {
    // Every level searches the whole text: 40 of each level would be 64,000 endpoint records.
    std::string raw = head;
    for (int i = 0; i < 40; ++i) raw += config + Iface(std::to_string(i), "9 Hub") + Endpoint("0x81", "1");
    raw += std::string(4000, 'x') + " " + std::string(300, 'y') + "\n" + hubPart + status;
    USBDevicesNode& node = Parse(DeviceText(raw));
    size_t records = 0;
    for (const USBConfiguration* c : node.configurations) {
        ++records;
        for (const USBInterfaces* i : c->interfaces) {
            records += 1 + i->endpoints.size() + i->hubs.size() + i->hidDevices.size();
            for (const USBHub* hub : i->hubs) records += hub->portStatusBlocks.size();
        }
    }
    EXPECT_EQ(records, static_cast<size_t>(newUSBDevice::maxRecordsPerParse));
    // The allowance ran out among the configurations; the first ones are whole.
    const int configurations = node.getNumObjects();
    EXPECT_TRUE(configurations > 1 && configurations < 40) << configurations;
    EXPECT_EQ(node.configurations[0]->getNumObjects(), 40);
    EXPECT_EQ(node.configurations[0]->interfaces[0]->hubs.at(0)->nNbrPorts, " 4");
    devices.back()->processDeviceInfo();
    EXPECT_EQ(devices.back()->devicesNode->getNumObjects(), configurations) << "a new parse has its allowance again";
}
