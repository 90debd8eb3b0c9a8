// Devices: name-making, the device set, the device element, tests and
// diagnoses lists, and the stored form of a component with its devices.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "common/Persistent.h"
#include "common/StringUtil.h"
#include "common/TvkError.h"
#include "common/XmlObject.h"
#include "tc/frame/TestComponent.h"
#include "tc/framework/Device.h"
#include "tc/framework/Test.h"

namespace {

std::vector<std::string> events;

char* recordEvent(const char* xml) {
    events.emplace_back(xml);
    return nullptr;
}

class ModelDevice : public Device {
public:
    bool failInDoID = false;
    bool failInInitialize = false;
    ModelDevice() = default;
    ModelDevice(const std::string& name, bool makeUnique) : Device(name, makeUnique) {}
    void Initialize() override {
        if (failInInitialize) throw TvkError("cannot start", "", "");
    }
    void DoID(XmlObject& xml, bool catalog) override {
        if (failInDoID) throw TvkError("broken", "detail", "");
        XmlObject marker;
        marker.name = catalog ? "template" : "real";
        xml.AddObject(marker);
    }
    void CopyFromPointer(const Persistent* other) override { PersistentCopyFrom(this, other); }
    const char* GetRealClassName() const override { return "ModelDevice"; }
    Persistent* CreateCopy() const override { return new ModelDevice(*this); }
};
ClassRegistrar<ModelDevice> ModelDeviceClassRegistrar;

class ModelTest : public Test {
public:
    static int liveCount;
    int setParametersCalls = 0;
    ModelTest() { ++liveCount; }
    ModelTest(const std::string& name, Device* device) : Test(name, device) { ++liveCount; }
    ModelTest(const ModelTest& other) : Test(other) { ++liveCount; }
    ~ModelTest() override { --liveCount; }
    void SetParameters() override { ++setParametersCalls; }
    bool DoRun(const XmlObject&) override { return true; }
    void CopyFromPointer(const Persistent* other) override { PersistentCopyFrom(this, other); }
    const char* GetRealClassName() const override { return "ModelTest"; }
    Persistent* CreateCopy() const override { return new ModelTest(*this); }
};
int ModelTest::liveCount = 0;
ClassRegistrar<ModelTest> ModelTestClassRegistrar;

class ModelComponent : public TestComponent {
public:
    std::string Catalog() override { return "<catResult/>"; }
    std::string ID() override { return "<idResult/>"; }
    void CopyFromPointer(const Persistent* other) override { PersistentCopyFrom(this, other); }
    const char* GetRealClassName() const override { return "ModelComponent"; }
    Persistent* CreateCopy() const override { return new ModelComponent(*this); }
};
ClassRegistrar<ModelComponent> ModelComponentClassRegistrar;

class DeviceModel : public ::testing::Test {
protected:
    ModelComponent component;
    void SetUp() override {
        events.clear();
        component.eventCallback = &recordEvent;
        pTestComponent = &component;
    }
    void TearDown() override { pTestComponent = nullptr; }

