// Prompts to the user, Super LED prompts, and prompts on a thread of their
// own.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <thread>

#include "FrameworkSupport.h"
#include "tc/framework/ConcurrentPrompt.h"
#include "tc/framework/Prompt.h"

using namespace fw;

namespace {

TEST_F(FrameworkTest, PromptCarriesTheTestAndTheTryAndReturnsTheAnswer) {
    ScriptedTest* test = AddTest("t1");
    test->interactive = true;
    host.promptReply = 2;
    std::vector<int> answers;
    std::vector<std::string> statesWhileAsking;
    host.onEvent = [&](const XmlObject& e) {
        if (e.name == "diagPrompt") statesWhileAsking.push_back(test->currentState);
    };
    test->body = [&](ScriptedTest& t, const XmlObject&, int n) {
        answers.push_back(t.PromptUser("Plug it in", "Yes", "", "No"));
        return n == 2;
    };
    RunTest("t1", "loop=\"3\" recordNum=\"4\"");

    EXPECT_EQ(answers, (std::vector<int>{2, 2}));
    EXPECT_EQ(statesWhileAsking, (std::vector<std::string>{"waitingForPrompt", "waitingForPrompt"}));
    EXPECT_EQ(test->currentState, "passed");
    std::vector<XmlObject> prompts = host.Events("diagPrompt");
    ASSERT_EQ(prompts.size(), 2u);
    EXPECT_EQ(prompts[0].GetXmlString(),
              "<diagPrompt test=\"t1\" device=\"dev0\" type=\"button\" width=\"500\" height=\"200\" loop=\"3\" "
              "recordNum=\"4\">Plug it in<option caption=\"Yes\"/><option caption=\"No\"/></diagPrompt>");
    EXPECT_EQ(prompts[1].value, "Plug it in (try #2)");

    std::vector<std::string> lines;
    for (const XmlObject& e : host.Events("diagEvent"))
        if (e.GetAttributeValue("caption") == "Test Prompts User") lines.push_back(e.GetAttributeValue("description"));
    EXPECT_EQ(lines, (std::vector<std::string>{"Dev Caption - Test Caption;Plug it in",
                                               "Dev Caption - Test Caption;Plug it in (try #2)"}));
}

TEST_F(FrameworkTest, PromptOptionsAndTitles) {
    ScriptedTest* test = AddTest("t1", "");
    test->interactive = true;
    device->caption.clear();
    host.replyToPrompts = false;
    EXPECT_EQ(test->PromptUser("Q", "", "", "", ""), 0);
    XmlObject only = host.Events("diagPrompt").back();
    ASSERT_EQ(only.children.size(), 1u);
    EXPECT_EQ(only.children[0].GetXmlString(), "<option caption=\"\"/>");
    EXPECT_EQ(host.Events("diagEvent").back().GetAttributeValue("description"), "dev0 - t1;Q");

    test->superLedTest = true;
    std::vector<std::string> options{"a", "b", "c", "d"};
    test->PromptUserText("Which?", options, "button", "1", "2");
    XmlObject led = host.Events("diagPrompt").back();
    EXPECT_EQ(led.GetAttributeValue("titleCaption"), "Super LED Test");
    ASSERT_EQ(led.children.size(), 4u);
    EXPECT_EQ(led.children[3].GetXmlString(), "<option caption=\"d\" hotkey=\"f\" image=\"diskette.BMP\"/>");

    test->blankPromptTitle = true;
    test->PromptUserText("Which?", options, "button", "1", "2");
    led = host.Events("diagPrompt").back();
    EXPECT_EQ(led.GetAttributeValue("titleCaption"), "  ");
    EXPECT_EQ(AttributeNames(led), "test device type width height loop recordNum titleCaption");
}

TEST_F(FrameworkTest, PromptOnANonInteractiveTestFailsTheRun) {
    ScriptedTest* test = AddTest("t1");
    test->body = [](ScriptedTest& t, const XmlObject&, int) { return t.PromptUser("Q", "OK") == 0; };
    XmlObject result = RunTest("t1", "retries=\"0\"");
    const XmlObject* error = result.FindFirstMatch("error");
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->GetAttributeValue("key"), "Invalid Prompt: test is not interactive");
    EXPECT_EQ(error->GetAttributeValue("reference"), "FakeClass, t1");
    EXPECT_TRUE(host.Events("diagPrompt").empty());
}

