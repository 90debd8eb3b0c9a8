// A drive left as it was found: checksum, saved-bytes file, the save/write/restore cycle on stand-in files,
// recovery of damaged and foreign files, German texts.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <random>

#include "common/Translate.h"
#include "common/TvkError.h"
#include "tc/usb/linux/storage/DriveCycle.h"
#include "tc/usb/linux/storage/DriveGuard.h"
#include "tc/usb/linux/storage/FileCompare.h"
#include "tc/usb/linux/storage/Hash64.h"
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

TEST(DriveCycle, AStandInDriveHoldsTheReferenceUntilRestoredAndThenItsOwnBytes) {
    TempDir dir(true);
    const std::string reference = dir.Write("SSO.DAT", RandomBytes(3000, 2));
    for (size_t size : {size_t(10000), size_t(100), size_t(3072)}) {
        SCOPED_TRACE(size);
        const std::string original = RandomBytes(size, 3);
        const std::string drive = dir.Write("sdq", original);
        DriveCycle cycle(reference, drive, "SERIAL1", dir.Path(), "failed for drive X");
        cycle.Claim();
        cycle.Save();
        EXPECT_EQ(cycle.SavedPath(), dir.Path(SavedDriveFileName("SERIAL1")));
        SavedDriveFile saved;
        ASSERT_EQ(ParseSavedDriveHeader(dir.Read(SavedDriveFileName("SERIAL1")), saved), "");
        // The reference's length rounded up to whole blocks, or the drive's end.
        EXPECT_EQ(saved.length, std::min<size_t>(size, 3072));
        EXPECT_EQ(dir.Read(SavedDriveFileName("SERIAL1")).substr(saved.DataOffset()), original.substr(0, saved.length));
        EXPECT_FALSE(dir.Exists(PartialName(SavedDriveFileName("SERIAL1"))));
        EXPECT_EQ(dir.Read("sdq"), original) << "nothing written while saving";

        EXPECT_TRUE(cycle.Write());
        EXPECT_EQ(dir.Read("sdq").substr(0, 3000), dir.Read("SSO.DAT"));
        EXPECT_EQ(ErrorOf([&] { CompareFileContents(reference, drive, "x", CompareSpan::firstLength); }), "passed");
        cycle.Restore();
        EXPECT_EQ(dir.Read("sdq"), original);
        EXPECT_FALSE(dir.Exists(SavedDriveFileName("SERIAL1")));
    }
}

TEST(DriveCycle, NothingBeyondTheSavedRegionIsWrittenAndOnlyItsOwnCopyGoesBack) {
    TempDir dir(true);
    const std::string reference = dir.Write("SSO.DAT", RandomBytes(600, 9));
    const std::string original = RandomBytes(8192, 10);
    const std::string drive = dir.Write("sdq", original);
    DriveCycle cycle(reference, drive, "S3", dir.Path(), "d");
    cycle.Claim();
    cycle.Save();
    // The reference grows, and another file takes the copy's name.
    dir.Write("SSO.DAT", dir.Read("SSO.DAT") + RandomBytes(5000, 11));
    ASSERT_EQ(rename(cycle.SavedPath().c_str(), dir.Path("moved").c_str()), 0);
    dir.Write(SavedDriveFileName("S3"), "someone else's file");
    ASSERT_TRUE(cycle.Write());
    EXPECT_EQ(dir.Read("sdq").substr(0, 600), dir.Read("SSO.DAT").substr(0, 600));
    EXPECT_EQ(dir.Read("sdq").substr(600), original.substr(600)) << "beyond the saved region";
    cycle.Restore();
    EXPECT_EQ(dir.Read("sdq"), original);
    EXPECT_EQ(dir.Read(SavedDriveFileName("S3")), "someone else's file");
}

