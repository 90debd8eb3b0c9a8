// The devices-file parser: topology, the fields of each line kind, root hub
// recognition, the failures with their exact texts, text that does not fit
// the tree, and the naming and selection that follow a parse.
#include <gtest/gtest.h>

#include <climits>

#include "LiteralReader.h"
#include "UsbTestSupport.h"
#include "common/TvkError.h"
#include "tc/usb/linux/USBtree.h"

namespace {

const char* const rootHub1 =
    "T:  Bus=01 Lev=00 Prnt=00 Port=00 Cnt=00 Dev#=  1 Spd=480  MxCh= 2\n"
    "D:  Ver= 2.00 Cls=09(hub  ) Sub=00 Prot=01 MxPS=64 #Cfgs=  1\n";

class ParserTest : public ::testing::Test {
protected:
    void SetUp() override { ResetUsbDiscoveryStateForTests(); }
    void TearDown() override { tree.ChopUSBtree(tree.root); }

    USBnode* Parse(const std::string& text) {
        reader.reset(new LiteralReader(text));
        return tree.GrowUSBtree(reader.get());
    }
    // The failure a text raises, as (message, detail).
    std::pair<std::string, std::string> Failure(const std::string& text) {
        try {
            Parse(text);
        } catch (const TvkError& error) {
            EXPECT_EQ(tree.root, nullptr) << "a failed parse leaves no tree";
            EXPECT_FALSE(reader->isOpen);
            return {error.GetMessage(), error.GetDetail()};
        }
        ADD_FAILURE() << "no failure for:\n" << text;
        return {};
    }

    USBtree tree;
    std::unique_ptr<LiteralReader> reader;
};

const std::string failureA = "An Error occurred while discovering USB devices in the system";
const std::string failureB = "Topology Level value of the USB Device out of range";

}  // namespace

TEST_F(ParserTest, EhciAndUhciRootHubsWithAMemoryStick) {
    USBnode* root = Parse(Fixture("ehci_uhci_stick.devices"));
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(reader->opened, 1);
    EXPECT_EQ(reader->closed, 1);
    EXPECT_EQ(root->maxChildren, 2);
    EXPECT_EQ(root->name, "");

    USBnode* ehci = root->children[0];
    ASSERT_NE(ehci, nullptr);
    EXPECT_EQ(ehci->parent, root);
    EXPECT_EQ(ehci->busNumber, 1);
    EXPECT_EQ(ehci->level, 0);
    EXPECT_EQ(ehci->deviceNumber, 1);
    EXPECT_EQ(ehci->speed, "480 MBit/s");
    EXPECT_EQ(ehci->maxChildren, 6);
    EXPECT_EQ(ehci->version, " 2.00");
    EXPECT_EQ(ehci->class_x, "USB Hub");
    EXPECT_EQ(ehci->kind, usbKindHub);
    EXPECT_EQ(ehci->hubFlag, 1);
    EXPECT_EQ(ehci->vendorId, "0000 ");
    EXPECT_EQ(ehci->revisionNumber, " 2.06");
    EXPECT_EQ(ehci->manufacturer, "") << "an EHCI root hub gets no manufacturer";
    EXPECT_EQ(ehci->product, "USB 2.00 Controller EHCI-HCD");
    EXPECT_EQ(ehci->name, ehci->product);
    EXPECT_EQ(ehci->serialNumber, "0000:00:1d.7");
    ASSERT_NE(ehci->bandwidth, nullptr);
    EXPECT_EQ(ehci->bandwidth->allocated, 0);
    EXPECT_EQ(ehci->bandwidth->total, 800);
    EXPECT_EQ(ehci->bandwidth->irq, 1);
    ASSERT_NE(ehci->configurations[0], nullptr);
    EXPECT_EQ(ehci->configurations[0]->configNumber, 1);
    EXPECT_EQ(ehci->configurations[0]->numInterfaces, 1);
    EXPECT_EQ(ehci->configurations[0]->attributes, 0xe0);
    EXPECT_EQ(ehci->configurations[0]->maxPower, "  0mA");
    EXPECT_EQ(ehci->configurations[1], nullptr);
    EXPECT_EQ(ehci->configurations[0]->interfaces[0], nullptr) << "the parser makes no interface";

    for (int port = 0; port < usbMaxSlots; ++port)
        if (port != 2) {
            EXPECT_EQ(ehci->children[port], nullptr) << port;
        }
    USBnode* stick = ehci->children[2];
    ASSERT_NE(stick, nullptr);
    EXPECT_EQ(stick->parent, ehci);
    EXPECT_EQ(stick->level, 1);
    EXPECT_EQ(stick->portNumber, 2);
    EXPECT_EQ(stick->parentNumber, 1);
    EXPECT_EQ(stick->vendorId, "0781 ");
    EXPECT_EQ(stick->productId, "5530 ");
    EXPECT_EQ(stick->manufacturer, "SanDisk");
    EXPECT_EQ(stick->product, "Cruzer");
    EXPECT_EQ(stick->name, "Cruzer");
    EXPECT_EQ(stick->serialNumber, "20060266910CC9A1E6BB");
    // The interface line speaks last: its class, sub-class and protocol win,
    // and it has no packet size or configuration count.
    EXPECT_EQ(stick->class_x, "USB storage");
    EXPECT_EQ(stick->subClass, "06");
    EXPECT_EQ(stick->protocol, "50");
    EXPECT_EQ(stick->maxPacketSize, 0);
    EXPECT_EQ(stick->numConfigs, 0);
    EXPECT_EQ(stick->version, " 2.00");
    EXPECT_EQ(stick->kind, usbKindInterfaceDevice);
    EXPECT_EQ(stick->hubFlag, 0);

    USBnode* uhci = root->children[1];
    ASSERT_NE(uhci, nullptr);
    EXPECT_EQ(uhci->speed, "12 MBit/s");
    EXPECT_EQ(uhci->maxChildren, 2);
    EXPECT_EQ(uhci->manufacturer, "INTEL Corporation");
    EXPECT_EQ(uhci->product, "USB 1.10 Controller UHCI");

    ASSERT_EQ(tree.usb20Devices.size(), 1u);
    EXPECT_EQ(tree.usb20Devices.front(), stick);
}

