// The abstract component: owns the device set, the host's callback and the
// component's name, maps the XML command language onto virtual operations,
// turns errors into XML answers and sends events to the host.
#pragma once

#include <atomic>
#include <map>
#include <set>
#include <string>

#include "common/Persistent.h"
#include "common/XmlObject.h"
#include "tc/frame/Export.h"
#include "tc/framework/Device.h"

typedef char* (*EventCallback)(const char* xml);

class TestComponent : public Persistent {
public:
    bool buildingCatalog = false;
    DeviceSet devices;
    // Set by SetCallback; read by a cancel or a prompt's thread too.
    std::atomic<EventCallback> eventCallback{nullptr};
    std::string componentName;

    static std::string diagsWriteDirectory;

    TestComponent() = default;
    TestComponent(const TestComponent& other);
    TestComponent& operator=(const TestComponent&) = delete;
    ~TestComponent() override;

    void ReadAndWrite(ptstream& stream, direction dir, unsigned int version) override;

    // Hook after every creation or restore. Default implementation does nothing.
    virtual void Initialize();
    // Hook before teardown. Default implementation does nothing.
    virtual void Uninitialize();
    virtual std::string ExecuteXMLCommand(const std::string& xml);
    virtual std::string RunTest(XmlObject& command);
    virtual std::string CancelTest(const XmlObject& command);
    virtual std::string RunDiagnosis(XmlObject& command);
    virtual void DeviceAction(XmlObject& command);
    // Hook for "diagRunBegin". Default implementation does nothing.
    virtual void DiagRunBegin(const XmlObject& diagRun);
    // Hook for "diagRunEnd". Default implementation does nothing.
    virtual void DiagRunEnd(const XmlObject& diagRun);
    virtual std::string Catalog() = 0;
    virtual std::string ID() = 0;
    virtual void QueryAll(XmlObject& xml, DeviceSet& set);

    Device* FindDevice(const std::string& name);
    // The host's reply, or "" when it gave none. Throws TvkError
    // "Event callback not registered!" without a callback.
    std::string SendEventNotification(const std::string& xml);
    std::string SendEventNotification(const char* xml);
    void WriteEventLog(const std::string& caption, const std::string& description);
    static std::string GetDiagsWriteDirectory();
    void PurgeDevices();
    // Takes `device` out of the set and deletes it. Devices leave the set
    // through here (or PurgeDevices) so that name-making stays right.
    void RemoveDevice(Device* device);

    // Name-making: every number below the hint of a base name is taken.
    // Valid only while no device leaves the set; leaving clears the hints.
    unsigned int NameHint(const std::string& base) const;
    void SetNameHint(const std::string& base, unsigned int number);
    void ForgetNameHints() { nameHints.clear(); }

private:
    // The dispatcher's error path: "Error" event, failure log file, the
    // error's own XML as the answer.
    std::string ErrorAnswer(const TvkError& error, const std::string& component);
    // Writes a "diagEvent" element up to the opening quote of its description.
    XmlTextWriter& EventHead(XmlTextWriter& event, const std::string& caption) const;
    std::map<std::string, unsigned int> nameHints;
};

// The one component; null while the module is not initialised.
extern "C" ZORBUS_EXPORT TestComponent* pTestComponent;
