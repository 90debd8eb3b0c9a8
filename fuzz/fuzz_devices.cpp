// Kernel devices-file text of any content: the parse either fails with a
// TvkError or gives a tree from which devices are made, identified, stored,
// read back and released, never a crash, an overrun or a leak. The first
// byte picks field or factory mode.
#include <cstddef>
#include <cstdint>
#include <string>

#include "common/Persistent.h"
#include "common/TestHooks.h"
#include "common/TvkError.h"
#include "common/XmlObject.h"
#include "tc/frame/USBTestComponent.h"
#include "tc/usb/linux/Discovery.h"
#include "tc/usb/linux/readers/LiteralReader.h"
#include "tc/usb/linux/readers/USBtree.h"

static int factoryMode = 0;
extern "C" int nvxIsFactory() { return factoryMode; }

static char* IgnoreEvent(const char*) { return nullptr; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    factoryMode = size > 0 && (data[0] & 1);
    testhooks::ResetUsbDiscoveryState();

    // The parser alone, released by hand.
    {
        LiteralReader reader(text);
        USBtree tree;
        try {
            tree.GrowUSBtree(&reader);
        } catch (const TvkError&) {
        }
        tree.ChopUSBtree(tree.root);
    }

    // The whole road: devices that hold the tree, identified and stored.
    USBTestComponent component;
    component.eventCallback = IgnoreEvent;
    pTestComponent = &component;
    try {
        LiteralReader reader(text);
        ParseWithProcBusUsbDevices(reader, component.devices);
    } catch (const TvkError&) {
    }
    for (Device* device : component.devices) XmlObject(device->ID(false));
    optstream out;
    out << static_cast<const Persistent*>(&component);
    pTestComponent = nullptr;
    iptstream in = iptstream::FromMemory(out.GetBuffer());
    Persistent* restored = nullptr;
    in >> restored;  // our own output must read back
    delete restored;
    return 0;
}
