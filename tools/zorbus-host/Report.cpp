#include "Report.h"

#include <time.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <pugixml.hpp>

#include "Devices.h"
#include "Language.h"

namespace host {

namespace {

std::string UtcNow(bool zone) {
    const time_t now = time(nullptr);
    tm parts{};
    gmtime_r(&now, &parts);
    char text[32];
    strftime(text, sizeof text, zone ? "%Y-%m-%dT%H:%M:%SZ" : "%Y-%m-%dT%H:%M:%S", &parts);
    return text;
}

std::string Seconds(double seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3f", seconds < 0 ? 0.0 : seconds);
    return text;
}

// The component's texts may hold anything: bytes that are no UTF-8 become
// U+FFFD, and for XML so do the control characters that XML 1.0 forbids.
std::string Clean(const std::string& text, bool forXml) {
    static const char replacement[] = "\xEF\xBF\xBD";
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size();) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        size_t length = c < 0x80 ? 1 : (c >> 5) == 0x6 ? 2 : (c >> 4) == 0xE ? 3 : (c >> 3) == 0x1E ? 4 : 0;
        bool valid = length != 0 && i + length <= text.size();
        for (size_t k = 1; valid && k < length; ++k) valid = (static_cast<unsigned char>(text[i + k]) & 0xC0) == 0x80;
        if (valid && length > 1) {
            // Overlong forms, surrogates and values beyond U+10FFFF are no UTF-8 either.
            unsigned long code = c & (0x7F >> length);
            for (size_t k = 1; k < length; ++k) code = code << 6 | (static_cast<unsigned char>(text[i + k]) & 0x3F);
            static const unsigned long least[] = {0, 0, 0x80, 0x800, 0x10000};
            valid = code >= least[length] && code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
        }
        if (!valid) {
            out += replacement;
            ++i;
            continue;
        }
        if (forXml && c < 0x20 && c != '\t' && c != '\n' && c != '\r')
            out += replacement;
        else
            out.append(text, i, length);
        i += length;
    }
    return out;
}

std::string XmlText(const std::string& text, bool attribute) {
    std::string out;
    for (char c : Clean(text, true)) {
        switch (c) {
            case '&': out += "&amp;"; break;
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            case '"': out += attribute ? "&quot;" : "\""; break;
            case '\n': out += attribute ? "&#10;" : "\n"; break;
            case '\r': out += "&#13;"; break;
            case '\t': out += attribute ? "&#9;" : "\t"; break;
            default: out += c;
        }
    }
    return out;
}

std::string Attribute(const char* name, const std::string& value) {
    return std::string(" ") + name + "=\"" + XmlText(value, true) + "\"";
}

std::string JsonOrNull(const std::string& text, bool present) { return present ? JsonString(text) : "null"; }

// How a record ended, read from its answer; the same words in both reports.
struct Verdict {
    std::string result;   // passed, failed, canceled, blocked; ok, error; stopped, unfinished
    std::string error;    // the component's error texts, or why there is no result
    bool isCase = false;  // a test or a diagnosis: a JUnit test case
    std::string device, test;
};

Verdict Judge(const Record& record) {
    Verdict verdict;
    pugi::xml_document sent;
    sent.load_string(record.xml.c_str());
    const std::string sentName = sent.document_element().name();
    verdict.isCase = sentName == "runTest" || sentName == "runDiagnosis";
    verdict.device = sent.document_element().attribute("device").value();
    verdict.test = sentName == "runDiagnosis" ? "diagnosis" : sent.document_element().attribute("test").value();
    if (!record.Ended()) {
        verdict.result = record.stopped.empty() ? "unfinished" : "stopped";
        verdict.error = record.stopped.empty() ? "the run ended before this command did" : record.stopped;
        return verdict;
    }
    pugi::xml_document answer;
    answer.load_string(record.answer.c_str());
    const pugi::xml_node root = answer.document_element();
    const std::string name = root.name();
    for (const pugi::xml_node& error : root.children("error"))
        verdict.error += (verdict.error.empty() ? "" : "; ") + ErrorText(error);
    if (name == "error") {
        verdict.result = "error";
        verdict.error = ErrorText(root);
    } else if (root.attribute("currentState")) {
        verdict.result = root.attribute("currentState").value();
    } else if (verdict.isCase || !verdict.error.empty()) {
        verdict.result = "error";
        if (verdict.error.empty()) verdict.error = "no result state in the answer";
    } else {
        verdict.result = "ok";
    }
    return verdict;
}

