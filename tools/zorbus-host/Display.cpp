#include "Display.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>
#include <pugixml.hpp>

#include "Devices.h"
#include "Language.h"
#include "Layout.h"
#include "Report.h"

namespace host {

namespace {

bool EndState(const std::string& state) {
    return state == "passed" || state == "failed" || state == "canceled" || state == "blocked";
}

std::string OnDevice(const std::string& test, const std::string& device) {
    if (device.empty()) return test;
    if (test.empty()) return device;
    return Format(tr("%s on %s"), {test, device});
}

std::string Counted(size_t count) {
    return Format(tr(count == 1 ? "%s device" : "%s devices"), {std::to_string(count)});
}

std::string TestLine(const TestInfo& test) {
    std::string line = tr("test") + " " + test.name + ": " + test.caption;
    if (!test.description.empty() && test.description != test.caption) line += " - " + test.description;
    std::string flags;
    for (const std::string& flag : test.flags) flags += (flags.empty() ? "" : ", ") + flag;
    if (!flags.empty()) line += " [" + flags + "]";
    if (!test.unavailable.empty()) line += " (" + tr("unavailable") + ": " + test.unavailable + ")";
    return line;
}

std::string ParameterLine(const ParameterInfo& parameter) {
    std::string line = parameter.name + "=" + parameter.defaultValue + "  " + parameter.caption + " (" + parameter.type;
    if (!parameter.min.empty() || !parameter.max.empty()) line += " " + parameter.min + ".." + parameter.max;
    line += ")";
    if (!parameter.description.empty()) line += " - " + parameter.description;
    return line;
}

std::vector<std::string> TestLines(const std::vector<TestInfo>& tests, const std::string& indent) {
    std::vector<std::string> lines;
    for (const TestInfo& test : tests) {
        lines.push_back(indent + TestLine(test));
        for (const ParameterInfo& parameter : test.parameters)
            lines.push_back(indent + "    " + ParameterLine(parameter));
    }
    return lines;
}

}  // namespace

Screen Screen::ForStandardOutput(bool raw, bool verbose) {
    Screen screen;
    screen.raw = raw;
    screen.verbose = verbose;
    screen.inPlace = isatty(STDOUT_FILENO) == 1;
    const char* term = std::getenv("TERM");
    const char* noColour = std::getenv("NO_COLOR");
    screen.escapes = !(term && std::strcmp(term, "dumb") == 0);
    screen.colour = screen.inPlace && screen.escapes && term && *term && !(noColour && *noColour);
    screen.width = ScreenWidth();
    return screen;
}

std::string Display::Colour(const std::string& state, const std::string& text) const {
    if (!screen.colour) return text;
    const char* code = state == "passed" ? "\033[1;32m" : state == "canceled" ? "\033[1;33m" : "\033[1;31m";
    return code + text + "\033[0m";
}

std::string Display::Mark(const std::string& state) const {
    const char* mark = state == "passed" ? "PASS" : state == "canceled" ? "STOP" : "FAIL";
    return Colour(state, tr(mark));
}

void Display::Print(const std::string& original) {
    // On a terminal a long line breaks between words, not where the screen ends.
    std::string text = original;
    if (screen.inPlace) {
        text.clear();
        size_t start = 0;
        for (size_t end; start <= original.size(); start = end + 1) {
            end = std::min(original.find('\n', start), original.size());
            const std::string line = original.substr(start, end - start);
            text +=
                (start ? "\n" : "") + (TextWidth(line) > screen.width ? WrapIndented(line, screen.width, 0, 2) : line);
        }
    }
    if (barShown)
        std::fputs(screen.escapes ? "\r\033[K" : ("\r" + std::string(drawnWidth, ' ') + "\r").c_str(), screen.out);
    std::fputs(text.c_str(), screen.out);
    std::fputc('\n', screen.out);
    if (barShown) Draw();
    std::fflush(screen.out);
}

void Display::Json(const char* kind, const std::string& xml) {
    std::lock_guard<std::recursive_mutex> hold(lock);
    std::fprintf(screen.out, "{\"kind\": \"%s\", \"xml\": %s}\n", kind, JsonString(xml).c_str());
    std::fflush(screen.out);
}

void Display::Start(const std::vector<std::pair<std::string, std::string>>& fields) {
    std::lock_guard<std::recursive_mutex> hold(lock);
    if (!screen.raw) {
        std::string line;
        for (const auto& field : fields)
            if (!field.second.empty() && field.first != "program" && field.first != "library" &&
                field.first != "component")
                line += (line.empty() ? "" : ", ") + tr(field.first) + ": " + field.second;
        if (!line.empty()) Print(line);
        return;
    }
    std::string object = "{\"kind\": \"start\"";
    for (const auto& field : fields) object += ", " + JsonString(field.first) + ": " + JsonString(field.second);
    std::fprintf(screen.out, "%s}\n", object.c_str());
    std::fflush(screen.out);
}

void Display::End(int status) {
    std::lock_guard<std::recursive_mutex> hold(lock);
    if (!screen.raw) return;
    std::fprintf(screen.out, "{\"kind\": \"end\", \"status\": %d}\n", status);
    std::fflush(screen.out);
}

void Display::Sent(const std::string& xml) {
    if (screen.raw) Json("command", xml);
}

void Display::Reply(const std::string& xml) {
    if (screen.raw) Json("reply", xml);
}

void Display::Line(const std::string& text) {
    std::lock_guard<std::recursive_mutex> hold(lock);
    // The JSON lines on standard output stay JSON lines.
    if (screen.raw)
        std::fprintf(stderr, "%s\n", text.c_str());
    else
        Print(text);
}

void Display::EndBar() {
    std::lock_guard<std::recursive_mutex> hold(lock);
    if (!barShown) return;
    std::fputc('\n', screen.out);
    std::fflush(screen.out);
    barShown = false;
}

void Display::TestStarts() {
    std::lock_guard<std::recursive_mutex> hold(lock);
    started = std::chrono::steady_clock::now();
    lastPercent = 0;
    lastProgress.clear();
}

void Display::Tick() {
    std::lock_guard<std::recursive_mutex> hold(lock);
    if (barShown && screen.inPlace) Draw();
}

// The bar: its fill, the percentage or the mark of the end, what runs, and
// the time since the test started while it still runs; one line only, or
// the carriage return no longer reaches its start.
void Display::Draw() {
    std::string head = bar.fill + (bar.marked ? " " + tr(bar.state == "canceled" ? "STOP" : "FAIL") : bar.percent);
    std::string tail = " " + bar.tail;
    if (bar.running) {
        const long seconds = static_cast<long>(
            std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - started).count());
        char clock[32];
        std::snprintf(clock, sizeof clock, "  %ld:%02ld", seconds / 60, seconds % 60);
        tail += clock;
    }
    const size_t room = screen.width - 1;
    if (TextWidth(head) + TextWidth(tail) > room)
        tail = TextWidth(head) < room ? Wrap(tail, room - TextWidth(head)).front() : "";
    const size_t width = TextWidth(head) + TextWidth(tail);
    if (bar.marked) head = bar.fill + " " + Mark(bar.state);
    if (screen.escapes)
        std::fputs(("\r\033[K" + head + tail).c_str(), screen.out);
    else
        std::fputs(("\r" + head + tail + std::string(drawnWidth > width ? drawnWidth - width : 0, ' ')).c_str(),
                   screen.out);
    drawnWidth = width;
    std::fflush(screen.out);
}

