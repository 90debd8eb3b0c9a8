// The C entry points and the command dispatcher, driven as a host drives them, on a bare testbed.
#include <map>
#include <sstream>

#include "Host.h"

namespace {

const std::string success = "<diagOutput type=\"setCallback\" status=\"Success\"/>";
const std::string init = "init <init component=\"libzorbus.so\"/>";

const std::string uninitialized = Error("Uninitialized Test Component");
std::string Invalid(const std::string& name) { return Error("Invalid Command", name); }
std::string Malformed(const std::string& detail) { return Error("Malformed XML", detail); }
Strings InvalidEvent(const std::string& name) {
    return {LogEvent("Error", "TvkError - Invalid Command;Invalid Command: " + name)};
}

struct Call {
    std::string line, answer;  // "*": the answer is checked apart
    Strings events = {};
};

// Plays the calls in one host: each answers as given, with exactly these events.
Session Play(FakeMachine& m, const std::vector<Call>& calls) {
    Strings script;
    for (const Call& c : calls) script.push_back(c.line);
    Session s = m.Run(script);
    EXPECT_EQ(s.steps.size(), calls.size());
    for (size_t i = 0; i < calls.size() && i < s.steps.size(); ++i) {
        EXPECT_TRUE(calls[i].answer == "*" || s.steps[i].answer == calls[i].answer)
            << i << ": " << calls[i].line << "\n  answer: " << s.steps[i].answer << "\nexpected: " << calls[i].answer;
        EXPECT_EQ(s.steps[i].events, calls[i].events) << i << ": " << calls[i].line;
    }
    return s;
}

}  // namespace

TEST(EntryPoints, WhatWorksBeforeAndAfterInitializeAndInEachLanguage) {
    FakeMachine m("");
    const std::string german = std::string("de_DE.UTF-8:") + ZORBUS_BINARY_DIR + "/locale";
    Play(m, {{"translator", ""},
             {"initialized", "0"},
             {"callback", uninitialized},
             {"run <getDiagVersion/>", uninitialized},
             {"uninit <<< not even parsed", ""},
             {"release", "<none>"},  // empty stacks: nothing happens
             {"initialized", "0"},
             {"init <init/>", ""},
             {"initialized", "1"},
             {"callback", success},
             // A second Initialize discards the component and with it the callback.
             {"init <init/>", ""},
             {"run <nonsense/>", Invalid("nonsense")},
             {"uninit", ""},
             {"initialized", "0"},
             // Text that is no XML, or none, still initializes.
             {"init this is not xml", ""},
             {"initialized", "1"},
             {"init", ""},
             {"initialized", "1"},
             {"run <getDiagVersion/>", version},
             // The component adds its own catalogue in Initialize.
             {"translator " + german, ""},
             {init, ""},
             {"callback", "<diagOutput type=\"setCallback\" status=\"Erfolg\"/>"},
             {"run <catalog/>", "*", {LogEvent("Katalog wird erstellt", ""), LogEvent("Gerät erkannt", "Device")}}});
}

TEST(EntryPoints, DispatcherAnswers) {
    FakeMachine m("");
    const std::string notFound = Error("Device not found", "usbDevice9", " reference=\"frontEnd, frontEnd\"");
    const Session s = Play(
        m, {{"factory 0", ""},
            {"translator C", ""},
            {init, ""},
            {"callback", success},
            {"run <getDiagVersion/>", version},
            {"run <GETDIAGVERSION component=\"x\"/>", version},
            {"run <frobnicate/>", Invalid("frobnicate"), InvalidEvent("frobnicate")},
            // A keyword is matched over its whole length only.
            {"run <getDiagVersions/>", Invalid("getDiagVersions"), InvalidEvent("getDiagVersions")},
            {"run <catalo/>", Invalid("catalo"), InvalidEvent("catalo")},
            {"run <runTest device=\"usbDevice9\" test=\"rootHubTest\" component=\"c.so\"/>",
             "<testResult device=\"usbDevice9\" test=\"rootHubTest\" component=\"c.so\" currentState=\"failed\">" +
                 notFound + "</testResult>"},
            {"run <RunDiagnosis device=\"usbDevice9\" component=\"c.so\"/>",
             "<diagOutput type=\"diagnosisResult\" component=\"c.so\" device=\"usbDevice9\" currentState=\"failed\">" +
                 notFound + "</diagOutput>"},
            // A cancel of an unknown device is answered, not treated as an error.
            {"run <cancelTest device=\"usbDevice9\" test=\"t\"/>", "<testResult device=\"usbDevice9\" test=\"t\" "
                                                                   "component=\"\">" +
                                                                       Error("Device not found", "usbDevice9") +
                                                                       "</testResult>"},
            {"run <deviceAction device=\"usbDevice9\"/>", ""},
            {"run <diagRunEnd/>", ""},
            {"run <diagRunBegin><diagRun a=\"1\"/><diagRun a=\"2\"/></diagRunBegin>", ""},
            // Answers stay valid until released, innermost first.
            {"hold <getDiagVersion/>", version},
            {"hold <nonsense/>", Invalid("nonsense"), InvalidEvent("nonsense")},
            {"release", version},
            {"release", "<none>"},
            {"release", "<none>"},
            {"hold <deviceAction/>", ""},
            {"release", "<none>"},
            // Text that does not parse never reaches a command.
            {"run <unterminated component=\"libzorbus.so\"", Malformed("Error parsing start element tag at offset 37")},
            {"run ", Malformed("No document element found at offset 0")},
            {"run plain text", Malformed("No document element found at offset 10")},
            {"run <a></b>", Malformed("Start-end tags mismatch at offset 5")},
            {"run", Malformed("No document element found at offset 0")},
            {"run <CATALOG/>", "*", {LogEvent("Building Catalog", ""), LogEvent("Device Discovered", "Device")}}});
    // The catalogue needs no USB information: no tool ran.
    ExpectDevices(s.Nth("run <CATALOG/>").answer, "Communication|USB Controller(s)",
                  {{"USB Device", "USB Device", {}, {"rootHubTest", "FileWriteCompareTest"}}});
    EXPECT_TRUE(m.Calls().empty());
}

