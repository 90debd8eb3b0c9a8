// A test's run: events, retries, cancellation, blocking, and every way a
// failure becomes the error child of the result.
#include <stdexcept>

#include "FrameworkSupport.h"

using namespace fw;

namespace {

TEST_F(FrameworkTest, PassingRunSendsItsEventsInOrderAndAResult) {
    ScriptedTest* test = AddTest("t1");
    test->body = [](ScriptedTest& t, int) {
        t.SetProgress(1, 3);
        t.SetOperationCaption("Step A");
        return t.output << "some output", true;
    };
    XmlObject result = RunTest("t1", "loop=\"4\" recordNum=\"9\"");
    std::vector<XmlObject> events = host.Events();
    ASSERT_EQ(events.size(), 6u);
    EXPECT_EQ(events[0].GetXmlString(), "<diagEvent component=\"libzorbus.so\" caption=\"Test Started\" "
                                        "description=\"Dev Caption - Test Caption\"/>");
    EXPECT_EQ(events[1].GetXmlString(), "<diagUpdate device=\"dev0\" test=\"t1\" percentComplete=\"0\" "
                                        "currentState=\"running\" loop=\"4\" recordNum=\"9\" OperationCaption=\"\"/>");
    std::string progress;
    for (int i = 2; i < 5; ++i) progress += Values(events[i], {"percentComplete", "currentState", "OperationCaption"}) + " ";
    EXPECT_EQ(progress, "33|running| 33|running|Step A 100|passed|Step A ");
    EXPECT_EQ(Values(events[5], {"caption", "description"}), "Test passed|Dev Caption - Test Caption;");
    EXPECT_EQ(AttributeNames(result), "device test percentComplete currentState loop recordNum OperationCaption testTime");
    EXPECT_EQ(result.children.size() == 1 ? result.children[0].GetXmlString() : "", "<output>some output</output>");
    EXPECT_EQ(device->lifeCycleCalls, 2);

    // Truncated, unclamped, and sent every time.
    host.Reset();
    for (auto c : {std::pair<unsigned, unsigned>{5, 0}, {1, 3}, {250, 100}, {250, 100}}) test->SetProgress(c.first, c.second);
    std::string percents;
    for (const XmlObject& e : host.Events()) percents += e.GetAttributeValue("percentComplete") + " ";
    EXPECT_EQ(percents, "100 33 250 250 ");
}

TEST_F(FrameworkTest, RetriesAttributeDecidesTheNumberOfTries) {
    struct { const char* attributes; bool romTest; int tries; } cases[] = {
        {"", false, 2}, {"retries=\"0\"", false, 1}, {"retries=\"5\"", false, 6}, {"retries=\"6\"", false, 0},
        {"retries=\"x\"", false, 2}, {"retries=\"-3\"", false, 2}, {"retries=\"9\"", true, 1},
    };
    for (const auto& c : cases) {
        ScriptedTest* test = AddTest("t1");
        test->romTest = c.romTest;
        test->body = [](ScriptedTest&, int) { return false; };
        XmlObject result = RunTest("t1", c.attributes);
        EXPECT_EQ(ErrorKey(result), c.tries ? "Missing Error Description" : "Parameter outside acceptable range");
        EXPECT_EQ(test->tries, c.tries) << c.attributes;
        // The missing description is the result's only.
        if (c.tries) { EXPECT_EQ(test->lastTryAttribute + "|" + test->errorObject.name, std::to_string(c.tries) + "|"); }
    }
    EXPECT_EQ(host.Events("diagUpdate").back().GetAttributeValue("currentState"), "failed");
    EXPECT_EQ(host.Events("diagEvent").back().GetAttributeValue("caption"), "Test failed");
    // The first pass ends the loop; errors of earlier tries are dropped.
    ScriptedTest* flaky = AddTest("t2");
    flaky->body = [](ScriptedTest&, int n) { return n < 3 ? throw TvkError("flaky", "", "") : true; };
    XmlObject result = RunTest("t2", "retries=\"5\"");
    EXPECT_EQ(result.GetAttributeValue("currentState") + "|" + ErrorKey(result) + "|" + std::to_string(flaky->currentTry),
              "passed|none|3");
}

TEST_F(FrameworkTest, EveryKindOfFailureBecomesTheErrorChild) {
    const std::string internal = "Corvane internal error|dev0, ";
    struct { const char* name; std::function<void()> thrower; int tries; std::string error; } cases[] = {
        {"frontend", [] { throw FrontendError("bad input", "why"); }, 2, "bad input|why|FakeClass, frontend"},
        {"chars", [] { throw "boom"; }, 1, internal + "chars, boom|frontEnd, frontEnd"},
        {"string", [] { throw std::string("s"); }, 1, internal + "string, s|frontEnd, frontEnd"},
        {"std", [] { throw std::runtime_error("rt"); }, 1, internal + "std, rt|frontEnd, frontEnd"},
        {"other", [] { throw 42; }, 1, internal + "other, |frontEnd, frontEnd"},
    };
    for (const auto& c : cases) {
        ScriptedTest* test = AddTest(c.name);
        test->body = [thrower = c.thrower](ScriptedTest&, int) { return thrower(), false; };
        XmlObject result = RunTest(c.name);
        EXPECT_EQ(std::make_pair(test->tries, test->cleanups), std::make_pair(c.tries, 0)) << c.name;
        std::vector<XmlObject*> errors = result.FindObjects("error");
        ASSERT_EQ(errors.size(), 1u) << c.name;
        // A FrontendError of the last try arrives as a plain TvkError.
        EXPECT_EQ(Values(*errors[0], {"errorCode", "key", "detail", "reference"}), "TvkError|" + c.error);
        EXPECT_EQ(errors[0]->value, "Dev Desc, " + Values(*errors[0], {"key"}) + ": " + Values(*errors[0], {"detail"}) +
                                        ", Ran on CPU " + std::to_string(test->cpu));
    }
    // Before the tries a FrontendError is the front end's.
    ScriptedTest* test = AddTest("t1");
    test->onSetParameters = [](ScriptedTest&) { throw FrontendError("bad parameter", ""); };
    XmlObject failed = RunTest("t1");
    const XmlObject* error = failed.FindFirstMatch("error");
    EXPECT_EQ(error ? Values(*error, {"errorCode", "reference"}) : "", "FrontendError|frontEnd, frontEnd");

    device->description.clear();
    test->cpu = 3;
    TvkError empty("", "", "");
    test->SetErrorObject(empty);
    EXPECT_EQ(test->errorObject.value, "Ran on CPU 3");
}

TEST_F(FrameworkTest, LockedDeviceBlocksCancelStopsBetweenTriesAndTheLockIsAlwaysReleased) {
    ScriptedTest* test = AddTest("t1");
    device->locked = true;
    XmlObject result = RunTest("t1", "loop=\"7\"");
    EXPECT_EQ(Values(result, {"currentState", "loop"}) + "|" + ErrorKey(result), "blocked|0|none");
    EXPECT_EQ(test->tries, 0);
    std::vector<XmlObject> updates = host.Events("diagUpdate");
    EXPECT_EQ(updates.size() == 1 ? updates[0].GetAttributeValue("currentState") : "", "blocked");

    device->locked = false;
    test->locks = true;
    bool lockedDuringTry = false;
    test->body = [&](ScriptedTest&, int) -> bool { lockedDuringTry = device->locked; throw std::runtime_error("x"); };
    RunTest("t1");
    EXPECT_TRUE(lockedDuringTry && !device->locked);

    XmlObject cancel("<cancelTest test=\"t1\"/>");
    device->CancelTest(cancel);
    test->body = nullptr;
    EXPECT_EQ(RunTest("t1").GetAttributeValue("currentState"), "passed");  // wiped by the run
    test->body = [&](ScriptedTest&, int) { return device->CancelTest(cancel), false; };
    test->tries = test->cleanups = 0;
    host.Reset();
    result = RunTest("t1", "retries=\"3\"");
    EXPECT_EQ(result.GetAttributeValue("currentState") + "|" + ErrorKey(result), "canceled|none");
    EXPECT_EQ(std::make_pair(test->tries, test->cleanups), std::make_pair(1, 1));
    EXPECT_EQ(host.Events("diagUpdate").size(), 1u);  // Begin's only
    test->body = [&](ScriptedTest&, int) { return device->CancelTest(cancel), true; };  // overrides a pass
    EXPECT_EQ(RunTest("t1").GetAttributeValue("currentState"), "canceled");
    EXPECT_FALSE(device->locked);

    // An event that cannot go out leaves Run, and releases the lock too.
    pTestComponent->eventCallback = nullptr;
    XmlObject command("<runTest/>");
    EXPECT_THROW(test->Run(command), TvkError);
    EXPECT_FALSE(device->locked);
}

TEST_F(FrameworkTest, CatalogueElementHasItsAttributesInOrder) {
    ScriptedTest* test = AddTest("t1");
    test->interactive = test->fieldtest = true;
    StringParameter mode("mode", "Mode", "The mode", "fast");
    test->AddParameter(&mode);
    XmlObject element(test->GetXmlString());
    const std::string names = "name caption description interactive requiresMedia requiresEquipment quick complete "
                              "requiresWindow localOnly singleThread destructive romTest fieldtest";
    EXPECT_EQ(AttributeNames(element), names);
    EXPECT_EQ(Values(element, {"interactive", "quick"}), "1|0");
    std::string children;
    for (const XmlObject& c : element.children) children += c.GetXmlString();
    EXPECT_EQ(children, "<parameter name=\"retries\" caption=\"Retries\" description=\"Number of retries if test fails\" "
                        "type=\"int\" min=\"0\" max=\"5\" defaultValue=\"1\"/><parameter name=\"mode\" caption=\"Mode\" "
                        "description=\"The mode\" type=\"string\" defaultValue=\"fast\"/>");

    test->romTest = test->runMeNow = true;
    test->disableUITime = 30;
    test->unavailable = "not here";
    XmlObject rom(test->GetXmlString());
    EXPECT_EQ(AttributeNames(rom), names + " runMeNow disableUITime unavailable");
    EXPECT_EQ(rom.children.size(), 1u);  // no retries parameter
}

}  // namespace
