// A test's run: events, retries, cancellation, blocking, and every way a
// failure becomes the error child of the result.
#include <stdexcept>

#include "FrameworkSupport.h"
#include "common/TvkError.h"

using namespace fw;

namespace {

const char* const eventAttributes = "device test percentComplete currentState loop recordNum OperationCaption";

TEST_F(FrameworkTest, PassingRunSendsItsEventsInOrderAndAResult) {
    ScriptedTest* test = AddTest("t1");
    test->body = [](ScriptedTest& t, const XmlObject&, int) {
        t.SetProgress(1, 3);
        t.SetOperationCaption("Step A");
        t.output << "some output";
        return true;
    };
    XmlObject result = RunTest("t1", "loop=\"4\" recordNum=\"9\"");

    std::vector<XmlObject> events = host.Events();
    ASSERT_EQ(events.size(), 6u);
    EXPECT_EQ(events[0].GetXmlString(),
              "<diagEvent component=\"libzorbus.so\" caption=\"Test Started\" description=\"Dev Caption - Test Caption\"/>");
    const char* expected[][3] = {{"0", "running", ""}, {"33", "running", ""}, {"33", "running", "Step A"},
                                 {"100", "passed", "Step A"}};
    for (int i = 0; i < 4; ++i) {
        const XmlObject& e = events[i + 1];
        EXPECT_EQ(e.name, "diagUpdate");
        EXPECT_EQ(AttributeNames(e), eventAttributes);
        EXPECT_EQ(e.GetAttributeValue("device"), "dev0");
        EXPECT_EQ(e.GetAttributeValue("test"), "t1");
        EXPECT_EQ(e.GetAttributeValue("percentComplete"), expected[i][0]) << i;
        EXPECT_EQ(e.GetAttributeValue("currentState"), expected[i][1]) << i;
        EXPECT_EQ(e.GetAttributeValue("OperationCaption"), expected[i][2]) << i;
        EXPECT_EQ(e.GetAttributeValue("loop"), "4");
        EXPECT_EQ(e.GetAttributeValue("recordNum"), "9");
    }
    EXPECT_EQ(events[5].GetAttributeValue("caption"), "Test passed");
    EXPECT_EQ(events[5].GetAttributeValue("description"), "Dev Caption - Test Caption;");

    EXPECT_EQ(result.name, "testResult");
    EXPECT_EQ(AttributeNames(result), std::string(eventAttributes) + " testTime");
    EXPECT_EQ(result.GetAttributeValue("currentState"), "passed");
    ASSERT_EQ(result.children.size(), 1u);
    EXPECT_EQ(result.children[0].name, "output");
    EXPECT_EQ(result.children[0].value, "some output");
    EXPECT_EQ(device->initializeCalls, 1);
    EXPECT_EQ(device->uninitializeCalls, 1);
}

TEST_F(FrameworkTest, ProgressIsTruncatedUnclampedAndAlwaysSent) {
    ScriptedTest* test = AddTest("t1");
    const std::pair<unsigned, unsigned> calls[] = {{5, 0}, {1, 3}, {250, 100}, {250, 100}};
    const char* percents[] = {"100", "33", "250", "250"};
    for (const auto& c : calls) test->SetProgress(c.first, c.second);
    std::vector<XmlObject> events = host.Events();
    ASSERT_EQ(events.size(), 4u);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(events[i].GetAttributeValue("percentComplete"), percents[i]);
}

TEST_F(FrameworkTest, RetriesAttributeDecidesTheNumberOfTries) {
    struct Case {
        const char* attributes;
        bool romTest;
        int tries;
        const char* state;
    } cases[] = {
        {"", false, 2, "failed"},           {"retries=\"0\"", false, 1, "failed"},
        {"retries=\"5\"", false, 6, "failed"}, {"retries=\"6\"", false, 0, "failed"},
        {"retries=\"x\"", false, 2, "failed"}, {"retries=\"-3\"", false, 2, "failed"},
        {"retries=\"\"", false, 2, "failed"},  {"retries=\"9\"", true, 1, "failed"},
    };
    for (const Case& c : cases) {
        ScriptedTest* test = AddTest("t1");
        test->romTest = c.romTest;
        test->body = [](ScriptedTest&, const XmlObject&, int) { return false; };
        XmlObject result = RunTest("t1", c.attributes);
        EXPECT_EQ(test->tries, c.tries) << c.attributes;
        EXPECT_EQ(result.GetAttributeValue("currentState"), c.state) << c.attributes;
        const XmlObject* error = result.FindFirstMatch("error");
        ASSERT_NE(error, nullptr);
        if (c.tries == 0) {
            EXPECT_EQ(error->GetAttributeValue("key"), "Parameter outside acceptable range");
            EXPECT_EQ(error->GetAttributeValue("reference"), "frontEnd, frontEnd");
        } else {
            EXPECT_EQ(error->GetAttributeValue("key"), "Missing Error Description");
            EXPECT_EQ(test->currentTry, c.tries);
            EXPECT_EQ(test->currentTryAttributes.back(), std::to_string(c.tries));
        }
    }
}

TEST_F(FrameworkTest, PassEndsTheLoopAndDropsEarlierErrors) {
    ScriptedTest* test = AddTest("t1");
    test->body = [](ScriptedTest&, const XmlObject&, int) { return true; };
    EXPECT_EQ(RunTest("t1", "retries=\"5\"").GetAttributeValue("currentState"), "passed");
    EXPECT_EQ(test->tries, 1);
    EXPECT_EQ(test->currentTry, 1);

    ScriptedTest* flaky = AddTest("t2");
    flaky->body = [](ScriptedTest&, const XmlObject&, int n) -> bool {
        if (n < 3) throw TvkError("flaky", "", "");
        return true;
    };
    XmlObject result = RunTest("t2", "retries=\"3\"");
    EXPECT_EQ(result.GetAttributeValue("currentState"), "passed");
    EXPECT_EQ(result.FindFirstMatch("error"), nullptr);
    EXPECT_EQ(flaky->tries, 3);
    EXPECT_EQ(flaky->currentTryAttributes, (std::vector<std::string>{"1", "2", "3"}));
}

// The error child of a failed run, for each kind of exception.
TEST_F(FrameworkTest, EveryKindOfFailureBecomesTheErrorChild) {
    struct Case {
        const char* name;
        std::function<bool()> body;
        int tries;
        const char* errorCode;
        const char* key;
        const char* detail;
        const char* reference;
    } cases[] = {
        {"frontend", [] { return (throw FrontendError("bad input", "why"), false); }, 2, "TvkError", "bad input", "why",
         "FakeClass, frontend"},
        {"tvk", [] { return (throw TvkError("broken", "", ""), false); }, 2, "TvkError", "broken", "",
         "FakeClass, tvk"},
        {"chars", [] { return (throw "boom", false); }, 1, "TvkError", "Corvane internal error", "dev0, chars, boom",
         "frontEnd, frontEnd"},
        {"string", [] { return (throw std::string("str"), false); }, 1, "TvkError", "Corvane internal error",
         "dev0, string, str", "frontEnd, frontEnd"},
        {"std", [] { return (throw std::runtime_error("rt"), false); }, 1, "TvkError", "Corvane internal error",
         "dev0, std, rt", "frontEnd, frontEnd"},
        {"other", [] { return (throw 42, false); }, 1, "TvkError", "Corvane internal error", "dev0, other, ",
         "frontEnd, frontEnd"},
    };
    for (const Case& c : cases) {
        ScriptedTest* test = AddTest(c.name);
        auto body = c.body;
        test->body = [body](ScriptedTest&, const XmlObject&, int) { return body(); };
        XmlObject result = RunTest(c.name);
        EXPECT_EQ(result.GetAttributeValue("currentState"), "failed") << c.name;
        EXPECT_EQ(test->tries, c.tries) << c.name;
        EXPECT_EQ(test->cleanups, 0) << c.name;
        std::vector<XmlObject*> errors = result.FindObjects("error");
        ASSERT_EQ(errors.size(), 1u) << c.name;
        EXPECT_EQ(errors[0]->GetAttributeValue("errorCode"), c.errorCode) << c.name;
        EXPECT_EQ(errors[0]->GetAttributeValue("key"), c.key) << c.name;
        EXPECT_EQ(errors[0]->GetAttributeValue("detail"), c.detail) << c.name;
        EXPECT_EQ(errors[0]->GetAttributeValue("reference"), c.reference) << c.name;
        std::string text = std::string("Dev Desc, ") + c.key + (*c.detail ? std::string(": ") + c.detail : "") +
                           ", Ran on CPU " + std::to_string(test->cpu);
        EXPECT_EQ(errors[0]->value, text) << c.name;
    }
}

TEST_F(FrameworkTest, FrontendErrorBeforeTheTriesIsCrossReferencedToTheFrontEnd) {
    ScriptedTest* test = AddTest("t1");
    test->onSetParameters = [](ScriptedTest&) { throw FrontendError("bad parameter", ""); };
    XmlObject result = RunTest("t1");
    const XmlObject* error = result.FindFirstMatch("error");
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->GetAttributeValue("errorCode"), "FrontendError");
    EXPECT_EQ(error->GetAttributeValue("reference"), "frontEnd, frontEnd");
    EXPECT_EQ(test->tries, 0);
}

