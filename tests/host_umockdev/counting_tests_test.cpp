// The loopback and descriptor tests through the entry points on a fixture
// machine in factory mode: the library reads the testbed's devices file,
// counts the one high-speed stick and prompts the host on a mismatch.
#include <gtest/gtest.h>

#include "Expectations.h"
#include "Machine.h"

namespace {

std::string RunTest(const std::string& test, const std::string& attributes) {
    return "run <runTest device=\"usbDevice0\" test=\"" + test + "\" component=\"libzorbus.so\" retries=\"0\" " +
           attributes + "/>";
}

// The result's state and error key, then the texts of the prompts.
std::vector<std::string> Outcome(const Step& step) {
    const Element result = Element::Parse(step.answer);
    std::vector<std::string> outcome{result.Attr("currentState"), ""};
    for (const Element* error : result.Children("error")) outcome[1] = error->Attr("key");
    for (const std::string& event : step.events)
        if (Element::Parse(event).name == "diagPrompt") outcome.push_back(Element::Parse(event).text);
    return outcome;
}

}  // namespace

TEST(CountingTests, LoopbackAndDescriptorTestsOnAnEhciMachine) {
    FakeMachine machine("ehci_uhci_stick");
    std::vector<std::string> script = Opening(true);
    const std::vector<std::string> runs{RunTest("usbLoopbackTest", "numberdevices=\"1\""),
                                        RunTest("usbLoopbackTest", "numberdevices=\"3\""), RunTest("descTest", ""),
                                        RunTest("descTest", "usbLoopback=\"1\"")};
    script.push_back("run <id component=\"libzorbus.so\"/>");
    script.insert(script.end(), runs.begin(), runs.end());
    const Session session = machine.Run(script);
    ASSERT_EQ(session.status, 0) << session.errors;

    using V = std::vector<std::string>;
    EXPECT_EQ(Outcome(session.Nth(runs[0])), (V{"passed", ""}));
    EXPECT_EQ(Outcome(session.Nth(runs[1])), (V{"failed", "Number of USB 2.0 devices found did not match parameter",
                                                "Verify all USB loopbacks are installed... Found=1  Expected=3"}));
    EXPECT_NE(session.Nth(runs[1]).answer.find("detail=\"expected: 3, found: 1\""), std::string::npos);
    // The descriptor pass counts no interface records, so it finds 0.
    EXPECT_EQ(Outcome(session.Nth(runs[2])), (V{"passed", ""}));
    EXPECT_EQ(Outcome(session.Nth(runs[3])), (V{"failed", "Descriptor test failed", "Loopback"}));
    // Both read the kernel's file: nothing ran lsusb.
    for (const std::string& call : machine.ToolCalls()) EXPECT_EQ(call.find("lsusb"), std::string::npos) << call;
}
