/* The smallest host of the USB test component: links libzorbus.so, asks for
   the component's version record and catalogue, prints both answers and the
   events that came with them.

       zorbus-example [LANGUAGE]      e.g. zorbus-example de */
#include <stdio.h>
#include <zorbus.h>

/* Events arrive on the thread that sent the command. A C host has no
   new char[] to reply with, so it answers nothing. */
static char* on_event(const char* xml) {
    printf("event: %s\n", xml);
    return NULL;
}

int main(int argc, char** argv) {
    static const char* const commands[] = {
        "<getDiagVersion component=\"libzorbus.so\"/>",
        "<catalog component=\"libzorbus.so\"/>",
    };
    if (argc > 1) InitializeTCTranslator(argv[1]);
    Initialize("<initialize component=\"libzorbus.so\"/>");
    if (!IsInitialized()) return 1;
    SetCallback(on_event);
    FreeLastSetCallbackResult();
    for (size_t i = 0; i < sizeof commands / sizeof commands[0]; ++i) {
        const char* answer = ExecuteXMLCommand(commands[i]);
        printf("answer: %s\n", answer ? answer : "(none)");
        FreeLastExecuteXMLCommandResult(); /* the answer is gone from here on */
    }
    Uninitialize(NULL);
    return 0;
}
