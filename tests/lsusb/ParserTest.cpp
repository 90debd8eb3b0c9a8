// The per-device parser: what each level stores (raw, with its leading
// blank), how blocks are cut, how the class-wide gates fill only the first
// record of a level and carry from one device to the next, the class digits
// that pick the HID or the hub branch, and odd text.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>

#include "LsusbSupport.h"
#include "common/TvkError.h"
#include "tc/usb/linux/newUSBDevice.h"

namespace {

class LsusbParserTest : public ::testing::Test {
protected:
    void SetUp() override { ResetLsusbState(); }

    // Parses `text` on a device of its own (kept alive for the records).
    USBDevicesNode& Parse(const std::string& text) {
        devices.emplace_back(new newUSBDevice(text));
        devices.back()->processDeviceInfo();
        return *devices.back()->devicesNode;
    }
    std::vector<std::unique_ptr<newUSBDevice>> devices;
};

struct Gates {
    bool device, configuration, interface, endpoint, hub, hid;
    bool operator==(const Gates& o) const {
        return device == o.device && configuration == o.configuration && interface == o.interface &&
               endpoint == o.endpoint && hub == o.hub && hid == o.hid;
    }
};
std::ostream& operator<<(std::ostream& out, const Gates& g) {
    return out << g.device << g.configuration << g.interface << g.endpoint << g.hub << g.hid;
}
Gates Now() {
    return {newUSBDevice::bDeviceDescriptor, newUSBDevice::bConfigurationDescriptor,
            newUSBDevice::bInterfaceDescriptor, newUSBDevice::bEndpointDescriptor, newUSBDevice::bHubDescriptor,
            newUSBDevice::bHidDeviceDescriptor};
}

const char* const deviceHead =
    "Bus 003 Device 007: ID 1234:5678 Maker Thing\n"
    "Device Descriptor:\n"
    "  bLength                18\n"
    "  idVendor           0x1234 Maker\n"
    "  iProduct                2 Thing\n";
const char* const configHead =
    "  Configuration Descriptor:\n"
    "    bConfigurationValue     1\n";

std::string InterfaceLines(const std::string& number, const std::string& cls) {
    return "    Interface Descriptor:\n"
           "      bLength                 9\n"
           "      bDescriptorType         4\n"
           "      bInterfaceNumber        " + number + "\n"
           "      bInterfaceClass       " + cls + "\n";
}
std::string Hid(const std::string& length) {
    return "        HID Device Descriptor:\n"
           "          bLength                 9\n"
           "          bDescriptorType        33\n"
           "          bcdHID               1.11\n"
           "          bDescriptorType        34 Report\n"
           "          wDescriptorLength      " + length + "\n";
}
std::string Endpoint(const std::string& address, const std::string& interval) {
    return "      Endpoint Descriptor:\n"
           "        bEndpointAddress     " + address + "\n"
           "          Transfer Type            Interrupt\n"
           "        bInterval              " + interval + "\n";
}
const char* const hubPart =
    "Hub Descriptor:\n"
    "  bLength               9\n"
    "  bDescriptorType      41\n"
    "  nNbrPorts             4\n"
    " Hub Port Status:\n"
    "   Port 1: 0000.0100 power\n";
const char* const statusLine = "Device Status:     0x0001\n  Self Powered\n";

}  // namespace

