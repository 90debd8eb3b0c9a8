// A device's self-inspection: findings (information, warnings, errors,
// suggested actions, text files) gathered as children of one result
// element. The base runs the concrete DoRun under guard, so no failure
// leaves Run.
#pragma once

#include <string>

#include "common/Persistent.h"
#include "common/XmlObject.h"

class Device;

class Diagnosis : public Persistent {
public:
    std::string name;
    Device* device = nullptr;  // not owned
    std::string caption;
    std::string description;
    bool errorAdded = false;  // set by AddError; not stored

    Diagnosis() = default;
    Diagnosis(const std::string& name, Device* device);
    Diagnosis(const Diagnosis& other) = default;
    Diagnosis& operator=(const Diagnosis&) = delete;

    void ReadAndWrite(ptstream& stream, direction dir, unsigned int version) override;
    // Adds the findings to `result` and sets its currentState attribute.
    virtual void DoRun(XmlObject& command, XmlObject& result) = 0;

    // A "diagnosisResult" element; every failure ends as an error child and
    // the state "failed".
    XmlObject Run(XmlObject& command);

    // The helpers add to `result`; a null device means this diagnosis's own.
    void AddInfo(XmlObject& result, const std::string& caption, Device* device = nullptr);
    void AddWarning(XmlObject& result, const std::string& message, const std::string& detail);
    void AddError(XmlObject& result, const std::string& message, const std::string& detail, Device* device = nullptr);
    void AddAction(XmlObject& result, const std::string& action, const std::string& caption, Device* device = nullptr,
                   Device* subDevice = nullptr);
    void AddFormattedTextFile(XmlObject& result, const std::string& filename);
};
