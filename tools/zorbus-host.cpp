// zorbus-host: loads libzorbus.so as the diagnostics host does, initialises
// it, registers a callback that prints the component's events, and runs the
// commands named on the command line.
//
//   zorbus-host [--library PATH] [--component NAME] [--state FILE] [--debug]
//               [--language LANG] [--factory] [--diags-medium] COMMAND...
//   COMMAND: catalog | id | version | <raw XML command>
#include <dlfcn.h>
#include <limits.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

// Host services: this host decides the mode and the medium itself.
static int factoryMode = 0;
static int diagsMedium = 0;
extern "C" __attribute__((visibility("default"))) int nvxIsFactory() { return factoryMode; }
extern "C" __attribute__((visibility("default"))) int nvxIsDiagsCD() { return diagsMedium; }

namespace {

struct Api {
    void (*Initialize)(const char*);
    void (*Uninitialize)(const char*);
    char* (*SetCallback)(char* (*)(const char*));
    char* (*ExecuteXMLCommand)(const char*);
    void (*FreeLastSetCallbackResult)();
    void (*FreeLastExecuteXMLCommandResult)();
    void (*InitializeTCTranslator)(const char*);
};

std::string besideProgram(const char* file) {
    char self[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
    if (n <= 0) return file;
    self[n] = '\0';
    std::string dir(self);
    dir.erase(dir.find_last_of('/') + 1);
    return dir + file;
}

std::string xmlEscape(const std::string& text) {
    std::string out;
    for (char c : text) {
        switch (c) {
            case '&': out += "&amp;"; break;
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            case '"': out += "&quot;"; break;
            default: out += c;
        }
    }
    return out;
}

char* printEvent(const char* xml) {
    printf("event: %s\n", xml);
    fflush(stdout);
    return nullptr;
}

template <class F>
bool bind(void* handle, F& target, const char* name) {
    target = reinterpret_cast<F>(dlsym(handle, name));
    if (!target) fprintf(stderr, "zorbus-host: the library has no %s\n", name);
    return target != nullptr;
}

void usage(FILE* out) {
    fprintf(out,
            "usage: zorbus-host [options] COMMAND...\n"
            "  --library PATH    the component to load (default: libzorbus.so beside this program)\n"
            "  --component NAME  component name given at initialisation (default: libzorbus.so)\n"
            "  --state FILE      restore the state from FILE and save it there at the end\n"
            "  --language LANG   select the translation, e.g. de or de:/path/to/locale\n"
            "  --debug           turn on the component's debug output\n"
            "  --factory         run in factory mode (default: field mode)\n"
            "  --diags-medium    the machine runs from the diagnostics medium\n"
            "COMMAND: catalog, id, version, or any XML command text\n");
}

}  // namespace

int main(int argc, char** argv) {
    std::string library = besideProgram("libzorbus.so");
    std::string component = "libzorbus.so";
    std::string state;
    std::string language;
    bool debug = false;
    std::vector<std::string> commands;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        auto value = [&](const char* name) -> std::string {
            if (i + 1 >= argc) {
                fprintf(stderr, "zorbus-host: %s needs a value\n", name);
                exit(2);
            }
            return argv[++i];
        };
        if (arg == "--library") library = value("--library");
        else if (arg == "--component") component = value("--component");
        else if (arg == "--state") state = value("--state");
        else if (arg == "--language") language = value("--language");
        else if (arg == "--debug") debug = true;
        else if (arg == "--factory") factoryMode = 1;
        else if (arg == "--diags-medium") diagsMedium = 1;
        else if (arg == "--help" || arg == "-h") { usage(stdout); return 0; }
        else if (arg.rfind("--", 0) == 0) { fprintf(stderr, "zorbus-host: unknown option %s\n", arg.c_str()); usage(stderr); return 2; }
        else commands.push_back(arg);
    }
    if (commands.empty()) {
        usage(stderr);
        return 2;
    }

    void* handle = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        fprintf(stderr, "zorbus-host: cannot load %s: %s\n", library.c_str(), dlerror());
        return 3;
    }
    Api api;
    if (!bind(handle, api.Initialize, "Initialize") || !bind(handle, api.Uninitialize, "Uninitialize") ||
        !bind(handle, api.SetCallback, "SetCallback") || !bind(handle, api.ExecuteXMLCommand, "ExecuteXMLCommand") ||
        !bind(handle, api.FreeLastSetCallbackResult, "FreeLastSetCallbackResult") ||
        !bind(handle, api.FreeLastExecuteXMLCommandResult, "FreeLastExecuteXMLCommandResult") ||
        !bind(handle, api.InitializeTCTranslator, "InitializeTCTranslator"))
        return 3;

    if (!language.empty()) api.InitializeTCTranslator(language.c_str());
    std::string init = "<initialize component=\"" + xmlEscape(component) + "\"";
    if (!state.empty()) init += " persistentFilename=\"" + xmlEscape(state) + "\"";
    if (debug) init += " debugEnabled=\"1\"";
    init += "/>";
    api.Initialize(init.c_str());
    api.SetCallback(&printEvent);
    api.FreeLastSetCallbackResult();

    int status = 0;
    for (const std::string& c : commands) {
        std::string xml = c;
        if (c == "catalog") xml = "<catalog component=\"" + xmlEscape(component) + "\"/>";
        else if (c == "id") xml = "<id component=\"" + xmlEscape(component) + "\"/>";
        else if (c == "version") xml = "<getDiagVersion/>";
        char* answer = api.ExecuteXMLCommand(xml.c_str());
        printf("answer: %s\n", answer ? answer : "");
        if (answer && strncmp(answer, "<error", 6) == 0) status = 1;
        api.FreeLastExecuteXMLCommandResult();
    }

    std::string uninit = state.empty() ? std::string() : "<uninitialize persistentFilename=\"" + xmlEscape(state) + "\"/>";
    api.Uninitialize(state.empty() ? nullptr : uninit.c_str());
    return status;
}