TEST_F(LsusbParserTest, RootHubFillsEveryLevelWithRawValues) {
    const std::vector<std::string> texts = DeviceTexts(LsusbFixture("machine.txt"));
    ASSERT_EQ(texts.size(), 6u);
    USBDevicesNode& node = Parse(texts[0]);
    EXPECT_EQ(node.bLength, " 18");
    EXPECT_EQ(node.bcdUSB, " 2.00");
    EXPECT_EQ(node.bDeviceClass, " 9 Hub");
    EXPECT_EQ(node.bDeviceSubClass, " 0 ");
    EXPECT_EQ(node.bDeviceProtocol, " 0 Full speed (or root) hub");
    EXPECT_EQ(node.bMaxPacketSize0, " 64");
    EXPECT_EQ(node.idVendor, " 0x1d6b Linux Foundation");
    EXPECT_EQ(node.idProduct, " 0x0002 2.0 root hub");
    EXPECT_EQ(node.bcdDevice, " 6.01");
    EXPECT_EQ(node.iManufacturer, " 3 Linux 6.1.0-13-amd64 ehci_hcd");
    EXPECT_EQ(node.iProduct, " 2 EHCI Host Controller");
    EXPECT_EQ(node.iSerial, " 1 0000:00:1d.7");
    EXPECT_EQ(node.bNumConfigurations, " 1");
    EXPECT_EQ(node.deviceStatus, "") << "the device level stops at the configuration";

    ASSERT_EQ(node.getNumObjects(), 1);
    const USBConfiguration& config = *node.configurations[0];
    EXPECT_EQ(node.currentConfiguration, &config);
    EXPECT_EQ(config.bDescriptorType, " 2");
    EXPECT_EQ(config.wTotalLength, " 0x0019");
    EXPECT_EQ(config.bmAttributes, " 0xe0");
    EXPECT_EQ(config.MaxPower, " 0mA");
    ASSERT_EQ(config.getNumObjects(), 1);
    const USBInterfaces& interface = *config.interfaces[0];
    EXPECT_EQ(interface.bDescriptorType, " 4");
    EXPECT_EQ(interface.bInterfaceClass, " 9 Hub");
    EXPECT_EQ(interface.iInterface, " 0 ");
    ASSERT_EQ(interface.getNumEndpointObjects(), 1);
    const USBEndpoints& endpoint = *interface.endpoints[0];
    EXPECT_EQ(endpoint.bLength, " 7");
    EXPECT_EQ(endpoint.bEndpointAddress, " 0x81 EP 1 IN");
    EXPECT_EQ(endpoint.bmAttributes, " 3");
    EXPECT_EQ(endpoint.transferType, " Interrupt");
    EXPECT_EQ(endpoint.synchType, " None");
    EXPECT_EQ(endpoint.usageType, " Data");
    EXPECT_EQ(endpoint.wMaxPacketSize, " 0x0004 1x 4 bytes");
    EXPECT_EQ(endpoint.bInterval, " 12");
    EXPECT_EQ(interface.getNumHidObjects(), 0);
    ASSERT_EQ(interface.getNumHubObjects(), 1);
    const USBHub& hub = *interface.hubs[0];
    EXPECT_EQ(hub.bLength, " 9");
    EXPECT_EQ(hub.bDescriptorType, " 41");
    EXPECT_EQ(hub.nNbrPorts, " 2");
    EXPECT_EQ(hub.wHubCharacteristic, " 0x000a");
    EXPECT_EQ(hub.bPwrOn2PwrGood, " 10 * 2 milli seconds");
    EXPECT_EQ(hub.bHubContrCurrent, " 0 milli Ampere");
    EXPECT_EQ(hub.DeviceRemovable, " 0x00");
    EXPECT_EQ(hub.PortPwrCtrlMask, " 0xff");
    EXPECT_EQ(hub.getVecPortStatusBlocks(),
              std::vector<std::string>{" Hub Port Status:\n Port 1: 0000.0503 highspeed power enable connect\n"
                                       " Port 2: 0000.0100 power\n Device Status: 0x0001\n"});
    EXPECT_EQ(Now(), (Gates{false, false, false, false, false, true}));
}

TEST_F(LsusbParserTest, BlocksRunFromStartLineThroughEndLine) {
    newUSBDevice device("");
    const std::string text = "a\n S one\n b\n E two\n c\n S E\n S\n S again\n E\n S open\n d\n";
    EXPECT_EQ(device.getVecInfo(text, "S", "E"),
              (std::vector<std::string>{" S one\n b\n E two\n", " S E\n", " S\n S again\n E\n"}));
    EXPECT_TRUE(device.getVecInfo(text, "X", "E").empty());
    EXPECT_TRUE(device.getVecInfo("", "S", "E").empty());
}