// The log events of a record as lines of text, each prompt with its answer.
std::string LogLines(const Record& record) {
    std::string lines;
    size_t prompts = 0;
    for (const ReportEvent& event : record.events) {
        pugi::xml_document document;
        if (!document.load_string(event.xml.c_str())) continue;
        const pugi::xml_node root = document.document_element();
        const std::string name = root.name();
        if (name == "diagEvent") {
            const std::string description = root.attribute("description").value();
            lines += std::string(root.attribute("caption").value()) + (description.empty() ? "" : ": " + description);
        } else if (name == "diagPrompt") {
            lines += "prompt: " + Trim(root.text().get());
            if (prompts < record.prompts.size()) {
                const PromptRecord& prompt = record.prompts[prompts++];
                lines += "\nanswer: " +
                         (prompt.answer.empty() && prompt.by != "--answer" && prompt.by != "operator"
                              ? "(" + prompt.by + ")"
                              : prompt.answer + " (" + prompt.by + ")") +
                         " after " + Seconds(prompt.seconds) + " s";
            }
        } else {
            continue;
        }
        lines += "\n";
    }
    return lines;
}

bool WriteFile(const std::string& path, const std::string& text) {
    const std::string part = path + ".part";
    std::FILE* file = std::fopen(part.c_str(), "w");
    if (!file) return false;
    const bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
    if (std::fclose(file) != 0 || !written || std::rename(part.c_str(), path.c_str()) != 0) {
        std::remove(part.c_str());
        return false;
    }
    return true;
}

}  // namespace

std::string JsonString(const std::string& text) {
    std::string out = "\"";
    for (char c : Clean(text, false)) {
        const unsigned char u = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (c == '\n') {
            out += "\\n";
        } else if (c == '\t') {
            out += "\\t";
        } else if (u < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", u);
            out += escaped;
        } else {
            out += c;
        }
    }
    return out + "\"";
}

std::string Report::CommandLine(const Command& command) {
    switch (command.kind) {
        case Command::Catalog: return "catalog";
        case Command::Discover: return "id";
        case Command::Version: return "version";
        case Command::Cancel: return "cancel " + command.device + " " + command.test;
        case Command::Diagnose: return "diagnose " + command.device;
        case Command::RunClass: return "run " + command.test;
        case Command::RunTest: {
            std::string line = "test " + command.device + " " + command.test;
            for (const auto& parameter : command.parameters) line += " " + parameter.first + "=" + parameter.second;
            return line;
        }
        case Command::RawXml: break;
    }
    return command.xml;
}

bool Report::Open(const std::string& junit, const std::string& json, std::string& error) {
    std::lock_guard<std::recursive_mutex> hold(lock);
    junitPath = junit;
    jsonPath = json;
    startedAt = UtcNow(true);
    for (const std::string* path : {&junitPath, &jsonPath}) {
        if (path->empty()) continue;
        if (!WriteFile(*path, path == &junitPath ? Junit() : Json())) {
            error = Format(tr("cannot write the report %s: %s"), {*path, std::strerror(errno)});
            return false;
        }
    }
    return true;
}

void Report::SetProperty(const std::string& name, const std::string& value) {
    std::lock_guard<std::recursive_mutex> hold(lock);
    for (auto& property : properties)
        if (property.first == name) {
            property.second = value;
            return;
        }
    properties.emplace_back(name, value);
}

double Report::Now() const { return std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count(); }

void Report::Begin(const Command& command, const std::string& xml) {
    std::lock_guard<std::recursive_mutex> hold(lock);
    Record record;
    record.command = CommandLine(command);
    record.xml = xml;
    record.startedAt = UtcNow(true);
    record.started = Now();
    records.push_back(record);
    Write();
}

