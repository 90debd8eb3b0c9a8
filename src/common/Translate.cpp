#include "common/Translate.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <unordered_map>
#include <vector>

#include "common/StringUtil.h"

namespace {

using Catalog = std::unordered_map<std::string, std::string>;

// Everything Translate reads. Readers share it under a shared lock; writers
// build a new one and swap it in, so a reader never sees a half-loaded state.
struct TranslatorState {
    std::vector<std::string> languages;  // lookup order, e.g. "de_DE", "de"; empty: no language
    std::vector<std::string> folders;    // folders holding LANG/LC_MESSAGES/NAME.mo
    std::vector<std::string> names;      // catalogues asked for, in order
    Catalog merged;                      // first catalogue that has a text wins
};

// Built on first use and never destroyed, so that static objects of other
// units may translate while they are constructed or destroyed.
struct Translator {
    std::shared_mutex stateMutex;
    std::shared_ptr<const TranslatorState> state = std::make_shared<TranslatorState>();
    // Whether `state` holds any text: without a language every text stays as
    // it is, and Translate need not take the lock on every event it names.
    std::atomic<bool> anyTexts{false};
    // Writers (initialise, add, reset) come one at a time; readers don't wait for them.
    std::mutex writerMutex;

    std::shared_ptr<const TranslatorState> Current() {
        std::shared_lock<std::shared_mutex> lock(stateMutex);
        return state;
    }
    void Publish(std::shared_ptr<const TranslatorState> next) {
        std::unique_lock<std::shared_mutex> lock(stateMutex);
        anyTexts.store(!next->merged.empty(), std::memory_order_release);
        state = std::move(next);
    }
};

Translator& Instance() {
    static Translator* const instance = new Translator;
    return *instance;
}

// ---- .mo files ----

constexpr uint32_t kMoMagic = 0x950412de;
constexpr uint32_t kMoMagicSwapped = 0xde120495;
constexpr size_t kMaxCatalogBytes = 64u << 20;

uint32_t ReadWord(const std::string& data, size_t offset, bool swapped) {
    const auto* p = reinterpret_cast<const unsigned char*>(data.data()) + offset;
    if (swapped)
        return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 |
               static_cast<uint32_t>(p[2]) << 8 | p[3];
    return static_cast<uint32_t>(p[3]) << 24 | static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[1]) << 8 |
           p[0];
}

// Parses a GNU .mo image into `out`. A file that is damaged anywhere yields
// false and leaves `out` empty: half a catalogue is worse than none.
bool ParseMo(const std::string& data, Catalog& out) {
    out.clear();
    if (data.size() < 20) return false;
    const uint32_t magic = ReadWord(data, 0, false);
    bool swapped;
    if (magic == kMoMagic)
        swapped = false;
    else if (magic == kMoMagicSwapped)
        swapped = true;
    else
        return false;
    const uint32_t revision = ReadWord(data, 4, swapped);
    if ((revision >> 16) > 1) return false;
    const uint64_t count = ReadWord(data, 8, swapped);
    const uint64_t originals = ReadWord(data, 12, swapped);
    const uint64_t translations = ReadWord(data, 16, swapped);
    const uint64_t size = data.size();
    if (originals + count * 8 > size || translations + count * 8 > size) return false;

    out.reserve(count);
    for (uint64_t i = 0; i < count; ++i) {
        const uint64_t idLength = ReadWord(data, originals + i * 8, swapped);
        const uint64_t idOffset = ReadWord(data, originals + i * 8 + 4, swapped);
        const uint64_t strLength = ReadWord(data, translations + i * 8, swapped);
        const uint64_t strOffset = ReadWord(data, translations + i * 8 + 4, swapped);
        if (idOffset + idLength >= size || strOffset + strLength >= size) {
            out.clear();
            return false;
        }
        std::string id = data.substr(idOffset, idLength);
        // The header (empty msgid), plural entries (msgid\0plural) and
        // entries with a context (context\4msgid) are not used here.
        if (id.empty() || strLength == 0 || id.find('\0') != std::string::npos || id.find('\4') != std::string::npos)
            continue;
        out.emplace(std::move(id), data.substr(strOffset, strLength));
    }
    return true;
}

bool LoadMo(const std::string& path, Catalog& out) {
    std::string data;
    if (!ReadFileContents(path, data, kMaxCatalogBytes) || data.empty()) return false;
    return ParseMo(data, out);
}

// ---- where catalogues live ----

std::string DirectoryOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    if (slash == 0) return "/";
    return path.substr(0, slash);
}

