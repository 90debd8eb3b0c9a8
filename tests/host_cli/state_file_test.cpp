// The --state file: what is restored, what is refused before anything runs,
// and a save that goes through a new file beside the old one.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "HostProgram.h"
// The host program is no library: its state file code is compiled in here.
#include "../../tools/zorbus-host/StateFile.cpp"

namespace {

const std::string state = std::string("ZORBUSPT\1\0\0\0", 12) + "component";

void Write(const std::string& path, const std::string& bytes) { std::ofstream(path, std::ios::binary) << bytes; }

// The names in a folder, one per line, sorted.
std::string Listing(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    std::string text;
    for (const std::string& name : names) text += name + "\n";
    return text;
}

}  // namespace

TEST(HostProgramStateFile, OnlyAStateFileAnEmptyOrANewFileIsTaken) {
    const std::string folder = TemporaryFolder();
    Write(folder + "/state.bin", state);
    Write(folder + "/empty", "");
    Write(folder + "/notes.txt", "my notes\n");
    std::filesystem::create_directory(folder + "/dir");
    std::filesystem::create_symlink(folder + "/state.bin", folder + "/link");
    std::filesystem::create_symlink(folder + "/gone", folder + "/dangling");

    host::StateFile file;
    std::string error;
    ASSERT_TRUE(file.Check(folder + "/state.bin", error)) << error;
    EXPECT_TRUE(file.Restore());
    ASSERT_TRUE(file.Check(folder + "/link", error)) << error;
    EXPECT_TRUE(file.Restore());
    EXPECT_EQ(file.Path(), folder + "/state.bin") << "a link: the file it names is replaced";
    EXPECT_EQ(file.Given(), folder + "/link");
    ASSERT_TRUE(file.Check(folder + "/empty", error)) << error;
    EXPECT_FALSE(file.Restore());
    ASSERT_TRUE(file.Check(folder + "/new.bin", error)) << error;
    EXPECT_FALSE(file.Restore());

    const struct {
        const char* name;
        const char* error;
    } refused[] = {
        {"/notes.txt", " is not a state file of this component; it is left as it is"},
        {"/dir", " is no regular file; it is left as it is"},
        {"/dangling", " is a link to nothing; it is left as it is"},
        {"/no/such/folder/state.bin", " cannot be made there: No such file or directory"},
    };
    for (const auto& c : refused) {
        EXPECT_FALSE(file.Check(folder + c.name, error)) << c.name;
        EXPECT_EQ(error, "--state " + folder + c.name + c.error);
    }
    EXPECT_EQ(ReadFile(folder + "/notes.txt"), "my notes\n");
}

TEST(HostProgramStateFile, SaveReplacesTheFileWithANewOneAndLeavesNoOtherFile) {
    const std::string folder = TemporaryFolder(), path = folder + "/state.bin";
    Write(path, state);
    ASSERT_EQ(chmod(path.c_str(), 0640), 0);
    // A second name of the old file keeps the old bytes: the new ones are a new file, renamed over it.
    ASSERT_EQ(link(path.c_str(), (folder + "/old").c_str()), 0);
    host::StateFile file;
    std::string error;
    ASSERT_TRUE(file.Check(path, error)) << error;
    const std::string saved = state + " and its devices";
    ASSERT_TRUE(file.Save([&](const std::string& to) { Write(to, saved); }, error)) << error;
    EXPECT_EQ(ReadFile(path), saved);
    EXPECT_EQ(ReadFile(folder + "/old"), state);
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640u);
    EXPECT_EQ(Listing(folder), "old\nstate.bin\n");

    // A component that writes no state leaves the file as it was.
    EXPECT_FALSE(file.Save([](const std::string&) {}, error));
    EXPECT_EQ(error, "cannot save the state in " + path + ": the component wrote none; the file is left as it was");
    EXPECT_EQ(ReadFile(path), saved);
}

TEST(HostProgramStateFile, AWriteThatFailsHalfWayLeavesTheOldFileWhole) {
    const std::string folder = TemporaryFolder(), path = folder + "/state.bin";
    Write(path, state);
    const std::string message = folder + "/message";
    // In a child: a file size limit of 4 KiB makes the write of 64 KiB fail after its first part.
    const pid_t child = fork();
    if (child == 0) {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{4096, 4096};
        std::string error;
        if (setrlimit(RLIMIT_FSIZE, &limit) != 0) _exit(3);
        const bool saved = host::StateFile::WriteReplacing(path, std::string(65536, 'x'), error);
        std::ofstream(message) << error;
        _exit(saved ? 1 : 0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << "the save did not fail";
    EXPECT_EQ(ReadFile(message),
              "cannot save the state in " + path + " (writing: File too large); the file is left as it was");
    EXPECT_EQ(ReadFile(path), state);
    EXPECT_EQ(Listing(folder), "message\nstate.bin\n");
}
