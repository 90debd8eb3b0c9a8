/* zorbus.h: the entry points of libzorbus.so, the USB test component.

   A host loads the library (linked, or dlopen("libzorbus.so")) and talks to
   it in XML text:

     1. optionally InitializeTCTranslator("de") and SetDataRepositoryProvider;
     2. Initialize("<initialize component=\"libzorbus.so\"/>");
     3. SetCallback(its callback), then FreeLastSetCallbackResult();
     4. any number of ExecuteXMLCommand("<catalog/>"), "<id/>", "<runTest
        device=... test=.../>", "<getDiagVersion/>" ..., each answer read
        and then released with FreeLastExecuteXMLCommandResult();
     5. Uninitialize, with "<uninitialize persistentFilename=\"FILE\"/>" to
        save the component's state in FILE (restored by the next Initialize
        that names the same file), or NULL.

   Memory: an answer belongs to the library; the host reads it, never frees
   it, and it stays valid until the matching FreeLast... call, which releases
   the most recent answer of its kind. Release nested answers (a command sent
   from inside the callback) innermost first.

   Threads: a command runs to its end on the calling thread, which also
   receives the callback's events and prompts. A cancel ("<cancelTest .../>")
   reaches a running test when sent from the callback or from another thread.
   The C entry points let no exception through.

   The callback gets each event or prompt as XML text. It returns NULL (no
   reply) or a reply that the library copies and then releases with C++
   delete[]: a reply must come from new char[], so a host written in C
   returns NULL and answers no prompt. */
#ifndef ZORBUS_H
#define ZORBUS_H

#ifdef __cplusplus
#include <string>

class DataRepository;
class TestComponent;
extern "C" {
#else
typedef struct DataRepository DataRepository;
#endif

/* The host's callback: an event or prompt in, NULL or a reply out. */
typedef char* (*ZorbusCallback)(const char* xml);

/* Creates the component (restored from the state file that initXml names in
   its persistentFilename attribute, when it exists). NULL is taken as "". */
void Initialize(const char* initXml);
/* Saves the state when xml names a persistentFilename, then destroys the
   component. NULL: destroy without saving. */
void Uninitialize(const char* xml);
/* 1 while a component exists, 0 otherwise. */
int IsInitialized(void);
/* Stores the callback; answers a status element. Needed after every
   Initialize. */
char* SetCallback(ZorbusCallback callback);
/* Runs one command element; answers the result, or an <error> element. */
char* ExecuteXMLCommand(const char* xml);
/* Release the most recent answer of SetCallback / ExecuteXMLCommand. */
void FreeLastSetCallbackResult(void);
void FreeLastExecuteXMLCommandResult(void);
/* Language of the component's texts: "de", "de_DE.UTF-8", or "de:FOLDER"
   with FOLDER holding LANG/LC_MESSAGES/zorbus.mo. Without a folder the
   catalogues are looked for beside the library, in the installed tree and
   in /usr/share/locale. */
void InitializeTCTranslator(const char* text);
/* The host's data repository, handed on opaque. */
void SetDataRepositoryProvider(DataRepository* (*provider)(void));

#ifdef __cplusplus
/* Writes "./NAME.failure.version" in factory mode on the diagnostics medium.
   C linkage, but it takes a C++ string: for C++ hosts only. */
void CreateTestComponentFailureLogFile(const std::string& componentName);
}  // extern "C"

/* C++ linkage, for C++ hosts only. Two take C++ strings: this one and
   CreateTestComponentFailureLogFile above. */
TestComponent* CreateTestComponent(const std::string& initXml);
/* The <error> element answered while no component exists. */
std::string UninitializedTCException();
#endif

#endif /* ZORBUS_H */
