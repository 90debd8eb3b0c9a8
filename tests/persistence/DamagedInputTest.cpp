// Damaged, truncated, hostile and foreign input: every read either fails with
// PersistenceError or gives a whole graph, and nothing made on the way leaks.
#include <gtest/gtest.h>

#include <memory>

#include "ByteBuilder.h"
#include "PersistTestClasses.h"

namespace {

class DamagedInput : public ::testing::Test {
protected:
    void SetUp() override { liveAtStart = g_liveTestObjects; }
    void TearDown() override { EXPECT_EQ(g_liveTestObjects, liveAtStart) << "test objects leaked or freed twice"; }
    int liveAtStart = 0;
};

// The detail of the PersistenceError that reading one object throws, or
// "no error".
std::string ReadFailure(const std::string& bytes) {
    iptstream in = iptstream::FromMemory(bytes);
    Persistent* object = nullptr;
    try {
        in >> object;
    } catch (const PersistenceError& error) {
        EXPECT_STREQ(error.what(), "Damaged state file");
        EXPECT_EQ(object, nullptr);
        return error.GetDetail();
    }
    delete object;
    return "no error";
}

// A TestNode's fields up to its leaves count.
ByteBuilder NodeStart(const std::string& name = "n") {
    ByteBuilder b;
    b.New("TestNode").Str(name).Null();
    return b;
}

TEST_F(DamagedInput, EachFaultIsNamed) {
    struct Case {
        const char* what;
        std::string bytes;
        std::string detail;
    };
    const Case cases[] = {
        {"unknown class", ByteBuilder().New("NoSuchClass").U32(0).str(), "unknown class NoSuchClass"},
        {"huge count", NodeStart().U32(0xffffffff).U32(0).str(), "count 4294967295 exceeds the data"},
        // 0x40000001 * 4 wraps to 4 in 32 bits, which the bytes left would hold.
        {"count that overflows", NodeStart().U32(0x40000001).U32(0).U32(0).str(),
         "count 1073741825 exceeds the data"},
        {"huge string length", ByteBuilder().New("TestLeaf").U32(1).U32(2).Byte(0).U32(0x7fffffff).Raw("abc").str(),
         "string length 2147483647 exceeds the data"},
        {"huge class name length", ByteBuilder().U32(1).U32(0xfffffff0).Raw("Test").str(),
         "string length 4294967280 exceeds the data"},
        {"reference to an object not read yet", ByteBuilder().Ref(5).str(), "reference to object 5 not read yet"},
        {"reference where ownership is required", NodeStart().U32(1).Ref(0).U32(0).U32(0).Null().U32(0).str(),
         "reference where an owned object is expected"},
        {"new object as a back reference",
         ByteBuilder().New("TestNode").Str("n").New("TestNode").Str("m").Null().str(),
         "new object where a reference is expected"},
        {"unknown tag", ByteBuilder().U32(7).str(), "unknown pointer tag 7"},
        {"truncated field", ByteBuilder().New("TestLeaf").U32(1).Raw("\x02\x00").str(), "unexpected end of data"},
        {"header only", ByteBuilder().str(), "unexpected end of data"},
    };
    for (const Case& c : cases) EXPECT_EQ(ReadFailure(c.bytes), c.detail) << c.what;
}

TEST_F(DamagedInput, EveryTruncationFails) {
    std::unique_ptr<TestNode> tree(MakeSampleTree());
    const std::string bytes = Store(tree.get());
    ASSERT_EQ(ReadFailure(bytes), "no error");
    const int liveWithTree = g_liveTestObjects;
    for (size_t length = 0; length < bytes.size(); ++length) {
        const std::string detail = ReadFailure(bytes.substr(0, length));
        if (length < 12)
            EXPECT_EQ(detail, "not a readable state file") << "cut at " << length;
        else
            EXPECT_NE(detail, "no error") << "cut at " << length;
        ASSERT_EQ(g_liveTestObjects, liveWithTree) << "cut at " << length;
    }
}

TEST_F(DamagedInput, EverySingleBitFlipFailsCleanlyOrGivesAGraph) {
    std::unique_ptr<TestNode> tree(MakeSampleTree());
    const std::string bytes = Store(tree.get());
    const int liveWithTree = g_liveTestObjects;
    int refused = 0;
    int accepted = 0;
    for (size_t i = 0; i < bytes.size(); ++i) {
        for (int bit = 0; bit < 8; ++bit) {
            std::string damaged = bytes;
            damaged[i] = static_cast<char>(damaged[i] ^ (1 << bit));
            iptstream in = iptstream::FromMemory(damaged);
            Persistent* object = nullptr;
            try {
                in >> object;
                // Whatever came back must be a whole graph that can be
                // stored again and released.
                Store(object);
                delete object;
                ++accepted;
            } catch (const PersistenceError&) {
                ++refused;
            } catch (const std::exception& other) {
                ADD_FAILURE() << "byte " << i << " bit " << bit << ": " << other.what();
            }
            ASSERT_EQ(g_liveTestObjects, liveWithTree) << "byte " << i << " bit " << bit;
        }
    }
    // Flips in text are harmless; flips in tags, counts and lengths are not.
    EXPECT_GT(accepted, 0);
    EXPECT_GT(refused, 0);
}

TEST_F(DamagedInput, NestingIsBounded) {
    auto chain = [](int depth) {
        std::unique_ptr<TestNode> top(new TestNode("0"));
        TestNode* node = top.get();
        for (int i = 1; i < depth; ++i) node = node->AddChild(std::to_string(i));
        return Store(top.get());
    };
    EXPECT_EQ(ReadFailure(chain(256)), "no error");
    EXPECT_EQ(ReadFailure(chain(257)), "objects nested deeper than 256 levels");

    // A hostile file nested far deeper than the stack could follow.
    ByteBuilder deep;
    for (int i = 0; i < 100000; ++i) deep.New("TestNode").Str("").Null().U32(0).U32(0).U32(0).Null().U32(1);
    EXPECT_EQ(ReadFailure(deep.str()), "objects nested deeper than 256 levels");
}

TEST_F(DamagedInput, ForeignOrClosedDataCannotBeRead) {
    const std::string objectBytes = ByteBuilder(false).New("TestLeaf").LeafFields(1, 2, 0, "x").str();
    const std::string foreign[] = {
        "",
        "ZORBUSP",
        "<?xml version=\"1.0\"?><state/>",
        ByteBuilder(false).Raw("ZORBUSPX").U32(1).str() + objectBytes,
        ByteBuilder(false).Raw("ZORBUSPT").U32(2).str() + objectBytes,
    };
    for (const std::string& bytes : foreign) {
        iptstream in = iptstream::FromMemory(bytes);
        EXPECT_FALSE(in.good()) << bytes;
        uint32_t value = 0;
        try {
            in >> value;
            ADD_FAILURE() << "read from foreign data: " << bytes;
        } catch (const PersistenceError& error) {
            EXPECT_EQ(error.GetDetail(), "not a readable state file");
        }
        EXPECT_EQ(ReadFailure(bytes), "not a readable state file");
    }

    iptstream in = iptstream::FromMemory(ByteBuilder().str() + objectBytes);
    EXPECT_TRUE(in.good());
    in.close();
    EXPECT_FALSE(in.good());
    Persistent* object = nullptr;
    EXPECT_THROW(in >> object, PersistenceError);
}

}  // namespace
