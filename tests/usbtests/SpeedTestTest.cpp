// The PCI and physical memory services read from a fake sysfs folder and a
// fake memory file, and the speed test's walk over them: which functions
// count as EHCI controllers, which register gives the address, where the
// '5' may lie, and every way to fail.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "Support.h"
#include "common/xmldef.h"
#include "platform/HostServices.h"
#include "tc/usb/linux/SpeedTest.h"
#include "tc/usb/linux/USBDevice.h"

namespace {

// The 64 bytes an unprivileged reader sees of a function's configuration.
std::string Config(uint8_t progIf, uint8_t subclass, uint8_t baseClass, std::vector<uint32_t> bars) {
    std::string bytes(64, '\0');
    bytes[0] = '\x86';
    bytes[1] = '\x80';
    bytes[0x09] = static_cast<char>(progIf);
    bytes[0x0A] = static_cast<char>(subclass);
    bytes[0x0B] = static_cast<char>(baseClass);
    for (size_t i = 0; i < bars.size(); ++i)
        for (int b = 0; b < 4; ++b) bytes[0x10 + 4 * i + b] = static_cast<char>(bars[i] >> (8 * b));
    return bytes;
}
std::string Ehci(std::vector<uint32_t> bars) { return Config(0x20, 0x03, 0x0C, bars); }

class SpeedTestTest : public ComponentTest {
protected:
    void SetUp() override {
        ComponentTest::SetUp();
        SetHostServicePathsForTests(dir.Path("pci"), dir.Path("mem"));
    }
    void TearDown() override {
        SetHostServicePathsForTests("", "");
        ComponentTest::TearDown();
    }
    void Function(const std::string& address, const std::string& config) {
        dir.Write("pci/" + address + "/config", config);
        SetHostServicePathsForTests(dir.Path("pci"), dir.Path("mem"));  // a fresh listing
    }
    // Memory from 0 to the end of `text` placed at `address`.
    void Memory(uint32_t address, const std::string& text) {
        memory.resize(std::max<size_t>(memory.size(), address + text.size()), '\0');
        memory.replace(address, text.size(), text);
        dir.Write("mem", memory);
    }
    std::string Run() {
        XmlObject command("<runTest retries=\"0\"/>");
        return test.Run(command);
    }

    TempDir dir;
    std::string memory;
    USBDevice device{"usbDevice", nullptr, true};
    SpeedTest test{&device};
};

}  // namespace

TEST_F(SpeedTestTest, ConfigurationSpaceComesFromSysfsAndAbsentFunctionsReadAllOnes) {
    Function("0000:00:1d.7", Ehci({0xFEBFF000}));
    Function("0000:1f:03.2", Config(0x10, 0x03, 0x0C, {}));
    Function("0001:00:1d.0", Ehci({0x1000}));  // another domain: not reachable
    dir.Write("pci/garbage/config", Ehci({0x1000}));

    EXPECT_EQ(nvxGetPciConfigBYTE(0, 0x1d, 7, 0x0B), 0x0C);
    EXPECT_EQ(nvxGetPciConfigBYTE(0, 0x1d, 7, 0x09), 0x20);
    EXPECT_EQ(nvxGetPciConfigDWORD(0, 0x1d, 7, 0), 0x00008086u);
    EXPECT_EQ(nvxGetPciConfigDWORD(0, 0x1d, 7, 4), 0xFEBFF000u);
    EXPECT_EQ(nvxGetPciConfigBYTE(0x1f, 3, 2, 0x09), 0x10) << "hexadecimal bus and device";
    // What lies beyond the 64 bytes, and what is not there at all.
    EXPECT_EQ(nvxGetPciConfigBYTE(0, 0x1d, 7, 0x40), 0xFF);
    EXPECT_EQ(nvxGetPciConfigDWORD(0, 0x1d, 7, 16), 0xFFFFFFFFu);
    EXPECT_EQ(nvxGetPciConfigBYTE(0, 0x1d, 0, 0x0B), 0xFF);
    EXPECT_EQ(nvxGetPciConfigBYTE(1, 0x1d, 7, 0x0B), 0xFF);
    for (auto bad : {std::vector<int>{256, 0, 0, 0}, {-1, 0, 0, 0}, {0, 32, 0, 0}, {0, 0, 8, 0}, {0, 0x1d, 7, -1},
                     {0, 0x1d, 7, 4096}})
        EXPECT_EQ(nvxGetPciConfigBYTE(bad[0], bad[1], bad[2], bad[3]), 0xFF) << bad[0] << " " << bad[1];
    EXPECT_EQ(nvxGetPciConfigDWORD(0, 0x1d, 7, -1), 0xFFFFFFFFu);

    // A function that goes away answers all ones once the folder is listed again.
    ASSERT_EQ(std::system(("rm -rf '" + dir.Path("pci/0000:00:1d.7") + "'").c_str()), 0);
    SetHostServicePathsForTests(dir.Path("pci"), dir.Path("mem"));
    EXPECT_EQ(nvxGetPciConfigBYTE(0, 0x1d, 7, 0x0B), 0xFF);
}

