// A test's run: events, retries, cancellation, blocking, every way a failure
// becomes the error child of the result; diagnoses, alone and a device's run of
// all; string and numeric parameters, the list, and the value expressions.
#include <climits>
#include <memory>
#include <stdexcept>

#include "FrameworkSupport.h"
#include "tc/framework/CaughtError.h"

using namespace fw;

namespace {

TEST_F(FrameworkTest, PassingRunSendsItsEventsInOrderAndAResult) {
    ScriptedTest* test = AddTest("t1");
    test->body = [](ScriptedTest& t, int) {
        t.SetProgress(1, 3);
        t.SetOperationCaption("Step A");
        t.output << "some output";
        return true;
    };
    XmlObject result = RunTest("t1", "loop=\"4\" recordNum=\"9\"");
    std::vector<XmlObject> events = host.Events();
    ASSERT_EQ(events.size(), 6u);
    EXPECT_EQ(events[0].GetXmlString(), "<diagEvent component=\"libzorbus.so\" caption=\"Test Started\" "
                                        "description=\"Dev Caption - Test Caption\"/>");
    EXPECT_EQ(events[1].GetXmlString(), "<diagUpdate device=\"dev0\" test=\"t1\" percentComplete=\"0\" "
                                        "currentState=\"running\" loop=\"4\" recordNum=\"9\" OperationCaption=\"\"/>");
    EXPECT_TRUE(
        HasAttributes(events[2], {{"percentComplete", "33"}, {"currentState", "running"}, {"OperationCaption", ""}}));
    EXPECT_TRUE(HasAttributes(
        events[3], {{"percentComplete", "33"}, {"currentState", "running"}, {"OperationCaption", "Step A"}}));
    EXPECT_TRUE(HasAttributes(
        events[4], {{"percentComplete", "100"}, {"currentState", "passed"}, {"OperationCaption", "Step A"}}));
    EXPECT_TRUE(HasAttributes(events[5], {{"caption", "Test passed"}, {"description", "Dev Caption - Test Caption;"}}));
    EXPECT_EQ(AttributeNames(result),
              "device test percentComplete currentState loop recordNum OperationCaption testTime");
    ASSERT_EQ(result.children.size(), 1u);
    EXPECT_EQ(result.children[0].GetXmlString(), "<output>some output</output>");
    EXPECT_EQ(device->lifeCycleCalls, 2);

    // Truncated, unclamped, and sent every time.
    host.Reset();
    for (auto c : {std::pair<unsigned, unsigned>{5, 0}, {1, 3}, {250, 100}, {250, 100}})
        test->SetProgress(c.first, c.second);
    std::string percents;
    for (const XmlObject& e : host.Events()) percents += e.GetAttributeValue("percentComplete") + " ";
    EXPECT_EQ(percents, "100 33 250 250 ");
}

TEST_F(FrameworkTest, RetriesAttributeDecidesTheNumberOfTries) {
    struct {
        const char* attributes;
        bool romTest;
        int tries;
    } cases[] = {
        {"", false, 2},
        {"retries=\"0\"", false, 1},
        {"retries=\"5\"", false, 6},
        {"retries=\"6\"", false, 0},
        {"retries=\"x\"", false, 2},
        {"retries=\"-3\"", false, 2},
        {"retries=\"9\"", true, 1},
    };
    for (const auto& c : cases) {
        ScriptedTest* test = AddTest("t1");
        test->romTest = c.romTest;
        test->body = [](ScriptedTest&, int) { return false; };
        XmlObject result = RunTest("t1", c.attributes);
        EXPECT_EQ(ErrorKey(result), c.tries ? "Missing Error Description" : "Parameter outside acceptable range");
        EXPECT_EQ(test->tries, c.tries) << c.attributes;
        // The missing description is the result's only.
        if (c.tries) {
            EXPECT_EQ(test->lastTryAttribute, std::to_string(c.tries)) << c.attributes;
            EXPECT_EQ(test->errorObject.name, "") << c.attributes;
        }
    }
    EXPECT_EQ(host.Events("diagUpdate").back().GetAttributeValue("currentState"), "failed");
    EXPECT_EQ(host.Events("diagEvent").back().GetAttributeValue("caption"), "Test failed");
    // The first pass ends the loop; errors of earlier tries are dropped.
    ScriptedTest* flaky = AddTest("t2");
    flaky->body = [](ScriptedTest&, int n) { return n < 3 ? throw TvkError("flaky", "", "") : true; };
    XmlObject result = RunTest("t2", "retries=\"5\"");
    EXPECT_EQ(result.GetAttributeValue("currentState"), "passed");
    EXPECT_EQ(ErrorKey(result), "none");
    EXPECT_EQ(flaky->currentTry, 3);
}

TEST_F(FrameworkTest, EveryKindOfFailureBecomesTheErrorChild) {
    const std::string internal = "Corvane internal error", frontEnd = "frontEnd, frontEnd";
    struct {
        const char* name;
        std::function<void()> thrower;
        int tries;
        std::string key, detail, reference;
    } cases[] = {
        {"frontend", [] { throw FrontendError("bad input", "why"); }, 2, "bad input", "why", "FakeClass, frontend"},
        {"chars", [] { throw "boom"; }, 1, internal, "dev0, chars, boom", frontEnd},
        {"string", [] { throw std::string("s"); }, 1, internal, "dev0, string, s", frontEnd},
        {"std", [] { throw std::runtime_error("rt"); }, 1, internal, "dev0, std, rt", frontEnd},
        {"other", [] { throw 42; }, 1, internal, "dev0, other, ", frontEnd},
    };
    for (const auto& c : cases) {
        ScriptedTest* test = AddTest(c.name);
        test->body = [thrower = c.thrower](ScriptedTest&, int) { return thrower(), false; };
        XmlObject result = RunTest(c.name);
        SCOPED_TRACE(c.name);
        EXPECT_EQ(test->tries, c.tries);
        EXPECT_EQ(test->cleanups, 0);
        std::vector<XmlObject*> errors = result.FindObjects("error");
        ASSERT_EQ(errors.size(), 1u);
        // A FrontendError of the last try arrives as a plain TvkError.
        EXPECT_TRUE(HasAttributes(
            *errors[0], {{"errorCode", "TvkError"}, {"key", c.key}, {"detail", c.detail}, {"reference", c.reference}}));
        EXPECT_EQ(errors[0]->value,
                  "Dev Desc, " + c.key + ": " + c.detail + ", Ran on CPU " + std::to_string(test->cpu));
    }
    // Before the tries a FrontendError is the front end's.
    ScriptedTest* test = AddTest("t1");
    test->onSetParameters = [](ScriptedTest&) { throw FrontendError("bad parameter", ""); };
    XmlObject failed = RunTest("t1");
    const XmlObject* error = failed.FindFirstMatch("error");
    ASSERT_NE(error, nullptr);
    EXPECT_TRUE(HasAttributes(*error, {{"errorCode", "FrontendError"}, {"reference", frontEnd}}));

    device->description.clear();
    test->cpu = 3;
    TvkError empty("", "", "");
    test->SetErrorObject(ErrorElement(empty));
    EXPECT_EQ(test->errorObject.value, "Ran on CPU 3");
}

TEST_F(FrameworkTest, LockedDeviceBlocksCancelStopsBetweenTriesAndTheLockIsAlwaysReleased) {
    ScriptedTest* test = AddTest("t1");
    device->locked = true;
    XmlObject result = RunTest("t1", "loop=\"7\"");
    EXPECT_TRUE(HasAttributes(result, {{"currentState", "blocked"}, {"loop", "0"}}));
    EXPECT_EQ(ErrorKey(result), "none");
    EXPECT_EQ(test->tries, 0);
    std::vector<XmlObject> updates = host.Events("diagUpdate");
    ASSERT_EQ(updates.size(), 1u);
    EXPECT_EQ(updates[0].GetAttributeValue("currentState"), "blocked");

    device->locked = false;
    test->locks = true;
    bool lockedDuringTry = false;
    test->body = [&](ScriptedTest&, int) -> bool {
        lockedDuringTry = device->locked;
        throw std::runtime_error("x");
    };
    RunTest("t1");
    EXPECT_TRUE(lockedDuringTry);
    EXPECT_FALSE(device->locked);

    XmlObject cancel("<cancelTest test=\"t1\"/>");
    device->CancelTest(cancel);
    test->body = nullptr;
    EXPECT_EQ(RunTest("t1").GetAttributeValue("currentState"), "passed");  // wiped by the run
    test->body = [&](ScriptedTest&, int) { return device->CancelTest(cancel), false; };
    test->tries = test->cleanups = 0;
    host.Reset();
    result = RunTest("t1", "retries=\"3\"");
    EXPECT_EQ(result.GetAttributeValue("currentState"), "canceled");
    EXPECT_EQ(ErrorKey(result), "none");
    EXPECT_EQ(test->tries, 1);
    EXPECT_EQ(test->cleanups, 1);
    EXPECT_EQ(host.Events("diagUpdate").size(), 1u);                                    // Begin's only
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
    test->mode.Set("mode", "Mode", "The mode", "fast");
    test->AddParameter(&test->mode);
    XmlObject element(test->GetXmlString());
    const std::string names = "name caption description interactive requiresMedia requiresEquipment quick complete "
                              "requiresWindow localOnly singleThread destructive romTest fieldtest";
    EXPECT_EQ(AttributeNames(element), names);
    EXPECT_TRUE(HasAttributes(element, {{"interactive", "1"}, {"quick", "0"}}));
    // The built-in retries parameter comes first; its exact form is checked on the host road.
    ASSERT_EQ(element.children.size(), 2u);
    EXPECT_EQ(element.children[0].GetAttributeValue("name"), "retries");
    EXPECT_EQ(element.children[1].GetXmlString(),
              "<parameter name=\"mode\" caption=\"Mode\" description=\"The mode\" type=\"string\" "
              "defaultValue=\"fast\"/>");
    test->romTest = test->runMeNow = true;
    test->disableUITime = 30;
    test->unavailable = "not here";
    XmlObject rom(test->GetXmlString());
    EXPECT_EQ(AttributeNames(rom), names + " runMeNow disableUITime unavailable");
    EXPECT_EQ(rom.children.size(), 1u);  // no retries parameter
}

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
    XmlObject none = runDiagnoses(device);  // sends no event
    EXPECT_EQ(none.GetXmlString(), "<diagnosisResult device=\"dev0\" caption=\"Device Diagnosis for Dev Caption\" "
                                   "currentState=\"passed\" testTime=\"" +
                                       none.GetAttributeValue("testTime") + "\"/>");
    EXPECT_TRUE(host.events.empty());

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
    std::vector<std::string> children;
    for (const XmlObject& c : report.children) children.push_back(c.GetXmlString());
    EXPECT_EQ(children, (std::vector<std::string>{
                            "<info component=\"libzorbus.so\" device=\"dev0\" caption=\"info of d1\"/>",
                            "<deviceAction caption=\"Reseat it\" component=\"libzorbus.so\" device=\"dev0\">"
                            "<reseat/></deviceAction>",
                            "<deviceAction caption=\"Swap\" component=\"libzorbus.so\" device=\"dev9\" "
                            "subDevice=\"dev0\"><swap/></deviceAction>",
                            "<warning errorCode=\"TvkWarning\" key=\"careful\" detail=\"hot\">careful: hot</warning>",
                            "<formattedTextFile filename=\"log.txt\"/>",
                            "<info component=\"libzorbus.so\" device=\"dev0\" caption=\"info of d3\"/>"}));
    std::vector<XmlObject> events = host.Events();
    ASSERT_EQ(events.size(), 9u);
    EXPECT_TRUE(HasAttributes(events[0], {{"caption", "Diagnosis Started"}, {"description", "Dev Caption - First"}}));
    EXPECT_TRUE(HasAttributes(events[4], {{"caption", "Diagnosis Finished"}, {"description", "Dev Caption - d2"}}));
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(events[2 + 3 * i].GetXmlString(),
                  "<diagUpdate device=\"dev0\" percentComplete=\"" + std::to_string((i * 100 + 100) / 3) + "\"/>");

