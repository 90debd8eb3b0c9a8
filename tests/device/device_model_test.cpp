// Devices: name-making, the device element, a faulty device, tests lists,
// copies and the stored form of a component with its devices.
#include <cstdlib>

#include "common/Persistent.h"
#include "framework/FrameworkSupport.h"

using namespace fw;

namespace {

struct ModelDevice : Device {
    std::string failIn;  // "Initialize" or "DoID"
    explicit ModelDevice(const std::string& name = "", bool makeUnique = true) : Device(name, makeUnique) {}
    void Initialize() override {
        if (failIn == "Initialize") throw TvkError("cannot start", "", "");
    }
    void DoID(XmlObject& xml, bool catalog) override {
        if (failIn == "DoID") throw TvkError("broken", "detail", "");
        xml.AddObject(XmlObject(catalog ? "<template/>" : "<real/>"));
    }
    FW_PERSISTENT(ModelDevice)
};
ClassRegistrar<ModelDevice> ModelDeviceClassRegistrar;
ClassRegistrar<FakeDevice> FakeDeviceClassRegistrar;
ClassRegistrar<ScriptedTest> ScriptedTestClassRegistrar;
ClassRegistrar<RecordingComponent> RecordingComponentClassRegistrar;

// The component of FrameworkTest, whose set holds "dev0".
class DeviceModel : public FrameworkTest {
protected:
    ModelDevice* Add(const std::string& name, bool makeUnique = true) {
        auto* d = new ModelDevice(name, makeUnique);
        EXPECT_TRUE(pTestComponent->devices.insert(d).second) << name;
        return d;
    }
};

TEST_F(DeviceModel, NamesTakeTheLowestFreeNumberAndSortNaturally) {
    Add("usbDevice0", false);
    Add("usbDevice2", false);
    EXPECT_EQ(Add("usbDevice")->name, "usbDevice1");
    EXPECT_EQ(Add("usbDevice7")->name, "usbDevice3");  // its own number gives way
    for (int i = 0; i < 8; ++i) Add("usbDevice");
    Add("hub", false);
    std::string names;
    for (const Device* d : pTestComponent->devices) names += d->name + " ";
    EXPECT_EQ(names, "dev0 hub usbDevice0 usbDevice1 usbDevice2 usbDevice3 usbDevice4 usbDevice5 usbDevice6 "
                     "usbDevice7 usbDevice8 usbDevice9 usbDevice10 usbDevice11 ");
    ModelDevice duplicate("usbDevice2", false);
    EXPECT_FALSE(pTestComponent->devices.insert(&duplicate).second);
    EXPECT_EQ(pTestComponent->FindDevice("USBDEVICE10"), nullptr);

    // A gap is filled again, also when its device went while no one watched the hints.
    pTestComponent->RemoveDevice(pTestComponent->FindDevice("usbDevice3"));
    EXPECT_EQ(Add("usbDevice")->name, "usbDevice3");
    Device* five = pTestComponent->FindDevice("usbDevice5");
    pTestComponent->devices.erase(five);
    delete five;
    pTestComponent->ForgetNameHints();
    EXPECT_EQ(Add("usbDevice")->name, "usbDevice5");
    // Digits alone, or no trailing digits, are kept as the base; no number while a
    // catalogue is built, nor without a component.
    EXPECT_EQ(ModelDevice("123").name + " " + ModelDevice("hub").name, "1230 hub0");
    pTestComponent->buildingCatalog = true;
    EXPECT_EQ(ModelDevice("usbDevice42").name, "usbDevice");
    TestComponent* component = std::exchange(pTestComponent, nullptr);
    EXPECT_EQ(ModelDevice("usbDevice42").name, "usbDevice");
    pTestComponent = component;
}

TEST_F(DeviceModel, DeviceElementLogLineAndAFaultyDeviceKeepsItsErrorInsideItsElement) {
    ModelDevice* d = Add("usbDevice");
    d->caption = "USB Device 1";
    d->description = "Mass storage";
    d->AddProperty(new Property("SpeedInfo", "USB Speed", "480 MBit/s"));
    d->AddInterface("usbDevice9", "Hub", "up", parentRole);
    d->AddInterface("usbDevice8", "Disk", "down", childRole);
    d->AddInterface("x", "c", "d", static_cast<InterfaceRole>(7));
    EXPECT_EQ(d->ID(false),
              "<device name=\"usbDevice0\" class=\"device\" caption=\"USB Device 1\" description=\"Mass storage\" "
              "diagnosable=\"0\"><real/><property name=\"SpeedInfo\" caption=\"USB Speed\" value=\"480 MBit/s\"/>"
              "<interface name=\"usbDevice9\" caption=\"Hub\" description=\"up\" role=\"parent\"/>"
              "<interface name=\"usbDevice8\" caption=\"Disk\" description=\"down\" role=\"child\"/>"
              "<interface name=\"x\" caption=\"c\" description=\"d\"/></device>");
    // Empty caption: the name is logged; a description inside the caption is
    // not repeated; the catalogue form skips Initialize.
    d->caption = "";
    d->description = "Storage";
    d->className = "usbDevice";
    d->failIn = "Initialize";
    XmlObject element(d->ID(true));
    EXPECT_TRUE(HasAttributes(element, {{"class", "usbDevice"}, {"caption", ""}}));
    EXPECT_EQ(element.children.at(0).name, "template");
    d->caption = d->description = "Device";
    d->className = "";
    d->failIn = "";
    d->ID(false);
    const std::string discovered = "<diagEvent component=\"libzorbus.so\" caption=\"Device Discovered\" description=";
    EXPECT_EQ(host.events,
              (std::vector<std::string>{discovered + "\"USB Device 1 - Mass storage\"/>",
                                        discovered + "\"usbDevice0 - Storage\"/>", discovered + "\"Device\"/>"}));

    // One faulty device must not spoil a whole catalogue or discovery, and sends no event.
    host.Reset();
    ModelDevice* f = Add("usbDevice");
    const std::string start = "<device name=\"usbDevice1\" class=\"device\" caption=\"Device\" description=\"Device\">";
    const std::string broken = "<error errorCode=\"TvkError\" key=\"broken\" detail=\"detail\" "
                               "reference=\"ID, device\">broken: detail</error></device>";
    f->failIn = "DoID";
    EXPECT_EQ(f->ID(false), start + broken);
    EXPECT_EQ(f->ID(true), start + broken) << "the catalogue form";
    f->failIn = "Initialize";
    EXPECT_EQ(f->ID(false), start + "<error errorCode=\"TvkError\" key=\"cannot start\" detail=\"\" "
                                    "reference=\"ID, device\">cannot start</error></device>");
    EXPECT_TRUE(host.events.empty());
    // Without a callback the event fails after the flag was set.
    f->failIn = "";
    pTestComponent->eventCallback = nullptr;
    element = XmlObject(f->ID(false));
    EXPECT_EQ(element.GetAttributeValue("diagnosable"), "0");
    EXPECT_EQ(ErrorKey(element), "Event callback not registered!");
}

TEST_F(DeviceModel, TestsListCopiesAndTheStoredForm) {
    AddTest("alpha");
    ScriptedTest* beta = AddTest("beta");
    device->AddTest(nullptr);
    ScriptedTest* alpha = AddTest("alpha");  // replaces alpha and takes the last place
    EXPECT_EQ(device->tests, (std::vector<::Test*>{beta, alpha}));
    EXPECT_EQ(device->FindTest("alpha"), alpha);
    EXPECT_EQ(device->FindTest("Alpha"), nullptr);
    XmlObject element;
    device->AddTestAndId(new ScriptedTest("gamma", device), element);
    EXPECT_EQ(element.children.at(0).name, "test");
    EXPECT_EQ(element.children[0].GetAttributeValue("name"), "gamma");

    ModelDevice* d = Add("usbDevice");
    d->caption = "first";
    d->locked = true;
    d->className = "special";
    d->AddInterface("usbDevice1", "second", "child", childRole);
    d->AddTest(new ScriptedTest("alpha", d));
    d->AddProperty(new Property("p", "c", "v"));
    std::unique_ptr<TestComponent> copy(static_cast<TestComponent*>(pTestComponent->CreateCopy()));
    Device* cd = copy->FindDevice("usbDevice0");
    ASSERT_NE(cd, nullptr);
    EXPECT_NE(cd, d);
    EXPECT_NE(cd->tests.at(0), d->tests.at(0));
    EXPECT_EQ(cd->tests[0]->device, d);  // a copied test keeps its device
    // ... but the copy has no class name and no properties.
    EXPECT_TRUE(HasAttributes(XmlObject(cd->ID(true)), {{"caption", "first"}, {"class", "device"}}));
    EXPECT_TRUE(cd->properties.empty());
    copy.reset();
    EXPECT_EQ(d->tests[0]->name, "alpha");

    const std::string bytes = (optstream() << static_cast<const Persistent*>(pTestComponent)).GetBuffer();
    TestComponent* read = nullptr;
    iptstream::FromMemory(bytes).ReadOwned(read);
    std::unique_ptr<TestComponent> restored(read);
    ASSERT_TRUE(restored);
    EXPECT_EQ((optstream() << static_cast<const Persistent*>(read)).GetBuffer(), bytes);
    Device* r0 = restored->FindDevice("usbDevice0");
    ASSERT_NE(r0, nullptr);
    EXPECT_TRUE(r0->locked);
    EXPECT_EQ(r0->interfaces.at(0).role, childRole);
    EXPECT_EQ(r0->tests.at(0)->device, r0);  // the back reference points at the restored device

    // CopyFromPointer ignores null, itself and other classes.
    Interface i("n", "c", "d", siblingRole), other("m", "c2", "d2", parentRole);
    for (const Persistent* ignored : std::initializer_list<const Persistent*>{nullptr, &i, d})
        i.CopyFromPointer(ignored);
    EXPECT_EQ(i.name + i.description, "nd");
    i.CopyFromPointer(&other);
    EXPECT_EQ(i.name + i.description, "md2");
}

TEST(WriteDirectory, DecidedOnceFromTheEnvironment) {
    const std::pair<const char*, const char*> cases[] = {{nullptr, "."},    {"", "."},           {"/tmp", "/tmp"},
                                                         {"/tmp/", "/tmp"}, {"/tmp//", "/tmp/"}, {"/no/such", "."}};
    for (const auto& c : cases) {
        TestComponent::diagsWriteDirectory.clear();
        c.first ? setenv("CORVANEWRITEDIR", c.first, 1) : unsetenv("CORVANEWRITEDIR");
        EXPECT_EQ(TestComponent::GetDiagsWriteDirectory(), c.second) << (c.first ? c.first : "(unset)");
        setenv("CORVANEWRITEDIR", "/", 1);
        EXPECT_EQ(TestComponent::GetDiagsWriteDirectory(), c.second);
    }
    TestComponent::diagsWriteDirectory.clear();
    unsetenv("CORVANEWRITEDIR");
}

}  // namespace
