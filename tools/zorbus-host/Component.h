// The component's entry points, found in the loaded library by name.
#pragma once

#include <string>

namespace host {

struct Component {
    void (*Initialize)(const char*) = nullptr;
    void (*Uninitialize)(const char*) = nullptr;
    char* (*SetCallback)(char* (*)(const char*)) = nullptr;
    char* (*ExecuteXMLCommand)(const char*) = nullptr;
    void (*FreeLastSetCallbackResult)() = nullptr;
    void (*FreeLastExecuteXMLCommandResult)() = nullptr;
    void (*InitializeTCTranslator)(const char*) = nullptr;

    // dlopen and bind every entry point; on failure `error` says why.
    bool Load(const std::string& path, std::string& error);
    // Runs one command and releases the answer, innermost first as the
    // component expects; returns the answer's text.
    std::string Execute(const std::string& xml);
};

// The folder of this program, with a trailing slash.
std::string ProgramFolder();

}  // namespace host
