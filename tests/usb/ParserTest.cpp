// The devices-file parser: topology, the fields of each line kind, root hub
// recognition, the failures with their exact texts, text that does not fit
// the tree, and the naming and selection that follow a parse.
#include <gtest/gtest.h>

#include "LiteralReader.h"
#include "UsbTestSupport.h"
#include "common/TvkError.h"
#include "tc/usb/linux/USBtree.h"

namespace {

const std::string rootHub1 =
    "T:  Bus=01 Lev=00 Prnt=00 Port=00 Cnt=00 Dev#=  1 Spd=480  MxCh= 2\n"
    "D:  Ver= 2.00 Cls=09(hub  ) Sub=00 Prot=01 MxPS=64 #Cfgs=  1\n";
const std::string failureA = "An Error occurred while discovering USB devices in the system";
const std::string failureB = "Topology Level value of the USB Device out of range";

class ParserTest : public ::testing::Test {
protected:
    void SetUp() override { ResetUsbDiscoveryStateForTests(); }
    void TearDown() override { tree.ChopUSBtree(tree.root); }

    USBnode* Parse(const std::string& text) {
        reader.reset(new LiteralReader(text));
        return tree.GrowUSBtree(reader.get());
    }
    // (message, detail) of the failure that the text raises.
    std::pair<std::string, std::string> Failure(const std::string& text) {
        try {
            Parse(text);
        } catch (const TvkError& error) {
            EXPECT_EQ(tree.root, nullptr) << "a failed parse leaves no tree";
            EXPECT_FALSE(reader->isOpen);
            return {error.GetMessage(), error.GetDetail()};
        }
        return {"no failure", ""};
    }

    USBtree tree;
    std::unique_ptr<LiteralReader> reader;
};

}  // namespace

TEST_F(ParserTest, EhciAndUhciRootHubsWithAMemoryStick) {
    USBnode* root = Parse(Fixture("ehci_uhci_stick.devices"));
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(reader->closed, 1);
    ASSERT_EQ(root->maxChildren, 2);
    USBnode* ehci = root->children[0];
    EXPECT_EQ(ehci->parent, root);
    EXPECT_EQ(ehci->speed, "480 MBit/s");
    EXPECT_EQ(ehci->maxChildren, 6);
    EXPECT_EQ(ehci->version, " 2.00");
    EXPECT_EQ(ehci->class_x, "USB Hub");
    EXPECT_EQ(ehci->kind, usbKindHub);
    EXPECT_EQ(ehci->hubFlag, 1);
    EXPECT_EQ(ehci->manufacturer, "") << "an EHCI root hub gets no manufacturer";
    EXPECT_EQ(ehci->product, "USB 2.00 Controller EHCI-HCD");
    EXPECT_EQ(ehci->name, ehci->product) << "the product names even a root hub";
    EXPECT_EQ(ehci->serialNumber, "0000:00:1d.7");
    EXPECT_EQ(ehci->bandwidth->total, 800);
    EXPECT_EQ(ehci->bandwidth->irq, 1);
    EXPECT_EQ(ehci->configurations[0]->attributes, 0xe0);
    EXPECT_EQ(ehci->configurations[0]->maxPower, "  0mA");
    EXPECT_EQ(ehci->configurations[0]->interfaces[0], nullptr) << "the parser makes no interface";

    USBnode* stick = ehci->children[2];
    ASSERT_NE(stick, nullptr);
    EXPECT_EQ(ehci->children[1], nullptr);
    EXPECT_EQ(stick->parent, ehci);
    EXPECT_EQ(stick->vendorId, "0781 ");
    EXPECT_EQ(stick->revisionNumber, " 1.00");
    EXPECT_EQ(stick->manufacturer, "SanDisk");
    EXPECT_EQ(stick->name, "Cruzer");
    EXPECT_EQ(stick->serialNumber, "20060266910CC9A1E6BB");
    // The interface line speaks last and has no packet size.
    EXPECT_EQ(stick->class_x, "USB storage");
    EXPECT_EQ(stick->subClass, "06");
    EXPECT_EQ(stick->maxPacketSize, 0);
    EXPECT_EQ(stick->kind, usbKindInterfaceDevice);

    USBnode* uhci = root->children[1];
    EXPECT_EQ(uhci->speed, "12 MBit/s");
    EXPECT_EQ(uhci->manufacturer, "INTEL Corporation");
    EXPECT_EQ(uhci->product, "USB 1.10 Controller UHCI");
    EXPECT_EQ(tree.usb20Devices, std::list<USBnode*>{stick});
}

