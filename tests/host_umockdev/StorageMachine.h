// A fake machine with USB drives for the storage tests: a fixture under
// tests/fixtures/storage_*, disk devices as plain files of the testbed,
// stub SCSI tools and stub mount tools that never mount anything: mount only
// writes its entry into the testbed's mount table, umount takes it out.
// Every stub call is logged with each argument in brackets.
#pragma once

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "Machine.h"
#include "Xml.h"

class StorageMachine {
public:
    explicit StorageMachine(const std::string& fixture);
    ~StorageMachine();

    FakeMachine machine;

    // A disk of the testbed, as the component opens it under /dev.
    void AddDisk(const std::string& name, const std::string& contents);
    std::string Disk(const std::string& name) const;
    // The reference file in the working directory.
    void SetReference(const std::string& contents);
    // What "./sg_map" and "sg_map" print, replacing the usual map.
    void SetSgMap(const std::string& text);
    // What sg_inq prints for any device.
    void SetSgInq(const std::string& text);
    // The next vfat mount fails with this exit status; umount leaves the
    // drive mounted.
    void FailMount(int status);
    void StickMount();
    void SetMounts(const std::string& table);
    std::string Mounts() const;
    std::vector<std::string> Calls() const;
    // A file anywhere in the machine's folder whose name holds `text`.
    bool AnyFileNamed(const std::string& text) const;

    Session Run(const std::vector<std::string>& script);

private:
    std::string testbed, work, stubs;
    // Opening a testbed file under /dev connects to this socket; nothing
    // is asked of it, since no ioctl is made.
    int listener = -1;
    std::atomic<bool> stop{false};
    std::thread acceptor;
    std::vector<int> accepted;
};

// "run <runTest device=... test=... component=.../>" with extra attributes.
std::string RunTestLine(const std::string& device, const std::string& test, const std::string& attributes = "");

struct Outcome {
    std::string state;
    std::string error, detail, text;  // empty when the result has no error
    std::vector<int> progress;        // percent of each diagUpdate
    std::vector<std::string> prompts; // text of each diagPrompt
};
Outcome ReadOutcome(const Step& step);
