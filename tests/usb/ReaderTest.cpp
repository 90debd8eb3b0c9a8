// The information source and the lsusb road's cutting of its text: the text
// helpers, line reading from a real file, the source choice, and the block
// cutting with its failures.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <stdexcept>

#include "LiteralReader.h"
#include "UsbTestSupport.h"
#include "common/StringUtil.h"
#include "common/TvkError.h"
#include "tc/usb/linux/Discovery.h"
#include "tc/usb/linux/USBInfoReader.h"

namespace {

// The reader on a file of the test's choosing.
class FileReader : public USBInfoReader {
public:
    explicit FileReader(const std::string& path) : path(path) { devicesFile = this->path.c_str(); }

private:
    std::string path;
};

std::string ReadFile(const std::string& path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

const char* const lsusbText =
    "\n"
    "Bus 001 Device 001: ID 1d6b:0002 Linux Foundation 2.0 root hub\n"
    "Device Descriptor:\n"
    "  bLength                18\n"
    "  idVendor           0x1d6b Linux Foundation\n"
    "Hub Descriptor:\n"
    "  nNbrPorts             6\n"
    "Hub Port Status:\n"
    "   Port 1: 0000.0503 highspeed power enable connect\n"
    "Device Status:     0x0001\n"
    "  Self Powered\n"
    "\n"
    "Bus 001 Device 002: ID 0781:5530 SanDisk Corp. Cruzer\n"
    "Device Descriptor:\n"
    "  idProduct          0x5530 Cruzer\n"
    "Device Status:     0x0000\n"
    "  (Bus Powered)\n";

}  // namespace

TEST(ReaderHelpers, ReformatSqueezesBlanksAndLeavesATrace) {
    ScopedWorkDir dir;
    USBInfoReader reader;
    char line[USBInfoReader::lineBufferSize] = "  idVendor   0x1d6b Linux Foundation\n";
    EXPECT_EQ(reader.reformatLine(line), "idVendor 0x1d6b Linux Foundation\n ");
    char empty[USBInfoReader::lineBufferSize] = "\n";
    EXPECT_EQ(reader.reformatLine(empty), "\n ");
    char blanks[USBInfoReader::lineBufferSize] = "   ";
    EXPECT_EQ(reader.reformatLine(blanks), "");
    EXPECT_EQ(ReadFile("bang1.txt"),
              "idVendor 0x1d6b Linux Foundation\n reformat idVendor 0x1d6b Linux Foundation\n \n"
              "\n reformat \n \n"
              "reformat \n");
}

TEST(ReaderHelpers, TextCutting) {
    EXPECT_EQ(USBInfoReader::extractMoreIn("word"), "word");
    EXPECT_EQ(USBInfoReader::extractMoreIn("one two three"), "two three");
    EXPECT_EQ(USBInfoReader::extractMoreIn(""), "");
    EXPECT_EQ(USBInfoReader::extractStringIn("idVendor 0x0781", "idVendor"), "0x0781");
    EXPECT_EQ(USBInfoReader::extractStringIn("idVendor ", "idVendor"), "");
    try {
        USBInfoReader::extractStringIn("idVendor", "idVendor");
        ADD_FAILURE() << "a line without room behind the key must fail";
    } catch (const std::out_of_range& error) {
        EXPECT_STREQ(error.what(), "basic_string::substr");
    }
    EXPECT_TRUE(USBInfoReader::isFoundInLine(" bcdUSB 2.00", "bcdUSB"));
    EXPECT_FALSE(USBInfoReader::isFoundInLine(" bcdusb 2.00", "bcdUSB"));

    const std::list<std::string> ports = USBInfoReader::processHubPorts(
        "Hub Port Status:\n   Port 1: 0000.0100 power\n   Port 2: 0000.0503 connect\nDevice Status: 0x0001\n");
    EXPECT_EQ(ports, (std::list<std::string>{"   Port 1: 0000.0100 power", "   Port 2: 0000.0503 connect"}));
}

TEST(ReaderFile, LongLinesComeInPiecesAndTheEndIsSeenLate) {
    ScopedWorkDir dir;
    {
        std::ofstream file("text");
        file << std::string(300, 'a') << "\nlast\n";
    }
    FileReader reader("text");
    ASSERT_TRUE(reader.open());
    char buffer[USBInfoReader::lineBufferSize];
    std::vector<std::string> pieces;
    while (reader.readLine(buffer)) {
        pieces.push_back(buffer);
        if (pieces.size() == 3) {
            EXPECT_TRUE(reader.moreLines()) << "the end is not known before a read meets it";
        }
    }
    EXPECT_EQ(pieces, (std::vector<std::string>{std::string(255, 'a'), std::string(45, 'a') + "\n", "last\n"}));
    EXPECT_TRUE(reader.noMoreLines());
    ASSERT_TRUE(reader.open()) << "a second open reads from the start";
    EXPECT_EQ(reader.readLine(buffer)[0], 'a');
    reader.close();

    FileReader missing("no-such-file");
    EXPECT_FALSE(missing.open());
}

TEST(ReaderFile, SourceChoiceOnThisMachine) {
    ScopedWorkDir dir;
    USBInfoReader reader;
    EXPECT_EQ(reader.getDevicesFile(), nullptr);
    reader.setMountedDevicesFile();
    EXPECT_STREQ(reader.getDevicesFile(), "/proc/bus/usb/devices");
    if (reader.isDevicesFileAvalable()) {
        EXPECT_TRUE(reader.setDevicesFile());
        EXPECT_STREQ(reader.getDevicesFile(), "/proc/bus/usb/devices");
        EXPECT_FALSE(FileExists("devices")) << "lsusb must not run";
    } else {
        // Without the kernel's file the lsusb text lands in ./devices.
        reader.setDevicesFile();
        EXPECT_STREQ(reader.getDevicesFile(), "devices");
        EXPECT_TRUE(FileExists("devices"));
    }
    if (!FileExists("/etc/SuSE-release")) {
        EXPECT_FALSE(reader.isSles10());
    }
}

TEST(LsusbRoad, DevicesAreCountedByTheirFirstLine) {
    LiteralReader reader(lsusbText);
    EXPECT_EQ(getNumberOfUSBDevices(reader), 2);
    // The buffer is not cleared: a first line at the very end counts twice.
    LiteralReader trailing("Bus 002 Device 001: ID 1d6b:0001\n");
    EXPECT_EQ(getNumberOfUSBDevices(trailing), 2);
    LiteralReader none("Device Descriptor:\n");
    EXPECT_EQ(getNumberOfUSBDevices(none), 0);
}

TEST(LsusbRoad, TextIsCutIntoReformattedBlocks) {
    ScopedWorkDir dir;
    LiteralReader reader(std::string(lsusbText) +
                         "Bus 002 Device 001: ID 1d6b:0001 Linux Foundation 1.1 root hub\n"
                         "Device Descriptor:\n");
    const std::vector<std::string> blocks = getVecDeviceInfo(reader);
    ASSERT_EQ(blocks.size(), 2u) << "the unfinished last block is dropped";
    EXPECT_EQ(blocks[0],
              "Bus 001 Device 001: ID 1d6b:0002 Linux Foundation 2.0 root hub\n Device Descriptor:\n "
              "bLength 18\n idVendor 0x1d6b Linux Foundation\n Hub Descriptor:\n nNbrPorts 6\n "
              "Hub Port Status:\n Port 1: 0000.0503 highspeed power enable connect\n Device Status: 0x0001\n ");
    EXPECT_EQ(blocks[1],
              "Bus 001 Device 002: ID 0781:5530 SanDisk Corp. Cruzer\n Device Descriptor:\n "
              "idProduct 0x5530 Cruzer\n Device Status: 0x0000\n ");

    LiteralReader joined("Bus 001 Device 001: ID a\nBus 001 Device 002: ID b\nDevice Status: 0x0000\n");
    const std::vector<std::string> one = getVecDeviceInfo(joined);
    ASSERT_EQ(one.size(), 1u) << "a first line without a status line before it goes on in the same block";
    EXPECT_EQ(one[0], "Bus 001 Device 001: ID a\n Bus 001 Device 002: ID b\n Device Status: 0x0000\n ");
}

TEST(LsusbRoad, Failures) {
    ScopedWorkDir dir;
    DeviceSet devices;
    const std::pair<const char*, bool> cases[] = {{"Device Descriptor:\n", true}, {"", false}};
    for (const auto& c : cases) {
        LiteralReader reader(c.first, c.second);
        try {
            ParseWithLsusbDevices(reader, devices);
            ADD_FAILURE() << "must fail";
        } catch (const TvkError& error) {
            EXPECT_EQ(error.GetMessage(), c.second ? "Device Failed Enumeration" : "Error Creating File");
        }
        EXPECT_FALSE(reader.isOpen) << "the road closes its file on the way out";
    }
    LiteralReader text(lsusbText);
    EXPECT_EQ(ParseWithLsusbDevices(text, devices), 0);
    EXPECT_EQ(text.opened, 2) << "counted, then cut";
    EXPECT_FALSE(text.isOpen);
}
