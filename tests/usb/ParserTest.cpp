// The devices-file parser: kernel text, failures with their texts, text beyond the arrays, names, selection.
#include "UsbTestSupport.h"
#include "common/TvkError.h"

extern "C" int nvxIsFactory() { return g_factoryMode; }

namespace {

const std::string rootHub1 = "T:  Bus=01 Lev=00 Prnt=00 Port=00 Cnt=00 Dev#=  1 Spd=480  MxCh= 2\n"
                             "D:  Ver= 2.00 Cls=09(hub  ) Sub=00 Prot=01 MxPS=64 #Cfgs=  1\n";
const std::string discoveryError = "An Error occurred while discovering USB devices in the system";
const std::string levelError = "Topology Level value of the USB Device out of range";

// What a parsed node publishes; a failure names the node and the field.
struct Published {
    std::string name, product, manufacturer, speed, version, class_x;
    int kind, ports;
};

void ExpectNode(const USBnode* n, const Published& want) {
    SCOPED_TRACE("node " + want.product);
    ASSERT_NE(n, nullptr);
    EXPECT_EQ(n->name, want.name);
    EXPECT_EQ(n->product, want.product);
    EXPECT_EQ(n->manufacturer, want.manufacturer);
    EXPECT_EQ(n->speed, want.speed);
    EXPECT_EQ(n->version, want.version);
    EXPECT_EQ(n->class_x, want.class_x);
    EXPECT_EQ(n->kind, want.kind);
    EXPECT_EQ(n->maxChildren, want.ports);
    if (n->parent) {
        EXPECT_EQ(std::count(n->parent->children.begin(), n->parent->children.end(), n), 1) << "its parent's child";
    }
}

class ParserTest : public ::testing::Test {
protected:
    void SetUp() override { testhooks::ResetUsbDiscoveryState(); }
    void TearDown() override { tree.ChopUSBtree(tree.root); }
    USBnode* Parse(const std::string& text) {
        reader.reset(new LiteralReader(text));
        return tree.GrowUSBtree(reader.get());
    }
    std::pair<std::string, std::string> Failure(const std::string& text) {
        try {
            Parse(text);
        } catch (const TvkError& error) {
            EXPECT_EQ(tree.root, nullptr) << "a failed parse leaves no tree";
            EXPECT_FALSE(reader->isOpen) << "a failed parse leaves no open file";
            return {error.GetMessage(), error.GetDetail()};
        }
        return {"no failure", ""};
    }
    USBtree tree;
    std::unique_ptr<LiteralReader> reader;
};

}  // namespace

TEST_F(ParserTest, TreesOfKernelText) {
    const std::string high = "480 MBit/s", full = "12 MBit/s", hub = "USB Hub", storage = "USB storage";
    USBnode* root = Parse(Fixture("usb/data/ehci_uhci_stick.devices"));
    ASSERT_NE(root, nullptr);
    ASSERT_EQ(root->maxChildren, 2);
    EXPECT_EQ(reader->closed, 1);
    USBnode* ehci = root->children[0];
    USBnode* stick = ehci->children[2];
    const std::string ehciName = "USB 2.00 Controller EHCI-HCD";
    ExpectNode(ehci, {ehciName, ehciName, "", high, " 2.00", hub, usbKindHub, 6});
    EXPECT_EQ(ehci->serialNumber, "0000:00:1d.7");
    EXPECT_EQ(ehci->configurations[0]->maxPower, "  0mA");
    EXPECT_EQ(ehci->bandwidth->total, 800);
    EXPECT_EQ(ehci->bandwidth->irq, 1);
    EXPECT_EQ(ehci->configurations[0]->interfaces[0], nullptr) << "the parser makes no interface";
    EXPECT_EQ(ehci->children[1], nullptr);
    // The interface line speaks last and has no packet size.
    ExpectNode(stick, {"Cruzer", "Cruzer", "SanDisk", high, " 2.00", storage, usbKindInterfaceDevice, 0});
    EXPECT_EQ(stick->vendorId, "0781 ");
    EXPECT_EQ(stick->revisionNumber, " 1.00");
    EXPECT_EQ(stick->subClass, "06");
    EXPECT_EQ(stick->serialNumber, "20060266910CC9A1E6BB");
    EXPECT_EQ(stick->maxPacketSize, 0);
    const std::string uhciName = "USB 1.10 Controller UHCI";
    ExpectNode(root->children[1], {uhciName, uhciName, "INTEL Corporation", full, " 1.10", hub, usbKindHub, 2});
    EXPECT_EQ(tree.usb20Devices, std::list<USBnode*>{stick});

    root = Parse(Fixture("usb/data/uhci_external_hub.devices"));
    USBnode* external = root->children[0]->children[0];
    const std::string hubName = "General Purpose USB Hub", mouse = "Optical USB Mouse";
    ExpectNode(external, {hubName, hubName, "", full, " 1.10", hub, usbKindHub, 4});
    ExpectNode(external->children[2],
               {mouse, mouse, "Logitech", "1.5 MBit/s", " 1.10", "USB hid", usbKindInterfaceDevice, 0});
    EXPECT_EQ(root->children[0]->bandwidth->percent, 2);

    // Spd=5000, '*' on active lines, A: lines, a blank first line.
    root = Parse(Fixture("usb/data/modern_xhci.devices"));
    ASSERT_EQ(root->maxChildren, 2);
    const std::string xhci = "xHCI Host Controller";
    ExpectNode(root->children[1], {xhci, xhci, "INTEL Corporation", "Unknown", " 3.10", hub, usbKindHub, 6});
    EXPECT_EQ(root->children[0]->children[3]->name, "Unknown Device");
    EXPECT_EQ(root->children[1]->children[1]->class_x, storage);
    EXPECT_TRUE(tree.usb20Devices.empty()) << "a 5000 Mbit/s stick is no USB 2.0 device";

    // OHCI and an unknown controller; the last interface line names the class.
    root = Parse(Fixture("usb/data/ohci_and_unknown.txt"));
    ASSERT_EQ(root->maxChildren, 2);
    EXPECT_EQ(root->children[0]->product, "USB 1.10 Controller OHCI");
    EXPECT_EQ(root->children[1]->product, "USB 1.00 Unknown Controller Type");
    EXPECT_EQ(root->children[0]->children[1]->class_x, "USB hid");
    EXPECT_EQ(root->children[0]->children[1]->kind, usbKindInterfaceDevice);
}

