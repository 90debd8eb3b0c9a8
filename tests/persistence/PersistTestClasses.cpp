#include "PersistTestClasses.h"

int g_liveTestObjects = 0;

namespace {
ClassRegistrar<TestLeaf> TestLeafClassRegistrar;
ClassRegistrar<TestNode> TestNodeClassRegistrar;
ClassRegistrar<TestShare> TestShareClassRegistrar;
}  // namespace

void TestLeaf::ReadAndWrite(ptstream& stream, direction dir, unsigned int) {
    if (dir == ptRead) {
        static_cast<iptstream&>(stream) >> number >> code >> flag >> text;
    } else {
        static_cast<optstream&>(stream) << number << code << flag << text;
    }
}

TestNode::~TestNode() {
    for (TestLeaf* leaf : leaves) delete leaf;
    for (TestLeaf* leaf : tagged) delete leaf;
    for (TestNode* child : children) delete child;
}

TestNode* TestNode::AddChild(const std::string& childName) {
    TestNode* child = new TestNode(childName);
    child->parent = this;
    children.push_back(child);
    return child;
}

void TestNode::ReadAndWrite(ptstream& stream, direction dir, unsigned int) {
    if (dir == ptRead) {
        iptstream& in = static_cast<iptstream&>(stream);
        in >> name;
        in.ReadReference(parent);
        in >> leaves >> values >> tagged;
        in.ReadReference(favourite);
        in >> children;
    } else {
        optstream& out = static_cast<optstream&>(stream);
        out << name;
        out.WriteReference(parent);
        out << leaves << values << tagged;
        out.WriteReference(favourite);
        out << children;
    }
}

TestShare::~TestShare() {
    if (second != first) delete second;
    delete first;
}

void TestShare::ReadAndWrite(ptstream& stream, direction dir, unsigned int) {
    if (dir == ptRead) {
        iptstream& in = static_cast<iptstream&>(stream);
        in.ReadShared(first);
        in.ReadShared(second);
    } else {
        static_cast<optstream&>(stream) << first << second;
    }
}

TestNode* MakeSampleTree() {
    TestNode* root = new TestNode("root");
    TestLeaf* one = new TestLeaf("one", -7);
    one->code = 0xdeadbeef;
    one->flag = true;
    root->leaves = {one, nullptr, new TestLeaf("two", 2)};
    root->values = {TestLeaf("v1", 11), TestLeaf("v2", 12)};
    root->tagged = {new TestLeaf("b"), new TestLeaf("a")};
    root->favourite = one;
    TestNode* child = root->AddChild("child");
    child->leaves = {new TestLeaf("c")};
    child->favourite = one;  // a leaf of another object
    TestNode* grandchild = child->AddChild("grandchild");
    grandchild->values = {TestLeaf("g")};
    root->AddChild("second child");
    return root;
}

std::string Store(const Persistent* object) {
    optstream out;
    out << object;
    return out.GetBuffer();
}
