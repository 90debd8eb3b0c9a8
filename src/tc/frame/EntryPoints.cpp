#include "tc/frame/EntryPoints.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

#include "common/Debug.h"
#include "common/Persistent.h"
#include "common/StringUtil.h"
#include "common/Translate.h"
#include "common/TvkError.h"
#include "common/XmlObject.h"
#include "common/xmldef.h"
#include "platform/HostServices.h"
#include "platform/SystemHelpers.h"
#include "tc/frame/CommandGate.h"
#include "tc/frame/TestComponent.h"
#include "tc/frame/USBTestComponent.h"
#include "tc/frame/Version.h"

extern "C" {
TestComponent* pTestComponent = nullptr;
std::deque<char*> executeXMLCommandResultStack;
std::deque<char*> setCallbackResultStack;
std::string tvk_version = "CorvaneVersion " ZORBUS_COMPONENT_VERSION;
}

static const char* const failureLogSuffix = ".failure.version";

// ---- answers handed to the host ----

// Overlapping commands from two host threads push and pop concurrently. Each
// answer remembers the thread it was handed to, so that a release takes that
// thread's latest answer; nested calls of one thread still go innermost first.
static std::mutex stackLock;
static std::vector<std::thread::id> executeAnswerThreads;
static std::vector<std::thread::id> callbackAnswerThreads;

static char* pushAnswer(std::deque<char*>& stack, std::vector<std::thread::id>& threads, const std::string& answer) {
    // The host reads up to the first NUL, as with any C string.
    char* copy = new char[answer.size() + 1];
    std::memcpy(copy, answer.c_str(), answer.size() + 1);
    std::lock_guard<std::mutex> hold(stackLock);
    try {
        threads.push_back(std::this_thread::get_id());
        try {
            stack.push_back(copy);
        } catch (...) {
            threads.pop_back();
            throw;
        }
    } catch (...) {
        delete[] copy;
        throw;
    }
    return copy;
}