    ModelDevice* Add(const std::string& name, bool makeUnique = true) {
        auto* d = new ModelDevice(name, makeUnique);
        EXPECT_TRUE(component.devices.insert(d).second) << name;
        return d;
    }
    std::vector<std::string> Names() const {
        std::vector<std::string> names;
        for (const Device* d : component.devices) names.push_back(d->name);
        return names;
    }
};

TEST_F(DeviceModel, NamesGetTheLowestFreeNumber) {
    Add("usbDevice0", false);
    Add("usbDevice2", false);
    EXPECT_EQ(Add("usbDevice")->name, "usbDevice1");
    EXPECT_EQ(Add("usbDevice7")->name, "usbDevice3");  // its own number gives way
    EXPECT_EQ(Add("usbDevice")->name, "usbDevice4");
    for (int i = 0; i < 8; ++i) Add("usbDevice");
    EXPECT_EQ(Names().back(), "usbDevice12");
    EXPECT_EQ(Names()[2], "usbDevice2");  // natural order: 2 before 10

    // A gap left by a device that goes is filled again.
    component.RemoveDevice(component.FindDevice("usbDevice3"));
    EXPECT_EQ(Add("usbDevice")->name, "usbDevice3");
    // Also when the device went while no one watched the hints.
    Device* five = component.FindDevice("usbDevice5");
    component.devices.erase(five);
    delete five;
    component.ForgetNameHints();
    EXPECT_EQ(Add("usbDevice")->name, "usbDevice5");

    // Digits alone, or no trailing digits, are kept as the base.
    EXPECT_EQ(ModelDevice("123", true).name, "1230");
    EXPECT_EQ(ModelDevice("hub", true).name, "hub0");
    EXPECT_EQ(ModelDevice("usbDevice9", false).name, "usbDevice9");
}

TEST_F(DeviceModel, NoNumberWhileBuildingACatalogOrWithoutAComponent) {
    Add("usbDevice", false);
    component.buildingCatalog = true;
    EXPECT_EQ(ModelDevice("usbDevice42", true).name, "usbDevice");
    component.buildingCatalog = false;
    pTestComponent = nullptr;
    EXPECT_EQ(ModelDevice("usbDevice42", true).name, "usbDevice");
}

TEST_F(DeviceModel, SetOrderAndLookupFollowNaturalOrder) {
    Add("usbDevice10", false);
    Add("usbDevice2", false);
    Add("usbDevice1", false);
    Add("hub", false);
    EXPECT_EQ(Names(), (std::vector<std::string>{"hub", "usbDevice1", "usbDevice2", "usbDevice10"}));
    // An equal name is not inserted twice.
    ModelDevice duplicate("usbDevice2", false);
    EXPECT_FALSE(component.devices.insert(&duplicate).second);
    EXPECT_NE(component.FindDevice("usbDevice10"), nullptr);
    EXPECT_EQ(component.FindDevice("usbDevice3"), nullptr);
    EXPECT_EQ(component.FindDevice("USBDEVICE10"), nullptr);
}

TEST_F(DeviceModel, DeviceElementAndItsLogLine) {
    ModelDevice* d = Add("usbDevice");
    d->caption = "USB Device 1";
    d->description = "Mass storage";
    d->AddProperty(new Property("SpeedInfo", "USB Speed", "480 MBit/s"));
    d->AddInterface("usbDevice9", "Hub", "up", parentRole);
    d->AddInterface("x", "c", "d", static_cast<InterfaceRole>(7));
    EXPECT_EQ(d->ID(false),
              "<device name=\"usbDevice0\" class=\"device\" caption=\"USB Device 1\" description=\"Mass storage\" "
              "diagnosable=\"0\"><real/>"
              "<property name=\"SpeedInfo\" caption=\"USB Speed\" value=\"480 MBit/s\"/>"
              "<interface name=\"usbDevice9\" caption=\"Hub\" description=\"up\" role=\"parent\"/>"
              "<interface name=\"x\" caption=\"c\" description=\"d\"/></device>");
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0],
              "<diagEvent component=\"\" caption=\"Device Discovered\" description=\"USB Device 1 - Mass storage\"/>");

    // Empty caption: the name is logged; a description inside the caption
    // is not repeated; the catalogue form skips Initialize.
    events.clear();
    d->caption = "";
    d->description = "Storage";
    d->className = "usbDevice";
    d->failInInitialize = true;
    std::string templateXml = d->ID(true);
    EXPECT_NE(templateXml.find("class=\"usbDevice\""), std::string::npos);
    EXPECT_NE(templateXml.find("<template/>"), std::string::npos);
    EXPECT_EQ(events.back(), "<diagEvent component=\"\" caption=\"Device Discovered\" description=\"usbDevice0 - Storage\"/>");
    d->caption = "Device";
    d->description = "Device";
    d->failInInitialize = false;
    d->ID(false);
    EXPECT_EQ(events.back(), "<diagEvent component=\"\" caption=\"Device Discovered\" description=\"Device\"/>");
}

TEST_F(DeviceModel, AFaultyDeviceKeepsItsErrorInsideItsElement) {
    ModelDevice* d = Add("usbDevice");
    d->failInDoID = true;
    EXPECT_EQ(d->ID(false),
              "<device name=\"usbDevice0\" class=\"device\" caption=\"Device\" description=\"Device\">"
              "<error errorCode=\"TvkError\" key=\"broken\" detail=\"detail\" reference=\"ID, device\">"
              "broken: detail</error></device>");
    EXPECT_TRUE(events.empty());

    // Without a callback the event fails after the flag was set.
    d->failInDoID = false;
    component.eventCallback = nullptr;
    std::string xml = d->ID(false);
    EXPECT_NE(xml.find("diagnosable=\"0\""), std::string::npos);
    EXPECT_NE(xml.find("key=\"Event callback not registered!\""), std::string::npos);
}

TEST_F(DeviceModel, TestsListReplacesByNameAndFindsExactly) {
    ModelDevice* d = Add("usbDevice");
    auto* a = new ModelTest("alpha", d);
    auto* b = new ModelTest("beta", d);
    d->AddTest(a);
    d->AddTest(b);
    d->AddTest(nullptr);
    EXPECT_EQ(a->setParametersCalls, 1);
    auto* a2 = new ModelTest("alpha", d);
    d->AddTest(a2);  // replaces alpha and takes the last place
    ASSERT_EQ(d->tests.size(), 2u);
    EXPECT_EQ(d->tests[0], b);
    EXPECT_EQ(d->tests[1], a2);
    EXPECT_EQ(d->FindTest("alpha"), a2);
    EXPECT_EQ(d->FindTest("Alpha"), nullptr);
    EXPECT_EQ(ModelTest::liveCount, 2);

    XmlObject element;
    d->AddTestAndId(new ModelTest("gamma", d), element);
    ASSERT_EQ(element.children.size(), 1u);
    EXPECT_EQ(element.children[0].name, "test");
    EXPECT_EQ(element.children[0].GetAttributeValue("name"), "gamma");
}

