// The streams on real files: written on close or destruction, replacing what
// was there; files that are missing, foreign or unwritable.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <unistd.h>

#include "ByteBuilder.h"
#include "PersistTestClasses.h"

namespace {

class StateFile : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/zorbus-persist-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
        liveAtStart = g_liveTestObjects;
    }
    void TearDown() override {
        for (const char* name : {"state.bin", "foreign.bin"}) std::remove((dir + "/" + name).c_str());
        rmdir(dir.c_str());
        EXPECT_EQ(g_liveTestObjects, liveAtStart);
    }
    std::string Path(const std::string& name) const { return dir + "/" + name; }
    static std::string Contents(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        std::ostringstream text;
        text << file.rdbuf();
        return text.str();
    }

    std::string dir;
    int liveAtStart = 0;
};

TEST_F(StateFile, WrittenOnCloseAndReadBack) {
    const std::string path = Path("state.bin");
    std::unique_ptr<TestNode> tree(MakeSampleTree());
    optstream out(path);
    EXPECT_TRUE(out.good());
    out << static_cast<const Persistent*>(tree.get());
    EXPECT_FALSE(std::ifstream(path).good()) << "written before close";
    EXPECT_TRUE(out.close());
    EXPECT_EQ(Contents(path), out.GetBuffer());
    EXPECT_TRUE(out.close()) << "a second close changes nothing";

    iptstream in(path);
    ASSERT_TRUE(in.good());
    TestNode* back = nullptr;
    in.ReadOwned(back);
    std::unique_ptr<TestNode> owner(back);
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->children[0]->parent, back);
    EXPECT_EQ(Store(back), out.GetBuffer());
}

TEST_F(StateFile, DestructorWritesAndReplacesTheOldContent) {
    const std::string path = Path("state.bin");
    {
        optstream out(path);
        TestLeaf big(std::string(5000, 'b'));
        out << static_cast<const Persistent*>(&big);
    }
    EXPECT_GT(Contents(path).size(), 5000u);
    std::string smaller;
    {
        optstream out(path);
        TestLeaf small("s");
        out << static_cast<const Persistent*>(&small);
        smaller = out.GetBuffer();
    }
    EXPECT_EQ(Contents(path), smaller);
}

TEST_F(StateFile, MissingForeignOrUnwritable) {
    iptstream missing(Path("no-such-file"));
    EXPECT_FALSE(missing.good());
    Persistent* object = nullptr;
    EXPECT_THROW(missing >> object, PersistenceError);

    const std::string foreign = Path("foreign.bin");
    std::ofstream(foreign, std::ios::binary) << "\x7f" "ELF another program's data";
    iptstream wrong(foreign);
    EXPECT_FALSE(wrong.good());
    EXPECT_THROW(wrong >> object, PersistenceError);

    iptstream directory(dir);
    EXPECT_FALSE(directory.good());

    optstream unwritable(Path("no-such-dir/state.bin"));
    TestLeaf leaf("x");
    unwritable << static_cast<const Persistent*>(&leaf);
    EXPECT_FALSE(unwritable.close());
    EXPECT_FALSE(unwritable.good());
    EXPECT_EQ(object, nullptr);
}

}  // namespace