    for (const char* state : {"", "unavailable"}) {  // no state counts as not passed
        addDiagnosis(device, state, state);
        EXPECT_EQ(runDiagnoses(device).GetAttributeValue("currentState"), *state ? state : "failed");
    }
}

TEST_F(FrameworkTest, DiagnosisRunTurnsEveryFailureIntoAnErrorChild) {
    const std::string internal = "Corvane internal error", frontEnd = "frontEnd, frontEnd";
    const struct {
        std::function<void(ScriptedDiagnosis&, XmlObject&)> body;
        std::string key, detail, reference;
    } cases[] = {
        {[](auto&, auto&) { throw "chars"; }, internal, "dev0, d, chars", frontEnd},
        {[](auto&, auto&) { throw std::logic_error("std"); }, internal, "dev0, d, std", frontEnd},
        {[](auto&, auto&) { throw 7; }, internal, "dev0, d", frontEnd},
        {[](auto&, auto&) { throw TvkError("broken", "", ""); }, "broken", "", "FakeClass, d"},
        {[](ScriptedDiagnosis& d, XmlObject& r) {
             d.AddError(r, "bad", "worse");
             r.SetAttribute("currentState", d.errorAdded ? "failed" : "passed");
         },
         "bad", "worse", "FakeClass, d"},
        {nullptr, "Device not found", "", frontEnd},  // a diagnosis without a device; its detail is not fixed
    };
    XmlObject command("<runDiagnosis device=\"spelled\" component=\"c.so\"/>");
    for (const auto& c : cases) {
        SCOPED_TRACE(c.key + ", " + c.detail);
        ScriptedDiagnosis d("d", c.body ? device : nullptr);
        d.body = c.body;
        XmlObject result = d.Run(command);
        EXPECT_EQ(AttributeNames(result), "component device diagnosis currentState testTime");
        EXPECT_TRUE(HasAttributes(result, {{"device", "spelled"}, {"currentState", "failed"}}));
        ASSERT_EQ(result.children.size(), 1u);
        const XmlObject& e = result.children[0];
        EXPECT_TRUE(HasAttributes(e, {{"key", c.key}, {"reference", c.reference}}));
        if (c.body) {
            EXPECT_EQ(e.GetAttributeValue("detail"), c.detail);
        }
    }
}

