// The descriptor and loopback tests over literal devices-file text: what
// they publish, when they prompt and with which text, the pauses around the
// loopback prompt, which source each device class makes them read, and the
// failures with their texts.
#include <gtest/gtest.h>

#include <algorithm>

#include "Support.h"
#include "common/xmldef.h"
#include "tc/usb/linux/DescTest.h"
#include "tc/usb/linux/LoopbackTest.h"
#include "tc/usb/linux/USBDevice.h"
#include "tc/usb/linux/USBtree.h"
#include "usb/LiteralReader.h"

namespace {

// What the readers the tests made were asked to do.
struct ReaderLog {
    std::string text;
    bool opens = true;
    int made = 0;
    int chosen = 0;  // setDevicesFile calls
    std::vector<std::string> openedPaths;
} g_reader;

class LoggingReader : public LiteralReader {
public:
    LoggingReader() : LiteralReader(g_reader.text, g_reader.opens) { ++g_reader.made; }
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
USBInfoReader* MakeReader() { return new LoggingReader(); }

std::vector<unsigned int> g_pauses;
unsigned int RecordPause(unsigned int seconds) {
    g_pauses.push_back(seconds);
    return 0;
}

// One device of the devices file on bus 1, port `port`.
std::string Device(int port, const char* speed, const char* product, const char* cls) {
    return "T:  Bus=01 Lev=01 Prnt=01 Port=0" + std::to_string(port) + " Cnt=01 Dev#=  " + std::to_string(port + 2) +
           " Spd=" + speed + "  MxCh= 0\nD:  Ver= 2.00 Cls=00(>ifc ) Sub=00 Prot=00 MxPS=64 #Cfgs=  1\n"
           "S:  Product=" + product + "\nC:* #Ifs= 1 Cfg#= 1 Atr=80 MxPwr=200mA\n"
           "I:  If#= 0 Alt= 0 #EPs= 2 Cls=" + cls + " Sub=06 Prot=50 Driver=usb-storage\n"
           "E:  Ad=81(I) Atr=02(Bulk) MxPS= 512 Ivl=0ms\n\n";
}
const std::string rootHub =
    "T:  Bus=01 Lev=00 Prnt=00 Port=00 Cnt=00 Dev#=  1 Spd=480  MxCh= 6\n"
    "D:  Ver= 2.00 Cls=09(hub  ) Sub=00 Prot=01 MxPS=64 #Cfgs=  1\n"
    "S:  Product=EHCI Host Controller\nC:* #Ifs= 1 Cfg#= 1 Atr=e0 MxPwr=  0mA\n"
    "I:  If#= 0 Alt= 0 #EPs= 1 Cls=09(hub  ) Sub=00 Prot=00 Driver=hub\n"
    "E:  Ad=81(I) Atr=03(Int.) MxPS=   2 Ivl=256ms\n\n";
// One loopback that counts, and devices that do not: full speed, tape,
// RDX, a device without a storage interface.
const std::string oneLoopback = rootHub + Device(0, "480", "Loopback", "08(stor.)") +
                                Device(1, "12 ", "Slow stick", "08(stor.)") + Device(2, "480", "DAT tape", "08(stor.)") +
                                Device(3, "480", "RDX dock", "08(stor.)") + Device(4, "480", "Hub", "09(hub  )");

class CountingTest : public ComponentTest {
protected:
    void SetUp() override {
        ComponentTest::SetUp();
        ResetUsbDiscoveryStateForTests();
        g_reader = ReaderLog();
        g_reader.text = oneLoopback;
        g_pauses.clear();
        DescTest::readerForTests = MakeReader;
        usbLoopbackTest::readerForTests = MakeReader;
        usbLoopbackTest::pause = RecordPause;
    }
    void TearDown() override {
        DescTest::readerForTests = nullptr;
        usbLoopbackTest::readerForTests = nullptr;
        ComponentTest::TearDown();
    }
    static std::string Run(::Test& test, const std::string& attributes) {
        XmlObject command("<runTest retries=\"0\" " + attributes + "/>");
        return test.Run(command);
    }
    static std::string State(const std::string& result) { return XmlObject(result).GetAttributeValue(xmldef::currentState); }

