#include "FrameworkSupport.h"

#include "common/StringUtil.h"

namespace fw {

Host host;

void Host::Reset() {
    std::lock_guard<std::mutex> lock(mutex);
    events.clear();
    promptReply = 0;
    replyToPrompts = true;
    onEvent = nullptr;
}

std::vector<XmlObject> Host::Events() {
    std::lock_guard<std::mutex> lock(mutex);
    std::vector<XmlObject> parsed;
    for (const std::string& e : events) parsed.emplace_back(e);
    return parsed;
}

std::vector<XmlObject> Host::Events(const std::string& elementName) {
    std::vector<XmlObject> selected;
    for (XmlObject& e : Events())
        if (e.name == elementName) selected.push_back(e);
    return selected;
}

char* RecordEvent(const char* xml) {
    XmlObject event{std::string(xml)};
    std::function<void(const XmlObject&)> hook;
    std::string reply;
    {
        std::lock_guard<std::mutex> lock(host.mutex);
        host.events.emplace_back(xml);
        hook = host.onEvent;
        if (event.name == "diagPrompt" && host.replyToPrompts)
            reply = strprintf("<answer value=\"%d\"/>", host.promptReply);
    }
    if (hook) hook(event);
    return reply.empty() ? nullptr : stringdup(reply.c_str());
}

void FrameworkTest::SetUp() {
    host.Reset();
    pTestComponent = new RecordingComponent;
    pTestComponent->componentName = "libzorbus.so";
    pTestComponent->eventCallback = RecordEvent;
    device = new FakeDevice("dev0");
    device->caption = "Dev Caption";
    device->description = "Dev Desc";
    device->className = "FakeClass";
    pTestComponent->devices.insert(device);
}

void FrameworkTest::TearDown() {
    delete pTestComponent;
    pTestComponent = nullptr;
    host.Reset();
}

ScriptedTest* FrameworkTest::AddTest(const std::string& name, const std::string& caption) {
    ScriptedTest* test = new ScriptedTest(name, device);
    test->caption = caption;
    device->AddTest(test);
    return test;
}

XmlObject FrameworkTest::RunTest(const std::string& testName, const std::string& attributes) {
    XmlObject command("<runTest device=\"dev0\" test=\"" + testName + "\" " + attributes + "/>");
    return XmlObject(device->RunTest(command));
}

std::string AttributeNames(const XmlObject& element) {
    std::string names;
    for (const auto& attribute : element.GetAttributes()) names += (names.empty() ? "" : " ") + attribute.first;
    return names;
}

}  // namespace fw