TEST_F(FrameworkTest, ErrorTextLeavesOutEmptyPieces) {
    ScriptedTest* test = AddTest("t1");
    device->description.clear();
    test->cpu = 3;
    TvkError empty("", "", "");
    test->SetErrorObject(empty);
    EXPECT_EQ(test->errorObject.name, "error");
    EXPECT_EQ(test->errorObject.value, "Ran on CPU 3");
    TvkError full("msg", "det", "");
    test->SetErrorObject(full);
    EXPECT_EQ(test->errorObject.value, "msg: det, Ran on CPU 3");
}

TEST_F(FrameworkTest, PlainFalseGetsMissingErrorDescriptionButNoErrorObject) {
    ScriptedTest* test = AddTest("t1");
    test->body = [](ScriptedTest&, const XmlObject&, int) { return false; };
    XmlObject result = RunTest("t1", "retries=\"0\"");
    const XmlObject* error = result.FindFirstMatch("error");
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->GetAttributeValue("key"), "Missing Error Description");
    EXPECT_EQ(error->GetAttributeValue("reference"), "");
    EXPECT_TRUE(test->errorObject.name.empty());
    std::vector<XmlObject> updates = host.Events("diagUpdate");
    EXPECT_EQ(updates.back().GetAttributeValue("percentComplete"), "100");
    EXPECT_EQ(updates.back().GetAttributeValue("currentState"), "failed");
    EXPECT_EQ(host.Events("diagEvent").back().GetAttributeValue("caption"), "Test failed");
}

