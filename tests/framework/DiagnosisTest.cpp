// Diagnoses: the guarded run of one, the helpers, and a device's run of all.
#include <stdexcept>

#include "FrameworkSupport.h"

using namespace fw;

namespace {

void addDiagnosis(Device* device, const std::string& name, const std::string& state) {
    auto* d = new ScriptedDiagnosis(name, device);
    d->body = [state, name](ScriptedDiagnosis& self, XmlObject& result) {
        self.AddInfo(result, "info of " + name);
        if (!state.empty()) result.SetAttribute("currentState", state);
    };
    device->AddDiagnosis(d);
}

XmlObject runDiagnoses(Device* device) {
    XmlObject command("<runDiagnosis device=\"dev0\"/>");
    return XmlObject(device->RunDiagnosis(command));
}

TEST_F(FrameworkTest, DeviceRunsAllDiagnosesWithLogLinesAndPercentEvents) {
    XmlObject none = runDiagnoses(device);
    EXPECT_EQ(AttributeNames(none), "device caption currentState testTime");
    EXPECT_EQ(none.GetAttributeValue("caption"), "Device Diagnosis for Dev Caption");
    EXPECT_EQ(none.GetAttributeValue("currentState"), "passed");
    EXPECT_TRUE(none.children.empty());
    EXPECT_TRUE(host.Events().empty());

    for (const char* name : {"d1", "d2", "d3"}) addDiagnosis(device, name, "passed");
    device->diagnoses[0]->caption = "First";
    XmlObject report = runDiagnoses(device);
    EXPECT_EQ(report.GetAttributeValue("currentState"), "passed");
    ASSERT_EQ(report.children.size(), 3u);
    EXPECT_EQ(report.children[2].GetAttributeValue("caption"), "info of d3");
    std::vector<XmlObject> events = host.Events();
    ASSERT_EQ(events.size(), 9u);
    EXPECT_EQ(events[0].GetAttributeValue("caption") + "|" + events[0].GetAttributeValue("description"),
              "Diagnosis Started|Dev Caption - First");
    EXPECT_EQ(events[4].GetAttributeValue("caption") + "|" + events[4].GetAttributeValue("description"),
              "Diagnosis Finished|Dev Caption - d2");
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(events[2 + 3 * i].GetXmlString(),
                  "<diagUpdate device=\"dev0\" percentComplete=\"" + std::to_string((i * 100 + 100) / 3) + "\"/>");

    addDiagnosis(device, "silent", "");  // no state counts as not passed
    EXPECT_EQ(runDiagnoses(device).GetAttributeValue("currentState"), "failed");
    addDiagnosis(device, "unavailable", "unavailable");
    EXPECT_EQ(runDiagnoses(device).GetAttributeValue("currentState"), "unavailable");
}

TEST_F(FrameworkTest, DiagnosisRunTurnsEveryFailureIntoAnErrorChild) {
    struct { std::function<void()> thrower; const char* key; const char* detail; const char* reference; } cases[] = {
        {[] { throw "chars"; }, "Corvane internal error", "dev0, d, chars", "frontEnd, frontEnd"},
        {[] { throw std::string("str"); }, "Corvane internal error", "dev0, d, str", "frontEnd, frontEnd"},
        {[] { throw std::logic_error("std"); }, "Corvane internal error", "dev0, d, std", "frontEnd, frontEnd"},
        {[] { throw 7; }, "Corvane internal error", "dev0, d", "frontEnd, frontEnd"},
        {[] { throw TvkError("broken", "", ""); }, "broken", "", "FakeClass, d"},
    };
    XmlObject command("<runDiagnosis device=\"spelled\" component=\"c.so\"/>");
    for (const auto& c : cases) {
        ScriptedDiagnosis d("d", device);
        auto thrower = c.thrower;
        d.body = [thrower](ScriptedDiagnosis&, XmlObject&) { thrower(); };
        XmlObject result = d.Run(command);
        EXPECT_EQ(AttributeNames(result), "component device diagnosis currentState testTime");
        EXPECT_EQ(result.GetAttributeValue("device") + "|" + result.GetAttributeValue("currentState"), "spelled|failed");
        ASSERT_EQ(result.children.size(), 1u);
        EXPECT_EQ(result.children[0].GetAttributeValue("key"), c.key);
        EXPECT_EQ(result.children[0].GetAttributeValue("detail"), c.detail);
        EXPECT_EQ(result.children[0].GetAttributeValue("reference"), c.reference);
    }
    ScriptedDiagnosis orphan("o");
    XmlObject result = orphan.Run(command);
    ASSERT_EQ(result.children.size(), 1u);
    EXPECT_EQ(result.children[0].GetAttributeValue("key"), "Device not found");
    EXPECT_EQ(result.children[0].GetAttributeValue("reference"), "frontEnd, frontEnd");
}

TEST_F(FrameworkTest, DiagnosisHelpersWriteTheirElements) {
    FakeDevice other("dev9");
    ScriptedDiagnosis d("d", device);
    XmlObject result;
    d.AddInfo(result, "hello");
    d.AddAction(result, "reseat", "Reseat it");
    d.AddAction(result, "swap", "Swap", &other, device);
    d.AddWarning(result, "careful", "hot");
    EXPECT_FALSE(d.errorAdded);
    d.AddError(result, "bad", "worse");
    EXPECT_TRUE(d.errorAdded);
    d.AddFormattedTextFile(result, "log.txt");
    ASSERT_EQ(result.children.size(), 6u);
    EXPECT_EQ(result.children[0].GetXmlString(), "<info component=\"libzorbus.so\" device=\"dev0\" caption=\"hello\"/>");
    EXPECT_EQ(result.children[1].GetXmlString(),
              "<deviceAction caption=\"Reseat it\" component=\"libzorbus.so\" device=\"dev0\"><reseat/></deviceAction>");
    EXPECT_EQ(AttributeNames(result.children[2]), "caption component device subDevice");
    EXPECT_EQ(result.children[2].GetAttributeValue("device") + result.children[2].GetAttributeValue("subDevice"),
              "dev9dev0");
    EXPECT_EQ(result.children[3].name + "|" + result.children[3].value, "warning|careful: hot");
    EXPECT_EQ(result.children[4].GetAttributeValue("reference"), "FakeClass, d");
    EXPECT_EQ(result.children[5].GetXmlString(), "<formattedTextFile filename=\"log.txt\"/>");
}

}  // namespace
