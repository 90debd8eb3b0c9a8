// The descriptor and loopback tests through the entry points on a fixture
// machine in factory mode: the library reads the testbed's devices file
// itself, counts the one high-speed stick, and prompts the host on a
// mismatch.
#include <gtest/gtest.h>

#include "Expectations.h"
#include "Machine.h"

namespace {

std::string RunTest(const std::string& test, const std::string& attributes) {
    return "run <runTest device=\"usbDevice0\" test=\"" + test + "\" component=\"libzorbus.so\" retries=\"0\" " +
           attributes + "/>";
}

std::vector<std::string> Prompts(const Step& step) {
    std::vector<std::string> prompts;
    for (const std::string& event : step.events) {
        const Element element = Element::Parse(event);
        if (element.name == "diagPrompt") prompts.push_back(element.text);
    }
    return prompts;
}

void ExpectOutcome(const Step& step, const std::string& state, const std::string& errorKey) {
    const Element result = Element::Parse(step.answer);
    EXPECT_EQ(result.Attr("currentState"), state) << step.answer;
    std::string key;
    for (const Element& child : result.children)
        if (child.name == "error") key = child.Attr("key");
    EXPECT_EQ(key, errorKey) << step.answer;
}

}  // namespace

TEST(CountingTests, LoopbackAndDescriptorTestsOnAnEhciMachine) {
    FakeMachine machine("ehci_uhci_stick");
    std::vector<std::string> script = Opening(true);
    script.push_back("run <id component=\"libzorbus.so\"/>");
    const std::string loopbackPass = RunTest("usbLoopbackTest", "numberdevices=\"1\"");
    const std::string loopbackFail = RunTest("usbLoopbackTest", "numberdevices=\"3\"");
    const std::string descPass = RunTest("descTest", "");
    const std::string descFail = RunTest("descTest", "usbLoopback=\"1\"");
    for (const std::string& line : {loopbackPass, loopbackFail, descPass, descFail}) script.push_back(line);
    const Session session = machine.Run(script);
    ASSERT_EQ(session.status, 0) << session.errors;

    ExpectOutcome(session.Nth(loopbackPass), "passed", "");
    EXPECT_TRUE(Prompts(session.Nth(loopbackPass)).empty());

    const Step& mismatch = session.Nth(loopbackFail);
    ExpectOutcome(mismatch, "failed", "Number of USB 2.0 devices found did not match parameter");
    EXPECT_NE(mismatch.answer.find("detail=\"expected: 3, found: 1\""), std::string::npos) << mismatch.answer;
    EXPECT_EQ(Prompts(mismatch),
              std::vector<std::string>{"Verify all USB loopbacks are installed... Found=1  Expected=3"});

    // The descriptor pass counts no interface records, so 0 is what it finds.
    ExpectOutcome(session.Nth(descPass), "passed", "");
    EXPECT_TRUE(Prompts(session.Nth(descPass)).empty());
    ExpectOutcome(session.Nth(descFail), "failed", "Descriptor test failed");
    EXPECT_EQ(Prompts(session.Nth(descFail)), std::vector<std::string>{"Loopback"});
    // Both read the kernel's file: nothing ran lsusb.
    for (const std::string& call : machine.ToolCalls()) EXPECT_EQ(call.find("lsusb"), std::string::npos) << call;
}
