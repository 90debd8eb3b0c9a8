// USB discovery end to end, as a host drives it: a fresh component,
// SetCallback, "<id/>" on a machine of 8 or 32 fully populated buses (1,016
// or 4,064 devices), the answer released, Uninitialize; in field and in
// factory mode, side by side.
//
// The devices file has a fixed path, so the program runs itself again under
// umockdev-wrapper with a temporary testbed whose devices file it rewrites
// for each case, from a temporary working directory, with stub mount, sync
// and lsusb programs first on the search path.
#include <benchmark/benchmark.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "bench/BenchTestbed.h"
#include "tests/fixtures/largest/LargestMachines.h"
#include "tc/frame/EntryPoints.h"

namespace fs = std::filesystem;

namespace {

using namespace benchtestbed;
using namespace largest;

// The mode this host reports (nvxIsFactory below).
int benchFactoryMode = 0;

char* DropEvent(const char*) { return nullptr; }

// ---- the benchmark ----

std::string TestbedDevicesFile() { return std::string(getenv(folderVariable)) + "/testbed/proc/bus/usb/devices"; }

// One full discovery: a fresh component each time.
size_t Discover() {
    Initialize("<init component=\"libzorbus.so\"/>");
    SetCallback(&DropEvent);
    FreeLastSetCallbackResult();
    const char* answer = ExecuteXMLCommand("<id/>");
    size_t length = std::strlen(answer);
    benchmark::DoNotOptimize(answer);
    FreeLastExecuteXMLCommandResult();
    Uninitialize(nullptr);
    return length;
}

size_t CountDevices(const char* answer) {
    size_t count = 0;
    for (const char* p = answer; (p = std::strstr(p, "<device ")); ++p) ++count;
    return count;
}

void DiscoverMachine(benchmark::State& state) {
    const int buses = static_cast<int>(state.range(0));
    benchFactoryMode = static_cast<int>(state.range(1));
    WriteFile(TestbedDevicesFile(), DevicesFile(buses));

    // What this machine publishes, counted once outside the timing.
    Initialize("<init component=\"libzorbus.so\"/>");
    SetCallback(&DropEvent);
    FreeLastSetCallbackResult();
    const char* answer = ExecuteXMLCommand("<id/>");
    const size_t published = CountDevices(answer);
    const double answerBytes = static_cast<double>(std::strlen(answer));
    FreeLastExecuteXMLCommandResult();
    Uninitialize(nullptr);
    // Field mode: one device per node. Factory mode: each hub also stands on
    // its parent's port, so 7 more per bus.
    const size_t expected = static_cast<size_t>(buses) * (devicesPerBus + (benchFactoryMode ? hubsPerBus : 0));
    if (published != expected) {
        const std::string message =
            "published " + std::to_string(published) + " devices, expected " + std::to_string(expected);
        state.SkipWithError(message.c_str());
        return;
    }

    for (auto _ : state) benchmark::DoNotOptimize(Discover());
    state.counters["kernelDevices"] = buses * devicesPerBus;
    state.counters["published"] = static_cast<double>(published);
    state.counters["answerBytes"] = answerBytes;
    state.SetItemsProcessed(state.iterations() * buses * devicesPerBus);
}

BENCHMARK(DiscoverMachine)
    ->ArgNames({"buses", "factory"})
    ->Args({8, 0})
    ->Args({32, 0})
    ->Args({8, 1})
    ->Args({32, 1})
    ->Unit(benchmark::kMillisecond)
    ->MinTime(1.0);

// ---- running under umockdev ----

// Builds the temporary folder, runs this program again inside it under
// umockdev-wrapper, removes the folder; gives the run's exit status.
int RunUnderTestbed(char** argv) {
    char pattern[] = "/tmp/zorbus-bench-XXXXXX";
    if (!mkdtemp(pattern)) {
        std::perror("mkdtemp");
        return 1;
    }
    const std::string folder = pattern;
    fs::create_directories(folder + "/testbed/proc/bus/usb");
    fs::create_directories(folder + "/work");
    fs::create_directories(folder + "/stubs");
    for (const char* tool : {"mount", "sync", "lsusb"}) MakeStub(folder + "/stubs/" + tool);
    WriteFile(folder + "/testbed/proc/bus/usb/devices", "");

    return RunInTestbed(folder, argv);
}

}  // namespace

// Host service: the mode of this run.
extern "C" __attribute__((visibility("default"))) int nvxIsFactory() { return benchFactoryMode; }

int main(int argc, char** argv) {
    if (!UnderOwnTestbed()) return RunUnderTestbed(argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    ScalingReporter reporter(100.0);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