TEST_F(ParserTest, ExternalHubWithADeviceBelow) {
    USBnode* root = Parse(Fixture("uhci_external_hub.devices"));
    ASSERT_NE(root, nullptr);
    ASSERT_EQ(root->maxChildren, 1);
    USBnode* rootHub = root->children[0];
    USBnode* hub = rootHub->children[0];
    ASSERT_NE(hub, nullptr);
    EXPECT_EQ(hub->parent, rootHub);
    EXPECT_EQ(hub->kind, usbKindHub);
    EXPECT_EQ(hub->maxChildren, 4);
    EXPECT_EQ(hub->name, "General Purpose USB Hub");
    ASSERT_NE(rootHub->bandwidth, nullptr);
    EXPECT_EQ(rootHub->bandwidth->allocated, 14);
    EXPECT_EQ(rootHub->bandwidth->total, 900);
    EXPECT_EQ(rootHub->bandwidth->percent, 2);
    EXPECT_EQ(rootHub->bandwidth->irq, 2);
    USBnode* mouse = hub->children[2];
    ASSERT_NE(mouse, nullptr);
    EXPECT_EQ(mouse->parent, hub);
    EXPECT_EQ(mouse->level, 2);
    EXPECT_EQ(mouse->speed, "1.5 MBit/s");
    EXPECT_EQ(mouse->class_x, "USB hid");
    EXPECT_EQ(mouse->name, "Optical USB Mouse");
    EXPECT_TRUE(tree.usb20Devices.empty()) << "nothing at high speed";
}

TEST_F(ParserTest, TextOfANewerKernel) {
    // Spd=5000, '*' on active lines, A: lines and a blank first line.
    USBnode* root = Parse(Fixture("modern_xhci.devices"));
    ASSERT_NE(root, nullptr);
    ASSERT_EQ(root->maxChildren, 2);
    USBnode* highSpeed = root->children[0];
    USBnode* superSpeed = root->children[1];
    EXPECT_EQ(highSpeed->maxChildren, 12);
    EXPECT_EQ(highSpeed->product, "USB 2.00 Controller EHCI-HCD") << "any Linux root hub at 480 counts as EHCI";
    EXPECT_EQ(superSpeed->speed, "Unknown");
    EXPECT_EQ(superSpeed->manufacturer, "INTEL Corporation");
    EXPECT_EQ(superSpeed->product, "xHCI Host Controller");
    EXPECT_EQ(superSpeed->configurations[0]->attributes, 0xe0);

    USBnode* bluetooth = highSpeed->children[3];
    ASSERT_NE(bluetooth, nullptr);
    EXPECT_EQ(bluetooth->class_x, "Unknown Device");
    EXPECT_EQ(bluetooth->kind, usbKindNone);
    EXPECT_EQ(bluetooth->name, "Unknown Device");
    EXPECT_EQ(bluetooth->version, " 2.01");

    USBnode* stick = superSpeed->children[1];
    ASSERT_NE(stick, nullptr);
    EXPECT_EQ(stick->class_x, "USB storage");
    EXPECT_TRUE(tree.usb20Devices.empty()) << "a 5000 Mbit/s stick is no USB 2.0 device";
}

