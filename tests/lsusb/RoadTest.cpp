// The discovery road from `lsusb -v` text: counting first lines, cutting
// device texts (the reformatted form, the trace file), the failures, blocks
// cut off at the end, many devices; and the records' life: ownership,
// registration and stored form.
#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <sstream>

#include "LsusbSupport.h"
#include "common/TvkError.h"
#include "tc/usb/linux/Discovery.h"
#include "tc/usb/linux/newUSBDevice.h"
#include "usb/LiteralReader.h"

namespace {

class LsusbRoadTest : public LsusbComponentTest {
protected:
    std::string FailureOf(const std::string& raw, bool opens = true) {
        LiteralReader reader(raw, opens);
        try {
            ParseWithLsusbDevices(reader, component.devices);
        } catch (const TvkError& error) {
            EXPECT_FALSE(reader.isOpen);
            return error.GetMessage();
        }
        return "no failure";
    }
};

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

std::string Generated(int devices) {
    std::string raw;
    for (int i = 0; i < devices; ++i)
        raw += "\nBus 001 Device " + std::to_string(i) + ": ID 0781:5567\nDevice Descriptor:\n  iProduct 2 Stick " +
               std::to_string(i) + "\nDevice Status:     0x0000\n  (Bus Powered)\n";
    return raw;
}

}  // namespace

TEST_F(LsusbRoadTest, DeviceTextsHaveTheReformattedForm) {
    ScopedWorkDir work;
    LiteralReader reader(LsusbFixture("machine.txt"));
    EXPECT_EQ(getNumberOfUSBDevices(reader), 6);
    const std::vector<std::string> texts = getVecDeviceInfo(reader);
    ASSERT_EQ(texts.size(), 6u);
    EXPECT_EQ(texts[0].substr(0, 100),
              "Bus 001 Device 001: ID 1d6b:0002 Linux Foundation 2.0 root hub\n Device Descriptor:\n bLength 18\n bDes");
    EXPECT_EQ(texts[0].substr(texts[0].size() - 25), "\n Device Status: 0x0001\n ");
    EXPECT_EQ(texts[3].find(" iManufacturer 1 SanDisk\n"), texts[3].find(" iManufacturer")) << "blanks squeezed";
    EXPECT_EQ(texts[4].find("Self Powered"), std::string::npos) << "lines behind the status belong to nobody";
    // The parse leaves its trace in the working directory.
    const std::string trace = ReadFile(work.Path() + "/bang1.txt");
    EXPECT_NE(trace.find("Bus 001 Device 001: ID 1d6b:0002 Linux Foundation 2.0 root hub\n reformat Bus 001 Device "
                         "001: ID 1d6b:0002 Linux Foundation 2.0 root hub\n \n"),
              std::string::npos);
}

TEST_F(LsusbRoadTest, EachDeviceBlockBecomesADevice) {
    ScopedWorkDir work;
    LiteralReader reader(LsusbFixture("with_cut_off_block.txt"));
    EXPECT_EQ(getNumberOfUSBDevices(reader), 7) << "the cut-off device has its first line";
    EXPECT_EQ(ParseWithLsusbDevices(reader, component.devices), 0);
    EXPECT_EQ(reader.closed, 1);
    ASSERT_EQ(component.devices.size(), 6u) << "the cut-off block is lost";
    int i = 0;
    for (Device* device : component.devices) {
        newUSBDevice* usb = dynamic_cast<newUSBDevice*>(device);
        ASSERT_NE(usb, nullptr);
        EXPECT_EQ(usb->name, "usbDevice" + std::to_string(i++));
        EXPECT_EQ(usb->devicesNode, nullptr) << "parsed when identified, not before";
        EXPECT_EQ(usb->deviceInfo.substr(0, 4), "Bus ");
    }
    EXPECT_TRUE(std::ifstream(work.Path() + "/bang1.txt").good());

    // A second discovery adds to the set.
    EXPECT_EQ(ParseWithLsusbDevices(reader, component.devices), 0);
    EXPECT_EQ(component.devices.size(), 12u);
}

TEST_F(LsusbRoadTest, FirstLineWithoutStatusContinuesTheBlock) {
    ScopedWorkDir work;
    LiteralReader reader(
        "Bus 001 Device 001: ID 1:1\n iProduct 1 A\nBus 001 Device 002: ID 2:2\nDevice Status: 1\n"
        "the Bus, the Device and the ID\nDevice Status: 2\n");
    const std::vector<std::string> texts = getVecDeviceInfo(reader);
    EXPECT_EQ(texts, (std::vector<std::string>{
                         "Bus 001 Device 001: ID 1:1\n iProduct 1 A\n Bus 001 Device 002: ID 2:2\n Device Status: 1\n ",
                         "the Bus, the Device and the ID\n Device Status: 2\n "}));
}