TEST_F(ParserTest, OutOfRangeTextFailsWithItsText) {
    const std::string device = "T:  Bus=01 Lev=01 Prnt=01 Cnt=01 Dev#=  2 Spd=12   MxCh= 0 ";
    std::string controllers;
    for (int bus = 1; bus <= 33; ++bus) controllers += "T:  Bus=" + std::to_string(bus) + " Lev=00 MxCh= 2\n";
    const struct {
        std::string text, message, detail;
    } cases[] = {
        {device + "Port=00\n", discoveryError, ""},
        {"T:  Bus=01 Lev=32 Port=00 MxCh= 0\n", levelError, ""},
        {"T:  Bus=01 Lev=-1 Port=00 MxCh= 0\n", levelError, ""},
        {"T:  Bus=01 Lev=4294967296 Port=00 MxCh= 0\n", levelError, ""},         // must not wrap into range
        {rootHub1 + "T:  Bus=02 Lev=01 Port=00 MxCh= 0\n", discoveryError, ""},  // a new bus forgets the old hubs
        // no ports, no parent
        {"T:  Bus=01 Lev=00 Prnt=00 Port=00 Cnt=00 Dev#=  1 Spd=480  MxCh= 0\n", discoveryError, ""},
        {rootHub1 + device + "Port=40\n", discoveryError, "Port=40 is out of range"},
        {rootHub1 + "T:  Bus=01 Lev=01 Port=32 MxCh= 4\n", discoveryError, "Port=32 is out of range"},
        {rootHub1 + device + "Port=-3\n", discoveryError, "Port=-3 is out of range"},
        {controllers, discoveryError, "more than 32 host controllers"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        const std::pair<std::string, std::string> failure = Failure(c.text);
        EXPECT_EQ(failure.first, c.message);
        EXPECT_EQ(failure.second, c.detail);
    }
    controllers.erase(controllers.rfind("T:"));
    EXPECT_EQ(Parse(controllers)->maxChildren, 32);
}

TEST_F(ParserTest, EmptyUnreadableAndOverlongText) {
    USBnode* root = Parse("");
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->maxChildren, 0);
    LiteralReader closedReader("T:  Bus=01 Lev=00 MxCh= 2\n", false);
    EXPECT_EQ(tree.GrowUSBtree(&closedReader), nullptr);
    EXPECT_EQ(closedReader.mounts, 1) << "one mount attempt before giving up";

    // 255 characters fill the first read; the rest of that line, a T: line of
    // its own, counts. The tail of the long product line is no line kind; a
    // last line without a newline is dropped.
    root = Parse("S:  Product=" + std::string(243, 'x') +
                 "T:  Bus=01 Lev=00 Prnt=00 Port=00 Cnt=00 Dev#=  1 Spd=12   MxCh= 2\n"
                 "S:  Product=" +
                 std::string(600, 'P') + "\nT:  Bus=01 Lev=01 Port=00 MxCh= 0");
    ASSERT_EQ(root->maxChildren, 1);
    EXPECT_EQ(root->children[0]->children[0], nullptr);
    EXPECT_EQ(root->children[0]->product, "");

    std::string configs = rootHub1;
    for (int i = 1; i <= 33; ++i) configs += "C:  #Ifs= 1 Cfg#=" + std::to_string(i) + " Atr=a0 MxPwr=100mA\n";
    EXPECT_EQ(Parse(configs)->children[0]->configurations[31]->configNumber, 32) << "the 33rd finds no slot";
}