TEST(EntryPoints, FailureMarkOnlyInFactoryRunsFromTheMedium) {
    FakeMachine m("");
    const struct {
        const char *factory, *medium, *component;
        bool written;
    } cases[] = {{"1", "1", "libzorbus.so", true},
                 {"0", "1", "libzorbus.so", false},
                 {"1", "0", "libzorbus.so", false},
                 {"1", "1", "libzorbus", false}};
    for (const auto& c : cases) {
        m.Run({std::string("factory ") + c.factory, std::string("medium ") + c.medium, "translator C", init, "callback",
               std::string("run <bogus component=\"") + c.component + "\"/>"});
        EXPECT_EQ(m.Has(std::string("work/") + c.component + ".failure.version"), c.written) << c.factory << c.medium;
        m.Remove(failureMark);
    }
    m.Run(Opening(true, {"medium 1", "run <runTest device=\"nothere\" test=\"t\" component=\"libzorbus.so\"/>"}));
    EXPECT_EQ(m.Read(failureMark), std::string(version) + "\n");
    // A mark that exists stays as it is.
    m.Write(failureMark, "older mark");
    m.Run(Opening(true, {"medium 1", "run <bogus component=\"libzorbus.so\"/>"}));
    EXPECT_EQ(m.Read(failureMark), "older mark");
    // No mark for a cancel of an unknown device, a command without a component name, or one that does not parse.
    m.Remove(failureMark);
    m.Run(Opening(true, {"medium 1", "run <cancelTest device=\"nothere\" test=\"t\" component=\"libzorbus.so\"/>",
                         "run <bogus/>", "run <unterminated component=\"libzorbus.so\"", "run"}));
    EXPECT_FALSE(m.Has(failureMark));
}

TEST(EntryPoints, StateFileIsWrittenAndRestoredAndADamagedOneStartsAFreshComponent) {
    FakeMachine m("");
    const Session s =
        m.Run({"translator C", "init <init persistentFilename=\"state.bin\" component=\"first.so\"/>", "file state.bin",
               "uninit <u persistentFilename=\"state.bin\"/>", "file state.bin",
               // Restored, with the name of this run (empty when not given).
               "init <init persistentFilename=\"state.bin\"/>", "callback", "run <catalog/>",
               "init <init persistentFilename=\"state.bin\" component=\"second.so\"/>", "callback", "run <catalog/>",
               // Teardown without a file name leaves the file alone.
               "uninit", "init <init/>", "uninit <u persistentFilename=\"\"/>", "file state.bin"});
    EXPECT_EQ(s.Nth("file").answer, "<no file>");
    const std::string saved = s.Nth("file", 1).answer;
    EXPECT_NE(saved.find("USBTestComponent"), std::string::npos);
    EXPECT_EQ(s.Nth("file", 2).answer, saved);
    EXPECT_EQ(s.Nth("run <catalog/>").events.at(0),
              "<diagEvent component=\"\" caption=\"Building Catalog\" description=\"\"/>");
    EXPECT_EQ(s.Nth("run <catalog/>", 1).events.at(0).find("<diagEvent component=\"second.so\" "), 0u);

    const std::string damaged[] = {
        "", "not a state file at all",
        std::string("ZORBUSPT\x01\0\0\0\x01\0\0\0\x10\0\0\0USBTestComponent\xff\xff\xff\x7f", 36),
        std::string("ZORBUSPT\x01\0\0\0\x01\0\0\0\x0a\0\0\0NoSuchThing", 27)};
    Strings script{"translator C"};
    for (size_t i = 0; i < 4; ++i) {
        m.Write("work/damaged" + std::to_string(i), damaged[i]);
        script.insert(script.end(), {"init <init persistentFilename=\"damaged" + std::to_string(i) + "\"/>",
                                     "run <getDiagVersion/>"});
    }
    const Session fresh = m.Run(script);
    for (size_t i = 0; i < 4; ++i) EXPECT_EQ(fresh.Nth("run", i).answer, version) << i;
}

// Four host threads send discoveries, catalogues, tests, cancels, version
// requests and diagnoses at once for three seconds. Every command runs and
// each answer fits its command; in the sanitizer builds the session's exit
// status also says that nothing was reported.
TEST(EntryPoints, FourThreadsSendingAMixOfCommandsAtOnce) {
    FakeMachine m("example");
    const Session s = m.Run(Opening(false, {"stress 3"}));
    std::istringstream summary(s.Nth("stress").answer);
    std::map<std::string, int> counts;
    std::string unexpected;
    for (std::string line; std::getline(summary, line);) {
        const size_t blank = line.find(' ');
        if (line.find(" -> ") != std::string::npos || blank == std::string::npos)
            unexpected += line + "\n";
        else
            counts[line.substr(0, blank)] = std::atoi(line.c_str() + blank + 1);
    }
    EXPECT_EQ(unexpected, "");
    for (const char* command : {"id", "catalog", "runTest", "cancelTest", "getDiagVersion", "runDiagnosis"})
        EXPECT_GT(counts[command], 0) << command;
}
