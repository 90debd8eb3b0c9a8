// The descriptor and loopback tests over literal devices-file text: what
// they publish, when they prompt and with which text, the pauses, which
// source each device class reads, the failures; and all three test classes
// in the state stream and as copies.
#include <algorithm>

#include "Support.h"
#include "common/Persistent.h"
#include "tc/usb/linux/DescTest.h"
#include "tc/usb/linux/LoopbackTest.h"
#include "tc/usb/linux/SpeedTest.h"
#include "tc/usb/linux/USBDevice.h"
#include "tc/usb/linux/USBtree.h"
#include "tc/usb/linux/newUSBDevice.h"
#include "usb/LiteralReader.h"

int g_factory = 0;
std::vector<std::string> g_events;
// The host's service: a strong definition wins over the library's fallback.
extern "C" int nvxIsFactory() { return g_factory; }

namespace {

struct ReaderLog {
    bool opens = true;
    int made = 0;
    int chosen = 0;  // setDevicesFile calls
    std::vector<std::string> openedPaths;
} g_reader;
std::vector<unsigned int> g_pauses;

std::string Device(int port, const char* speed, const char* product, const char* cls) {
    return "T:  Bus=01 Lev=01 Prnt=01 Port=0" + std::to_string(port) + " Cnt=01 Dev#=  " + std::to_string(port + 2) +
           " Spd=" + speed + "  MxCh= 0\nD:  Ver= 2.00 Cls=00(>ifc ) Sub=00 Prot=00 MxPS=64 #Cfgs=  1\nS:  Product=" +
           product + "\nC:* #Ifs= 1 Cfg#= 1 Atr=80 MxPwr=200mA\nI:  If#= 0 Alt= 0 #EPs= 2 Cls=" + cls +
           " Sub=06 Prot=50 Driver=usb-storage\nE:  Ad=81(I) Atr=02(Bulk) MxPS= 512 Ivl=0ms\n\n";
}
// A root hub with one loopback that counts, and devices that do not: full
// speed, tape, RDX, no storage interface.
const std::string oneLoopback =
    "T:  Bus=01 Lev=00 Prnt=00 Port=00 Cnt=00 Dev#=  1 Spd=480  MxCh= 6\n"
    "D:  Ver= 2.00 Cls=09(hub  ) Sub=00 Prot=01 MxPS=64 #Cfgs=  1\n"
    "I:  If#= 0 Alt= 0 #EPs= 1 Cls=09(hub  ) Sub=00 Prot=00 Driver=hub\n"
    "E:  Ad=81(I) Atr=03(Int.) MxPS=   2 Ivl=256ms\n\n" +
    Device(0, "480", "Loopback", "08(stor.)") + Device(1, "12 ", "Slow stick", "08(stor.)") +
    Device(2, "480", "DAT tape", "08(stor.)") + Device(3, "480", "RDX dock", "08(stor.)") +
    Device(4, "480", "Printer", "07(print)");

class LoggingReader : public LiteralReader {
public:
    LoggingReader() : LiteralReader(oneLoopback, g_reader.opens) { ++g_reader.made; }
    bool setDevicesFile() override {
        ++g_reader.chosen;
        devicesFile = "chosen source";
        return true;
    }
    bool open() override {
        g_reader.openedPaths.push_back(devicesFile ? devicesFile : "");
        return LiteralReader::open();
    }
};

class CountingTest : public ComponentTest {
protected:
    void SetUp() override {
        ComponentTest::SetUp();
        ResetUsbDiscoveryStateForTests();
        g_reader = ReaderLog();
        g_pauses.clear();
        DescTest::readerForTests = usbLoopbackTest::readerForTests = [] { return (USBInfoReader*)new LoggingReader(); };
        usbLoopbackTest::pause = [](unsigned int seconds) { return g_pauses.push_back(seconds), 0u; };
    }
    void TearDown() override {
        DescTest::readerForTests = usbLoopbackTest::readerForTests = nullptr;
        ComponentTest::TearDown();
    }
    // The parameter elements of the test's catalogue element, as text.
    static std::string Parameters(::Test& test) {
        test.SetParameters();
        std::string text;
        for (const XmlObject& child : XmlObject(test.GetXmlString()).children) text += child.GetXmlString();
        return text;
    }

