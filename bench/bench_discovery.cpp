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
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "bench/BenchTestbed.h"
#include "tc/frame/EntryPoints.h"

namespace fs = std::filesystem;

namespace {

using namespace benchtestbed;

// The mode this host reports (nvxIsFactory below).
int benchFactoryMode = 0;

const int devicesPerBus = 127;  // every address of a bus in use
const int hubsPerBus = 7;       // on the root hub's 7 ports
const int portsPerHub = 17;     // 7 hubs x 17 ports + 7 hubs + root hub = 127

char* DropEvent(const char*) { return nullptr; }

// ---- a machine's devices file, in the kernel's format ----

struct Line {
    std::string& out;
    void operator()(const char* format, ...) __attribute__((format(printf, 2, 3))) {
        char buffer[256];
        va_list args;
        va_start(args, format);
        vsnprintf(buffer, sizeof buffer, format, args);
        va_end(args);
        out += buffer;
    }
};

void Topology(Line& line, int bus, int level, int parent, int port, int count, int device, const char* speed,
              int ports) {
    line("\nT:  Bus=%02d Lev=%02d Prnt=%02d Port=%02d Cnt=%02d Dev#=%3d Spd=%-4s MxCh=%2d\n", bus, level, parent, port,
         count, device, speed, ports);
}

void RootHub(Line& line, int bus, bool ehci) {
    Topology(line, bus, 0, 0, 0, 0, 1, ehci ? "480" : "12", hubsPerBus);
    line("B:  Alloc=%3d/%d us (%2d%%), #Int=%3d, #Iso=%3d\n", ehci ? 0 : 86, ehci ? 800 : 900, ehci ? 0 : 10,
         hubsPerBus, 0);
    line("D:  Ver= %s Cls=09(hub  ) Sub=00 Prot=%s MxPS=64 #Cfgs=  1\n", ehci ? "2.00" : "1.10", ehci ? "01" : "00");
    line("P:  Vendor=0000 ProdID=0000 Rev= 2.06\n");
    line("S:  Manufacturer=Linux 2.6.16.60-0.21-smp %s\n", ehci ? "ehci_hcd" : "uhci_hcd");
    line("S:  Product=%s Host Controller\n", ehci ? "EHCI" : "UHCI");
    line("S:  SerialNumber=0000:%02x:1d.%d\n", bus / 8, ehci ? 7 : bus % 4);
    line("C:* #Ifs= 1 Cfg#= 1 Atr=%s MxPwr=  0mA\n", ehci ? "e0" : "c0");
    line("I:  If#= 0 Alt= 0 #EPs= 1 Cls=09(hub  ) Sub=00 Prot=00 Driver=hub\n");
    line("E:  Ad=81(I) Atr=03(Int.) MxPS=   2 Ivl=%s\n", ehci ? "256ms" : "255ms");
}

void Hub(Line& line, int bus, int port, int device, bool ehci) {
    Topology(line, bus, 1, 1, port, port + 1, device, ehci ? "480" : "12", portsPerHub);
    line("D:  Ver= %s Cls=09(hub  ) Sub=00 Prot=%s MxPS=64 #Cfgs=  1\n", ehci ? "2.00" : "1.10", ehci ? "01" : "00");
    line("P:  Vendor=05e3 ProdID=0610 Rev=85.36\n");
    line("S:  Manufacturer=GenesysLogic\n");
    line("S:  Product=USB2.0 Hub\n");
    line("C:* #Ifs= 1 Cfg#= 1 Atr=e0 MxPwr=100mA\n");
    line("I:  If#= 0 Alt= 0 #EPs= 1 Cls=09(hub  ) Sub=00 Prot=00 Driver=hub\n");
    line("E:  Ad=81(I) Atr=03(Int.) MxPS=   1 Ivl=256ms\n");
}

// Memory sticks, keyboards, mice and printers, in turn.
void Leaf(Line& line, int bus, int parent, int port, int device, bool ehci) {
    switch ((device + bus) % 4) {
        case 0:
            Topology(line, bus, 2, parent, port, port + 1, device, ehci ? "480" : "12", 0);
            line("D:  Ver= 2.00 Cls=00(>ifc ) Sub=00 Prot=00 MxPS=64 #Cfgs=  1\n");
            line("P:  Vendor=0781 ProdID=5567 Rev= 1.26\n");
            line("S:  Manufacturer=SanDisk\n");
            line("S:  Product=Cruzer Blade\n");
            line("S:  SerialNumber=4C5320000310%02d%06d\n", bus, device);
            line("C:* #Ifs= 1 Cfg#= 1 Atr=80 MxPwr=200mA\n");
            line("I:  If#= 0 Alt= 0 #EPs= 2 Cls=08(stor.) Sub=06 Prot=50 Driver=usb-storage\n");
            line("E:  Ad=81(I) Atr=02(Bulk) MxPS= 512 Ivl=0ms\n");
            line("E:  Ad=02(O) Atr=02(Bulk) MxPS= 512 Ivl=31875us\n");
            break;
        case 1:
            Topology(line, bus, 2, parent, port, port + 1, device, "1.5", 0);
            line("D:  Ver= 1.10 Cls=00(>ifc ) Sub=00 Prot=00 MxPS= 8 #Cfgs=  1\n");
            line("P:  Vendor=413c ProdID=2003 Rev= 3.01\n");
            line("S:  Manufacturer=Dell\n");
            line("S:  Product=Dell USB Keyboard\n");
            line("C:* #Ifs= 1 Cfg#= 1 Atr=a0 MxPwr=70mA\n");
            line("I:  If#= 0 Alt= 0 #EPs= 1 Cls=03(HID  ) Sub=01 Prot=01 Driver=usbhid\n");
            line("E:  Ad=81(I) Atr=03(Int.) MxPS=   8 Ivl=24ms\n");
            break;
        case 2:
            Topology(line, bus, 2, parent, port, port + 1, device, "1.5", 0);
            line("D:  Ver= 2.00 Cls=00(>ifc ) Sub=00 Prot=00 MxPS= 8 #Cfgs=  1\n");
            line("P:  Vendor=046d ProdID=c05a Rev=54.00\n");
            line("S:  Manufacturer=Logitech\n");
            line("S:  Product=USB Optical Mouse\n");
            line("C:* #Ifs= 1 Cfg#= 1 Atr=a0 MxPwr=100mA\n");
            line("I:  If#= 0 Alt= 0 #EPs= 1 Cls=03(HID  ) Sub=01 Prot=02 Driver=usbhid\n");
            line("E:  Ad=81(I) Atr=03(Int.) MxPS=   5 Ivl=10ms\n");
            break;
        default:
            Topology(line, bus, 2, parent, port, port + 1, device, "12", 0);
            line("D:  Ver= 1.10 Cls=00(>ifc ) Sub=00 Prot=00 MxPS= 8 #Cfgs=  1\n");
            line("P:  Vendor=03f0 ProdID=1102 Rev= 1.00\n");
            line("S:  Manufacturer=Hewlett-Packard\n");
            line("S:  Product=LaserJet 1020\n");
            line("S:  SerialNumber=FN%02dV%03dP\n", bus, device);
            line("C:* #Ifs= 1 Cfg#= 1 Atr=c0 MxPwr=  2mA\n");
            line("I:  If#= 0 Alt= 0 #EPs= 2 Cls=07(print) Sub=01 Prot=02 Driver=usblp\n");
            line("E:  Ad=01(O) Atr=02(Bulk) MxPS=  64 Ivl=0ms\n");
            line("E:  Ad=81(I) Atr=02(Bulk) MxPS=  64 Ivl=0ms\n");
            break;
    }
}

// Odd buses are EHCI, even ones UHCI; the kernel lists a bus depth first.
std::string DevicesFile(int buses) {
    std::string out;
    Line line{out};
    for (int bus = 1; bus <= buses; ++bus) {
        const bool ehci = bus % 2 == 1;
        RootHub(line, bus, ehci);
        for (int hub = 0; hub < hubsPerBus; ++hub) {
            const int hubDevice = 2 + hub * (portsPerHub + 1);
            Hub(line, bus, hub, hubDevice, ehci);
            for (int port = 0; port < portsPerHub; ++port) Leaf(line, bus, hubDevice, port, hubDevice + 1 + port, ehci);
        }
    }
    return out;
}

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
