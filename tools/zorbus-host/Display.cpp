#include "Display.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <pugixml.hpp>
#include <vector>

namespace host {

namespace {

std::string Attr(const pugi::xml_node& node, const char* name) { return node.attribute(name).value(); }

std::string Trim(const std::string& text) {
    const size_t begin = text.find_first_not_of(" \t\r\n");
    if (begin == std::string::npos) return "";
    return text.substr(begin, text.find_last_not_of(" \t\r\n") - begin + 1);
}

std::string Padded(const std::string& text, size_t width) {
    const size_t have = Display::Width(text);
    return have >= width ? text : text + std::string(width - have, ' ');
}

// "rootHubTest on usbDevice0"
std::string TestOnDevice(const pugi::xml_node& node) {
    std::string what = Attr(node, "test");
    const std::string device = Attr(node, "device");
    if (!device.empty()) what += (what.empty() ? "" : " on ") + device;
    return what;
}

std::string ErrorText(const pugi::xml_node& error) {
    std::string text = Trim(error.text().get());
    if (text.empty()) text = Attr(error, "key");
    return text;
}

const char* const testFlags[] = {"interactive", "requiresMedia", "requiresEquipment", "quick",   "complete",
                                 "requiresWindow", "localOnly", "singleThread", "destructive", "romTest",
                                 "fieldtest",   "runMeNow"};

std::string TestLine(const pugi::xml_node& test) {
    std::string line = "test " + Attr(test, "name") + ": " + Attr(test, "caption");
    const std::string description = Attr(test, "description");
    if (!description.empty() && description != Attr(test, "caption")) line += " - " + description;
    std::string flags;
    for (const char* flag : testFlags)
        if (Attr(test, flag) == "1") flags += std::string(flags.empty() ? "" : ", ") + flag;
    if (!flags.empty()) line += " [" + flags + "]";
    if (!Attr(test, "unavailable").empty()) line += " (unavailable: " + Attr(test, "unavailable") + ")";
    return line;
}

std::string ParameterLine(const pugi::xml_node& parameter) {
    std::string line = Attr(parameter, "name") + "=" + Attr(parameter, "defaultValue") + "  " +
                       Attr(parameter, "caption") + " (" + Attr(parameter, "type");
    if (parameter.attribute("min") || parameter.attribute("max"))
        line += " " + Attr(parameter, "min") + ".." + Attr(parameter, "max");
    line += ")";
    const std::string description = Attr(parameter, "description");
    if (!description.empty()) line += " - " + description;
    return line;
}

}  // namespace

Display::Display(std::FILE* out, bool terminal, bool rawXml) : out(out), terminal(terminal), rawXml(rawXml) {}

size_t Display::Width(const std::string& text) {
    size_t width = 0;
    for (unsigned char c : text)
        if ((c & 0xC0) != 0x80) ++width;
    return width;
}

void Display::Print(const std::string& text) {
    if (barShown) std::fputs("\r\033[K", out);
    std::fputs(text.c_str(), out);
    std::fputc('\n', out);
    if (barShown) std::fputs(lastBar.c_str(), out);
    std::fflush(out);
}

void Display::Line(const std::string& text) {
    std::lock_guard<std::recursive_mutex> hold(lock);
    Print(text);
}

void Display::EndBar() {
    std::lock_guard<std::recursive_mutex> hold(lock);
    if (!barShown) return;
    std::fputc('\n', out);
    std::fflush(out);
    barShown = false;
}

void Display::Progress(const std::string& what, unsigned percent, const std::string& state,
                       const std::string& caption) {
    std::string tail = what;
    if (!state.empty()) tail += ": " + state;
    if (!caption.empty()) tail += " - " + caption;
    if (!terminal) {
        const std::string line = "progress: " + std::to_string(percent) + "% " + tail;
        if (line != lastProgress) Print(line);
        lastProgress = line;
        return;
    }
    unsigned columns = 80;
    winsize size{};
    if (ioctl(fileno(out), TIOCGWINSZ, &size) == 0 && size.ws_col > 20) columns = size.ws_col;
    const unsigned barWidth = 30;
    const unsigned filled = (percent > 100 ? 100 : percent) * barWidth / 100;
    char number[16];
    std::snprintf(number, sizeof number, "%4u%%", percent);
    std::string bar = "[" + std::string(filled, '#') + std::string(barWidth - filled, '-') + "]" + number + " " + tail;
    // One line only, or the carriage return no longer reaches its start.
    if (Width(bar) >= columns) {
        std::string cut;
        size_t width = 0;
        for (unsigned char c : bar) {
            if ((c & 0xC0) != 0x80 && ++width >= columns) break;
            cut += static_cast<char>(c);
        }
        bar = cut;
    }
    lastBar = bar;
    std::fputs("\r\033[K", out);
    std::fputs(bar.c_str(), out);
    barShown = true;
    std::fflush(out);
}

void Display::Event(const std::string& xml) {
    std::lock_guard<std::recursive_mutex> hold(lock);
    if (rawXml) {
        Print("event: " + xml);
        return;
    }
    pugi::xml_document document;
    if (!document.load_string(xml.c_str())) {
        Print("event: " + xml);
        return;
    }
    const pugi::xml_node event = document.document_element();
    const std::string name = event.name();
    if (name == "diagEvent") {
        const std::string description = Attr(event, "description");
        Print("log: " + Attr(event, "caption") + (description.empty() ? "" : ": " + description));
    } else if (name == "diagUpdate") {
        const unsigned percent = static_cast<unsigned>(std::strtoul(Attr(event, "percentComplete").c_str(), nullptr, 10));
        const std::string what = event.attribute("test") ? TestOnDevice(event) : "diagnoses of " + Attr(event, "device");
        const std::string state = Attr(event, "currentState");
        Progress(what, percent, state, Attr(event, "OperationCaption"));
        // The end states close the bar: the log line and the result follow.
        if (state == "passed" || state == "failed" || state == "canceled" || state == "blocked") {
            if (barShown) {
                std::fputc('\n', out);
                barShown = false;
            }
        }
    } else {
        Print("event: " + xml);
    }
}

std::string Display::DeviceTable(const std::string& xml, const char* heading) {
    pugi::xml_document document;
    document.load_string(xml.c_str());
    struct Row {
        std::string name, caption, description;
        std::vector<std::string> details;
    };
    std::vector<Row> rows;
    for (const pugi::xml_node& device : document.document_element().children("device")) {
        Row row{Attr(device, "name"), Attr(device, "caption"), Trim(Attr(device, "description")), {}};
        std::string properties;
        for (const pugi::xml_node& property : device.children("property"))
            properties += (properties.empty() ? "" : ", ") + Attr(property, "caption") + ": " + Attr(property, "value");
        if (!properties.empty()) row.details.push_back(properties);
        for (const pugi::xml_node& child : device.children()) {
            const std::string kind = child.name();
            if (kind == "interface") {
                const std::string role = Attr(child, "role");
                row.details.push_back((role.empty() ? "linked" : role) + ": " + Attr(child, "name") + " " +
                                      Attr(child, "caption"));
            } else if (kind == "test") {
                row.details.push_back(TestLine(child));
                for (const pugi::xpath_node& found : child.select_nodes(".//parameter"))
                    row.details.push_back("  " + ParameterLine(found.node()));
            } else if (kind == "error" || kind == "warning") {
                row.details.push_back(kind + ": " + ErrorText(child));
            }
        }
        rows.push_back(row);
    }
    size_t nameWidth = 6, captionWidth = 7;
    for (const Row& row : rows) {
        nameWidth = std::max(nameWidth, Width(row.name));
        captionWidth = std::max(captionWidth, Width(row.caption));
    }
    std::string text = std::string(heading) + ": " + std::to_string(rows.size()) +
                       (rows.size() == 1 ? " device\n" : " devices\n");
    text += Padded("DEVICE", nameWidth) + "  " + Padded("CAPTION", captionWidth) + "  DESCRIPTION\n";
    const std::string indent(nameWidth + 2, ' ');
    for (const Row& row : rows) {
        text += Padded(row.name, nameWidth) + "  " + Padded(row.caption, captionWidth) + "  " + row.description + "\n";
        for (const std::string& detail : row.details) text += indent + detail + "\n";
    }
    text.pop_back();
    return text;
}

Outcome Display::Answer(const Command& command, const std::string& xml) {
    std::lock_guard<std::recursive_mutex> hold(lock);
    if (barShown) {
        std::fputc('\n', out);
        barShown = false;
    }
    lastProgress.clear();
    pugi::xml_document document;
    const bool parsed = !xml.empty() && document.load_string(xml.c_str());
    const pugi::xml_node root = document.document_element();
    const std::string name = parsed ? root.name() : "";
    Outcome outcome = Outcome::Ok;
    if (name == "error") outcome = Outcome::ComponentError;
    std::string text;
    if (name == "catResult") {
        text = DeviceTable(xml, "Catalogue");
    } else if (name == "idResult") {
        text = DeviceTable(xml, "Discovered");
    } else if (name == "testResult" || name == "diagnosisResult" ||
               (name == "diagOutput" && Attr(root, "type") == "diagnosisResult")) {
        const std::string state = Attr(root, "currentState");
        const bool diagnosis = name != "testResult";
        if (state.empty() && root.child("error")) {
            // A cancel of a device that is not there.
            outcome = Outcome::ComponentError;
            text = "Error: " + ErrorText(root.child("error"));
        } else {
            if (state != "passed") outcome = Outcome::NotPassed;
            text = std::string(diagnosis ? "Diagnosis of " + Attr(root, "device") : "Result: " + TestOnDevice(root)) +
                   ": " + (state.empty() ? "no state" : state);
            if (!Attr(root, "testTime").empty()) text += " in " + Attr(root, "testTime");
            if (!Attr(root, "caption").empty()) text += " (" + Attr(root, "caption") + ")";
            for (const pugi::xml_node& child : root.children()) {
                const std::string kind = child.name();
                if (kind == "output") {
                    const std::string output = Trim(child.text().get());
                    if (!output.empty()) text += "\n  output: " + output;
                } else if (kind == "error" || kind == "warning") {
                    text += "\n  " + kind + ": " + ErrorText(child);
                } else if (kind == "info" || kind == "deviceAction") {
                    text += "\n  " + kind + ": " + Attr(child, "caption");
                } else if (kind == "formattedTextFile") {
                    text += "\n  file: " + Attr(child, "filename");
                }
            }
        }
    } else if (name == "diagOutput") {
        if (Attr(root, "type") == "cancelTest")
            text = "Cancel " + command.test + " on " + command.device + ": " + Attr(root, "status") + " (loop " +
                   Attr(root, "loop") + ", record " + Attr(root, "recordNum") + ")";
        else
            text = Attr(root, "type") + ": " + Attr(root, "status");
    } else if (name == "diagVersion") {
        text = "Version: " + Trim(root.text().get());
    } else if (name == "error") {
        text = "Error: " + ErrorText(root);
    } else if (xml.empty()) {
        text = "(empty answer)";
    } else {
        text = xml;
    }
    Print(rawXml ? "answer: " + xml : text);
    return outcome;
}

}  // namespace host
