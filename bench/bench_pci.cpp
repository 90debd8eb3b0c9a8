// The walk of all 65,536 PCI addresses that the speed test makes, through
// the library's own PCI service, on this machine: with a fresh listing of
// the functions for every walk and with the listing kept, and the speed
// test's whole try. The walk must stay within 50 ms on a machine without an
// EHCI controller.
#include <benchmark/benchmark.h>

#include <cstdio>

#include "common/TestHooks.h"
#include "common/TvkError.h"
#include "platform/HostServices.h"
#include "tc/usb/linux/usbtests/SpeedTest.h"

namespace {

int Walk() {
    int controllers = 0;
    for (int bus = 0; bus <= 255; ++bus)
        for (int device = 0; device <= 31; ++device)
            for (int function = 0; function <= 7; ++function)
                controllers += nvxGetPciConfigBYTE(bus, device, function, 0x0B) == 0x0C &&
                               nvxGetPciConfigBYTE(bus, device, function, 0x0A) == 0x03 &&
                               nvxGetPciConfigBYTE(bus, device, function, 0x09) == 0x20;
    return controllers;
}

void BM_WalkFreshListing(benchmark::State& state) {
    int controllers = 0;
    for (auto _ : state) {
        testhooks::SetHostServicePaths("", "");  // forgets the listing
        controllers = Walk();
    }
    state.counters["ehci"] = controllers;
}

void BM_WalkKeptListing(benchmark::State& state) {
    int controllers = 0;
    for (auto _ : state) controllers = Walk();
    state.counters["ehci"] = controllers;
}

void BM_SpeedTestTry(benchmark::State& state) {
    SpeedTest test(nullptr);
    XmlObject command("<runTest/>");
    int passes = 0;
    for (auto _ : state) {
        testhooks::SetHostServicePaths("", "");
        try {
            passes += test.DoRun(command);
        } catch (const TvkError&) {
            // No controller shows the character: the usual outcome here.
        }
    }
    state.counters["passes"] = passes;
}

BENCHMARK(BM_WalkFreshListing)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WalkKeptListing)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SpeedTestTry)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
