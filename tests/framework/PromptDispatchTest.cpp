// Prompts to the user, Super LED prompts and prompts on a thread of their own;
// running, cancelling and diagnosing through the entry points, where a host
// cancels from inside its callback and from a second thread.
#include <atomic>
#include <future>
#include <thread>
#include <utility>

#include "FrameworkSupport.h"
#include "tc/frame/EntryPoints.h"
#include "tc/framework/ConcurrentPrompt.h"
#include "tc/framework/Prompt.h"

using namespace fw;

namespace {

TEST_F(FrameworkTest, PromptCarriesTheTestAndTheTryAndReturnsTheAnswer) {
    ScriptedTest* test = AddTest("t1");
    test->interactive = true;
    host.promptReply = 2;
    std::vector<std::string> states, lines;
    host.onEvent = [&](const XmlObject& e) {
        if (e.name == "diagPrompt") states.push_back(test->currentState);
        if (e.GetAttributeValue("caption") == "Test Prompts User") lines.push_back(e.GetAttributeValue("description"));
    };
    std::vector<int> answers;
    test->body = [&](ScriptedTest& t, int n) {
        answers.push_back(t.PromptUser("Plug", "Yes", "", "No"));
        return n == 2;
    };
    RunTest("t1", "loop=\"3\" recordNum=\"4\"");
    EXPECT_EQ(answers, (std::vector<int>{2, 2}));
    EXPECT_EQ(states, (std::vector<std::string>{"waitingForPrompt", "waitingForPrompt"}));
    EXPECT_EQ(test->currentState, "passed");
    EXPECT_EQ(lines, (std::vector<std::string>{"Dev Caption - Test Caption;Plug",
                                               "Dev Caption - Test Caption;Plug (try #2)"}));
    std::vector<XmlObject> prompts = host.Events("diagPrompt");
    ASSERT_EQ(prompts.size(), 2u);
    // Empty buttons close the gap: "No" is the second option.
    EXPECT_EQ(prompts[0].GetXmlString(),
              "<diagPrompt test=\"t1\" device=\"dev0\" type=\"button\" width=\"500\" height=\"200\" loop=\"3\" "
              "recordNum=\"4\">Plug<option caption=\"Yes\"/><option caption=\"No\"/></diagPrompt>");
    EXPECT_EQ(prompts[1].value, "Plug (try #2)");
}

TEST_F(FrameworkTest, PromptOptionsTitlesAndRefusals) {
    ScriptedTest* test = AddTest("t1", "");
    test->interactive = true;
    device->caption.clear();
    host.promptReply = -1;
    EXPECT_EQ(test->PromptUser("Q", "", "", "", ""), 0);
    EXPECT_EQ(host.Events("diagPrompt").back().children.size(), 1u);
    EXPECT_EQ(host.Events("diagEvent").back().GetAttributeValue("description"), "dev0 - t1;Q");

    test->superLedTest = true;
    std::vector<std::string> options{"a", "b", "c", "d"};
    test->PromptUserText("Which?", options, "button", "1", "2");
    XmlObject led = host.Events("diagPrompt").back();
    EXPECT_EQ(led.GetAttributeValue("titleCaption"), "Super LED Test");
    EXPECT_EQ(led.children.size() == 4 ? led.children[3].GetXmlString() : "",
              "<option caption=\"d\" hotkey=\"f\" image=\"diskette.BMP\"/>");
    test->blankPromptTitle = true;
    test->PromptUserText("Which?", options, "button", "1", "2");
    EXPECT_EQ(host.Events("diagPrompt").back().GetAttributeValue("titleCaption"), "  ");

    // Not interactive: the run fails, nothing is asked. Without a component the answer is 0.
    host.Reset();
    AddTest("t2")->body = [](ScriptedTest& t, int) { return t.PromptUser("Q", "OK") == 0; };
    EXPECT_EQ(ErrorKey(RunTest("t2", "retries=\"0\"")), "Invalid Prompt: test is not interactive");
    EXPECT_TRUE(host.Events("diagPrompt").empty());
    TestComponent* component = std::exchange(pTestComponent, nullptr);
    EXPECT_EQ(test->PromptUser("Q", "A", "B"), 0);
    pTestComponent = component;
}

TEST_F(FrameworkTest, ConcurrentPromptsAnswerOnTheirOwnThread) {
    auto eventually = [](auto condition) {  // up to five seconds
        for (int i = 0; i < 500 && !condition(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
        return condition();
    };
    ScriptedTest* test = AddTest("t1");
    test->interactive = true;
    host.promptReply = 3;
    ConcurrentPrompt* prompt = test->startSuperLEDPrompt();
    ASSERT_TRUE(eventually([&] { return prompt->finished.load(); }));
    EXPECT_EQ(test->SuperLEDResponseString(prompt), "Floppy Drive");
    XmlObject sent = host.Events("diagPrompt").back();
    EXPECT_EQ(sent.value, "Select the device that its LED is blinking");
    EXPECT_EQ(sent.children.size(), 12u);

    // A prompt whose PromptUser throws (the test is not interactive) never finishes.
    test->interactive = false;
    std::vector<std::string> options{"A"};
    ConcurrentPrompt* failing = test->ConcurrentPromptUser("Q", options, "button", "1", "1");
    EXPECT_TRUE(eventually([&] { return failing->manager->GetState() == 0; }));
    EXPECT_FALSE(failing->finished);
    EXPECT_EQ(test->SuperLEDResponseString(failing), "");
    EXPECT_EQ(test->concurrentPrompts.size(), 2u);
}

// The host is still answering when the test goes away: the destructor must
// wait for the prompt's thread, which still uses the test.
TEST_F(FrameworkTest, TestDestroyedWhileTheHostAnswersWaitsForThePrompt) {
    auto* test = new ScriptedTest("lonely", device);
    test->interactive = true;
    std::promise<void> asked, release;
    std::atomic<bool> callbackReturned{false};
    host.onEvent = [&, released = release.get_future().share()](const XmlObject& e) {
        if (e.name != "diagPrompt") return;
        asked.set_value();
        released.wait();
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        callbackReturned = true;
    };
    std::vector<std::string> options{"A", "B"};
    test->ConcurrentPromptUser("Q", options, "button", "1", "1");
    asked.get_future().wait();
    std::thread releaser([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        release.set_value();
    });
    delete test;
    EXPECT_TRUE(callbackReturned);
    releaser.join();
}

const char* const cancelCommand = "<cancelTest device=\"canceldev0\" test=\"slow\"/>";
const char* const runCommand = "<runTest device=\"canceldev0\" test=\"slow\" loop=\"2\" retries=\"3\"/>";

TEST_F(Dispatch, CancelFromInsideTheCallback) {
    std::string cancelAnswer;
    host.onEvent = [&](const XmlObject& e) {
        if (e.name == "diagUpdate" && e.GetAttributeValue("percentComplete") == "50")
            cancelAnswer = Execute(cancelCommand);
    };
    test->body = [](ScriptedTest& t, int) {
        t.SetProgress(1, 2);
        return false;
    };
    XmlObject result(Execute(runCommand));
    EXPECT_EQ(result.GetAttributeValue("currentState"), "canceled");
    EXPECT_EQ(test->tries, 1);
    EXPECT_EQ(cancelAnswer, "<diagOutput loop=\"2\" recordNum=\"0\" type=\"cancelTest\" status=\"Success\"/>");
    EXPECT_NE(Execute("<cancelTest device=\"canceldev0\" test=\"nope\"/>").find("Test not found"), std::string::npos);

    XmlObject diagnosis(Execute("<runDiagnosis device=\"canceldev0\"/>"));
    EXPECT_EQ(diagnosis.GetAttributeValue("currentState"), "failed");  // the diagnosis sets no state
    EXPECT_EQ(host.Events("diagUpdate").back().GetXmlString(),
              "<diagUpdate device=\"canceldev0\" percentComplete=\"100\"/>");
}

TEST_F(Dispatch, CancelFromASecondThread) {
    std::promise<void> inTry, cancelSent;
    std::string cancelAnswer;
    test->body = [&, sent = cancelSent.get_future().share()](ScriptedTest&, int) {
        inTry.set_value();
        sent.wait();
        return false;
    };
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
