#include "Language.h"

#include <cstdint>
#include <fstream>
#include <iterator>
#include <vector>

namespace host {

Language tr;

namespace {

uint32_t Word(const std::string& image, size_t offset, bool swapped) {
    const auto* p = reinterpret_cast<const unsigned char*>(image.data()) + offset;
    if (swapped) return uint32_t{p[0]} << 24 | uint32_t{p[1]} << 16 | uint32_t{p[2]} << 8 | p[3];
    return uint32_t{p[3]} << 24 | uint32_t{p[2]} << 16 | uint32_t{p[1]} << 8 | p[0];
}

std::string Folder(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

bool English(const std::string& language) {
    return language == "C" || language == "POSIX" || language == "en" || language.rfind("en_", 0) == 0;
}

}  // namespace

bool Language::Parse(const std::string& image, std::unordered_map<std::string, std::string>& out) {
    out.clear();
    if (image.size() < 20) return false;
    const uint32_t magic = Word(image, 0, false);
    if (magic != 0x950412de && magic != 0xde120495) return false;
    const bool swapped = magic != 0x950412de;
    const uint64_t count = Word(image, 8, swapped), originals = Word(image, 12, swapped),
                   translations = Word(image, 16, swapped), size = image.size();
    if (originals + count * 8 > size || translations + count * 8 > size) return false;
    for (uint64_t i = 0; i < count; ++i) {
        const uint64_t idLength = Word(image, originals + i * 8, swapped);
        const uint64_t idOffset = Word(image, originals + i * 8 + 4, swapped);
        const uint64_t length = Word(image, translations + i * 8, swapped);
        const uint64_t offset = Word(image, translations + i * 8 + 4, swapped);
        if (idOffset + idLength >= size || offset + length >= size) {
            out.clear();
            return false;
        }
        std::string id = image.substr(idOffset, idLength);
        // The header, plural forms and texts with a context are not used.
        if (id.empty() || length == 0 || id.find('\0') != std::string::npos || id.find('\4') != std::string::npos)
            continue;
        out.emplace(std::move(id), image.substr(offset, length));
    }
    return true;
}

std::string Language::Select(const std::string& setting, const std::string& library) {
    texts.clear();
    const size_t colon = setting.find(':');
    std::string language = setting.substr(0, colon);
    language.erase(std::min(language.size(), language.find_first_of(".@")));
    if (language.empty() || English(language)) return "";
    std::vector<std::string> folders;
    if (colon != std::string::npos && colon + 1 < setting.size()) {
        folders.push_back(setting.substr(colon + 1));
    } else {
        const std::string beside = Folder(library);
        folders.push_back(beside + "/locale");
#ifdef ZORBUS_INSTALLED_LOCALE
        folders.push_back(beside + "/" ZORBUS_INSTALLED_LOCALE);
#endif
        folders.push_back("/usr/share/locale");
    }
    std::vector<std::string> names = {language};
    if (language.find('_') != std::string::npos) names.push_back(language.substr(0, language.find('_')));
    for (const std::string& folder : folders)
        for (const std::string& name : names) {
            std::ifstream file(folder + "/" + name + "/LC_MESSAGES/zorbus.mo", std::ios::binary);
            if (!file) continue;
            const std::string image{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
            if (Parse(image, texts)) return "";
        }
    return Format(tr("no catalogue for the language '%s': texts stay in English"), {language});
}

const std::string& Language::operator()(const std::string& text) const {
    const auto found = texts.find(text);
    return found == texts.end() ? text : found->second;
}

std::string Format(const std::string& pattern, std::initializer_list<std::string> values) {
    std::string out;
    auto value = values.begin();
    for (size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] == '%' && i + 1 < pattern.size() && pattern[i + 1] == 's' && value != values.end()) {
            out += *value++;
            ++i;
        } else {
            out += pattern[i];
        }
    }
    return out;
}

}  // namespace host