TEST_F(ParserTest, ClassicRootHubProducts) {
    const std::string text =
        "T:  Bus=01 Lev=00 Prnt=00 Port=00 Cnt=00 Dev#=  1 Spd=12   MxCh= 3\n"
        "D:  Ver= 1.10 Cls=09(hub  ) Sub=00 Prot=00 MxPS=64 #Cfgs=  1\n"
        "S:  Manufacturer=Linux 2.6.5 ohci_hcd\n"
        "S:  Product=OHCI Host Controller\n"
        "T:  Bus=02 Lev=00 Prnt=00 Port=00 Cnt=00 Dev#=  1 Spd=12   MxCh= 2\n"
        "D:  Ver= 1.00 Cls=09(hub  ) Sub=00 Prot=00 MxPS=64 #Cfgs=  1\n"
        "S:  Manufacturer=Linux 2.6.5 sl811-hcd\n"
        "S:  Product=SL811HS\n";
    USBnode* root = Parse(text);
    ASSERT_EQ(root->maxChildren, 2);
    EXPECT_EQ(root->children[0]->product, "USB 1.10 Controller OHCI");
    EXPECT_EQ(root->children[1]->product, "USB 1.00 Unknown Controller Type");
    EXPECT_EQ(root->children[1]->manufacturer, "INTEL Corporation");
}

TEST_F(ParserTest, LastInterfaceLineDecidesTheClass) {
    USBnode* root = Parse(std::string(rootHub1) +
                          "T:  Bus=01 Lev=01 Prnt=01 Port=01 Cnt=01 Dev#=  2 Spd=12   MxCh= 0\n"
                          "D:  Ver= 1.10 Cls=00(>ifc ) Sub=00 Prot=00 MxPS= 8 #Cfgs=  1\n"
                          "I:  If#= 0 Alt= 0 #EPs= 2 Cls=08(stor.) Sub=06 Prot=50 Driver=usb-storage\n"
                          "I:  If#= 1 Alt= 0 #EPs= 1 Cls=03(HID  ) Sub=01 Prot=01 Driver=usbhid\n");
    USBnode* device = root->children[0]->children[1];
    ASSERT_NE(device, nullptr);
    EXPECT_EQ(device->class_x, "USB hid");
    EXPECT_EQ(device->kind, usbKindInterfaceDevice);
}

TEST_F(ParserTest, FailuresAndTheirTexts) {
    const std::string rootHubBus1 = rootHub1;
    EXPECT_EQ(Failure("T:  Bus=01 Lev=01 Prnt=01 Port=00 Cnt=01 Dev#=  2 Spd=12   MxCh= 0\n"),
              std::make_pair(failureA, std::string()));
    EXPECT_EQ(Failure("T:  Bus=01 Lev=32 Prnt=01 Port=00 Cnt=01 Dev#=  2 Spd=12   MxCh= 0\n").first, failureB);
    EXPECT_EQ(Failure("T:  Bus=01 Lev=-1 Prnt=01 Port=00 Cnt=01 Dev#=  2 Spd=12   MxCh= 0\n").first, failureB);
    EXPECT_EQ(Failure("T:  Bus=01 Lev=4294967296 Port=00 MxCh= 0\n").first, failureB)
        << "a number beyond 32 bits must not wrap into range";
    // A new bus forgets the hubs of the last one.
    EXPECT_EQ(Failure(rootHubBus1 + "T:  Bus=02 Lev=01 Prnt=01 Port=00 Cnt=01 Dev#=  2 Spd=12   MxCh= 0\n"),
              std::make_pair(failureA, std::string()));
    // A level-0 line without ports has no parent.
    EXPECT_EQ(Failure("T:  Bus=01 Lev=00 Prnt=00 Port=00 Cnt=00 Dev#=  1 Spd=480  MxCh= 0\n"),
              std::make_pair(failureA, std::string()));
}

