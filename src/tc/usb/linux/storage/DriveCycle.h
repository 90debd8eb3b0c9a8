// One drive's try of the file write compare test, with the drive left as
// it was found: the bytes the reference will cover are saved (into a file
// of the diagnostics write directory, on disk before anything is written),
// the reference is written and read back, and the saved bytes are written
// back and read back from the medium before the try is over.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tc/usb/linux/storage/SavedDriveFile.h"

// Texts of the cycle's own errors (keys of TvkError, translated).
extern const char* const drivePendingText;
extern const char* const driveNotSavedText;
extern const char* const driveNotRestoredText;

class DriveCycle {
public:
    // `serial` is the USB serial number the drive was found by; `detail`
    // the second text of every error ("failed for drive /dev/sdb").
    DriveCycle(const std::string& reference, const std::string& disk, const std::string& serial,
               const std::string& directory, const std::string& detail);
    ~DriveCycle();
    DriveCycle(const DriveCycle&) = delete;
    DriveCycle& operator=(const DriveCycle&) = delete;

    // Refuses a drive in use or with saved bytes of an earlier run still
    // waiting, then opens and claims it (see DriveGuard.h).
    void Claim();
    // Saves the region the reference will cover, rounded up to whole
    // blocks. Throws "Could not locate files" without the reference, and
    // the not-saved refusal when the copy cannot be made.
    void Save();
    // Writes the reference from the drive's first byte and flushes it to
    // the medium. False when nothing could be written.
    bool Write();
    // True when the drive reads back, from the medium, as the reference that
    // Save read; a false answer says nothing of why (the byte compare does).
    bool ReadsBackAsReference() const;
    // Writes the saved bytes back, reads them back from the medium and
    // removes their file. Throws the not-restored error, which names the
    // file that keeps them, when the drive does not read back as it was.
    void Restore();

    const std::string& SavedPath() const { return savedPath; }

private:
    std::string reference, disk, serial, directory, detail, savedPath;
    int drive = -1;
    int savedIn = -1;  // the saved bytes' file, open for reading
    uint64_t referenceLength = 0;
    uint64_t referenceSum = 0;  // of the reference as Save read it
    SavedDriveFile saved;
    bool savedOnDisk = false;
};

// A log line about saved bytes found at Initialize or at the start of a run.
struct RecoveryEvent {
    std::string caption, description;
};

// Puts back what runs that did not end left saved in `directory`: each
// file's drive, found by its serial number, is written back when it is
// connected, not in use and holds nothing but the test's reference and its
// own saved bytes; its file is removed once the drive reads back as saved.
// Damaged files, drives not connected and drives changed since are left
// alone. One event for each file; never throws.
std::vector<RecoveryEvent> RecoverSavedDrives(const std::string& directory);

// Events of the recovery at Initialize wait here until the host has given
// its callback.
void HoldRecoveryEvents(const std::vector<RecoveryEvent>& events);
std::vector<RecoveryEvent> TakeHeldRecoveryEvents();
