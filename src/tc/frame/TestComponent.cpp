#include "tc/frame/TestComponent.h"

#include <cstdlib>
#include <cstring>

#include <strings.h>

#include "common/Debug.h"
#include "common/StringUtil.h"
#include "common/Translate.h"
#include "common/TvkError.h"
#include "common/XmlDocument.h"
#include "common/xmldef.h"
#include "tc/frame/CommandGate.h"
#include "tc/frame/EntryPoints.h"
#include "tc/frame/Version.h"
#include "tc/framework/CaughtError.h"
#include "tc/framework/Test.h"

std::string TestComponent::diagsWriteDirectory;

// The device a command names, or the front end's error for a name that is
// not there.
static Device* Found(Device* device, const std::string& name) {
    if (!device) {
        TvkError error("Device not found", name, "");
        error.CrossReference("frontEnd", "frontEnd");
        throw error;
    }
    return device;
}

// A result element with its attributes in the order given and the error's
// element as its one child: the dispatcher's answer when a test or
// diagnosis command cannot reach its device.
static std::string ErrorResult(const char* name, std::initializer_list<std::pair<const char*, std::string>> attributes,
                               const TvkError& error) {
    XmlObject result;
    result.name = name;
    for (const auto& attribute : attributes) result.SetAttribute(attribute.first, attribute.second);
    result.AddObject(ErrorElement(error));
    return result.GetXmlString();
}

TestComponent::TestComponent(const TestComponent& other)
    : Persistent(other),
      buildingCatalog(other.buildingCatalog),
      eventCallback(other.eventCallback.load()),
      componentName(other.componentName) {
    for (const Device* d : other.devices) {
        Device* copy = static_cast<Device*>(d->CreateCopy());
        if (!devices.insert(copy).second) delete copy;
    }
}

TestComponent::~TestComponent() {
    PurgeDevices();
    eventCallback = nullptr;
}

void TestComponent::ReadAndWrite(ptstream& stream, direction dir, unsigned int) {
    if (dir == ptRead) {
        iptstream& in = static_cast<iptstream&>(stream);
        in >> devices >> componentName;
    } else {
        optstream& out = static_cast<optstream&>(stream);
        out << devices << componentName;
    }
}

void TestComponent::Initialize() {}
void TestComponent::Uninitialize() {}
void TestComponent::DiagRunBegin(const XmlObject&) {}
void TestComponent::DiagRunEnd(const XmlObject&) {}

// Whole-name, case-insensitive match of a command name. The lengths are
// compared first, each keyword's taken once: most keywords are ruled out
// without reading a character.
namespace {
struct Keyword {
    const char* text;
    size_t length;
    explicit Keyword(const char* keyword) : text(keyword), length(std::strlen(keyword)) {}
};
const Keyword catalogCommand(xmldef::catalog), idCommand(xmldef::id), runTestCommand(xmldef::runTest),
    cancelTestCommand(xmldef::cancelTest), runDiagnosisCommand("runDiagnosis"), deviceActionCommand("deviceAction"),
    versionCommand("getDiagVersion"), diagRunBeginCommand("diagRunBegin"), diagRunEndCommand("diagRunEnd");
}  // namespace

static bool isCommand(const char* name, size_t length, const Keyword& keyword) {
    return length == keyword.length && strcasecmp(name, keyword.text) == 0;
}