TEST_F(LsusbRoadTest, FailuresHaveTheirTexts) {
    ScopedWorkDir work;
    EXPECT_EQ(FailureOf(""), "Device Failed Enumeration");
    EXPECT_EQ(FailureOf("\n  bcdUSB               2.00\nDevice Status:     0x0001\n"), "Device Failed Enumeration");
    EXPECT_EQ(FailureOf(LsusbFixture("machine.txt"), false), "Error Creating File");
    EXPECT_TRUE(component.devices.empty());
    LiteralReader closed(LsusbFixture("machine.txt"), false);
    EXPECT_THROW(getVecDeviceInfo(closed), TvkError);
}

TEST_F(LsusbRoadTest, ThousandsOfDevicesInLinearTime) {
    ScopedWorkDir work;
    LiteralReader reader(Generated(3000));
    EXPECT_EQ(ParseWithLsusbDevices(reader, component.devices), 0);
    ASSERT_EQ(component.devices.size(), 3000u);
    const XmlObject last((*component.devices.rbegin())->ID(false));
    EXPECT_EQ(last.GetAttributeValue("description"), "Stick 2999 - ") << "no vendor line: an empty manufacturer";
}

TEST(LsusbRecordsTest, FreshRecordsAreEmptyAndOwnTheirChildren) {
    USBDevicesNode node;
    EXPECT_EQ(node.iProduct, "");
    EXPECT_EQ(node.currentConfiguration, nullptr);
    EXPECT_EQ(node.getNumObjects(), 0);
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
    EXPECT_EQ(node.getVecUSBConfigurationPtr(), std::vector<USBConfiguration*>{config});

    for (const char* name : {"USBDevicesNode", "USBConfiguration", "USBInterfaces", "USBEndpoints", "USBHidDevices",
                             "USBHub", "newUSBDevice"}) {
        std::unique_ptr<Persistent> made(PersistentClassRegistry::Create(name));
        ASSERT_NE(made, nullptr) << name;
        EXPECT_STREQ(made->GetRealClassName(), name);
    }
}

TEST(LsusbRecordsTest, StoredFormHoldsTheStringsOnly) {
    USBDevicesNode node;
    std::string* fields[] = {&node.bLength, &node.bDescriptorType, &node.bcdUSB, &node.bDeviceClass,
                             &node.bDeviceSubClass, &node.bDeviceProtocol, &node.bMaxPacketSize0, &node.idVendor,
                             &node.idProduct, &node.bcdDevice, &node.iManufacturer, &node.iProduct, &node.iSerial,
                             &node.bNumConfigurations, &node.deviceStatus};
    for (size_t i = 0; i < 15; ++i) *fields[i] = " " + std::to_string(i);
    USBConfiguration* config = node.createUSBConfiguration();
    config->MaxPower = " 100mA";
    node.addObjectToVector(config);
    USBHub hub;
    hub.PortPwrCtrlMask = " 0xff";
    hub.nNbrPorts = " 4";
    hub.addObjectToVector("block");

    optstream out;
    out << static_cast<const Persistent*>(&node) << static_cast<const Persistent*>(&hub)
        << static_cast<const Persistent*>(config);
    iptstream in = iptstream::FromMemory(out.GetBuffer());
    USBDevicesNode* readNode = nullptr;
    USBHub* readHub = nullptr;
    USBConfiguration* readConfig = nullptr;
    in.ReadOwned(readNode);
    in.ReadOwned(readHub);
    in.ReadOwned(readConfig);
    std::unique_ptr<USBDevicesNode> n(readNode);
    std::unique_ptr<USBHub> h(readHub);
    std::unique_ptr<USBConfiguration> c(readConfig);
    ASSERT_TRUE(n && h && c);
    EXPECT_EQ(n->deviceStatus, " 14");
    EXPECT_EQ(n->bLength, " 0");
    EXPECT_EQ(n->iSerial, " 12");
    EXPECT_EQ(n->getNumObjects(), 0);
    EXPECT_EQ(h->nNbrPorts, " 4");
    EXPECT_EQ(h->PortPwrCtrlMask, " 0xff");
    EXPECT_EQ(h->getNumObjects(), 0);
    EXPECT_EQ(c->MaxPower, " 100mA");
    // 15, 8 and 8 strings: any other count would shift the fields.
    EXPECT_EQ(in.Remaining(), 0u);

    // Copies take the strings and no children.
    std::unique_ptr<Persistent> copy(node.CreateCopy());
    USBDevicesNode* twin = dynamic_cast<USBDevicesNode*>(copy.get());
    ASSERT_NE(twin, nullptr);
    EXPECT_EQ(twin->iSerial, " 12");
    EXPECT_EQ(twin->getNumObjects(), 0);
    EXPECT_EQ(twin->currentConfiguration, nullptr);
    USBDevicesNode assigned;
    assigned.createUSBConfiguration();
    assigned = node;
    EXPECT_EQ(assigned.idVendor, " 7");
    EXPECT_EQ(assigned.getNumObjects(), 0);
}
