// zorbus-host: loads libzorbus.so as the diagnostics host does, initialises
// it, answers its events and prompts, and runs the commands named on the
// command line. `zorbus-host --help` tells the options and exit statuses.
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <pugixml.hpp>
#include <string>
#include <vector>

#include "Component.h"
#include "Display.h"
#include "KernelPaths.h"
#include "Options.h"
#include "PromptAnswer.h"
#include "Report.h"

// Host services: this host decides the mode and the medium itself.
static int factoryMode = 0;
static int diagsMedium = 0;
extern "C" __attribute__((visibility("default"))) int nvxIsFactory() { return factoryMode; }
extern "C" __attribute__((visibility("default"))) int nvxIsDiagsCD() { return diagsMedium; }

namespace {

enum ExitStatus { Success = 0, NotPassed = 1, UsageError = 2, ComponentError = 3, NoAnswer = 4, NoKernelPaths = 5 };

host::Component component;
host::Options options;
host::Display* display = nullptr;
host::Report report;  // --junit, --json
size_t nextAnswer = 0;

// Ctrl-C during a test: the cancel goes to the component with the test's
// next event, from inside the callback, where a nested command is safe.
volatile sig_atomic_t testRunning = 0;
volatile sig_atomic_t cancelWanted = 0;
const host::Command* runningTest = nullptr;
bool cancelShown = false;

void OnInterrupt(int) {
    if (testRunning && !cancelWanted) {
        cancelWanted = 1;
        const char note[] = "\nzorbus-host: cancel requested; the test stops before its next try (Ctrl-C again ends the program)\n";
        ssize_t ignored = write(STDERR_FILENO, note, sizeof note - 1);
        (void)ignored;
        return;
    }
    signal(SIGINT, SIG_DFL);
    raise(SIGINT);
}

char* HostReply(const std::string& text) {
    char* copy = new char[text.size() + 1];
    std::memcpy(copy, text.c_str(), text.size() + 1);
    return copy;
}

[[noreturn]] void StopForAnswer(const std::string& why) {
    if (display) display->EndBar();
    std::fflush(stdout);
    std::fprintf(stderr, "zorbus-host: %s\n", why.c_str());
    std::fflush(stderr);
    report.Stop(why);
    report.Finish(NoAnswer);
    // The component is inside the test and waits for this reply; leaving
    // here is the only way not to answer for the operator.
    _exit(NoAnswer);
}

std::string PromptReply(const std::string& xml) {
    pugi::xml_document document;
    document.load_string(xml.c_str());
    const pugi::xml_node prompt = document.document_element();
    std::vector<std::string> buttons;
    for (const pugi::xml_node& option : prompt.children("option")) buttons.push_back(option.attribute("caption").value());
    const bool buttonPrompt = std::string(prompt.attribute("type").value()) == "button";
    std::string question = prompt.text().get();
    const std::string title = prompt.attribute("titleCaption").value();
    std::string where = prompt.attribute("test").value();
    if (!std::string(prompt.attribute("device").value()).empty()) where += std::string(" on ") + prompt.attribute("device").value();

    if (display->Raw()) {
        display->Event(xml);
    } else {
        display->EndBar();
        display->Line("prompt (" + where + "): " + (title.find_first_not_of(' ') != std::string::npos ? title + ": " : "") +
                      question);
        for (size_t i = 0; i < buttons.size(); ++i) display->Line("  " + std::to_string(i + 1) + ") " + buttons[i]);
    }
    host::PromptChoice choice;
    if (nextAnswer < options.answers.size()) {
        const std::string given = options.answers[nextAnswer++];
        choice = host::ChoosePromptAnswer(given, buttons, buttonPrompt);
        if (!choice.valid) StopForAnswer("--answer=" + given + " does not answer the prompt: " + choice.error);
        if (!display->Raw()) display->Line("answer: " + given + " (from --answer)");
    } else if (isatty(STDIN_FILENO)) {
        for (;;) {
            std::fputs(buttonPrompt && !buttons.empty() ? "answer (number or caption): " : "answer: ", stdout);
            std::fflush(stdout);
            std::string line;
            if (!std::getline(std::cin, line)) StopForAnswer("no answer: standard input ended at a prompt");
            choice = host::ChoosePromptAnswer(line, buttons, buttonPrompt);
            if (choice.valid) break;
            std::printf("%s\n", choice.error.c_str());
        }
    } else {
        StopForAnswer("the component asks \"" + question +
                      "\", but no --answer is left and standard input is no terminal; give one --answer=... per prompt");
    }
    const std::string reply = "<diagPromptResponse value=\"" + host::XmlEscape(choice.value) + "\"/>";
    if (display->Raw()) display->Line("reply: " + reply);
    return reply;
}

// Sends the cancel that Ctrl-C asked for, with every event of the test until
// its result arrives: a cancel that comes with "Test Started", before the
// run has begun, is acknowledged and then forgotten when the run starts.
// Its answer is shown once. Called from inside the callback only, where a
// nested command is released before the outer.
void SendWantedCancel() {
    if (!cancelWanted || !runningTest) return;
    host::Command cancel = *runningTest;
    cancel.kind = host::Command::Cancel;
    const std::string answer = component.Execute(host::CommandXml(cancel, options.component));
    if (!cancelShown) display->Answer(cancel, answer);
    cancelShown = true;
}

char* OnEvent(const char* text) {
    const std::string xml = text ? text : "";
    report.Event(xml);
    SendWantedCancel();
    if (xml.compare(0, 11, "<diagPrompt") == 0 && (xml.size() == 11 || xml[11] == ' ' || xml[11] == '>' || xml[11] == '/')) {
        char* reply = HostReply(PromptReply(xml));
        // Ctrl-C at the prompt: the cancel goes before the test goes on.
        SendWantedCancel();
        return reply;
    }
    display->Event(xml);
    return nullptr;
}

}  // namespace

