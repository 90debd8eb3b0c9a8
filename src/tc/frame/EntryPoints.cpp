#include "tc/frame/EntryPoints.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <mutex>

#include "common/Debug.h"
#include "common/Persistent.h"
#include "common/StringUtil.h"
#include "common/Translate.h"
#include "common/TvkError.h"
#include "common/XmlObject.h"
#include "common/xmldef.h"
#include "platform/HostServices.h"
#include "platform/SystemHelpers.h"
#include "tc/frame/TestComponent.h"
#include "tc/frame/USBTestComponent.h"

extern "C" {
TestComponent* pTestComponent = nullptr;
std::deque<char*> executeXMLCommandResultStack;
std::deque<char*> setCallbackResultStack;
std::string tvk_version = "CorvaneVersion 8.6.0.3755A";
}

static const char* const versionRecord = "<diagVersion>8.6.0.3755A</diagVersion>";
static const char* const failureLogSuffix = ".failure.version";

// Overlapping commands from two host threads push and pop concurrently.
static std::mutex stackLock;

static char* pushAnswer(std::deque<char*>& stack, const std::string& answer) {
    char* copy = stringdup(answer.c_str());
    std::lock_guard<std::mutex> hold(stackLock);
    stack.push_back(copy);
    return copy;
}

static void popAnswer(std::deque<char*>& stack) {
    char* last = nullptr;
    {
        std::lock_guard<std::mutex> hold(stackLock);
        if (stack.empty()) return;
        last = stack.back();
        stack.pop_back();
    }
    delete[] last;
}

// Turns whatever escaped into the XML of a TvkError; never throws.
static std::string errorAnswer(const char* message, const std::string& detail) {
    try {
        return TvkError(message, detail, "").GetXml();
    } catch (...) {
        return "<error errorCode=\"TvkError\" key=\"Corvane internal error\"/>";
    }
}

TestComponent* CreateTestComponent(const std::string& initXml) { return new USBTestComponent(initXml); }

std::string UninitializedTCException() { return TvkError("Uninitialized Test Component", "", "").GetXml(); }

