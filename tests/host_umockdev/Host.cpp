#include "Host.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <locale>
#include <map>
#include <mutex>
#include <random>
#include <stdexcept>
#include <thread>

namespace fs = std::filesystem;

namespace {

// The file a testbed carries so that the session can tell the preload works.
const char* const testbedMark = "/proc/zorbus-testbed";

std::string Decode(std::string text) {
    static const std::pair<const char*, char> entities[] = {{"&lt;", '<'},    {"&gt;", '>'},   {"&quot;", '"'},
                                                            {"&apos;", '\''}, {"&#10;", '\n'}, {"&#13;", '\r'},
                                                            {"&#9;", '\t'},   {"&amp;", '&'}};  // "&amp;" last
    for (const auto& e : entities)
        for (size_t at = 0; (at = text.find(e.first, at)) != std::string::npos; ++at)
            text.replace(at, std::strlen(e.first), 1, e.second);
    return text;
}

// The host process of a session. Script: one call per line, "verb argument"; a verb alone passes null.
//   factory|medium 0|1   what nvxIsFactory / nvxIsDiagsCD answer from now on
//   translator, init, uninit   InitializeTCTranslator, Initialize, Uninitialize
//   initialized          IsInitialized, as answer
//   callback             SetCallback with the recording callback, then its release
//   run XML              ExecuteXMLCommand, then its release
//   hold XML             ExecuteXMLCommand, kept
//   release              both releases; answers the innermost answer still held
//   file PATH            a file's bytes, as answer
//   stress SECONDS       four threads send a random mix of commands for that long, each answer released by its
//                        own thread; answers: how often each command ran, and each answer whose element did not
//                        fit its command
//   unload, load         dlclose the library, dlopen it again
//   loaded               whether the library is still mapped, as answer
//   resources            "descriptors N threads N mappings N" of this process, as answer
//   state                working directory, umask, locales, signals and environment, as answer
//   inherit              opens a descriptor that every program started would inherit
//   resolve NAME         the file that defines NAME for the global scope, as answer
// Transcript: records "kind length\ntext\n"; kind "step", "answer" or "event".
// Prompts are answered with the first button, as an operator pressing OK.

int factoryMode = 0, diagsMedium = 0;
std::FILE* transcript = nullptr;
std::atomic<bool> stressing{false};  // events are not recorded while threads overlap

void Record(const char* kind, const std::string& text) {  // state files hold zero bytes
    std::fprintf(transcript, "%s %zu\n", kind, text.size());
    std::fwrite(text.data(), 1, text.size(), transcript);
    std::fputc('\n', transcript);
    std::fflush(transcript);  // a session that dies half-way still leaves what it did
}

char* Callback(const char* xml) {
    if (!stressing) Record("event", xml ? xml : "<null>");
    if (!xml || std::strncmp(xml, "<diagPrompt ", 12) != 0) return nullptr;
    static const char reply[] = "<diagPromptResponse value=\"0\"/>";
    return std::strcpy(new char[sizeof reply], reply);
}

// The commands of a stress run, each with the elements its answer may have.
const std::pair<const char*, Strings> stressMix[] = {
    {"<id/>", {"idResult"}},
    {"<catalog/>", {"catResult"}},
    {"<runTest device=\"usbDevice0\" test=\"rootHubTest\"/>", {"testResult"}},
    {"<cancelTest device=\"usbDevice0\" test=\"rootHubTest\"/>", {"diagOutput", "testResult"}},  // before any id
    {"<getDiagVersion/>", {"diagVersion"}},
    {"<runDiagnosis device=\"usbDevice0\"/>", {"diagnosisResult", "diagOutput"}},
};

std::string Stress(int seconds, char* (*execute)(const char*), void (*release)()) {
    std::mutex mutex;
    std::map<std::string, int> counts;
    std::string unexpected;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    std::vector<std::thread> threads;
    for (unsigned seed = 1; seed <= 4; ++seed)
        threads.emplace_back([&, seed] {
            std::mt19937 random(seed);
            while (std::chrono::steady_clock::now() < end) {
                const auto& command = stressMix[random() % std::size(stressMix)];
                const char* answer = execute(command.first);
                const std::string text = answer ? answer : "";
                const std::string element = text.substr(1, text.find_first_of(" />", 1) - 1);
                release();
                std::lock_guard<std::mutex> hold(mutex);
                ++counts[std::string(command.first).substr(1, std::string(command.first).find_first_of(" /") - 1)];
                if (std::find(command.second.begin(), command.second.end(), element) == command.second.end())
                    unexpected += std::string(command.first) + " -> " + text.substr(0, 200) + "\n";
            }
        });
    for (std::thread& t : threads) t.join();
    std::string summary;
    for (const auto& c : counts) summary += c.first + " " + std::to_string(c.second) + "\n";
    return summary + unexpected;
}

// The entry points of one load of the library.
struct Library {
    void* handle = nullptr;
    void (*Initialize)(const char*) = nullptr;
    void (*Uninitialize)(const char*) = nullptr;
    void (*InitializeTCTranslator)(const char*) = nullptr;
    int (*IsInitialized)() = nullptr;
    char* (*SetCallback)(char* (*)(const char*)) = nullptr;
    char* (*ExecuteXMLCommand)(const char*) = nullptr;
    void (*FreeLastSetCallbackResult)() = nullptr;
    void (*FreeLastExecuteXMLCommandResult)() = nullptr;