TEST(Prompt, WithoutAComponentTheAnswerIsZero) {
    ScriptedTest test("t1", nullptr);
    test.interactive = true;
    EXPECT_EQ(test.PromptUser("Q", "A", "B"), 0);
    EXPECT_EQ(test.prompt->deviceName, "no device name");
    EXPECT_EQ(test.prompt->deviceCaption, "no device caption");
    EXPECT_EQ(test.prompt->options, (std::vector<std::string>{"A", "B"}));
}

TEST(SuperLEDPrompt, TwelveItemsInOrder) {
    SuperLEDItems items = SuperLEDPrompt().getItems();
    ASSERT_EQ(items.captions.size(), 12u);
    ASSERT_EQ(items.images.size(), 12u);
    std::string hotkeys;
    for (const std::string& h : items.hotkeys) hotkeys += h;
    EXPECT_EQ(hotkeys, "khcftzvplrwm");
    EXPECT_EQ(items.captions[8], "Red Power LED");
    EXPECT_EQ(items.images[9], "CDRWM.BMP");
}

TEST_F(FrameworkTest, SuperLEDPromptAnswersOnItsOwnThread) {
    ScriptedTest* test = AddTest("t1");
    test->interactive = true;
    host.promptReply = 3;
    ConcurrentPrompt* prompt = test->startSuperLEDPrompt();
    for (int i = 0; i < 500 && !prompt->finished; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_TRUE(prompt->finished);
    EXPECT_EQ(prompt->response, 3);
    EXPECT_EQ(test->SuperLEDResponseString(prompt), "Floppy Drive");
    EXPECT_EQ(test->concurrentPrompts.size(), 1u);
    XmlObject sent = host.Events("diagPrompt").back();
    EXPECT_EQ(sent.value, "Select the device that its LED is blinking");
    ASSERT_EQ(sent.children.size(), 12u);
    EXPECT_EQ(sent.children[11].GetAttributeValue("caption"), "Combo Drive");
}

TEST_F(FrameworkTest, PromptThreadWhoseRunThrowsNeverFinishes) {
    ScriptedTest* test = AddTest("t1");  // not interactive: PromptUser throws
    std::vector<std::string> options{"A"};
    ConcurrentPrompt* prompt = test->ConcurrentPromptUser("Q", options, "button", "1", "1");
    for (int i = 0; i < 100 && prompt->manager->GetState() != 0; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(prompt->manager->GetState(), 0);
    EXPECT_FALSE(prompt->finished);
    EXPECT_EQ(prompt->response, -1);
    EXPECT_EQ(test->SuperLEDResponseString(prompt), "");
}

// The host is still answering when the test goes away: the destructor must
// wait for the prompt's thread, which still uses the test (under
// AddressSanitizer a use after free shows here).
TEST_F(FrameworkTest, TestDestroyedWhileTheHostAnswersWaitsForThePrompt) {
    auto* test = new ScriptedTest("lonely", device);
    test->interactive = true;
    std::mutex m;
    std::condition_variable cv;
    bool asked = false, release = false;
    std::atomic<bool> callbackReturned{false};
    host.onEvent = [&](const XmlObject& e) {
        if (e.name != "diagPrompt") return;
        std::unique_lock<std::mutex> lock(m);
        asked = true;
        cv.notify_all();
        cv.wait(lock, [&] { return release; });
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        callbackReturned = true;
    };
    std::vector<std::string> options{"A", "B"};
    test->ConcurrentPromptUser("Q", options, "button", "1", "1");
    {
        std::unique_lock<std::mutex> lock(m);
        cv.wait(lock, [&] { return asked; });
    }
    std::thread releaser([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        std::lock_guard<std::mutex> lock(m);
        release = true;
        cv.notify_all();
    });
    delete test;
    EXPECT_TRUE(callbackReturned);
    releaser.join();
}

}  // namespace