    USBDevice device{"usbDevice", nullptr, true};
};

const std::string retries = "<parameter name=\"retries\" caption=\"Retries\" description=\"Number of retries if test "
                            "fails\" type=\"int\" min=\"0\" max=\"5\" defaultValue=\"1\"/>";

}  // namespace

TEST_F(CountingTest, CatalogueElements) {
    DescTest desc(&device);
    const XmlObject d(desc.GetXmlString());
    EXPECT_EQ(d.GetAttributeValue("caption") + "|" + d.GetAttributeValue("description"),
              "USB Descriptor Test|Run a USB descriptor test with USB loopback");
    EXPECT_EQ(d.GetAttributeValue("name") + d.GetAttributeValue("interactive") + d.GetAttributeValue("requiresEquipment") +
                  d.GetAttributeValue("singleThread") + d.GetAttributeValue("complete") + d.GetAttributeValue("fieldtest"),
              "descTest11100");
    EXPECT_EQ(Parameters(desc),
              retries + "<parameter name=\"usbLoopback\" caption=\"Number of Loopback\" description=\"Input the number "
                        "of USB loopback\" type=\"int\" defaultValue=\"0\" min=\"0\" max=\"4\"/><parameter "
                        "name=\"VendorID\" caption=\"Vendor ID\" description=\"Vendor ID\" type=\"string\" "
                        "defaultValue=\"0\"/><parameter name=\"DeviceID\" caption=\"Product ID\" description=\"Product "
                        "ID\" type=\"string\" defaultValue=\"0\"/>");
    usbLoopbackTest loopback(&device);
    const XmlObject l(loopback.GetXmlString());
    EXPECT_EQ(l.GetAttributeValue("caption") + "|" + l.GetAttributeValue("description"),
              "USB 2.0 Loopback Test|Factory USB 2.0 loopback speed test");
    EXPECT_EQ(l.GetAttributeValue("name") + l.GetAttributeValue("interactive") + l.GetAttributeValue("requiresEquipment") +
                  l.GetAttributeValue("singleThread") + l.GetAttributeValue("complete") + l.GetAttributeValue("fieldtest"),
              "usbLoopbackTest11011");
    EXPECT_EQ(Parameters(loopback), retries + "<parameter name=\"numberdevices\" caption=\"Number of USB devices to "
                                              "test\" description=\"Number of USB devices to test\" type=\"int\" "
                                              "defaultValue=\"0\" min=\"0\" max=\"8\"/>");
    EXPECT_FALSE(desc.LocksDevice() || loopback.LocksDevice());
}

TEST_F(CountingTest, DescriptorTestPromptsOnceAndCountsAgain) {
    DescTest test(&device);
    // The parser makes no interface records, so a parsed tree counts 0.
    EXPECT_EQ(Run(test, ""), std::make_pair(std::string("passed"), std::string()));
    EXPECT_EQ(g_reader.made, 1);
    EXPECT_TRUE(Prompts().empty());

    g_reader.made = 0;
    EXPECT_EQ(Run(test, "usbLoopback=\"2\" VendorID=\"0x0781\"").second, "Descriptor test failed");
    EXPECT_EQ(g_reader.made, 2) << "counted before and after the prompt";
    EXPECT_EQ(test.vendorId.GetValue() + test.productId.GetValue(), "0x07810");
    EXPECT_EQ(Prompts(), std::vector<std::string>{"Loopback"});
    EXPECT_EQ(std::count_if(g_events.begin(), g_events.end(),
                            [](const std::string& e) { return e.find("<option caption=\"OK\"/></diagPrompt>") != e.npos; }),
              1);

    // A source that cannot be read counts -1, which no expected number is.
    g_reader.opens = false;
    EXPECT_EQ(Run(test, "").second, "Descriptor test failed");
    EXPECT_EQ(Prompts().size(), 2u);
    g_reader.made = 0;
    EXPECT_EQ(Run(test, "usbLoopback=\"5\"").second, "Parameter outside acceptable range");
    EXPECT_EQ(g_reader.made, 0);
}

