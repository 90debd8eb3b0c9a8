// Running, cancelling and diagnosing through the entry points; a host
// cancels from inside its callback and from a second thread.
#include <future>
#include <thread>

#include "FrameworkSupport.h"
#include "tc/frame/EntryPoints.h"

using namespace fw;

namespace {

class Dispatch : public ::testing::Test {
protected:
    ScriptedTest* test = nullptr;
    void SetUp() override {
        host.Reset();
        Initialize("<init component=\"libzorbus.so\"/>");
        ASSERT_NE(pTestComponent, nullptr);
        SetCallback(RecordEvent);
        FreeLastSetCallbackResult();
        auto* device = new FakeDevice("canceldev0");
        pTestComponent->devices.insert(device);
        test = new ScriptedTest("slow", device);
        device->AddTest(test);
        device->AddDiagnosis(new ScriptedDiagnosis("d", device));
    }
    void TearDown() override {
        Uninitialize(nullptr);
        host.Reset();
    }
    static std::string Execute(const std::string& xml) {
        std::string answer = ExecuteXMLCommand(xml.c_str());
        FreeLastExecuteXMLCommandResult();
        return answer;
    }
};

const char* const cancelCommand = "<cancelTest device=\"canceldev0\" test=\"slow\"/>";
const char* const runCommand = "<runTest device=\"canceldev0\" test=\"slow\" loop=\"2\" retries=\"3\"/>";

TEST_F(Dispatch, CancelFromInsideTheCallback) {
    std::string cancelAnswer;
    host.onEvent = [&](const XmlObject& e) {
        if (e.name == "diagUpdate" && e.GetAttributeValue("percentComplete") == "50") cancelAnswer = Execute(cancelCommand);
    };
    test->body = [](ScriptedTest& t, int) { return t.SetProgress(1, 2), false; };
    XmlObject result(Execute(runCommand));
    EXPECT_EQ(result.GetAttributeValue("currentState"), "canceled");
    EXPECT_EQ(test->tries, 1);
    EXPECT_EQ(cancelAnswer, "<diagOutput loop=\"2\" recordNum=\"0\" type=\"cancelTest\" status=\"Success\"/>");
    EXPECT_NE(Execute("<cancelTest device=\"canceldev0\" test=\"nope\"/>").find("Test not found"), std::string::npos);

    XmlObject diagnosis(Execute("<runDiagnosis device=\"canceldev0\"/>"));
    EXPECT_EQ(diagnosis.GetAttributeValue("currentState"), "failed");  // the diagnosis sets no state
    EXPECT_EQ(host.Events("diagUpdate").back().GetXmlString(), "<diagUpdate device=\"canceldev0\" percentComplete=\"100\"/>");
}

TEST_F(Dispatch, CancelFromASecondThread) {
    std::promise<void> inTry, cancelSent;
    std::string cancelAnswer;
    test->body = [&, sent = cancelSent.get_future().share()](ScriptedTest&, int) { return inTry.set_value(), sent.wait(), false; };
    std::thread canceller([&, tried = inTry.get_future()] {
        tried.wait();
        cancelAnswer = Execute(cancelCommand);
        cancelSent.set_value();
    });
    XmlObject result(Execute(runCommand));
    canceller.join();
    EXPECT_EQ(result.GetAttributeValue("currentState"), "canceled");
    EXPECT_EQ(test->tries, 1);
    EXPECT_EQ(XmlObject(cancelAnswer).GetAttributeValue("status"), "Success");
    EXPECT_TRUE(executeXMLCommandResultStack.empty());
}

}  // namespace
