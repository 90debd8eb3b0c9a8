// The USB records and devices in the state stream: a tree shared by many
// devices comes back as one tree held by all of them, copies share it, and
// damaged streams are refused without leaking or freeing anything twice.
#include <gtest/gtest.h>

#include <memory>

#include "LiteralReader.h"
#include "UsbTestSupport.h"
#include "common/Persistent.h"
#include "tc/usb/linux/Discovery.h"
#include "tc/usb/linux/USBtree.h"
#include "tc/usb/linux/usbxml.h"

namespace {

// Writes what a USBDevice writes, with a top and a node of the test's
// choosing, so that damaged streams can be made.
class ForgedUSBDevice : public Persistent {
public:
    ForgedUSBDevice(const char* name, USBnode* top, USBnode* node) : name(name), top(top), node(node) {}
    void ReadAndWrite(ptstream& stream, direction, unsigned int) override {
        optstream& out = static_cast<optstream&>(stream);
        out << name << false << "c" << "d" << uint32_t(0) << uint32_t(0) << uint32_t(0);
        out << static_cast<const Persistent*>(top);
        out.WriteReference(node);
        out << true;
    }
    void CopyFromPointer(const Persistent*) override {}
    const char* GetRealClassName() const override { return "USBDevice"; }
    Persistent* CreateCopy() const override { return nullptr; }

private:
    std::string name;
    USBnode* top;
    USBnode* node;
};

USBnode* Child(USBnode* parent, int port, const char* name) {
    USBnode* child = new USBnode();
    child->name = name;
    child->portNumber = port;
    child->parent = parent;
    parent->children[port] = child;
    return child;
}

// The detail of the PersistenceError that reading the stream raises.
std::string ReadFailure(const optstream& out, int objects) {
    iptstream in = iptstream::FromMemory(out.GetBuffer());
    std::vector<std::unique_ptr<Persistent>> read;
    try {
        for (int i = 0; i < objects; ++i) {
            Persistent* p = nullptr;
            in >> p;
            read.emplace_back(p);
        }
    } catch (const PersistenceError& error) {
        return error.GetDetail();
    }
    return "no failure";
}

class UsbStoreTest : public UsbComponentTest {
protected:
    std::unique_ptr<USBTestComponent> RoundTrip() {
        optstream out;
        out << static_cast<const Persistent*>(&component);
        iptstream in = iptstream::FromMemory(out.GetBuffer());
        Persistent* read = nullptr;
        in >> read;
        std::unique_ptr<USBTestComponent> restored(dynamic_cast<USBTestComponent*>(read));
        EXPECT_NE(restored, nullptr);
        if (!restored) delete read;
        return restored;
    }
    static std::vector<USBDevice*> UsbDevicesOf(USBTestComponent& c) {
        std::vector<USBDevice*> result;
        for (Device* d : c.devices) result.push_back(dynamic_cast<USBDevice*>(d));
        return result;
    }
};

}  // namespace

TEST_F(UsbStoreTest, TreeComesBackWholeAndSharedByAllDevices) {
    LiteralReader reader(Fixture("ehci_uhci_stick.devices"));
    ParseWithProcBusUsbDevices(reader, component.devices);
    std::unique_ptr<USBTestComponent> restored = RoundTrip();
    ASSERT_NE(restored, nullptr);
    std::vector<USBDevice*> before = UsbDevices();
    std::vector<USBDevice*> after = UsbDevicesOf(*restored);
    ASSERT_EQ(after.size(), 3u);

    USBnode* top = after[0]->TreeTop();
    ASSERT_NE(top, nullptr);
    for (USBDevice* d : after) EXPECT_EQ(d->TreeTop(), top);
    EXPECT_EQ(top->Holders(), 3);
    EXPECT_EQ(top->maxChildren, 2);
    EXPECT_FALSE(after[1]->isController);
    USBnode* ehci = after[0]->node;
    EXPECT_EQ(ehci, top->children[0]);
    EXPECT_EQ(ehci->parent, top);
    EXPECT_EQ(after[1]->node, ehci->children[2]) << "the stick is the node inside the tree, not a copy";
    EXPECT_EQ(after[1]->node->parent, ehci);
    EXPECT_EQ(after[2]->node, top->children[1]);

    const USBnode& a = *before[1]->node;
    const USBnode& b = *after[1]->node;
    EXPECT_EQ(b.name + b.speed + b.version + b.class_x + b.vendorId + b.manufacturer + b.serialNumber,
              a.name + a.speed + a.version + a.class_x + a.vendorId + a.manufacturer + a.serialNumber);
    EXPECT_EQ(b.level * 1000 + b.portNumber * 100 + b.deviceNumber, a.level * 1000 + a.portNumber * 100 + a.deviceNumber);
    EXPECT_EQ(b.configurations[0]->maxPower, a.configurations[0]->maxPower);
    EXPECT_EQ(b.kind, usbKindNone) << "kind is not stored";
    EXPECT_EQ(ehci->bandwidth->total, 800);

    // The restored devices let go of their tree one by one.
    restored->RemoveDevice(after[0]);
    restored->RemoveDevice(after[2]);
    EXPECT_EQ(top->Holders(), 1);
    EXPECT_EQ(after[1]->node->product, "Cruzer");
}