void Report::Event(const std::string& xml) {
    std::lock_guard<std::recursive_mutex> hold(lock);
    if (records.empty() || records.back().Ended()) return;  // none come outside a command
    records.back().events.push_back({Now(), xml});
    Write();
}

void Report::Prompt(const PromptRecord& prompt) {
    std::lock_guard<std::recursive_mutex> hold(lock);
    if (records.empty() || records.back().Ended()) return;
    records.back().prompts.push_back(prompt);
    Write();
}

void Report::End(const std::string& answer) {
    std::lock_guard<std::recursive_mutex> hold(lock);
    if (records.empty() || records.back().Ended()) return;
    records.back().answer = answer;
    records.back().ended = Now();
    Write();
}

void Report::Stop(const std::string& why) {
    std::lock_guard<std::recursive_mutex> hold(lock);
    stopped = why;
    if (!records.empty() && !records.back().Ended()) records.back().stopped = why;
    Write();
}

void Report::Finish(int exitStatus) {
    std::lock_guard<std::recursive_mutex> hold(lock);
    status = exitStatus;
    ended = Now();
    Write();
}

void Report::Write() {
    for (const std::string* path : {&junitPath, &jsonPath}) {
        if (path->empty() || WriteFile(*path, path == &junitPath ? Junit() : Json()) || warned) continue;
        std::fprintf(stderr, "zorbus-host: cannot write the report %s: %s\n", path->c_str(), std::strerror(errno));
        warned = true;
    }
}

std::string Report::Junit() const {
    std::lock_guard<std::recursive_mutex> hold(lock);
    struct Suite {
        std::string device, timestamp, cases;
        unsigned tests = 0, failures = 0, errors = 0, skipped = 0;
        double seconds = 0;
    };
    std::vector<Suite> suites;
    Suite all;
    for (const Record& record : records) {
        const Verdict verdict = Judge(record);
        if (!verdict.isCase) continue;
        Suite* suite = nullptr;
        for (Suite& known : suites)
            if (known.device == verdict.device) suite = &known;
        if (!suite) {
            suites.push_back(Suite{verdict.device, record.startedAt.substr(0, 19), "", 0, 0, 0, 0, 0});
            suite = &suites.back();
        }
        const double seconds = (record.Ended() ? record.ended : Now()) - record.started;
        std::string element = "    <testcase" + Attribute("name", verdict.test) +
                              Attribute("classname", verdict.device) + Attribute("time", Seconds(seconds)) + ">\n";
        const std::string message = verdict.error.empty() ? verdict.result : verdict.error;
        if (verdict.result == "failed") {
            element += "      <failure" + Attribute("message", message) + Attribute("type", "failed") + ">" +
                       XmlText(message, false) + "</failure>\n";
            ++suite->failures;
        } else if (verdict.result == "canceled" || verdict.result == "blocked") {
            element += "      <skipped" +
                       Attribute("message", verdict.result + (verdict.error.empty() ? "" : ": " + verdict.error)) +
                       "/>\n";
            ++suite->skipped;
        } else if (verdict.result != "passed") {
            element += "      <error" + Attribute("message", message) + Attribute("type", verdict.result) + ">" +
                       XmlText(message, false) + "</error>\n";
            ++suite->errors;
        }
        const std::string log = LogLines(record);
        if (!log.empty()) element += "      <system-out>" + XmlText(log, false) + "</system-out>\n";
        suite->cases += element + "    </testcase>\n";
        ++suite->tests;
        suite->seconds += seconds;
    }
    std::string propertyList;
    for (const auto& property : properties)
        propertyList +=
            "      <property" + Attribute("name", property.first) + Attribute("value", property.second) + "/>\n";
    std::string body;
    for (const Suite& suite : suites) {
        body += "  <testsuite" + Attribute("name", suite.device) + Attribute("tests", std::to_string(suite.tests)) +
                Attribute("failures", std::to_string(suite.failures)) +
                Attribute("errors", std::to_string(suite.errors)) +
                Attribute("skipped", std::to_string(suite.skipped)) + Attribute("time", Seconds(suite.seconds)) +
                Attribute("timestamp", suite.timestamp) + ">\n";
        if (!propertyList.empty()) body += "    <properties>\n" + propertyList + "    </properties>\n";
        body += suite.cases + "  </testsuite>\n";
        all.tests += suite.tests;
        all.failures += suite.failures;
        all.errors += suite.errors;
        all.skipped += suite.skipped;
    }
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites" + Attribute("name", "zorbus-host") +
           Attribute("tests", std::to_string(all.tests)) + Attribute("failures", std::to_string(all.failures)) +
           Attribute("errors", std::to_string(all.errors)) + Attribute("skipped", std::to_string(all.skipped)) +
           Attribute("time", Seconds(ended >= 0 ? ended : Now())) + Attribute("timestamp", startedAt.substr(0, 19)) +
           ">\n" + body + "</testsuites>\n";
}

