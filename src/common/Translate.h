// Translation of the texts a user sees, from gettext catalogues (.mo files)
// read directly, so the host's process-wide locale is never touched.
//
// TranslatorInitialize(text, ...) selects the language. The text is a
// language code as in "de", "de_DE" or "de_DE.UTF-8", optionally followed by
// ":" and a directory that holds LANG/LC_MESSAGES/NAME.mo trees; without a
// directory the catalogues are looked for in the "locale" folder beside the
// library (or program) and then in /usr/share/locale. An empty text, "C" or
// "POSIX" selects no language. TranslatorAddCatalog(name) loads catalogue
// `name` for the selected language; a catalogue that is not there is skipped.
#pragma once

#include <string>

std::string Translate(const std::string& text);
void TranslatorInitialize(const char* text, bool reserved = false);
void TranslatorAddCatalog(const char* name);
// Drops the language and every catalogue (used by tests and at teardown).
void TranslatorReset();
