// lsusb discovery (counting, cutting, failures) and the records' ownership, stored forms and copies.
#include <random>

#include "common/StringTokenizer.h"
#include "common/TvkError.h"
#include "usb/UsbTestSupport.h"

std::vector<std::string> DeviceTexts(const std::string& raw);

namespace {

class LsusbRoadTest : public UsbComponentTest {
protected:
    TempDir work{true};
};

}  // namespace

TEST_F(LsusbRoadTest, TextIsCutIntoReformattedDeviceTexts) {
    LiteralReader reader(Fixture("fixtures/lsusb_texts/machine.txt"));
    EXPECT_EQ(getNumberOfUSBDevices(reader), 6);
    const std::vector<std::string> texts = getVecDeviceInfo(reader);
    ASSERT_EQ(texts.size(), 6u);
    EXPECT_EQ(texts[0].substr(0, 100), "Bus 001 Device 001: ID 1d6b:0002 Linux Foundation 2.0 root hub\n"
                                       " Device Descriptor:\n bLength 18\n bDes");
    EXPECT_EQ(texts[0].substr(texts[0].size() - 25), "\n Device Status: 0x0001\n ");
    EXPECT_EQ(texts[3].find(" iManufacturer 1 SanDisk\n"), texts[3].find(" iManufacturer")) << "blanks squeezed";
    EXPECT_EQ(texts[4].find("Self Powered"), std::string::npos) << "lines behind the status belong to nobody";

    // A first line without a status line before it stays in the block; an
    // unfinished last block is dropped. Any line with Bus, Device and ID counts,
    // the last one twice as the buffer is not cleared.
    const std::string odd = "Bus 001 Device 001: ID 1:1\n iProduct 1 A\nBus 001 Device 002: ID 2:2\nDevice Status: 1\n"
                            "the Bus, the Device and the ID\nDevice Status: 2\nBus 002 Device 001: ID 1d6b:0001\n";
    EXPECT_EQ(DeviceTexts(odd),
              (std::vector<std::string>{"Bus 001 Device 001: ID 1:1\n iProduct 1 A\n Bus 001 Device 002: ID 2:2\n"
                                        " Device Status: 1\n ",
                                        "the Bus, the Device and the ID\n Device Status: 2\n "}));
    LiteralReader counted(odd);
    EXPECT_EQ(getNumberOfUSBDevices(counted), 5);
}

TEST_F(LsusbRoadTest, EachDeviceBlockBecomesADeviceAndFailuresHaveTheirTexts) {
    LiteralReader reader(Fixture("fixtures/lsusb_texts/with_cut_off_block.txt"));
    EXPECT_EQ(getNumberOfUSBDevices(reader), 7) << "the cut-off device has its first line";
    EXPECT_EQ(ParseWithLsusbDevices(reader, component.devices), 0);
    EXPECT_EQ(std::to_string(reader.opened) + std::to_string(reader.closed), "21") << "counted, then counted and cut";
    ASSERT_EQ(component.devices.size(), 6u) << "the cut-off block is lost";
    for (Device* device : component.devices)
        EXPECT_EQ(dynamic_cast<newUSBDevice&>(*device).devicesNode, nullptr) << "parsed when identified, not before";
    EXPECT_EQ(ParseWithLsusbDevices(reader, component.devices), 0);
    EXPECT_EQ(component.devices.size(), 12u) << "a second discovery adds to the set";

    component.PurgeDevices();
    std::filesystem::remove(work.Path("bang1.txt"));
    const std::pair<std::string, bool> failures[] = {
        {"", true}, {"\n  bcdUSB               2.00\nDevice Status:     0x0001\n", true}, {"", false}};
    for (const auto& [text, opens] : failures) {
        LiteralReader failing(text, opens);
        try {
            ParseWithLsusbDevices(failing, component.devices);
            ADD_FAILURE() << "must fail: " << text;
        } catch (const TvkError& error) {
            EXPECT_EQ(error.GetMessage(), opens ? "Device Failed Enumeration" : "Error Creating File");
        }
        EXPECT_FALSE(failing.isOpen) << "the road closes its file on the way out";
        EXPECT_FALSE(std::filesystem::exists(work.Path("bang1.txt"))) << "a text without a device leaves no trace";
    }
    EXPECT_TRUE(component.devices.empty());
}

TEST(LsusbRecords, RecordsOwnTheirChildren) {
    USBDevicesNode node;
    USBConfiguration* config = node.createUSBConfiguration();
    EXPECT_EQ(node.currentConfiguration, config);
    EXPECT_EQ(node.getNumObjects(), 0) << "made, not yet added";
    node.addObjectToVector(config);
    node.addObjectToVector(config);
    EXPECT_EQ(node.getNumObjects(), 1) << "the same child twice would be freed twice";
    USBInterfaces* interface = config->createUSBInterfaces();
    interface->createUSBEndpoints();  // never added: still freed with its parent
    interface->addObjectToHubVector(interface->createUSBHub());
    interface->currentHub->addObjectToVector(" Hub Port Status:\n");
    EXPECT_EQ(interface->getNumHubObjects(), 1);
    EXPECT_EQ(interface->getNumEndpointObjects(), 0);
    EXPECT_EQ(interface->currentHub->getNumObjects(), 1);
    config->createUSBInterfaces();  // replaces the unadded one without a leak
    EXPECT_EQ(config->getNumObjects(), 0);
    for (const char* name : {"USBDevicesNode", "USBConfiguration", "USBInterfaces", "USBEndpoints", "USBHidDevices",
                             "USBHub", "newUSBDevice", "newusbRootHubTest"}) {
        std::unique_ptr<Persistent> made(PersistentClassRegistry::Create(name));
        ASSERT_NE(made, nullptr) << name;
        EXPECT_STREQ(made->GetRealClassName(), name);
    }
}