std::string Report::Json() const {
    std::lock_guard<std::recursive_mutex> hold(lock);
    std::string text = "{\n  \"started\": " + JsonString(startedAt) +
                       ",\n  \"seconds\": " + Seconds(ended >= 0 ? ended : Now()) +
                       ",\n  \"status\": " + (status >= 0 ? std::to_string(status) : "null") +
                       ",\n  \"stopped\": " + JsonOrNull(stopped, !stopped.empty()) + ",\n  \"properties\": {";
    for (size_t i = 0; i < properties.size(); ++i)
        text += std::string(i ? "," : "") + "\n    " + JsonString(properties[i].first) + ": " +
                JsonString(properties[i].second);
    text += std::string(properties.empty() ? "" : "\n  ") + "},\n  \"records\": [";
    unsigned passed = 0, failed = 0, canceled = 0;
    for (size_t i = 0; i < records.size(); ++i) {
        const Record& record = records[i];
        const Verdict verdict = Judge(record);
        text += std::string(i ? "," : "") + "\n    {\n      \"command\": " + JsonString(record.command) +
                ",\n      \"xml\": " + JsonString(record.xml) +
                ",\n      \"answer\": " + JsonOrNull(record.answer, record.Ended()) +
                ",\n      \"result\": " + JsonString(verdict.result) +
                ",\n      \"error\": " + JsonOrNull(verdict.error, !verdict.error.empty()) +
                ",\n      \"started\": " + JsonString(record.startedAt) +
                ",\n      \"startSeconds\": " + Seconds(record.started) +
                ",\n      \"seconds\": " + (record.Ended() ? Seconds(record.ended - record.started) : "null") +
                ",\n      \"events\": [";
        for (size_t k = 0; k < record.events.size(); ++k)
            text += std::string(k ? "," : "") + "\n        {\"seconds\": " + Seconds(record.events[k].seconds) +
                    ", \"xml\": " + JsonString(record.events[k].xml) + "}";
        text += std::string(record.events.empty() ? "" : "\n      ") + "],\n      \"prompts\": [";
        for (size_t k = 0; k < record.prompts.size(); ++k) {
            const PromptRecord& prompt = record.prompts[k];
            std::string options;
            for (const std::string& option : prompt.options)
                options += (options.empty() ? "" : ", ") + JsonString(option);
            const bool answered = prompt.by == "--answer" || prompt.by == "operator";
            text += std::string(k ? "," : "") + "\n        {\"text\": " + JsonString(prompt.text) + ", \"options\": [" +
                    options + "], \"answer\": " + JsonOrNull(prompt.answer, answered) +
                    ", \"answeredBy\": " + JsonString(prompt.by) + ", \"seconds\": " + Seconds(prompt.seconds) + "}";
        }
        text += std::string(record.prompts.empty() ? "" : "\n      ") + "]\n    }";
        if (verdict.isCase) {
            if (verdict.result == "passed")
                ++passed;
            else if (verdict.result == "canceled")
                ++canceled;
            else
                ++failed;
        }
    }
    return text + std::string(records.empty() ? "" : "\n  ") +
           "],\n  \"summary\": {\"passed\": " + std::to_string(passed) + ", \"failed\": " + std::to_string(failed) +
           ", \"canceled\": " + std::to_string(canceled) + "}\n}\n";
}

}  // namespace host
