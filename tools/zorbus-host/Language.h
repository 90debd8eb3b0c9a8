// The program's own words (headings, result words, prompt lines, usage
// errors) in the operator's language, from the project's catalogue: the
// same zorbus.mo that the component reads. Read by code of its own, so that
// the program neither links the component's core nor exports a translator
// that the loaded library could bind to.
#pragma once

#include <initializer_list>
#include <string>
#include <unordered_map>

namespace host {

class Language {
public:
    // `setting` as --language takes it: "de", "de_DE.UTF-8", or
    // "de:/folder" with LANG/LC_MESSAGES/zorbus.mo below the folder; without
    // a folder the catalogue is looked for beside `library`, in the tree the
    // library is installed in, then in /usr/share/locale. Returns a warning
    // when the language is none that the catalogues know (empty: none).
    std::string Select(const std::string& setting, const std::string& library);

    // The text in the selected language, or the text itself.
    const std::string& operator()(const std::string& text) const;

    // Reads a GNU .mo image; false for anything that is not one.
    static bool Parse(const std::string& image, std::unordered_map<std::string, std::string>& texts);

private:
    std::unordered_map<std::string, std::string> texts;
};

// The language of the whole program.
extern Language tr;

// `pattern` with each "%s" replaced by the next of `values`, in order.
std::string Format(const std::string& pattern, std::initializer_list<std::string> values);

}  // namespace host