TEST_F(ParserTest, NamesFallBackStepByStep) {
    USBnode* root = Parse("T:  Bus=01 Lev=00 Prnt=00 Port=00 Cnt=00 Dev#=  1 Spd=12   MxCh= 2\n"
                          "T:  Bus=01 Lev=01 Prnt=01 Port=00 Cnt=01 Dev#=  2 Spd=12   MxCh= 4\n"
                          "D:  Ver= 1.10 Cls=09(hub  ) Sub=00 Prot=00 MxPS= 8 #Cfgs=  1\n"
                          "T:  Bus=01 Lev=02 Prnt=02 Port=03 Cnt=01 Dev#=  3 Spd=12   MxCh= 0\n");
    USBnode* rootHub = root->children[0];
    EXPECT_EQ(root->name, "");
    EXPECT_EQ(rootHub->name, "Root Hub");
    EXPECT_EQ(rootHub->children[0]->name, "USB Hub");
    EXPECT_EQ(rootHub->children[0]->children[3]->name, "Unknown Device");
    // The descriptor pass names again; it counts keyboards of interfaces, which a parse never makes.
    LiteralReader fileReader(Fixture("usb/data/uhci_external_hub.devices"));
    EXPECT_EQ(tree.RunDescriptorTest(fileReader), 0);
    EXPECT_EQ(tree.root->children[0]->children[0]->name, "Unknown Device");
    tree.FinishTest();
    EXPECT_EQ(tree.root, nullptr);
}

TEST_F(ParserTest, HighSpeedStorageSelection) {
    const int device = usbKindInterfaceDevice;
    const std::tuple<int, const char*, const char*, int, const char*, bool> cases[] = {
        {1, "480 MBit/s", "Cruzer", device, "USB storage", true},
        {3, "480 MBit/s", "", usbKindNone, "USB storage", true},
        {1, "480 MBit/s", "DAT72 tape", device, "USB storage", false},
        {1, "480 MBit/s", "LTO Tape", device, "USB storage", false},
        {1, "480 MBit/s", "Hub", usbKindHub, "USB storage", false},
        {1, "480 MBit/s", "RDX dock", device, "USB storage", false},
        {0, "480 MBit/s", "Controller", device, "USB storage", false},
        {1, "12 MBit/s", "Old stick", device, "USB storage", false},
        {1, "480 MBit/s", "Keyboard", device, "USB hid", false}};
    for (const auto& [level, speed, product, kind, cls, selected] : cases) {
        USBnode node;
        node.level = level;
        node.speed = speed;
        node.product = product;
        node.kind = kind;
        node.class_x = cls;
        tree.usb20Devices.clear();
        tree.CountUsb20Device(&node);
        EXPECT_EQ(tree.usb20Devices.size(), selected ? 1u : 0u) << product;
    }
    tree.usb20Devices.clear();
}

TEST(UsbReader, LongLinesOfAFileComeInPiecesAndTheEndIsSeenLate) {
    TempDir dir;
    struct FileReader : USBInfoReader {
        explicit FileReader(const std::string& path) : path(path) { devicesFile = this->path.c_str(); }
        std::string path;
    } reader(dir.Write("text", std::string(300, 'a') + "\nlast\n"));
    ASSERT_TRUE(reader.open());
    char buffer[USBInfoReader::lineBufferSize];
    std::vector<std::string> pieces;
    while (reader.readLine(buffer)) pieces.push_back(buffer + std::string(reader.moreLines() ? "" : "<end>"));
    EXPECT_EQ(pieces, (std::vector<std::string>{std::string(255, 'a'), std::string(45, 'a') + "\n", "last\n"}))
        << "the end is not known before a read meets it";
    EXPECT_TRUE(reader.noMoreLines());
    ASSERT_TRUE(reader.open()) << "a second open reads from the start";
    EXPECT_EQ(reader.readLine(buffer)[0], 'a');
    reader.close();
    EXPECT_FALSE(FileReader(dir.Path("missing")).open());
}

// The earlier device leaves the tree with all below it; what its lines selected stays selected.
TEST_F(ParserTest, ALaterDeviceOnAnOccupiedPortTakesTheSlot) {
    USBnode* root = Parse(Fixture("usb/data/two_on_one_port.devices"));
    ASSERT_NE(root, nullptr);
    USBnode* rootHub = root->children[0];
    ASSERT_NE(rootHub->children[2], nullptr);
    EXPECT_EQ(rootHub->children[2]->product, "Optical USB Mouse");
    EXPECT_EQ(rootHub->children[2]->parent, rootHub);
    EXPECT_EQ(rootHub->children[2]->children[0], nullptr) << "the earlier hub's stick is not the mouse's";
    EXPECT_EQ(rootHub->children[2]->children[1], nullptr) << "a stick behind the mouse goes to the earlier hub";
    ASSERT_EQ(tree.usb20Devices.size(), 2u);
    EXPECT_EQ(tree.usb20Devices.front()->product, "Cruzer");
    EXPECT_EQ(tree.usb20Devices.back()->product, "DT 101 G2");
}
