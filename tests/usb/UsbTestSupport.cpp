#include "UsbTestSupport.h"

#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "common/StringUtil.h"
#include "common/xmldef.h"
#include "tc/usb/linux/USBtree.h"

int g_factoryMode = 0;
std::vector<std::string> g_events;

// The host's service: a strong definition wins over the library's fallback.
extern "C" int nvxIsFactory() { return g_factoryMode; }

static char* RecordEvent(const char* xml) {
    g_events.emplace_back(xml);
    return nullptr;
}

std::string Fixture(const std::string& name) {
    std::ifstream file(std::string(ZORBUS_SOURCE_DIR) + "/tests/usb/data/" + name, std::ios::binary);
    EXPECT_TRUE(file.good()) << name;
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

void UsbComponentTest::SetUp() {
    g_factoryMode = 0;
    g_events.clear();
    ResetUsbDiscoveryStateForTests();
    component.componentName = "libzorbus.so";
    component.eventCallback = RecordEvent;
    pTestComponent = &component;
}

void UsbComponentTest::TearDown() {
    pTestComponent = nullptr;
    g_factoryMode = 0;
}

std::vector<USBDevice*> UsbComponentTest::UsbDevices() {
    std::vector<USBDevice*> result;
    for (Device* d : component.devices) {
        USBDevice* usb = dynamic_cast<USBDevice*>(d);
        EXPECT_NE(usb, nullptr);
        if (usb) result.push_back(usb);
    }
    return result;
}

std::vector<XmlObject> UsbComponentTest::IdentifyAll() {
    std::vector<XmlObject> elements;
    for (Device* d : component.devices) elements.emplace_back(d->ID(false));
    return elements;
}

std::vector<std::pair<std::string, std::string>> Properties(const XmlObject& device) {
    std::vector<std::pair<std::string, std::string>> result;
    for (const XmlObject& child : device.children)
        if (child.name == xmldef::property)
            result.emplace_back(child.GetAttributeValue(xmldef::name), child.GetAttributeValue(xmldef::value));
    return result;
}

std::string PropertyCaption(const XmlObject& device, const std::string& name) {
    for (const XmlObject& child : device.children)
        if (child.name == xmldef::property && child.GetAttributeValue(xmldef::name) == name)
            return child.GetAttributeValue(xmldef::caption);
    return std::string();
}

std::vector<std::string> TestNames(const XmlObject& device) {
    std::vector<std::string> names;
    for (const XmlObject& child : device.children)
        if (child.name == xmldef::test) names.push_back(child.GetAttributeValue(xmldef::name));
    return names;
}

ScopedWorkDir::ScopedWorkDir() {
    char cwd[4096];
    if (getcwd(cwd, sizeof cwd)) previous = cwd;
    char pattern[] = "/tmp/zorbus-usb-XXXXXX";
    if (mkdtemp(pattern)) path = pattern;
    EXPECT_FALSE(path.empty());
    EXPECT_EQ(chdir(path.c_str()), 0);
}

ScopedWorkDir::~ScopedWorkDir() {
    if (!previous.empty() && chdir(previous.c_str()) != 0) ADD_FAILURE() << "cannot return to " << previous;
    if (!path.empty()) {
        const std::string command = "rm -rf '" + path + "'";
        if (std::system(command.c_str()) != 0) ADD_FAILURE() << "cannot remove " << path;
    }
}
