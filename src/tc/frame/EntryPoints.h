// The module's exported entry points: plain C symbol names, character
// pointers in and out. Answers stay the module's until the matching
// FreeLast... call.
#pragma once

#include <deque>
#include <string>

#include "common/DataRepository.h"

class TestComponent;

extern "C" {
extern std::deque<char*> executeXMLCommandResultStack;
extern std::deque<char*> setCallbackResultStack;
extern std::string tvk_version;

void Initialize(const char* initXml);
void Uninitialize(const char* xml);
int IsInitialized();
char* SetCallback(char* (*callback)(const char* xml));
char* ExecuteXMLCommand(const char* xml);
void FreeLastSetCallbackResult();
void FreeLastExecuteXMLCommandResult();
void InitializeTCTranslator(const char* text);
void SetDataRepositoryProvider(DataRepository* (*provider)());
void CreateTestComponentFailureLogFile(const std::string& componentName);
}

// Exported too, for the module itself; they take and give C++ strings, so
// they keep C++ linkage.
TestComponent* CreateTestComponent(const std::string& initXml);
std::string UninitializedTCException();
