// The information source: its text helpers and line reading from a real file.
#include <stdexcept>

#include "UsbTestSupport.h"

namespace {
class FileReader : public USBInfoReader {
public:
    explicit FileReader(const std::string& path) : path(path) { devicesFile = this->path.c_str(); }
    std::string path;
};
}  // namespace

TEST(UsbReader, ReformatSqueezesBlanksAndLeavesATrace) {
    TempDir dir(true);
    USBInfoReader reader;
    char line[USBInfoReader::lineBufferSize] = "  idVendor   0x1d6b Linux Foundation\n";
    EXPECT_EQ(reader.reformatLine(line), "idVendor 0x1d6b Linux Foundation\n ");
    char empty[USBInfoReader::lineBufferSize] = "\n";
    EXPECT_EQ(reader.reformatLine(empty), "\n ");
    char blanks[USBInfoReader::lineBufferSize] = "   ";
    EXPECT_EQ(reader.reformatLine(blanks), "");
    EXPECT_EQ(dir.Read("bang1.txt"), "idVendor 0x1d6b Linux Foundation\n reformat idVendor 0x1d6b Linux Foundation\n \n"
                                     "\n reformat \n \nreformat \n");
}

TEST(UsbReader, TextCutting) {
    EXPECT_EQ(USBInfoReader::extractMoreIn("word") + "|" + USBInfoReader::extractMoreIn("one two three") + "|" +
                  USBInfoReader::extractMoreIn(""), "word|two three|");
    EXPECT_EQ(USBInfoReader::extractStringIn("idVendor 0x0781", "idVendor"), "0x0781");
    EXPECT_EQ(USBInfoReader::extractStringIn("idVendor ", "idVendor"), "");
    EXPECT_THROW(USBInfoReader::extractStringIn("idVendor", "idVendor"), std::out_of_range);
    EXPECT_FALSE(USBInfoReader::isFoundInLine(" bcdusb 2.00", "bcdUSB"));
    EXPECT_EQ(USBInfoReader::processHubPorts("Hub Port Status:\n   Port 1: 0000.0100 power\n   Port 2: 0000.0503 connect\n"
                                             "Device Status: 0x0001\n"),
              (std::list<std::string>{"   Port 1: 0000.0100 power", "   Port 2: 0000.0503 connect"}));
}

TEST(UsbReader, LongLinesComeInPiecesAndTheEndIsSeenLate) {
    TempDir dir;
    FileReader reader(dir.Write("text", std::string(300, 'a') + "\nlast\n"));
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
    EXPECT_FALSE(FileReader(dir.Path("missing")).open());
}
