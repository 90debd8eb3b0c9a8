// Cancelling a running test through the entry points, the two ways a host
// can: from inside its callback and from a second thread.
#include <condition_variable>
#include <mutex>
#include <thread>

#include "FrameworkSupport.h"
#include "tc/frame/EntryPoints.h"

using namespace fw;

namespace {

class DispatchCancel : public ::testing::Test {
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

TEST_F(DispatchCancel, FromInsideTheCallback) {
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
}

TEST_F(DispatchCancel, FromASecondThread) {
    std::mutex m;
    std::condition_variable cv;
    bool inTry = false, cancelSent = false;
    std::string cancelAnswer;
    test->body = [&](ScriptedTest&, int) {
        std::unique_lock<std::mutex> lock(m);
        inTry = true;
        cv.notify_all();
        cv.wait(lock, [&] { return cancelSent; });
        return false;
    };
    std::thread canceller([&] {
        std::unique_lock<std::mutex> lock(m);
        cv.wait(lock, [&] { return inTry; });
        lock.unlock();
        std::string answer = Execute(cancelCommand);
        lock.lock();
        cancelAnswer = answer;
        cancelSent = true;
        cv.notify_all();
    });
    XmlObject result(Execute(runCommand));
    canceller.join();
    EXPECT_EQ(result.GetAttributeValue("currentState"), "canceled");
    EXPECT_EQ(test->tries, 1);
    EXPECT_EQ(XmlObject(cancelAnswer).GetAttributeValue("status"), "Success");
    EXPECT_TRUE(executeXMLCommandResultStack.empty());
}

}  // namespace