TEST_F(DeviceModel, ComponentRoundTripsThroughTheStateStream) {
    ModelDevice* d0 = Add("usbDevice");
    ModelDevice* d1 = Add("usbDevice");
    d0->caption = "first";
    d0->locked = true;
    d0->AddInterface("usbDevice1", "second", "child", childRole);
    d0->AddTest(new ModelTest("alpha", d0));
    d1->AddTest(new ModelTest("beta", d1));
    component.componentName = "libzorbus.so";

    optstream out;
    out << static_cast<const Persistent*>(&component);
    iptstream in = iptstream::FromMemory(out.GetBuffer());
    TestComponent* restored = nullptr;
    in.ReadOwned(restored);
    ASSERT_NE(restored, nullptr);
    EXPECT_STREQ(restored->GetRealClassName(), "ModelComponent");
    EXPECT_EQ(restored->componentName, "libzorbus.so");
    ASSERT_EQ(restored->devices.size(), 2u);
    Device* r0 = *restored->devices.begin();
    EXPECT_EQ(r0->name, "usbDevice0");
    EXPECT_EQ(r0->caption, "first");
    EXPECT_TRUE(r0->locked);
    ASSERT_EQ(r0->interfaces.size(), 1u);
    EXPECT_EQ(r0->interfaces[0].role, childRole);
    ASSERT_EQ(r0->tests.size(), 1u);
    EXPECT_EQ(r0->tests[0]->device, r0);  // the back reference points at the restored device
    EXPECT_EQ(r0->tests[0]->name, "alpha");

    // Writing the restored graph gives the same bytes.
    optstream again;
    again << static_cast<const Persistent*>(restored);
    EXPECT_EQ(again.GetBuffer(), out.GetBuffer());
    delete restored;

    // An empty set is a count of 0 and comes back empty.
    ModelComponent empty;
    optstream emptyOut;
    emptyOut << static_cast<const Persistent*>(&empty);
    iptstream emptyIn = iptstream::FromMemory(emptyOut.GetBuffer());
    TestComponent* back = nullptr;
    emptyIn.ReadOwned(back);
    ASSERT_NE(back, nullptr);
    EXPECT_TRUE(back->devices.empty());
    delete back;
}

TEST_F(DeviceModel, CopiesAreDeep) {
    ModelDevice* d = Add("usbDevice");
    d->AddTest(new ModelTest("alpha", d));
    d->AddProperty(new Property("p", "c", "v"));
    d->className = "special";
    int before = ModelTest::liveCount;
    Persistent* copy = component.CreateCopy();
    EXPECT_EQ(ModelTest::liveCount, before + 1);
    auto* copied = static_cast<TestComponent*>(copy);
    Device* cd = *copied->devices.begin();
    EXPECT_NE(cd, d);
    EXPECT_TRUE(cd->properties.empty());  // properties and class name are not copied
    EXPECT_TRUE(cd->className.empty());
    EXPECT_EQ(cd->tests[0]->device, d);  // a copied test keeps its device
    delete copy;
    EXPECT_EQ(ModelTest::liveCount, before);
    EXPECT_EQ(d->tests.size(), 1u);

    // CopyFromPointer ignores null, itself and other classes.
    Interface i("n", "c", "d", siblingRole);
    i.CopyFromPointer(nullptr);
    i.CopyFromPointer(&i);
    i.CopyFromPointer(d);
    EXPECT_EQ(i.name, "n");
    Interface other("m", "c2", "d2", parentRole);
    i.CopyFromPointer(&other);
    EXPECT_EQ(i.name, "m");
    EXPECT_EQ(i.role, parentRole);
}

// The write directory is decided once per process, so each case runs in a
// child process of its own.
void expectWriteDirectory(const char* env, const std::string& expected) {
    EXPECT_EXIT(
        {
            if (env) setenv("CORVANEWRITEDIR", env, 1);
            else unsetenv("CORVANEWRITEDIR");
            std::string first = TestComponent::GetDiagsWriteDirectory();
            setenv("CORVANEWRITEDIR", "/", 1);
            std::string second = TestComponent::GetDiagsWriteDirectory();
            exit(first == expected && second == expected ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "")
        << (env ? env : "(unset)");
}

TEST(WriteDirectory, DecidedOnceFromTheEnvironment) {
    expectWriteDirectory(nullptr, ".");
    expectWriteDirectory("", ".");
    expectWriteDirectory("/tmp", "/tmp");
    expectWriteDirectory("/tmp/", "/tmp");
    expectWriteDirectory("/tmp//", "/tmp/");
    expectWriteDirectory("/no/such/folder", ".");
}

}  // namespace