// The element CaughtErrorElement gives for `thrown`, caught by `run`.
template <class Thrown>
XmlObject caught(const Thrown& thrown, CaughtIn run, const Device* where, const std::string& runName) {
    try {
        throw thrown;
    } catch (...) {
        return CaughtErrorElement(run, where, runName);
    }
}

TEST_F(FrameworkTest, CaughtErrorElementRefersAndNamesAsEachRunDoes) {
    const XmlObject ofTest = caught(FrontendError("bad", "why"), CaughtIn::testRun, device, "t");
    EXPECT_EQ(ofTest.GetAttributeValue("errorCode"), "FrontendError");
    EXPECT_EQ(ofTest.GetAttributeValue("reference"), "frontEnd, frontEnd");
    const XmlObject ofDiagnosis = caught(FrontendError("bad", "why"), CaughtIn::diagnosisRun, device, "d");
    EXPECT_EQ(ofDiagnosis.GetAttributeValue("reference"), "FakeClass, d");
    const XmlObject withoutDevice = caught(TvkError("x", "", ""), CaughtIn::diagnosisRun, nullptr, "d");
    EXPECT_EQ(withoutDevice.GetAttributeValue("reference"), "frontEnd, frontEnd");

    EXPECT_EQ(caught(std::string("s"), CaughtIn::diagnosisRun, device, "d").GetAttributeValue("detail"), "dev0, d, s");
    EXPECT_EQ(caught(42, CaughtIn::testRun, device, "t").GetAttributeValue("detail"), "dev0, t, ");
    EXPECT_EQ(caught(42, CaughtIn::diagnosisRun, nullptr, "d").GetAttributeValue("detail"), "d");
    // A warning thrown is no error of the run: it is reported as internal.
    const XmlObject warning = caught(TvkWarning("w", "", ""), CaughtIn::testRun, device, "t");
    EXPECT_EQ(warning.GetAttributeValue("key"), "Corvane internal error");
    EXPECT_EQ(warning.GetAttributeValue("detail"), "dev0, t, w");
}

