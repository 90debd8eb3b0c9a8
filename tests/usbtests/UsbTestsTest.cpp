// Descriptor, loopback and speed tests: elements, counting, prompts, PCI and memory services, stored forms.
#include <algorithm>

#include "common/TestHooks.h"
#include "platform/HostServices.h"
#include "tc/usb/linux/usbtests/DescTest.h"
#include "tc/usb/linux/usbtests/LoopbackTest.h"
#include "tc/usb/linux/usbtests/SpeedTest.h"
#include "tc/usb/linux/usbtests/UsbPortTest.h"
#include "tc/usb/linux/usbtests/filewtcmptest.h"
#include "usb/UsbTestSupport.h"

extern "C" int nvxIsFactory() { return g_factoryMode; }

namespace {

struct ReaderLog {
    bool opens = true;
    int made = 0, chosen = 0;  // readers made, setDevicesFile calls
    std::vector<std::string> openedPaths;
} g_reader;
std::vector<unsigned int> g_pauses;

class LoggingReader : public LiteralReader {
public:
    // One loopback that counts; full speed, tape, RDX and no storage interface do not.
    LoggingReader() : LiteralReader(Fixture("usbtests/data/one_loopback.txt"), g_reader.opens) { ++g_reader.made; }
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

struct Outcome {
    std::string state, key = "";  // the key of the error element, if any
    bool operator==(const Outcome& o) const { return state == o.state && key == o.key; }
};
void PrintTo(const Outcome& o, std::ostream* out) {
    *out << "state \"" << o.state << "\", error key \"" << o.key << "\"";
}

class UsbTestsTest : public UsbComponentTest {
protected:
    void SetUp() override {
        UsbComponentTest::SetUp();
        g_reader = ReaderLog();
        g_pauses.clear();
        const auto makeReader = [] { return static_cast<USBInfoReader*>(new LoggingReader()); };
        testhooks::SetDescTestReader(makeReader);
        testhooks::SetLoopbackTestReader(makeReader);
        testhooks::SetLoopbackTestPause([](unsigned int seconds) {
            g_pauses.push_back(seconds);
            return 0u;
        });
    }
    void TearDown() override {
        testhooks::SetDescTestReader(nullptr);
        testhooks::SetLoopbackTestReader(nullptr);
        testhooks::SetLoopbackTestPause(nullptr);
        testhooks::SetHostServicePaths("", "");
        UsbComponentTest::TearDown();
    }
    static std::vector<std::string> Prompts() {
        std::vector<std::string> texts;
        for (const std::string& e : g_events)
            if (XmlObject(e).name == xmldef::diagPrompt) texts.push_back(XmlObject(e).value);
        return texts;
    }
    // The state a run ends in and its error key.
    Outcome Run(::Test& test, const std::string& attributes) {
        XmlObject command("<runTest retries=\"0\" " + attributes + "/>");
        result = test.Run(command);
        const XmlObject answer(result);
        const XmlObject* error = answer.FindFirstMatch(xmldef::error);
        return {answer.GetAttributeValue(xmldef::currentState), error ? error->GetAttributeValue("key") : ""};
    }
    // A fake PCI function folder and memory file; setting the paths forgets the listing.
    void Function(const std::string& address, const std::string& config) {
        dir.Write("pci/" + address + "/config", config);
        UsePaths("mem");
    }
    void UsePaths(const std::string& memoryFile) {
        testhooks::SetHostServicePaths(dir.Path("pci"), dir.Path(memoryFile));
    }
    void Memory(uint32_t address, const std::string& text) {
        memory.resize(std::max<size_t>(memory.size(), address + text.size()), '\0');
        dir.Write("mem", memory.replace(address, text.size(), text));
    }

