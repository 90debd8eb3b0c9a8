// Translation catalogue files of any content, loaded as the component loads
// its own: a damaged file is skipped whole, a sound one translates, and
// neither crashes, overruns or leaks.
#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "common/Translate.h"

static std::string folder;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    char made[] = "/tmp/zorbus-fuzz-catalog.XXXXXX";
    if (!mkdtemp(made)) std::abort();
    folder = made;
    std::atexit([] { std::filesystem::remove_all(folder); });
    if (mkdir((folder + "/xx").c_str(), 0755) != 0 || mkdir((folder + "/xx/LC_MESSAGES").c_str(), 0755) != 0)
        std::abort();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::ofstream(folder + "/xx/LC_MESSAGES/fuzz.mo", std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    TranslatorReset();
    TranslatorInitialize(("xx:" + folder).c_str(), false);
    TranslatorAddCatalog("fuzz");
    // Lookups of texts a catalogue holds and of one it cannot hold.
    for (const char* text : {"Success", "USB Device", "Error", ""}) Translate(text);
    if (size > 40) Translate(std::string(reinterpret_cast<const char*>(data) + 28, 12));
    return 0;
}
