// Name-making while a component fills up, and saving plus restoring a
// discovered component, at 1,016 devices (8 buses) and 4,064 (32 buses of
// 127, the most a machine can have), side by side in one run.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "common/Persistent.h"
#include "tc/frame/USBTestComponent.h"
#include "tc/usb/linux/Discovery.h"
#include "tc/usb/linux/devices/USBDevice.h"
#include "tc/usb/linux/readers/LiteralReader.h"
#include "tc/usb/linux/usbxml.h"

namespace {

char* dropEvent(const char*) { return nullptr; }

// One bus: a root hub with 7 hubs of 17 ports, each port with a stick.
std::string devicesText(int buses) {
    std::string text;
    for (int bus = 1; bus <= buses; ++bus) {
        const std::string b = "Bus=" + std::to_string(bus);
        text += "T:  " + b +
                " Lev=00 Prnt=00 Port=00 Cnt=00 Dev#=  1 Spd=480  MxCh= 7\n"
                "D:  Ver= 2.00 Cls=09(hub  ) Sub=00 Prot=01 MxPS=64 #Cfgs=  1\n"
                "S:  Manufacturer=Linux 2.6.16 ehci_hcd\nS:  Product=EHCI Host Controller\n";
        for (int hub = 0; hub < 7; ++hub) {
            text += "T:  " + b + " Lev=01 Prnt=01 Port=0" + std::to_string(hub) +
                    " Cnt=01 Dev#=  2 Spd=480  MxCh=17\n"
                    "D:  Ver= 2.00 Cls=09(hub  ) Sub=00 Prot=02 MxPS=64 #Cfgs=  1\n";
            for (int port = 0; port < 17; ++port)
                text += "T:  " + b + " Lev=02 Prnt=02 Port=" + std::to_string(port) +
                        " Cnt=01 Dev#=  3 Spd=480  MxCh= 0\n"
                        "D:  Ver= 2.00 Cls=00(>ifc ) Sub=00 Prot=00 MxPS=64 #Cfgs=  1\n"
                        "P:  Vendor=0781 ProdID=5567 Rev= 1.00\n"
                        "S:  Manufacturer=SanDisk\nS:  Product=Cruzer Blade\nS:  SerialNumber=4C530001\n"
                        "C:* #Ifs= 1 Cfg#= 1 Atr=80 MxPwr=200mA\n"
                        "I:* If#= 0 Alt= 0 #EPs= 2 Cls=08(stor.) Sub=06 Prot=50 Driver=usb-storage\n"
                        "E:  Ad=81(I) Atr=02(Bulk) MxPS= 512 Ivl=0ms\n";
        }
    }
    return text;
}

void Naming(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    USBTestComponent component;
    component.eventCallback = &dropEvent;
    pTestComponent = &component;
    for (auto _ : state) {
        for (int i = 0; i < count; ++i) component.devices.insert(new USBDevice(usbxml::usbDevice, nullptr, false));
        state.PauseTiming();
        component.PurgeDevices();
        state.ResumeTiming();
    }
    pTestComponent = nullptr;
    state.counters["devices"] = count;
}

void SaveAndRestore(benchmark::State& state) {
    const int buses = static_cast<int>(state.range(0));
    USBTestComponent component;
    component.eventCallback = &dropEvent;
    component.componentName = "libzorbus.so";
    pTestComponent = &component;
    LiteralReader reader(devicesText(buses));
    ParseWithProcBusUsbDevices(reader, component.devices);
    for (Device* d : component.devices) d->ID(false);  // controllers take their tests
    char path[] = "/tmp/zorbus-state-XXXXXX";
    int fd = mkstemp(path);
    if (fd >= 0) close(fd);
    size_t bytes = 0;
    for (auto _ : state) {
        optstream out(path);
        out << static_cast<const Persistent*>(&component);
        out.close();
        bytes = out.GetBuffer().size();
        iptstream in(path);
        TestComponent* restored = nullptr;
        in.ReadOwned(restored);
        if (!restored || restored->devices.size() != component.devices.size()) state.SkipWithError("lost devices");
        delete restored;
    }
    unlink(path);
    pTestComponent = nullptr;
    state.counters["devices"] = static_cast<double>(component.devices.size());
    state.counters["bytes"] = static_cast<double>(bytes);
}

BENCHMARK(Naming)->Arg(1016)->Arg(4064)->Unit(benchmark::kMillisecond);
BENCHMARK(SaveAndRestore)->Arg(8)->Arg(32)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