    USBDevice device{"usbDevice", nullptr, true};
};

}  // namespace

TEST_F(CountingTest, CatalogueElements) {
    DescTest desc(&device);
    desc.SetParameters();
    const std::string flags = "requiresMedia=\"0\" requiresEquipment=\"1\" quick=\"0\" complete=\"";
    EXPECT_EQ(desc.GetXmlString(),
              "<test name=\"descTest\" caption=\"USB Descriptor Test\" description=\"Run a USB descriptor test with "
              "USB loopback\" interactive=\"1\" " + flags + "0\" requiresWindow=\"0\" localOnly=\"0\" "
              "singleThread=\"1\" destructive=\"0\" romTest=\"0\" fieldtest=\"0\"><parameter name=\"retries\" "
              "caption=\"Retries\" description=\"Number of retries if test fails\" type=\"int\" min=\"0\" max=\"5\" "
              "defaultValue=\"1\"/><parameter name=\"usbLoopback\" caption=\"Number of Loopback\" description=\"Input "
              "the number of USB loopback\" type=\"int\" defaultValue=\"0\" min=\"0\" max=\"4\"/><parameter "
              "name=\"VendorID\" caption=\"Vendor ID\" description=\"Vendor ID\" type=\"string\" defaultValue=\"0\"/>"
              "<parameter name=\"DeviceID\" caption=\"Product ID\" description=\"Product ID\" type=\"string\" "
              "defaultValue=\"0\"/></test>");
    EXPECT_FALSE(desc.LocksDevice());

    usbLoopbackTest loopback(&device);
    loopback.SetParameters();
    EXPECT_EQ(loopback.GetXmlString(),
              "<test name=\"usbLoopbackTest\" caption=\"USB 2.0 Loopback Test\" description=\"Factory USB 2.0 "
              "loopback speed test\" interactive=\"1\" " + flags + "1\" requiresWindow=\"0\" localOnly=\"0\" "
              "singleThread=\"0\" destructive=\"0\" romTest=\"0\" fieldtest=\"1\"><parameter name=\"retries\" "
              "caption=\"Retries\" description=\"Number of retries if test fails\" type=\"int\" min=\"0\" max=\"5\" "
              "defaultValue=\"1\"/><parameter name=\"numberdevices\" caption=\"Number of USB devices to test\" "
              "description=\"Number of USB devices to test\" type=\"int\" defaultValue=\"0\" min=\"0\" "
              "max=\"8\"/></test>");
    EXPECT_FALSE(loopback.LocksDevice());
}

TEST_F(CountingTest, DescriptorTestPromptsOnceAndCountsAgain) {
    DescTest test(&device);
    // The parser makes no interface records, so a parsed tree counts 0.
    EXPECT_EQ(State(Run(test, "")), "passed");
    EXPECT_EQ(g_reader.made, 1);
    EXPECT_TRUE(Prompts().empty());

    g_reader = ReaderLog();
    g_reader.text = oneLoopback;
    const std::string result = Run(test, "usbLoopback=\"2\" VendorID=\"0x0781\" DeviceID=\"0x5530\"");
    EXPECT_EQ(State(result), "failed");
    EXPECT_EQ(ErrorOf(result).GetAttributeValue("key"), "Descriptor test failed") << result;
    EXPECT_EQ(g_reader.made, 2) << "counted before and after the prompt";
    EXPECT_EQ(test.vendorId.GetValue(), "0x0781");
    EXPECT_EQ(test.productId.GetValue(), "0x5530");
    ASSERT_EQ(Prompts(), std::vector<std::string>{"Loopback"});
    for (const std::string& e : g_events)
        if (XmlObject(e).name == xmldef::diagPrompt) {
            EXPECT_EQ(XmlObject(e).children.at(0).GetAttributeValue(xmldef::caption), "OK");
        }

    // A source that cannot be read counts -1, which no expected number is.
    g_events.clear();
    g_reader = ReaderLog();
    g_reader.opens = false;
    EXPECT_EQ(ErrorOf(Run(test, "")).GetAttributeValue("key"), "Descriptor test failed");
    EXPECT_EQ(Prompts().size(), 1u);

    // Five loopbacks are more than the parameter allows: no count at all.
    g_reader = ReaderLog();
    const std::string tooMany = Run(test, "usbLoopback=\"5\"");
    EXPECT_EQ(ErrorOf(tooMany).GetAttributeValue("key"), "Parameter outside acceptable range") << tooMany;
    EXPECT_EQ(g_reader.made, 0);
}

TEST_F(CountingTest, LoopbackTestCountsHighSpeedStorageOnly) {
    usbLoopbackTest test(&device);
    EXPECT_EQ(State(Run(test, "numberdevices=\"1\"")), "passed");
    EXPECT_TRUE(Prompts().empty());
    EXPECT_TRUE(g_pauses.empty());
    // Made for the devices-file road's device, the reader chooses its source.
    EXPECT_EQ(g_reader.chosen, 1);
    EXPECT_EQ(g_reader.openedPaths, std::vector<std::string>{"chosen source"});
    EXPECT_EQ(State(Run(test, "numberdevices=\"9\"")), "failed");
    EXPECT_EQ(g_reader.made, 1) << "a number out of range stops the run before the count";
}

TEST_F(CountingTest, LoopbackMismatchPausesPromptsAndFails) {
    usbLoopbackTest test(&device);
    const std::string result = Run(test, "numberdevices=\"2\"");
    EXPECT_EQ(State(result), "failed");
    const XmlObject error = ErrorOf(result);
    EXPECT_EQ(error.GetAttributeValue("key"), "Number of USB 2.0 devices found did not match parameter") << result;
    EXPECT_EQ(error.GetAttributeValue("detail"), "expected: 2, found: 1");
    EXPECT_EQ(Prompts(), std::vector<std::string>{"Verify all USB loopbacks are installed... Found=1  Expected=2"});
    EXPECT_EQ(g_pauses, (std::vector<unsigned int>{5, 10}));

    // The comparison on its own: silent on a match, the same texts otherwise.
    EXPECT_NO_THROW(test.CompareResultsAndThrowError(3, 3));
    try {
        test.CompareResultsAndThrowError(0, 4);
        ADD_FAILURE() << "no failure";
    } catch (const TvkError& e) {
        EXPECT_EQ(e.GetDetail(), "expected: 0, found: 4");
    }
}

TEST_F(CountingTest, LoopbackOnTheLsusbRoadReadsTheKernelFileDirectly) {
    usbLoopbackTest test(static_cast<newUSBDevice*>(nullptr));
    EXPECT_TRUE(test.useMountedDevicesFile);
    EXPECT_FALSE(usbLoopbackTest(&device).useMountedDevicesFile);
    test.device = &device;
    g_reader.opens = false;  // no devices file: nothing found
    EXPECT_EQ(State(Run(test, "")), "passed");
    EXPECT_EQ(g_reader.chosen, 0) << "lsusb must not run";
    ASSERT_FALSE(g_reader.openedPaths.empty());
    EXPECT_EQ(g_reader.openedPaths[0], "/proc/bus/usb/devices");
}

TEST_F(CountingTest, FactoryControllersOfferBothTests) {
    for (int factory : {0, 1}) {
        g_factory = factory;
        USBDevice controller("usbDevice", nullptr, true);
        XmlObject xml;
        controller.catalog(xml);
        std::vector<std::string> names;
        for (const XmlObject& child : xml.children)
            if (child.name == xmldef::test) names.push_back(child.GetAttributeValue(xmldef::name));
        ASSERT_GE(names.size(), 1u);
        EXPECT_EQ(names[0], "rootHubTest");
        const bool desc = std::find(names.begin(), names.end(), "descTest") != names.end();
        const bool loop = std::find(names.begin(), names.end(), "usbLoopbackTest") != names.end();
        EXPECT_EQ(desc, factory == 1);
        EXPECT_EQ(loop, factory == 1);
        if (factory) {
            ASSERT_GE(names.size(), 3u);
            EXPECT_EQ(std::vector<std::string>(names.begin() + 1, names.begin() + 3),
                      (std::vector<std::string>{"descTest", "usbLoopbackTest"}));
        }
    }
}
