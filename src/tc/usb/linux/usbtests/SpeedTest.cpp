#include "tc/usb/linux/usbtests/SpeedTest.h"

#include <cstring>
#include <memory>

#include "common/Translate.h"
#include "common/TvkError.h"
#include "platform/HostServices.h"
#include "tc/usb/linux/devices/USBDevice.h"
#include "tc/usb/linux/usbxml.h"

namespace {

const size_t speedBufferSize = 12;
// Where the text lies behind the controller's base address.
const uint64_t speedTextOffset = 0x40;

bool IsEhciController(int bus, int device, int function) {
    // Base class, subclass, programming interface; the first mismatch ends
    // the check, so an absent function costs one read.
    return nvxGetPciConfigBYTE(bus, device, function, 0x0B) == 0x0C &&
           nvxGetPciConfigBYTE(bus, device, function, 0x0A) == 0x03 &&
           nvxGetPciConfigBYTE(bus, device, function, 0x09) == 0x20;
}

}  // namespace

SpeedTest::SpeedTest(USBDevice* usbDevice) : Test(usbxml::speedTest, usbDevice) {
    caption = Translate("USB 2.0 Speed Test");
    description = Translate("Run speed check on USB 2.0 Bus");
    interactive = true;
    requiresEquipment = true;
    singleThread = true;
    requiresMedia = false;
    requiresWindow = false;
    quick = false;
    complete = false;
    localOnly = false;
    fieldtest = false;
}

void SpeedTest::ReadAndWrite(ptstream& stream, direction dir, unsigned int) { Test::ReadAndWrite(stream, dir, 0); }

void SpeedTest::CopyFromPointer(const Persistent* other) { PersistentCopyFrom(this, other); }

bool SpeedTest::LocksDevice() { return false; }

bool SpeedTest::DoRun(const XmlObject&) {
    std::unique_ptr<char[]> buffer(new char[speedBufferSize]);
    bool found = false;
    for (int bus = 0; bus <= 255; ++bus) {
        for (int slot = 0; slot <= 31; ++slot) {
            for (int function = 0; function <= 7; ++function) {
                if (!IsEhciController(bus, slot, function)) continue;
                uint32_t base = 0;
                for (int reg = 4; reg <= 9 && base == 0; ++reg) base = nvxGetPciConfigDWORD(bus, slot, function, reg);
                if (base == 0) continue;
                const uint64_t address = base + speedTextOffset;
                // A copy that fails leaves nothing of an earlier controller behind.
                std::memset(buffer.get(), 0, speedBufferSize);
                CopyPhysicalMemory(buffer.get(), static_cast<uint32_t>(address), static_cast<uint32_t>(address >> 32),
                                   speedBufferSize, 0);
                // Twelve bytes with no terminating zero: search only those.
                if (std::memchr(buffer.get(), '5', speedBufferSize)) found = true;
            }
        }
    }
    if (!found) throw TvkError("Speed test failure", "", "");
    return true;
}

static ClassRegistrar<SpeedTest> SpeedTestClassRegistrar;