TEST_F(LsusbParserTest, DeviceWithoutConfigurationReadsOnToItsStatus) {
    USBDevicesNode& plain = Parse(DeviceText(std::string(deviceHead) + statusLine));
    EXPECT_EQ(plain.deviceStatus, " 0x0001");
    EXPECT_EQ(plain.iProduct, " 2 Thing");
    EXPECT_EQ(plain.getNumObjects(), 0);
    EXPECT_TRUE(newUSBDevice::bDeviceDescriptor) << "nothing closes the device gate";

    // The open gate carries over: a text without "Device Descriptor:" still
    // fills its node...
    const std::string headless = "Bus 003 Device 008: ID 1234:5679\n  idVendor 0x1234 Other\n" + std::string(statusLine);
    EXPECT_EQ(Parse(DeviceText(headless)).idVendor, " 0x1234 Other");
    // ...but not after a device whose configuration closed it.
    Parse(DeviceText(std::string(deviceHead) + configHead + statusLine));
    EXPECT_FALSE(newUSBDevice::bDeviceDescriptor);
    EXPECT_EQ(Parse(DeviceText(headless)).idVendor, "");
}

TEST_F(LsusbParserTest, InterfacesNeedAClosingEndpointLine) {
    // The last interface has no endpoint: no block, no record.
    USBDevicesNode& alone = Parse(DeviceText(std::string(deviceHead) + configHead + InterfaceLines("0", "8 Mass") + statusLine));
    ASSERT_EQ(alone.getNumObjects(), 1);
    EXPECT_EQ(alone.configurations[0]->getNumObjects(), 0);

    // One without endpoints ahead of another merges with it; the later values win.
    ResetLsusbState();
    USBDevicesNode& merged = Parse(DeviceText(std::string(deviceHead) + configHead + InterfaceLines("0", "8 Mass") +
                                              InterfaceLines("1", "2 Comm") + Endpoint("0x81", "4") + statusLine));
    ASSERT_EQ(merged.configurations[0]->getNumObjects(), 1);
    const USBInterfaces& interface = *merged.configurations[0]->interfaces[0];
    EXPECT_EQ(interface.bInterfaceNumber, " 1");
    EXPECT_EQ(interface.bInterfaceClass, " 2 Comm");
    ASSERT_EQ(interface.getNumEndpointObjects(), 1);
    EXPECT_EQ(interface.endpoints[0]->bInterval, " 4");
}

TEST_F(LsusbParserTest, HidDescriptorOverwritesInterfaceLengthAndType) {
    const std::vector<std::string> texts = DeviceTexts(LsusbFixture("machine.txt"));
    ASSERT_EQ(texts.size(), 6u);
    USBDevicesNode& mouse = Parse(texts[4]);
    const USBInterfaces& interface = *mouse.configurations.at(0)->interfaces.at(0);
    EXPECT_EQ(interface.bInterfaceClass, " 3 Human Interface Device");
    EXPECT_EQ(interface.bDescriptorType, " 34 Report");
    EXPECT_EQ(interface.getNumHubObjects(), 0);
    ASSERT_EQ(interface.getNumHidObjects(), 1);
    const USBHidDevices& hid = *interface.hidDevices[0];
    EXPECT_EQ(hid.bLength, " 9");
    EXPECT_EQ(hid.bDescriptorType, " 34 Report");
    EXPECT_EQ(hid.bcdHID, " 1.11");
    EXPECT_EQ(hid.bCountryCode, " 0 Not supported");
    EXPECT_EQ(hid.bNumDescriptors, " 1");
    EXPECT_EQ(hid.wDescriptorLength, " 46");
    EXPECT_EQ(Now(), (Gates{false, false, false, false, true, false}));
}

