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
#include "tc/frame/EntryPoints.h"

namespace fs = std::filesystem;

namespace {

using namespace benchtestbed;

int benchFactoryMode = 0;

const int devicesPerBus = 127;
const int hubsPerBus = 7;
const int portsPerHub = 17;

char* DropEvent(const char*) { return nullptr; }

std::string Hex4(int value) {
    char text[8];
    std::snprintf(text, sizeof text, "%04x", value & 0xffff);
    return text;
}

// ---- a machine's `lsusb -v` text, in the tool's layout ----

std::string Head(int bus, int device, const std::string& id, const std::string& names, const std::string& cls,
                 const std::string& usb, const std::string& manufacturer, const std::string& product,
                 const std::string& serial) {
    char busDevice[64];
    std::snprintf(busDevice, sizeof busDevice, "\nBus %03d Device %03d: ID ", bus, device);
    return busDevice + id + " " + names +
           "\nDevice Descriptor:\n"
           "  bLength                18\n"
           "  bDescriptorType         1\n"
           "  bcdUSB               " + usb + "\n"
           "  bDeviceClass          " + cls + "\n"
           "  bDeviceSubClass         0 \n"
           "  bDeviceProtocol         0 \n"
           "  bMaxPacketSize0        64\n"
           "  idVendor           0x" + id.substr(0, 4) + " \n"
           "  idProduct          0x" + id.substr(5, 4) + " \n"
           "  bcdDevice            1.00\n"
           "  iManufacturer           1 " + manufacturer + "\n"
           "  iProduct                2 " + product + "\n"
           "  iSerial                 " + (serial.empty() ? std::string("0 ") : "3 " + serial) + "\n"
           "  bNumConfigurations      1\n"
           "  Configuration Descriptor:\n"
           "    bLength                 9\n"
           "    bDescriptorType         2\n"
           "    wTotalLength       0x0019\n"
           "    bNumInterfaces          1\n"
           "    bConfigurationValue     1\n"
           "    iConfiguration          0 \n"
           "    bmAttributes         0xe0\n"
           "      Self Powered\n"
           "    MaxPower              100mA\n";
}

std::string Interface(const std::string& cls) {
    return "    Interface Descriptor:\n"
           "      bLength                 9\n"
           "      bDescriptorType         4\n"
           "      bInterfaceNumber        0\n"
           "      bAlternateSetting       0\n"
           "      bNumEndpoints           1\n"
           "      bInterfaceClass       " + cls + "\n"
           "      bInterfaceSubClass      0 \n"
           "      bInterfaceProtocol      0 \n"
           "      iInterface              0 \n";
}

std::string Endpoint(const std::string& address, const std::string& type) {
    return "      Endpoint Descriptor:\n"
           "        bLength                 7\n"
           "        bDescriptorType         5\n"
           "        bEndpointAddress     " + address + "\n"
           "        bmAttributes            3\n"
           "          Transfer Type            " + type + "\n"
           "          Synch Type               None\n"
           "          Usage Type               Data\n"
           "        wMaxPacketSize     0x0004  1x 4 bytes\n"
           "        bInterval              12\n";
}

std::string HubPart(int ports, int connected) {
    std::string out =
        "Hub Descriptor:\n"
        "  bLength               9\n"
        "  bDescriptorType      41\n"
        "  nNbrPorts            " + std::to_string(ports) + "\n"
        "  wHubCharacteristic 0x00e0\n"
        "    Ganged power switching\n"
        "  bPwrOn2PwrGood       50 * 2 milli seconds\n"
        "  bHubContrCurrent    100 milli Ampere\n"
        "  DeviceRemovable    0x00 0x00 0x00\n"
        "  PortPwrCtrlMask    0xff 0xff 0xff\n"
        " Hub Port Status:\n";
    for (int p = 1; p <= ports; ++p)
        out += "   Port " + std::to_string(p) + ": " + (p <= connected ? "0000.0503 highspeed power enable connect" : "0000.0100 power") + "\n";
    return out;
}

const char* const status = "Device Status:     0x0001\n  Self Powered\n";

std::string LsusbText(int buses) {
    std::string out;
    for (int bus = 1; bus <= buses; ++bus) {
        const bool ehci = bus % 2 == 1;
        out += Head(bus, 1, ehci ? "1d6b:0002" : "1d6b:0001", "Linux Foundation root hub", "9 Hub", ehci ? "2.00" : "1.10",
                    "Linux 6.1.0 hcd", ehci ? "EHCI Host Controller" : "UHCI Host Controller",
                    "0000:00:1d." + std::to_string(bus));
        out += Interface("9 Hub") + Endpoint("0x81  EP 1 IN", "Interrupt") + HubPart(hubsPerBus, hubsPerBus) + status;
        for (int hub = 0; hub < hubsPerBus; ++hub) {
            const int hubDevice = 2 + hub * (portsPerHub + 1);
            out += Head(bus, hubDevice, "05e3:0610", "Genesys Logic, Inc. Hub", "9 Hub", "2.00", "GenesysLogic",
                        "USB2.0 Hub", "");
            out += Interface("9 Hub") + Endpoint("0x81  EP 1 IN", "Interrupt") + HubPart(portsPerHub, portsPerHub) +
                   status;
            for (int port = 0; port < portsPerHub; ++port) {
                const int device = hubDevice + 1 + port;
                if (device % 2 == 0) {
                    out += Head(bus, device, "0781:5567", "SanDisk Corp. Cruzer Blade", "0 ", "2.00", "SanDisk",
                                "Cruzer Blade", "4C53" + Hex4(bus) + Hex4(device));
                    out += Interface("8 Mass Storage") + Endpoint("0x81  EP 1 IN", "Bulk") + status;
                } else {
                    out += Head(bus, device, "046d:c077", "Logitech, Inc. Mouse", "0 ", "2.00", "Logitech",
                                "USB Optical Mouse", "");
                    out += Interface("3 Human Interface Device") +
                           "        HID Device Descriptor:\n"
                           "          bLength                 9\n"
                           "          bDescriptorType        33\n"
                           "          bcdHID               1.11\n"
                           "          bCountryCode            0 Not supported\n"
                           "          bNumDescriptors         1\n"
                           "          bDescriptorType        34 Report\n"
                           "          wDescriptorLength      46\n"
                           "         Report Descriptors: \n"
                           "           ** UNAVAILABLE **\n" +
                           Endpoint("0x81  EP 1 IN", "Interrupt") + status;
                }
            }
        }
    }
    return out;
}

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