    bool Load() {
        handle = dlopen(ZORBUS_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
        if (!handle) {
            std::fprintf(stderr, "host session: cannot load: %s\n", dlerror());
            return false;
        }
        return Bind(Initialize, "Initialize") && Bind(Uninitialize, "Uninitialize") &&
               Bind(InitializeTCTranslator, "InitializeTCTranslator") && Bind(IsInitialized, "IsInitialized") &&
               Bind(SetCallback, "SetCallback") && Bind(ExecuteXMLCommand, "ExecuteXMLCommand") &&
               Bind(FreeLastSetCallbackResult, "FreeLastSetCallbackResult") &&
               Bind(FreeLastExecuteXMLCommandResult, "FreeLastExecuteXMLCommandResult");
    }
    template <class F>
    bool Bind(F& entry, const char* name) {
        entry = reinterpret_cast<F>(dlsym(handle, name));
        if (!entry) std::fprintf(stderr, "host session: missing entry point %s\n", name);
        return entry != nullptr;
    }
    void Unload() {
        dlclose(handle);
        *this = Library();
    }
};

size_t CountEntries(const char* folder) {
    size_t count = 0;
    if (DIR* dir = opendir(folder)) {
        while (const dirent* entry = readdir(dir)) count += entry->d_name[0] != '.';
        closedir(dir);
    }
    return count;
}

std::string Resources() {
    std::ifstream maps("/proc/self/maps");
    size_t mappings = 0;
    for (std::string line; std::getline(maps, line);) ++mappings;
    // The listing's own descriptor is not counted.
    return "descriptors " + std::to_string(CountEntries("/proc/self/fd") - 1) + " threads " +
           std::to_string(CountEntries("/proc/self/task")) + " mappings " + std::to_string(mappings);
}

// What the component must leave as it found it in its host.
std::string ProcessState() {
    char folder[PATH_MAX];
    std::string state = std::string("cwd ") + (getcwd(folder, sizeof folder) ? folder : "?") + "\n";
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.compare(0, 6, "Umask:") == 0) state += line + "\n";
    state += std::string("locale ") + setlocale(LC_ALL, nullptr) + " C++ " + std::locale().name() + "\n";
    sigset_t blocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    for (int signal = 1; signal < NSIG; ++signal) {
        struct sigaction action;
        if (sigaction(signal, nullptr, &action) != 0) continue;
        if (action.sa_handler != SIG_DFL || sigismember(&blocked, signal) == 1)
            state += "signal " + std::to_string(signal) + (action.sa_handler == SIG_IGN ? " ignored" : " handled") +
                     (sigismember(&blocked, signal) == 1 ? " blocked" : "") + "\n";
    }
    for (char** e = environ; *e; ++e) state += std::string("env ") + *e + "\n";
    return state;
}

int RunHostSession(const char* scriptPath, const char* transcriptPath, const char* decoy) {
    if (access(testbedMark, F_OK) != 0) {
        std::fprintf(stderr, "host session: %s not visible; is the umockdev preload active?\n", testbedMark);
        return 2;
    }
    // Before the component, and for every object loaded after it.
    if (decoy && !dlopen(decoy, RTLD_NOW | RTLD_GLOBAL)) {
        std::fprintf(stderr, "host session: cannot load the decoy: %s\n", dlerror());
        return 3;
    }
    std::ifstream script(scriptPath);
    transcript = std::fopen(transcriptPath, "w");
    Library library;
    if (!script || !transcript) {
        std::fprintf(stderr, "host session: cannot start: no script or transcript\n");
        return 3;
    }
    if (!library.Load()) return 3;
    const auto Answer = [](const char* text) { Record("answer", text ? text : "<null>"); };

    std::vector<char*> held;
    for (std::string line; std::getline(script, line);) {
        const size_t blank = line.find(' ');
        const std::string verb = line.substr(0, blank), text = blank == std::string::npos ? "" : line.substr(blank + 1);
        const char* argument = blank == std::string::npos ? nullptr : text.c_str();
        Record("step", line);
        if (!library.handle && verb != "load" && verb != "loaded" && verb != "resources") {
            std::fprintf(stderr, "host session: \"%s\" while the library is unloaded\n", line.c_str());
            return 3;
        }
        if (verb == "factory")
            factoryMode = std::atoi(text.c_str());
        else if (verb == "medium")
            diagsMedium = std::atoi(text.c_str());
        else if (verb == "translator")
            library.InitializeTCTranslator(argument);
        else if (verb == "init")
            library.Initialize(argument);
        else if (verb == "uninit")
            library.Uninitialize(argument);
        else if (verb == "initialized")
            Answer(std::to_string(library.IsInitialized()).c_str());
        else if (verb == "callback") {
            Answer(library.SetCallback(&Callback));
            library.FreeLastSetCallbackResult();
        } else if (verb == "run") {
            Answer(library.ExecuteXMLCommand(argument));
            library.FreeLastExecuteXMLCommandResult();
        } else if (verb == "hold") {
            held.push_back(library.ExecuteXMLCommand(argument));
            Answer(held.back());
        } else if (verb == "release") {
            library.FreeLastExecuteXMLCommandResult();
            library.FreeLastSetCallbackResult();
            if (!held.empty()) held.pop_back();
            Answer(held.empty() ? "<none>" : held.back());
        } else if (verb == "stress") {
            stressing = true;
            const std::string summary =
                Stress(std::atoi(text.c_str()), library.ExecuteXMLCommand, library.FreeLastExecuteXMLCommandResult);
            stressing = false;
            Answer(summary.c_str());
        } else if (verb == "file") {
            Record("answer", access(text.c_str(), F_OK) == 0 ? ReadText(text) : "<no file>");
        } else if (verb == "unload") {
            library.Unload();
        } else if (verb == "load") {
            if (!library.Load()) return 3;
        } else if (verb == "loaded") {
            Answer(dlopen(ZORBUS_LIBRARY_PATH, RTLD_NOW | RTLD_NOLOAD) ? "1" : "0");
        } else if (verb == "resources") {
            Answer(Resources().c_str());
        } else if (verb == "state") {
            Answer(ProcessState().c_str());
        } else if (verb == "inherit") {
            Answer(std::to_string(open(".", O_RDONLY | O_DIRECTORY)).c_str());
        } else if (verb == "resolve") {
            Dl_info where{};
            void* address = dlsym(RTLD_DEFAULT, text.c_str());
            Answer(address && dladdr(address, &where) && where.dli_fname ? where.dli_fname : "<none>");
        } else {
            std::fprintf(stderr, "host session: unknown verb in \"%s\"\n", line.c_str());
            return 3;
        }
    }
    std::fclose(transcript);
    return 0;  // the library stays loaded, as in a host; leak checks at exit still see its globals
}

std::vector<Step> ReadTranscript(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::vector<Step> steps;
    std::string kind;
    for (size_t length = 0; in >> kind >> length;) {
        std::string text(length + 1, '\0');
        in.get();
        in.read(&text[0], static_cast<std::streamsize>(length + 1));
        text.pop_back();
        if (kind == "step")
            steps.push_back({text, "", {}});
        else if (steps.empty())
            throw std::runtime_error("transcript record before any step");
        else if (kind == "answer")
            steps.back().answer = text;
        else
            steps.back().events.push_back(text);
    }
    return steps;
}

std::string MakeFolder() {
    char pattern[] = "/tmp/zorbus-e2e-XXXXXX";
    if (!mkdtemp(pattern)) throw std::runtime_error("mkdtemp failed");
    return pattern;
}

}  // namespace