TEST_F(LsusbRoadTest, StoredFormsHoldTheStringsOnly) {
    auto fields = [](USBDevicesNode& n) {
        return std::vector<std::string*>{&n.bLength,         &n.bDescriptorType,    &n.bcdUSB,          &n.bDeviceClass,
                                         &n.bDeviceSubClass, &n.bDeviceProtocol,    &n.bMaxPacketSize0, &n.idVendor,
                                         &n.idProduct,       &n.bcdDevice,          &n.iManufacturer,   &n.iProduct,
                                         &n.iSerial,         &n.bNumConfigurations, &n.deviceStatus};
    };
    // A device keeps its node's strings and the caption counter, not its text nor the node's children.
    newUSBDevice device(DeviceTexts(Fixture("fixtures/lsusb_texts/machine.txt")).at(3));
    device.ID(false);
    USBDevicesNode& node = *device.devicesNode;
    ASSERT_GT(node.getNumObjects(), 0);
    for (size_t i = 0; i < 15; ++i) *fields(node)[i] = " " + std::to_string(i);
    optstream out;
    out << static_cast<const Persistent*>(&device);
    newUSBDevice::index = 41;
    iptstream in = iptstream::FromMemory(out.GetBuffer());
    Persistent* read = nullptr;
    in >> read;
    std::unique_ptr<newUSBDevice> restored(dynamic_cast<newUSBDevice*>(read));
    ASSERT_NE(restored, nullptr);
    ASSERT_NE(restored->devicesNode, nullptr);
    EXPECT_EQ(newUSBDevice::index, 1) << "the stored counter comes back";
    EXPECT_EQ(restored->name, device.name);
    EXPECT_EQ(restored->deviceInfo, "") << "the text is not stored";
    EXPECT_EQ(restored->devicesNode->getNumObjects(), 0) << "nor the node's children";
    for (size_t i = 0; i < 15; ++i) EXPECT_EQ(*fields(*restored->devicesNode)[i], *fields(node)[i]) << i;
    // Hub and configuration records keep their strings, the hub no port blocks.
    USBHub hub;
    hub.PortPwrCtrlMask = " 0xff";
    hub.nNbrPorts = " 4";
    hub.addObjectToVector("block");
    node.configurations[0]->MaxPower = " 100mA";
    std::unique_ptr<USBHub> h = RoundTrip<USBHub>(hub);
    std::unique_ptr<USBConfiguration> c = RoundTrip<USBConfiguration>(*node.configurations[0]);
    ASSERT_NE(h, nullptr);
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(h->nNbrPorts, " 4");
    EXPECT_EQ(h->PortPwrCtrlMask, " 0xff");
    EXPECT_EQ(h->getNumObjects(), 0);
    EXPECT_EQ(c->MaxPower, " 100mA");

    // Copies take the strings and no children.
    std::unique_ptr<Persistent> copy(node.CreateCopy());
    USBDevicesNode& twin = dynamic_cast<USBDevicesNode&>(*copy);
    EXPECT_EQ(twin.iSerial, " 12");
    EXPECT_EQ(twin.getNumObjects(), 0);
    EXPECT_EQ(twin.currentConfiguration, nullptr);
    USBDevicesNode assigned;
    assigned.createUSBConfiguration();
    assigned = node;
    EXPECT_EQ(assigned.idVendor, " 7");
    EXPECT_EQ(assigned.getNumObjects(), 0);
    std::unique_ptr<Persistent> deviceCopy(device.CreateCopy());
    newUSBDevice& twinDevice = dynamic_cast<newUSBDevice&>(*deviceCopy);
    EXPECT_EQ(twinDevice.deviceInfo, device.deviceInfo);
    EXPECT_EQ(twinDevice.devicesNode, nullptr);
    EXPECT_STREQ(twinDevice.GetClassName(), "usbDevice");
}

