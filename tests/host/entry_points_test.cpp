// The C entry points and the command dispatcher, driven through the built
// library exactly as a host drives them.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "Library.h"

namespace {

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

bool exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

const char* const uninitialized =
    "<error errorCode=\"TvkError\" key=\"Uninitialized Test Component\" detail=\"\">"
    "Uninitialized Test Component</error>";
const char* const version = "<diagVersion>8.6.0.3755A</diagVersion>";

class EntryPoints : public ::testing::Test {
protected:
    Library& lib = Library::Get();
    std::string oldDir;
    std::string oldPath;
    std::string dir;

    void SetUp() override {
        lib.Uninitialize(nullptr);
        lib.InitializeTCTranslator("C");
        HostLog::Clear();
        hostFactoryMode = 0;
        hostDiagsMedium = 0;
        char cwd[4096];
        ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
        oldDir = cwd;
        char pattern[] = "/tmp/zorbus-host-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
        ASSERT_EQ(chdir(dir.c_str()), 0);
        // Discovery runs mount and lsusb; here they are stubs that do and
        // print nothing, so this machine's own USB never shows.
        ASSERT_EQ(mkdir("stubs", 0755), 0);
        for (const char* tool : {"mount", "lsusb", "sync"}) {
            std::string path = dir + "/stubs/" + tool;
            { std::ofstream(path) << "#!/bin/sh\nexit 0\n"; }
            ASSERT_EQ(chmod(path.c_str(), 0755), 0);
        }
        oldPath = getenv("PATH") ? getenv("PATH") : "";
        setenv("PATH", (dir + "/stubs:" + oldPath).c_str(), 1);
    }

    void TearDown() override {
        setenv("PATH", oldPath.c_str(), 1);
        lib.Uninitialize(nullptr);
        lib.InitializeTCTranslator("C");
        EXPECT_EQ(chdir(oldDir.c_str()), 0);
        std::string cleanup = "rm -rf '" + dir + "'";
        EXPECT_EQ(system(cleanup.c_str()), 0);
    }

