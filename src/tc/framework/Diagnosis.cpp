#include "tc/framework/Diagnosis.h"

#include "common/TickTimer.h"
#include "common/Translate.h"
#include "common/TvkError.h"
#include "common/xmldef.h"
#include "tc/framework/CaughtError.h"
#include "tc/framework/ComponentOutlet.h"
#include "tc/framework/Device.h"

Diagnosis::Diagnosis(const std::string& diagnosisName, Device* diagnosisDevice)
    : name(diagnosisName), device(diagnosisDevice) {}

void Diagnosis::ReadAndWrite(ptstream& stream, direction dir, unsigned int) {
    if (dir == ptRead) {
        iptstream& in = static_cast<iptstream&>(stream);
        in >> name;
        in.ReadReference(device);
        in >> caption >> description;
    } else {
        optstream& out = static_cast<optstream&>(stream);
        out << name;
        out.WriteReference(device);
        out << caption << description;
    }
}

XmlObject Diagnosis::Run(XmlObject& command) {
    const uint64_t start = TickTimer::GetCurrentTimeInTicks();
    XmlObject result;
    result.name = "diagnosisResult";
    result.SetAttribute(xmldef::component, command.GetAttributeValue(xmldef::component, ""));
    result.SetAttribute(xmldef::device, command.GetAttributeValue(xmldef::device, ""));
    result.SetAttribute(xmldef::diagnosis, name);

    try {
        if (!device) throw TvkError("Device not found", "", "");
        DoRun(command, result);
    } catch (...) {
        result.AddObject(CaughtErrorElement(CaughtIn::diagnosisRun, device, name));
        result.SetAttribute(xmldef::currentState, xmldef::failed);
    }

    result.SetAttribute(xmldef::testTime, GetElapsedTimeSince(start));
    return result;
}

void Diagnosis::AddInfo(XmlObject& result, const std::string& infoCaption, Device* infoDevice) {
    if (!infoDevice) infoDevice = device;
    XmlObject info;
    info.name = xmldef::info;
    info.SetAttribute(xmldef::component, outlet::ComponentName());
    info.SetAttribute(xmldef::device, infoDevice ? infoDevice->name : std::string());
    info.SetAttribute(xmldef::caption, infoCaption);
    result.AddObject(info);
}

void Diagnosis::AddWarning(XmlObject& result, const std::string& message, const std::string& detail) {
    TvkWarning warning(Translate(message), Translate(detail), "");
    result.AddObject(ErrorElement(warning));
}

void Diagnosis::AddError(XmlObject& result, const std::string& message, const std::string& detail,
                         Device* errorDevice) {
    if (!errorDevice) errorDevice = device;
    errorAdded = true;
    TvkError error(message, Translate(detail), "");
    error.CrossReference(errorDevice ? errorDevice->GetClassName() : "frontEnd", name);
    result.AddObject(ErrorElement(error));
}

void Diagnosis::AddAction(XmlObject& result, const std::string& action, const std::string& actionCaption,
                          Device* actionDevice, Device* subDevice) {
    if (!actionDevice) actionDevice = device;
    XmlObject element;
    element.name = xmldef::deviceAction;
    element.SetAttribute(xmldef::caption, actionCaption);
    element.SetAttribute(xmldef::component, outlet::ComponentName());
    element.SetAttribute(xmldef::device, actionDevice ? actionDevice->name : std::string());
    if (subDevice) element.SetAttribute(xmldef::subDevice, subDevice->name);
    XmlObject what;
    what.name = action;
    element.AddObject(what);
    result.AddObject(element);
}

void Diagnosis::AddFormattedTextFile(XmlObject& result, const std::string& filename) {
    XmlObject element;
    element.name = xmldef::formattedTextFile;
    element.SetAttribute(xmldef::filename, filename);
    result.AddObject(element);
}