TEST_F(ParserTest, ExternalHubAndNewerKernelText) {
    USBnode* root = Parse(Fixture("uhci_external_hub.devices"));
    USBnode* hub = root->children[0]->children[0];
    ASSERT_NE(hub, nullptr);
    EXPECT_EQ(hub->kind, usbKindHub);
    EXPECT_EQ(hub->name, "General Purpose USB Hub");
    USBnode* mouse = hub->children[2];
    ASSERT_NE(mouse, nullptr);
    EXPECT_EQ(mouse->parent, hub);
    EXPECT_EQ(mouse->speed, "1.5 MBit/s");
    EXPECT_EQ(mouse->class_x, "USB hid");
    EXPECT_EQ(root->children[0]->bandwidth->percent, 2);

    // Spd=5000, '*' on active lines, A: lines, a blank first line.
    root = Parse(Fixture("modern_xhci.devices"));
    ASSERT_EQ(root->maxChildren, 2);
    USBnode* superSpeed = root->children[1];
    EXPECT_EQ(superSpeed->speed, "Unknown");
    EXPECT_EQ(superSpeed->manufacturer, "INTEL Corporation");
    EXPECT_EQ(superSpeed->product, "xHCI Host Controller");
    EXPECT_EQ(root->children[0]->children[3]->name, "Unknown Device");
    EXPECT_EQ(superSpeed->children[1]->class_x, "USB storage");
    EXPECT_TRUE(tree.usb20Devices.empty()) << "a 5000 Mbit/s stick is no USB 2.0 device";
}

TEST_F(ParserTest, ClassicControllerProductsAndLastInterfaceClass) {
    USBnode* root = Parse(
        "T:  Bus=01 Lev=00 Prnt=00 Port=00 Cnt=00 Dev#=  1 Spd=12   MxCh= 3\n"
        "D:  Ver= 1.10 Cls=09(hub  ) Sub=00 Prot=00 MxPS=64 #Cfgs=  1\n"
        "S:  Manufacturer=Linux 2.6.5 ohci_hcd\nS:  Product=OHCI Host Controller\n"
        "T:  Bus=01 Lev=01 Prnt=01 Port=01 Cnt=01 Dev#=  2 Spd=12   MxCh= 0\n"
        "D:  Ver= 1.10 Cls=00(>ifc ) Sub=00 Prot=00 MxPS= 8 #Cfgs=  1\n"
        "I:  If#= 0 Alt= 0 #EPs= 2 Cls=08(stor.) Sub=06 Prot=50 Driver=usb-storage\n"
        "I:  If#= 1 Alt= 0 #EPs= 1 Cls=03(HID  ) Sub=01 Prot=01 Driver=usbhid\n"
        "T:  Bus=02 Lev=00 Prnt=00 Port=00 Cnt=00 Dev#=  1 Spd=12   MxCh= 2\n"
        "D:  Ver= 1.00 Cls=09(hub  ) Sub=00 Prot=00 MxPS=64 #Cfgs=  1\n"
        "S:  Manufacturer=Linux 2.6.5 sl811-hcd\nS:  Product=SL811HS\n");
    ASSERT_EQ(root->maxChildren, 2);
    EXPECT_EQ(root->children[0]->product, "USB 1.10 Controller OHCI");
    EXPECT_EQ(root->children[1]->product, "USB 1.00 Unknown Controller Type");
    EXPECT_EQ(root->children[0]->children[1]->class_x, "USB hid");
    EXPECT_EQ(root->children[0]->children[1]->kind, usbKindInterfaceDevice);
}