    void Start(const std::string& init = "<init component=\"libzorbus.so\"/>") {
        lib.Initialize(init.c_str());
        ASSERT_EQ(lib.IsInitialized(), 1);
        lib.InstallCallback();
        HostLog::Clear();
    }
};

TEST_F(EntryPoints, WhatWorksBeforeAndAfterInitialize) {
    EXPECT_EQ(lib.IsInitialized(), 0);
    EXPECT_EQ(lib.InstallCallback(), uninitialized);
    EXPECT_EQ(lib.Run("<getDiagVersion/>"), uninitialized);
    lib.Uninitialize("<<< not even parsed");
    EXPECT_EQ(lib.IsInitialized(), 0);
    lib.FreeLastExecuteXMLCommandResult();  // empty stacks: nothing happens
    lib.FreeLastSetCallbackResult();

    lib.Initialize("<init/>");
    EXPECT_EQ(lib.IsInitialized(), 1);
    EXPECT_EQ(lib.InstallCallback(), "<diagOutput type=\"setCallback\" status=\"Success\"/>");

    // A second Initialize discards the component and with it the callback.
    lib.Initialize("<init/>");
    EXPECT_EQ(lib.IsInitialized(), 1);
    HostLog::Clear();
    EXPECT_NE(lib.Run("<nonsense/>").find("Invalid Command"), std::string::npos);
    EXPECT_TRUE(HostLog::Events().empty());

    lib.Uninitialize(nullptr);
    EXPECT_EQ(lib.IsInitialized(), 0);
}

TEST_F(EntryPoints, VersionRecordAndInvalidCommand) {
    Start();
    EXPECT_EQ(lib.Run("<getDiagVersion/>"), version);
    EXPECT_EQ(lib.Run("<GETDIAGVERSION component=\"x\"/>"), version);
    EXPECT_TRUE(HostLog::Events().empty());

    EXPECT_EQ(lib.Run("<frobnicate/>"),
              "<error errorCode=\"TvkError\" key=\"Invalid Command\" detail=\"frobnicate\">"
              "Invalid Command: frobnicate</error>");
    ASSERT_EQ(HostLog::Events().size(), 1u);
    EXPECT_EQ(HostLog::Events()[0],
              "<diagEvent component=\"libzorbus.so\" caption=\"Error\" "
              "description=\"TvkError - Invalid Command;Invalid Command: frobnicate\"/>");
    // A keyword is matched over its whole length only.
    EXPECT_NE(lib.Run("<getDiagVersions/>").find("Invalid Command"), std::string::npos);
    EXPECT_NE(lib.Run("<catalo/>").find("Invalid Command"), std::string::npos);
}

TEST_F(EntryPoints, UnknownDeviceAnswers) {
    Start();
    const std::string notFound =
        "<error errorCode=\"TvkError\" key=\"Device not found\" detail=\"usbDevice9\" "
        "reference=\"frontEnd, frontEnd\">Device not found: usbDevice9</error>";
    EXPECT_EQ(lib.Run("<runTest device=\"usbDevice9\" test=\"rootHubTest\" component=\"c.so\"/>"),
              "<testResult device=\"usbDevice9\" test=\"rootHubTest\" component=\"c.so\" currentState=\"failed\">" +
                  notFound + "</testResult>");
    EXPECT_EQ(lib.Run("<RunDiagnosis device=\"usbDevice9\" component=\"c.so\"/>"),
              "<diagOutput type=\"diagnosisResult\" component=\"c.so\" device=\"usbDevice9\" currentState=\"failed\">" +
                  notFound + "</diagOutput>");
    // A cancel of an unknown device is answered, not treated as an error.
    EXPECT_EQ(lib.Run("<cancelTest device=\"usbDevice9\" test=\"t\"/>"),
              "<testResult device=\"usbDevice9\" test=\"t\" component=\"\">"
              "<error errorCode=\"TvkError\" key=\"Device not found\" detail=\"usbDevice9\">"
              "Device not found: usbDevice9</error></testResult>");
    EXPECT_TRUE(HostLog::Events().empty());

    EXPECT_EQ(lib.Run("<deviceAction device=\"usbDevice9\"/>"), "");
    EXPECT_EQ(lib.Run("<diagRunBegin><diagRun a=\"1\"/><diagRun a=\"2\"/></diagRunBegin>"), "");
    EXPECT_EQ(lib.Run("<diagRunEnd/>"), "");
    EXPECT_TRUE(HostLog::Events().empty());
}

TEST_F(EntryPoints, CatalogAndDiscoverySendTheirEvents) {
    Start();
    std::string catalog = lib.Run("<Catalog/>");
    EXPECT_EQ(catalog.rfind("<catResult", 0), 0u) << catalog;
    ASSERT_FALSE(HostLog::Events().empty());
    EXPECT_EQ(HostLog::Events()[0], "<diagEvent component=\"libzorbus.so\" caption=\"Building Catalog\" description=\"\"/>");

    // No devices file and an lsusb that lists nothing: discovery fails.
    HostLog::Clear();
    std::string id = lib.Run("<id/>");
    EXPECT_EQ(id, "<error errorCode=\"TvkError\" key=\"Device Failed Enumeration\" detail=\"\">"
                  "Device Failed Enumeration</error>");
    ASSERT_EQ(HostLog::Events().size(), 2u);
    EXPECT_EQ(HostLog::Events()[0],
              "<diagEvent component=\"libzorbus.so\" caption=\"Device Discovery Started\" description=\"\"/>");
    EXPECT_EQ(HostLog::Events()[1],
              "<diagEvent component=\"libzorbus.so\" caption=\"Error\" "
              "description=\"TvkError - Device Failed Enumeration;Device Failed Enumeration\"/>");
}

TEST_F(EntryPoints, AnswersStayValidUntilReleasedInnermostFirst) {
    Start();
    char* first = lib.ExecuteXMLCommand("<getDiagVersion/>");
    char* second = lib.ExecuteXMLCommand("<nonsense/>");
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first, second);
    lib.FreeLastExecuteXMLCommandResult();  // releases the second answer
    EXPECT_STREQ(first, version);
    lib.FreeLastExecuteXMLCommandResult();
    lib.FreeLastExecuteXMLCommandResult();  // empty again: nothing happens

