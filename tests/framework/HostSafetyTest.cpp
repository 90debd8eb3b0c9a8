// What a host may do that no fixture machine does: send commands from inside
// its callback and from several threads, hold answers on each thread, and
// send texts that are huge, nested a million deep or not what they seem.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <future>
#include <thread>

#include "FrameworkSupport.h"

using namespace fw;

namespace {

const char* const version = "<diagVersion>8.6.0.3755A</diagVersion>";
const char* const runSlow = "<runTest device=\"canceldev0\" test=\"slow\"/>";

std::string Busy(const std::string& command) {
    return "<error errorCode=\"TvkError\" key=\"Test Component Busy\" detail=\"" + command +
           "\">Test Component Busy: " + command + "</error>";
}

std::string Invalid(const std::string& name) {
    return "<error errorCode=\"TvkError\" key=\"Invalid Command\" detail=\"" + name + "\">Invalid Command: " + name +
           "</error>";
}

std::string TooLarge(const std::string& detail) {
    return "<error errorCode=\"TvkError\" key=\"Command too large\" detail=\"" + detail +
           "\">Command too large: " + detail + "</error>";
}

// `name` with `levels` elements nested inside it, the innermost `inner`.
std::string Nested(const std::string& name, const std::string& attributes, size_t levels,
                   const std::string& inner = "") {
    std::string text = "<" + name + " " + attributes + ">";
    text.reserve(7 * levels + 2 * text.size() + inner.size());
    for (size_t i = 0; i < levels; ++i) text += "<a>";
    text += inner;
    for (size_t i = 0; i < levels; ++i) text += "</a>";
    return text + "</" + name + ">";
}

TEST_F(Dispatch, CommandsFromInsideTheCallbackRunAtOnceButNeverReplaceTheDevicesUnderATest) {
    TestComponent* const component = pTestComponent;
    std::string discovery, version, cancel;
    int initializedAfterUninitialize = -1;
    test->body = [&](ScriptedTest& t, int) {
        t.SetProgress(1, 2);
        return true;
    };
    host.onEvent = [&](const XmlObject& event) {
        if (event.GetAttributeValue("percentComplete") != "50") return;
        discovery = Execute("<id/>");
        Uninitialize(nullptr);
        initializedAfterUninitialize = IsInitialized();
        Initialize("<init/>");
        version = Execute("<getDiagVersion/>");
        cancel = Execute("<cancelTest device=\"canceldev0\" test=\"slow\"/>");
    };
    const XmlObject result(Execute(runSlow));

    EXPECT_EQ(discovery, Busy("id"));
    EXPECT_EQ(initializedAfterUninitialize, 1);
    EXPECT_EQ(pTestComponent, component);
    EXPECT_EQ(version, ::version);
    EXPECT_EQ(cancel, "<diagOutput loop=\"0\" recordNum=\"0\" type=\"cancelTest\" status=\"Success\"/>");
    EXPECT_EQ(result.GetAttributeValue("currentState"), "canceled");
    EXPECT_EQ(host.Events("diagEvent").at(1).GetXmlString(),
              "<diagEvent component=\"libzorbus.so\" caption=\"Error\" "
              "description=\"TvkError - Test Component Busy;Test Component Busy: id\"/>");
}

TEST_F(Dispatch, ASecondThreadsCommandWaitsForTheRunningTest) {
    std::promise<void> inTry;
    std::atomic<bool> sending{false}, answered{false};
    bool answeredDuringTheTry = true;
    test->body = [&](ScriptedTest&, int) {
        inTry.set_value();
        while (!sending) std::this_thread::yield();
        // Long enough for a command that does not wait to come back.
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        answeredDuringTheTry = answered;
        return true;
    };
    std::string answer;
    std::thread second([&, tried = inTry.get_future()] {
        tried.wait();
        sending = true;
        answer = Execute("<getDiagVersion/>");
        answered = true;
    });
    const XmlObject result(Execute(runSlow));
    second.join();
    EXPECT_FALSE(answeredDuringTheTry);
    EXPECT_EQ(answer, version);
    EXPECT_EQ(result.GetAttributeValue("currentState"), "passed");
}

TEST_F(Dispatch, EachThreadReleasesItsOwnLatestAnswer) {
    EXPECT_STREQ(ExecuteXMLCommand("<getDiagVersion/>"), version);
    std::promise<const char*> pushed;
    std::promise<void> released;
    std::thread other([&] {
        pushed.set_value(ExecuteXMLCommand("<getDiagVersion component=\"other\"/>"));
        released.get_future().wait();
        FreeLastExecuteXMLCommandResult();
    });
    const char* theirs = pushed.get_future().get();
    FreeLastExecuteXMLCommandResult();  // mine, though theirs came later
    EXPECT_EQ(std::string(theirs), version);
    EXPECT_EQ(executeXMLCommandResultStack.size(), 1u);
    EXPECT_EQ(executeXMLCommandResultStack.back(), theirs);
    released.set_value();
    other.join();
    EXPECT_TRUE(executeXMLCommandResultStack.empty());

    // A thread with no answer of its own releases the latest of all.
    EXPECT_STREQ(ExecuteXMLCommand("<bogus/>"), Invalid("bogus").c_str());
    std::thread([] { FreeLastExecuteXMLCommandResult(); }).join();
    EXPECT_TRUE(executeXMLCommandResultStack.empty());
}

// Deeper than any stack of calls a level would survive, yet within the
// limits of a command; a million levels is refused by its size.
const size_t deep = 262000;

TEST_F(Dispatch, CommandsNestedDeepGetTheirNormalAnswers) {
    const XmlObject run(Execute(Nested("runTest", "device=\"canceldev0\" test=\"slow\"", deep)));
    EXPECT_EQ(run.GetAttributeValue("currentState"), "passed");
    EXPECT_EQ(Execute(Nested("cancelTest", "device=\"canceldev0\" test=\"slow\"", deep)),
              "<diagOutput loop=\"0\" recordNum=\"0\" type=\"cancelTest\" status=\"Success\"/>");
    const XmlObject diagnosis(Execute(Nested("runDiagnosis", "device=\"canceldev0\"", deep)));
    EXPECT_EQ(diagnosis.name, "diagnosisResult");
    EXPECT_EQ(Execute(Nested("deviceAction", "device=\"canceldev0\"", deep)), "");
    EXPECT_EQ(Execute(Nested("diagRunBegin", "", deep, "<diagRun/>")), "");
    EXPECT_EQ(Execute(Nested("diagRunEnd", "", deep, "<diagRun/>")), "");
}

TEST_F(Dispatch, InitializeAndUninitializeTakeDeepTexts) {
    const std::string state = ::testing::TempDir() + "zorbus-deep-state";
    std::remove(state.c_str());
    Uninitialize(Nested("uninit", "persistentFilename=\"" + state + "\"", deep).c_str());
    EXPECT_EQ(IsInitialized(), 0);
    EXPECT_TRUE(FileExists(state));
    Initialize(Nested("init", "component=\"deep.so\"", deep).c_str());
    ASSERT_NE(pTestComponent, nullptr);
    EXPECT_EQ(pTestComponent->componentName, "deep.so");
    // Too deep to be accepted: a fresh component, as for any bad text.
    Initialize(Nested("init", "component=\"deeper.so\"", 1000000).c_str());
    ASSERT_NE(pTestComponent, nullptr);
    EXPECT_EQ(pTestComponent->componentName, "");
    std::remove(state.c_str());
}

TEST_F(Dispatch, HostileTextsGetExactAnswers) {
    // A million levels of any command is refused by its tags before it is parsed.
    for (const char* command : {"runTest", "cancelTest", "runDiagnosis", "deviceAction", "diagRunBegin", "diagRunEnd"})
        EXPECT_EQ(Execute(Nested(command, "device=\"canceldev0\" test=\"slow\"", 1000000)),
                  TooLarge("2000002 tags, at most 524288"))
            << command;
    std::string manyAttributes = "<runTest";
    for (int i = 0; i <= 1 << 20; ++i) manyAttributes += " a=\"\"";
    manyAttributes += "/>";
    const std::string bomb = "<!DOCTYPE lolz [<!ENTITY lol \"lol\"><!ENTITY lol2 \"&lol;&lol;&lol;&lol;\">]>"
                             "<lolz>&lol2;</lolz>";
    const std::pair<std::string, std::string> cases[] = {
        {std::string((16u << 20) + 1, ' '), TooLarge("more than 16777216 bytes")},
        {manyAttributes, TooLarge("1048577 attributes, at most 1048576")},
        // The host's text ends at its first NUL.
        {std::string("<getDiagVersion/>\0<bogus/>", 26), version},
        // Bytes that are no UTF-8 are carried, not judged.
        {"<bogus\xff\xfe/>", Invalid("bogus\xff\xfe")},
        // Entities are declared in a document type, which is skipped: nothing expands.
        {bomb, Invalid("lolz")},
        {"<cancelTest device=\"&lol2;\" test=\"slow\"/>",
         "<testResult device=\"&amp;lol2;\" test=\"slow\" component=\"\"><error errorCode=\"TvkError\" "
         "key=\"Device not found\" detail=\"&amp;lol2;\">Device not found: &amp;lol2;</error></testResult>"},
    };
    for (const auto& c : cases) EXPECT_EQ(Execute(c.first), c.second) << c.first.substr(0, 60);
}

}  // namespace
