#include "Support.h"

#include <cstdlib>
#include <fstream>

#include "common/xmldef.h"

int g_factory = 0;
std::vector<std::string> g_events;

// The host's service: a strong definition wins over the library's fallback.
extern "C" int nvxIsFactory() { return g_factory; }

static char* Record(const char* xml) {
    g_events.emplace_back(xml);
    return nullptr;
}

void ComponentTest::SetUp() {
    g_factory = 0;
    g_events.clear();
    component.componentName = "libzorbus.so";
    component.eventCallback = Record;
    pTestComponent = &component;
}

void ComponentTest::TearDown() {
    pTestComponent = nullptr;
    g_factory = 0;
}

std::vector<std::string> ComponentTest::Prompts() const {
    std::vector<std::string> texts;
    for (const std::string& e : g_events) {
        XmlObject event(e);
        if (event.name == xmldef::diagPrompt) texts.push_back(event.value);
    }
    return texts;
}

TempDir::TempDir() {
    char pattern[] = "/tmp/zorbus-usbtests-XXXXXX";
    if (mkdtemp(pattern)) path = pattern;
    EXPECT_FALSE(path.empty());
}

TempDir::~TempDir() {
    if (path.empty()) return;
    const std::string command = "rm -rf '" + path + "'";
    if (std::system(command.c_str()) != 0) ADD_FAILURE() << "cannot remove " << path;
}

void TempDir::Write(const std::string& name, const std::string& bytes) const {
    const std::string full = Path(name);
    const std::string folder = full.substr(0, full.rfind('/'));
    if (std::system(("mkdir -p '" + folder + "'").c_str()) != 0) ADD_FAILURE() << folder;
    std::ofstream(full, std::ios::binary) << bytes;
}

XmlObject ErrorOf(const std::string& text) {
    XmlObject result(text);
    for (const XmlObject& child : result.children)
        if (child.name == xmldef::error) return child;
    return XmlObject();
}
