// Diagnoses: the guarded run of one, the helpers, and a device's run of all.
#include <stdexcept>

#include "FrameworkSupport.h"
#include "common/TvkError.h"

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
    XmlObject command("<runDiagnosis device=\"dev0\" component=\"libzorbus.so\"/>");
    return XmlObject(device->RunDiagnosis(command));
}

TEST_F(FrameworkTest, DeviceRunsAllDiagnosesWithLogLinesAndPercentEvents) {
    addDiagnosis(device, "d1", "passed")->caption = "First";
    addDiagnosis(device, "d2", "passed");
    addDiagnosis(device, "d3", "passed");
    XmlObject report = runDiagnoses(device);
    EXPECT_EQ(AttributeNames(report), "device caption currentState testTime");
    EXPECT_EQ(report.GetAttributeValue("caption"), "Device Diagnosis for Dev Caption");
    EXPECT_EQ(report.GetAttributeValue("currentState"), "passed");
    ASSERT_EQ(report.children.size(), 3u);
    EXPECT_EQ(report.children[2].GetAttributeValue("caption"), "info of d3");

    std::vector<XmlObject> events = host.Events();
    ASSERT_EQ(events.size(), 9u);
    EXPECT_EQ(events[0].GetAttributeValue("caption"), "Diagnosis Started");
    EXPECT_EQ(events[0].GetAttributeValue("description"), "Dev Caption - First");
    EXPECT_EQ(events[1].GetAttributeValue("caption"), "Diagnosis Finished");
    EXPECT_EQ(events[3].GetAttributeValue("description"), "Dev Caption - d2");
    const char* percents[] = {"33", "66", "100"};
    for (int i = 0; i < 3; ++i) EXPECT_EQ(events[2 + 3 * i].GetXmlString(),
                                          std::string("<diagUpdate device=\"dev0\" percentComplete=\"") +
                                              percents[i] + "\"/>");
}

TEST_F(FrameworkTest, UnavailableWinsOverFailedAndMissingStateFails) {
    XmlObject none = runDiagnoses(device);
    EXPECT_EQ(none.GetAttributeValue("currentState"), "passed");
    EXPECT_TRUE(none.children.empty());
    EXPECT_FALSE(none.GetAttributeValue("testTime").empty());
    EXPECT_TRUE(host.Events().empty());

    addDiagnosis(device, "silent", "");
    EXPECT_EQ(runDiagnoses(device).GetAttributeValue("currentState"), "failed");
    addDiagnosis(device, "failing", "failed");
    addDiagnosis(device, "unavailable", "unavailable");
    EXPECT_EQ(runDiagnoses(device).GetAttributeValue("currentState"), "unavailable");
}

TEST_F(FrameworkTest, DiagnosisRunTurnsEveryFailureIntoAnErrorChild) {
    struct Case {
        std::function<void()> thrower;
        const char* detail;
    } cases[] = {
        {[] { throw "chars"; }, "dev0, d, chars"},
        {[] { throw std::string("str"); }, "dev0, d, str"},
        {[] { throw std::logic_error("std"); }, "dev0, d, std"},
        {[] { throw 7; }, "dev0, d"},
    };
    XmlObject command("<runDiagnosis device=\"spelled\" component=\"c.so\"/>");
    for (const Case& c : cases) {
        ScriptedDiagnosis d("d", device);
        auto thrower = c.thrower;
        d.body = [thrower](ScriptedDiagnosis&, XmlObject&) { thrower(); };
        XmlObject result = d.Run(command);
        EXPECT_EQ(AttributeNames(result), "component device diagnosis currentState testTime");
        EXPECT_EQ(result.GetAttributeValue("device"), "spelled");
        EXPECT_EQ(result.GetAttributeValue("currentState"), "failed");
        ASSERT_EQ(result.children.size(), 1u);
        EXPECT_EQ(result.children[0].GetAttributeValue("key"), "Corvane internal error");
        EXPECT_EQ(result.children[0].GetAttributeValue("detail"), c.detail);
        EXPECT_EQ(result.children[0].GetAttributeValue("reference"), "frontEnd, frontEnd");
    }

    ScriptedDiagnosis tvk("d", device);
    tvk.body = [](ScriptedDiagnosis&, XmlObject&) { throw TvkError("broken", "", ""); };
    EXPECT_EQ(tvk.Run(command).children[0].GetAttributeValue("reference"), "FakeClass, d");

    ScriptedDiagnosis orphan("o", nullptr);
    XmlObject result = orphan.Run(command);
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
    EXPECT_EQ(result.children[0].GetXmlString(),
              "<info component=\"libzorbus.so\" device=\"dev0\" caption=\"hello\"/>");
    EXPECT_EQ(result.children[1].GetXmlString(),
              "<deviceAction caption=\"Reseat it\" component=\"libzorbus.so\" device=\"dev0\"><reseat/></deviceAction>");
    EXPECT_EQ(result.children[2].GetAttributeValue("device"), "dev9");
    EXPECT_EQ(result.children[2].GetAttributeValue("subDevice"), "dev0");
    EXPECT_EQ(result.children[3].name, "warning");
    EXPECT_EQ(result.children[3].value, "careful: hot");
    EXPECT_EQ(result.children[4].GetAttributeValue("reference"), "FakeClass, d");
    EXPECT_EQ(result.children[5].GetXmlString(), "<formattedTextFile filename=\"log.txt\"/>");
}

}  // namespace