TEST_F(ParserTest, FailuresAndTextBeyondTheArrays) {
    const std::string device = "T:  Bus=01 Lev=01 Prnt=01 Cnt=01 Dev#=  2 Spd=12   MxCh= 0 ";
    const std::vector<std::pair<std::string, std::pair<std::string, std::string>>> cases = {
        {device + "Port=00\n", {failureA, ""}},
        {"T:  Bus=01 Lev=32 Port=00 MxCh= 0\n", {failureB, ""}},
        {"T:  Bus=01 Lev=-1 Port=00 MxCh= 0\n", {failureB, ""}},
        {"T:  Bus=01 Lev=4294967296 Port=00 MxCh= 0\n", {failureB, ""}},  // must not wrap into range
        // A new bus forgets the hubs of the last one.
        {rootHub1 + "T:  Bus=02 Lev=01 Port=00 MxCh= 0\n", {failureA, ""}},
        // A level-0 line without ports has no parent.
        {"T:  Bus=01 Lev=00 Prnt=00 Port=00 Cnt=00 Dev#=  1 Spd=480  MxCh= 0\n", {failureA, ""}},
        {rootHub1 + device + "Port=40\n", {failureA, "Port=40 is out of range"}},
        {rootHub1 + "T:  Bus=01 Lev=01 Port=32 MxCh= 4\n", {failureA, "Port=32 is out of range"}},
        {rootHub1 + device + "Port=-3\n", {failureA, "Port=-3 is out of range"}},
        {rootHub1 + device + "Port=01\n" + device + "Port=01\n", {failureA, "two devices on Port=1 of one hub"}},
    };
    for (const auto& c : cases) EXPECT_EQ(Failure(c.first), c.second) << c.first;

    std::string controllers;
    for (int bus = 1; bus <= 33; ++bus) controllers += "T:  Bus=" + std::to_string(bus) + " Lev=00 MxCh= 2\n";
    EXPECT_EQ(Failure(controllers), std::make_pair(failureA, std::string("more than 32 host controllers")));
    controllers.erase(controllers.rfind("T:"));
    EXPECT_EQ(Parse(controllers)->maxChildren, 32);
}

TEST_F(ParserTest, EmptyUnreadableAndOverlongText) {
    USBnode* root = Parse("");
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->maxChildren, 0);
    EXPECT_EQ(root->children[0], nullptr);

    LiteralReader closedReader("T:  Bus=01 Lev=00 MxCh= 2\n", false);
    EXPECT_EQ(tree.GrowUSBtree(&closedReader), nullptr);
    EXPECT_EQ(closedReader.mounts, 1) << "one mount attempt before giving up";

    // 255 characters fill the first read; the rest of that line, a T: line of
    // its own, is the piece that ends in the newline. The last piece of the
    // long product line is no line kind, and a last line without a newline
    // is dropped.
    std::string longLine = "S:  Product=" + std::string(255 - 12, 'x');
    longLine += "T:  Bus=01 Lev=00 Prnt=00 Port=00 Cnt=00 Dev#=  1 Spd=12   MxCh= 2\n";
    root = Parse(longLine + "S:  Product=" + std::string(600, 'P') + "\nT:  Bus=01 Lev=01 Port=00 MxCh= 0");
    ASSERT_EQ(root->maxChildren, 1);
    EXPECT_EQ(root->children[0]->product, "");
    EXPECT_EQ(root->children[0]->children[0], nullptr);

    std::string configs = rootHub1;
    for (int i = 1; i <= 33; ++i) configs += "C:  #Ifs= 1 Cfg#=" + std::to_string(i) + " Atr=a0 MxPwr=100mA\n";
    EXPECT_EQ(Parse(configs)->children[0]->configurations[31]->configNumber, 32) << "the 33rd finds no slot";
}