std::string TestComponent::ExecuteXMLCommand(const std::string& text) {
    // Parsing stands outside the error handling below: a text that is no
    // XML gets the parser's error straight from the entry point. Only the
    // commands that read more than the root's name and component convert
    // the whole element.
    const XmlDocument document(text);
    const char* const name = document.RootName();
    const size_t nameLength = std::strlen(name);
    // Read where the parse left it; made a string only on the ways that need one.
    const char* const component = document.RootAttribute(xmldef::component);
    std::string answer;
    try {
        if (isCommand(name, nameLength, catalogCommand)) {
            commandgate::DevicesInUse inUse;
            // Cleared on every way out, an event that cannot be sent included.
            struct Building {
                bool& flag;
                ~Building() { flag = false; }
            } building{buildingCatalog};
            buildingCatalog = true;
            WriteEventLog(Translate("Building Catalog"), "");
            answer = Catalog();
        } else if (isCommand(name, nameLength, idCommand)) {
            // Discovery replaces the devices: not from inside a command of
            // this thread that still works on them.
            if (!commandgate::MayReplaceDevices()) throw TvkError("Test Component Busy", name, "");
            commandgate::DevicesInUse inUse;
            commandgate::DevicePass devices;
            WriteEventLog(Translate("Device Discovery Started"), "");
            answer = ID();
        } else if (isCommand(name, nameLength, runTestCommand)) {
            commandgate::DevicesInUse inUse;
            XmlObject command(document);
            answer = RunTest(command);
            if (answer.find("failed") != std::string::npos) CreateTestComponentFailureLogFile(component);
        } else if (isCommand(name, nameLength, cancelTestCommand)) {
            commandgate::DevicesInUse inUse;
            answer = CancelTest(XmlObject(document));
        } else if (isCommand(name, nameLength, runDiagnosisCommand)) {
            commandgate::DevicesInUse inUse;
            XmlObject command(document);
            answer = RunDiagnosis(command);
        } else if (isCommand(name, nameLength, deviceActionCommand)) {
            commandgate::DevicesInUse inUse;
            XmlObject command(document);
            DeviceAction(command);
        } else if (isCommand(name, nameLength, versionCommand)) {
            answer = diagVersionRecord;
        } else if (isCommand(name, nameLength, diagRunBeginCommand)) {
            const XmlObject command(document);
            if (const XmlObject* run = command.FindFirstMatch("diagRun", "")) DiagRunBegin(*run);
        } else if (isCommand(name, nameLength, diagRunEndCommand)) {
            const XmlObject command(document);
            if (const XmlObject* run = command.FindFirstMatch("diagRun", "")) DiagRunEnd(*run);
        } else {
            // Handled as if thrown; an unknown command is common enough
            // that the unwinding is worth saving.
            return ErrorAnswer(TvkError("Invalid Command", name, ""), component);
        }
    } catch (TvkError& error) {
        return ErrorAnswer(error, component);
    }
    return answer;
}

std::string TestComponent::ErrorAnswer(const TvkError& error, const std::string& component) {
    try {
        // The description is code - key;text, the text being the key and
        // ": detail" when there is one. Written straight into the event; a
        // NUL, which ends an escaped value, takes the plain road.
        const std::string& message = error.GetMessage();
        const std::string& detail = error.GetDetail();
        const std::string code = error.GetErrorCode();
        if (message.find('\0') != std::string::npos || detail.find('\0') != std::string::npos) {
            WriteEventLog(Translate("Error"), code + " - " + message + ";" + error.GetText());
        } else {
            XmlTextWriter event;
            EventHead(event, Translate("Error")).Attribute(code).Raw(" - ").Attribute(message).Raw(";");
            event.Attribute(message);
            if (!detail.empty()) event.Raw(": ").Attribute(detail);
            SendEventNotification(event.Raw("\"/>").CStr());
        }
    } catch (TvkError& sendError) {
        // Without a callback the event cannot go out; the answer still does.
        dbgprintf("Error event not sent: %s\n", sendError.what());
    }
    CreateTestComponentFailureLogFile(component);
    return error.GetXml();
}

std::string TestComponent::RunTest(XmlObject& command) {
    const std::string deviceName = command.GetAttributeValue(xmldef::device, "");
    const std::string testName = command.GetAttributeValue(xmldef::test, "");
    const std::string component = command.GetAttributeValue(xmldef::component, "");
    try {
        return Found(FindDevice(deviceName), deviceName)->RunTest(command);
    } catch (TvkError& error) {
        return ErrorResult(xmldef::testResult,
                           {{xmldef::device, deviceName},
                            {xmldef::test, testName},
                            {xmldef::component, component},
                            {xmldef::currentState, xmldef::failed}},
                           error);
    }
}