TEST_F(UsbStoreTest, FactoryPortsAndStandaloneNodesRoundTrip) {
    g_factoryMode = 1;
    LiteralReader reader(Fixture("uhci_external_hub.devices"));
    ParseWithProcBusUsbDevices(reader, component.devices);
    USBDevice bare(usbxml::usbDevice, nullptr, false);
    std::unique_ptr<USBTestComponent> restored = RoundTrip();
    ASSERT_NE(restored, nullptr);
    std::vector<USBDevice*> after = UsbDevicesOf(*restored);
    ASSERT_EQ(after.size(), 8u);
    USBnode* top = after[0]->TreeTop();
    EXPECT_EQ(after[2]->node, top) << "an empty port points at the root";
    EXPECT_EQ(after[1]->TreeTop(), after[1]->node) << "the hub's port entry keeps its own node";
    EXPECT_EQ(top->Holders(), 7);
    EXPECT_EQ(after[1]->TreeTop()->Holders(), 1);
    EXPECT_EQ(after[6]->node->parent, after[3]->node);

    // A device without a node stores no tree.
    optstream out;
    out << static_cast<const Persistent*>(&bare);
    iptstream in = iptstream::FromMemory(out.GetBuffer());
    Persistent* read = nullptr;
    in >> read;
    std::unique_ptr<USBDevice> copy(dynamic_cast<USBDevice*>(read));
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->node, nullptr);
    EXPECT_EQ(copy->TreeTop(), nullptr);
}

TEST_F(UsbStoreTest, CopiesShareTheTree) {
    LiteralReader reader(Fixture("ehci_uhci_stick.devices"));
    ParseWithProcBusUsbDevices(reader, component.devices);
    USBDevice* stick = UsbDevices()[1];
    USBnode* top = stick->TreeTop();
    {
        std::unique_ptr<Persistent> copy(stick->CreateCopy());
        EXPECT_EQ(static_cast<USBDevice*>(copy.get())->node, stick->node);
        EXPECT_EQ(top->Holders(), 4);
    }
    EXPECT_EQ(top->Holders(), 3);
    USBDevice other(usbxml::usbDevice, nullptr, false);
    other.CopyFromPointer(stick);
    EXPECT_EQ(other.node, stick->node);
    EXPECT_EQ(top->Holders(), 4);

    // Repeated discoveries leave no tree behind (LeakSanitizer checks).
    for (int i = 0; i < 5; ++i) {
        component.PurgeDevices();
        LiteralReader again(Fixture("uhci_external_hub.devices"));
        ParseWithProcBusUsbDevices(again, component.devices);
        EXPECT_EQ(component.devices.size(), 3u);
    }
    EXPECT_EQ(top->Holders(), 1) << "only the copy holds the first tree now";
}

TEST_F(UsbStoreTest, EmptyDiscoveryFreesItsTree) {
    LiteralReader reader("");
    EXPECT_EQ(ParseWithProcBusUsbDevices(reader, component.devices), 0);
    EXPECT_TRUE(component.devices.empty());
    LiteralReader closed("", false);
    EXPECT_EQ(ParseWithProcBusUsbDevices(closed, component.devices), 0);
    LiteralReader broken("T:  Bus=01 Lev=00 MxCh= 2\nT:  Bus=01 Lev=01 Port=77 MxCh= 0\n");
    EXPECT_THROW(ParseWithProcBusUsbDevices(broken, component.devices), TvkError);
    EXPECT_TRUE(component.devices.empty());
}

TEST_F(UsbStoreTest, DamagedTreesAreRefused) {
    // A child whose stored parent is its sibling.
    {
        USBnode root;
        USBnode* a = Child(&root, 0, "a");
        USBnode* b = Child(&root, 1, "b");
        b->parent = a;
        optstream out;
        out << static_cast<const Persistent*>(&root);
        b->parent = &root;
        EXPECT_EQ(ReadFailure(out, 1), "USB node stored under a node not its parent");
    }
    // One node in two child slots: the second is a reference, not an owner.
    {
        USBnode root;
        USBnode* a = Child(&root, 0, "a");
        root.children[1] = a;
        optstream out;
        out << static_cast<const Persistent*>(&root);
        root.children[1] = nullptr;
        EXPECT_EQ(ReadFailure(out, 1), "reference where an owned object is expected");
    }
}

TEST_F(UsbStoreTest, DamagedDevicesAreRefused) {
    USBnode first;
    USBnode* firstChild = Child(&first, 0, "first child");
    USBnode second;
    USBnode* secondChild = Child(&second, 3, "second child");
    (void)secondChild;

    // The node lies in another device's tree.
    {
        optstream out;
        ForgedUSBDevice a("usbDevice0", &first, firstChild);
        ForgedUSBDevice b("usbDevice1", &second, firstChild);
        out << static_cast<const Persistent*>(&a) << static_cast<const Persistent*>(&b);
        EXPECT_EQ(ReadFailure(out, 2), "USB device's node lies outside its tree");
    }
    // The tree is given by an inner node of another tree.
    {
        optstream out;
        ForgedUSBDevice a("usbDevice0", &first, firstChild);
        ForgedUSBDevice b("usbDevice1", firstChild, firstChild);
        out << static_cast<const Persistent*>(&a) << static_cast<const Persistent*>(&b);
        EXPECT_EQ(ReadFailure(out, 2), "USB device's tree does not start at its top node");
    }
    // A new tree whose top claims a parent read before: refused and freed.
    {
        USBnode stray;
        stray.parent = firstChild;
        optstream out;
        ForgedUSBDevice a("usbDevice0", &first, firstChild);
        ForgedUSBDevice b("usbDevice1", &stray, &stray);
        out << static_cast<const Persistent*>(&a) << static_cast<const Persistent*>(&b);
        EXPECT_EQ(ReadFailure(out, 2), "USB device's tree does not start at its top node");
    }
    // A tree without a node.
    {
        optstream out;
        ForgedUSBDevice a("usbDevice0", &first, nullptr);
        out << static_cast<const Persistent*>(&a);
        EXPECT_EQ(ReadFailure(out, 1), "USB device's node lies outside its tree");
    }
}