// Host services: this host decides the mode and the processor.
extern "C" {
__attribute__((visibility("default"))) int nvxIsFactory() { return factoryMode; }
__attribute__((visibility("default"))) int nvxIsDiagsCD() { return diagsMedium; }
__attribute__((visibility("default"))) int nvxGetCurrentCPU() { return hostProcessor; }
}

// Whether umockdev diverts this program's file calls to a testbed: this
// program started under umockdev-wrapper on a testbed holding only the mark.
const std::string& DiversionUnavailable() {
    static const std::string why = [] {
        const std::string folder = MakeFolder();
        fs::create_directories(folder + "/proc");
        std::ofstream(folder + testbedMark) << "testbed\n";
        const char* asan = getenv("ASAN_OPTIONS");  // as for a session
        std::vector<std::string> env = {"UMOCKDEV_DIR=" + folder,
                                        "ASAN_OPTIONS=" + std::string(asan ? asan : "") + ":verify_asan_link_order=0"};
        for (char** e = environ; *e; ++e)
            if (std::strncmp(*e, "ASAN_OPTIONS=", 13) != 0) env.push_back(*e);
        std::vector<std::string> args = {"umockdev-wrapper", "/proc/" + std::to_string(getpid()) + "/exe",
                                         "--diversion-probe"};
        std::vector<char*> argv, envp;
        for (std::string& a : args) argv.push_back(&a[0]);
        for (std::string& e : env) envp.push_back(&e[0]);
        argv.push_back(nullptr);
        envp.push_back(nullptr);
        pid_t child = -1;
        int status = -1;
        const int spawned = posix_spawnp(&child, argv[0], nullptr, nullptr, argv.data(), envp.data());
        if (spawned == 0) waitpid(child, &status, 0);
        std::error_code ignored;
        fs::remove_all(folder, ignored);
        if (spawned != 0) return "umockdev-wrapper cannot be started: " + std::string(std::strerror(spawned));
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
            return "umockdev-wrapper does not divert the file calls of this " + std::to_string(sizeof(void*) * 8) +
                   "-bit program (no libumockdev-preload.so.0 of its word size)";
        return std::string();
    }();
    return why;
}

