// USB discovery on the largest machines, end to end as a host drives it, and
// every figure of its targets in one run. A discovery is a fresh component,
// SetCallback, "<id/>" on 8 or 32 fully populated buses (1,016 or 4,064
// devices), the answer released, Uninitialize; on both roads, in field and in
// factory mode. After the table the program prints each figure beside its
// target:
//
//   - devices-file road at 4,064 devices: within 25 ms (field) and 50 ms
//     (factory), and T(4,064) / T(1,016) at most 4.3 in both modes;
//   - lsusb road at 4,064 devices: within 5 times its floor, measured beside
//     it: reading the text once, writing the "devices" file and a trace of
//     the same size once;
//   - an unknown command: within 3 times a bare pugixml parse and serialise
//     of its text;
//   - peak resident memory of a 4,064-device discovery, in a fresh process of
//     its own: within 4 times its answer plus the text it read;
//   - answers, events, the "devices" file and the "bang1.txt" trace the same
//     as those of the reference run (tests/fixtures/largest/reference.txt),
//     checked once for each case before it is timed.
//
// Repetitions of all cases are interleaved at random and the figures are
// their wall-time medians; on a busy machine ask for more of them, e.g.
// --benchmark_repetitions=15.
//
// The devices file has a fixed path, so the program runs itself again under
// umockdev-wrapper with a temporary testbed, from a temporary working
// directory, with stub mount, sync and lsusb programs first on the search
// path. A devices-file case writes the testbed's devices file; an lsusb case
// removes it and leaves stub lsusb the text to print.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <pugixml.hpp>
#include <string>
#include <vector>

#include "bench/BenchTestbed.h"
#include "tc/frame/EntryPoints.h"
#include "tests/fixtures/largest/LargestMachines.h"

extern char** environ;

namespace fs = std::filesystem;

