// Translation from the build's German catalogue and from small catalogues
// written here, whole and damaged.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include "common/Translate.h"

namespace {

// A GNU .mo image: header, the two string tables, then the strings.
std::string MakeMo(const std::map<std::string, std::string>& entries, bool bigEndian = false) {
    auto word = [bigEndian](size_t v) {
        std::string out;
        for (int i = 0; i < 4; ++i) out += static_cast<char>(v >> (bigEndian ? 24 - 8 * i : 8 * i));
        return out;
    };
    const size_t n = entries.size();
    std::string tables[2], strings;
    for (int t = 0; t < 2; ++t)
        for (const auto& e : entries) {
            const std::string& s = t ? e.second : e.first;
            tables[t] += word(s.size()) + word(28 + 16 * n + strings.size());
            strings += s + '\0';
        }
    return word(0x950412de) + word(0) + word(n) + word(28) + word(28 + 8 * n) + word(0) + word(0) + tables[0] +
           tables[1] + strings;
}

class Translator : public ::testing::Test {
protected:
    void SetUp() override {
        TranslatorReset();
        char pattern[] = "/tmp/zorbus-translate-XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(pattern));
        root = pattern;
    }
    void TearDown() override {
        TranslatorReset();
        EXPECT_GT(std::filesystem::remove_all(root), 0u);
    }
    void WriteCatalog(const std::string& language, const std::string& name, const std::string& bytes) {
        mkdir((root + "/" + language).c_str(), 0755);
        mkdir((root + "/" + language + "/LC_MESSAGES").c_str(), 0755);
        std::ofstream(root + "/" + language + "/LC_MESSAGES/" + name + ".mo", std::ios::binary) << bytes;
    }
    void Select(const std::string& language) { TranslatorInitialize((language + ":" + root).c_str()); }
    std::string root;
};

TEST_F(Translator, BuildCatalogueGivesGermanForEveryFrameworkText) {
    TranslatorAddCatalog("zorbus");
    for (const char* none : {"", "C", "POSIX", "C.UTF-8", static_cast<const char*>(nullptr)}) {
        TranslatorInitialize(none);
        EXPECT_EQ("Success", Translate("Success")) << (none ? none : "null");
    }
    TranslatorInitialize("de:" ZORBUS_BINARY_DIR "/locale");
    TranslatorAddCatalog("rkl");  // not there: skipped
    TranslatorAddCatalog("zorbus");
    EXPECT_EQ(Translate("Success"), "Erfolg");
    EXPECT_EQ(Translate("Device Diagnosis for %s"), "Gerätediagnose für %s");
    EXPECT_EQ(Translate("Ran on CPU "), "Ausgeführt auf CPU ");
    EXPECT_EQ(Translate("Some text nobody translated"), "Some text nobody translated");
    EXPECT_EQ(Translate(""), "") << "not the catalogue's header";
    for (const char* text : {"Building Catalog",
                             "Device Discovery Started",
                             "Device Discovered",
                             "Test Started",
                             "passed",
                             "failed",
                             "canceled",
                             "blocked",
                             "running",
                             "waitingForPrompt",
                             "Diagnosis Started",
                             "Diagnosis Finished",
                             "Retries",
                             "Number of retries if test fails",
                             "Parameter outside acceptable range",
                             "try",
                             "Test Prompts User",
                             "Super LED Test",
                             "Select the device that its LED is blinking",
                             "Keyboard",
                             "Hard Drive",
                             "Floppy Drive",
                             "Green Power LED",
                             "Combo Drive",
                             "Uninitialized Test Component",
                             "Device not found",
                             "Test not found"})
        EXPECT_NE(text, Translate(text)) << text;
    TranslatorInitialize("de");  // the locale folder beside the program
    TranslatorAddCatalog("zorbus");
    EXPECT_EQ("Ungültiger Befehl", Translate("Invalid Command"));
}

TEST_F(Translator, TerritoryFirstFirstCatalogueWinsDamagedOnesAreIgnored) {
    WriteCatalog("de", "tiny", MakeMo({{"Hello", "Hallo"}}));
    WriteCatalog("de_AT", "tiny", MakeMo({{"Hello", "Servus"}}));
    Select("de_AT.UTF-8@euro");
    TranslatorAddCatalog("tiny");
    EXPECT_EQ("Servus", Translate("Hello"));
    Select("de_CH");
    EXPECT_EQ("Hallo", Translate("Hello"));  // catalogues asked for earlier are reloaded

    // Big-endian, with a header, a plural and a context entry, none of them plain texts.
    WriteCatalog("xx", "fine",
                 MakeMo({{"", "Content-Type: text/plain; charset=UTF-8\n"},
                         {"World", "Erde"},
                         {std::string("file\0files", 10), std::string("Datei\0Dateien", 13)},
                         {"menu\x04Open", "Öffnen"}},
                        true));
    const std::string good = MakeMo({{"Hello", "Hallo"}, {"World", "Welt"}});
    std::string badMagic = good, badRevision = good, badOffset = good, hugeCount = good;
    badMagic[0] = 'X';
    badRevision[6] = 2;            // major revision 2
    badOffset[28 + 4 + 3] = 0x7f;  // first msgid far beyond the end
    hugeCount[11] = 0x7f;
    for (const std::string& first : {good, good.substr(0, good.size() / 2), good.substr(0, 10), std::string(), badMagic,
                                     badRevision, badOffset, hugeCount}) {
        TranslatorReset();
        WriteCatalog("xx", "first", first);
        Select("xx");
        // The second "first" has no effect.
        for (const char* name : {"first", "fine", "first"}) TranslatorAddCatalog(name);
        // Nothing of a broken one survives.
        EXPECT_EQ(Translate("Hello") + Translate("World") + Translate("file") + Translate("Open") + Translate(""),
                  first == good ? "HalloWeltfileOpen" : "HelloErdefileOpen")
            << testing::PrintToString(first);
    }
}

}  // namespace