TEST_F(SpeedTestTest, PhysicalMemoryCopiesExactlyOrZeroes) {
    Memory(0x100, "abcdefghijkl");
    char buffer[12];
    EXPECT_EQ(CopyPhysicalMemory(buffer, 0x102, 0, 4, 0), 0);
    EXPECT_EQ(std::string(buffer, 4), "cdef");
    EXPECT_EQ(CopyPhysicalMemory(buffer, 0x100, 0, 0, 0), 0);

    const std::string zeros(12, '\0');
    auto failsZeroed = [&](uint32_t low, uint32_t high, uint32_t length, int flags) {
        std::memset(buffer, 'x', sizeof buffer);
        const int status = CopyPhysicalMemory(buffer, low, high, length, flags);
        return status == -1 && std::string(buffer, length) == zeros.substr(0, length);
    };
    EXPECT_TRUE(failsZeroed(0x108, 0, 12, 0)) << "runs past the end";
    EXPECT_TRUE(failsZeroed(0x100, 1, 4, 0)) << "above 4 GiB";
    EXPECT_TRUE(failsZeroed(0x100, 0, 4, 1)) << "unknown flags";
    EXPECT_EQ(CopyPhysicalMemory(nullptr, 0x100, 0, 4, 0), -1);
    SetHostServicePathsForTests(dir.Path("pci"), dir.Path("no-such-memory"));
    EXPECT_TRUE(failsZeroed(0x100, 0, 12, 0));
}

TEST_F(SpeedTestTest, CatalogueValues) {
    XmlObject element(test.GetXmlString());
    EXPECT_EQ(element.GetXmlString(),
              "<test name=\"speedTest\" caption=\"USB 2.0 Speed Test\" description=\"Run speed check on USB 2.0 Bus\" "
              "interactive=\"1\" requiresMedia=\"0\" requiresEquipment=\"1\" quick=\"0\" complete=\"0\" "
              "requiresWindow=\"0\" localOnly=\"0\" singleThread=\"1\" destructive=\"0\" romTest=\"0\" "
              "fieldtest=\"0\"><parameter name=\"retries\" caption=\"Retries\" description=\"Number of retries if "
              "test fails\" type=\"int\" min=\"0\" max=\"5\" defaultValue=\"1\"/></test>");
    EXPECT_FALSE(test.LocksDevice());
}

TEST_F(SpeedTestTest, PassesWhenAnyControllerShowsTheFive) {
    // Two controllers; only the second one's memory holds the character.
    Function("0000:00:1a.7", Ehci({0x1000}));
    Function("0000:03:00.0", Ehci({0, 0, 0x2000}));  // first non-zero register is the third
    Memory(0x1040, "USB 1.1     ");
    Memory(0x2040, "xxxxxxxxxxx5");  // the last of the twelve bytes
    const std::string result = Run();
    EXPECT_EQ(XmlObject(result).GetAttributeValue(xmldef::currentState), "passed") << result;
    EXPECT_EQ(ErrorOf(result).name, "");
}

TEST_F(SpeedTestTest, FailsWithoutAFiveWithinTwelveBytes) {
    auto expectFailure = [&](const char* why) {
        const std::string result = Run();
        EXPECT_EQ(XmlObject(result).GetAttributeValue(xmldef::currentState), "failed") << why;
        EXPECT_EQ(ErrorOf(result).GetAttributeValue("key"), "Speed test failure") << why << result;
    };
    expectFailure("no PCI folder at all");

    Memory(0x40, "555555555555");  // what a read at a zero address would find
    Function("0000:00:1d.7", Ehci({0, 0, 0, 0, 0, 0}));
    expectFailure("all six registers zero: no memory read");

    Memory(0x3040, "xxxxxxxxxxxx5");
    Function("0000:00:1d.7", Ehci({0x3000}));
    expectFailure("the character is the thirteenth byte");

    Memory(0x4040, "5           ");
    Function("0000:00:1d.0", Config(0x10, 0x03, 0x0C, {0x4000}));  // OHCI
    Function("0000:00:1e.0", Config(0x20, 0x04, 0x0C, {0x4000}));  // not USB
    Function("0000:00:1f.0", Config(0x20, 0x03, 0x0D, {0x4000}));  // not a serial bus controller
    expectFailure("no function of these is EHCI");

    Function("0000:00:1d.7", Ehci({0x4000}));
    SetHostServicePathsForTests(dir.Path("pci"), dir.Path("no-such-memory"));
    expectFailure("memory cannot be read");
    SetHostServicePathsForTests(dir.Path("pci"), dir.Path("mem"));
    const std::string result = Run();
    EXPECT_EQ(XmlObject(result).GetAttributeValue(xmldef::currentState), "passed") << result;
}
