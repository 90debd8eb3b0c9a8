// State file streams: graphs written and read back; damaged, hostile and foreign
// input fails with PersistenceError or gives a whole graph (what was made on the
// way is released: the sanitizer run's leak check holds every case to that).
#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>

#include "common/Persistent.h"

namespace {

struct TestBase : Persistent {
    void CopyFromPointer(const Persistent*) override {}
    Persistent* CreateCopy() const override { return nullptr; }
};

struct TestLeaf : TestBase {
    int32_t number = 0;
    uint32_t code = 0;
    bool flag = false;
    std::string text;
    explicit TestLeaf(const std::string& text = "", int32_t number = 0) : number(number), text(text) {}
    void ReadAndWrite(ptstream& s, direction dir, unsigned int) override {
        if (dir == ptRead) return void(static_cast<iptstream&>(s) >> number >> code >> flag >> text);
        static_cast<optstream&>(s) << number << code << flag << text;
    }
    const char* GetRealClassName() const override { return "TestLeaf"; }
};

struct LeafByText {
    bool operator()(const TestLeaf* a, const TestLeaf* b) const { return a->text < b->text; }
};

struct TestNode : TestBase {
    std::string name;
    TestNode* parent = nullptr;              // a back reference
    std::vector<TestLeaf*> leaves;           // owned; may hold null
    std::vector<TestLeaf> values;            // by value
    std::set<TestLeaf*, LeafByText> tagged;  // owned
    TestLeaf* favourite = nullptr;           // not owned; one read before
    std::vector<TestNode*> children;         // owned