TEST_F(CountingTest, LoopbackTestCountsHighSpeedStorageAndPromptsOnAMismatch) {
    usbLoopbackTest test(&device);
    EXPECT_EQ(Run(test, "numberdevices=\"1\"").first, "passed");
    EXPECT_TRUE(Prompts().empty() && g_pauses.empty());
    // Made for the devices-file road's device, the reader chooses its source.
    EXPECT_EQ(g_reader.chosen, 1);
    EXPECT_EQ(g_reader.openedPaths, std::vector<std::string>{"chosen source"});

    EXPECT_EQ(Run(test, "numberdevices=\"2\"").second, "Number of USB 2.0 devices found did not match parameter");
    EXPECT_NE(lastResult.find("detail=\"expected: 2, found: 1\""), std::string::npos) << lastResult;
    EXPECT_EQ(Prompts(), std::vector<std::string>{"Verify all USB loopbacks are installed... Found=1  Expected=2"});
    EXPECT_EQ(g_pauses, (std::vector<unsigned int>{5, 10}));
    EXPECT_EQ(Run(test, "numberdevices=\"9\"").second, "Parameter outside acceptable range");
    EXPECT_EQ(g_reader.made, 2);
}

TEST_F(CountingTest, LoopbackOnTheLsusbRoadReadsTheKernelFileDirectly) {
    newUSBDevice lsusbDevice("");
    usbLoopbackTest test(&lsusbDevice);
    EXPECT_TRUE(test.useMountedDevicesFile);
    EXPECT_EQ(test.device, &lsusbDevice);
    g_reader.opens = false;  // no devices file: nothing found
    EXPECT_EQ(Run(test, "").first, "passed");
    EXPECT_EQ(g_reader.chosen, 0) << "lsusb must not run";
    EXPECT_EQ(g_reader.openedPaths.at(0), "/proc/bus/usb/devices");
}

TEST_F(CountingTest, FactoryControllersOfferBoth) {
    for (int factory : {0, 1}) {
        g_factory = factory;
        XmlObject xml;
        USBDevice("usbDevice", nullptr, true).catalog(xml);
        std::vector<std::string> names;
        for (const XmlObject& child : xml.children) names.push_back(child.GetAttributeValue(xmldef::name));
        names.resize(3);
        EXPECT_EQ(names[0], "rootHubTest");
        EXPECT_EQ(names[1] == "descTest" && names[2] == "usbLoopbackTest", factory == 1) << names[1] << names[2];
    }
}

TEST_F(CountingTest, StoredFormsAndCopies) {
    USBDevice owner("usbDevice", nullptr, true);
    owner.AddTest(new SpeedTest(&owner));
    owner.AddTest(new DescTest(&owner));
    owner.AddTest(new usbLoopbackTest(&owner));
    owner.tests[1]->currentState = "failed";
    optstream out;
    out << static_cast<const Persistent*>(&owner);
    iptstream in = iptstream::FromMemory(out.GetBuffer());
    Persistent* read = nullptr;
    in >> read;
    std::unique_ptr<USBDevice> back(dynamic_cast<USBDevice*>(read));
    ASSERT_NE(back, nullptr);
    ASSERT_EQ(back->tests.size(), 3u);
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_STREQ(back->tests[i]->GetRealClassName(), owner.tests[i]->GetRealClassName());
        EXPECT_EQ(back->tests[i]->device, back.get());
        EXPECT_EQ(back->tests[i]->caption, owner.tests[i]->caption);
        EXPECT_TRUE(back->tests[i]->parameters.parameters.empty()) << "parameters are not stored";
    }
    EXPECT_EQ(back->tests[1]->currentState, "failed");
    // Nothing beyond the base's fields: writing it again gives the same bytes.
    optstream again;
    again << static_cast<const Persistent*>(back.get());
    EXPECT_EQ(again.GetBuffer(), out.GetBuffer());

    // A copy's list names the copy's parameters, not the original's.
    auto desc = std::make_unique<DescTest>(&device);
    desc->SetParameters();
    desc->loopbackNumber.SetValue("3");
    std::unique_ptr<DescTest> copy(static_cast<DescTest*>(desc->CreateCopy()));
    desc.reset();
    EXPECT_EQ(copy->parameters.parameters,
              (std::vector<Parameter*>{&copy->loopbackNumber, &copy->vendorId, &copy->productId}));
    EXPECT_EQ(copy->loopbackNumber.value, 3);
    usbLoopbackTest lsusbRoad(static_cast<newUSBDevice*>(nullptr)), target(&device);
    lsusbRoad.SetParameters();
    target.CopyFromPointer(&lsusbRoad);
    EXPECT_TRUE(target.useMountedDevicesFile);
    EXPECT_EQ(target.parameters.parameters, std::vector<Parameter*>{&target.numberDevices});
}