int main(int argc, char** argv) {
    std::string error;
    if (!host::ParseCommandLine(argc, argv, options, error)) {
        std::fprintf(stderr, "zorbus-host: %s\n(zorbus-host --help lists the commands and options)\n", error.c_str());
        return UsageError;
    }
    if (options.help) {
        std::fputs(host::HelpText().c_str(), stdout);
        return Success;
    }
    const std::string library = options.library.empty() ? host::DefaultLibrary() : options.library;
    if (options.version) return host::PrintVersion(library, options.component);
    if (!report.Open(options.junit, options.json, error)) {
        std::fprintf(stderr, "zorbus-host: %s\n", error.c_str());
        return UsageError;
    }
    report.SetProperty("program", "zorbus-host " ZORBUS_VERSION);
    report.SetProperty("library", library);
    report.SetProperty("component", options.component);
    factoryMode = options.factory ? 1 : 0;
    diagsMedium = options.diagsMedium ? 1 : 0;
    host::Display screen(stdout, isatty(STDOUT_FILENO), options.rawXml);
    display = &screen;

    if (options.kernelPaths) {
        std::vector<std::string> notes;
        const bool entered = host::EnterKernelPaths(options.devicesSource, options.usbfsSource, notes, error);
        for (const std::string& note : notes) screen.Line("kernel paths: " + note);
        if (!entered) {
            std::fprintf(stderr, "zorbus-host: %s\n", error.c_str());
            report.Stop(error);
            report.Finish(NoKernelPaths);
            return NoKernelPaths;
        }
    }

    if (!component.Load(library, error)) {
        std::fprintf(stderr, "zorbus-host: %s\n", error.c_str());
        report.Stop(error);
        report.Finish(ComponentError);
        return ComponentError;
    }
    if (!options.language.empty()) component.InitializeTCTranslator(options.language.c_str());
    std::string init = "<initialize component=\"" + host::XmlEscape(options.component) + "\"";
    if (!options.state.empty()) init += " persistentFilename=\"" + host::XmlEscape(options.state) + "\"";
    if (options.debug) init += " debugEnabled=\"1\"";
    init += "/>";
    component.Initialize(init.c_str());
    component.SetCallback(&OnEvent);
    component.FreeLastSetCallbackResult();

    struct sigaction interrupt {};
    interrupt.sa_handler = OnInterrupt;
    interrupt.sa_flags = SA_RESTART;
    sigaction(SIGINT, &interrupt, nullptr);

    int status = Success;
    for (const host::Command& command : options.commands) {
        const bool isTest = command.kind == host::Command::RunTest;
        if (isTest) {
            runningTest = &command;
            cancelShown = false;
            cancelWanted = 0;
            testRunning = 1;
        }
        const std::string xml = host::CommandXml(command, options.component);
        report.Begin(command, xml);
        const std::string answer = component.Execute(xml);
        report.End(answer);
        testRunning = 0;
        runningTest = nullptr;
        status = std::max(status, static_cast<int>(screen.Answer(command, answer)));
    }

    const std::string uninit = "<uninitialize persistentFilename=\"" + host::XmlEscape(options.state) + "\"/>";
    component.Uninitialize(options.state.empty() ? nullptr : uninit.c_str());
    if (nextAnswer < options.answers.size())
        std::fprintf(stderr, "zorbus-host: %zu --answer value(s) left unused\n", options.answers.size() - nextAnswer);
    report.Finish(status);
    return status;
}