TEST_F(LsusbParserTest, ClassDigitsPickTheBranch) {
    struct Case {
        const char* cls;
        int hid, hubs;
    };
    for (const Case& c : {Case{"239 Miscellaneous Device", 1, 0}, Case{"39 Odd", 1, 0}, Case{"9 Hub", 0, 1},
                          Case{"8 Mass Storage", 0, 0}, Case{"255 Vendor Specific Class", 0, 0}}) {
        SCOPED_TRACE(c.cls);
        ResetLsusbState();
        USBDevicesNode& node = Parse(DeviceText(std::string(deviceHead) + configHead + InterfaceLines("0", c.cls) +
                                                Hid("52") + Endpoint("0x81", "8") + hubPart + statusLine));
        const USBInterfaces& interface = *node.configurations.at(0)->interfaces.at(0);
        EXPECT_EQ(interface.getNumHidObjects(), c.hid);
        EXPECT_EQ(interface.getNumHubObjects(), c.hubs);
        EXPECT_EQ(interface.getNumEndpointObjects(), 1);
        if (c.hubs) {
            EXPECT_EQ(interface.hubs[0]->nNbrPorts, " 4");
            EXPECT_EQ(interface.hubs[0]->getNumObjects(), 1);
        }
    }
}

TEST_F(LsusbParserTest, GatesFillOnlyTheFirstRecordOfALevel) {
    // Two interfaces, each with a HID descriptor and one endpoint.
    USBDevicesNode& node = Parse(DeviceText(std::string(deviceHead) + configHead + InterfaceLines("0", "3 HID") + Hid("46") +
                                            Endpoint("0x81", "10") + InterfaceLines("1", "3 HID") + Hid("99") +
                                            Endpoint("0x82", "20") + statusLine));
    ASSERT_EQ(node.getNumObjects(), 1);
    const USBConfiguration& config = *node.configurations[0];
    ASSERT_EQ(config.getNumObjects(), 2);
    const USBInterfaces& first = *config.interfaces[0];
    const USBInterfaces& second = *config.interfaces[1];
    EXPECT_EQ(first.bInterfaceNumber, " 0");
    ASSERT_EQ(first.getNumEndpointObjects(), 2);
    EXPECT_EQ(first.endpoints[0]->bEndpointAddress, " 0x81");
    EXPECT_EQ(first.endpoints[1]->bEndpointAddress, "");
    ASSERT_EQ(first.getNumHidObjects(), 2);
    EXPECT_EQ(first.hidDevices[0]->wDescriptorLength, " 46");
    EXPECT_EQ(first.hidDevices[1]->wDescriptorLength, "");
    EXPECT_EQ(second.bInterfaceNumber, "");
    EXPECT_EQ(second.bInterfaceClass, "");
    ASSERT_EQ(second.getNumEndpointObjects(), 2);
    EXPECT_EQ(second.endpoints[0]->bEndpointAddress, " 0x81") << "the first endpoint block again";
    EXPECT_EQ(second.endpoints[1]->bInterval, "");
    EXPECT_EQ(second.getNumHidObjects(), 0);
}

TEST_F(LsusbParserTest, SecondConfigurationIsBlankButItsFirstInterfaceIsNot) {
    const std::vector<std::string> texts = DeviceTexts(LsusbFixture("machine.txt"));
    ASSERT_EQ(texts.size(), 6u);
    USBDevicesNode& node = Parse(texts[5]);
    EXPECT_EQ(node.bNumConfigurations, " 2");
    ASSERT_EQ(node.getNumObjects(), 2);
    EXPECT_EQ(node.configurations[0]->bConfigurationValue, " 1");
    EXPECT_EQ(node.configurations[1]->bConfigurationValue, "");
    EXPECT_EQ(node.configurations[1]->MaxPower, "");
    for (const USBConfiguration* config : node.configurations) {
        // Every interface block of the text under every configuration.
        ASSERT_EQ(config->getNumObjects(), 2);
        EXPECT_EQ(config->interfaces[0]->bInterfaceClass, " 255 Vendor Specific Class");
        EXPECT_EQ(config->interfaces[1]->bInterfaceClass, "");
        for (const USBInterfaces* interface : config->interfaces) {
            ASSERT_EQ(interface->getNumEndpointObjects(), 2);
            EXPECT_EQ(interface->endpoints[0]->bEndpointAddress, " 0x81 EP 1 IN");
            EXPECT_EQ(interface->endpoints[1]->bEndpointAddress, "");
        }
    }
}