// The trace of the cut: each reformatted line, "reformat" and the line again, appended, with the read that meets
// the end reformatting what strtok left of the last line. The same bytes whether the road holds the file open for
// the whole text or each line opens it; a trace that cannot be written changes no block.
TEST_F(LsusbRoadTest, TheTraceHasItsBytesHeldOrNotAndIsNoPartOfTheResult) {
    const std::string text = "Bus 001 Device 002: ID 1:2\n  Device Status:   1\n  Self  Powered\n";
    const std::string block = "Bus 001 Device 002: ID 1:2\n Device Status: 1\n ";
    const std::string trace = "Bus 001 Device 002: ID 1:2\n reformat Bus 001 Device 002: ID 1:2\n \n"
                              "Device Status: 1\n reformat Device Status: 1\n \n"
                              "Self Powered\n reformat Self Powered\n \nSelf reformat Self \n";
    const auto cut = [](const std::string& raw) {
        LiteralReader reader(raw);
        return getVecDeviceInfo(reader);
    };
    work.Write("bang1.txt", "earlier\n");
    EXPECT_EQ(cut(text), std::vector<std::string>{block});
    EXPECT_EQ(work.Read("bang1.txt"), "earlier\n" + trace);

    // Line by line without a hold, and a hold around the road's own.
    std::filesystem::remove(work.Path("bang1.txt"));
    USBInfoReader reader;
    char line[USBInfoReader::lineBufferSize] = "  Self  Powered\n";
    EXPECT_EQ(reader.reformatLine(line), "Self Powered\n ");
    EXPECT_STREQ(line, "  Self") << "cut as strtok cuts";
    EXPECT_EQ(reader.reformatLine(line), "Self ");
    EXPECT_EQ(work.Read("bang1.txt"), "Self Powered\n reformat Self Powered\n \nSelf reformat Self \n");
    std::filesystem::remove(work.Path("bang1.txt"));
    LiteralReader literal(text);
    {
        const USBInfoReader::TraceHold outer(literal);
        EXPECT_EQ(getVecDeviceInfo(literal), std::vector<std::string>{block});
    }
    EXPECT_EQ(work.Read("bang1.txt"), trace);

    // A trace of many writes keeps its order; one that cannot be opened leaves the blocks as they are.
    std::string many, expected;
    for (int i = 0; i < 3000; ++i) {
        const std::string first = "Bus 1 Device " + std::to_string(i) + ": ID 1:1";
        many += first + "\nDevice Status: 0\n";
        for (const std::string& reformatted : {first + "\n ", std::string("Device Status: 0\n ")})
            expected += reformatted + "reformat " + reformatted + "\n";
    }
    expected += "Device reformat Device \n";
    std::filesystem::remove(work.Path("bang1.txt"));
    const std::vector<std::string> traced = cut(many);
    ASSERT_EQ(traced.size(), 3000u);
    const std::string written = work.Read("bang1.txt");
    ASSERT_EQ(written.size(), expected.size());
    const auto differ = std::mismatch(written.begin(), written.end(), expected.begin()).first;
    EXPECT_TRUE(differ == written.end()) << "first difference at " << differ - written.begin();
    std::filesystem::remove(work.Path("bang1.txt"));
    std::filesystem::create_directory(work.Path("bang1.txt"));
    EXPECT_EQ(cut(many), traced);
    EXPECT_TRUE(std::filesystem::is_directory(work.Path("bang1.txt")));
}

// Lines of every shape (blank runs of any length, more than a read's buffer) reformat as strtok would cut them.
TEST_F(LsusbRoadTest, LinesAreReformattedAndCutAsStrtokCutsThem) {
    std::mt19937 random(16);
    USBInfoReader reader;
    const USBInfoReader::TraceHold hold(reader);
    for (int round = 0; round < 3000; ++round) {
        std::string text(random() % 300, ' ');
        for (char& c : text) c = " a\tb\n\xa1"[random() % (round % 2 ? 2 : 6)];
        std::string ours = text, strtokCopy = text;
        std::string want;
        for (char* token = std::strtok(&strtokCopy[0], " "); token; token = std::strtok(nullptr, " "))
            want += std::string(token) + " ";
        ASSERT_EQ(reader.reformatLine(&ours[0]), want) << "[" << text << "]";
        ASSERT_EQ(ours, strtokCopy) << "cut as strtok cuts: [" << text << "]";
    }
}

// The words behind a value's number and a hub's port lines are taken as a tokenizer takes them, on texts of every
// shape (empty, blanks or newlines at either end or in a row).
TEST(LsusbReader, WordsAndPortLinesAreTakenAsATokenizerTakesThem) {
    std::mt19937 random(16);
    const char* const pieces[] = {" ", "\n", "a", "0x05", "Hub Port Status:", "Device Status:", " Port 1: 0000.0100"};
    for (int round = 0; round < 2000; ++round) {
        std::string text;
        for (int n = random() % 8; n > 0; --n) text += pieces[random() % 7];
        StringTokenizer words(text, " ");
        std::string more;
        if (words.HasMoreTokens()) {
            const std::string first = words.NextToken();
            more = words.HasMoreTokens() ? words.LeftOverString() : first;
        }
        EXPECT_EQ(USBInfoReader::extractMoreIn(text), more) << "[" << text << "]";
        StringTokenizer lines(text, "\n");
        std::list<std::string> ports;
        while (lines.HasMoreTokens()) {
            const std::string line = lines.NextToken();
            if (line.find("Hub Port Status:") == std::string::npos && line.find("Device Status:") == std::string::npos)
                ports.push_back(line);
        }
        EXPECT_EQ(USBInfoReader::processHubPorts(text), ports) << "[" << text << "]";
    }
}