std::string ExecutablePath() {
    char buffer[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", buffer, sizeof buffer - 1);
    if (n <= 0) return std::string();
    return std::string(buffer, static_cast<size_t>(n));
}

bool SameFile(const std::string& a, const std::string& b) {
    struct stat sa, sb;
    return stat(a.c_str(), &sa) == 0 && stat(b.c_str(), &sb) == 0 && sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

// The folder of the shared object that holds this code; for a program
// linked with the code itself, the program's folder. dladdr names the main
// program only by its argv[0], which need not be a usable path.
std::string OwnFolder() {
    const std::string executable = ExecutablePath();
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&OwnFolder), &info) != 0 && info.dli_fname && *info.dli_fname) {
        const std::string object = info.dli_fname;
        struct stat st;
        if (stat(object.c_str(), &st) == 0 && !SameFile(object, executable)) {
            char resolved[PATH_MAX];
            if (realpath(object.c_str(), resolved)) return DirectoryOf(resolved);
            return DirectoryOf(object);
        }
    }
    return executable.empty() ? std::string(".") : DirectoryOf(executable);
}

// "de_DE.UTF-8@euro" is looked up as "de_DE", then "de".
std::vector<std::string> LanguageCandidates(std::string language) {
    std::vector<std::string> candidates;
    const size_t cut = language.find_first_of(".@");
    if (cut != std::string::npos) language.erase(cut);
    if (language.empty() || language == "C" || language == "POSIX") return candidates;
    candidates.push_back(language);
    const size_t underscore = language.find('_');
    if (underscore != std::string::npos && underscore > 0) candidates.push_back(language.substr(0, underscore));
    return candidates;
}

// The first catalogue file found, folder by folder, language by language.
bool LoadCatalog(const TranslatorState& where, const std::string& name, Catalog& out) {
    for (const std::string& folder : where.folders)
        for (const std::string& language : where.languages)
            if (LoadMo(folder + "/" + language + "/LC_MESSAGES/" + name + ".mo", out)) return true;
    return false;
}

void MergeCatalog(TranslatorState& into, const std::string& name) {
    Catalog catalog;
    if (!LoadCatalog(into, name, catalog)) return;
    if (into.merged.empty()) {
        into.merged = std::move(catalog);
        return;
    }
    for (auto& entry : catalog) into.merged.emplace(entry.first, std::move(entry.second));
}

}  // namespace

std::string Translate(const std::string& text) {
    Translator& translator = Instance();
    if (!translator.anyTexts.load(std::memory_order_acquire)) return text;
    std::shared_lock<std::shared_mutex> lock(translator.stateMutex);
    const Catalog& merged = translator.state->merged;
    if (merged.empty()) return text;
    const auto found = merged.find(text);
    return found == merged.end() ? text : found->second;
}

// A new language reloads the catalogues asked for so far, so the order of
// InitializeTCTranslator and the component's own catalogue doesn't matter.
void TranslatorInitialize(const char* text, bool /*reserved*/) {
    Translator& translator = Instance();
    std::lock_guard<std::mutex> writer(translator.writerMutex);
    auto next = std::make_shared<TranslatorState>();
    next->names = translator.Current()->names;

    const std::string setting = text ? text : "";
    const size_t colon = setting.find(':');
    next->languages = LanguageCandidates(setting.substr(0, colon));
    if (!next->languages.empty()) {
        if (colon != std::string::npos && colon + 1 < setting.size()) {
            next->folders.push_back(setting.substr(colon + 1));
        } else {
            const std::string own = OwnFolder();
            next->folders.push_back(own + "/locale");
#ifdef ZORBUS_INSTALLED_LOCALE
            // An installed library: share/locale of its own tree, wherever that tree was put.
            next->folders.push_back(own + "/" ZORBUS_INSTALLED_LOCALE);
#endif
            next->folders.push_back("/usr/share/locale");
        }
        for (const std::string& name : next->names) MergeCatalog(*next, name);
    }
    translator.Publish(std::move(next));
}

void TranslatorAddCatalog(const char* name) {
    if (!name || !*name) return;
    Translator& translator = Instance();
    std::lock_guard<std::mutex> writer(translator.writerMutex);
    const auto current = translator.Current();
    for (const std::string& known : current->names)
        if (known == name) return;
    auto next = std::make_shared<TranslatorState>(*current);
    next->names.push_back(name);
    if (!next->languages.empty()) MergeCatalog(*next, name);
    translator.Publish(std::move(next));
}

void TranslatorReset() {
    Translator& translator = Instance();
    std::lock_guard<std::mutex> writer(translator.writerMutex);
    translator.Publish(std::make_shared<TranslatorState>());
}
