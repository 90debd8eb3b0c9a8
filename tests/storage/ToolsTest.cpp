// Tools run without a shell, the scratch file is never followed through a
// link, and the compare reads what the drive holds.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include "StorageSupport.h"
#include "common/TvkError.h"
#include "tc/usb/linux/ExternalTool.h"
#include "tc/usb/linux/FileCompare.h"

namespace {

std::string ErrorOf(const std::string& a, const std::string& b, CompareSpan span) {
    try {
        CompareFileContents(a, b, "failed for drive X", span);
    } catch (TvkError& e) {
        EXPECT_EQ(e.GetDetail(), "failed for drive X");
        return e.GetMessage();
    }
    return "passed";
}

}  // namespace

TEST(ExternalTool, HostileTextStaysOneArgument) {
    TempTree tree;
    tree.Enter();
    std::string out;
    ASSERT_TRUE(CaptureTool({"printf", "%s|", "/dev/sdb; touch PWNED", "$(touch PWNED2)"}, out));
    EXPECT_EQ(out, "/dev/sdb; touch PWNED|$(touch PWNED2)|");
    EXPECT_FALSE(tree.Exists("PWNED"));
    EXPECT_FALSE(tree.Exists("PWNED2"));

    EXPECT_TRUE(ToolSucceeded(RunTool({"true"})));
    EXPECT_FALSE(ToolSucceeded(RunTool({"false"})));
    EXPECT_EQ(RunTool({"no-such-tool-zorbus"}), -1);
    EXPECT_FALSE(CaptureTool({}, out));
    EXPECT_FALSE(IsPathOperand("-o"));
    EXPECT_FALSE(IsPathOperand(""));
    EXPECT_TRUE(IsPathOperand("/dev/sdb"));
}

TEST(ExternalTool, ScratchFileReplacesAPlantedLinkAndSparesItsTarget) {
    TempTree tree;
    const std::string victim = tree.Write("victim", "precious");
    const std::string scratch = tree.Path() + "/OUTFILE";
    ASSERT_EQ(symlink(victim.c_str(), scratch.c_str()), 0);

    const int fd = CreateScratchFile(scratch.c_str());
    ASSERT_GE(fd, 0);
    ASSERT_EQ(write(fd, "tool output\n", 12), 12);
    EXPECT_EQ(ReadWholeFd(fd), "tool output\n");
    close(fd);
    EXPECT_EQ(tree.Read("victim"), "precious");
    struct stat st {};
    ASSERT_EQ(lstat(scratch.c_str(), &st), 0);
    EXPECT_TRUE(S_ISREG(st.st_mode));
    EXPECT_EQ(st.st_mode & 0777, 0600u);
}

TEST(ExternalTool, LinesArriveInPiecesLikeFgets) {
    EXPECT_EQ(SplitLikeFgets("ab\ncdefg\nh", 4), (std::vector<std::string>{"ab\n", "cde", "fg\n", "h"}));
    EXPECT_TRUE(SplitLikeFgets("", 4).empty());
}

TEST(FileCompare, OutcomesInTheirOrder) {
    TempTree tree;
    const std::string ref = tree.Write("ref", "reference data");
    const std::string same = tree.Write("same", "reference data");
    const std::string longer = tree.Write("longer", "reference data and the rest of the disk");
    const std::string other = tree.Write("other", "reference dat!");
    const std::string shorter = tree.Write("shorter", "refer");
    const std::string empty = tree.Write("empty", "");
    const std::string missing = tree.Path() + "/missing";

    EXPECT_EQ(ErrorOf(ref, same, CompareSpan::whole), "passed");
    EXPECT_EQ(ErrorOf(ref, longer, CompareSpan::firstLength), "passed");
    EXPECT_EQ(ErrorOf(ref, longer, CompareSpan::whole), "Data Comparison Failure");
    EXPECT_EQ(ErrorOf(ref, other, CompareSpan::firstLength), "Data Comparison Failure");
    EXPECT_EQ(ErrorOf(ref, shorter, CompareSpan::firstLength), "Data Comparison Failure");
    EXPECT_EQ(ErrorOf(empty, same, CompareSpan::whole), "Read Data Failure");
    EXPECT_EQ(ErrorOf(ref, empty, CompareSpan::firstLength), "Read Data Failure");
    EXPECT_EQ(ErrorOf(missing, same, CompareSpan::whole), "Could not locate files");
    EXPECT_EQ(ErrorOf(ref, missing, CompareSpan::whole), "Could not locate files");
    // A drive that keeps nothing of what was written.
    EXPECT_EQ(ErrorOf(ref, "/dev/zero", CompareSpan::firstLength), "Data Comparison Failure");
    EXPECT_EQ(ErrorOf(ref, "/dev/null", CompareSpan::firstLength), "Read Data Failure");
}

TEST(FileCompare, DifferencesAcrossReadChunks) {
    TempTree tree;
    const size_t chunk = 1 << 20;
    std::string big(2 * chunk, 'x');
    const std::string ref = tree.Write("ref", big);
    const std::string copy = tree.Write("copy", big);
    EXPECT_EQ(ErrorOf(ref, copy, CompareSpan::whole), "passed");
    // One byte more behind an exact multiple of the chunk.
    tree.Write("plus", big + "y");
    EXPECT_EQ(ErrorOf(ref, tree.Path() + "/plus", CompareSpan::whole), "Data Comparison Failure");
    EXPECT_EQ(ErrorOf(ref, tree.Path() + "/plus", CompareSpan::firstLength), "passed");
    big[chunk + 17] = 'z';
    tree.Write("late", big);
    EXPECT_EQ(ErrorOf(ref, tree.Path() + "/late", CompareSpan::whole), "Data Comparison Failure");
    tree.Write("cut", big.substr(0, chunk + 5));
    EXPECT_EQ(ErrorOf(ref, tree.Path() + "/cut", CompareSpan::firstLength), "Data Comparison Failure");
}
