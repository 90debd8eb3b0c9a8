// The module's exported entry points: plain C symbol names, character
// pointers in and out. Answers stay the module's until the matching
// FreeLast... call.
#pragma once

#include <deque>
#include <string>

#include "common/DataRepository.h"
#include "tc/frame/Export.h"

class TestComponent;

extern "C" {
extern ZORBUS_EXPORT std::deque<char*> executeXMLCommandResultStack;
extern ZORBUS_EXPORT std::deque<char*> setCallbackResultStack;
extern ZORBUS_EXPORT std::string tvk_version;

ZORBUS_EXPORT void Initialize(const char* initXml);
ZORBUS_EXPORT void Uninitialize(const char* xml);
ZORBUS_EXPORT int IsInitialized();
ZORBUS_EXPORT char* SetCallback(char* (*callback)(const char* xml));
ZORBUS_EXPORT char* ExecuteXMLCommand(const char* xml);
ZORBUS_EXPORT void FreeLastSetCallbackResult();
ZORBUS_EXPORT void FreeLastExecuteXMLCommandResult();
ZORBUS_EXPORT void InitializeTCTranslator(const char* text);
ZORBUS_EXPORT void SetDataRepositoryProvider(DataRepository* (*provider)());
ZORBUS_EXPORT void CreateTestComponentFailureLogFile(const std::string& componentName);
}

// Exported too, for the module itself; they take and give C++ strings, so
// they keep C++ linkage.
ZORBUS_EXPORT TestComponent* CreateTestComponent(const std::string& initXml);
ZORBUS_EXPORT std::string UninitializedTCException();