    std::string result, memory;
    TempDir dir;
    USBDevice device{"usbDevice", nullptr, true};
};

// The 64 bytes an unprivileged reader sees of a function's configuration.
std::string Config(uint8_t progIf, uint8_t subclass, uint8_t baseClass, std::vector<uint32_t> bars) {
    std::string bytes(64, '\0');
    bytes[0] = '\x86';
    bytes[1] = '\x80';
    bytes[9] = progIf;
    bytes[10] = subclass;
    bytes[11] = baseClass;
    for (size_t i = 0; i < bars.size(); ++i)
        for (int b = 0; b < 4; ++b) bytes[0x10 + 4 * i + b] = static_cast<char>(bars[i] >> (8 * b));
    return bytes;
}
std::string Ehci(std::vector<uint32_t> bars) { return Config(0x20, 0x03, 0x0C, bars); }

// A catalogue element; `flags` are complete, singleThread and fieldtest.
std::string Element(const std::string& head, const char* flags, const std::string& parameters) {
    return "<test " + head + " interactive=\"1\" requiresMedia=\"0\" requiresEquipment=\"1\" quick=\"0\" complete=\"" +
           flags[0] + "\" requiresWindow=\"0\" localOnly=\"0\" singleThread=\"" + flags[1] +
           "\" destructive=\"0\" "
           "romTest=\"0\" fieldtest=\"" +
           flags[2] +
           "\"><parameter name=\"retries\" caption=\"Retries\" "
           "description=\"Number of retries if test fails\" type=\"int\" min=\"0\" max=\"5\" defaultValue=\"1\"/>" +
           parameters + "</test>";
}
std::string Param(const std::string& name, const std::string& caption, const std::string& description,
                  const std::string& rest) {
    return "<parameter name=\"" + name + "\" caption=\"" + caption + "\" description=\"" + description + "\" type=\"" +
           rest + "/>";
}

}  // namespace

TEST_F(UsbTestsTest, CatalogueElements) {
    DescTest desc(&device);
    usbLoopbackTest loopback(&device);
    SpeedTest speed(&device);
    desc.SetParameters();
    loopback.SetParameters();
    EXPECT_EQ(desc.GetXmlString(),
              Element("name=\"descTest\" caption=\"USB Descriptor Test\" "
                      "description=\"Run a USB descriptor test with USB loopback\"",
                      "010",
                      Param("usbLoopback", "Number of Loopback", "Input the number of USB loopback",
                            "int\" defaultValue=\"0\" min=\"0\" max=\"4\"") +
                          Param("VendorID", "Vendor ID", "Vendor ID", "string\" defaultValue=\"0\"") +
                          Param("DeviceID", "Product ID", "Product ID", "string\" defaultValue=\"0\"")));
    EXPECT_EQ(loopback.GetXmlString(),
              Element("name=\"usbLoopbackTest\" caption=\"USB 2.0 Loopback Test\" "
                      "description=\"Factory USB 2.0 loopback speed test\"",
                      "101",
                      Param("numberdevices", "Number of USB devices to test", "Number of USB devices to test",
                            "int\" defaultValue=\"0\" min=\"0\" max=\"8\"")));
    EXPECT_EQ(speed.GetXmlString(), Element("name=\"speedTest\" caption=\"USB 2.0 Speed Test\" "
                                            "description=\"Run speed check on USB 2.0 Bus\"",
                                            "010", ""));
    EXPECT_FALSE(desc.LocksDevice());
    EXPECT_FALSE(loopback.LocksDevice());
    EXPECT_FALSE(speed.LocksDevice());
}

// The file write compare and port tests offer 0 retries in the catalogue;
// the element a device takes and the test's text are one.
TEST_F(UsbTestsTest, TestsThatWriteDrivesOfferNoRetries) {
    FileWriteCompareTest compare(&device);
    UsbPortTest port(&device);
    for (::Test* test : {static_cast<::Test*>(&compare), static_cast<::Test*>(&port)}) {
        test->SetParameters();
        const XmlObject element(test->GetXmlString());
        const XmlObject* retries = element.FindFirstMatch(xmldef::parameter, "@name='retries'");
        ASSERT_NE(retries, nullptr) << test->name;
        EXPECT_EQ(retries->GetAttributeValue(xmldef::defaultValue), "0") << test->name;
        EXPECT_EQ(test->CatalogElement().GetXmlString(), test->GetXmlString()) << test->name;
    }
}

TEST_F(UsbTestsTest, DescriptorTestPromptsOnceAndCountsAgain) {
    DescTest test(&device);
    // The parser makes no interface records, so a parsed tree counts 0.
    EXPECT_EQ(Run(test, ""), (Outcome{"passed"}));
    EXPECT_EQ(g_reader.made, 1);
    EXPECT_TRUE(Prompts().empty());
    g_reader.made = 0;
    EXPECT_EQ(Run(test, "usbLoopback=\"2\" VendorID=\"0x0781\""), (Outcome{"failed", "Descriptor test failed"}));
    EXPECT_EQ(g_reader.made, 2) << "counted before and after the prompt";
    EXPECT_EQ(test.vendorId.GetValue(), "0x0781");
    EXPECT_EQ(test.productId.GetValue(), "0");
    EXPECT_EQ(Prompts(), std::vector<std::string>{"Loopback"});
    const auto okPrompt = [](const std::string& e) {
        return e.find("<option caption=\"OK\"/></diagPrompt>") != e.npos;
    };
    EXPECT_EQ(std::count_if(g_events.begin(), g_events.end(), okPrompt), 1);
    // A source that cannot be read counts -1, which no expected number is.
    g_reader.opens = false;
    EXPECT_EQ(Run(test, ""), (Outcome{"failed", "Descriptor test failed"}));
    EXPECT_EQ(Prompts().size(), 2u);
    g_reader.made = 0;
    EXPECT_EQ(Run(test, "usbLoopback=\"5\""), (Outcome{"failed", "Parameter outside acceptable range"}));
    EXPECT_EQ(g_reader.made, 0) << "a number out of range is refused before counting";
}

TEST_F(UsbTestsTest, LoopbackTestCountsHighSpeedStorageAndPromptsOnAMismatch) {
    usbLoopbackTest test(&device);
    EXPECT_EQ(Run(test, "numberdevices=\"1\""), (Outcome{"passed"}));
    EXPECT_TRUE(Prompts().empty());
    EXPECT_TRUE(g_pauses.empty());
    // Made for the devices-file road's device, the reader chooses its source.
    EXPECT_EQ(g_reader.openedPaths, std::vector<std::string>{"chosen source"});
    EXPECT_EQ(g_reader.chosen, 1);
    EXPECT_EQ(Run(test, "numberdevices=\"2\""),
              (Outcome{"failed", "Number of USB 2.0 devices found did not match parameter"}));
    EXPECT_NE(result.find("detail=\"expected: 2, found: 1\""), std::string::npos) << result;
    EXPECT_EQ(Prompts(), std::vector<std::string>{"Verify all USB loopbacks are installed... Found=1  Expected=2"});
    EXPECT_EQ(g_pauses, (std::vector<unsigned int>{5, 10}));
    EXPECT_EQ(Run(test, "numberdevices=\"9\""), (Outcome{"failed", "Parameter outside acceptable range"}));
    EXPECT_EQ(g_reader.made, 2);

    // On the lsusb road the kernel's file is read directly: lsusb must not run.
    newUSBDevice lsusbDevice("");
    usbLoopbackTest onLsusb(&lsusbDevice);
    g_reader = ReaderLog();
    g_reader.opens = false;
    EXPECT_EQ(Run(onLsusb, ""), (Outcome{"passed"})) << "no devices file: nothing found";
    EXPECT_EQ(g_reader.openedPaths.at(0), "/proc/bus/usb/devices");
    EXPECT_EQ(g_reader.chosen, 0);
}

TEST_F(UsbTestsTest, AbsentPciFunctionsReadAllOnesAndMemoryIsCopiedWholeOrAsZeroes) {
    Function("0000:00:1d.7", Ehci({0xFEBFF000}));
    Function("0000:1f:03.2", Config(0x10, 0x03, 0x0C, {}));
    Function("0001:00:1d.0", Ehci({0x1000}));  // another domain: out of reach
    EXPECT_EQ(nvxGetPciConfigBYTE(0, 0x1d, 7, 0x0B), 0x0C);
    EXPECT_EQ(nvxGetPciConfigBYTE(0x1f, 3, 2, 0x09), 0x10);
    EXPECT_EQ(nvxGetPciConfigDWORD(0, 0x1d, 7, 0), 0x00008086u);
    EXPECT_EQ(nvxGetPciConfigDWORD(0, 0x1d, 7, 4), 0xFEBFF000u);
    // Beyond the readable 64 bytes, absent functions, impossible addresses.
    EXPECT_EQ(nvxGetPciConfigBYTE(0, 0x1d, 7, 0x40), 0xFF);
    EXPECT_EQ(nvxGetPciConfigDWORD(0, 0x1d, 7, 16), 0xFFFFFFFFu);
    EXPECT_EQ(nvxGetPciConfigBYTE(0, 0x1d, 0, 0x0B), 0xFF) << "absent function";
    EXPECT_EQ(nvxGetPciConfigBYTE(256, 0x1d, 7, 0x0B), 0xFF) << "bus 256";
    EXPECT_EQ(nvxGetPciConfigBYTE(0, 32, 0, 0), 0xFF) << "device 32";
    EXPECT_EQ(nvxGetPciConfigBYTE(0, 0, 8, 0), 0xFF) << "function 8";
    EXPECT_EQ(nvxGetPciConfigBYTE(0, 0x1d, 7, -1), 0xFF) << "offset -1";
    std::filesystem::remove_all(dir.Path("pci/0000:00:1d.7"));
    UsePaths("mem");
    EXPECT_EQ(nvxGetPciConfigBYTE(0, 0x1d, 7, 0x0B), 0xFF) << "gone after a new listing";

    // Physical memory is copied whole or as zeroes.
    Memory(0x100, "abcdefghijkl");
    char buffer[12];
    EXPECT_EQ(CopyPhysicalMemory(buffer, 0x102, 0, 4, 0), 0);
    EXPECT_EQ(std::string(buffer, 4), "cdef");
    auto expectFailsZeroed = [&](uint32_t low, uint32_t high, int flags, const char* why) {
        std::memset(buffer, 'x', sizeof buffer);
        EXPECT_EQ(CopyPhysicalMemory(buffer, low, high, 12, flags), -1) << why;
        EXPECT_EQ(std::string(buffer, 12), std::string(12, '\0')) << why;
    };
    expectFailsZeroed(0x108, 0, 0, "runs past the end");
    expectFailsZeroed(0x100, 1, 0, "above 4 GiB");
    expectFailsZeroed(0x100, 0, 1, "unknown flags");
    UsePaths("no-such-memory");
    expectFailsZeroed(0x100, 0, 0, "no memory file");
}

TEST_F(UsbTestsTest, SpeedTestWantsAFiveWithinTwelveBytesOfAnEhciController) {
    SpeedTest test(&device);
    UsePaths("mem");
    EXPECT_EQ(Run(test, ""), (Outcome{"failed", "Speed test failure"})) << "no PCI folder at all";
    Memory(0x40, "555555555555");  // what a read at a zero address would find
    Function("0000:00:1d.7", Ehci({0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(Run(test, ""), (Outcome{"failed", "Speed test failure"})) << "six zero registers: no memory read";
    Memory(0x3040, "xxxxxxxxxxxx5");
    Function("0000:00:1d.7", Ehci({0x3000}));
    EXPECT_EQ(Run(test, ""), (Outcome{"failed", "Speed test failure"})) << "the character is the thirteenth byte";
    Memory(0x4040, "5           ");
    Function("0000:00:1d.0", Config(0x10, 0x03, 0x0C, {0x4000}));  // OHCI
    Function("0000:00:1e.0", Config(0x20, 0x04, 0x0C, {0x4000}));  // not USB
    Function("0000:00:1f.0", Config(0x20, 0x03, 0x0D, {0x4000}));  // not a serial bus controller
    EXPECT_EQ(Run(test, ""), (Outcome{"failed", "Speed test failure"})) << "none of these is EHCI";
    Function("0000:03:00.0", Ehci({0, 0, 0x2000}));  // the first non-zero register is the third
    Memory(0x2040, "xxxxxxxxxxx5");                  // the last of the twelve bytes
    UsePaths("no-such-memory");
    EXPECT_EQ(Run(test, ""), (Outcome{"failed", "Speed test failure"})) << "memory cannot be read";
    UsePaths("mem");
    EXPECT_EQ(Run(test, ""), (Outcome{"passed"}));
}

TEST_F(UsbTestsTest, StoredFormsAndCopies) {
    USBDevice owner("usbDevice", nullptr, true);
    owner.AddTest(new SpeedTest(&owner));
    owner.AddTest(new DescTest(&owner));
    owner.AddTest(new usbLoopbackTest(&owner));
    owner.tests[1]->currentState = "failed";
    std::unique_ptr<USBDevice> back = RoundTrip<USBDevice>(owner);
    ASSERT_NE(back, nullptr);
    ASSERT_EQ(back->tests.size(), 3u);
    for (size_t i = 0; i < 3; ++i) {
        SCOPED_TRACE(owner.tests[i]->caption);
        EXPECT_STREQ(back->tests[i]->GetRealClassName(), owner.tests[i]->GetRealClassName());
        EXPECT_EQ(back->tests[i]->caption, owner.tests[i]->caption);
        EXPECT_EQ(back->tests[i]->currentState, owner.tests[i]->currentState);
        EXPECT_EQ(back->tests[i]->device, back.get());
        EXPECT_TRUE(back->tests[i]->parameters.parameters.empty()) << "parameters are not stored";
    }
    optstream out, again;
    out << static_cast<const Persistent*>(&owner);
    again << static_cast<const Persistent*>(back.get());
    EXPECT_EQ(again.GetBuffer(), out.GetBuffer()) << "nothing beyond the base's fields";

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