TEST_F(ParserTest, TextBeyondTheArraysFailsWithoutTouchingThem) {
    const std::string rootHubBus1 = rootHub1;
    EXPECT_EQ(Failure(rootHubBus1 + "T:  Bus=01 Lev=01 Prnt=01 Port=40 Cnt=01 Dev#=  2 Spd=12   MxCh= 0\n"),
              std::make_pair(failureA, std::string("Port=40 is out of range")));
    EXPECT_EQ(Failure(rootHubBus1 + "T:  Bus=01 Lev=01 Prnt=01 Port=32 Cnt=01 Dev#=  2 Spd=12   MxCh= 4\n"),
              std::make_pair(failureA, std::string("Port=32 is out of range")));
    EXPECT_EQ(Failure(rootHubBus1 + "T:  Bus=01 Lev=01 Prnt=01 Port=-3 Cnt=01 Dev#=  2 Spd=12   MxCh= 0\n"),
              std::make_pair(failureA, std::string("Port=-3 is out of range")));
    EXPECT_EQ(Failure(rootHubBus1 + "T:  Bus=01 Lev=01 Prnt=01 Port=01 Dev#=  2 MxCh= 0\n"
                                    "T:  Bus=01 Lev=01 Prnt=01 Port=01 Dev#=  3 MxCh= 0\n"),
              std::make_pair(failureA, std::string("two devices on Port=1 of one hub")));

    std::string controllers;
    for (int bus = 1; bus <= 33; ++bus)
        controllers += "T:  Bus=" + std::to_string(bus) + " Lev=00 Prnt=00 Port=00 Cnt=00 Dev#=  1 Spd=12 MxCh= 2\n";
    EXPECT_EQ(Failure(controllers), std::make_pair(failureA, std::string("more than 32 host controllers")));
    // Thirty-two fit.
    controllers.erase(controllers.rfind("T:"));
    USBnode* root = Parse(controllers);
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->maxChildren, 32);
}

TEST_F(ParserTest, EmptyAndUnreadableText) {
    USBnode* root = Parse("");
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->maxChildren, 0);
    for (USBnode* child : root->children) EXPECT_EQ(child, nullptr);

    LiteralReader closedReader("T:  Bus=01 Lev=00 MxCh= 2\n", false);
    EXPECT_EQ(tree.GrowUSBtree(&closedReader), nullptr);
    EXPECT_EQ(closedReader.mounts, 1) << "one mount attempt before giving up";
    EXPECT_EQ(tree.root, nullptr);
}

TEST_F(ParserTest, OnlyWholeLinesAndTheLastPieceOfALongLineAreParsed) {
    // 255 characters fill the first read; the rest of the line, a T: line
    // of its own, is the piece that ends in the newline.
    std::string longLine = "S:  Product=" + std::string(255 - 12, 'x');
    ASSERT_EQ(longLine.size(), 255u);
    longLine += "T:  Bus=01 Lev=00 Prnt=00 Port=00 Cnt=00 Dev#=  1 Spd=12   MxCh= 2\n";
    // A product string far longer than the buffer; its last piece is no line kind.
    const std::string product = "S:  Product=" + std::string(600, 'P') + "\n";
    // The last line has no newline and is dropped.
    USBnode* root = Parse(longLine + product + "T:  Bus=01 Lev=01 Port=00 MxCh= 0");
    ASSERT_NE(root, nullptr);
    ASSERT_EQ(root->maxChildren, 1);
    EXPECT_EQ(root->children[0]->product, "");
    EXPECT_EQ(root->children[0]->children[0], nullptr);
}

TEST_F(ParserTest, ThirtyTwoConfigurationsAtMost) {
    std::string text = rootHub1;
    for (int i = 1; i <= 33; ++i) text += "C:  #Ifs= 1 Cfg#=" + std::to_string(i) + " Atr=a0 MxPwr=100mA\n";
    USBnode* root = Parse(text);
    USBnode* hub = root->children[0];
    EXPECT_EQ(hub->configurations[31]->configNumber, 32);
    EXPECT_EQ(hub->configurations[0]->attributes, 0xa0);
    EXPECT_EQ(hub->configurations[0]->maxPower, "100mA");
}

