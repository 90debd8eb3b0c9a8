// A drive left as it was found: checksum, saved-bytes file.
#include <random>

#include "tc/usb/linux/Hash64.h"
#include "tc/usb/linux/SavedDriveFile.h"
#include "usb/UsbTestSupport.h"

namespace {

std::string RandomBytes(size_t size, unsigned seed) {
    std::mt19937 random(seed);
    std::string bytes(size, '\0');
    for (char& c : bytes) c = static_cast<char>(random());
    return bytes;
}

SavedDriveFile Sample() {
    SavedDriveFile file;
    file.disk = "/dev/sdb";
    file.serial = "odd serial\nwith a line end";
    file.block = 4096;
    file.size = 8000000000ULL;
    file.length = 8192;
    file.savedSum = 0x0123456789abcdefULL;
    file.writtenSum = 0xfedcba9876543210ULL;
    return file;
}

}  // namespace

TEST(Hash64, KnownValuesAndPiecewiseUpdates) {
    // Values of the reference XXH64 implementation, seed 0.
    EXPECT_EQ(Hash64::Of("", 0), 0xef46db3751d8e999ULL);
    EXPECT_EQ(Hash64::Of("abc", 3), 0x44bc2cf5ad770999ULL);
    EXPECT_EQ(Hash64::Of("Nobody inspects the spammish repetition", 39), 0xfbcea83c8a378bf1ULL);
    const std::string text = RandomBytes(1000, 1);
    for (size_t piece : {1, 7, 31, 32, 33, 999}) {
        Hash64 hash;
        for (size_t at = 0; at < text.size(); at += piece)
            hash.Update(text.data() + at, std::min(piece, text.size() - at));
        EXPECT_EQ(hash.Digest(), Hash64::Of(text.data(), text.size())) << piece;
    }
}

TEST(SavedDriveFile, HeaderReadsBackAndEachDamageIsNamed) {
    const SavedDriveFile sample = Sample();
    const std::string header = sample.Header();
    SavedDriveFile read;
    ASSERT_EQ(ParseSavedDriveHeader(header + "block list and bytes", read), "");
    EXPECT_EQ(read.disk, sample.disk);
    EXPECT_EQ(read.serial, sample.serial);
    EXPECT_EQ(read.block, 4096u);
    EXPECT_EQ(read.size, sample.size);
    EXPECT_EQ(read.length, sample.length);
    EXPECT_EQ(read.savedSum, sample.savedSum);
    EXPECT_EQ(read.writtenSum, sample.writtenSum);
    EXPECT_EQ(read.DataOffset(), header.size() + 2 * 8);
    SavedDriveFile other = sample;
    other.savedSum = 7;
    EXPECT_EQ(other.Header().size(), header.size()) << "the checksums are written over a header of fixed length";

    std::string changed = header;
    changed[header.find("length 8192") + 7] = '9';
    EXPECT_EQ(ParseSavedDriveHeader(changed, read), "header checksum wrong");
    EXPECT_EQ(ParseSavedDriveHeader("x" + header, read), "not a saved drive file");
    EXPECT_EQ(ParseSavedDriveHeader(header.substr(0, header.size() - 5), read), "header unreadable");
    for (const auto& [field, value] : std::vector<std::pair<uint64_t SavedDriveFile::*, uint64_t>>{
             {&SavedDriveFile::block, 1000}, {&SavedDriveFile::block, 256}, {&SavedDriveFile::length, 8000000001ULL}}) {
        SavedDriveFile wrong = sample;
        wrong.*field = value;
        EXPECT_EQ(ParseSavedDriveHeader(wrong.Header(), read), "header unreadable") << value;
    }
    std::string padded = header;
    padded.replace(padded.find("block 4096"), 10, "block 04096");
    EXPECT_EQ(ParseSavedDriveHeader(padded, read), "header unreadable");

    const std::string name = SavedDriveFileName("001CC0EC");
    EXPECT_EQ(name.substr(0, 22), "zorbus-drive-001CC0EC-");
    EXPECT_TRUE(IsSavedDriveFileName(name));
    EXPECT_FALSE(IsSavedDriveFileName(PartialName(name)));
    EXPECT_EQ(SavedDriveFileName("../a/b").find('/'), std::string::npos);
    EXPECT_NE(SavedDriveFileName("a/b"), SavedDriveFileName("a_b"));
    EXPECT_LT(SavedDriveFileName(std::string(4000, 'x')).size(), 100u);
}