TEST_F(ParserTest, NamesFallBackStepByStep) {
    USBnode* root = Parse(
        "T:  Bus=01 Lev=00 Prnt=00 Port=00 Cnt=00 Dev#=  1 Spd=12   MxCh= 2\n"
        "T:  Bus=01 Lev=01 Prnt=01 Port=00 Cnt=01 Dev#=  2 Spd=12   MxCh= 4\n"
        "D:  Ver= 1.10 Cls=09(hub  ) Sub=00 Prot=00 MxPS= 8 #Cfgs=  1\n"
        "T:  Bus=01 Lev=02 Prnt=02 Port=03 Cnt=01 Dev#=  3 Spd=12   MxCh= 0\n"
        "D:  Ver= 1.10 Cls=00(>ifc ) Sub=00 Prot=00 MxPS= 8 #Cfgs=  1\n");
    USBnode* rootHub = root->children[0];
    EXPECT_EQ(root->name, "");
    EXPECT_EQ(rootHub->name, "Root Hub");
    EXPECT_EQ(rootHub->children[0]->name, "USB Hub");
    EXPECT_EQ(rootHub->children[0]->children[3]->name, "Unknown Device");

    // The descriptor pass names again and counts keyboards of interfaces,
    // which a parse never makes: 0.
    LiteralReader fileReader(Fixture("uhci_external_hub.devices"));
    EXPECT_EQ(tree.RunDescriptorTest(fileReader), 0);
    EXPECT_EQ(tree.root->children[0]->name, "Root Hub");
    EXPECT_EQ(tree.root->children[0]->children[0]->name, "Unknown Device");
    tree.FinishTest();
    EXPECT_EQ(tree.root, nullptr);
    LiteralReader closedReader("", false);
    EXPECT_EQ(tree.RunDescriptorTest(closedReader), -1);
    EXPECT_EQ(closedReader.mounts, 0);

    // With interfaces in place, keyboards count and mice are only named.
    root = Parse(rootHub1 + "T:  Bus=01 Lev=01 Prnt=01 Port=00 Cnt=01 Dev#=  2 Spd=12   MxCh= 0\n"
                            "C:* #Ifs= 2 Cfg#= 1 Atr=a0 MxPwr=100mA\n");
    USBnode* combo = root->children[0]->children[0];
    const int protocols[] = {1, 2, 1};
    for (int i = 0; i < 3; ++i) {
        USBinterface* interface = new USBinterface();
        interface->name = i < 2 ? "named" : "";
        interface->subClass = 1;
        interface->protocol = protocols[i];
        combo->configurations[0]->interfaces[i] = interface;
    }
    combo->name.clear();
    EXPECT_EQ(tree.usb_name_devices_alt(), 1);
    EXPECT_EQ(combo->name, "USB KeyboardUSB Mouse");
}

TEST_F(ParserTest, HighSpeedStorageSelection) {
    struct Case {
        int level;
        const char* speed;
        const char* product;
        int kind;
        const char* cls;
        bool selected;
    };
    const Case cases[] = {
        {1, "480 MBit/s", "Cruzer", usbKindInterfaceDevice, "USB storage", true},
        {3, "480 MBit/s", "", usbKindNone, "USB storage", true},
        {1, "480 MBit/s", "DAT72 tape", usbKindInterfaceDevice, "USB storage", false},
        {1, "480 MBit/s", "LTO Tape", usbKindInterfaceDevice, "USB storage", false},
        {1, "480 MBit/s", "Hub", usbKindHub, "USB storage", false},
        {1, "480 MBit/s", "RDX dock", usbKindInterfaceDevice, "USB storage", false},
        {0, "480 MBit/s", "Controller", usbKindInterfaceDevice, "USB storage", false},
        {1, "12 MBit/s", "Old stick", usbKindInterfaceDevice, "USB storage", false},
        {1, "480 MBit/s", "Keyboard", usbKindInterfaceDevice, "USB hid", false},
    };
    for (const Case& c : cases) {
        USBnode node;
        node.level = c.level;
        node.speed = c.speed;
        node.product = c.product;
        node.kind = c.kind;
        node.class_x = c.cls;
        tree.usb20Devices.clear();
        tree.CountUsb20Device(&node);
        EXPECT_EQ(tree.usb20Devices.size(), c.selected ? 1u : 0u) << c.product;
    }
    tree.usb20Devices.clear();

    EXPECT_FALSE(USBtree::CheckForUSBDriveKeyMatch(0, 0)) << "the pair that ends the table";
    EXPECT_EQ(USBtree::DecodeUSBClass08(8, 6, 0x32, 0x0781, 0x5530), "USB Drive Key");
    EXPECT_EQ(USBtree::DecodeUSBClass08(8, 6, 0x32, 0x1234, 0x5678), "MassStorage");
    EXPECT_EQ(USBtree::DecodeUSBClass03(3, 1, 2, 0, 0), "USB Mouse");
    EXPECT_EQ(USBtree::DecodeUSBClass03(8, 1, 1, 0, 0), "Human Interface Device");
}