std::string TestComponent::CancelTest(const XmlObject& command) {
    const std::string deviceName = command.GetAttributeValue(xmldef::device, "");
    const std::string testName = command.GetAttributeValue(xmldef::test, "");
    const std::string component = command.GetAttributeValue(xmldef::component, "");
    Device* device = FindDevice(deviceName);
    if (!device) {
        return ErrorResult(xmldef::testResult,
                           {{xmldef::device, deviceName}, {xmldef::test, testName}, {xmldef::component, component}},
                           TvkError("Device not found", deviceName, ""));
    }
    device->CancelTest(command);
    const Test* test = device->FindTest(testName);
    XmlObject answer;
    answer.name = xmldef::diagOutput;
    answer.SetAttribute(xmldef::loop, test ? test->loop.load() : 0, 10);
    answer.SetAttribute(xmldef::recordNum, test ? test->recordNum.load() : 0, 10);
    answer.SetAttribute(xmldef::type, xmldef::cancelTest);
    answer.SetAttribute(xmldef::status, Translate("Success"));
    return answer.GetXmlString();
}

std::string TestComponent::RunDiagnosis(XmlObject& command) {
    const std::string deviceName = command.GetAttributeValue(xmldef::device, "");
    const std::string component = command.GetAttributeValue(xmldef::component, "");
    try {
        return Found(FindDevice(deviceName), deviceName)->RunDiagnosis(command);
    } catch (TvkError& error) {
        return ErrorResult(xmldef::diagOutput,
                           {{xmldef::type, "diagnosisResult"},
                            {xmldef::component, component},
                            {xmldef::device, deviceName},
                            {xmldef::currentState, xmldef::failed}},
                           error);
    }
}

void TestComponent::DeviceAction(XmlObject& command) {
    if (Device* device = FindDevice(command.GetAttributeValue(xmldef::device, ""))) device->DeviceAction(command);
}

void TestComponent::QueryAll(XmlObject& xml, DeviceSet& set) {
    for (Device* device : set) xml.AddObject(XmlObject(device->ID(false)));
}

Device* TestComponent::FindDevice(const std::string& name) {
    // Discovery names its devices in rising order, so a name it asks about
    // most often lies past the last one: one comparison settles it.
    if (devices.empty() || strnumcmp(name, (*devices.rbegin())->name) > 0) return nullptr;
    SearchDevice key(name);
    auto it = devices.find(&key);
    return it == devices.end() ? nullptr : *it;
}

std::string TestComponent::SendEventNotification(const std::string& xml) { return SendEventNotification(xml.c_str()); }

std::string TestComponent::SendEventNotification(const char* xml) {
    const EventCallback callback = eventCallback.load();
    if (!callback) throw TvkError("Event callback not registered!", "", "");
    char* reply = callback(xml);
    if (!reply) return std::string();
    std::string text(reply);
    delete[] reply;
    return text;
}

void TestComponent::WriteEventLog(const std::string& caption, const std::string& description) {
    XmlTextWriter event;
    SendEventNotification(EventHead(event, caption).Attribute(description).Raw("\"/>").CStr());
}

// Every log line takes this road: written straight into text, in the form
// XmlObject would give it.
XmlTextWriter& TestComponent::EventHead(XmlTextWriter& event, const std::string& caption) const {
    event.Raw("<diagEvent component=\"").Attribute(componentName).Raw("\" caption=\"").Attribute(caption);
    return event.Raw("\" description=\"");
}

std::string TestComponent::GetDiagsWriteDirectory() {
    if (!diagsWriteDirectory.empty()) return diagsWriteDirectory;
    std::string value;
    if (const char* env = getenv("CORVANEWRITEDIR")) value = env;
    if (!value.empty()) {
        if (value.back() == '/') value.pop_back();
        if (!FileExists(value)) value.clear();
    }
    if (value.empty()) value = ".";
    diagsWriteDirectory = value;
    return diagsWriteDirectory;
}

void TestComponent::PurgeDevices() {
    for (Device* device : devices) delete device;
    devices.clear();
    nameHints.clear();
}

void TestComponent::RemoveDevice(Device* device) {
    if (!device) return;
    auto it = devices.find(device);
    if (it != devices.end() && *it == device) devices.erase(it);
    delete device;
    nameHints.clear();
}

unsigned int TestComponent::NameHint(const std::string& base) const {
    auto it = nameHints.find(base);
    return it == nameHints.end() ? 0 : it->second;
}

void TestComponent::SetNameHint(const std::string& base, unsigned int number) { nameHints[base] = number; }
