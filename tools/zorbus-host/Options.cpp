#include "Options.h"

#include <cstring>

namespace host {

namespace {

struct ValueOption {
    const char* name;
    std::string Options::*field;
};

const ValueOption valueOptions[] = {
    {"--library", &Options::library},
    {"--component", &Options::component},
    {"--state", &Options::state},
    {"--language", &Options::language},
    {"--devices-source", &Options::devicesSource},
    {"--usbfs-source", &Options::usbfsSource},
    {"--junit", &Options::junit},
    {"--json", &Options::json},
};

struct FlagOption {
    const char* name;
    bool Options::*field;
};

const FlagOption flagOptions[] = {
    {"--debug", &Options::debug},
    {"--factory", &Options::factory},
    {"--diags-medium", &Options::diagsMedium},
    {"--xml", &Options::rawXml},
    {"--kernel-paths", &Options::kernelPaths},
    {"--version", &Options::version},
};

bool IsParameter(const std::string& arg) {
    const size_t equals = arg.find('=');
    return equals != std::string::npos && equals > 0 && arg[0] != '<' && arg[0] != '-';
}

}  // namespace

bool ParseCommandLine(int argc, char** argv, Options& options, std::string& error) {
    std::vector<std::string> args(argv + 1, argv + argc);
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string arg = args[i];
        if (arg == "--help" || arg == "-h") {
            options.help = true;
            continue;
        }
        if (arg.rfind("--", 0) == 0) {
            const size_t equals = arg.find('=');
            const std::string name = arg.substr(0, equals);
            bool known = false;
            for (const FlagOption& flag : flagOptions) {
                if (name != flag.name) continue;
                if (equals != std::string::npos) {
                    error = name + " takes no value";
                    return false;
                }
                options.*flag.field = true;
                known = true;
            }
            const ValueOption* valued = nullptr;
            for (const ValueOption& option : valueOptions)
                if (name == option.name) valued = &option;
            if (valued || name == "--answer") {
                std::string value;
                if (equals != std::string::npos) {
                    value = arg.substr(equals + 1);
                } else if (i + 1 < args.size()) {
                    value = args[++i];
                } else {
                    error = name + " needs a value";
                    return false;
                }
                if (valued) options.*valued->field = value;
                else options.answers.push_back(value);
                known = true;
            }
            if (!known) {
                error = "unknown option " + name;
                return false;
            }
            continue;
        }
        Command command;
        auto operands = [&](size_t count, const char* form) {
            if (i + count >= args.size()) {
                error = std::string("usage: ") + form;
                return false;
            }
            for (size_t k = 1; k <= count; ++k) {
                if (args[i + k].empty() || args[i + k][0] == '-' || args[i + k][0] == '<') {
                    error = std::string("usage: ") + form;
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
                command.parameters.emplace_back(parameter.substr(0, equals), parameter.substr(equals + 1));
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
        } else if (!arg.empty() && arg[0] == '<') {
            command.kind = Command::RawXml;
            command.xml = arg;
        } else {
            error = "unknown command '" + arg + "'";
            return false;
        }
        options.commands.push_back(command);
    }
    if (!options.help && !options.version && options.commands.empty()) {
        error = "no command given";
        return false;
    }
    return true;
}

std::string XmlEscape(const std::string& text) {
    std::string out;
    for (char c : text) {
        switch (c) {
            case '&': out += "&amp;"; break;
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            case '"': out += "&quot;"; break;
            default: out += c;
        }
    }
    return out;
}

std::string CommandXml(const Command& command, const std::string& component) {
    const std::string named = " component=\"" + XmlEscape(component) + "\"";
    const std::string device = " device=\"" + XmlEscape(command.device) + "\"";
    const std::string test = " test=\"" + XmlEscape(command.test) + "\"";
    switch (command.kind) {
        case Command::Catalog: return "<catalog" + named + "/>";
        case Command::Discover: return "<id" + named + "/>";
        case Command::Version: return "<getDiagVersion" + named + "/>";
        case Command::Cancel: return "<cancelTest" + device + test + named + "/>";
        case Command::Diagnose: return "<runDiagnosis" + device + named + "/>";
        case Command::RunTest: {
            std::string xml = "<runTest" + device + test + named;
            for (const auto& parameter : command.parameters)
                xml += " " + parameter.first + "=\"" + XmlEscape(parameter.second) + "\"";
            return xml + "/>";
        }
        case Command::RawXml: break;
    }
    return command.xml;
}

std::string HelpText() {
    return R"(usage: zorbus-host [OPTION...] COMMAND...

Loads the USB test component (libzorbus.so) as the diagnostics host does,
initialises it and runs the commands in order.

Commands:
  catalog                      the device template and the tests it offers
  id                           discover the machine's USB devices (also: discover)
  test DEVICE TEST [NAME=VALUE...]
                               run a test; each NAME=VALUE sets a parameter or a
                               run attribute (retries=0..5, loop=N, recordNum=N)
  cancel DEVICE TEST           ask the component to cancel that test
  diagnose DEVICE              run the device's diagnoses
  version                      the component's version record
  '<XML .../>'                 any command element, sent as written

Options:
  --library PATH      the component to load (default: libzorbus.so beside
                      this program)
  --component NAME    component name given at initialisation and with each
                      command (default: libzorbus.so)
  --state FILE        restore the component from FILE and save it there at
                      the end
  --language LANG     language of the component's texts, e.g. de, or
                      de:/folder/holding/locale (catalogues in locale/ beside
                      the library)
  --debug             turn on the component's debug output
  --factory           factory mode (default: field mode)
  --diags-medium      the machine runs from the diagnostics medium
  --xml               print answers and events as raw XML
  --answer=TEXT       answer to the next prompt, by number (1 is the first
                      button) or by the button's caption; give it once per
                      prompt, in order. Without answers left, a terminal asks
                      the operator; anywhere else the program stops.
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
                      skip and the component's error text, the log events as
                      its output
  --json FILE         write a JSON report of the run to FILE: one record
                      per command with its answer, events, result and times
  --version           the program's version and the component's version
                      record
  -h, --help          this text

The reports are written again after each command and each event, so a run
that stops early (a prompt without an answer, Ctrl-C) leaves them complete up
to that point, the unfinished command marked as such.

While a test runs, Ctrl-C asks the component to cancel it (it stops between
tries); a second Ctrl-C ends the program.

Exit status:
  0  every command succeeded and every test and diagnosis passed
  1  a test or diagnosis did not pass (failed, canceled or blocked)
  2  usage error
  3  component error: the library cannot be loaded, or a command was
     answered with an error
  4  a prompt could not be answered (no answer left and no terminal, or an
     answer that names no button)
  5  --kernel-paths cannot be set up (rights, namespace or sources)
)";
}

}  // namespace host