TEST_F(FrameworkTest, LockedDeviceBlocksTheRunAndLockIsAlwaysReleased) {
    ScriptedTest* test = AddTest("t1");
    device->locked = true;
    XmlObject result = RunTest("t1", "loop=\"7\"");
    EXPECT_EQ(result.GetAttributeValue("currentState"), "blocked");
    EXPECT_EQ(result.GetAttributeValue("loop"), "0");
    EXPECT_EQ(result.FindFirstMatch("error"), nullptr);
    EXPECT_EQ(test->tries, 0);
    std::vector<XmlObject> updates = host.Events("diagUpdate");
    ASSERT_EQ(updates.size(), 1u);
    EXPECT_EQ(updates[0].GetAttributeValue("percentComplete"), "0");
    EXPECT_EQ(updates[0].GetAttributeValue("currentState"), "blocked");

    device->locked = false;
    test->locks = true;
    bool lockedDuringTry = false;
    test->body = [&](ScriptedTest&, const XmlObject&, int) -> bool {
        lockedDuringTry = device->locked;
        throw std::runtime_error("x");
    };
    EXPECT_EQ(RunTest("t1").GetAttributeValue("currentState"), "failed");
    EXPECT_TRUE(lockedDuringTry);
    EXPECT_FALSE(device->locked);

    // An event that cannot go out leaves Run, and the lock with it.
    pTestComponent->eventCallback = nullptr;
    XmlObject command("<runTest test=\"t1\"/>");
    EXPECT_THROW(test->Run(command), TvkError);
    EXPECT_FALSE(device->locked);
}