TEST(DriveCycle, RefusalsComeBeforeAnyWriteAndAFailedRestoreNamesTheSavedBytes) {
    TempDir dir(true);
    const std::string reference = dir.Write("SSO.DAT", RandomBytes(700, 4));
    const std::string original = RandomBytes(5000, 5);
    const std::string drive = dir.Write("sdq", original), detail = "failed for drive " + drive;
    const std::string pending = dir.Write(SavedDriveFileName("S2"), "from an earlier run");
    EXPECT_EQ(ErrorOf([&] { DriveCycle(reference, drive, "S2", dir.Path(), detail).Claim(); }),
              std::string(drivePendingText) + "|" + detail + ": " + pending);
    unlink(pending.c_str());
    EXPECT_EQ(ErrorOf([&] { DriveCycle(reference, dir.Path("sdz"), "S2", dir.Path(), "d").Claim(); }),
              "Device Not Connected|d");
    EXPECT_FALSE(dir.Exists("sdz")) << "a missing disk is not created";
    EXPECT_EQ(ErrorOf([&] {
                  DriveCycle cycle(reference, drive, "S2", dir.Path("gone"), detail);
                  cycle.Claim();
                  cycle.Save();
              }),
              std::string(driveNotSavedText) + "|" + detail + ": cannot create " + dir.Path("gone/") +
                  PartialName(SavedDriveFileName("S2")));
    EXPECT_EQ(ErrorOf([&] {
                  DriveCycle cycle(dir.Path("NONE.DAT"), drive, "S2", dir.Path(), detail);
                  cycle.Claim();
                  cycle.Save();
              }),
              "Could not locate files|");
    {
        // A write directory without room for the copy (here: a file size limit) refuses the drive.
        rlimit old{};
        getrlimit(RLIMIT_FSIZE, &old);
        const rlimit small{256, old.rlim_max};
        const auto oldSignal = signal(SIGXFSZ, SIG_IGN);
        setrlimit(RLIMIT_FSIZE, &small);
        const std::string refused = ErrorOf([&] {
            DriveCycle cycle(reference, drive, "S2", dir.Path(), detail);
            cycle.Claim();
            cycle.Save();
        });
        setrlimit(RLIMIT_FSIZE, &old);
        signal(SIGXFSZ, oldSignal);
        EXPECT_EQ(refused, std::string(driveNotSavedText) + "|" + detail + ": no room for " + dir.Path() + "/" +
                               PartialName(SavedDriveFileName("S2")));
        EXPECT_FALSE(dir.Exists(PartialName(SavedDriveFileName("S2"))));
    }
    EXPECT_EQ(dir.Read("sdq"), original);

    // Saved bytes that went bad on their way back: the drive does not read back as saved.
    DriveCycle cycle(reference, drive, "S2", dir.Path(), detail);
    cycle.Claim();
    cycle.Save();
    ASSERT_TRUE(cycle.Write());
    std::string copy = dir.Read(SavedDriveFileName("S2"));
    copy.back() ^= 0x20;
    dir.Write(SavedDriveFileName("S2"), copy);
    EXPECT_EQ(ErrorOf([&] { cycle.Restore(); }), std::string(driveNotRestoredText) + "|" + detail +
                                                     ": the drive reads back other bytes; saved bytes in " +
                                                     cycle.SavedPath());
    EXPECT_EQ(dir.Read(SavedDriveFileName("S2")), copy) << "kept";
}

