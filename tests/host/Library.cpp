#include "Library.h"

#include <cstring>
#include <stdexcept>

extern "C" {
int hostFactoryMode = 0;
int hostDiagsMedium = 0;
__attribute__((visibility("default"))) int nvxIsFactory() { return hostFactoryMode; }
__attribute__((visibility("default"))) int nvxIsDiagsCD() { return hostDiagsMedium; }
}

template <class F>
static void bind(void* handle, F& target, const char* name) {
    void* symbol = dlsym(handle, name);
    if (!symbol) throw std::runtime_error(std::string("missing symbol ") + name);
    target = reinterpret_cast<F>(symbol);
}

Library& Library::Get() {
    static Library library = [] {
        Library l;
        l.handle = dlopen(ZORBUS_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
        if (!l.handle) throw std::runtime_error(dlerror());
        bind(l.handle, l.Initialize, "Initialize");
        bind(l.handle, l.Uninitialize, "Uninitialize");
        bind(l.handle, l.IsInitialized, "IsInitialized");
        bind(l.handle, l.SetCallback, "SetCallback");
        bind(l.handle, l.ExecuteXMLCommand, "ExecuteXMLCommand");
        bind(l.handle, l.FreeLastSetCallbackResult, "FreeLastSetCallbackResult");
        bind(l.handle, l.FreeLastExecuteXMLCommandResult, "FreeLastExecuteXMLCommandResult");
        bind(l.handle, l.InitializeTCTranslator, "InitializeTCTranslator");
        bind(l.handle, l.SetDataRepositoryProvider, "SetDataRepositoryProvider");
        return l;
    }();
    return library;
}

std::string Library::Run(const std::string& xml) {
    char* answer = ExecuteXMLCommand(xml.c_str());
    std::string text = answer ? answer : "<null>";
    FreeLastExecuteXMLCommandResult();
    return text;
}

std::string Library::InstallCallback() {
    char* answer = SetCallback(&HostLog::Callback);
    std::string text = answer ? answer : "<null>";
    FreeLastSetCallbackResult();
    return text;
}

std::mutex HostLog::lock;
std::vector<std::string> HostLog::events;
std::vector<std::string> HostLog::answers;

void HostLog::Clear() {
    std::lock_guard<std::mutex> hold(lock);
    events.clear();
    answers.clear();
}

std::vector<std::string> HostLog::Events() {
    std::lock_guard<std::mutex> hold(lock);
    return events;
}

char* HostLog::Callback(const char* xml) {
    std::lock_guard<std::mutex> hold(lock);
    events.emplace_back(xml);
    if (strncmp(xml, "<diagPrompt", 11) != 0 || answers.empty()) return nullptr;
    std::string reply = answers.front();
    answers.erase(answers.begin());
    char* copy = new char[reply.size() + 1];
    memcpy(copy, reply.c_str(), reply.size() + 1);
    return copy;
}