// One program, three roles: the tests, the host they start (--host-session),
// and the check that umockdev diverts this program (--diversion-probe).
int main(int argc, char** argv) {
    if ((argc == 4 || argc == 5) && std::strcmp(argv[1], "--host-session") == 0)
        return RunHostSession(argv[2], argv[3], argc == 5 ? argv[4] : nullptr);
    if (argc == 2 && std::strcmp(argv[1], "--diversion-probe") == 0) return access(testbedMark, F_OK) == 0 ? 0 : 2;
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

std::string ReadText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// XML as the component writes it: double quotes, no declaration.
Element Element::Parse(const std::string& xml) {
    static const std::regex token(R"re(<(/?)([^\s/>]+)((?:\s+[^\s=]+="[^"]*")*)\s*(/?)>|([^<]+))re"),
        attribute(R"re(([^\s=]+)="([^"]*)")re");
    std::vector<Element> open(1);  // the elements not yet closed, below a holder for the root
    long at = 0;
    for (std::sregex_iterator it(xml.begin(), xml.end(), token), end; it != end; at += it++->length()) {
        const std::smatch& m = *it;
        if (m.position() != at) break;
        if (m[5].matched) {
            open.back().text += Decode(m[5]);
        } else if (m[1].length() > 0) {
            if (open.size() < 2 || open.back().name != m[2]) break;
            open[open.size() - 2].children.push_back(std::move(open.back()));
            open.pop_back();
        } else {
            Element e{m[2], "", {}, {}};
            const std::string list = m[3];
            for (std::sregex_iterator a(list.begin(), list.end(), attribute); a != end; ++a)
                e.attributes.emplace_back((*a)[1], Decode((*a)[2]));
            if (m[4].length() > 0)
                open.back().children.push_back(std::move(e));
            else
                open.push_back(std::move(e));
        }
    }
    if (static_cast<size_t>(at) != xml.size() || open.size() != 1 || open[0].children.size() != 1 ||
        !open[0].text.empty())
        throw std::runtime_error("no well-formed element at offset " + std::to_string(at) + " in: " + xml);
    return open[0].children[0];
}

FakeMachine::FakeMachine(const std::string& fixture) : folder(MakeFolder()) {
    for (const char* sub : {"testbed/proc", "testbed/ioctl", "work", "stubs", "data"})
        fs::create_directories(folder + "/" + sub);
    if (!fixture.empty())
        fs::copy(std::string(ZORBUS_SOURCE_DIR) + "/tests/fixtures/" + fixture + "/proc", folder + "/testbed/proc",
                 fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    Write(std::string("testbed") + testbedMark, "testbed\n");

    // Every stub logs its call, prints its data file and mounts nothing: a
    // vfat mount only enters the testbed's mount table, umount takes it out.
    const std::string data = folder + "/data/", mounts = folder + "/testbed/proc/self/mounts";
    const std::string stub = "#!/bin/sh\nt=$(basename \"$0\")\n"
                             "{ printf %s \"$t\"; for a in \"$@\"; do printf ' [%s]' \"$a\"; done; echo; } >> '" +
                             folder +
                             "/calls.log'\n"
                             "[ \"$t\" = mount ] && [ \"$2\" != vfat ] && exit 0\n"
                             "[ -s \"" +
                             data + "$t.status\" ] && exit $(cat \"" + data +
                             "$t.status\")\n"
                             "cat \"" +
                             data +
                             "$t\" 2>/dev/null\n"
                             "[ \"$t\" = mount ] && printf '%s %s vfat rw 0 0\\n' \"$3\" \"$4\" >> '" +
                             mounts +
                             "'\n"
                             "[ \"$t\" = umount ] && grep -v \" $1 \" '" +
                             mounts + "' > '" + mounts + ".new' && mv '" + mounts + ".new' '" + mounts + "'\nexit 0\n";
    for (const char* tool :
         {"stubs/mount", "stubs/umount", "stubs/sync", "stubs/lsusb", "stubs/sg_scan", "stubs/sg_map", "stubs/sg_inq",
          "stubs/mkdir", "stubs/rm", "stubs/cp", "work/sg_scan", "work/sg_map"}) {
        Write(tool, stub);
        if (chmod((folder + "/" + tool).c_str(), 0755) != 0) throw std::runtime_error(std::string("chmod ") + tool);
    }
    // No ioctl is ever asked; connections only need to be taken.
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    (folder + "/testbed/ioctl/_default").copy(address.sun_path, sizeof address.sun_path - 1);
    ioctlSocket = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (ioctlSocket < 0 || bind(ioctlSocket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        listen(ioctlSocket, 64) != 0)
        throw std::runtime_error("cannot listen on the testbed's ioctl socket");
}

FakeMachine::~FakeMachine() {
    close(ioctlSocket);
    std::error_code ignored;
    fs::remove_all(folder, ignored);
}

void FakeMachine::Write(const std::string& path, const std::string& text) const {
    fs::create_directories(fs::path(folder + "/" + path).parent_path());
    std::ofstream out(folder + "/" + path, std::ios::binary);
    if (!(out << text)) throw std::runtime_error("cannot write " + path);
}

void FakeMachine::WatchDescriptors(const Strings& stubs) const {
    fs::create_directories(folder + "/shell");
    for (const std::string& path : stubs) {
        fs::rename(folder + "/" + path, folder + "/shell/" + fs::path(path).filename().string());
        fs::copy_file(ZORBUS_FDLIST_PATH, folder + "/" + path);
    }
}

bool FakeMachine::Has(const std::string& path) const { return fs::exists(folder + "/" + path); }

bool FakeMachine::Remove(const std::string& path) const {
    std::error_code ignored;
    fs::remove(folder + "/" + path, ignored);
    return path.compare(0, 8, "testbed/") != 0 || !fs::exists(path.substr(7), ignored);
}

Strings FakeMachine::Calls() const {
    Strings calls;
    std::ifstream in(folder + "/calls.log");
    for (std::string line; std::getline(in, line);) calls.push_back(line);
    return calls;
}

Session FakeMachine::Run(const Strings& script) {
    std::string text;
    for (const std::string& line : script) text += line + "\n";
    Write("script.txt", text);
    Remove("transcript.txt");
    // Started without a shell. gcc's ASan runtime refuses to start behind the
    // umockdev preload unless told.
    const char* asan = getenv("ASAN_OPTIONS");
    std::vector<std::string> env = {"UMOCKDEV_DIR=" + folder + "/testbed",
                                    "PATH=" + folder + "/stubs:" + (getenv("PATH") ? getenv("PATH") : "/usr/bin:/bin"),
                                    "ASAN_OPTIONS=" + std::string(asan ? asan : "") + ":verify_asan_link_order=0"};
    for (char** e = environ; *e; ++e)
        if (std::strncmp(*e, "PATH=", 5) && std::strncmp(*e, "ASAN_OPTIONS=", 13)) env.push_back(*e);
    std::vector<std::string> args = {"umockdev-wrapper"};
    args.insert(args.end(), wrapper.begin(), wrapper.end());
    args.insert(args.end(), {"/proc/" + std::to_string(getpid()) + "/exe", "--host-session", folder + "/script.txt",
                             folder + "/transcript.txt"});
    if (!decoy.empty()) args.push_back(decoy);
    auto pointers = [](std::vector<std::string>& texts) {
        std::vector<char*> list;
        for (std::string& t : texts) list.push_back(&t[0]);
        list.push_back(nullptr);
        return list;
    };
    std::vector<char*> argv = pointers(args), envp = pointers(env);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addchdir_np(&actions, (folder + "/work").c_str());
    const std::string output = folder + "/session.out";
    posix_spawn_file_actions_addopen(&actions, 1, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);
    // Opening a testbed file under /dev connects to the ioctl socket: accepted here while the host runs.
    std::atomic<bool> done{false};
    std::thread server([&] {
        std::vector<int> accepted;
        for (pollfd p{ioctlSocket, POLLIN, 0}; !done;)
            if (poll(&p, 1, 20) > 0) accepted.push_back(accept(ioctlSocket, nullptr, nullptr));
        for (int fd : accepted) close(fd);
    });
    pid_t child = -1;
    const int spawned = posix_spawnp(&child, argv[0], &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    int status = -1;
    if (spawned == 0) waitpid(child, &status, 0);
    done = true;
    server.join();
    const Session session{Read("session.out"), ReadTranscript(folder + "/transcript.txt")};
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status << ": " << session.errors;
    return session;
}

void ExpectRecorded(const std::string& got, const std::string& path) {
    const std::string file = std::string(ZORBUS_SOURCE_DIR) + "/tests/" + path;
    if (std::getenv("ZORBUS_WRITE_REFERENCES")) std::ofstream(file, std::ios::binary) << got;
    ASSERT_TRUE(fs::exists(file)) << file;
    EXPECT_EQ(got, ReadText(file)) << file;
}

std::string RecordedAnswer(const std::string& path, size_t n) {
    const std::string text = ReadText(std::string(ZORBUS_SOURCE_DIR) + "/tests/" + path);
    // Labels stand on lines of their own; a record is "kind length\n" and its bytes.
    size_t answers = 0;
    for (size_t at = 0; at < text.size();) {
        const size_t end = text.find('\n', at);
        if (end == std::string::npos) break;
        const std::string line = text.substr(at, end - at);
        at = end + 1;
        const size_t blank = line.find(' ');
        if (blank == std::string::npos) continue;
        const size_t length = std::stoul(line.substr(blank + 1));
        if (line.compare(0, blank, "answer") == 0 && answers++ == n) return text.substr(at, length);
        at += length + 1;
    }
    throw std::runtime_error("no answer " + std::to_string(n) + " in " + path);
}
