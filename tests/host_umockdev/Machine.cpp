#include "Machine.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "HostSession.h"

namespace fs = std::filesystem;

namespace {

void WriteText(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary);
    out << text;
    if (!out) throw std::runtime_error("cannot write " + path);
}

std::string SelfPath() {
    char path[4096];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
    if (length <= 0) throw std::runtime_error("cannot find this program");
    return std::string(path, static_cast<size_t>(length));
}

// The transcript the session wrote: "kind length\ntext\n" records.
std::vector<Step> ReadTranscript(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::vector<Step> steps;
    std::string kind;
    size_t length = 0;
    while (in >> kind >> length) {
        in.get();  // the newline after the length
        std::string text(length, '\0');
        in.read(&text[0], static_cast<std::streamsize>(length));
        in.get();
        if (kind == "step") {
            steps.emplace_back();
            steps.back().line = text;
        } else if (steps.empty()) {
            throw std::runtime_error("transcript record before any step");
        } else if (kind == "answer") {
            steps.back().answered = true;
            steps.back().answer = text;
        } else {
            steps.back().events.push_back(text);
        }
    }
    return steps;
}

}  // namespace

std::string ReadText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

const Step& Session::Nth(const std::string& prefix, size_t n) const {
    for (const Step& step : steps)
        if (step.line.compare(0, prefix.size(), prefix) == 0 && n-- == 0) return step;
    throw std::runtime_error("no step \"" + prefix + "\" in the transcript; host said: " + errors);
}

std::vector<std::string> Session::Answers(const std::string& prefix) const {
    std::vector<std::string> answers;
    for (const Step& step : steps)
        if (step.line.compare(0, prefix.size(), prefix) == 0) answers.push_back(step.answer);
    return answers;
}

FakeMachine::FakeMachine(const std::string& fixture) {
    char pattern[] = "/tmp/zorbus-e2e-XXXXXX";
    if (!mkdtemp(pattern)) throw std::runtime_error("mkdtemp failed");
    folder = pattern;
    testbed = folder + "/testbed";
    work = folder + "/work";
    stubs = folder + "/stubs";
    fs::create_directories(testbed + "/proc");
    fs::create_directories(work);
    fs::create_directories(stubs);
    if (!fixture.empty()) {
        const fs::path source = fs::path(ZORBUS_SOURCE_DIR) / "tests" / "fixtures" / fixture / "proc";
        if (!fs::is_directory(source)) throw std::runtime_error("no fixture " + source.string());
        fs::copy(source, testbed + "/proc", fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    }
    WriteText(testbed + testbedMarkPath, "testbed\n");

    // The stubs log their calls and never touch anything outside the folder.
    const std::string log = folder + "/tools.log";
    for (const char* tool : {"mount", "sync", "lsusb"}) {
        std::string body = "#!/bin/sh\necho \"" + std::string(tool) + " $*\" >> '" + log + "'\n";
        if (std::strcmp(tool, "lsusb") == 0) body += "cat '" + stubs + "/lsusb.out' 2>/dev/null\n";
        body += "exit 0\n";
        const std::string path = stubs + "/" + tool;
        WriteText(path, body);
        if (chmod(path.c_str(), 0755) != 0) throw std::runtime_error("chmod " + path);
    }
}

FakeMachine::~FakeMachine() {
    std::error_code ignored;
    fs::remove_all(folder, ignored);
}

bool FakeMachine::Remove(const std::string& path) {
    std::error_code ignored;
    fs::remove(fs::path(testbed) / path, ignored);
    // Outside the preload this process sees the real machine.
    return !fs::exists(fs::path("/") / path, ignored);
}

void FakeMachine::SetLsusbOutput(const std::string& text) { WriteText(stubs + "/lsusb.out", text); }

Session FakeMachine::Run(const std::vector<std::string>& script) {
    const std::string scriptPath = folder + "/script.txt";
    const std::string transcriptPath = folder + "/transcript.txt";
    const std::string outputPath = folder + "/session.out";
    std::string text;
    for (const std::string& line : script) text += line + "\n";
    WriteText(scriptPath, text);
    std::remove(transcriptPath.c_str());

    const std::string self = SelfPath();
    const std::string path = stubs + ":" + (getenv("PATH") ? getenv("PATH") : "/usr/bin:/bin");
    // gcc's ASan runtime refuses to start behind the umockdev preload unless told.
    std::string asan = getenv("ASAN_OPTIONS") ? getenv("ASAN_OPTIONS") : "";
    if (asan.find("verify_asan_link_order") == std::string::npos)
        asan += std::string(asan.empty() ? "" : ":") + "verify_asan_link_order=0";

    const pid_t child = fork();
    if (child < 0) throw std::runtime_error("fork failed");
    if (child == 0) {
        FILE* out = std::fopen(outputPath.c_str(), "w");
        if (!out || chdir(work.c_str()) != 0) _exit(126);
        dup2(fileno(out), 1);
        dup2(fileno(out), 2);
        setenv("UMOCKDEV_DIR", testbed.c_str(), 1);
        setenv("PATH", path.c_str(), 1);
        setenv("ASAN_OPTIONS", asan.c_str(), 1);
        execlp("umockdev-wrapper", "umockdev-wrapper", self.c_str(), "--host-session", scriptPath.c_str(),
               transcriptPath.c_str(), static_cast<char*>(nullptr));
        std::fprintf(stderr, "cannot start umockdev-wrapper: %s\n", std::strerror(errno));
        _exit(127);
    }
    int status = 0;
    if (waitpid(child, &status, 0) != child) throw std::runtime_error("waitpid failed");

    Session session;
    session.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    session.errors = ReadText(outputPath);
    session.steps = ReadTranscript(transcriptPath);
    return session;
}

std::vector<std::string> FakeMachine::ToolCalls() const {
    std::vector<std::string> calls;
    std::ifstream in(folder + "/tools.log");
    for (std::string line; std::getline(in, line);) calls.push_back(line);
    return calls;
}

bool FakeMachine::HasWorkFile(const std::string& name) const { return fs::exists(fs::path(work) / name); }

std::string FakeMachine::WorkFile(const std::string& name) const { return ReadText(work + "/" + name); }

std::string InitLine(const std::string& attributes) { return "init <init " + attributes + "/>"; }

std::vector<std::string> Opening(bool factory, const std::string& initAttributes) {
    return {std::string("factory ") + (factory ? "1" : "0"), "translator C", InitLine(initAttributes), "callback"};
}
