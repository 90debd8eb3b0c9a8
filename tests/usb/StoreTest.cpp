// USB devices in the state stream: one shared tree comes back, copies share it, damage is refused.
#include "UsbTestSupport.h"
#include "common/TvkError.h"

namespace {

// Writes what a USBDevice writes, with a top and a node of the test's choosing.
class ForgedUSBDevice : public Persistent {
public:
    ForgedUSBDevice(USBnode* top, USBnode* node) : top(top), node(node) {}
    void ReadAndWrite(ptstream& stream, direction, unsigned int) override {
        optstream& out = static_cast<optstream&>(stream);
        out << std::string("usbDevice") << false << "c"
            << "d" << uint32_t(0) << uint32_t(0) << uint32_t(0) << top;
        out.WriteReference(node);
        out << true;
    }
    void CopyFromPointer(const Persistent*) override {}
    const char* GetRealClassName() const override { return "USBDevice"; }
    Persistent* CreateCopy() const override { return nullptr; }
    const Persistent* top;
    USBnode* node;
};

USBnode* Child(USBnode* parent, int port) {
    USBnode* child = new USBnode();
    child->parent = parent;
    parent->children.Set(port, child);
    return child;
}

// The detail of the PersistenceError that reading the objects back raises.
std::string ReadFailure(std::vector<const Persistent*> objects) {
    optstream out;
    for (const Persistent* p : objects) out << p;
    iptstream in = iptstream::FromMemory(out.GetBuffer());
    std::vector<std::unique_ptr<Persistent>> read(objects.size());
    try {
        for (auto& p : read) {
            Persistent* object = nullptr;
            in >> object;
            p.reset(object);
        }
    } catch (const PersistenceError& error) {
        return error.GetDetail();
    }
    return "no failure";
}

// The stored fields of a node, each against the original's.
void ExpectStoredFields(const USBnode& restored, const USBnode& original) {
    EXPECT_EQ(restored.name, original.name);
    EXPECT_EQ(restored.speed, original.speed);
    EXPECT_EQ(restored.version, original.version);
    EXPECT_EQ(restored.class_x, original.class_x);
    EXPECT_EQ(restored.vendorId, original.vendorId);
    EXPECT_EQ(restored.manufacturer, original.manufacturer);
    EXPECT_EQ(restored.serialNumber, original.serialNumber);
    EXPECT_EQ(restored.configurations[0]->maxPower, original.configurations[0]->maxPower);
    EXPECT_EQ(restored.level, original.level);
    EXPECT_EQ(restored.portNumber, original.portNumber);
    EXPECT_EQ(restored.deviceNumber, original.deviceNumber);
}

class UsbStoreTest : public UsbComponentTest {
protected:
    void Discover(const std::string& fixture) {
        LiteralReader reader(Fixture("usb/data/" + fixture));
        ParseWithProcBusUsbDevices(reader, component.devices);
    }
};

}  // namespace

TEST_F(UsbStoreTest, TreesComeBackWholeAndSharedByAllDevices) {
    Discover("ehci_uhci_stick.devices");
    std::unique_ptr<USBTestComponent> restored = RoundTrip<USBTestComponent>(component);
    ASSERT_NE(restored, nullptr);
    std::vector<USBDevice*> after = UsbDevicesOf(restored->devices);
    ASSERT_EQ(after.size(), 3u);
    USBnode* top = after[0]->TreeTop();
    for (USBDevice* d : after) EXPECT_EQ(d->TreeTop(), top);
    EXPECT_EQ(top->Holders(), 3);
    EXPECT_EQ(top->maxChildren, 2);
    EXPECT_FALSE(after[1]->isController);
    USBnode* ehci = after[0]->node;
    EXPECT_EQ(ehci, top->children[0]);
    EXPECT_EQ(ehci->parent, top);
    EXPECT_EQ(after[2]->node, top->children[1]);
    EXPECT_EQ(ehci->bandwidth->total, 800);
    EXPECT_EQ(after[1]->node, ehci->children[2]) << "the stick is the node in the tree";
    EXPECT_EQ(after[1]->node->parent, ehci);
    ExpectStoredFields(*after[1]->node, *UsbDevicesOf(component.devices)[1]->node);
    EXPECT_EQ(after[1]->node->kind, usbKindNone) << "kind is not stored";
    restored->RemoveDevice(after[0]);
    restored->RemoveDevice(after[2]);
    EXPECT_EQ(top->Holders(), 1) << "the restored devices let go of their tree one by one";
    EXPECT_EQ(after[1]->node->product, "Cruzer");

    g_factoryMode = 1;
    component.PurgeDevices();
    Discover("uhci_external_hub.devices");
    restored = RoundTrip<USBTestComponent>(component);
    ASSERT_NE(restored, nullptr);
    after = UsbDevicesOf(restored->devices);
    ASSERT_EQ(after.size(), 8u);
    top = after[0]->TreeTop();
    EXPECT_EQ(after[2]->node, top) << "an empty port points at the root";
    EXPECT_EQ(after[1]->TreeTop(), after[1]->node) << "the hub's port entry keeps its own node";
    EXPECT_EQ(top->Holders(), 7);
    EXPECT_EQ(after[1]->TreeTop()->Holders(), 1);
    EXPECT_EQ(after[6]->node->parent, after[3]->node);
    std::unique_ptr<USBDevice> bare = RoundTrip<USBDevice>(USBDevice(usbxml::usbDevice, nullptr, false));
    ASSERT_NE(bare, nullptr);
    EXPECT_EQ(bare->node, nullptr) << "a device without a node stores no tree";
    EXPECT_EQ(bare->TreeTop(), nullptr);
}

