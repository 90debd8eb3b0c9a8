// Diagnoses: the guarded run of one, the helpers, and a device's run of all.
#include <stdexcept>

#include "FrameworkSupport.h"

using namespace fw;

namespace {

ScriptedDiagnosis* addDiagnosis(Device* device, const std::string& name, const std::string& state) {
    auto* d = new ScriptedDiagnosis(name, device);
    d->body = [state, name](ScriptedDiagnosis& self, XmlObject& result) {
        self.AddInfo(result, "info of " + name);
        if (!state.empty()) result.SetAttribute("currentState", state);
    };
    device->AddDiagnosis(d);
    return d;
}

XmlObject runDiagnoses(Device* device) {
    XmlObject command("<runDiagnosis device=\"dev0\"/>");
    return XmlObject(device->RunDiagnosis(command));
}

TEST_F(FrameworkTest, DeviceRunsAllDiagnosesWithTheirElementsAndPercentEvents) {
    XmlObject none = runDiagnoses(device);
    EXPECT_EQ(none.GetXmlString(), "<diagnosisResult device=\"dev0\" caption=\"Device Diagnosis for Dev Caption\" "
                                   "currentState=\"passed\" testTime=\"" + none.GetAttributeValue("testTime") + "\"/>");
    EXPECT_TRUE(host.Events().empty());

    FakeDevice other("dev9");
    addDiagnosis(device, "d1", "passed")->caption = "First";
    addDiagnosis(device, "d2", "passed")->body = [&](ScriptedDiagnosis& d, XmlObject& result) {
        d.AddAction(result, "reseat", "Reseat it");
        d.AddAction(result, "swap", "Swap", &other, device);
        d.AddWarning(result, "careful", "hot");
        d.AddFormattedTextFile(result, "log.txt");
        EXPECT_FALSE(d.errorAdded);
        result.SetAttribute("currentState", "passed");
    };
    addDiagnosis(device, "d3", "passed");
    XmlObject report = runDiagnoses(device);
    EXPECT_EQ(report.GetAttributeValue("currentState"), "passed");
    std::string children;
    for (const XmlObject& c : report.children) children += c.GetXmlString() + "\n";
    EXPECT_EQ(children,
              "<info component=\"libzorbus.so\" device=\"dev0\" caption=\"info of d1\"/>\n"
              "<deviceAction caption=\"Reseat it\" component=\"libzorbus.so\" device=\"dev0\"><reseat/></deviceAction>\n"
              "<deviceAction caption=\"Swap\" component=\"libzorbus.so\" device=\"dev9\" subDevice=\"dev0\"><swap/>"
              "</deviceAction>\n<warning errorCode=\"TvkWarning\" key=\"careful\" detail=\"hot\">careful: hot</warning>\n"
              "<formattedTextFile filename=\"log.txt\"/>\n"
              "<info component=\"libzorbus.so\" device=\"dev0\" caption=\"info of d3\"/>\n");
    std::vector<XmlObject> events = host.Events();
    ASSERT_EQ(events.size(), 9u);
    EXPECT_EQ(Values(events[0], {"caption", "description"}), "Diagnosis Started|Dev Caption - First");
    EXPECT_EQ(Values(events[4], {"caption", "description"}), "Diagnosis Finished|Dev Caption - d2");
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(events[2 + 3 * i].GetXmlString(),
                  "<diagUpdate device=\"dev0\" percentComplete=\"" + std::to_string((i * 100 + 100) / 3) + "\"/>");

    addDiagnosis(device, "silent", "");  // no state counts as not passed
    EXPECT_EQ(runDiagnoses(device).GetAttributeValue("currentState"), "failed");
    addDiagnosis(device, "unavailable", "unavailable");
    EXPECT_EQ(runDiagnoses(device).GetAttributeValue("currentState"), "unavailable");
}

TEST_F(FrameworkTest, DiagnosisRunTurnsEveryFailureIntoAnErrorChild) {
    const std::string internal = "Corvane internal error|dev0, d";
    const std::pair<std::function<void(ScriptedDiagnosis&, XmlObject&)>, std::string> cases[] = {
        {[](auto&, auto&) { throw "chars"; }, internal + ", chars|frontEnd, frontEnd"},
        {[](auto&, auto&) { throw std::logic_error("std"); }, internal + ", std|frontEnd, frontEnd"},
        {[](auto&, auto&) { throw 7; }, internal + "|frontEnd, frontEnd"},
        {[](auto&, auto&) { throw TvkError("broken", "", ""); }, "broken||FakeClass, d"},
        {[](ScriptedDiagnosis& d, XmlObject& r) {
             d.AddError(r, "bad", "worse");
             r.SetAttribute("currentState", d.errorAdded ? "failed" : "passed");
         }, "bad|worse|FakeClass, d"},
        {nullptr, "Device not found|frontEnd, frontEnd"},  // a diagnosis without a device
    };
    XmlObject command("<runDiagnosis device=\"spelled\" component=\"c.so\"/>");
    for (const auto& [body, error] : cases) {
        ScriptedDiagnosis d("d", body ? device : nullptr);
        d.body = body;
        XmlObject result = d.Run(command);
        EXPECT_EQ(AttributeNames(result), "component device diagnosis currentState testTime");
        EXPECT_EQ(Values(result, {"device", "currentState"}), "spelled|failed");
        ASSERT_EQ(result.children.size(), 1u);
        const XmlObject& e = result.children[0];
        EXPECT_EQ(body ? Values(e, {"key", "detail", "reference"}) : Values(e, {"key", "reference"}), error);
    }
}

}  // namespace