TEST_F(ParserTest, ScanningHelpers) {
    std::string target = "kept";
    USBtree::GetString(target, "D:  Ver= 2.00 Cls=09(hub  )", "Prot=", 2);
    EXPECT_EQ(target, "kept");
    USBtree::GetString(target, "D:  Ver= 2.00 Cls=09(hub  )", "Cls=", 3);
    EXPECT_EQ(target, "09(");
    USBtree::GetString(target, "P:  Rev= 1", "Rev=", 6);
    EXPECT_EQ(target, " 1");
    EXPECT_EQ(USBtree::GetInt("C:* Atr=e0", "Atr=", 16), 0xe0);
    EXPECT_EQ(USBtree::GetInt("T:  Dev#=  7", "Dev#=", 10), 7);
    EXPECT_EQ(USBtree::GetInt("T:  Dev#=  7", "Lev=", 10), 0);
    EXPECT_EQ(USBtree::GetInt("T:  Cnt=99999999999", "Cnt=", 10), INT_MAX);
    EXPECT_EQ(USBtree::GetInt("T:  Cnt=-99999999999", "Cnt=", 10), INT_MIN);
}

TEST_F(ParserTest, NamingFallsBackStepByStep) {
    tree.usb_initialize_list();
    USBnode* rootHub = new USBnode();
    rootHub->level = 0;
    rootHub->parent = tree.root;
    tree.root->children[0] = rootHub;
    USBnode* namedRootHub = new USBnode();
    namedRootHub->level = 0;
    namedRootHub->product = "Own Product";
    namedRootHub->parent = tree.root;
    tree.root->children[1] = namedRootHub;
    USBnode* hub = new USBnode();
    hub->level = 1;
    hub->kind = usbKindHub;
    hub->parent = rootHub;
    rootHub->children[0] = hub;
    USBnode* device = new USBnode();
    device->level = 2;
    device->kind = usbKindInterfaceDevice;
    device->parent = hub;
    hub->children[31] = device;
    USBnode* keepsName = new USBnode();
    keepsName->level = 1;
    keepsName->name = "Given";
    keepsName->parent = rootHub;
    rootHub->children[5] = keepsName;

    tree.usb_name_devices();
    EXPECT_EQ(tree.root->name, "");
    EXPECT_EQ(rootHub->name, "Root Hub");
    EXPECT_EQ(namedRootHub->name, "Own Product");
    EXPECT_EQ(hub->name, "USB Hub");
    EXPECT_EQ(device->name, "Unknown Device");
    EXPECT_EQ(keepsName->name, "Given");
}

TEST_F(ParserTest, KeyboardsAreCountedByTheOtherNaming) {
    tree.usb_initialize_list();
    USBnode* rootHub = new USBnode();
    rootHub->level = 0;
    rootHub->product = "Controller";
    rootHub->parent = tree.root;
    tree.root->children[0] = rootHub;
    USBnode* combo = new USBnode();
    combo->level = 1;
    combo->parent = rootHub;
    rootHub->children[0] = combo;
    combo->configurations[0] = new USBconfig();
    USBinterface* keyboard = new USBinterface();
    keyboard->name = "kbd";
    keyboard->subClass = 1;
    keyboard->protocol = 1;
    USBinterface* mouse = new USBinterface();
    mouse->name = "mouse";
    mouse->subClass = 1;
    mouse->protocol = 2;
    USBinterface* unnamed = new USBinterface();
    unnamed->subClass = 1;
    unnamed->protocol = 1;
    combo->configurations[0]->interfaces[0] = keyboard;
    combo->configurations[0]->interfaces[1] = mouse;
    combo->configurations[0]->interfaces[2] = unnamed;
    USBnode* plain = new USBnode();
    plain->level = 1;
    plain->parent = rootHub;
    rootHub->children[1] = plain;

    EXPECT_EQ(tree.usb_name_devices_alt(), 1);
    EXPECT_EQ(rootHub->name, "Root Hub") << "level 0 is a root hub, whatever its product";
    EXPECT_EQ(combo->name, "USB KeyboardUSB Mouse");
    EXPECT_EQ(plain->name, "Unknown Device");
}