    char* empty = lib.ExecuteXMLCommand("<deviceAction/>");
    ASSERT_NE(empty, nullptr);
    EXPECT_STREQ(empty, "");
    lib.FreeLastExecuteXMLCommandResult();
}

TEST_F(EntryPoints, MalformedInputGetsAnErrorAnswer) {
    hostFactoryMode = hostDiagsMedium = 1;
    Start();
    for (const char* bad : {"<unterminated component=\"libzorbus.so\"", "", "plain text", "<a></b>"}) {
        std::string answer = lib.Run(bad);
        EXPECT_EQ(answer.rfind("<error errorCode=\"TvkError\" key=\"Malformed XML\"", 0), 0u) << bad << " -> " << answer;
    }
    char* answer = lib.ExecuteXMLCommand(nullptr);
    ASSERT_NE(answer, nullptr);
    EXPECT_NE(std::string(answer).find("Malformed XML"), std::string::npos);
    lib.FreeLastExecuteXMLCommandResult();
    // A text that does not parse never reaches the error path of a command.
    EXPECT_TRUE(HostLog::Events().empty());
    EXPECT_FALSE(exists("libzorbus.so.failure.version"));

    lib.Initialize("this is not xml");
    EXPECT_EQ(lib.IsInitialized(), 1);
    lib.Initialize(nullptr);
    EXPECT_EQ(lib.IsInitialized(), 1);
    EXPECT_EQ(lib.Run("<getDiagVersion/>"), version);
}

TEST_F(EntryPoints, FailureLogFileOnlyInFactoryRunsFromTheMedium) {
    const std::string mark = "libzorbus.so.failure.version";
    const struct {
        int factory, medium;
        const char* component;
        bool written;
    } cases[] = {
        {1, 1, "libzorbus.so", true},
        {0, 1, "libzorbus.so", false},
        {1, 0, "libzorbus.so", false},
        {1, 1, "libzorbus", false},
    };
    for (const auto& c : cases) {
        hostFactoryMode = c.factory;
        hostDiagsMedium = c.medium;
        Start();
        lib.Run(std::string("<bogus component=\"") + c.component + "\"/>");
        EXPECT_EQ(exists(std::string(c.component) + ".failure.version"), c.written)
            << c.factory << c.medium << c.component;
        unlink(mark.c_str());
    }

    hostFactoryMode = hostDiagsMedium = 1;
    Start();
    lib.Run("<runTest device=\"nothere\" test=\"t\" component=\"libzorbus.so\"/>");
    EXPECT_EQ(readFile(mark), std::string(version) + "\n");

    // A mark that exists stays as it is.
    { std::ofstream(mark) << "older mark"; }
    lib.Run("<bogus component=\"libzorbus.so\"/>");
    EXPECT_EQ(readFile(mark), "older mark");
    unlink(mark.c_str());

    // A cancel of an unknown device is no failure; a command without a
    // component name never leaves a mark.
    lib.Run("<cancelTest device=\"nothere\" test=\"t\" component=\"libzorbus.so\"/>");
    lib.Run("<bogus/>");
    EXPECT_FALSE(exists(mark));
}