TEST(RecoverSavedDrives, DamagedAndForeignFilesAreLeftAloneAndUnfinishedSavesDropped) {
    TempDir dir(true);
    const std::string reference = dir.Write("SSO.DAT", RandomBytes(1500, 7));
    const std::string drive = dir.Write("sdq", RandomBytes(4096, 8));
    {
        // A run that ended after its write: no stub tools here, so no drive has the serial.
        DriveCycle cycle(reference, drive, "NOSUCHSERIAL", dir.Path(), "d");
        cycle.Claim();
        cycle.Save();
        ASSERT_TRUE(cycle.Write());
    }
    const std::string name = SavedDriveFileName("NOSUCHSERIAL"), whole = dir.Read(name), path = dir.Path(name);
    const std::string afterWrite = dir.Read("sdq");
    SavedDriveFile file;
    ASSERT_EQ(ParseSavedDriveHeader(whole, file), "");
    dir.Write(PartialName(SavedDriveFileName("OTHER")), "a save that never finished");
    const auto flipped = [&](size_t at) {
        std::string copy = whole;
        copy[at] ^= 1;
        return copy;
    };
    // The drives are listed (./sg_scan, ./sg_map; here printing nothing) only for a whole file: the last.
    const std::string logCall = "#!/bin/sh\necho \"$0\" >> '" + dir.Path("tools.log") + "'\n";
    for (const char* tool : {"sg_scan", "sg_map"}) chmod(dir.Write(tool, logCall).c_str(), 0755);
    const std::vector<std::pair<std::string, std::string>> cases = {
        {flipped(file.DataOffset() + 3), path + " is damaged (saved bytes checksum wrong); it is left alone"},
        {flipped(file.ListOffset() + 3), path + " is damaged (block list checksum wrong); it is left alone"},
        {flipped(whole.find("\nsize ") + 6), path + " is damaged (header checksum wrong); it is left alone"},
        {whole.substr(0, whole.size() - 1), path + " is damaged (file length wrong); it is left alone"},
        {whole + "x", path + " is damaged (file length wrong); it is left alone"},
        {"", path + " is damaged (not a saved drive file); it is left alone"},
        {whole, "No drive with serial NOSUCHSERIAL is connected; its saved bytes stay in " + path},
    };
    for (const auto& [content, description] : cases) {
        dir.Write(name, content);
        const std::vector<RecoveryEvent> events = RecoverSavedDrives(dir.Path());
        ASSERT_EQ(events.size(), 1u);
        EXPECT_EQ(events[0].caption, "Drive Not Restored");
        EXPECT_EQ(events[0].description, description);
        EXPECT_EQ(dir.Read(name), content) << "left alone";
        EXPECT_EQ(dir.Read("sdq"), afterWrite);
    }
    EXPECT_EQ(dir.Read("tools.log"), "./sg_scan\n./sg_map\n");
    EXPECT_FALSE(dir.Exists(PartialName(SavedDriveFileName("OTHER"))));
    unlink(path.c_str());
    EXPECT_TRUE(RecoverSavedDrives(dir.Path()).empty());
    EXPECT_TRUE(RecoverSavedDrives(dir.Path("missing")).empty());
}

TEST(DriveTexts, EachHasAGermanTranslationWithTheSameBlanks) {
    TranslatorInitialize("de:" ZORBUS_BINARY_DIR "/locale");
    TranslatorAddCatalog("zorbus");
    for (const char* text :
         {driveMountedText, driveSwapText, driveHeldText, driveBusyText, drivePendingText, driveNotSavedText,
          driveNotRestoredText, "Drive Restored", "Drive Not Restored",
          "%s (serial %s) holds its saved bytes again; %s removed", "%s is damaged (%s); it is left alone",
          "No drive with serial %s is connected; its saved bytes stay in %s",
          "%s (serial %s) is not written back (%s); its saved bytes stay in %s",
          "it was changed after the test wrote it", "saved bytes checksum wrong", "the drive reads back other bytes"}) {
        const std::string german = Translate(text);
        EXPECT_NE(german, text);
        size_t blanks = 0;
        for (size_t at = german.find("%s"); at != std::string::npos; at = german.find("%s", at + 1)) ++blanks;
        size_t expected = 0;
        for (const char* at = std::strstr(text, "%s"); at; at = std::strstr(at + 1, "%s")) ++expected;
        EXPECT_EQ(blanks, expected) << german;
    }
    EXPECT_EQ(Translate(driveSwapText), "Laufwerk wird als Auslagerungsspeicher genutzt; es wird nicht beschrieben");
    TranslatorInitialize("C");
}
