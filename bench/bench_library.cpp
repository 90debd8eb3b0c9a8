// The built library as a host meets it, loaded with dlopen: command round
// trips (version, unknown command, catalogue) and discovery of an 8-bus
// machine (1,016 devices) in field and factory mode. Given several builds of
// the library, it runs the same cases against each in one process and prints
// each build's median time against the first one's:
//   bench_library --library=before:OLD/libzorbus.so --library=after:NEW/libzorbus.so
//       --benchmark_enable_random_interleaving=true --benchmark_repetitions=15
// Without --library it loads the library built beside it.
#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "bench/BenchTestbed.h"
#include "tests/fixtures/largest/LargestMachines.h"

namespace {

using namespace benchtestbed;

int benchFactoryMode = 0;  // what nvxIsFactory below answers
const int buses = 8;

char* DropEvent(const char*) { return nullptr; }

struct Library {
    std::string label;
    void (*Initialize)(const char*);
    void (*Uninitialize)(const char*);
    char* (*SetCallback)(char* (*)(const char*));
    char* (*ExecuteXMLCommand)(const char*);
    void (*FreeLastSetCallbackResult)();
    void (*FreeLastExecuteXMLCommandResult)();

    void Start() const {
        Initialize("<init component=\"libzorbus.so\"/>");
        SetCallback(&DropEvent);
        FreeLastSetCallbackResult();
    }
    size_t Run(const char* command) const {
        const size_t length = std::strlen(ExecuteXMLCommand(command));
        FreeLastExecuteXMLCommandResult();
        return length;
    }
};

// Loads "LABEL:PATH" (or PATH); false with a message when it cannot.
bool Load(const std::string& given, Library& library) {
    const size_t colon = given.find(':');
    const std::string path = colon == std::string::npos ? given : given.substr(colon + 1);
    library.label = colon == std::string::npos ? "built" : given.substr(0, colon);
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        std::fprintf(stderr, "cannot load %s: %s\n", path.c_str(), dlerror());
        return false;
    }
    bool complete = true;
    auto bind = [&](auto& entry, const char* name) {
        entry = reinterpret_cast<std::remove_reference_t<decltype(entry)>>(dlsym(handle, name));
        if (!entry) std::fprintf(stderr, "%s has no %s\n", path.c_str(), name);
        complete = complete && entry;
    };
    bind(library.Initialize, "Initialize");
    bind(library.Uninitialize, "Uninitialize");
    bind(library.SetCallback, "SetCallback");
    bind(library.ExecuteXMLCommand, "ExecuteXMLCommand");
    bind(library.FreeLastSetCallbackResult, "FreeLastSetCallbackResult");
    bind(library.FreeLastExecuteXMLCommandResult, "FreeLastExecuteXMLCommandResult");
    return complete;
}

void RoundTrip(benchmark::State& state, const Library* library, const char* command) {
    library->Start();
    for (auto _ : state) benchmark::DoNotOptimize(library->Run(command));
    library->Uninitialize(nullptr);
}

// A fresh component for each discovery, as in a host's run.
void Discovery(benchmark::State& state, const Library* library, int factory) {
    benchFactoryMode = factory;
    library->Start();
    const size_t answer = library->Run("<id/>");
    library->Uninitialize(nullptr);
    if (answer < static_cast<size_t>(buses * largest::devicesPerBus) * 100) {
        state.SkipWithError("the machine was not discovered");
        return;
    }
    for (auto _ : state) {
        library->Start();
        benchmark::DoNotOptimize(library->Run("<id/>"));
        library->Uninitialize(nullptr);
    }
}

// After the table: each case's median and least processor time against the
// first library's (the stub tools the discovery starts are not counted; on a
// busy machine the least time is the steadier figure).
class RatioReporter : public benchmark::ConsoleReporter {
public:
    explicit RatioReporter(std::string first) : first(std::move(first)) {}

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            const std::string& name = run.run_name.function_name;  // "CASE/library:LABEL"
            const size_t cut = name.find("/library:");
            if (run.error_occurred || run.run_type != Run::RT_Aggregate || cut == std::string::npos) continue;
            if (run.aggregate_name == "median" || run.aggregate_name == "min")
                times[name.substr(0, cut) + " " + run.aggregate_name][name.substr(cut + 9)] = run.GetAdjustedCPUTime();
        }
        ConsoleReporter::ReportRuns(runs);
    }
    void Finalize() override {
        ConsoleReporter::Finalize();
        for (const auto& entry : times) {
            const auto base = entry.second.find(first);
            if (base == entry.second.end()) continue;
            for (const auto& other : entry.second)
                if (other.first != first)
                    std::printf("%-28s %s / %s: %.4f\n", entry.first.c_str(), other.first.c_str(), first.c_str(),
                                other.second / base->second);
        }
    }

private:
    std::string first;
    std::map<std::string, std::map<std::string, double>> times;  // "case median|min", library: processor time
};

int RunUnderTestbed(char** argv) {
    char pattern[] = "/tmp/zorbus-bench-XXXXXX";
    if (!mkdtemp(pattern)) {
        std::perror("mkdtemp");
        return 1;
    }
    const std::string folder = pattern;
    std::filesystem::create_directories(folder + "/testbed/proc/bus/usb");
    std::filesystem::create_directories(folder + "/work");
    std::filesystem::create_directories(folder + "/stubs");
    for (const char* tool : {"mount", "sync", "lsusb"}) MakeStub(folder + "/stubs/" + tool);
    WriteFile(folder + "/testbed/proc/bus/usb/devices", largest::DevicesFile(buses));
    return RunInTestbed(folder, argv);
}

}  // namespace

// Host service: the mode of this run.
extern "C" __attribute__((visibility("default"))) int nvxIsFactory() { return benchFactoryMode; }

int main(int argc, char** argv) {
    if (!UnderOwnTestbed()) return RunUnderTestbed(argv);
    std::vector<std::string> specs;
    int kept = 1;
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], "--library=", 10) == 0)
            specs.push_back(argv[i] + 10);
        else
            argv[kept++] = argv[i];
    }
    argc = kept;
    if (specs.empty()) specs.push_back(std::string("built:") + ZORBUS_LIBRARY_PATH);
    static std::vector<Library> libraries(specs.size());
    for (size_t i = 0; i < specs.size(); ++i)
        if (!Load(specs[i], libraries[i])) return 1;

    const auto least = [](const std::vector<double>& v) { return *std::min_element(v.begin(), v.end()); };
    const struct {
        const char* name;
        const char* command;
    } trips[] = {{"roundTrip/getDiagVersion", "<getDiagVersion component=\"c\"/>"},
                 {"roundTrip/unknownCommand", "<noSuchCommand component=\"c\"/>"},
                 {"roundTrip/catalog", "<catalog/>"}};
    for (const Library& library : libraries) {
        const std::string label = "/library:" + library.label;
        for (const auto& trip : trips)
            benchmark::RegisterBenchmark((trip.name + label).c_str(), RoundTrip, &library, trip.command)
                ->ComputeStatistics("min", least);
        for (int factory : {0, 1})
            benchmark::RegisterBenchmark((std::string("discovery/") + (factory ? "factory" : "field") + label).c_str(),
                                         Discovery, &library, factory)
                ->ComputeStatistics("min", least)
                ->Unit(benchmark::kMillisecond);
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    RatioReporter reporter(libraries[0].label);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