    explicit TestNode(const std::string& name = "") : name(name) {}
    ~TestNode() override {
        for (TestLeaf* leaf : leaves) delete leaf;
        for (TestLeaf* leaf : tagged) delete leaf;
        for (TestNode* child : children) delete child;
    }
    TestNode* AddChild(const std::string& childName) {
        children.push_back(new TestNode(childName));
        children.back()->parent = this;
        return children.back();
    }
    void ReadAndWrite(ptstream& s, direction dir, unsigned int) override {
        if (dir == ptWrite) {
            optstream& out = static_cast<optstream&>(s);
            out << name;
            out.WriteReference(parent);
            out << leaves << values << tagged;
            out.WriteReference(favourite);
            out << children;
            return;
        }
        iptstream& in = static_cast<iptstream&>(s);
        in >> name;
        in.ReadReference(parent);
        in >> leaves >> values >> tagged;
        in.ReadReference(favourite);
        in >> children;
    }
    const char* GetRealClassName() const override { return "TestNode"; }
};

// Two pointers that may name one object; owns both.
struct TestShare : TestBase {
    TestLeaf* first = nullptr;
    TestLeaf* second = nullptr;
    ~TestShare() override { delete (second == first ? nullptr : second), delete first; }
    void ReadAndWrite(ptstream& s, direction dir, unsigned int) override {
        if (dir == ptWrite) return void(static_cast<optstream&>(s) << first << second);
        static_cast<iptstream&>(s).ReadShared(first);
        static_cast<iptstream&>(s).ReadShared(second);
    }
    const char* GetRealClassName() const override { return "TestShare"; }
};

ClassRegistrar<TestLeaf> TestLeafClassRegistrar;
ClassRegistrar<TestNode> TestNodeClassRegistrar;
ClassRegistrar<TestShare> TestShareClassRegistrar;

// Every form at once: nested nodes with back references, null and owned
// leaves, leaves by value, a set and a reference to a leaf of another node.
TestNode* MakeSampleTree() {
    TestNode* root = new TestNode("root");
    TestLeaf* one = new TestLeaf(std::string("o\0ne", 4), INT32_MIN);
    one->code = UINT32_MAX;
    one->flag = true;
    root->leaves = {one, nullptr, new TestLeaf("two", 2)};
    root->values = {TestLeaf("v1", 11), TestLeaf("v2", 12)};
    root->tagged = {new TestLeaf("b"), new TestLeaf("a")};
    root->favourite = one;
    TestNode* child = root->AddChild("child");
    child->leaves = {new TestLeaf("c")};
    child->favourite = one;
    child->AddChild("grandchild")->values = {TestLeaf("g")};
    root->AddChild("second child");
    return root;
}

std::string Store(const Persistent* object) { return (optstream() << object).GetBuffer(); }

// Stored bytes built by hand, independent of optstream.
std::string U32(uint32_t v) { return {char(v), char(v >> 8), char(v >> 16), char(v >> 24)}; }
std::string Str(const std::string& text) { return U32(static_cast<uint32_t>(text.size())) + text; }
std::string New(const std::string& className) { return U32(1) + Str(className); }
std::string Ref(uint32_t index) { return U32(2) + U32(index); }
std::string Leaf(int32_t number, const std::string& text, char flag = 0) {
    return U32(static_cast<uint32_t>(number)) + U32(0) + std::string(1, flag) + Str(text);
}
const std::string kNull = U32(0);
const std::string kHeader = "ZORBUSPT" + U32(1);
// A TestNode named "n": its name, a null parent and no leaves or values.
const std::string kNodeStart = kHeader + New("TestNode") + Str("n") + kNull + U32(0) + U32(0);

// Reads one object of class T that must own its place and use all bytes.
template <class T>
std::unique_ptr<T> Load(iptstream in) {
    T* object = nullptr;
    in.ReadOwned(object);
    EXPECT_EQ(in.Remaining(), 0u);
    return std::unique_ptr<T>(object);
}
template <class T>
std::unique_ptr<T> Load(const std::string& bytes) {
    return Load<T>(iptstream::FromMemory(bytes));
}

// The detail of the PersistenceError that `read` throws, or "no error".
template <class F>
std::string Failure(F read) {
    try {
        read();
    } catch (const PersistenceError& error) {
        EXPECT_STREQ(error.what(), "Damaged state file");
        return error.GetDetail();
    }
    return "no error";
}

// Reads one object of any class; what it gives must store again.
std::string ReadFailure(const std::string& bytes) {
    return Failure([&] {
        Persistent* object = nullptr;
        iptstream::FromMemory(bytes) >> object;
        Store(object);
        delete object;
    });
}

TEST(Persist, GraphComesBackWithItsReferencesInAFixedByteFormat) {
    TestLeaf leaf(std::string("a\0b", 3), -7);
    leaf.flag = true;
    optstream out;  // by value: no tag, no class name; a literal must not pick the bool form
    out << static_cast<const Persistent&>(leaf) << "literal" << false;
    EXPECT_EQ(out.GetBuffer(), kHeader + Leaf(-7, leaf.text, 1) + Str("literal") + std::string(1, 0));
    EXPECT_TRUE(Load<TestLeaf>(kHeader + New("TestLeaf") + Leaf(3, "t", 2))->flag);  // any byte but 0 is true

    std::unique_ptr<TestNode> original(MakeSampleTree());
    TestNode outside;
    TestLeaf elsewhere;
    original->parent = &outside, original->children[1]->favourite = &elsewhere;  // out of the graph: read as null
    const std::string bytes = Store(original.get());
    std::unique_ptr<TestNode> root = Load<TestNode>(bytes);
    ASSERT_TRUE(root);
    EXPECT_EQ(Store(root.get()), bytes);  // every field, null and order
    // References must point into the new graph, not merely store alike.
    const TestNode* child = root->children.at(0);
    EXPECT_EQ(root->parent, nullptr);
    EXPECT_EQ(root->children.at(1)->favourite, nullptr);
    EXPECT_EQ(root->favourite, root->leaves.at(0));
    EXPECT_EQ(child->favourite, root->leaves[0]);
    EXPECT_EQ(child->parent, root.get());  // written while the root was open
    EXPECT_EQ(child->children.at(0)->parent, child);
}

TEST(Persist, ObjectReachedTwiceIsStoredOnceAndADroppedDuplicateCannotBeReferenced) {
    TestShare share, apart;
    share.first = share.second = new TestLeaf("shared");
    const std::string bytes = Store(&share);
    EXPECT_EQ(bytes, kHeader + New("TestShare") + New("TestLeaf") + Leaf(0, "shared") + Ref(1));
    std::unique_ptr<TestShare> back = Load<TestShare>(bytes);
    EXPECT_EQ(back->first, back->second);
    apart.first = new TestLeaf("x");
    apart.second = new TestLeaf("x");
    back = Load<TestShare>(Store(&apart));
    EXPECT_NE(back->first, back->second);
    // Thousands of objects referred to again: the writer's address table grows many times over.
    TestNode top;
    for (int i = 0; i < 4064; ++i) {
        TestNode* device = top.AddChild("");
        device->leaves = {device->favourite = new TestLeaf("t", i)};
    }
    std::unique_ptr<TestNode> many = Load<TestNode>(Store(&top));
    EXPECT_EQ(Store(many.get()), Store(&top));
    EXPECT_EQ(many->children.at(4063)->favourite, many->children[4063]->leaves.at(0));

    // Two leaves in a set that sort equal: the second is dropped and released, and a
    // later reference to it is refused rather than left dangling.
    auto set = [](uint32_t favourite) {
        return kNodeStart + U32(2) + New("TestLeaf") + Leaf(1, "x") + New("TestLeaf") + Leaf(2, "x") + Ref(favourite) +
               U32(0);
    };
    std::unique_ptr<TestNode> node = Load<TestNode>(set(1));
    ASSERT_EQ(node->tagged.size(), 1u);
    EXPECT_EQ((*node->tagged.begin())->number, 1);
    EXPECT_EQ(node->favourite, *node->tagged.begin());
    EXPECT_EQ(ReadFailure(set(2)), "reference to released object 2");
}

TEST(Persist, StateFileIsWrittenOnCloseOrDestructionAndForeignFilesAreRefused) {
    const std::string path = ::testing::TempDir() + "zorbus-state.bin";
    auto contents = [&] {
        std::ifstream f(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(f), {});
    };
    std::unique_ptr<TestNode> tree(MakeSampleTree());
    optstream(path) << static_cast<const Persistent*>(tree.get());
    EXPECT_EQ(Store(Load<TestNode>(iptstream(path)).get()), Store(tree.get()));
    TestLeaf leaf("small");
    optstream out(path);
    out << static_cast<const Persistent*>(&leaf);
    EXPECT_EQ(contents(), Store(tree.get())) << "written before close";
    EXPECT_TRUE(out.close() && out.close());
    EXPECT_EQ(contents(), out.GetBuffer());

    std::ofstream(path, std::ios::binary) << "\x7f"
                                             "ELF another program's data";
    for (const std::string& unreadable : {path, ::testing::TempDir(), path + ".missing"})
        EXPECT_EQ(Failure([&] { Load<TestNode>(iptstream(unreadable)); }), "not a readable state file");
    std::remove(path.c_str());
    optstream unwritable(path + ".missing/state.bin");
    EXPECT_FALSE(unwritable.close() || unwritable.good());
}

TEST(Persist, EachFaultIsNamed) {
    const std::string leafStart = kHeader + New("TestLeaf") + U32(1) + U32(2) + std::string(1, 0);
    const std::string emptyNode = Str("") + kNull + U32(0) + U32(0) + U32(0) + kNull + U32(0);
    const std::pair<std::string, std::string> cases[] = {
        {kHeader + New("NoSuchClass") + U32(0), "unknown class NoSuchClass"},
        {kHeader + U32(7), "unknown pointer tag 7"},
        {kHeader + New("TestLeaf") + U32(1) + "\x02", "unexpected end of data"},
        {kNodeStart + U32(0xffffffff), "count 4294967295 exceeds the data"},
        // 0x40000001 * 4 wraps to 4 in 32 bits, which the bytes left would hold.
        {kNodeStart + U32(0x40000001) + U32(0), "count 1073741825 exceeds the data"},
        {leafStart + U32(0x7fffffff) + "abc", "string length 2147483647 exceeds the data"},
        {kHeader + Ref(5), "reference to object 5 not read yet"},
        {kHeader + New("TestNode") + Str("n") + kNull + U32(1) + Ref(0), "reference where an owned object is expected"},
        {kHeader + New("TestNode") + Str("n") + New("TestNode"), "new object where a reference is expected"},
        {kHeader + New("TestShare") + New("TestNode") + emptyNode, "shared object of the wrong class"},
        // A share of itself: its new holder could free it while it is read.
        {kHeader + New("TestShare") + Ref(0), "shared object that is still being read"},
        {kNodeStart + U32(0) + Ref(0) + U32(0), "reference to an object of the wrong class"},
        {"<?xml version=\"1.0\"?><state/>", "not a readable state file"},
        {"ZORBUSPX" + U32(1) + kNull, "not a readable state file"},
        {"ZORBUSPT" + U32(2) + kNull, "not a readable state file"},
    };
    for (const auto& c : cases) EXPECT_EQ(ReadFailure(c.first), c.second) << testing::PrintToString(c.first);

    TestLeaf leaf;
    EXPECT_EQ(Failure([&] { Load<TestNode>(Store(&leaf)); }), "object of the wrong class");
}

TEST(Persist, EveryTruncationAndBitFlipFailsCleanlyOrGivesAGraphAndNestingIsBounded) {
    std::unique_ptr<TestNode> tree(MakeSampleTree());
    const std::string bytes = Store(tree.get());
    ASSERT_EQ(ReadFailure(bytes), "no error");
    for (size_t length = 0; length < bytes.size(); ++length) {
        const std::string detail = ReadFailure(bytes.substr(0, length));
        ASSERT_NE(detail, "no error") << "cut at " << length;
        ASSERT_EQ(detail == "not a readable state file", length < 12) << "cut at " << length;
    }
    int accepted = 0;
    for (size_t i = 0; i < bytes.size() * 8; ++i) {
        std::string damaged = bytes;
        damaged[i / 8] = static_cast<char>(damaged[i / 8] ^ (1 << (i % 8)));
        accepted += ReadFailure(damaged) == "no error";
    }
    // Flips in text are harmless; flips in tags, counts and lengths are not.
    EXPECT_GT(accepted, 0);
    EXPECT_LT(accepted, static_cast<int>(bytes.size() * 8));

    auto chain = [](int depth) {
        TestNode top;
        for (TestNode* node = &top; --depth > 0;) node = node->AddChild("");
        return Store(&top);
    };
    EXPECT_EQ(ReadFailure(chain(256)), "no error");
    EXPECT_EQ(ReadFailure(chain(257)), "objects nested deeper than 256 levels");
}

}  // namespace