void Display::Progress(const std::string& what, unsigned percent, const std::string& state,
                       const std::string& caption) {
    std::string tail = what;
    if (!state.empty()) tail += ": " + tr(state);
    if (!caption.empty()) tail += " - " + caption;
    const bool ended = EndState(state);
    // A test that ended otherwise than passed shows its mark, never a full bar.
    const bool marked = ended && state != "passed";
    if (!ended) lastPercent = std::min(percent, 100u);
    if (!screen.inPlace) {
        const std::string line =
            "progress: " + (marked ? tr(state == "canceled" ? "STOP" : "FAIL") : std::to_string(percent) + "%") + " " +
            tail;
        if (line != lastProgress) Print(line);
        lastProgress = line;
        return;
    }
    const unsigned width = 30, filled = (marked ? lastPercent : std::min(percent, 100u)) * width / 100;
    char number[16];
    std::snprintf(number, sizeof number, "%4u%%", percent);
    bar = {
        "[" + std::string(filled, '#') + std::string(width - filled, '-') + "]", number, tail, state, marked, !ended};
    Draw();
    barShown = true;
    if (ended) {
        std::fputc('\n', screen.out);
        std::fflush(screen.out);
        barShown = false;
    }
}

void Display::Event(const std::string& xml) {
    std::lock_guard<std::recursive_mutex> hold(lock);
    if (screen.raw) {
        Json("event", xml);
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
        const unsigned percent =
            static_cast<unsigned>(std::strtoul(Attr(event, "percentComplete").c_str(), nullptr, 10));
        const std::string what = event.attribute("test") ? OnDevice(Attr(event, "test"), Attr(event, "device"))
                                                         : Format(tr("diagnoses of %s"), {Attr(event, "device")});
        Progress(what, percent, Attr(event, "currentState"), Attr(event, "OperationCaption"));
    } else {
        Print("event: " + xml);
    }
}

