// Loads the built libzorbus.so the way a diagnostics host does and records
// what the component sends to the host's callback.
#pragma once

#include <dlfcn.h>

#include <mutex>
#include <string>
#include <vector>

class DataRepository;

struct Library {
    void* handle = nullptr;
    void (*Initialize)(const char*) = nullptr;
    void (*Uninitialize)(const char*) = nullptr;
    int (*IsInitialized)() = nullptr;
    char* (*SetCallback)(char* (*)(const char*)) = nullptr;
    char* (*ExecuteXMLCommand)(const char*) = nullptr;
    void (*FreeLastSetCallbackResult)() = nullptr;
    void (*FreeLastExecuteXMLCommandResult)() = nullptr;
    void (*InitializeTCTranslator)(const char*) = nullptr;
    void (*SetDataRepositoryProvider)(DataRepository* (*)()) = nullptr;

    static Library& Get();

    // Runs one command and releases the answer; returns its text.
    std::string Run(const std::string& xml);
    std::string InstallCallback();
};

// What the callback has seen; replies to prompts come from `answers`.
struct HostLog {
    static std::mutex lock;
    static std::vector<std::string> events;
    static std::vector<std::string> answers;
    static void Clear();
    static std::vector<std::string> Events();
    static char* Callback(const char* xml);
};

// Host services that this host defines itself (they win over the library's).
extern "C" {
extern int hostFactoryMode;
extern int hostDiagsMedium;
}
