// Values and object graphs written by optstream and read back by iptstream.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <memory>

#include "ByteBuilder.h"
#include "PersistTestClasses.h"

namespace {

class RoundTrip : public ::testing::Test {
protected:
    void SetUp() override { liveAtStart = g_liveTestObjects; }
    void TearDown() override { EXPECT_EQ(g_liveTestObjects, liveAtStart) << "test objects leaked or freed twice"; }
    int liveAtStart = 0;
};

// Reads one object of class T that must own its place.
template <class T>
std::unique_ptr<T> Load(const std::string& bytes) {
    iptstream in = iptstream::FromMemory(bytes);
    T* object = nullptr;
    in.ReadOwned(object);
    EXPECT_EQ(in.Remaining(), 0u);
    return std::unique_ptr<T>(object);
}

TEST_F(RoundTrip, PrimitivesAndStrings) {
    const std::string withNul("a\0b", 3);
    const std::string longText(1000, 'x');
    optstream out;
    out << INT32_MIN << INT32_MAX << int32_t(-1) << uint32_t(0) << UINT32_MAX << true << false;
    out << std::string() << withNul << longText << "literal" << std::string("\xc3\xa4");
    iptstream in = iptstream::FromMemory(out.GetBuffer());
    ASSERT_TRUE(in.good());
    int32_t a, b, c;
    uint32_t d, e;
    bool t, f;
    std::string empty, nul, big, literal, utf8;
    in >> a >> b >> c >> d >> e >> t >> f >> empty >> nul >> big >> literal >> utf8;
    EXPECT_EQ(a, INT32_MIN);
    EXPECT_EQ(b, INT32_MAX);
    EXPECT_EQ(c, -1);
    EXPECT_EQ(d, 0u);
    EXPECT_EQ(e, UINT32_MAX);
    EXPECT_TRUE(t);
    EXPECT_FALSE(f);
    EXPECT_EQ(empty, "");
    EXPECT_EQ(nul, withNul);
    EXPECT_EQ(big, longText);
    EXPECT_EQ(literal, "literal");  // not taken as a bool
    EXPECT_EQ(utf8, "\xc3\xa4");
    EXPECT_EQ(in.Remaining(), 0u);
    try {
        in >> a;
        FAIL() << "read past the end";
    } catch (const PersistenceError& error) {
        EXPECT_STREQ(error.what(), "Damaged state file");
        EXPECT_EQ(error.GetDetail(), "unexpected end of data");
    }
}

TEST_F(RoundTrip, ByteFormatIsFixed) {
    TestLeaf leaf("hi", -2);
    leaf.code = 0x01020304;
    leaf.flag = true;
    EXPECT_EQ(Store(&leaf), ByteBuilder().New("TestLeaf").LeafFields(-2, 0x01020304, 1, "hi").str());
    // By value: no tag, no class name.
    optstream out;
    out << static_cast<const Persistent&>(leaf);
    EXPECT_EQ(out.GetBuffer(), ByteBuilder().LeafFields(-2, 0x01020304, 1, "hi").str());
    EXPECT_EQ(Store(nullptr), ByteBuilder().Null().str());
}

TEST_F(RoundTrip, GraphComesBackWithItsReferences) {
    std::unique_ptr<TestNode> original(MakeSampleTree());
    const std::string bytes = Store(original.get());
    std::unique_ptr<TestNode> root = Load<TestNode>(bytes);
    ASSERT_TRUE(root);

    EXPECT_EQ(root->name, "root");
    EXPECT_EQ(root->parent, nullptr);
    ASSERT_EQ(root->leaves.size(), 3u);
    ASSERT_NE(root->leaves[0], nullptr);
    EXPECT_EQ(root->leaves[0]->text, "one");
    EXPECT_EQ(root->leaves[0]->number, -7);
    EXPECT_EQ(root->leaves[0]->code, 0xdeadbeefu);
    EXPECT_TRUE(root->leaves[0]->flag);
    EXPECT_EQ(root->leaves[1], nullptr);
    EXPECT_EQ(root->leaves[2]->text, "two");
    ASSERT_EQ(root->values.size(), 2u);
    EXPECT_EQ(root->values[1].text, "v2");
    EXPECT_EQ(root->values[1].number, 12);
    ASSERT_EQ(root->tagged.size(), 2u);
    EXPECT_EQ((*root->tagged.begin())->text, "a");
    EXPECT_EQ(root->favourite, root->leaves[0]);

    ASSERT_EQ(root->children.size(), 2u);
    TestNode* child = root->children[0];
    EXPECT_EQ(child->name, "child");
    EXPECT_EQ(child->parent, root.get());  // written while the root was open
    EXPECT_EQ(child->favourite, root->leaves[0]);
    ASSERT_EQ(child->children.size(), 1u);
    EXPECT_EQ(child->children[0]->parent, child);
    EXPECT_EQ(child->children[0]->values[0].text, "g");
    EXPECT_EQ(root->children[1]->name, "second child");
    EXPECT_EQ(root->children[1]->parent, root.get());

    EXPECT_EQ(Store(root.get()), bytes);
}

TEST_F(RoundTrip, ObjectReachedTwiceIsStoredOnce) {
    TestShare share;
    share.first = share.second = new TestLeaf("shared");
    const std::string bytes = Store(&share);
    EXPECT_EQ(bytes, ByteBuilder().New("TestShare").New("TestLeaf").LeafFields(0, 0, 0, "shared").Ref(1).str());
    std::unique_ptr<TestShare> back = Load<TestShare>(bytes);
    ASSERT_NE(back->first, nullptr);
    EXPECT_EQ(back->first, back->second);
    EXPECT_EQ(back->first->text, "shared");

    TestShare apart;
    apart.first = new TestLeaf("x");
    apart.second = new TestLeaf("x");
    std::unique_ptr<TestShare> two = Load<TestShare>(Store(&apart));
    EXPECT_NE(two->first, two->second);
}

TEST_F(RoundTrip, NullsAndReferencesOutsideTheGraph) {
    {
        iptstream in = iptstream::FromMemory(Store(nullptr));
        TestLeaf sentinel;
        Persistent* p = &sentinel;  // must be overwritten
        in >> p;
        EXPECT_EQ(p, nullptr);
    }

    // A parent that is not in the stored graph reads back as null.
    TestNode outside("outside");
    TestNode node("node");
    node.parent = &outside;
    TestLeaf elsewhere("elsewhere");
    node.favourite = &elsewhere;
    std::unique_ptr<TestNode> back = Load<TestNode>(Store(&node));
    EXPECT_EQ(back->parent, nullptr);
    EXPECT_EQ(back->favourite, nullptr);
    EXPECT_EQ(back->name, "node");
}

TEST_F(RoundTrip, FillsAnObjectHeldByValue) {
    TestLeaf source("by value", 5);
    optstream out;
    out << static_cast<const Persistent&>(source) << int32_t(99);
    iptstream in = iptstream::FromMemory(out.GetBuffer());
    TestLeaf target;
    int32_t after = 0;
    in >> static_cast<Persistent&>(target) >> after;
    EXPECT_EQ(target.text, "by value");
    EXPECT_EQ(target.number, 5);
    EXPECT_EQ(after, 99);
}

TEST_F(RoundTrip, BoolByteOtherThanOneReadsTrue) {
    std::unique_ptr<TestLeaf> leaf = Load<TestLeaf>(ByteBuilder().New("TestLeaf").LeafFields(3, 4, 2, "t").str());
    EXPECT_TRUE(leaf->flag);
    EXPECT_EQ(leaf->text, "t");
}

// Two leaves that sort equal: the second is dropped and released, and a later
// reference to it is refused rather than left dangling.
TEST_F(RoundTrip, DuplicateInSetIsDroppedAndCannotBeReferenced) {
    auto nodeWithDuplicates = [](ByteBuilder& b) -> ByteBuilder& {
        return b.New("TestNode").Str("n").Null().U32(0).U32(0)  // name, parent, leaves, values
            .U32(2)
            .New("TestLeaf").LeafFields(1, 0, 0, "x")   // object 1
            .New("TestLeaf").LeafFields(2, 0, 0, "x");  // object 2, dropped
    };
    ByteBuilder good;
    nodeWithDuplicates(good).Ref(1).U32(0);
    std::unique_ptr<TestNode> node = Load<TestNode>(good.str());
    ASSERT_EQ(node->tagged.size(), 1u);
    EXPECT_EQ((*node->tagged.begin())->number, 1);
    EXPECT_EQ(node->favourite, *node->tagged.begin());

    ByteBuilder bad;
    nodeWithDuplicates(bad).Ref(2).U32(0);
    iptstream in = iptstream::FromMemory(bad.str());
    Persistent* p = nullptr;
    try {
        in >> p;
        FAIL() << "reference to a dropped object accepted";
    } catch (const PersistenceError& error) {
        EXPECT_EQ(error.GetDetail(), "reference to released object 2");
    }
    EXPECT_EQ(p, nullptr);
}

TEST_F(RoundTrip, WrongClassIsRefused) {
    TestLeaf leaf("leaf");
    {
        iptstream in = iptstream::FromMemory(Store(&leaf));
        TestNode* node = nullptr;
        try {
            in.ReadOwned(node);
            FAIL() << "a TestLeaf was taken for a TestNode";
        } catch (const PersistenceError& error) {
            EXPECT_EQ(error.GetDetail(), "object of the wrong class");
        }
        EXPECT_EQ(node, nullptr);
    }
    // A shared pointer whose fresh object is of the wrong class: released.
    {
        const std::string bytes = ByteBuilder().New("TestShare").New("TestNode").Str("n").Null()
                                      .U32(0).U32(0).U32(0).Null().U32(0).str();
        iptstream in = iptstream::FromMemory(bytes);
        Persistent* p = nullptr;
        try {
            in >> p;
            FAIL() << "a TestNode was taken for a shared TestLeaf";
        } catch (const PersistenceError& error) {
            EXPECT_EQ(error.GetDetail(), "shared object of the wrong class");
        }
    }
    // A reference to an object of the wrong class (the node itself as its
    // favourite leaf).
    {
        const std::string bytes =
            ByteBuilder().New("TestNode").Str("n").Null().U32(0).U32(0).U32(0).Ref(0).U32(0).str();
        iptstream in = iptstream::FromMemory(bytes);
        Persistent* p = nullptr;
        try {
            in >> p;
            FAIL();
        } catch (const PersistenceError& error) {
            EXPECT_EQ(error.GetDetail(), "reference to an object of the wrong class");
        }
    }
}

TEST_F(RoundTrip, CopyFromPointerCopiesOnlyItsOwnClass) {
    TestLeaf leaf("mine", 1);
    TestLeaf other("theirs", 2);
    TestNode node("node");
    leaf.CopyFromPointer(nullptr);
    leaf.CopyFromPointer(&leaf);
    leaf.CopyFromPointer(&node);
    EXPECT_EQ(leaf.text, "mine");
    EXPECT_EQ(leaf.number, 1);
    leaf.CopyFromPointer(&other);
    EXPECT_EQ(leaf.text, "theirs");
    EXPECT_EQ(leaf.number, 2);
}

TEST_F(RoundTrip, RegistryKnowsClassesByName) {
    EXPECT_TRUE(PersistentClassRegistry::IsRegistered("TestNode"));
    EXPECT_FALSE(PersistentClassRegistry::IsRegistered("NoSuchClass"));
    EXPECT_EQ(PersistentClassRegistry::Create("NoSuchClass"), nullptr);
    std::unique_ptr<Persistent> made(PersistentClassRegistry::Create("TestLeaf"));
    ASSERT_NE(made, nullptr);
    EXPECT_STREQ(made->GetRealClassName(), "TestLeaf");
    const std::vector<std::string> names = PersistentClassRegistry::RegisteredNames();
    EXPECT_NE(std::find(names.begin(), names.end(), "TestShare"), names.end());

    // A second registration under a taken name does not replace the first.
    PersistentClassRegistry::RegisterPersistentClass({"TestLeaf", &ClassRegistrar<TestNode>::CreateObject, 0});
    made.reset(PersistentClassRegistry::Create("TestLeaf"));
    EXPECT_STREQ(made->GetRealClassName(), "TestLeaf");
}

// The size of a large component: thousands of devices, each with a few
// owned objects and a back reference. Checks the shape; the time is
// measured in bench/.
TEST_F(RoundTrip, LargeGraph) {
    const int kDevices = 4064;
    std::unique_ptr<TestNode> root(new TestNode("component"));
    root->children.reserve(kDevices);
    for (int i = 0; i < kDevices; ++i) {
        TestNode* device = root->AddChild("usbDevice" + std::to_string(i));
        for (int t = 0; t < 4; ++t) device->leaves.push_back(new TestLeaf("test" + std::to_string(t), t));
        device->values.push_back(TestLeaf("interface"));
        device->favourite = device->leaves[0];
    }
    const std::string bytes = Store(root.get());
    std::unique_ptr<TestNode> back = Load<TestNode>(bytes);
    ASSERT_EQ(back->children.size(), static_cast<size_t>(kDevices));
    const TestNode* last = back->children.back();
    EXPECT_EQ(last->name, "usbDevice4063");
    EXPECT_EQ(last->parent, back.get());
    EXPECT_EQ(last->favourite, last->leaves[0]);
    EXPECT_EQ(last->leaves[3]->number, 3);
}

}  // namespace