std::string Display::DeviceTable(const std::string& xml, const std::string& heading) {
    const std::vector<DeviceInfo> devices = ReadDevices(xml);
    std::string text = heading + ": " + Counted(devices.size());
    if (devices.empty()) return text;
    // A test list that several devices share is printed once, below the table.
    std::map<std::string, std::vector<std::string>> sharing;
    std::vector<std::string> order;
    for (const DeviceInfo& device : devices) {
        std::string key;
        for (const TestInfo& test : device.tests) key += test.text;
        if (key.empty()) continue;
        if (sharing[key].empty()) order.push_back(key);
        sharing[key].push_back(device.name);
    }
    std::map<std::string, std::string> labels;
    for (const std::string& key : order)
        if (!screen.verbose && sharing[key].size() > 1)
            labels[key] = std::string(1, static_cast<char>('A' + labels.size() % 26));

    std::vector<Row> rows;
    std::vector<std::pair<std::string, const DeviceInfo*>> lists;
    for (const DeviceInfo& device : devices) {
        Row row{{device.name, device.caption, device.description}, {}};
        std::string properties;
        for (const std::string& property : device.properties) properties += (properties.empty() ? "" : ", ") + property;
        if (!properties.empty()) row.details.push_back(properties);
        for (const std::string& note : device.notes) row.details.push_back(note);
        std::string key, names;
        for (const TestInfo& test : device.tests) {
            key += test.text;
            names += (names.empty() ? "" : ", ") + test.name;
        }
        const auto label = labels.find(key);
        if (label == labels.end()) {
            for (const std::string& line : TestLines(device.tests, "")) row.details.push_back(line);
        } else {
            row.details.push_back(Format(tr("tests: list %s below (%s)"), {label->second, names}));
            if (sharing[key].front() == device.name) lists.emplace_back(label->second, &device);
        }
        rows.push_back(row);
    }
    text += "\n" + Table({tr("DEVICE"), tr("CAPTION"), tr("DESCRIPTION")}, rows, screen.width);
    for (const auto& list : lists) {
        std::string key, holders;
        for (const TestInfo& test : list.second->tests) key += test.text;
        for (const std::string& name : sharing[key]) holders += (holders.empty() ? "" : ", ") + name;
        text += WrapIndented(Format(tr("Test list %s, of %s:"), {list.first, holders}), screen.width, 0, 2) + "\n";
        for (const std::string& line : TestLines(list.second->tests, "  "))
            text += WrapIndented(line, screen.width, 0, 2) + "\n";
    }
    text.pop_back();
    return text;
}

