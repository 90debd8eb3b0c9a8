#include "LsusbSupport.h"

#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "common/xmldef.h"
#include "tc/usb/linux/Discovery.h"
#include "tc/usb/linux/newUSBDevice.h"
#include "usb/LiteralReader.h"

int g_factoryMode = 0;

// The host's service: a strong definition wins over the library's fallback.
extern "C" int nvxIsFactory() { return g_factoryMode; }

namespace {
std::vector<std::string>* g_recorded = nullptr;
char* Record(const char* xml) {
    if (g_recorded) g_recorded->emplace_back(xml);
    return nullptr;
}
}  // namespace

std::string LsusbFixture(const std::string& name) {
    const std::string path = std::string(ZORBUS_SOURCE_DIR) + "/tests/fixtures/" +
                             (name.find('/') == std::string::npos ? "lsusb_texts/" + name : name);
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file.good()) << path;
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

std::vector<std::string> DeviceTexts(const std::string& raw) {
    ScopedWorkDir work;
    LiteralReader reader(raw);
    return getVecDeviceInfo(reader);
}

std::string DeviceText(const std::string& raw) {
    const std::vector<std::string> texts = DeviceTexts(raw);
    EXPECT_EQ(texts.size(), 1u);
    return texts.empty() ? std::string() : texts[0];
}

void ResetLsusbState() {
    newUSBDevice::index = 0;
    newUSBDevice::bDeviceDescriptor = false;
    newUSBDevice::bConfigurationDescriptor = false;
    newUSBDevice::bInterfaceDescriptor = false;
    newUSBDevice::bEndpointDescriptor = false;
    newUSBDevice::bHubDescriptor = false;
    newUSBDevice::bHidDeviceDescriptor = false;
}

ScopedWorkDir::ScopedWorkDir() {
    char cwd[4096];
    if (getcwd(cwd, sizeof cwd)) previous = cwd;
    char pattern[] = "/tmp/zorbus-lsusb-XXXXXX";
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

void LsusbComponentTest::SetUp() {
    g_factoryMode = 0;
    ResetLsusbState();
    g_recorded = &events;
    component.componentName = "libzorbus.so";
    component.eventCallback = Record;
    pTestComponent = &component;
}

void LsusbComponentTest::TearDown() {
    pTestComponent = nullptr;
    g_recorded = nullptr;
    g_factoryMode = 0;
}

PropertyList Properties(const XmlObject& device) {
    PropertyList result;
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
