// zorbus-host: loads libzorbus.so as the diagnostics host does, initialises
// it, answers its events and prompts, and runs the commands named on the
// command line. `zorbus-host --help` tells the options and exit statuses.
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <pugixml.hpp>
#include <string>
#include <thread>
#include <vector>

#include "Component.h"
#include "Devices.h"
#include "Display.h"
#include "KernelPaths.h"
#include "Language.h"
#include "Layout.h"
#include "Options.h"
#include "PromptAnswer.h"
#include "Report.h"
#include "StateFile.h"
#include "Terminal.h"

// Host services: this host decides the mode and the medium itself.
static int factoryMode = 0;
static int diagsMedium = 0;
extern "C" __attribute__((visibility("default"))) int nvxIsFactory() { return factoryMode; }
extern "C" __attribute__((visibility("default"))) int nvxIsDiagsCD() { return diagsMedium; }

namespace {

using host::Command;
using host::Format;
using host::tr;

host::Component component;
host::Options options;
host::Display* display = nullptr;
host::Report report;  // --junit, --json
host::Terminal terminal;
host::StateFile state;
size_t nextAnswer = 0;
bool quiet = false;  // a query of the program's own: its events are neither shown nor reported

// Ctrl-C during a test: the cancel goes to the component with the test's
// next event, from inside the callback, where a nested command is safe; at a
// prompt, at once.
volatile sig_atomic_t testRunning = 0;
volatile sig_atomic_t cancelWanted = 0;
const Command* runningTest = nullptr;
bool cancelShown = false;
std::string interruptNote;  // made before the handler is installed

void OnInterrupt(int) {
    if (testRunning && !cancelWanted) {
        cancelWanted = 1;
        const ssize_t ignored = write(STDERR_FILENO, interruptNote.data(), interruptNote.size());
        (void)ignored;
        host::Terminal::Wake();
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

// A line of the program's own for standard error; on a terminal it breaks
// between words, not where the screen ends.
std::string NoteText(const std::string& text) {
    const std::string line = "zorbus-host: " + text;
    if (!isatty(STDERR_FILENO) || host::TextWidth(line) <= host::ScreenWidth()) return line;
    return host::WrapIndented(line, host::ScreenWidth(), 0, 2);
}

void Note(const std::string& text) { std::fprintf(stderr, "%s\n", NoteText(text).c_str()); }

void UsageMessage(const std::string& error) {
    Note(error);
    std::fprintf(stderr, "%s\n", tr("(zorbus-host --help lists the commands and options)").c_str());
}

// The run ends here, while the component waits inside a test for an answer
// that the program will not give for the operator.
[[noreturn]] void StopRun(int status, const std::string& why) {
    if (display) display->EndBar();
    std::fflush(stdout);
    Note(why);
    report.Stop(why);
    report.Finish(status);
    if (display) display->End(status);
    std::fflush(nullptr);
    _exit(status);
}

// A line of a prompt, on the operator's terminal.
void Say(const std::string& text, bool newline = true) {
    display->EndBar();
    if (terminal.Out() == stdout && newline) {
        display->Line(text);
        return;
    }
    const size_t width = display->Settings().width;
    const bool wrap = newline && isatty(fileno(terminal.Out())) && host::TextWidth(text) > width;
    std::fputs((wrap ? host::WrapIndented(text, width, 0, 2) : text).c_str(), terminal.Out());
    if (newline) std::fputc('\n', terminal.Out());
    std::fflush(terminal.Out());
}

// Sends the cancel that Ctrl-C asked for, with every event of the test until
// its result arrives: a cancel that comes with "Test Started", before the
// run has begun, is acknowledged and then forgotten when the run starts.
// Its answer is shown once. Called from inside the callback only, where a
// nested command is released before the outer.
void SendWantedCancel() {
    if (!cancelWanted || !runningTest) return;
    Command cancel = *runningTest;
    cancel.kind = Command::Cancel;
    const std::string xml = host::CommandXml(cancel, options.component);
    const std::string answer = component.Execute(xml);
    if (!cancelShown) {
        display->Sent(xml);
        display->Answer(cancel, answer);
    }
    cancelShown = true;
}

std::string PromptReply(const std::string& xml) {
    pugi::xml_document document;
    document.load_string(xml.c_str());
    const pugi::xml_node prompt = document.document_element();
    host::PromptRecord record;
    for (const pugi::xml_node& option : prompt.children("option"))
        record.options.push_back(option.attribute("caption").value());
    const std::vector<std::string>& buttons = record.options;
    const bool buttonPrompt = std::string(prompt.attribute("type").value()) == "button";
    record.text = prompt.text().get();
    const std::string title = prompt.attribute("titleCaption").value();
    const std::string where =
        std::string(prompt.attribute("device").value()).empty()
            ? prompt.attribute("test").value()
            : Format(tr("%s on %s"), {prompt.attribute("test").value(), prompt.attribute("device").value()});
    const auto asked = std::chrono::steady_clock::now();
    auto finish = [&](const std::string& by) {
        record.by = by;
        record.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - asked).count();
        report.Prompt(record);
    };

    if (display->Raw()) display->Event(xml);
    const bool ask = !cancelWanted && nextAnswer >= options.answers.size() && terminal.CanAsk();
    if (!display->Raw() || ask) {
        Say(Format(tr("prompt (%s): %s"),
                   {where, (title.find_first_not_of(' ') != std::string::npos ? title + ": " : "") + record.text}));
        for (size_t i = 0; i < buttons.size(); ++i) Say("  " + std::to_string(i + 1) + ") " + buttons[i]);
    }
    // No answer to a canceled test's prompt: the component takes its first button and goes on to the cancel.
    auto reply = [](const std::string* value) {
        const std::string text = host::PromptResponseXml(value);
        display->Reply(text);
        return text;
    };
    host::PromptChoice choice;
    if (cancelWanted) {
        Say(tr("no answer: the test is canceled"));
        finish("canceled");
        return reply(nullptr);
    }
    if (nextAnswer < options.answers.size()) {
        const std::string given = options.answers[nextAnswer++];
        choice = host::ChoosePromptAnswer(given, buttons, buttonPrompt);
        if (!choice.valid) {
            finish("none");
            StopRun(host::NoAnswer, Format(tr("--answer=%s does not answer the prompt: %s"), {given, choice.error}));
        }
        if (!display->Raw()) Say(Format(tr("answer: %s (from --answer)"), {given}));
        record.answer = buttonPrompt && !buttons.empty() ? buttons[std::stoul(choice.value)] : choice.value;
        finish("--answer");
    } else if (terminal.CanAsk()) {
        terminal.DiscardTypeAhead();
        const auto deadline = asked + std::chrono::duration<double>(options.promptTimeout);
        for (;;) {
            Say(tr(buttonPrompt && !buttons.empty() ? "answer (number or caption): " : "answer: "), false);
            std::string line;
            const double left = std::chrono::duration<double>(deadline - std::chrono::steady_clock::now()).count();
            const auto read = terminal.ReadLine(line, options.promptTimeout > 0 ? std::max(left, 0.001) : 0);
            if (read == host::Terminal::Interrupted) {
                Say("");
                Say(tr("no answer: the test is canceled"));
                finish("canceled");
                SendWantedCancel();
                return reply(nullptr);
            }
            if (read == host::Terminal::TimedOut) {
                Say("");
                finish("timeout");
                char seconds[32];
                std::snprintf(seconds, sizeof seconds, "%g", options.promptTimeout);
                StopRun(host::PromptTimeout, Format(tr("no answer to the prompt \"%s\" within --prompt-timeout %s"),
                                                    {record.text, seconds}));
            }
            if (read == host::Terminal::Closed) {
                finish("none");
                StopRun(host::NoAnswer, tr("no answer: the terminal closed at a prompt"));
            }
            choice = host::ChoosePromptAnswer(line, buttons, buttonPrompt);
            if (choice.valid) break;
            Say(choice.error);
        }
        record.answer = buttonPrompt && !buttons.empty() ? buttons[std::stoul(choice.value)] : choice.value;
        finish("operator");
    } else {
        finish("none");
        StopRun(host::NoAnswer, Format(tr("the component asks \"%s\", but no --answer is left and standard input is no "
                                          "terminal; give one --answer=... per prompt"),
                                       {record.text}));
    }
    return reply(&choice.value);
}

char* OnEvent(const char* text) {
    const std::string xml = text ? text : "";
    if (!quiet) report.Event(xml);
    SendWantedCancel();
    if (xml.compare(0, 11, "<diagPrompt") == 0 &&
        (xml.size() == 11 || xml[11] == ' ' || xml[11] == '>' || xml[11] == '/')) {
        char* reply = HostReply(PromptReply(xml));
        // Ctrl-C at the prompt: the cancel goes before the test goes on.
        SendWantedCancel();
        return reply;
    }
    if (!quiet) display->Event(xml);
    return nullptr;
}

// What the run knows of the devices, to check commands against.
struct Knowledge {
    std::vector<host::DeviceInfo> devices;
    bool known = false;  // this run's discovery; else the catalogue's template, or nothing
    bool catalogue = false;
};

// One command to the component, shown and reported.
host::Result Execute(const Command& command, Knowledge& knowledge, bool brief = false) {
    const std::string xml = host::CommandXml(command, options.component);
    if (command.kind == Command::RunTest) {
        runningTest = &command;
        cancelShown = false;
        testRunning = 1;
        display->TestStarts();
    }
    report.Begin(command, xml);
    display->Sent(xml);
    const std::string answer = component.Execute(xml);
    report.End(answer);
    testRunning = 0;
    runningTest = nullptr;
    host::Result result;
    if (command.kind == Command::Discover) {
        knowledge.devices = host::ReadDevices(answer);
        knowledge.known = true;
        // Discovering first, a line names the devices; an error answer stands as any other.
        if (brief && !display->Raw() && answer.compare(0, 9, "<idResult") == 0) {
            std::string names;
            for (const host::DeviceInfo& device : knowledge.devices) names += (names.empty() ? "" : ", ") + device.name;
            display->Line(tr("Discovered") + ": " +
                          Format(tr(knowledge.devices.size() == 1 ? "%s device" : "%s devices"),
                                 {std::to_string(knowledge.devices.size())}) +
                          (names.empty() ? "" : ": " + names));
        } else {
            result = display->Answer(command, answer);
        }
        if (knowledge.devices.empty()) Note(tr("warning: discovery found no USB devices"));
        return result;
    }
    return display->Answer(command, answer);
}

[[noreturn]] void UsageStop(const std::string& error) {
    UsageMessage(error);
    report.Stop(error);
    report.Finish(host::UsageError);
    display->End(host::UsageError);
    // Nothing the commands asked for has been sent: the state file stays as it was.
    component.Uninitialize(nullptr);
    std::fflush(nullptr);
    _exit(host::UsageError);
}

// Makes sure that the devices are known before a command acts on them, and
// checks the commands from `first` to the next discovery against them.
void CheckAhead(size_t first, Knowledge& knowledge) {
    const Command& command = options.commands[first];
    if (!knowledge.known && !state.Restore()) {
        display->Line(
            Format(tr("discovering first: %s needs this run's devices"), {host::Report::CommandLine(command)}));
        Command discover;
        discover.kind = Command::Discover;
        Execute(discover, knowledge, true);
    } else if (!knowledge.known && !knowledge.catalogue) {
        // The devices of a restored state are the component's; the catalogue
        // still tells the tests and their parameters.
        Command catalog;
        catalog.kind = Command::Catalog;
        quiet = true;
        knowledge.devices = host::ReadDevices(component.Execute(host::CommandXml(catalog, options.component)));
        quiet = false;
        knowledge.catalogue = true;
    }
    for (size_t i = first; i < options.commands.size() && options.commands[i].kind != Command::Discover; ++i) {
        if (options.commands[i].kind == Command::RunClass && !knowledge.known)
            UsageStop(Format(tr("run %s needs the devices, and those of the restored state %s are not known to the "
                                "program: put id before it"),
                             {options.commands[i].test, state.Given()}));
        const std::string error = host::CheckCommand(options.commands[i], knowledge.devices, knowledge.known);
        if (!error.empty()) UsageStop(error);
    }
}

int Worst(int status, int other) { return std::max(status, other); }

// The commands, each checked before it is sent; after a cancel by the
// operator the tests left are reported as not run.
int RunCommands() {
    Knowledge knowledge;
    std::vector<host::Result> results;
    bool summary = false;
    int status = host::Passed;
    bool checked = false;  // the commands up to the next discovery are checked
    for (size_t i = 0; i < options.commands.size(); ++i) {
        const Command& command = options.commands[i];
        if (command.kind == Command::Discover) checked = false;
        if (cancelWanted && !command.ActsOnDevices()) continue;
        if (command.ActsOnDevices() && !checked && !cancelWanted) {
            CheckAhead(i, knowledge);
            checked = true;
        }
        std::vector<Command> batch = {command};
        if (command.kind == Command::RunClass) {
            summary = true;
            batch = host::ClassTests(command.test, knowledge.devices);
            if (!cancelWanted)
                display->Line(Format(tr("run %s: %s tests"), {command.test, std::to_string(batch.size())}));
            if (batch.empty()) {
                Note(Format(tr("no device offers a %s test"), {command.test}));
                status = Worst(status, host::Failed);
            }
        }
        for (const Command& each : batch) {
            if (cancelWanted) {
                if (each.kind == Command::RunTest || each.kind == Command::Diagnose)
                    results.push_back(
                        {host::Result::NotPassed, true, each.device, each.test, "canceled", "", tr("not run")});
                continue;
            }
            const host::Result result = Execute(each, knowledge);
            if (!knowledge.known &&
                (result.error.rfind("Device not found", 0) == 0 || result.error.rfind("Test not found", 0) == 0)) {
                // Only the component knows the devices of a restored state.
                UsageMessage(each.kind == Command::Diagnose
                                 ? Format(tr("the restored state %s has no device %s"), {state.Given(), each.device})
                                 : Format(tr("the restored state %s has no device %s with a test %s"),
                                          {state.Given(), each.device, each.test}));
                status = Worst(status, host::UsageError);
            }
            status = Worst(status, result.outcome == host::Result::Ok          ? host::Passed
                                   : result.outcome == host::Result::NotPassed ? host::Failed
                                                                               : host::ComponentError);
            if (result.isCase) results.push_back(result);
        }
    }
    if (cancelWanted) status = Worst(status, host::Canceled);
    if ((summary || results.size() > 1) && !results.empty()) display->Summary(results);
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    // A write over the file size limit fails with EFBIG and is reported,
    // instead of ending the program.
    signal(SIGXFSZ, SIG_IGN);
    std::string error;
    {
        // The language first, so that even a usage error comes in it.
        // getopt_long reorders what it is given: the second parse needs argv as it came.
        std::vector<char*> copy(argv, argv + argc);
        copy.push_back(nullptr);
        host::Options early;
        host::ParseCommandLine(argc, copy.data(), early, error);
        const std::string library = early.library.empty() ? host::DefaultLibrary() : early.library;
        const std::string warning = early.language.empty() ? "" : tr.Select(early.language, library);
        if (!warning.empty()) Note(tr("warning") + ": " + warning);
    }
    if (!host::ParseCommandLine(argc, argv, options, error)) {
        UsageMessage(error);
        return host::UsageError;
    }
    if (options.help) {
        std::fputs(host::HelpText().c_str(), stdout);
        return host::Passed;
    }
    const std::string library = options.library.empty() ? host::DefaultLibrary() : options.library;
    if (options.version) return host::PrintVersion(library, options.component);
    if (!options.state.empty() && !state.Check(options.state, error)) {
        UsageMessage(error);
        return host::UsageError;
    }
    if (!report.Open(options.junit, options.json, error)) {
        UsageMessage(error);
        return host::UsageError;
    }
    const std::vector<std::pair<std::string, std::string>> facts = {{"program", "zorbus-host " ZORBUS_VERSION},
                                                                    {"library", library},
                                                                    {"component", options.component},
                                                                    {"serial", options.serial},
                                                                    {"station", options.station},
                                                                    {"operator", options.operatorName}};
    for (const auto& fact : facts)
        if (!fact.second.empty()) report.SetProperty(fact.first, fact.second);
    factoryMode = options.factory ? 1 : 0;
    diagsMedium = options.diagsMedium ? 1 : 0;
    host::Display screen(host::Screen::ForStandardOutput(options.rawXml, options.verbose));
    display = &screen;
    terminal.Open(screen.Settings().inPlace);
    screen.Start(facts);

    if (options.kernelPaths) {
        std::vector<std::string> notes;
        const bool entered = host::EnterKernelPaths(options.devicesSource, options.usbfsSource, notes, error);
        for (const std::string& note : notes) screen.Line("kernel paths: " + note);
        if (!entered) StopRun(host::NoKernelPaths, error);
    }
    if (!component.Load(library, error)) StopRun(host::ComponentError, error);
    if (!options.language.empty()) component.InitializeTCTranslator(options.language.c_str());
    component.Initialize(
        host::InitializeXml(options.component, state.Restore() ? state.Path() : "", options.debug).c_str());
    component.SetCallback(&OnEvent);
    component.FreeLastSetCallbackResult();

    interruptNote = "\n" +
                    NoteText(tr("cancel requested; the test stops before its next try (Ctrl-C again ends the "
                                "program)")) +
                    "\n";
    struct sigaction interrupt {};
    interrupt.sa_handler = OnInterrupt;
    interrupt.sa_flags = SA_RESTART;
    sigaction(SIGINT, &interrupt, nullptr);

    // A bar drawn in place shows the time while the test waits.
    std::mutex tickLock;
    std::condition_variable tickWake;
    bool ticking = screen.Settings().inPlace && !screen.Raw();
    std::thread ticker;
    if (ticking)
        ticker = std::thread([&] {
            std::unique_lock<std::mutex> hold(tickLock);
            while (!tickWake.wait_for(hold, std::chrono::seconds(1), [&] { return !ticking; })) screen.Tick();
        });
    int status = RunCommands();
    if (ticker.joinable()) {
        {
            std::lock_guard<std::mutex> hold(tickLock);
            ticking = false;
        }
        tickWake.notify_all();
        ticker.join();
    }

    if (options.state.empty()) {
        component.Uninitialize(nullptr);
    } else if (!state.Save(
                   [](const std::string& path) {
                       component.Uninitialize(host::StateXml("uninitialize", path).c_str());
                   },
                   error)) {
        Note(error);
        status = Worst(status, host::StateNotSaved);
    }
    if (nextAnswer < options.answers.size())
        Note(Format(tr("%s --answer value(s) left unused"), {std::to_string(options.answers.size() - nextAnswer)}));
    report.Finish(status);
    screen.End(status);
    return status;
}