TEST_F(FrameworkTest, CancelTakesEffectBetweenTries) {
    ScriptedTest* test = AddTest("t1");
    XmlObject cancel("<cancelTest device=\"dev0\" test=\"t1\"/>");
    device->CancelTest(cancel);
    EXPECT_TRUE(test->canceled);
    EXPECT_EQ(RunTest("t1").GetAttributeValue("currentState"), "passed");  // wiped by the run

    test->body = [&](ScriptedTest&, const XmlObject&, int) {
        device->CancelTest(cancel);
        return false;
    };
    host.Reset();
    test->tries = test->cleanups = 0;
    XmlObject result = RunTest("t1", "retries=\"3\"");
    EXPECT_EQ(result.GetAttributeValue("currentState"), "canceled");
    EXPECT_EQ(result.FindFirstMatch("error"), nullptr);
    EXPECT_EQ(test->tries, 1);
    EXPECT_EQ(test->cleanups, 1);
    std::vector<XmlObject> updates = host.Events("diagUpdate");
    ASSERT_EQ(updates.size(), 1u);  // only Begin's
    EXPECT_EQ(host.Events("diagEvent").back().GetAttributeValue("caption"), "Test canceled");

    // A cancel during the last try overrides a pass.
    test->body = [&](ScriptedTest&, const XmlObject&, int) {
        device->CancelTest(cancel);
        return true;
    };
    EXPECT_EQ(RunTest("t1").GetAttributeValue("currentState"), "canceled");
}

TEST_F(FrameworkTest, UnknownTestsAndMissingDevice) {
    XmlObject run("<runTest test=\"nope\"/>");
    try {
        device->RunTest(run);
        FAIL() << "no error";
    } catch (TvkError& e) {
        EXPECT_EQ(e.GetMessage(), "Test not found");
        EXPECT_EQ(e.GetDetail(), "nope");
        EXPECT_EQ(e.GetReferenceA(), "frontEnd");
    }
    try {
        device->CancelTest(run);
        FAIL() << "no error";
    } catch (TvkError& e) {
        EXPECT_EQ(e.GetMessage(), "Test not found");
        EXPECT_EQ(e.GetReferenceA(), "");
    }
    ScriptedTest orphan("orphan", nullptr);
    orphan.currentState = "passed";
    try {
        orphan.Run(run);
        FAIL() << "no error";
    } catch (TvkError& e) {
        EXPECT_EQ(e.GetMessage(), "Device not found");
    }
    EXPECT_EQ(orphan.currentState, "passed");
    EXPECT_TRUE(host.Events().empty());
}

TEST_F(FrameworkTest, LogLinesFallBackOnNames) {
    AddTest("t1", "");
    device->caption.clear();
    RunTest("t1");
    std::vector<XmlObject> log = host.Events("diagEvent");
    ASSERT_EQ(log.size(), 2u);
    EXPECT_EQ(log[0].GetAttributeValue("description"), "dev0 - t1");
}

TEST_F(FrameworkTest, CatalogueElementHasItsAttributesInOrder) {
    ScriptedTest* test = AddTest("t1");
    test->description = "Test Desc";
    test->interactive = test->quick = test->fieldtest = true;
    StringParameter mode("mode", "Mode", "The mode", "fast");
    test->AddParameter(&mode);
    XmlObject element(test->GetXmlString());
    EXPECT_EQ(AttributeNames(element),
              "name caption description interactive requiresMedia requiresEquipment quick complete requiresWindow "
              "localOnly singleThread destructive romTest fieldtest");
    EXPECT_EQ(element.GetAttributeValue("interactive"), "1");
    EXPECT_EQ(element.GetAttributeValue("requiresMedia"), "0");
    EXPECT_EQ(element.GetAttributeValue("fieldtest"), "1");
    ASSERT_EQ(element.children.size(), 2u);
    EXPECT_EQ(element.children[0].GetXmlString(),
              "<parameter name=\"retries\" caption=\"Retries\" description=\"Number of retries if test fails\" "
              "type=\"int\" min=\"0\" max=\"5\" defaultValue=\"1\"/>");
    EXPECT_EQ(element.children[1].GetAttributeValue("name"), "mode");

    test->romTest = test->runMeNow = true;
    test->disableUITime = 30;
    test->unavailable = "not here";
    XmlObject rom(test->GetXmlString());
    EXPECT_EQ(AttributeNames(rom).substr(AttributeNames(element).size()), " runMeNow disableUITime unavailable");
    EXPECT_EQ(rom.GetAttributeValue("disableUITime"), "30");
    ASSERT_EQ(rom.children.size(), 1u);
    EXPECT_EQ(rom.children[0].GetAttributeValue("name"), "mode");
}

}  // namespace
