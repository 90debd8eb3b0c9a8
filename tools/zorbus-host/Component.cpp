#include "Component.h"

#include <dlfcn.h>
#include <limits.h>
#include <unistd.h>

#include <cstdio>

#include "Language.h"
#include "Options.h"

namespace host {

namespace {

template <class F>
bool Bind(void* handle, F& target, const char* name, std::string& error) {
    target = reinterpret_cast<F>(dlsym(handle, name));
    if (!target && error.empty()) error = Format(tr("the library has no entry point %s"), {name});
    return target != nullptr;
}

}  // namespace

bool Component::Load(const std::string& path, std::string& error) {
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        const char* why = dlerror();
        error = Format(tr("cannot load %s: %s"), {path, why ? why : "unknown reason"});
        return false;
    }
    error.clear();
    Bind(handle, Initialize, "Initialize", error);
    Bind(handle, Uninitialize, "Uninitialize", error);
    Bind(handle, SetCallback, "SetCallback", error);
    Bind(handle, ExecuteXMLCommand, "ExecuteXMLCommand", error);
    Bind(handle, FreeLastSetCallbackResult, "FreeLastSetCallbackResult", error);
    Bind(handle, FreeLastExecuteXMLCommandResult, "FreeLastExecuteXMLCommandResult", error);
    Bind(handle, InitializeTCTranslator, "InitializeTCTranslator", error);
    return error.empty();
}

std::string Component::Execute(const std::string& xml) {
    char* answer = ExecuteXMLCommand(xml.c_str());
    std::string text = answer ? answer : "";
    FreeLastExecuteXMLCommandResult();
    return text;
}

std::string ProgramFolder() {
    char self[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
    if (n <= 0) return "./";
    self[n] = '\0';
    std::string folder(self);
    return folder.erase(folder.find_last_of('/') + 1);
}

std::string DefaultLibrary() {
    const std::string beside = ProgramFolder() + "libzorbus.so";
#ifdef ZORBUS_INSTALLED_LIBRARY
    if (access(beside.c_str(), F_OK) != 0) return ProgramFolder() + ZORBUS_INSTALLED_LIBRARY;
#endif
    return beside;
}

int PrintVersion(const std::string& library, const std::string& componentName) {
    std::printf("zorbus-host %s\n", ZORBUS_VERSION);
    std::fflush(stdout);
    Component component;
    std::string error;
    if (!component.Load(library, error)) {
        std::fprintf(stderr, "zorbus-host: %s\n", error.c_str());
        return ComponentError;
    }
    component.Initialize(InitializeXml(componentName, "", false).c_str());
    Command version;
    version.kind = Command::Version;
    const std::string record = component.Execute(CommandXml(version, componentName));
    component.Uninitialize(nullptr);
    std::printf("component: %s\nlibrary: %s\n", record.c_str(), library.c_str());
    return 0;
}

}  // namespace host