Result Display::Answer(const Command& command, const std::string& xml) {
    std::lock_guard<std::recursive_mutex> hold(lock);
    if (barShown) {
        std::fputc('\n', screen.out);
        barShown = false;
    }
    lastProgress.clear();
    pugi::xml_document document;
    const bool parsed = !xml.empty() && document.load_string(xml.c_str());
    const pugi::xml_node root = document.document_element();
    const std::string name = parsed ? root.name() : "";
    Result result;
    if (name == "error") result.outcome = Result::Error;
    std::string text;
    if (name == "catResult") {
        text = DeviceTable(xml, tr("Catalogue"));
    } else if (name == "idResult") {
        text = DeviceTable(xml, tr("Discovered"));
    } else if (name == "testResult" || name == "diagnosisResult" ||
               (name == "diagOutput" && Attr(root, "type") == "diagnosisResult")) {
        const std::string state = Attr(root, "currentState");
        const bool diagnosis = name != "testResult";
        result.device = Attr(root, "device");
        result.test = diagnosis ? "" : Attr(root, "test");
        if (state.empty() && root.child("error")) {
            // A cancel of a device that is not there.
            result.outcome = Result::Error;
            text = tr("Error") + ": " + ErrorText(root.child("error"));
        } else {
            result.isCase = command.kind == Command::RunTest || command.kind == Command::Diagnose ||
                            command.kind == Command::RawXml;
            result.state = state.empty() ? "failed" : state;
            result.time = Attr(root, "testTime");
            if (state != "passed") result.outcome = Result::NotPassed;
            text = Mark(result.state) + " " +
                   (diagnosis ? Format(tr("diagnosis of %s"), {result.device}) : OnDevice(result.test, result.device)) +
                   ": " + (state.empty() ? tr("no state") : Colour(state, tr(state)));
            if (!result.time.empty()) text += " " + Format(tr("in %s"), {result.time});
            if (!Attr(root, "caption").empty()) text += " (" + Attr(root, "caption") + ")";
            for (const pugi::xml_node& child : root.children()) {
                const std::string kind = child.name();
                if (kind == "output") {
                    const std::string output = Trim(child.text().get());
                    if (!output.empty()) text += "\n  " + tr("output") + ": " + output;
                } else if (kind == "error" || kind == "warning") {
                    text += "\n  " + tr(kind) + ": " + ErrorText(child);
                    if (kind == "error") result.error += (result.error.empty() ? "" : "; ") + ErrorText(child);
                } else if (kind == "info" || kind == "deviceAction") {
                    text += "\n  " + kind + ": " + Attr(child, "caption");
                } else if (kind == "formattedTextFile") {
                    text += "\n  " + tr("file") + ": " + Attr(child, "filename");
                }
            }
        }
    } else if (name == "diagOutput") {
        if (Attr(root, "type") == "cancelTest")
            text = Format(tr("Cancel %s: %s (loop %s, record %s)"),
                          {OnDevice(command.test, command.device), Attr(root, "status"), Attr(root, "loop"),
                           Attr(root, "recordNum")});
        else
            text = Attr(root, "type") + ": " + Attr(root, "status");
    } else if (name == "diagVersion") {
        text = tr("Version") + ": " + Trim(root.text().get());
    } else if (name == "error") {
        text = tr("Error") + ": " + ErrorText(root);
        result.error = ErrorText(root);
    } else if (xml.empty()) {
        text = tr("(empty answer)");
    } else {
        text = xml;
    }
    if (screen.raw)
        Json("answer", xml);
    else
        Print(text);
    return result;
}

void Display::Summary(const std::vector<Result>& results) {
    std::lock_guard<std::recursive_mutex> hold(lock);
    if (screen.raw) return;
    size_t passed = 0, failed = 0, canceled = 0;
    std::vector<Row> rows;
    for (const Result& result : results) {
        if (result.state == "passed")
            ++passed;
        else if (result.state == "canceled")
            ++canceled;
        else
            ++failed;
        rows.push_back({{result.device, result.test.empty() ? tr("diagnosis") : result.test, tr(result.state),
                         result.time, result.error},
                        {}});
    }
    const std::string table = Table({tr("DEVICE"), tr("TEST"), tr("RESULT"), tr("TIME"), tr("ERROR")}, rows,
                                    screen.width, [&](size_t row, size_t column, const std::string& text) {
                                        return column == 2 ? Colour(results[row].state, text) : text;
                                    });
    Print(tr("Summary") + ":\n" + table +
          Format(tr("%s passed, %s failed, %s canceled"),
                 {std::to_string(passed), std::to_string(failed), std::to_string(canceled)}));
}

}  // namespace host
