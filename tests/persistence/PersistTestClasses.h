// Small stored classes of the persistence tests: a leaf of primitives, a node
// with every kind of pointer and container, and a pair of shared pointers.
// Every instance is counted, so a test can tell that a failed read released
// all it made.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "common/Persistent.h"

// Instances of the test classes alive right now.
extern int g_liveTestObjects;

class Counted {
public:
    Counted() { ++g_liveTestObjects; }
    Counted(const Counted&) { ++g_liveTestObjects; }
    Counted& operator=(const Counted&) = default;
    ~Counted() { --g_liveTestObjects; }
};

class TestLeaf : public Persistent, private Counted {
public:
    int32_t number = 0;
    uint32_t code = 0;
    bool flag = false;
    std::string text;

    TestLeaf() = default;
    explicit TestLeaf(const std::string& text, int32_t number = 0) : number(number), text(text) {}

    void ReadAndWrite(ptstream& stream, direction dir, unsigned int version) override;
    void CopyFromPointer(const Persistent* other) override { PersistentCopyFrom(this, other); }
    const char* GetRealClassName() const override { return "TestLeaf"; }
    Persistent* CreateCopy() const override { return new TestLeaf(*this); }
};

struct LeafByText {
    bool operator()(const TestLeaf* a, const TestLeaf* b) const {
        if (!a || !b) return a < b;
        return a->text < b->text;
    }
};

// Stored in this order: name, parent, leaves, values, tagged, favourite,
// children.
class TestNode : public Persistent, private Counted {
public:
    std::string name;
    TestNode* parent = nullptr;           // not owned; a back reference
    std::vector<TestLeaf*> leaves;        // owned; may hold null
    std::vector<TestLeaf> values;         // by value
    std::set<TestLeaf*, LeafByText> tagged;  // owned
    TestLeaf* favourite = nullptr;        // not owned; one read before
    std::vector<TestNode*> children;      // owned

    TestNode() = default;
    explicit TestNode(const std::string& name) : name(name) {}
    TestNode(const TestNode&) = delete;
    TestNode& operator=(const TestNode&) = delete;
    ~TestNode() override;

    TestNode* AddChild(const std::string& childName);

    void ReadAndWrite(ptstream& stream, direction dir, unsigned int version) override;
    void CopyFromPointer(const Persistent*) override {}
    const char* GetRealClassName() const override { return "TestNode"; }
    Persistent* CreateCopy() const override { return nullptr; }
};

// Two pointers that may name one object. Owns `first`, and `second` when it
// is another object.
class TestShare : public Persistent, private Counted {
public:
    TestLeaf* first = nullptr;
    TestLeaf* second = nullptr;

    TestShare() = default;
    TestShare(const TestShare&) = delete;
    TestShare& operator=(const TestShare&) = delete;
    ~TestShare() override;

    void ReadAndWrite(ptstream& stream, direction dir, unsigned int version) override;
    void CopyFromPointer(const Persistent*) override {}
    const char* GetRealClassName() const override { return "TestShare"; }
    Persistent* CreateCopy() const override { return nullptr; }
};

// A graph that uses every form: nested nodes with back references, null and
// owned leaves, leaves by value, a set and a reference to an earlier leaf.
TestNode* MakeSampleTree();

// The stored bytes of `object` (header included), from a memory optstream.
std::string Store(const Persistent* object);
