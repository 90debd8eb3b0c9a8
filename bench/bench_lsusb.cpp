// USB discovery on the lsusb road, end to end as a host drives it: a fresh
// component, SetCallback, "<id/>" on a machine of 8 or 32 fully populated
// buses (1,016 or 4,064 devices) that has no kernel devices file, so the
// library runs `lsusb -v` (a stub that prints a generated text), cuts it into
// device texts, leaves its "bang1.txt" trace and publishes every device; in
// field and in factory mode. Target: time(4,064) / time(1,016) at most 4.5.
//
// The program runs itself again under umockdev-wrapper with an empty
// temporary testbed (so the devices file is missing whatever the real
// machine has), from a temporary working directory, with stub mount, sync
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

int benchFactoryMode = 0;

char* DropEvent(const char*) { return nullptr; }

// ---- the benchmark ----

std::string Folder() { return getenv(folderVariable); }

size_t Discover() {
    Initialize("<init component=\"libzorbus.so\"/>");
    SetCallback(&DropEvent);
    FreeLastSetCallbackResult();
    const char* answer = ExecuteXMLCommand("<id/>");
    const size_t length = std::strlen(answer);
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

// The trace grows with every line; each run starts it afresh.
const char* const traceFile = "bang1.txt";

void DiscoverMachine(benchmark::State& state) {
    const int buses = static_cast<int>(state.range(0));
    benchFactoryMode = static_cast<int>(state.range(1));
    WriteFile(Folder() + "/lsusb.out", LsusbText(buses));

    std::remove(traceFile);
    Initialize("<init component=\"libzorbus.so\"/>");
    SetCallback(&DropEvent);
    FreeLastSetCallbackResult();
    const char* answer = ExecuteXMLCommand("<id/>");
    const size_t published = CountDevices(answer);
    const double answerBytes = static_cast<double>(std::strlen(answer));
    FreeLastExecuteXMLCommandResult();
    Uninitialize(nullptr);
    const size_t expected = static_cast<size_t>(buses) * devicesPerBus;
    std::error_code ignored;
    const double traceBytes = static_cast<double>(fs::file_size(traceFile, ignored));
    if (published != expected || traceBytes <= 0) {
        const std::string message = "published " + std::to_string(published) + " devices, expected " +
                                    std::to_string(expected) + "; trace of " + std::to_string(traceBytes) + " bytes";
        state.SkipWithError(message.c_str());
        return;
    }

    for (auto _ : state) {
        state.PauseTiming();
        std::remove(traceFile);
        state.ResumeTiming();
        benchmark::DoNotOptimize(Discover());
    }
    state.counters["devices"] = static_cast<double>(expected);
    state.counters["answerBytes"] = answerBytes;
    state.counters["traceBytes"] = traceBytes;
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(expected));
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

int RunUnderTestbed(char** argv) {
    char pattern[] = "/tmp/zorbus-bench-lsusb-XXXXXX";
    if (!mkdtemp(pattern)) {
        std::perror("mkdtemp");
        return 1;
    }
    const std::string folder = pattern;
    // A testbed with an empty /proc: no devices file. umockdev shows the
    // real file where the testbed lacks it, so the real machine must not
    // have one either.
    fs::create_directories(folder + "/testbed/proc");
    fs::create_directories(folder + "/work");
    fs::create_directories(folder + "/stubs");
    MakeStub(folder + "/stubs/mount");
    MakeStub(folder + "/stubs/sync");
    MakeStub(folder + "/stubs/lsusb", "cat '" + folder + "/lsusb.out'\n");
    if (fs::exists("/proc/bus/usb/devices")) {
        std::fprintf(stderr, "this machine has /proc/bus/usb/devices: the lsusb road cannot be taken here\n");
        return 1;
    }

    return RunInTestbed(folder, argv);
}

}  // namespace

// Host service: the mode of this run.
extern "C" __attribute__((visibility("default"))) int nvxIsFactory() { return benchFactoryMode; }

int main(int argc, char** argv) {
    if (!UnderOwnTestbed()) return RunUnderTestbed(argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    ScalingReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
