// Any text a host may send through the entry points: a command, an
// Initialize text or an Uninitialize text (the first byte picks which) gets
// an answer or is ignored, never a crash, an overrun or a leak.
//
// Discovery and the tests run for real here, so the target works in a
// folder of its own with do-nothing stand-ins for every program the
// component starts. A state file is the one thing a text could point at
// outside that folder: "persistentFilename" is defused before a text is
// used, and the state files have a target of their own. The target is in
// its folder only while it runs a text, so that the fuzzer's own relative
// paths (corpus, artifacts) keep their meaning.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "common/Debug.h"
#include "tc/frame/EntryPoints.h"

static char* AnswerPrompts(const char* xml) {
    static const char reply[] = "<diagPromptResponse value=\"0\"/>";
    if (!xml || std::string(xml).compare(0, 11, "<diagPrompt") != 0) return nullptr;
    char* copy = new char[sizeof reply];
    std::copy(reply, reply + sizeof reply, copy);
    return copy;
}

static void Start() {
    Initialize("<init component=\"libzorbus.so\"/>");
    SetCallback(AnswerPrompts);
    FreeLastSetCallbackResult();
}

static char folder[] = "/tmp/zorbus-fuzz-command.XXXXXX";
static int fuzzerFolder = -1;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzzerFolder = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fuzzerFolder < 0 || !mkdtemp(folder) || chdir(folder) != 0 || mkdir("stubs", 0755) != 0) std::abort();
    std::atexit([] { std::filesystem::remove_all(folder); });
    for (const char* tool :
         {"mount", "umount", "sync", "lsusb", "sg_scan", "sg_map", "sg_inq", "cp", "mkdir", "rm", "testlibusb"}) {
        const std::string path = std::string("stubs/") + tool;
        std::ofstream(path) << "#!/bin/sh\nexit 0\n";
        if (chmod(path.c_str(), 0755) != 0) std::abort();
    }
    setenv("PATH", (std::string(folder) + "/stubs").c_str(), 1);
    Start();
    if (fchdir(fuzzerFolder) != 0) std::abort();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    if (chdir(folder) != 0) std::abort();
    std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    for (size_t at = 0; (at = text.find("persistentFilename", at)) != std::string::npos;) text[at] = 'P';
    switch (data[0] % 3) {
        case 0:
            ExecuteXMLCommand(text.c_str());
            FreeLastExecuteXMLCommandResult();
            break;
        case 1:
            Initialize(text.c_str());
            SetCallback(AnswerPrompts);
            FreeLastSetCallbackResult();
            ExecuteXMLCommand("<catalog/>");
            FreeLastExecuteXMLCommandResult();
            break;
        default:
            Uninitialize(text.c_str());
            Start();
            break;
    }
    EnableDebugOutput(false);  // a text that turned it on would slow every later run
    if (fchdir(fuzzerFolder) != 0) std::abort();
    return 0;
}