extern "C" {

// A state file that is damaged, truncated or not ours counts as missing.
static TestComponent* restoreComponent(const std::string& path) {
    try {
        iptstream in(path);
        if (!in.good()) {
            dbgprintf("State file %s is not a state file\n", path.c_str());
            return nullptr;
        }
        TestComponent* component = nullptr;
        in.ReadOwned(component);
        in.close();
        return component;
    } catch (const std::exception& e) {
        dbgprintf("State file %s not restored: %s\n", path.c_str(), e.what());
    } catch (...) {
        dbgprintf("State file %s not restored\n", path.c_str());
    }
    return nullptr;
}

void Initialize(const char* initXml) {
    try {
        Uninitialize(nullptr);
        XmlObject init;
        try {
            init = XmlObject(initXml ? initXml : "");
        } catch (const TvkError& e) {
            // Bad initialisation text still leaves a working component.
            dbgprintf("Initialize: %s %s\n", e.GetMessage().c_str(), e.GetDetail().c_str());
        }
        const std::string stateFile = init.GetAttributeValue("persistentFilename", "");
        if (!stateFile.empty() && FileExists(stateFile)) pTestComponent = restoreComponent(stateFile);
        if (!pTestComponent) pTestComponent = CreateTestComponent(initXml ? initXml : "");
        if (init.GetAttributeValue("debugEnabled", "") == "1") EnableDebugOutput(true);
        pTestComponent->componentName = init.GetAttributeValue(xmldef::component, "");
        pTestComponent->Initialize();
    } catch (const std::exception& e) {
        dbgprintf("Initialize failed: %s\n", e.what());
    } catch (...) {
        dbgprintf("Initialize failed\n");
    }
}

void Uninitialize(const char* xml) {
    TestComponent* component = pTestComponent;
    if (!component) return;
    try {
        if (xml) {
            XmlObject request(xml);
            const std::string stateFile = request.GetAttributeValue("persistentFilename", "");
            if (!stateFile.empty()) {
                optstream out(stateFile);
                out << static_cast<const Persistent*>(component);
                if (!out.close()) dbgprintf("State file %s not written\n", stateFile.c_str());
            }
        }
    } catch (const std::exception& e) {
        dbgprintf("Uninitialize: state not saved: %s\n", e.what());
    } catch (...) {
        dbgprintf("Uninitialize: state not saved\n");
    }
    try {
        component->Uninitialize();
    } catch (...) {
        dbgprintf("Uninitialize: component hook failed\n");
    }
    pTestComponent = nullptr;
    try {
        delete component;
    } catch (...) {
        dbgprintf("Uninitialize: teardown failed\n");
    }
}

int IsInitialized() { return pTestComponent ? 1 : 0; }

char* SetCallback(char* (*callback)(const char* xml)) {
    std::string answer;
    try {
        if (!pTestComponent) {
            answer = UninitializedTCException();
        } else {
            pTestComponent->eventCallback = callback;
            XmlObject output;
            output.name = xmldef::diagOutput;
            output.SetAttribute(xmldef::type, xmldef::setCallback);
            output.SetAttribute(xmldef::status, Translate("Success"));
            answer = output.GetXmlString();
        }
    } catch (...) {
        answer = errorAnswer("Corvane internal error", "SetCallback");
    }
    return pushAnswer(setCallbackResultStack, answer);
}

char* ExecuteXMLCommand(const char* xml) {
    std::string answer;
    try {
        if (!pTestComponent)
            answer = UninitializedTCException();
        else
            answer = pTestComponent->ExecuteXMLCommand(xml ? xml : "");
    } catch (const TvkError& e) {
        try {
            answer = e.GetXml();
        } catch (...) {
            answer = errorAnswer("Corvane internal error", "");
        }
    } catch (const std::exception& e) {
        answer = errorAnswer("Corvane internal error", e.what());
    } catch (...) {
        answer = errorAnswer("Corvane internal error", "");
    }
    try {
        return pushAnswer(executeXMLCommandResultStack, answer);
    } catch (...) {
        return nullptr;  // out of memory: nothing can be handed out
    }
}

void FreeLastSetCallbackResult() { popAnswer(setCallbackResultStack); }

void FreeLastExecuteXMLCommandResult() { popAnswer(executeXMLCommandResultStack); }

void InitializeTCTranslator(const char* text) {
    if (!text) return;
    try {
        TranslatorInitialize(text, false);
        TranslatorAddCatalog("rkl");
        TranslatorAddCatalog("trnhw");
        TranslatorAddCatalog("trnos");
    } catch (...) {
        dbgprintf("InitializeTCTranslator failed\n");
    }
}

void SetDataRepositoryProvider(DataRepository* (*provider)()) { setDataRepositoryProvider(provider); }

void CreateTestComponentFailureLogFile(const std::string& componentName) {
    try {
        // The name is used as a file name only: a path given as the
        // component's name cannot put the mark outside the working directory.
        const std::string fileName = componentName.substr(componentName.rfind('/') + 1);
        if (!nvxIsFactory() || !nvxIsDiagsCD() || fileName.find(".so") == std::string::npos) return;
        const std::string path = "./" + fileName + failureLogSuffix;
        if (FileExists(path)) return;
        // O_EXCL: a mark that someone else made meanwhile, or anything
        // planted at its name, stays untouched.
        int fd = OpenOwnFile(path, O_EXCL);
        if (fd < 0) return;
        std::string content = std::string(versionRecord) + "\n";
        ssize_t written = write(fd, content.data(), content.size());
        if (written != static_cast<ssize_t>(content.size())) dbgprintf("Failure log %s incomplete\n", path.c_str());
        close(fd);
    } catch (...) {
        dbgprintf("Failure log file not written\n");
    }
}

}  // extern "C"
