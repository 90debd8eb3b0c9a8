// The PCI and physical memory services over a fake sysfs folder and memory
// file, and the speed test's walk over them.
#include <cstring>

#include "Support.h"
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
        UsePaths("mem");
    }
    void TearDown() override {
        SetHostServicePathsForTests("", "");
        ComponentTest::TearDown();
    }
    // Setting the paths also forgets the listing of functions.
    void UsePaths(const std::string& memoryFile) { SetHostServicePathsForTests(dir.Path("pci"), dir.Path(memoryFile)); }
    void Function(const std::string& address, const std::string& config) {
        dir.Write("pci/" + address + "/config", config);
        UsePaths("mem");
    }
    void Memory(uint32_t address, const std::string& text) {
        memory.resize(std::max<size_t>(memory.size(), address + text.size()), '\0');
        memory.replace(address, text.size(), text);
        dir.Write("mem", memory);
    }

    TempDir dir;
    std::string memory;
    USBDevice device{"usbDevice", nullptr, true};
    SpeedTest test{&device};
};

const std::pair<std::string, std::string> passed{"passed", ""}, failed{"failed", "Speed test failure"};

}  // namespace

TEST_F(SpeedTestTest, ConfigurationSpaceFromSysfsAbsentFunctionsReadAllOnes) {
    Function("0000:00:1d.7", Ehci({0xFEBFF000}));
    Function("0000:1f:03.2", Config(0x10, 0x03, 0x0C, {}));
    Function("0001:00:1d.0", Ehci({0x1000}));  // another domain: out of reach
    EXPECT_EQ(nvxGetPciConfigBYTE(0, 0x1d, 7, 0x0B), 0x0C);
    EXPECT_EQ(nvxGetPciConfigDWORD(0, 0x1d, 7, 0), 0x00008086u);
    EXPECT_EQ(nvxGetPciConfigDWORD(0, 0x1d, 7, 4), 0xFEBFF000u);
    EXPECT_EQ(nvxGetPciConfigBYTE(0x1f, 3, 2, 0x09), 0x10);
    // Beyond the readable 64 bytes, absent functions, impossible addresses.
    EXPECT_EQ(nvxGetPciConfigBYTE(0, 0x1d, 7, 0x40), 0xFF);
    EXPECT_EQ(nvxGetPciConfigDWORD(0, 0x1d, 7, 16), 0xFFFFFFFFu);
    EXPECT_EQ(nvxGetPciConfigBYTE(0, 0x1d, 0, 0x0B), 0xFF);
    EXPECT_EQ(nvxGetPciConfigBYTE(256, 0x1d, 7, 0x0B) & nvxGetPciConfigBYTE(0, 32, 0, 0) &
                  nvxGetPciConfigBYTE(0, 0, 8, 0) & nvxGetPciConfigBYTE(0, 0x1d, 7, -1),
              0xFF);
    TempDir::Shell("rm -r '" + dir.Path("pci/0000:00:1d.7") + "'");
    UsePaths("mem");
    EXPECT_EQ(nvxGetPciConfigBYTE(0, 0x1d, 7, 0x0B), 0xFF) << "gone after a new listing";
}

TEST_F(SpeedTestTest, PhysicalMemoryCopiesWholeOrZeroes) {
    Memory(0x100, "abcdefghijkl");
    char buffer[12];
    EXPECT_EQ(CopyPhysicalMemory(buffer, 0x102, 0, 4, 0), 0);
    EXPECT_EQ(std::string(buffer, 4), "cdef");
    auto failsZeroed = [&](uint32_t low, uint32_t high, int flags) {
        std::memset(buffer, 'x', sizeof buffer);
        return CopyPhysicalMemory(buffer, low, high, 12, flags) == -1 && std::string(buffer, 12) == std::string(12, '\0');
    };
    EXPECT_TRUE(failsZeroed(0x108, 0, 0)) << "runs past the end";
    EXPECT_TRUE(failsZeroed(0x100, 1, 0)) << "above 4 GiB";
    EXPECT_TRUE(failsZeroed(0x100, 0, 1)) << "unknown flags";
    UsePaths("no-such-memory");
    EXPECT_TRUE(failsZeroed(0x100, 0, 0));
}

TEST_F(SpeedTestTest, CatalogueValues) {
    EXPECT_EQ(test.GetXmlString(),
              "<test name=\"speedTest\" caption=\"USB 2.0 Speed Test\" description=\"Run speed check on USB 2.0 Bus\" "
              "interactive=\"1\" requiresMedia=\"0\" requiresEquipment=\"1\" quick=\"0\" complete=\"0\" "
              "requiresWindow=\"0\" localOnly=\"0\" singleThread=\"1\" destructive=\"0\" romTest=\"0\" "
              "fieldtest=\"0\"><parameter name=\"retries\" caption=\"Retries\" description=\"Number of retries if "
              "test fails\" type=\"int\" min=\"0\" max=\"5\" defaultValue=\"1\"/></test>");
    EXPECT_FALSE(test.LocksDevice());
}

TEST_F(SpeedTestTest, PassesWhenAnyControllerShowsTheFive) {
    Function("0000:00:1a.7", Ehci({0x1000}));
    Function("0000:03:00.0", Ehci({0, 0, 0x2000}));  // the first non-zero register is the third
    Memory(0x1040, "USB 1.1     ");
    Memory(0x2040, "xxxxxxxxxxx5");  // the last of the twelve bytes
    EXPECT_EQ(Run(test, ""), passed);
}

TEST_F(SpeedTestTest, FailsWithoutAFiveWithinTwelveBytes) {
    EXPECT_EQ(Run(test, ""), failed) << "no PCI folder at all";
    Memory(0x40, "555555555555");  // what a read at a zero address would find
    Function("0000:00:1d.7", Ehci({0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(Run(test, ""), failed) << "six zero registers: no memory read";
    Memory(0x3040, "xxxxxxxxxxxx5");
    Function("0000:00:1d.7", Ehci({0x3000}));
    EXPECT_EQ(Run(test, ""), failed) << "the character is the thirteenth byte";
    Memory(0x4040, "5           ");
    Function("0000:00:1d.0", Config(0x10, 0x03, 0x0C, {0x4000}));  // OHCI
    Function("0000:00:1e.0", Config(0x20, 0x04, 0x0C, {0x4000}));  // not USB
    Function("0000:00:1f.0", Config(0x20, 0x03, 0x0D, {0x4000}));  // not a serial bus controller
    EXPECT_EQ(Run(test, ""), failed) << "none of these is EHCI";
    Function("0000:00:1d.7", Ehci({0x4000}));
    UsePaths("no-such-memory");
    EXPECT_EQ(Run(test, ""), failed) << "memory cannot be read";
    UsePaths("mem");
    EXPECT_EQ(Run(test, ""), passed);
}