// The refusal's second text, or "accepted".
std::string refusal(NumericParameter<int>& p, const std::string& text) {
    try {
        p.SetValue(text);
        return "accepted";
    } catch (FrontendError& e) {
        EXPECT_EQ(e.GetMessage(), "Parameter outside acceptable range");
        return e.GetDetail();
    }
}

NumericParameter<int> bounded(int min, int max) {
    NumericParameter<int> p;
    p.Set("count", "Count", "How many", 2, min, max);
    return p;
}

TEST_F(FrameworkTest, ParametersTakeTheirDefaultOnEveryRunWithoutAValueAndTheListStopsAtTheFirstRefusal) {
    ScriptedTest* test = AddTest("t1");
    test->onSetParameters = [](ScriptedTest& t) {
        t.mode.Set("mode", "Mode", "", "fast");
        t.AddParameter(&t.mode);
    };
    std::vector<std::string> seen;
    test->body = [&](ScriptedTest& t, int) { return seen.push_back(t.mode.GetValue()), true; };
    for (const char* attributes : {"mode=\"slow\"", "", "mode=\"\""}) RunTest("t1", attributes);
    EXPECT_EQ(seen, (std::vector<std::string>{"slow", "fast", "fast"}));

    ParameterList list;
    EXPECT_TRUE(list.ToXml().name.empty());
    EXPECT_TRUE(list.ToXml().children.empty());
    StringParameter a("a", "A", "", "x"), b("b", "B", "", "y");
    NumericParameter<int> n = bounded(1, 8);
    for (Parameter* p : std::initializer_list<Parameter*>{&a, &n, &b}) list.Insert(p);
    XmlObject xml = list.ToXml();
    ASSERT_EQ(xml.children.size(), 3u);
    EXPECT_EQ(xml.children[1].GetXmlString(),
              "<parameter name=\"count\" caption=\"Count\" description=\"How many\" type=\"int\" defaultValue=\"2\" "
              "min=\"1\" max=\"8\"/>");
    EXPECT_THROW(list.Parse(XmlObject("<run a=\"new\" count=\"99\" b=\"late\"/>")), FrontendError);
    EXPECT_EQ(a.GetValue(), "new");
    EXPECT_EQ(n.value, 99) << "taken before its refusal";
    EXPECT_EQ(b.GetValue(), "") << "not reached";
    list.Parse(XmlObject("<run/>"));
    EXPECT_EQ(n.value, 2);

    // Stored: the list refers to parameters stored before it in the stream.
    ParameterList stored;
    stored.Insert(&a);
    iptstream in = iptstream::FromMemory(
        (optstream() << static_cast<const Persistent*>(&a) << static_cast<const Persistent*>(&stored)).GetBuffer());
    Persistent *readA = nullptr, *readList = nullptr;
    in >> readA >> readList;
    std::unique_ptr<StringParameter> copy(dynamic_cast<StringParameter*>(readA));
    std::unique_ptr<ParameterList> copiedList(dynamic_cast<ParameterList*>(readList));
    ASSERT_NE(copy, nullptr);
    ASSERT_NE(copiedList, nullptr);
    EXPECT_EQ(copy->GetValue(), "x");
    EXPECT_EQ(copy->GetDefaultValue(), "x");
    EXPECT_EQ(copy->GetCaption(), "A");
    EXPECT_EQ(copiedList->parameters, std::vector<Parameter*>{copy.get()});
}

