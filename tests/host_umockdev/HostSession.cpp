#include "HostSession.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

const char* const testbedMarkPath = "/proc/zorbus-testbed";
const int hostProcessor = 3;

namespace {

int factoryMode = 0;
int diagsMedium = 0;
std::FILE* transcript = nullptr;

void Record(const char* kind, const std::string& text) {
    std::fprintf(transcript, "%s %zu\n", kind, text.size());
    std::fwrite(text.data(), 1, text.size(), transcript);
    std::fputc('\n', transcript);
    // A session that dies half-way still leaves what it did.
    std::fflush(transcript);
}

char* Callback(const char* xml) {
    Record("event", xml ? xml : "<null>");
    return nullptr;
}

struct Api {
    void (*Initialize)(const char*);
    void (*Uninitialize)(const char*);
    char* (*SetCallback)(char* (*)(const char*));
    char* (*ExecuteXMLCommand)(const char*);
    void (*FreeLastSetCallbackResult)();
    void (*FreeLastExecuteXMLCommandResult)();
    void (*InitializeTCTranslator)(const char*);
};

template <class F>
bool Bind(void* handle, F& target, const char* name) {
    target = reinterpret_cast<F>(dlsym(handle, name));
    if (!target) std::fprintf(stderr, "host session: missing symbol %s\n", name);
    return target != nullptr;
}

std::string Answer(char* text) { return text ? std::string(text) : std::string("<null>"); }

}  // namespace

// Host services: this host decides the mode and the processor.
extern "C" {
__attribute__((visibility("default"))) int nvxIsFactory() { return factoryMode; }
__attribute__((visibility("default"))) int nvxIsDiagsCD() { return diagsMedium; }
__attribute__((visibility("default"))) int nvxGetCurrentCPU() { return hostProcessor; }
}

int RunHostSession(const char* scriptPath, const char* transcriptPath) {
    if (std::FILE* mark = std::fopen(testbedMarkPath, "r")) {
        std::fclose(mark);
    } else {
        std::fprintf(stderr, "host session: %s not visible; is the umockdev preload active?\n", testbedMarkPath);
        return 2;
    }
    std::ifstream script(scriptPath);
    transcript = std::fopen(transcriptPath, "w");
    if (!script || !transcript) {
        std::fprintf(stderr, "host session: cannot open the script or the transcript\n");
        return 3;
    }
    void* handle = dlopen(ZORBUS_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        std::fprintf(stderr, "host session: %s\n", dlerror());
        return 3;
    }
    Api api{};
    if (!Bind(handle, api.Initialize, "Initialize") || !Bind(handle, api.Uninitialize, "Uninitialize") ||
        !Bind(handle, api.SetCallback, "SetCallback") || !Bind(handle, api.ExecuteXMLCommand, "ExecuteXMLCommand") ||
        !Bind(handle, api.FreeLastSetCallbackResult, "FreeLastSetCallbackResult") ||
        !Bind(handle, api.FreeLastExecuteXMLCommandResult, "FreeLastExecuteXMLCommandResult") ||
        !Bind(handle, api.InitializeTCTranslator, "InitializeTCTranslator"))
        return 3;

    std::string line;
    while (std::getline(script, line)) {
        if (line.empty()) continue;
        const size_t blank = line.find(' ');
        const std::string verb = line.substr(0, blank);
        const bool hasArgument = blank != std::string::npos;
        const std::string argument = hasArgument ? line.substr(blank + 1) : std::string();
        Record("step", line);
        if (verb == "factory") {
            factoryMode = std::atoi(argument.c_str());
        } else if (verb == "medium") {
            diagsMedium = std::atoi(argument.c_str());
        } else if (verb == "translator") {
            api.InitializeTCTranslator(argument.c_str());
        } else if (verb == "init") {
            api.Initialize(argument.c_str());
        } else if (verb == "callback") {
            Record("answer", Answer(api.SetCallback(&Callback)));
            api.FreeLastSetCallbackResult();
        } else if (verb == "run") {
            Record("answer", Answer(api.ExecuteXMLCommand(argument.c_str())));
            api.FreeLastExecuteXMLCommandResult();
        } else if (verb == "file") {
            std::ifstream in(argument, std::ios::binary);
            Record("answer", in ? std::string(std::istreambuf_iterator<char>(in), {}) : std::string("<no file>"));
        } else if (verb == "uninit") {
            api.Uninitialize(hasArgument ? argument.c_str() : nullptr);
        } else {
            std::fprintf(stderr, "host session: unknown verb in \"%s\"\n", line.c_str());
            return 3;
        }
    }
    std::fclose(transcript);
    transcript = nullptr;
    // The library stays loaded to the end, as in a host; leak checks at exit
    // then still see its globals.
    return 0;
}