TEST_F(LsusbParserTest, NullRecordsAreRefused) {
    newUSBDevice device("");
    const std::string text = DeviceText(std::string(deviceHead) + statusLine);
    std::vector<std::function<void()>> calls = {
        [&] { device.addInformationToDeviceNode(text, nullptr); },
        [&] { device.addInformationToConfigNode(text, nullptr, text); },
        [&] { device.addInformationToInterfaceNode(text, nullptr, text); },
        [&] { device.addInformationToEndpointNode(text, nullptr, text); },
        [&] { device.addInformationToHubNode(text, nullptr, text); },
        [&] { device.addInformationToHidNode(text, nullptr, text); },
        [&] { device.addInformationToDevice(text, nullptr); },
        [&] { device.addInformationToConfig(text, nullptr); },
        [&] { device.addInformationToInterface(text, nullptr); },
        [&] { device.addInformationToEndpoint(text, nullptr); },
        [&] { device.addInformationToHub(text, nullptr); },
        [&] { device.addInformationToHid(text, nullptr); },
    };
    for (size_t i = 0; i < calls.size(); ++i) {
        SCOPED_TRACE("operation " + std::to_string(i));
        try {
            calls[i]();
            ADD_FAILURE() << "a null record must be refused";
        } catch (const TvkError& error) {
            EXPECT_EQ(error.GetMessage(), "Device Failed Enumeration");
            EXPECT_EQ(error.GetDetail(), "");
        }
    }
    EXPECT_EQ(Now(), (Gates{false, false, false, false, false, false})) << "a refused call changes no gate";
}

TEST_F(LsusbParserTest, KeywordWithNothingBehindFailsTheCut) {
    newUSBDevice::bDeviceDescriptor = true;
    newUSBDevice device("bLength\n Device Status: 0x0000\n ");
    try {
        device.processDeviceInfo();
        ADD_FAILURE() << "the cut must fail";
    } catch (const std::out_of_range& error) {
        EXPECT_STREQ(error.what(), "basic_string::substr");
    }
    ASSERT_NE(device.devicesNode, nullptr) << "the new node is in place before the parse";
    EXPECT_EQ(device.devicesNode->deviceStatus, "");
}

TEST_F(LsusbParserTest, OddTextGivesBoundedRecords) {
    // Every level searches the whole text: 40 configurations, 40 interfaces
    // and 40 endpoints would be 64,000 endpoint records.
    std::string raw = deviceHead;
    for (int i = 0; i < 40; ++i) raw += configHead + InterfaceLines(std::to_string(i), "9 Hub") + Endpoint("0x81", "1");
    raw += std::string(4000, 'x') + " " + std::string(300, 'y') + "\n";
    raw += hubPart;
    raw += statusLine;
    USBDevicesNode& node = Parse(DeviceText(raw));
    size_t records = 0;
    for (const USBConfiguration* config : node.configurations) {
        ++records;
        for (const USBInterfaces* interface : config->interfaces) {
            records += 1 + interface->endpoints.size() + interface->hubs.size() + interface->hidDevices.size();
            for (const USBHub* hub : interface->hubs) records += hub->portStatusBlocks.size();
        }
    }
    EXPECT_EQ(records, static_cast<size_t>(newUSBDevice::maxRecordsPerParse));
    // The allowance ran out among the configurations; the first ones are whole.
    const int configurations = node.getNumObjects();
    EXPECT_GT(configurations, 1);
    EXPECT_LT(configurations, 40);
    EXPECT_EQ(node.configurations[0]->getNumObjects(), 40);
    EXPECT_EQ(node.configurations[0]->interfaces[0]->hubs.at(0)->nNbrPorts, " 4");

    // A new parse has its allowance again.
    devices.back()->processDeviceInfo();
    EXPECT_EQ(devices.back()->devicesNode->getNumObjects(), configurations);
}