TEST_F(FrameworkTest, ACopiedTestsListNamesItsOwnParameters) {
    ScriptedTest* original = AddTest("t1");
    original->onSetParameters = [](ScriptedTest& t) {
        t.mode.Set("mode", "Mode", "", "fast");
        t.AddParameter(&t.mode);
    };
    original->SetParameters();
    original->mode.SetValue("slow");
    std::unique_ptr<ScriptedTest> copy(static_cast<ScriptedTest*>(original->CreateCopy()));
    ASSERT_EQ(copy->parameters.parameters.size(), 1u);
    EXPECT_EQ(copy->parameters.parameters[0], &copy->mode);
    EXPECT_EQ(copy->mode.GetValue(), "slow");
    copy->parameters.Parse(XmlObject("<run mode=\"turbo\"/>"));
    EXPECT_EQ(copy->mode.GetValue(), "turbo");
    EXPECT_EQ(original->mode.GetValue(), "slow");

    ScriptedTest target;
    target.CopyFromPointer(original);
    ASSERT_EQ(target.parameters.parameters.size(), 1u);
    EXPECT_EQ(target.parameters.parameters[0], &target.mode);
}

TEST(NumericParameter, ExpressionResults) {
    NumericParameter<int> p = bounded(1, 8);
    const std::pair<const char*, int> examples[] = {
        {"2*(3+4)-1", 13},  {"2+3*4", 14},
        {"2*3+4", 10},      {"8/2/2", 2},
        {"MAX-1", 7},       {"((1+2)*3)", 9},
        {"1K+1", 1025},     {"0x10*2", 32},
        {"2M", 2097152},    {"10-2-3", 11},
        {"10-2+3", 5},      {"(1))", 1},
        {"()", 0},          {"0X10", 0},
        {"12abc", 12},      {"010", 10},
        {"0x10K", 0},       {"2G", INT_MIN},
        {"4G", 0},          {"1 + 2 * 3", 7},
        {"   ", 0},         {"MIN*MAX", 8},
        {"max", 0},         {"3*-2", -2},
        {"(7)/(0-2)", -3},  {"2147483647+1", INT_MIN},
        {"65536*65536", 0}, {"2G/(0-1)", INT_MIN},
        {"2G-1", INT_MAX},  {"(1+(2*(3+4)))*2", 30},
    };
    for (const auto& e : examples) EXPECT_EQ(p.CalculateFromString(e.first), e.second) << e.first;
    // Deep parentheses are refused before they exhaust the stack; long sums are fine.
    EXPECT_EQ(p.CalculateFromString(std::string(100, '(') + "3" + std::string(100, ')')), 3);
    EXPECT_EQ(refusal(p, std::string(10000, '(') + "1" + std::string(10000, ')')),
              "Malformed expression, Check your parenthesis.");
    std::string sum = "1";
    for (int i = 0; i < 100000; ++i) sum += "+0";
    EXPECT_EQ(p.CalculateFromString(sum), 1);
}

