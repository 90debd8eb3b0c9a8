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

namespace {

// A record field, its text and the text it should have; FIELD names it after the expression.
struct Field {
    const char* name;
    std::string got, want;
};
#define FIELD(expression, expected) \
    Field { #expression, expression, expected }

// Whether every field has its text; a failure names each one that differs.
::testing::AssertionResult Fields(std::initializer_list<Field> fields) {
    std::string wrong;
    for (const Field& f : fields)
        if (f.got != f.want) wrong += std::string("\n  ") + f.name + " is \"" + f.got + "\", not \"" + f.want + "\"";
    if (wrong.empty()) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "fields that differ:" << wrong;
}

}  // namespace

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

// The device, configuration, interface, endpoint, hub and HID gates, each "1" when open.
::testing::AssertionResult Gates(const char* device, const char* configuration, const char* interface,
                                 const char* endpoint, const char* hub, const char* hid) {
    const auto text = [](bool open) { return std::string(open ? "1" : "0"); };
    return Fields({{"device gate", text(newUSBDevice::bDeviceDescriptor), device},
                   {"configuration gate", text(newUSBDevice::bConfigurationDescriptor), configuration},
                   {"interface gate", text(newUSBDevice::bInterfaceDescriptor), interface},
                   {"endpoint gate", text(newUSBDevice::bEndpointDescriptor), endpoint},
                   {"hub gate", text(newUSBDevice::bHubDescriptor), hub},
                   {"HID gate", text(newUSBDevice::bHidDeviceDescriptor), hid}});
}

const std::string head = "Bus 003 Device 007: ID 1234:5678 Maker Thing\nDevice Descriptor:\n"
                         "  bLength                18\n"
                         "  idVendor           0x1234 Maker\n  iProduct                2 Thing\n";
const std::string config = "  Configuration Descriptor:\n    bConfigurationValue     1\n";
const std::string hubPart = "Hub Descriptor:\n  bDescriptorType      41\n  nNbrPorts             4\n"
                            " Hub Port Status:\n   Port 1: 0000.0100 power\n";
const std::string status = "Device Status:     0x0001\n  Self Powered\n";
std::string Iface(const std::string& number, const std::string& cls) {
    return "    Interface Descriptor:\n      bLength                 9\n      bDescriptorType         4\n"
           "      bInterfaceNumber        " +
           number + "\n      bInterfaceClass       " + cls + "\n";
}
std::string Hid(const std::string& length) {
    return "        HID Device Descriptor:\n          bLength                 9\n          bcdHID               1.11\n"
           "          bDescriptorType        34 Report\n          wDescriptorLength      " +
           length + "\n";
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
    EXPECT_TRUE(Fields({FIELD(node.bLength, " 18"), FIELD(node.bcdUSB, " 2.00"), FIELD(node.bDeviceClass, " 9 Hub"),
                        FIELD(node.bDeviceSubClass, " 0 "), FIELD(node.bDeviceProtocol, " 0 Full speed (or root) hub"),
                        FIELD(node.bMaxPacketSize0, " 64"), FIELD(node.idVendor, " 0x1d6b Linux Foundation"),
                        FIELD(node.idProduct, " 0x0002 2.0 root hub"), FIELD(node.bcdDevice, " 6.01"),
                        FIELD(node.iManufacturer, " 3 Linux 6.1.0-13-amd64 ehci_hcd"),
                        FIELD(node.iProduct, " 2 EHCI Host Controller"), FIELD(node.iSerial, " 1 0000:00:1d.7"),
                        FIELD(node.bNumConfigurations, " 1"), FIELD(node.deviceStatus, "")}))
        << "the device level stops at the configuration";
    ASSERT_EQ(node.getNumObjects(), 1);
    const USBConfiguration& c = *node.configurations[0];
    EXPECT_TRUE(Fields({FIELD(c.bDescriptorType, " 2"), FIELD(c.wTotalLength, " 0x0019"),
                        FIELD(c.bmAttributes, " 0xe0"), FIELD(c.MaxPower, " 0mA")}));
    ASSERT_EQ(c.getNumObjects(), 1);
    const USBInterfaces& i = *c.interfaces[0];
    EXPECT_TRUE(
        Fields({FIELD(i.bDescriptorType, " 4"), FIELD(i.bInterfaceClass, " 9 Hub"), FIELD(i.iInterface, " 0 ")}));
    ASSERT_EQ(i.getNumEndpointObjects(), 1);
    const USBEndpoints& e = *i.endpoints[0];
    EXPECT_TRUE(Fields({FIELD(e.bLength, " 7"), FIELD(e.bEndpointAddress, " 0x81 EP 1 IN"), FIELD(e.bmAttributes, " 3"),
                        FIELD(e.transferType, " Interrupt"), FIELD(e.synchType, " None"), FIELD(e.usageType, " Data"),
                        FIELD(e.wMaxPacketSize, " 0x0004 1x 4 bytes"), FIELD(e.bInterval, " 12")}));
    EXPECT_EQ(i.getNumHidObjects(), 0);
    ASSERT_EQ(i.getNumHubObjects(), 1);
    const USBHub& h = *i.hubs[0];
    EXPECT_TRUE(Fields({FIELD(h.bLength, " 9"), FIELD(h.bDescriptorType, " 41"), FIELD(h.nNbrPorts, " 2"),
                        FIELD(h.wHubCharacteristic, " 0x000a"), FIELD(h.bPwrOn2PwrGood, " 10 * 2 milli seconds"),
                        FIELD(h.bHubContrCurrent, " 0 milli Ampere"), FIELD(h.DeviceRemovable, " 0x00"),
                        FIELD(h.PortPwrCtrlMask, " 0xff")}));
    EXPECT_EQ(h.getVecPortStatusBlocks(),
              std::vector<std::string>{" Hub Port Status:\n Port 1: 0000.0503 highspeed power enable connect\n"
                                       " Port 2: 0000.0100 power\n Device Status: 0x0001\n"});
    EXPECT_TRUE(Gates("0", "0", "0", "0", "0", "1"));

    // The HID descriptor overwrites the interface's length and type.
    const USBInterfaces& mouse = *Parse(texts[4]).configurations.at(0)->interfaces.at(0);
    EXPECT_EQ(mouse.bInterfaceClass, " 3 Human Interface Device");
    EXPECT_EQ(mouse.bDescriptorType, " 34 Report");
    ASSERT_EQ(mouse.getNumHidObjects(), 1);
    EXPECT_EQ(mouse.getNumHubObjects(), 0);
    const USBHidDevices& hid = *mouse.hidDevices[0];
    EXPECT_TRUE(Fields({FIELD(hid.bLength, " 9"), FIELD(hid.bDescriptorType, " 34 Report"), FIELD(hid.bcdHID, " 1.11"),
                        FIELD(hid.bCountryCode, " 0 Not supported"), FIELD(hid.bNumDescriptors, " 1"),
                        FIELD(hid.wDescriptorLength, " 46")}));
    EXPECT_TRUE(Gates("0", "0", "0", "0", "1", "0"));

    // A second configuration is blank, its first interface is not: every interface block lies under every
    // configuration.
    USBDevicesNode& two = Parse(texts[5]);
    ASSERT_EQ(two.getNumObjects(), 2);
    EXPECT_TRUE(
        Fields({FIELD(two.bNumConfigurations, " 2"), FIELD(two.configurations[0]->bConfigurationValue, " 1"),
                FIELD(two.configurations[1]->bConfigurationValue, ""), FIELD(two.configurations[1]->MaxPower, "")}));
    for (const USBConfiguration* config : two.configurations) {
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
    EXPECT_EQ(plain.deviceStatus, " 0x0001") << "no configuration: read on to the status";
    EXPECT_EQ(plain.iProduct, " 2 Thing");
    EXPECT_EQ(plain.getNumObjects(), 0);
    EXPECT_TRUE(Gates("1", "0", "0", "0", "0", "0")) << "nothing closes the device gate";
    // The open gate fills a text without "Device Descriptor:"...
    const std::string headless = "Bus 003 Device 008: ID 1234:5679\n  idVendor 0x1234 Other\n" + status;
    EXPECT_EQ(Parse(DeviceText(headless)).idVendor, " 0x1234 Other");
    // ...but not after a device whose configuration closed it.
    Parse(DeviceText(head + config + status));
    EXPECT_TRUE(Gates("0", "1", "0", "0", "0", "0"));
    EXPECT_EQ(Parse(DeviceText(headless)).idVendor, "");
}

TEST_F(LsusbParserTest, GatesFillOnlyTheFirstRecordOfALevel) {
    USBDevicesNode& node = Parse(DeviceText(head + config + Iface("0", "3 HID") + Hid("46") + Endpoint("0x81", "10") +
                                            Iface("1", "3 HID") + Hid("99") + Endpoint("0x82", "20") + status));
    ASSERT_EQ(node.getNumObjects(), 1);
    ASSERT_EQ(node.configurations[0]->getNumObjects(), 2);
    const USBInterfaces& first = *node.configurations[0]->interfaces[0];
    const USBInterfaces& second = *node.configurations[0]->interfaces[1];
    ASSERT_EQ(first.getNumEndpointObjects(), 2);
    ASSERT_EQ(first.getNumHidObjects(), 2);
    ASSERT_EQ(second.getNumEndpointObjects(), 2);
    EXPECT_EQ(second.getNumHidObjects(), 0);
    EXPECT_TRUE(
        Fields({FIELD(first.bInterfaceNumber, " 0"), FIELD(first.endpoints[0]->bEndpointAddress, " 0x81"),
                FIELD(first.endpoints[1]->bEndpointAddress, ""), FIELD(first.hidDevices[0]->wDescriptorLength, " 46"),
                FIELD(first.hidDevices[1]->wDescriptorLength, "")}));
    // The second interface is blank and holds the first endpoint block again.
    EXPECT_TRUE(
        Fields({FIELD(second.bInterfaceNumber, ""), FIELD(second.bInterfaceClass, ""),
                FIELD(second.endpoints[0]->bEndpointAddress, " 0x81"), FIELD(second.endpoints[1]->bInterval, "")}));

    // An interface needs an endpoint line to close it: alone it is no record, ahead of another the later values
    // win.
    ResetLsusbState();
    const USBDevicesNode& alone = Parse(DeviceText(head + config + Iface("0", "8 Mass") + status));
    EXPECT_EQ(alone.configurations.at(0)->getNumObjects(), 0);
    ResetLsusbState();
    USBDevicesNode& merged =
        Parse(DeviceText(head + config + Iface("0", "8 Mass") + Iface("1", "2 Comm") + Endpoint("0x81", "4") + status));
    ASSERT_EQ(merged.configurations.at(0)->getNumObjects(), 1);
    const USBInterfaces& interface = *merged.configurations[0]->interfaces[0];
    EXPECT_EQ(interface.bInterfaceNumber, " 1");
    EXPECT_EQ(interface.bInterfaceClass, " 2 Comm");
    ASSERT_EQ(interface.getNumEndpointObjects(), 1);
    EXPECT_EQ(interface.endpoints[0]->bInterval, " 4");

    // The class digits pick the HID or the hub branch.
    const struct {
        const char* cls;
        int hids, hubs;
    } branches[] = {{"239 Miscellaneous Device", 1, 0},
                    {"39 Odd", 1, 0},
                    {"9 Hub", 0, 1},
                    {"8 Mass Storage", 0, 0},
                    {"255 Vendor", 0, 0}};
    for (const auto& b : branches) {
        SCOPED_TRACE(b.cls);
        ResetLsusbState();
        const USBInterfaces& i =
            *Parse(DeviceText(head + config + Iface("0", b.cls) + Hid("52") + Endpoint("0x81", "8") + hubPart + status))
                 .configurations.at(0)
                 ->interfaces.at(0);
        EXPECT_EQ(i.getNumHidObjects(), b.hids);
        ASSERT_EQ(i.getNumHubObjects(), b.hubs);
        EXPECT_EQ(i.getNumEndpointObjects(), 1);
        if (b.hubs == 1) {
            EXPECT_EQ(i.hubs[0]->nNbrPorts, " 4");
            EXPECT_EQ(i.hubs[0]->getNumObjects(), 1);
        }
    }
}

TEST_F(LsusbParserTest, NullRecordsAndKeywordsWithNothingBehindFail) {
    newUSBDevice device("");
    const std::string t = DeviceText(head + status);
    const std::vector<std::function<void()>> calls = {[&] { device.addInformationToDeviceNode(t, nullptr); },
                                                      [&] { device.addInformationToConfigNode(t, nullptr, t); },
                                                      [&] { device.addInformationToInterfaceNode(t, nullptr, t); },
                                                      [&] { device.addInformationToEndpointNode(t, nullptr, t); },
                                                      [&] { device.addInformationToHubNode(t, nullptr, t); },
                                                      [&] { device.addInformationToHidNode(t, nullptr, t); },
                                                      [&] { device.addInformationToDevice(t, nullptr); },
                                                      [&] { device.addInformationToConfig(t, nullptr); },
                                                      [&] { device.addInformationToInterface(t, nullptr); },
                                                      [&] { device.addInformationToEndpoint(t, nullptr); },
                                                      [&] { device.addInformationToHub(t, nullptr); },
                                                      [&] { device.addInformationToHid(t, nullptr); }};
    for (size_t i = 0; i < calls.size(); ++i) {
        try {
            calls[i]();
            ADD_FAILURE() << "a null record must be refused: operation " << i;
        } catch (const TvkError& error) {
            EXPECT_EQ(error.GetMessage(), "Device Failed Enumeration") << "operation " << i;
            EXPECT_EQ(error.GetDetail(), "") << "operation " << i;
        }
    }
    EXPECT_TRUE(Gates("0", "0", "0", "0", "0", "0")) << "a refused call changes no gate";

    newUSBDevice::bDeviceDescriptor = true;
    newUSBDevice cut("bLength\n Device Status: 0x0000\n ");
    EXPECT_THROW(cut.processDeviceInfo(), std::out_of_range);
    ASSERT_NE(cut.devicesNode, nullptr) << "the new node is in place before the parse";
    EXPECT_TRUE(cut.devicesNode->deviceStatus.empty());
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
    EXPECT_GT(configurations, 1);
    EXPECT_LT(configurations, 40);
    EXPECT_EQ(node.configurations[0]->getNumObjects(), 40);
    EXPECT_EQ(node.configurations[0]->interfaces[0]->hubs.at(0)->nNbrPorts, " 4");
    devices.back()->processDeviceInfo();
    EXPECT_EQ(devices.back()->devicesNode->getNumObjects(), configurations) << "a new parse has its allowance again";
}