// The latest answer of the calling thread, or, for a thread that has none of
// its own, the latest of all.
static void popAnswer(std::deque<char*>& stack, std::vector<std::thread::id>& threads) {
    char* last = nullptr;
    {
        std::lock_guard<std::mutex> hold(stackLock);
        if (stack.empty()) return;
        const std::thread::id self = std::this_thread::get_id();
        size_t at = stack.size() - 1;
        if (threads[at] != self) {
            for (size_t i = at; i-- > 0;) {
                if (threads[i] == self) {
                    at = i;
                    break;
                }
            }
        }
        last = stack[at];
        if (at + 1 == stack.size()) {  // as a rule
            stack.pop_back();
            threads.pop_back();
        } else {
            stack.erase(stack.begin() + static_cast<std::ptrdiff_t>(at));
            threads.erase(threads.begin() + static_cast<std::ptrdiff_t>(at));
        }
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

// ---- texts from the host ----

// A text that would cost more than these to parse is refused unread: its
// bytes, its tags ("<") and its attributes ("=") bound the memory of the
// parse and of the element tree, which for the largest text accepted stays
// within 20 times its size. The largest real text, a discovery answer of a
// machine of 4,064 devices in factory mode (4.2 MB, some 37,000 tags and
// 187,000 attributes), stays well below each.
static const size_t maxTextBytes = 16u << 20;
static const size_t maxTextTags = 1u << 19;
static const size_t maxTextAttributes = 1u << 20;

// Empty when `text` may be parsed; otherwise the detail of the refusal.
// `length` is the text's, when it is accepted.
static std::string oversize(const char* text, size_t& length) {
    length = strnlen(text, maxTextBytes + 1);
    if (length > maxTextBytes) return strprintf("more than %zu bytes", maxTextBytes);
    if (length <= maxTextTags) return std::string();  // too short to exceed either count
    size_t tags = 0;
    size_t attributes = 0;
    for (const char* p = text; *p; ++p) {
        tags += *p == '<';
        attributes += *p == '=';
    }
    if (tags > maxTextTags) return strprintf("%zu tags, at most %zu", tags, maxTextTags);
    if (attributes > maxTextAttributes) return strprintf("%zu attributes, at most %zu", attributes, maxTextAttributes);
    return std::string();
}

// The command's own name, for a refusal's detail; what stands after "<".
static std::string commandName(const char* text) {
    const char* open = std::strchr(text, '<');
    while (open && (open[1] == '?' || open[1] == '!')) open = std::strchr(open + 1, '<');
    if (!open) return std::string();
    size_t length = 0;
    while (length < 64 && open[1 + length] && !std::strchr(" \t\r\n/>", open[1 + length])) ++length;
    return std::string(open + 1, length);
}

TestComponent* CreateTestComponent(const std::string& initXml) { return new USBTestComponent(initXml); }

std::string UninitializedTCException() { return TvkError("Uninitialized Test Component", "", "").GetXml(); }

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

// Saves when `xml` names a state file, then tears the component down. The
// caller holds both locks.
static void uninitializeHeld(const char* xml) {
    TestComponent* component = pTestComponent;
    if (!component) return;
    try {
        size_t length = 0;
        if (xml && oversize(xml, length).empty()) {
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

extern "C" {

void Initialize(const char* initXml) {
    try {
        commandgate::CommandPass pass;
        // Called back from inside a command that works on the devices, the
        // component stays: replacing it would pull it from under that command.
        if (!pass.Granted() || !commandgate::MayReplaceDevices()) {
            dbgprintf("Initialize refused: a command of this thread is running\n");
            return;
        }
        commandgate::DevicePass devices;
        uninitializeHeld(nullptr);
        const char* text = initXml ? initXml : "";
        XmlObject init;
        try {
            size_t length = 0;
            const std::string refusal = oversize(text, length);
            if (!refusal.empty()) throw TvkError("Command too large", refusal, "");
            init = XmlObject(text);
        } catch (const TvkError& e) {
            // Bad initialisation text still leaves a working component.
            dbgprintf("Initialize: %s %s\n", e.GetMessage().c_str(), e.GetDetail().c_str());
            text = "";
        }
        const std::string stateFile = init.GetAttributeValue("persistentFilename", "");
        if (!stateFile.empty() && FileExists(stateFile)) pTestComponent = restoreComponent(stateFile);
        if (!pTestComponent) pTestComponent = CreateTestComponent(text);
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
    try {
        commandgate::CommandPass pass;
        if (!pass.Granted() || !commandgate::MayReplaceDevices()) {
            dbgprintf("Uninitialize refused: a command of this thread is running\n");
            return;
        }
        commandgate::DevicePass devices;
        uninitializeHeld(xml);
    } catch (...) {
        dbgprintf("Uninitialize failed\n");
    }
}

int IsInitialized() {
    try {
        commandgate::DevicePass devices;
        return pTestComponent ? 1 : 0;
    } catch (...) {
        return 0;
    }
}

char* SetCallback(char* (*callback)(const char* xml)) {
    std::string answer;
    try {
        commandgate::CommandPass pass;
        if (!pass.Granted()) {
            answer = errorAnswer("Test Component Busy", "SetCallback");
        } else if (!pTestComponent) {
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
    try {
        return pushAnswer(setCallbackResultStack, callbackAnswerThreads, answer);
    } catch (...) {
        return nullptr;  // out of memory: nothing can be handed out
    }
}

// The component's answer to `length` characters of `xml`; the caller holds
// what keeps the component alive.
static std::string dispatch(const char* xml, size_t length) {
    if (!pTestComponent) return UninitializedTCException();
    return pTestComponent->ExecuteXMLCommand(std::string(xml, length));
}

char* ExecuteXMLCommand(const char* xml) {
    std::string answer;
    try {
        const char* text = xml ? xml : "";
        size_t length = 0;
        const std::string refusal = oversize(text, length);
        if (!refusal.empty()) {
            answer = TvkError("Command too large", refusal, "").GetXml();
        } else if (commandgate::IsCancelText(text)) {
            // A cancel overtakes a running test: the device lock keeps the
            // component and its devices, the command lock is not waited for.
            commandgate::DevicePass devices;
            answer = dispatch(text, length);
        } else {
            commandgate::CommandPass pass;
            if (pass.Granted())
                answer = dispatch(text, length);
            else
                answer = TvkError("Test Component Busy", commandName(text), "").GetXml();
        }
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
        return pushAnswer(executeXMLCommandResultStack, executeAnswerThreads, answer);
    } catch (...) {
        return nullptr;  // out of memory: nothing can be handed out
    }
}

void FreeLastSetCallbackResult() {
    try {
        popAnswer(setCallbackResultStack, callbackAnswerThreads);
    } catch (...) {
    }
}

void FreeLastExecuteXMLCommandResult() {
    try {
        popAnswer(executeXMLCommandResultStack, executeAnswerThreads);
    } catch (...) {
    }
}

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
        if (!nvxIsFactory() || !nvxIsDiagsCD()) return;
        // The name is used as a file name only: a path given as the
        // component's name cannot put the mark outside the working directory.
        const std::string fileName = componentName.substr(componentName.rfind('/') + 1);
        if (fileName.find(".so") == std::string::npos) return;
        const std::string path = "./" + fileName + failureLogSuffix;
        if (FileExists(path)) return;
        // O_EXCL: a mark that someone else made meanwhile, or anything
        // planted at its name, stays untouched.
        int fd = OpenOwnFile(path, O_EXCL);
        if (fd < 0) return;
        std::string content = std::string(diagVersionRecord) + "\n";
        ssize_t written = write(fd, content.data(), content.size());
        if (written != static_cast<ssize_t>(content.size())) dbgprintf("Failure log %s incomplete\n", path.c_str());
        close(fd);
    } catch (...) {
        dbgprintf("Failure log file not written\n");
    }
}

}  // extern "C"
