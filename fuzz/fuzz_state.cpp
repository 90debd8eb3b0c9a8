// A state file of any content: reading it either fails with an exception or
// gives a graph that can be stored again and released, never a crash or a
// leak. Every product class is linked in and registered.
#include <cstddef>
#include <cstdint>
#include <string>

#include "common/Persistent.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    iptstream in = iptstream::FromMemory(std::string(reinterpret_cast<const char*>(data), size));
    Persistent* object = nullptr;
    try {
        in >> object;
    } catch (...) {
        return 0;
    }
    try {
        // What Uninitialize would do with a restored component.
        optstream out;
        out << static_cast<const Persistent*>(object);
    } catch (...) {
    }
    delete object;
    return 0;
}
