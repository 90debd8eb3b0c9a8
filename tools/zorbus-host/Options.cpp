#include "Options.h"

#include <getopt.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <pugixml.hpp>

#include "Devices.h"
#include "Language.h"

namespace host {

namespace {

enum LongOnly {
    Library = 256,
    Component,
    State,
    LanguageOption,
    Debug,
    Factory,
    DiagsMedium,
    Xml,
    Answer,
    PromptTimeoutOption,
    Serial,
    Station,
    Operator,
    KernelPaths,
    DevicesSource,
    UsbfsSource,
    Junit,
    Json
};

const option longOptions[] = {
    {"library", required_argument, nullptr, Library},
    {"component", required_argument, nullptr, Component},
    {"state", required_argument, nullptr, State},
    {"language", required_argument, nullptr, LanguageOption},
    {"debug", no_argument, nullptr, Debug},
    {"factory", no_argument, nullptr, Factory},
    {"diags-medium", no_argument, nullptr, DiagsMedium},
    {"xml", no_argument, nullptr, Xml},
    {"answer", required_argument, nullptr, Answer},
    {"prompt-timeout", required_argument, nullptr, PromptTimeoutOption},
    {"serial", required_argument, nullptr, Serial},
    {"station", required_argument, nullptr, Station},
    {"operator", required_argument, nullptr, Operator},
    {"verbose", no_argument, nullptr, 'v'},
    {"kernel-paths", no_argument, nullptr, KernelPaths},
    {"devices-source", required_argument, nullptr, DevicesSource},
    {"usbfs-source", required_argument, nullptr, UsbfsSource},
    {"junit", required_argument, nullptr, Junit},
    {"json", required_argument, nullptr, Json},
    {"version", no_argument, nullptr, 'V'},
    {"help", no_argument, nullptr, 'h'},
    {nullptr, 0, nullptr, 0},
};

std::string Environment(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

// The option that getopt_long has just refused, as the operator wrote it.
std::string Refused(char** argv, int index, int shortOption) {
    const std::string text = index > 0 ? argv[index - 1] : "";
    if (text.rfind("--", 0) == 0) return text.substr(0, text.find('='));
    return std::string("-") + static_cast<char>(shortOption);
}

std::string OptionError(char** argv, int code, int index) {
    const std::string given = Refused(argv, index, optopt);
    if (code == ':') return Format(tr("%s needs a value"), {given});
    if (optopt != 0 && optopt >= 256) return Format(tr("%s takes no value"), {given});
    if (given.rfind("--", 0) == 0) {
        std::string matches;
        const std::string name = given.substr(2);
        for (const option* o = longOptions; o->name; ++o)
            if (!name.empty() && std::strncmp(o->name, name.c_str(), name.size()) == 0)
                matches += std::string(matches.empty() ? "" : ", ") + "--" + o->name;
        if (matches.find(',') != std::string::npos) return Format(tr("option %s is ambiguous: %s"), {given, matches});
        if (std::string(argv[index - 1]).find('=') != std::string::npos && !matches.empty())
            return Format(tr("%s takes no value"), {matches});
    }
    return Format(tr("unknown option %s"), {given});
}

bool ParseTimeout(const std::string& text, double& seconds) {
    errno = 0;
    char* end = nullptr;
    seconds = std::strtod(text.c_str(), &end);
    return !text.empty() && *end == '\0' && errno == 0 && seconds > 0 && seconds <= 7 * 24 * 3600 &&
           text.find_first_not_of("0123456789.") == std::string::npos;
}

bool IsParameter(const std::string& arg) {
    const size_t equals = arg.find('=');
    return equals != std::string::npos && equals > 0 && arg[0] != '<';
}

// The operands after the options: the commands, in order.
bool ParseCommands(const std::vector<std::string>& args, Options& options, std::string& error) {
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        Command command;
        auto operands = [&](size_t count, const char* form) {
            for (size_t k = 1; k <= count; ++k) {
                if (i + k >= args.size() || args[i + k].empty() || args[i + k][0] == '<' || IsParameter(args[i + k])) {
                    error = Format(tr("usage: %s"), {form});
                    return false;
                }
            }
            return true;
        };
        if (arg == "catalog" || arg == "catalogue") {
            command.kind = Command::Catalog;
        } else if (arg == "id" || arg == "discover") {
            command.kind = Command::Discover;
        } else if (arg == "version") {
            command.kind = Command::Version;
        } else if (arg == "test") {
            if (!operands(2, "test DEVICE TEST [NAME=VALUE...]")) return false;
            command.kind = Command::RunTest;
            command.device = args[++i];
            command.test = args[++i];
            while (i + 1 < args.size() && IsParameter(args[i + 1])) {
                const std::string& parameter = args[++i];
                const size_t equals = parameter.find('=');
                const std::string name = parameter.substr(0, equals);
                if (!IsAttributeName(name)) {
                    error = Format(tr("'%s' is no parameter name"), {name});
                    return false;
                }
                command.parameters.emplace_back(name, parameter.substr(equals + 1));
            }
        } else if (arg == "cancel") {
            if (!operands(2, "cancel DEVICE TEST")) return false;
            command.kind = Command::Cancel;
            command.device = args[++i];
            command.test = args[++i];
        } else if (arg == "diagnose") {
            if (!operands(1, "diagnose DEVICE")) return false;
            command.kind = Command::Diagnose;
            command.device = args[++i];
        } else if (arg == "run") {
            if (!operands(1, "run CLASS")) return false;
            command.kind = Command::RunClass;
            command.test = args[++i];
            bool known = false;
            std::string classes;
            for (const std::string& name : TestClasses()) {
                known = known || name == command.test;
                classes += (classes.empty() ? "" : ", ") + name;
            }
            if (!known) {
                error = Format(tr("no test class %s (run takes %s)"), {command.test, classes});
                return false;
            }
        } else if (!arg.empty() && arg[0] == '<') {
            command.kind = Command::RawXml;
            command.xml = arg;
        } else if (IsParameter(arg)) {
            error = Format(tr("%s stands after no test (test DEVICE TEST NAME=VALUE...)"), {arg});
            return false;
        } else {
            error = Format(tr("unknown command '%s'"), {arg});
            return false;
        }
        options.commands.push_back(command);
    }
    return true;
}

struct Collect : pugi::xml_writer {
    std::string text;
    void write(const void* data, size_t size) override { text.append(static_cast<const char*>(data), size); }
};

// pugixml escapes what an attribute value cannot hold as it is, control
// characters too.
std::string Text(const pugi::xml_node& element) {
    Collect collect;
    element.print(collect, "", pugi::format_raw);
    return collect.text;
}

}  // namespace

bool ParseCommandLine(int argc, char** argv, Options& options, std::string& error) {
    options.serial = Environment("ZORBUS_SERIAL");
    options.station = Environment("ZORBUS_STATION");
    options.operatorName = Environment("ZORBUS_OPERATOR");
    optind = 0;  // a fresh scan, also when called again
    opterr = 0;
    error.clear();
    for (;;) {
        int index = 0;
        const int code = getopt_long(argc, argv, ":hVv", longOptions, &index);
        if (code == -1) break;
        const std::string value = optarg ? optarg : "";
        switch (code) {
            case 'h': options.help = true; break;
            case 'V': options.version = true; break;
            case 'v': options.verbose = true; break;
            case Library: options.library = value; break;
            case Component: options.component = value; break;
            case State: options.state = value; break;
            case LanguageOption: options.language = value; break;
            case Debug: options.debug = true; break;
            case Factory: options.factory = true; break;
            case DiagsMedium: options.diagsMedium = true; break;
            case Xml: options.rawXml = true; break;
            case Answer: options.answers.push_back(value); break;
            case PromptTimeoutOption:
                if (!ParseTimeout(value, options.promptTimeout) && error.empty())
                    error = Format(tr("--prompt-timeout takes a number of seconds above 0, not '%s'"), {value});
                break;
            case Serial: options.serial = value; break;
            case Station: options.station = value; break;
            case Operator: options.operatorName = value; break;
            case KernelPaths: options.kernelPaths = true; break;
            case DevicesSource: options.devicesSource = value; break;
            case UsbfsSource: options.usbfsSource = value; break;
            case Junit: options.junit = value; break;
            case Json: options.json = value; break;
            default:
                if (error.empty()) error = OptionError(argv, code, optind);
        }
    }
    if (!error.empty()) return false;
    if (!ParseCommands(std::vector<std::string>(argv + optind, argv + argc), options, error)) return false;
    if (!options.help && !options.version && options.commands.empty()) {
        error = tr("no command given");
        return false;
    }
    return true;
}

std::string CommandXml(const Command& command, const std::string& component) {
    static const char* const names[] = {"catalog", "id", "runTest", "cancelTest", "runDiagnosis", "getDiagVersion"};
    if (command.kind == Command::RawXml || command.kind == Command::RunClass) return command.xml;
    pugi::xml_document document;
    pugi::xml_node element = document.append_child(names[command.kind]);
    if (command.kind == Command::RunTest || command.kind == Command::Cancel || command.kind == Command::Diagnose)
        element.append_attribute("device") = command.device.c_str();
    if (command.kind == Command::RunTest || command.kind == Command::Cancel)
        element.append_attribute("test") = command.test.c_str();
    element.append_attribute("component") = component.c_str();
    if (command.kind == Command::RunTest)
        for (const auto& parameter : command.parameters)
            element.append_attribute(parameter.first.c_str()) = parameter.second.c_str();
    return Text(element);
}

std::string InitializeXml(const std::string& component, const std::string& stateFile, bool debug) {
    pugi::xml_document document;
    pugi::xml_node element = document.append_child("initialize");
    element.append_attribute("component") = component.c_str();
    if (!stateFile.empty()) element.append_attribute("persistentFilename") = stateFile.c_str();
    if (debug) element.append_attribute("debugEnabled") = "1";
    return Text(element);
}

std::string PromptResponseXml(const std::string* value) {
    pugi::xml_document document;
    pugi::xml_node element = document.append_child("diagPromptResponse");
    if (value) element.append_attribute("value") = value->c_str();
    return Text(element);
}

std::string StateXml(const std::string& name, const std::string& stateFile) {
    pugi::xml_document document;
    document.append_child(name.c_str()).append_attribute("persistentFilename") = stateFile.c_str();
    return Text(document.document_element());
}

std::string HelpText() {
    return R"(usage: zorbus-host [OPTION...] COMMAND...

Loads the USB test component (libzorbus.so) as the diagnostics host does,
initialises it and runs the commands in order. Each command is checked
against the catalogue or this run's discovery before it is sent: an unknown
device, test or parameter, or a value outside its published range, is a
usage error.

Commands:
  catalog                      the device template and the tests it offers
  id                           discover the machine's USB devices (also:
                               discover)
  test DEVICE TEST [NAME=VALUE...]
                               run a test; each NAME=VALUE sets one of the
                               test's parameters or a run attribute
                               (retries=0..5, loop=N, recordNum=N)
  run CLASS                    run every test of a class (quick, complete,
                               interactive, fieldtest) on every device, then
                               print a summary
  cancel DEVICE TEST           ask the component to cancel that test
  diagnose DEVICE              run the device's diagnoses
  version                      the component's version record
  '<XML .../>'                 any command element, sent as written

test, run, cancel and diagnose need this run's devices: without an id
before them the program discovers first. With a state restored by --state
the devices are those of the state file; then only test and parameter
names are checked before sending (run needs an id first).

Options:
  --library PATH      the component to load (default: libzorbus.so beside
                      this program)
  --component NAME    component name given at initialisation and with each
                      command (default: libzorbus.so)
  --state FILE        restore the component from FILE and save it there at
                      the end; FILE must be a state file, empty, or new: any
                      other file is refused and left as it is. The state is
                      written to a new file beside FILE and renamed over it.
  --language LANG     language of the component's texts and of this
                      program's words, e.g. de, or de:/folder/holding/locale
                      (catalogues in locale/ beside the library)
  --debug             turn on the component's debug output
  --factory           factory mode (default: field mode)
  --diags-medium      the machine runs from the diagnostics medium
  --xml               print what goes to and comes from the component as
                      JSON lines: one object per line, {"kind": K, "xml":
                      TEXT} with K one of command, event, reply (to a
                      prompt) or answer; the first line has the kind start
                      (program, serial, station, operator), the last the
                      kind end (status)
  --answer=TEXT       answer to the next prompt, by number (1 is the first
                      button) or by the button's caption; give it once per
                      prompt, in order. Without answers left, a terminal asks
                      the operator; anywhere else the program stops.
  --prompt-timeout SECONDS
                      give up on a prompt that the operator has not answered
                      within SECONDS
  --serial TEXT       serial number of the unit under test
  --station TEXT      the test station
  --operator NAME     who tests; serial, station and operator are shown at
                      the start and go into both reports (default: the
                      variables ZORBUS_SERIAL, ZORBUS_STATION, ZORBUS_OPERATOR)
  -v, --verbose       tables in full: a test list shared by several devices
                      under each of them
  --kernel-paths      for kernels without /proc/bus/usb (root only): run the
                      component in a private mount namespace where the
                      devices text and the usbfs nodes stand under
                      /proc/bus/usb
  --devices-source FILE
                      the devices text for --kernel-paths
                      (default: /sys/kernel/debug/usb/devices)
  --usbfs-source DIR  the usbfs nodes for --kernel-paths
                      (default: /dev/bus/usb)
  --junit FILE        write a JUnit XML report of the run's tests and
                      diagnoses to FILE: a test suite per device, a test case
                      per test or diagnosis with its time, its failure or
                      skip and the component's error text, the log events and
                      prompts as its output
  --json FILE         write a JSON report of the run to FILE: one record
                      per command with its answer, events, prompts (text,
                      answer, who gave it, seconds), result and times
  -V, --version       the program's version and the component's version
                      record
  -h, --help          this text
  --                  what follows are commands, even if it starts with -

The reports are written again after each command and each event, so a run
that stops early (a prompt without an answer, Ctrl-C) leaves them complete up
to that point, the unfinished command marked as such.

Prompts: type-ahead is discarded before a prompt is shown; the question,
its buttons and the answer go to the terminal, not to standard output.
While a test runs, Ctrl-C cancels it (at a prompt at once, without an
answer; otherwise the component stops before its next try) and the
commands after it are not run; a second Ctrl-C ends the program.

Tables fit the terminal's width (else COLUMNS, else 80 columns). Results are
marked PASS, FAIL or STOP, in colour on a terminal unless NO_COLOR is set or
TERM is dumb.

Exit status (with several outcomes the highest counts):
  0  every command succeeded and every test and diagnosis passed
  1  a test or diagnosis did not pass (failed or blocked, or canceled by the
     component), or run found no test of its class
  2  usage error: an unknown option, command, device, test or parameter, a
     value outside the published range, a --state file that is no state
     file, a report that cannot be written
  3  the library cannot be loaded, or the component answered a command with
     an error
  4  a prompt could not be answered (no answer left and no terminal, an
     answer that names no button, or the terminal closed)
  5  --kernel-paths cannot be set up (rights, namespace or sources)
  6  the operator canceled a test with Ctrl-C
  7  a prompt was not answered within --prompt-timeout
  8  the state could not be saved in the --state file (the file is left as it
     was)
)";
}

}  // namespace host
