// The copy of a drive's first bytes that the file write compare test keeps
// in the diagnostics write directory while the drive holds the reference.
// It is complete and on disk before the first byte of the drive is written,
// and removed only once the drive reads back as it was; a run that never
// ended leaves it for the next Initialize or run to put back.
//
// The file: a text header, one checksum for each block of the drive's
// region as the test writes it (8 bytes, little-endian), the saved bytes.
//   zorbus saved drive bytes 1
//   disk 8 /dev/sdb              the length of the text, then the text
//   serial 8 0123ABCD            the USB serial number the drive was found by
//   block 512                    the drive's logical block size
//   size 1000000000              the drive's size when saved
//   length 4096                  the saved bytes: the region, up to the end of the drive
//   saved 0123456789abcdef       Hash64 of the saved bytes
//   written 0123456789abcdef     Hash64 of the block checksums
//   check 0123456789abcdef       Hash64 of the header up to this line
#pragma once

#include <cstdint>
#include <string>

struct SavedDriveFile {
    std::string disk;
    std::string serial;
    uint64_t block = 512;
    uint64_t size = 0;
    uint64_t length = 0;
    uint64_t savedSum = 0;
    uint64_t writtenSum = 0;

    // The header's text; its length does not depend on the checksums.
    std::string Header() const;
    uint64_t Blocks() const { return (length + block - 1) / block; }
    uint64_t ListOffset() const { return Header().size(); }
    uint64_t DataOffset() const { return ListOffset() + 8 * Blocks(); }
    uint64_t FileSize() const { return DataOffset() + length; }
};

// Reads a header from the start of a file's text; empty when it is whole
// and its check matches, else what is wrong with it (untranslated).
std::string ParseSavedDriveHeader(const std::string& text, SavedDriveFile& file);

// "zorbus-drive-0123ABCD-<16 hex>.saved": the serial number's plain
// characters, and a checksum of it that keeps two serial numbers apart.
std::string SavedDriveFileName(const std::string& serial);
bool IsSavedDriveFileName(const std::string& name);
// The name of the file while it is being written.
std::string PartialName(const std::string& name);

// Little-endian form of a checksum in the block list.
void PutChecksum(uint64_t value, unsigned char* bytes);
uint64_t GetChecksum(const unsigned char* bytes);