TEST_F(ParserTest, DescriptorPassParsesAgainAndCountsNoKeyboardFromTheFile) {
    LiteralReader fileReader(Fixture("uhci_external_hub.devices"));
    EXPECT_EQ(tree.RunDescriptorTest(fileReader), 0);
    ASSERT_NE(tree.root, nullptr);
    USBnode* rootHub = tree.root->children[0];
    EXPECT_EQ(rootHub->name, "Root Hub");
    EXPECT_EQ(rootHub->children[0]->name, "Unknown Device");
    EXPECT_EQ(fileReader.closed, 1);
    tree.FinishTest();
    EXPECT_EQ(tree.root, nullptr);

    LiteralReader closedReader("", false);
    EXPECT_EQ(tree.RunDescriptorTest(closedReader), -1);
    EXPECT_EQ(closedReader.mounts, 0) << "no mount attempt on this pass";
}

TEST_F(ParserTest, HighSpeedStorageSelection) {
    tree.usb_initialize_list();
    auto make = [](int level, const char* speed, const char* product, int kind, const char* cls) {
        USBnode* node = new USBnode();
        node->level = level;
        node->speed = speed;
        node->product = product;
        node->kind = kind;
        node->class_x = cls;
        return node;
    };
    std::vector<std::unique_ptr<USBnode>> nodes;
    nodes.emplace_back(make(1, "480 MBit/s", "Cruzer", usbKindInterfaceDevice, "USB storage"));
    nodes.emplace_back(make(3, "480 MBit/s", "", usbKindNone, "USB storage"));
    nodes.emplace_back(make(1, "480 MBit/s", "DAT72 tape", usbKindInterfaceDevice, "USB storage"));
    nodes.emplace_back(make(1, "480 MBit/s", "LTO Tape", usbKindInterfaceDevice, "USB storage"));
    nodes.emplace_back(make(1, "480 MBit/s", "Hub", usbKindHub, "USB storage"));
    nodes.emplace_back(make(1, "480 MBit/s", "RDX dock", usbKindInterfaceDevice, "USB storage"));
    nodes.emplace_back(make(0, "480 MBit/s", "Controller", usbKindInterfaceDevice, "USB storage"));
    nodes.emplace_back(make(1, "12 MBit/s", "Old stick", usbKindInterfaceDevice, "USB storage"));
    nodes.emplace_back(make(1, "480 MBit/s", "Keyboard", usbKindInterfaceDevice, "USB hid"));
    for (auto& node : nodes) tree.CountUsb20Device(node.get());
    tree.CountUsb20Device(nullptr);
    ASSERT_EQ(tree.usb20Devices.size(), 2u);
    EXPECT_EQ(tree.usb20Devices.front(), nodes[0].get());
    EXPECT_EQ(tree.usb20Devices.back(), nodes[1].get());
}

TEST_F(ParserTest, StorageAndHumanInterfaceTypeNames) {
    EXPECT_FALSE(USBtree::CheckForUSBDriveKeyMatch(0, 0));
    EXPECT_TRUE(USBtree::CheckForUSBDriveKeyMatch(0x0781, 0x5530));
    EXPECT_TRUE(USBtree::IfTapeDrive("HP Tape"));
    EXPECT_FALSE(USBtree::IfTapeDrive("TAPE"));
    EXPECT_EQ(USBtree::DecodeUSBClass08(8, 6, 0x32, 0x0781, 0x5530), "USB Drive Key");
    EXPECT_EQ(USBtree::DecodeUSBClass08(8, 6, 0x32, 0x1234, 0x5678), "MassStorage");
    EXPECT_EQ(USBtree::DecodeUSBClass08(8, 2, 0x32, 0, 0), "CDROM");
    EXPECT_EQ(USBtree::DecodeUSBClass08(8, 4, 0, 0, 0), "USB Floppy");
    EXPECT_EQ(USBtree::DecodeUSBClass08(8, 4, 1, 0, 0), "MassStorage");
    EXPECT_EQ(USBtree::DecodeUSBClass08(3, 2, 0x32, 0, 0), "MassStorage");
    EXPECT_EQ(USBtree::DecodeUSBClass03(3, 0, 0, 0, 0), "Vendor Specific Device");
    EXPECT_EQ(USBtree::DecodeUSBClass03(3, 1, 1, 0, 0), "USB Keyboard");
    EXPECT_EQ(USBtree::DecodeUSBClass03(3, 1, 2, 0, 0), "USB Mouse");
    EXPECT_EQ(USBtree::DecodeUSBClass03(3, 1, 3, 0, 0), "Human Interface Device");
    EXPECT_EQ(USBtree::DecodeUSBClass03(8, 1, 1, 0, 0), "Human Interface Device");
}