namespace {

using namespace benchtestbed;

// The mode this host reports (nvxIsFactory below).
int benchFactoryMode = 0;

const char* const peakMemoryOption = "--peak-memory-of-one-discovery";
const char* const unknownCommand = "<noSuchCommand component=\"libzorbus\"/>";
const char* const traceFile = "bang1.txt";
const char* const devicesFile = "devices";

// Targets.
const double devicesFileFieldLimitMs = 25;
const double devicesFileFactoryLimitMs = 50;
const double devicesFileGrowthLimit = 4.3;
const double lsusbFloorLimit = 5;
const double unknownCommandLimit = 3;
const double memoryLimit = 4;

enum Road { devicesFileRoad, lsusbRoad };

std::vector<std::string> events;
char* DropEvent(const char*) { return nullptr; }
char* KeepEvent(const char* xml) {
    events.push_back(xml ? xml : "<null>");
    return nullptr;
}

std::string Folder() { return getenv(folderVariable); }
std::string TestbedDevicesFile() { return Folder() + "/testbed/proc/bus/usb/devices"; }
std::string LsusbOutput() { return Folder() + "/lsusb.out"; }

const std::string& MachineText(Road road, int buses) {
    static std::map<std::pair<Road, int>, std::string> texts;
    std::string& text = texts[{road, buses}];
    if (text.empty()) text = road == lsusbRoad ? largest::LsusbText(buses) : largest::DevicesFile(buses);
    return text;
}

// Makes the testbed show this machine, on this road.
void SetMachine(Road road, int buses) {
    static std::pair<Road, int> shown{devicesFileRoad, 0};
    if (shown == std::make_pair(road, buses)) return;
    if (road == lsusbRoad) {
        std::remove(TestbedDevicesFile().c_str());
        WriteFile(LsusbOutput(), MachineText(road, buses));
    } else {
        WriteFile(TestbedDevicesFile(), MachineText(road, buses));
    }
    shown = {road, buses};
}

// One full discovery: a fresh component each time.
size_t Discover(char* (*callback)(const char*) = &DropEvent, std::string* answerCopy = nullptr) {
    Initialize("<init component=\"libzorbus.so\"/>");
    SetCallback(callback);
    FreeLastSetCallbackResult();
    const char* answer = ExecuteXMLCommand("<id/>");
    const size_t length = std::strlen(answer);
    if (answerCopy) *answerCopy = answer;
    benchmark::DoNotOptimize(answer);
    FreeLastExecuteXMLCommandResult();
    Uninitialize(nullptr);
    return length;
}

// ---- programs of their own ----

// Runs this program again with `options`, in the same testbed and folder;
// gives what it printed, empty when it could not run.
std::string RunSelf(const std::vector<std::string>& options) {
    char self[4096];
    const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
    int out[2];
    if (length <= 0 || pipe2(out, O_CLOEXEC) != 0) return "";
    self[length] = '\0';
    std::vector<char*> argv{self};
    for (const std::string& option : options) argv.push_back(const_cast<char*>(option.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    pid_t child = -1;
    const bool started = posix_spawn(&child, self, &actions, nullptr, argv.data(), environ) == 0;
    posix_spawn_file_actions_destroy(&actions);
    close(out[1]);
    std::string printed;
    char buffer[4096];
    for (ssize_t n; (n = read(out[0], buffer, sizeof buffer)) > 0;) printed.append(buffer, static_cast<size_t>(n));
    close(out[0]);
    int status = 0;
    if (started) waitpid(child, &status, 0);
    return started && WIFEXITED(status) && WEXITSTATUS(status) == 0 ? printed : "";
}

// ---- the reference run ----

const char* const checkOption = "--check-one-discovery";

// In a fresh process, as the reference run was made (the device counters
// are the process's): one discovery, its outputs summed as the reference
// test sums them. Prints "same", or what differs, then the answer's and
// the trace's length.
int CheckOneDiscovery(int lsusb, int buses, int factory) {
    benchFactoryMode = factory;
    InitializeTCTranslator("C");
    std::remove(traceFile);
    std::remove(devicesFile);
    std::string answer;
    Discover(&KeepEvent, &answer);
    std::string id = largest::Record("answer", answer);
    for (const std::string& event : events) id += largest::Record("event", event);
    std::error_code missing;
    const uintmax_t traceBytes = fs::file_size(traceFile, missing);
    const std::string machine = largest::MachineName(lsusb != 0, buses);
    const std::vector<std::string> got =
        largest::SumLines(machine, factory != 0, id, largest::FileRecord(devicesFile), largest::FileRecord(traceFile));
    const std::vector<std::string> want = largest::SumFileLines(
        ZORBUS_SOURCE_DIR "/tests/fixtures/largest/reference.txt", machine + (factory ? " factory " : " field "));
    std::string verdict = want.empty() ? "no reference for " + machine : "same";
    for (size_t i = 0; i < got.size() && !want.empty(); ++i)
        if (i >= want.size() || got[i] != want[i]) {
            verdict = "differs from the reference: " + got[i];
            break;
        }
    std::printf("%s\n%zu %ju\n", verdict.c_str(), answer.size(), missing ? uintmax_t(0) : traceBytes);
    return 0;
}

struct Check {
    bool done = false;
    std::string differs;  // empty when all is as the reference run made it
    double answerBytes = 0, traceBytes = 0;
};

Check CompareWithReference(Road road, int buses, bool factory) {
    Check check;
    check.done = true;
    const std::string printed =
        RunSelf({checkOption, std::to_string(road == lsusbRoad), std::to_string(buses), std::to_string(factory)});
    const size_t newline = printed.find('\n');
    if (newline == std::string::npos) {
        check.differs = "the checking process gave no answer";
        return check;
    }
    if (printed.compare(0, newline, "same") != 0) check.differs = printed.substr(0, newline);
    std::sscanf(printed.c_str() + newline + 1, "%lf %lf", &check.answerBytes, &check.traceBytes);
    return check;
}

// ---- the discoveries ----

void Discovery(benchmark::State& state, Road road) {
    const int buses = static_cast<int>(state.range(0));
    benchFactoryMode = static_cast<int>(state.range(1));
    SetMachine(road, buses);
    static std::map<std::vector<int>, Check> checks;
    Check& check = checks[{road, buses, benchFactoryMode}];
    if (!check.done) check = CompareWithReference(road, buses, benchFactoryMode != 0);
    if (!check.differs.empty()) {
        state.SkipWithError(check.differs.c_str());
        return;
    }
    for (auto _ : state) {
        if (road == lsusbRoad) {
            // The trace grows with every discovery; each starts it afresh.
            state.PauseTiming();
            std::remove(traceFile);
            state.ResumeTiming();
        }
        benchmark::DoNotOptimize(Discover());
    }
    state.counters["devices"] = buses * largest::devicesPerBus;
    state.counters["answerBytes"] = check.answerBytes;
    if (road == lsusbRoad) state.counters["traceBytes"] = check.traceBytes;
}

void DevicesFileRoad(benchmark::State& state) { Discovery(state, devicesFileRoad); }
void LsusbRoad(benchmark::State& state) { Discovery(state, lsusbRoad); }

// ---- the lsusb road's floor ----

std::string ReadWhole(const std::string& path) {
    std::string text;
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    char buffer[65536];
    for (ssize_t n; fd >= 0 && (n = read(fd, buffer, sizeof buffer)) > 0;) text.append(buffer, static_cast<size_t>(n));
    if (fd >= 0) close(fd);
    return text;
}

void WriteWhole(const char* path, int flags, const std::string& bytes) {
    const int fd = open(path, O_WRONLY | O_CREAT | O_CLOEXEC | flags, 0644);
    for (size_t done = 0; fd >= 0 && done < bytes.size();) {
        const ssize_t n = write(fd, bytes.data() + done, std::min<size_t>(65536, bytes.size() - done));
        if (n <= 0) break;
        done += static_cast<size_t>(n);
    }
    if (fd >= 0) close(fd);
}

// Reading the text once, writing the devices file and a trace of the size
// the road writes, once.
void LsusbFloor(benchmark::State& state) {
    const int buses = static_cast<int>(state.range(0));
    SetMachine(lsusbRoad, buses);
    static std::map<int, std::string> traces;
    std::string& trace = traces[buses];
    if (trace.empty()) {
        std::remove(traceFile);
        Discover();
        std::error_code missing;
        trace.assign(static_cast<size_t>(fs::file_size(traceFile, missing)), 'x');
    }
    for (auto _ : state) {
        state.PauseTiming();
        std::remove("floor.trace");
        state.ResumeTiming();
        const std::string text = ReadWhole(LsusbOutput());
        WriteWhole("floor.devices", O_TRUNC, text);
        WriteWhole("floor.trace", O_APPEND, trace);
    }
    state.counters["textBytes"] = static_cast<double>(MachineText(lsusbRoad, buses).size());
    state.counters["traceBytes"] = static_cast<double>(trace.size());
}

// ---- an unknown command ----

struct StringWriter : pugi::xml_writer {
    std::string text;
    void write(const void* data, size_t size) override { text.append(static_cast<const char*>(data), size); }
};

void UnknownCommandBare(benchmark::State& state) {
    for (auto _ : state) {
        pugi::xml_document document;
        document.load_string(unknownCommand);
        StringWriter out;
        document.save(out, "", pugi::format_raw | pugi::format_no_declaration);
        benchmark::DoNotOptimize(out.text);
    }
}

void UnknownCommandRoundTrip(benchmark::State& state) {
    Initialize("<init component=\"libzorbus\"/>");
    SetCallback(&DropEvent);
    FreeLastSetCallbackResult();
    for (auto _ : state) {
        char* answer = ExecuteXMLCommand(unknownCommand);
        benchmark::DoNotOptimize(answer);
        FreeLastExecuteXMLCommandResult();
    }
    Uninitialize(nullptr);
}

// ---- peak memory ----

long StatusKilobytes(const char* field) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.compare(0, std::strlen(field), field) == 0) return std::atol(line.c_str() + std::strlen(field));
    return -1;
}

// In the fresh process: the resident size before, the peak during one
// discovery, and the answer's length.
int MeasureOneDiscovery(int factory) {
    benchFactoryMode = factory;
    InitializeTCTranslator("C");
    std::remove(traceFile);
    std::ofstream("/proc/self/clear_refs") << "5";  // the peak starts at what is resident now
    const long before = StatusKilobytes("VmRSS:");
    const size_t answerBytes = Discover();
    std::printf("%ld %ld %zu\n", before, StatusKilobytes("VmHWM:"), answerBytes);
    return 0;
}

void PeakMemory(benchmark::State& state) {
    const Road road = static_cast<Road>(state.range(0));
    const int factory = static_cast<int>(state.range(1));
    const int buses = 32;
    SetMachine(road, buses);
    long before = -1, peak = -1;
    size_t answerBytes = 0;
    for (auto _ : state) {
        const std::string printed = RunSelf({peakMemoryOption, std::to_string(factory)});
        if (std::sscanf(printed.c_str(), "%ld %ld %zu", &before, &peak, &answerBytes) != 3)
            state.SkipWithError("the measuring process gave no figures");
    }
    state.counters["startKB"] = static_cast<double>(before);
    state.counters["peakKB"] = static_cast<double>(peak);
    state.counters["answerBytes"] = static_cast<double>(answerBytes);
    state.counters["textBytes"] = static_cast<double>(MachineText(road, buses).size());
}

BENCHMARK(DevicesFileRoad)
    ->ArgNames({"buses", "factory"})
    ->ArgsProduct({{8, 32}, {0, 1}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MinTime(0.3);
BENCHMARK(LsusbRoad)
    ->ArgNames({"buses", "factory"})
    ->ArgsProduct({{8, 32}, {0, 1}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MinTime(0.3);
BENCHMARK(LsusbFloor)->ArgNames({"buses"})->Arg(32)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(0.3);
BENCHMARK(UnknownCommandBare)->Unit(benchmark::kMicrosecond)->MinTime(0.1);
BENCHMARK(UnknownCommandRoundTrip)->Unit(benchmark::kMicrosecond)->MinTime(0.1);
BENCHMARK(PeakMemory)
    ->ArgNames({"lsusb", "factory"})
    ->ArgsProduct({{devicesFileRoad, lsusbRoad}, {0, 1}})
    ->Iterations(1)
    ->Repetitions(1)
    ->Unit(benchmark::kMillisecond);

// ---- the figures beside their targets ----

class TargetReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            const std::string key = run.run_name.function_name + "/" + run.run_name.args;
            if (run.error_occurred) {
                errors[key] = run.error_message;
                continue;
            }
            const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
            if (run.run_type != Run::RT_Iteration && !median) continue;
            Figures& f = figures[key];
            if (f.median && !median) continue;
            f = Figures{run.GetAdjustedRealTime(), run.GetAdjustedCPUTime(), median, {}};
            for (const auto& [name, counter] : run.counters) f.counters[name] = counter.value;
        }
        ConsoleReporter::ReportRuns(runs);
    }

    void Finalize() override {
        ConsoleReporter::Finalize();
        std::printf("\nFigures beside their targets (wall-time medians; processor time in brackets):\n");
        for (const int factory : {0, 1}) {
            const char* mode = factory ? "factory" : "field  ";
            const double limit = factory ? devicesFileFactoryLimitMs : devicesFileFieldLimitMs;
            const Figures* large = Find("DevicesFileRoad/buses:32/factory:" + std::to_string(factory));
            const Figures* small = Find("DevicesFileRoad/buses:8/factory:" + std::to_string(factory));
            if (large && small)
                std::printf("  devices file, %s: 4,064 devices %.1f ms [%.1f] (target <= %.0f ms: %s); "
                            "1,016 devices %.1f ms [%.1f]; growth %.2f (target <= %.1f: %s)\n",
                            mode, large->wall, large->cpu, limit, Verdict(large->wall <= limit), small->wall,
                            small->cpu, large->wall / small->wall, devicesFileGrowthLimit,
                            Verdict(large->wall / small->wall <= devicesFileGrowthLimit));
        }
        const Figures* floor = Find("LsusbFloor/buses:32");
        for (const int factory : {0, 1}) {
            const Figures* large = Find("LsusbRoad/buses:32/factory:" + std::to_string(factory));
            const Figures* small = Find("LsusbRoad/buses:8/factory:" + std::to_string(factory));
            if (large && floor)
                std::printf("  lsusb road, %s: 4,064 devices %.1f ms [%.1f] = %.2f x its floor of %.1f ms [%.1f] "
                            "(target <= %.0f x: %s)",
                            factory ? "factory" : "field  ", large->wall, large->cpu, large->wall / floor->wall,
                            floor->wall, floor->cpu, lsusbFloorLimit,
                            Verdict(large->wall / floor->wall <= lsusbFloorLimit));
            if (large && small)
                std::printf("; 1,016 devices %.1f ms, growth %.2f", small->wall, large->wall / small->wall);
            if (large && floor) std::printf("\n");
        }
        const Figures* bare = Find("UnknownCommandBare/");
        const Figures* trip = Find("UnknownCommandRoundTrip/");
        if (bare && trip)
            std::printf("  unknown command: round trip %.2f us = %.2f x a bare parse and serialise of %.2f us "
                        "(target <= %.0f x: %s)\n",
                        trip->wall, trip->wall / bare->wall, bare->wall, unknownCommandLimit,
                        Verdict(trip->wall / bare->wall <= unknownCommandLimit));
        for (const int lsusb : {0, 1})
            for (const int factory : {0, 1}) {
                const Figures* m =
                    Find("PeakMemory/lsusb:" + std::to_string(lsusb) + "/factory:" + std::to_string(factory));
                if (!m) continue;
                const double mb = 1024 * 1024, grown = (m->counters.at("peakKB") - m->counters.at("startKB")) * 1024;
                const double budget = m->counters.at("answerBytes") + m->counters.at("textBytes");
                std::printf("  peak memory, %s, %s: %.1f MB over the %.1f MB resident before = %.2f x (answer "
                            "%.1f MB + text %.1f MB) (target <= %.0f x: %s); whole process %.1f MB = %.2f x\n",
                            lsusb ? "lsusb road  " : "devices file", factory ? "factory" : "field  ", grown / mb,
                            m->counters.at("startKB") / 1024, grown / budget, m->counters.at("answerBytes") / mb,
                            m->counters.at("textBytes") / mb, memoryLimit, Verdict(grown <= memoryLimit * budget),
                            m->counters.at("peakKB") / 1024, m->counters.at("peakKB") * 1024 / budget);
            }
        std::printf("  outputs as in the reference run: ");
        bool any = false;
        for (const auto& [key, message] : errors) {
            std::printf("%s%s: %s", any ? "; " : "", key.c_str(), message.c_str());
            any = true;
        }
        std::printf("%s\n", any ? "" : "every case checked: the same");
    }

private:
    struct Figures {
        double wall = 0, cpu = 0;
        bool median = false;
        std::map<std::string, double> counters;
    };
    const Figures* Find(const std::string& key) const {
        const auto found = figures.find(key);
        return found == figures.end() || errors.count(key) ? nullptr : &found->second;
    }
    static const char* Verdict(bool met) { return met ? "met" : "MISSED"; }
    std::map<std::string, Figures> figures;
    std::map<std::string, std::string> errors;
};

// ---- running under umockdev ----

// Builds the temporary folder, runs this program again inside it under
// umockdev-wrapper, removes the folder; gives the run's exit status.
int RunUnderTestbed(char** argv) {
    if (fs::exists("/proc/bus/usb/devices")) {
        std::fprintf(stderr, "this machine has /proc/bus/usb/devices: the lsusb road cannot be taken here\n");
        return 1;
    }
    char pattern[] = "/tmp/zorbus-bench-XXXXXX";
    if (!mkdtemp(pattern)) {
        std::perror("mkdtemp");
        return 1;
    }
    const std::string folder = pattern;
    fs::create_directories(folder + "/testbed/proc/bus/usb");
    fs::create_directories(folder + "/work");
    fs::create_directories(folder + "/stubs");
    MakeStub(folder + "/stubs/mount");
    MakeStub(folder + "/stubs/sync");
    MakeStub(folder + "/stubs/lsusb", "cat '" + folder + "/lsusb.out'\n");
    return RunInTestbed(folder, argv);
}

}  // namespace

// Host service: the mode of this run.
extern "C" __attribute__((visibility("default"))) int nvxIsFactory() { return benchFactoryMode; }

int main(int argc, char** argv) {
    if (!UnderOwnTestbed()) return RunUnderTestbed(argv);
    if (argc == 3 && std::strcmp(argv[1], peakMemoryOption) == 0) return MeasureOneDiscovery(std::atoi(argv[2]));
    if (argc == 5 && std::strcmp(argv[1], checkOption) == 0)
        return CheckOneDiscovery(std::atoi(argv[2]), std::atoi(argv[3]), std::atoi(argv[4]));
    // Interleaved repetitions unless told otherwise.
    std::vector<char*> args(argv, argv + argc);
    std::string interleave = "--benchmark_enable_random_interleaving=true", repetitions = "--benchmark_repetitions=7";
    args.insert(args.begin() + 1, {&interleave[0], &repetitions[0]});
    int count = static_cast<int>(args.size());
    args.push_back(nullptr);
    benchmark::Initialize(&count, args.data());
    if (benchmark::ReportUnrecognizedArguments(count, args.data())) return 1;
    InitializeTCTranslator("C");
    TargetReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
