// Shared by the USB test programs: mode switch, scratch folder with stub tools, recording component.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>

#include "common/TestHooks.h"
#include "common/TvkError.h"
#include "common/XmlObject.h"
#include "common/xmldef.h"
#include "tc/frame/USBTestComponent.h"
#include "tc/usb/linux/Discovery.h"
#include "tc/usb/linux/devices/USBDevice.h"
#include "tc/usb/linux/devices/newUSBDevice.h"
#include "tc/usb/linux/readers/LiteralReader.h"
#include "tc/usb/linux/readers/USBInfoReader.h"
#include "tc/usb/linux/readers/USBtree.h"
#include "tc/usb/linux/usbxml.h"

// What nvxIsFactory answers; each program defines that function once.
inline int g_factoryMode = 0;
inline std::vector<std::string> g_events;

inline std::string ReadText(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}
inline std::string Fixture(const std::string& name) {
    EXPECT_TRUE(std::filesystem::exists(ZORBUS_SOURCE_DIR "/tests/" + name)) << name;
    return ReadText(ZORBUS_SOURCE_DIR "/tests/" + name);
}

// A fresh folder, optionally the working directory, whose stub tools come first on PATH.
class TempDir {
public:
    explicit TempDir(bool enter = false) : oldPath(getenv("PATH") ? getenv("PATH") : "/usr/bin:/bin") {
        char pattern[] = "/tmp/zorbus-usb-XXXXXX";
        if (mkdtemp(pattern)) path = pattern;
        EXPECT_FALSE(path.empty());
        if (enter) {
            oldDir = std::filesystem::current_path();
            std::filesystem::current_path(path);
        }
    }
    ~TempDir() {
        setenv("PATH", oldPath.c_str(), 1);
        if (!oldDir.empty()) std::filesystem::current_path(oldDir);
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    std::string Path(const std::string& name = "") const { return name.empty() ? path : path + "/" + name; }
    std::string Write(const std::string& name, const std::string& bytes) const {
        std::filesystem::create_directories(std::filesystem::path(Path(name)).parent_path());
        std::ofstream(Path(name), std::ios::binary) << bytes;
        return Path(name);
    }
    std::string Read(const std::string& name) const { return ReadText(Path(name)); }
    bool Exists(const std::string& name) const { return std::filesystem::exists(Path(name)); }
    // A shell script `name` that logs its arguments, each in brackets, to Calls().
    void Stub(const std::string& name, const std::string& body) const {
        const std::string log = "{ printf '%s' '" + name +
                                "'; for a in \"$@\"; do printf ' [%s]' \"$a\"; "
                                "done; echo; } >> '" +
                                Path("calls.log") + "'\n";
        chmod(Write("stubs/" + name, "#!/bin/sh\n" + log + body + "\n").c_str(), 0755);
        setenv("PATH", (Path("stubs") + ":" + oldPath).c_str(), 1);
    }
    std::string Calls() const { return Read("calls.log"); }

private:
    std::string path, oldPath, oldDir;
};

inline void ResetLsusbState() {
    newUSBDevice::index = 0;
    newUSBDevice::bDeviceDescriptor = newUSBDevice::bConfigurationDescriptor = false;
    newUSBDevice::bInterfaceDescriptor = newUSBDevice::bEndpointDescriptor = false;
    newUSBDevice::bHubDescriptor = newUSBDevice::bHidDeviceDescriptor = false;
}

// The process's pTestComponent while a test runs: devices get numbers, events land in g_events.
class UsbComponentTest : public ::testing::Test {
protected:
    void SetUp() override {
        g_factoryMode = 0;
        g_events.clear();
        testhooks::ResetUsbDiscoveryState();
        ResetLsusbState();
        component.componentName = "libzorbus.so";
        component.eventCallback = [](const char* xml) -> char* { return g_events.emplace_back(xml), nullptr; };
        pTestComponent = &component;
    }
    void TearDown() override { pTestComponent = nullptr, g_factoryMode = 0; }
    std::vector<XmlObject> IdentifyAll() {
        std::vector<XmlObject> elements;
        for (Device* d : component.devices) elements.emplace_back(d->ID(false));
        return elements;
    }
    USBTestComponent component;
};

// The object after a trip through the state stream; null for another class.
template <class T>
std::unique_ptr<T> RoundTrip(const Persistent& object) {
    optstream out;
    out << &object;
    iptstream in = iptstream::FromMemory(out.GetBuffer());
    Persistent* read = nullptr;
    in >> read;
    EXPECT_EQ(in.Remaining(), 0u) << "every field read back";
    std::unique_ptr<Persistent> owned(read);
    return std::unique_ptr<T>(dynamic_cast<T*>(read) ? static_cast<T*>(owned.release()) : nullptr);
}
inline std::vector<USBDevice*> UsbDevicesOf(const DeviceSet& devices) {
    std::vector<USBDevice*> result;
    for (Device* d : devices) result.push_back(dynamic_cast<USBDevice*>(d));
    return result;
}

using PropertyList = std::vector<std::pair<std::string, std::string>>;
inline PropertyList Properties(const XmlObject& device) {
    PropertyList result;
    for (const XmlObject& c : device.children)
        if (c.name == xmldef::property)
            result.emplace_back(c.GetAttributeValue(xmldef::name), c.GetAttributeValue(xmldef::value));
    return result;
}
inline std::string PropertyCaption(const XmlObject& device, const std::string& name) {
    const XmlObject* p = device.FindFirstMatch(xmldef::property, "@name='" + name + "'");
    return p ? p->GetAttributeValue(xmldef::caption) : "";
}
inline std::vector<std::string> TestNames(const XmlObject& device) {
    std::vector<std::string> names;
    for (const XmlObject& c : device.children)
        if (c.name == xmldef::test) names.push_back(c.GetAttributeValue(xmldef::name));
    return names;
}
// "caption / description {name=value;...} [test ...]" of a device element.
inline std::string Summary(const XmlObject& xml) {
    std::string text =
        xml.GetAttributeValue(xmldef::caption) + " / " + xml.GetAttributeValue(xmldef::description) + " {";
    for (const auto& [name, value] : Properties(xml)) text += name + "=" + value + ";";
    text += "} [";
    for (const std::string& test : TestNames(xml)) text += test + " ";
    return text + "]";
}
inline std::string Caption(const XmlObject& xml) { return xml.GetAttributeValue(xmldef::caption); }

// "message|detail" of the TvkError `step` throws, or "passed".
template <class Step>
std::string ErrorOf(Step step) {
    try {
        step();
    } catch (const TvkError& e) {
        return e.GetMessage() + "|" + e.GetDetail();
    }
    return "passed";
}