TEST_F(UsbStoreTest, CopiesShareTheTreeAndDiscoveriesFreeTheirs) {
    Discover("ehci_uhci_stick.devices");
    USBDevice* stick = UsbDevicesOf(component.devices)[1];
    USBnode* top = stick->TreeTop();
    {
        std::unique_ptr<Persistent> copy(stick->CreateCopy());
        EXPECT_EQ(static_cast<USBDevice*>(copy.get())->node, stick->node);
        EXPECT_EQ(top->Holders(), 4);
    }
    USBDevice other(usbxml::usbDevice, nullptr, false);
    other.CopyFromPointer(stick);
    EXPECT_EQ(other.node, stick->node);
    for (int i = 0; i < 3; ++i) {  // LeakSanitizer checks that nothing stays behind
        component.PurgeDevices();
        Discover("uhci_external_hub.devices");
        EXPECT_EQ(component.devices.size(), 3u);
    }
    EXPECT_EQ(top->Holders(), 1) << "only the copy holds the first tree now";
    component.PurgeDevices();
    LiteralReader empty(""), closed("", false);
    LiteralReader broken("T:  Bus=01 Lev=00 MxCh= 2\nT:  Bus=01 Lev=01 Port=77 MxCh= 0\n");
    EXPECT_EQ(ParseWithProcBusUsbDevices(empty, component.devices), 0);
    EXPECT_EQ(ParseWithProcBusUsbDevices(closed, component.devices), 0);
    EXPECT_THROW(ParseWithProcBusUsbDevices(broken, component.devices), TvkError);
    EXPECT_TRUE(component.devices.empty());
}

TEST_F(UsbStoreTest, DamagedStreamsAreRefused) {
    {  // a child whose stored parent is its sibling
        USBnode root;
        Child(&root, 1)->parent = Child(&root, 0);
        EXPECT_EQ(ReadFailure({&root}), "USB node stored under a node not its parent");
        root.children[1]->parent = &root;
    }
    {  // one node in two child slots: the second is a reference, not an owner
        USBnode root;
        root.children.Set(1, Child(&root, 0));
        EXPECT_EQ(ReadFailure({&root}), "reference where an owned object is expected");
        root.children.Set(1, nullptr);
    }
    USBnode first, second, stray;
    USBnode* inner = Child(&first, 0);
    Child(&second, 3);
    stray.parent = inner;
    const ForgedUSBDevice good(&first, inner), otherTree(&second, inner), innerTop(inner, inner);
    const ForgedUSBDevice strayTop(&stray, &stray), noNode(&first, nullptr);
    EXPECT_EQ(ReadFailure({&good, &otherTree}), "USB device's node lies outside its tree");
    EXPECT_EQ(ReadFailure({&good, &innerTop}), "USB device's tree does not start at its top node");
    EXPECT_EQ(ReadFailure({&good, &strayTop}), "USB device's tree does not start at its top node")
        << "a top with a parent";
    EXPECT_EQ(ReadFailure({&noNode}), "USB device's node lies outside its tree");
}

// Slots take room only up to the highest one filled, yet every record still has all 32 and stores all 32, empty
// ones as null, just as when each was a fixed array.
TEST(UsbSlots, RoomOnlyForFilledSlotsAndTheStoredFormKeepsAllOfThem) {
    USBnode root;
    EXPECT_EQ(root.children.Room(), 0) << "no child, no room";
    USBnode* child = Child(&root, 7);
    root.children.Set(20, nullptr);
    EXPECT_GE(root.children.Room(), 8);
    EXPECT_LT(root.children.Room(), 21) << "an empty slot set to null makes no room";
    EXPECT_EQ(root.children[7], child);
    EXPECT_EQ(root.children[6], nullptr);
    EXPECT_EQ(root.children[31], nullptr);
    EXPECT_EQ(root.children[32], nullptr);
    EXPECT_EQ(root.children[-1], nullptr);
    EXPECT_THROW(root.children.Set(usbMaxSlots, child), std::out_of_range);
    EXPECT_EQ(std::count(root.children.begin(), root.children.end(), nullptr), usbMaxSlots - 1);

    root.configurations.Set(0, new USBconfig());
    root.configurations[0]->maxPower = "100mA";
    optstream got;
    root.ReadAndWrite(got, ptWrite, 0);
    optstream want;
    want << root.name << root.speed << root.version << root.class_x << root.subClass << root.protocol << root.vendorId
         << root.productId << root.revisionNumber << root.manufacturer << root.product << root.serialNumber;
    want << root.busNumber << root.level << root.parentNumber << root.portNumber << root.connectorNumber << root.count
         << root.deviceNumber << root.maxChildren << root.maxPacketSize << root.numConfigs;
    for (int i = 0; i < usbMaxSlots; ++i)
        want << static_cast<const Persistent*>(i == 0 ? root.configurations[0] : nullptr);
    want.WriteReference(nullptr);
    for (int i = 0; i < usbMaxSlots; ++i) want << static_cast<const Persistent*>(i == 7 ? child : nullptr);
    want << static_cast<const Persistent*>(nullptr);
    EXPECT_EQ(got.GetBuffer(), want.GetBuffer());

    optstream whole;
    whole << static_cast<const Persistent*>(&root);
    iptstream in = iptstream::FromMemory(whole.GetBuffer());
    Persistent* read = nullptr;
    in >> read;
    std::unique_ptr<USBnode> back(dynamic_cast<USBnode*>(read));
    ASSERT_NE(back, nullptr);
    ASSERT_NE(back->children[7], nullptr);
    EXPECT_EQ(back->children[7]->parent, back.get());
    EXPECT_EQ(std::count(back->children.begin(), back->children.end(), nullptr), usbMaxSlots - 1);
    EXPECT_EQ(back->configurations[0]->maxPower, "100mA");
}