TEST_F(EntryPoints, StateFileIsWrittenAndRestored) {
    Start("<init persistentFilename=\"state.bin\" component=\"first.so\"/>");
    EXPECT_FALSE(exists("state.bin"));
    lib.Uninitialize("<u persistentFilename=\"state.bin\"/>");
    ASSERT_TRUE(exists("state.bin"));
    const std::string saved = readFile("state.bin");

    // Restored, with the name of this run (empty when not given).
    Start("<init persistentFilename=\"state.bin\"/>");
    lib.Run("<catalog/>");
    ASSERT_FALSE(HostLog::Events().empty());
    EXPECT_EQ(HostLog::Events()[0].find("<diagEvent component=\"\""), 0u) << HostLog::Events()[0];
    HostLog::Clear();
    lib.Initialize("<init persistentFilename=\"state.bin\" component=\"second.so\"/>");
    lib.InstallCallback();
    lib.Run("<catalog/>");
    ASSERT_FALSE(HostLog::Events().empty());
    EXPECT_EQ(HostLog::Events()[0].find("<diagEvent component=\"second.so\""), 0u);

    // Teardown without a file name leaves the file alone.
    lib.Uninitialize(nullptr);
    EXPECT_EQ(readFile("state.bin"), saved);
    lib.Initialize("<init/>");
    lib.Uninitialize("<u persistentFilename=\"\"/>");
    EXPECT_EQ(readFile("state.bin"), saved);
}

TEST_F(EntryPoints, DamagedStateFileStartsAFreshComponent) {
    const std::string damaged[] = {
        "",
        "not a state file at all",
        std::string("ZORBUSPT\x01\0\0\0\x01\0\0\0\x10\0\0\0USBTestComponent\xff\xff\xff\x7f", 36),
        std::string("ZORBUSPT\x01\0\0\0\x01\0\0\0\x0a\0\0\0NoSuchThing", 27),
    };
    for (const std::string& bytes : damaged) {
        { std::ofstream("state.bin", std::ios::binary) << bytes; }
        Start("<init persistentFilename=\"state.bin\" component=\"libzorbus.so\"/>");
        EXPECT_EQ(lib.Run("<getDiagVersion/>"), version);
        lib.Uninitialize(nullptr);
    }
}

TEST(Library, ExportsItsEntryPointsAndHidesPugixml) {
    Library& lib = Library::Get();
    for (const char* name : {"pTestComponent", "executeXMLCommandResultStack", "setCallbackResultStack",
                             "tvk_version", "CreateTestComponentFailureLogFile", "nvxIsFactory", "nvxIsDiagsCD",
                             "_Z19CreateTestComponentRKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE",
                             "_Z24UninitializedTCExceptionB5cxx11v"})
        EXPECT_NE(dlsym(lib.handle, name), nullptr) << name;
    // A host with a pugixml of its own must not meet ours.
    EXPECT_EQ(dlsym(lib.handle, "_ZN4pugi12xml_documentC1Ev"), nullptr);
    EXPECT_EQ(dlsym(lib.handle, "_ZN4pugi12xml_document11load_stringEPKcj"), nullptr);
}

TEST_F(EntryPoints, TranslatorFollowsTheSelectedLanguage) {
    lib.InitializeTCTranslator(nullptr);
    Start();
    EXPECT_EQ(lib.InstallCallback(), "<diagOutput type=\"setCallback\" status=\"Success\"/>");

    const std::string german = std::string("de_DE.UTF-8:") + ZORBUS_BINARY_DIR + "/locale";
    lib.InitializeTCTranslator(german.c_str());
    Start();  // the component adds its own catalogue in Initialize
    EXPECT_EQ(lib.InstallCallback(), "<diagOutput type=\"setCallback\" status=\"Erfolg\"/>");
    lib.Run("<catalog/>");
    ASSERT_FALSE(HostLog::Events().empty());
    EXPECT_NE(HostLog::Events()[0].find("caption=\"Katalog wird erstellt\""), std::string::npos)
        << HostLog::Events()[0];
}

}  // namespace
