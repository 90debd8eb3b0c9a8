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

// The library loaded without --library: libzorbus.so beside the program (a
// build folder), else the one of the tree the program is installed in.
std::string DefaultLibrary();

// --version: this program's version, then the version record of the
// component in `library`. Returns the exit status: 0, or 3 when the
// component cannot be loaded.
int PrintVersion(const std::string& library, const std::string& componentName);

}  // namespace host
