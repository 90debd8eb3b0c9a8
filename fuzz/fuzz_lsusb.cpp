// One device's `lsusb -v` text of any content, as the lsusb road hands it to
// its device: parsed into records and published (in either mode, from any
// state of the class-wide gates), stored and read back. The only failures
// allowed are the TvkError and the out-of-range cut the parser documents;
// never a crash, an overrun, a leak or runaway growth. The first byte picks
// the mode and the gates the parse starts with. The whole text is also cut
// into device blocks as the road cuts a tool's output, trace and all.
#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>

#include "tc/usb/linux/Discovery.h"

#include "common/Persistent.h"
#include "common/TvkError.h"
#include "common/XmlObject.h"
#include "tc/frame/USBTestComponent.h"
#include "tc/usb/linux/devices/newUSBDevice.h"
#include "tc/usb/linux/readers/LiteralReader.h"

static int factoryMode = 0;
extern "C" int nvxIsFactory() { return factoryMode; }

static char* IgnoreEvent(const char*) { return nullptr; }

// The cut writes its trace to the working folder: one of the fuzzer's own
// while it cuts, so that the fuzzer's own paths keep their meaning.
static char traceFolder[] = "/tmp/zorbus-fuzz-lsusb-XXXXXX";
static int fuzzerFolder = -1;
static void RemoveTraceFolder() { rmdir(traceFolder); }
extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzzerFolder = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fuzzerFolder < 0 || !mkdtemp(traceFolder)) std::abort();
    std::atexit(RemoveTraceFolder);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const uint8_t flags = size > 0 ? data[0] : 0;
    const std::string text(reinterpret_cast<const char*>(data) + (size > 0 ? 1 : 0), size > 0 ? size - 1 : 0);
    factoryMode = flags & 1;
    newUSBDevice::bDeviceDescriptor = flags & 2;
    newUSBDevice::bConfigurationDescriptor = flags & 4;
    newUSBDevice::bInterfaceDescriptor = flags & 8;
    newUSBDevice::bEndpointDescriptor = flags & 16;
    newUSBDevice::bHubDescriptor = flags & 32;
    newUSBDevice::bHidDeviceDescriptor = flags & 64;

    USBTestComponent component;
    component.eventCallback = IgnoreEvent;
    pTestComponent = &component;
    {
        newUSBDevice device(text);
        try {
            XmlObject element(device.ID((flags & 128) != 0));
        } catch (const std::out_of_range&) {
            // A keyword with nothing behind it on the first line.
        } catch (const TvkError&) {
        }
        optstream out;
        out << static_cast<const Persistent*>(&device);
        Persistent* read = nullptr;
        try {
            iptstream in = iptstream::FromMemory(out.GetBuffer());
            in >> read;
        } catch (const TvkError&) {
            __builtin_trap();  // what was just written must read back
        }
        std::unique_ptr<Persistent> restored(read);
        if (!dynamic_cast<newUSBDevice*>(restored.get())) __builtin_trap();
    }
    pTestComponent = nullptr;

    if (chdir(traceFolder) != 0) std::abort();
    {
        LiteralReader reader(text);
        try {
            getVecDeviceInfo(reader);
        } catch (const TvkError&) {
        }
        std::remove("bang1.txt");
    }
    if (fchdir(fuzzerFolder) != 0) std::abort();
    return 0;
}
