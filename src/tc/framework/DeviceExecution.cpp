// Running, cancelling and diagnosing on a device: the log lines the host
// sees around a test's own life cycle and a diagnosis run.
#include <string>

#include "common/StringUtil.h"
#include "common/TickTimer.h"
#include "common/Translate.h"
#include "common/TvkError.h"
#include "common/xmldef.h"
#include "tc/framework/ComponentOutlet.h"
#include "tc/framework/Device.h"
#include "tc/framework/Diagnosis.h"
#include "tc/framework/Test.h"

namespace {
template <class T>
std::string displayName(const T& item) {
    return item.caption.empty() ? item.name : item.caption;
}
}  // namespace

std::string Device::RunTest(XmlObject& command) {
    const std::string testName = command.GetAttributeValue(xmldef::test, "");
    Test* test = FindTest(testName);
    if (!test) {
        TvkError error("Test not found", testName, "");
        error.CrossReference("frontEnd", "frontEnd");
        throw error;
    }
    const std::string names = DisplayName() + " - " + displayName(*test);
    WriteEventLog(Translate("Test Started"), names);
    Initialize();
    const std::string result = test->Run(command);
    Uninitialize();
    const XmlObject resultElement(result);
    const std::string state = resultElement.GetAttributeValue(xmldef::currentState, "");
    WriteEventLog(Translate("Test") + " " + Translate(state), names + ";" + resultElement.value);
    return result;
}

void Device::CancelTest(const XmlObject& command) {
    const std::string testName = command.GetAttributeValue(xmldef::test, "");
    Test* test = FindTest(testName);
    if (!test) throw TvkError("Test not found", testName, "");
    // The running test looks at the flag between its tries.
    test->canceled = true;
}

std::string Device::RunDiagnosis(XmlObject& command) {
    XmlObject report;
    report.name = "diagnosisResult";
    report.SetAttribute(xmldef::device, name);
    report.SetAttribute(xmldef::caption,
                        strprintf(Translate("Device Diagnosis for %s").c_str(), DisplayName().c_str()));
    const uint64_t start = TickTimer::GetCurrentTimeInTicks();

    bool allPassed = true;
    bool anyUnavailable = false;
    const unsigned int count = static_cast<unsigned int>(diagnoses.size());
    for (unsigned int i = 0; i < count; ++i) {
        Diagnosis* diagnosis = diagnoses[i];
        if (!diagnosis) continue;
        const std::string names = DisplayName() + " - " + displayName(*diagnosis);
        WriteEventLog(Translate("Diagnosis Started"), names);
        XmlObject result = diagnosis->Run(command);
        const std::string state = result.GetAttributeValue(xmldef::currentState, "");
        if (state != "passed") allPassed = false;
        if (state == "unavailable") anyUnavailable = true;
        for (const XmlObject& child : result.children) report.AddObject(child);
        WriteEventLog(Translate("Diagnosis Finished"), names);
        XmlObject update;
        update.name = "diagUpdate";
        update.SetAttribute(xmldef::device, name);
        update.SetAttribute(xmldef::percentComplete, (i * 100u + 100u) / count, 10);
        outlet::SendEvent(update.GetXmlString());
    }

    // "unavailable" wins over "failed".
    report.SetAttribute(xmldef::currentState, anyUnavailable ? "unavailable" : allPassed ? "passed" : "failed");
    report.SetAttribute(xmldef::testTime, GetElapsedTimeSince(start));
    return report.GetXmlString();
}