TEST(NumericParameter, RefusalsQuoteTheTextAndTheRange) {
    NumericParameter<int> p = bounded(1, 8);
    EXPECT_EQ(refusal(p, "9"), "You entered 9, please enter a value between 1 and 8");
    EXPECT_EQ(p.value, 9);  // the refused number stays
    EXPECT_EQ(refusal(p, "   "), "You entered    , please enter a value between 1 and 8");
    EXPECT_EQ(refusal(p, "MAX"), "accepted");
    EXPECT_EQ(refusal(p, "1/0"), "Please don't divide by zero.");
    EXPECT_EQ(refusal(p, "(2"), "Malformed expression, Check your parenthesis.");
    EXPECT_EQ(refusal(p, "((1+2)"), "Malformed expression, Check your parenthesis.");
    EXPECT_EQ(p.value, 8);  // unchanged when the evaluation failed
    p.SetValue("");
    EXPECT_EQ(p.value, 2);

    // 5..5 has no upper bound.
    NumericParameter<int> zero = bounded(0, 10), open = bounded(5, 5), wide = bounded(INT_MIN, INT_MAX);
    EXPECT_EQ(refusal(zero, "0") + refusal(open, "1G") + refusal(wide, "2G"), "acceptedacceptedaccepted");
    for (const char* text : {"00", "0x0", "MIN", "0+0", "abc"})
        EXPECT_EQ(refusal(zero, text), std::string("You entered ") + text + ", please enter a value between 0 and 10");
    EXPECT_EQ(refusal(open, "4"), "You entered 4, please enter a value between 5 and 5");
    EXPECT_EQ(refusal(wide, "4G"), "You entered 4G, please enter a value between -2147483648 and 2147483647");
}

}  // namespace
