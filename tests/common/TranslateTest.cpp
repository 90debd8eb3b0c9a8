#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "common/Translate.h"

namespace {

const std::string kBuildCatalogs = ZORBUS_BINARY_DIR "/locale";

// A GNU .mo image: header, the two string tables, then the strings.
std::string MakeMo(const std::map<std::string, std::string>& entries, bool bigEndian) {
    auto word = [bigEndian](std::string& out, uint32_t v) {
        for (int i = 0; i < 4; ++i) out += static_cast<char>(v >> (bigEndian ? 24 - 8 * i : 8 * i));
    };
    const uint32_t n = static_cast<uint32_t>(entries.size());
    const uint32_t originals = 28, translations = originals + 8 * n;
    uint32_t offset = translations + 8 * n;
    std::string head, strings, idTable, strTable;
    for (const auto& e : entries) {
        word(idTable, static_cast<uint32_t>(e.first.size()));
        word(idTable, offset + static_cast<uint32_t>(strings.size()));
        strings += e.first + '\0';
    }
    for (const auto& e : entries) {
        word(strTable, static_cast<uint32_t>(e.second.size()));
        word(strTable, offset + static_cast<uint32_t>(strings.size()));
        strings += e.second + '\0';
    }
    word(head, 0x950412de);
    word(head, 0);
    word(head, n);
    word(head, originals);
    word(head, translations);
    word(head, 0);
    word(head, 0);
    return head + idTable + strTable + strings;
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
        const std::string command = "rm -rf '" + root + "'";
        EXPECT_EQ(0, std::system(command.c_str()));
    }

    void WriteCatalog(const std::string& language, const std::string& name, const std::string& bytes) {
        const std::string folder = root + "/" + language + "/LC_MESSAGES";
        mkdir((root + "/" + language).c_str(), 0755);
        mkdir(folder.c_str(), 0755);
        std::ofstream(folder + "/" + name + ".mo", std::ios::binary) << bytes;
    }
    void Select(const std::string& language) { TranslatorInitialize((language + ":" + root).c_str()); }

    std::string root;
};

}  // namespace

TEST_F(Translator, WithoutLanguageTextsStayAsTheyAre) {
    EXPECT_EQ("Success", Translate("Success"));
    TranslatorAddCatalog("zorbus");
    EXPECT_EQ("Success", Translate("Success"));
    for (const char* none : {"", "C", "POSIX", "C.UTF-8"}) {
        TranslatorInitialize(none);
        EXPECT_EQ("Success", Translate("Success")) << none;
    }
    TranslatorInitialize(nullptr);
    EXPECT_EQ("Success", Translate("Success"));
}

TEST_F(Translator, BuildCatalogueGivesGerman) {
    TranslatorInitialize(("de:" + kBuildCatalogs).c_str());
    TranslatorAddCatalog("rkl");  // not there: skipped
    TranslatorAddCatalog("zorbus");
    EXPECT_EQ("Erfolg", Translate("Success"));
    EXPECT_EQ("Gerätediagnose für %s", Translate("Device Diagnosis for %s"));
    EXPECT_EQ("Ausgeführt auf CPU ", Translate("Ran on CPU "));
    EXPECT_EQ("Grüne Betriebs-LED", Translate("Green Power LED"));
    EXPECT_EQ("Some text nobody translated", Translate("Some text nobody translated"));
    EXPECT_EQ("", Translate(""));  // not the catalogue's header
}

TEST_F(Translator, BuildCatalogueHasEveryFrameworkText) {
    TranslatorInitialize(("de:" + kBuildCatalogs).c_str());
    TranslatorAddCatalog("zorbus");
    const char* texts[] = {
        "Success", "Building Catalog", "Device Discovery Started", "Device Discovered", "Test Started", "passed",
        "failed", "canceled", "blocked", "running", "waitingForPrompt", "Error", "Diagnosis Started",
        "Diagnosis Finished", "Device Diagnosis for %s", "Retries", "Number of retries if test fails",
        "Parameter outside acceptable range", "Ran on CPU ", "try", "Test Prompts User", "Super LED Test",
        "Select the device that its LED is blinking", "Keyboard", "Hard Drive", "CDROM Drive", "Floppy Drive",
        "Tape Drive", "Zip Drive", "DVD Drive", "Green Power LED", "Red Power LED", "CDRW Drive", "DVDRW Drive",
        "Combo Drive", "Uninitialized Test Component", "Device not found", "Test not found", "Invalid Command"};
    for (const char* text : texts) EXPECT_NE(text, Translate(text)) << text;
    EXPECT_EQ("Test", Translate("Test"));
}

TEST_F(Translator, FullLocaleNameFallsBackToLanguage) {
    TranslatorInitialize(("de_DE.UTF-8:" + kBuildCatalogs).c_str());
    TranslatorAddCatalog("zorbus");
    EXPECT_EQ("Fehler", Translate("Error"));
}

TEST_F(Translator, DefaultFolderIsBesideTheProgram) {
    // The test program is linked with the translator and sits in the build
    // folder, whose locale/ holds the compiled catalogue.
    TranslatorInitialize("de");
    TranslatorAddCatalog("zorbus");
    EXPECT_EQ("Ungültiger Befehl", Translate("Invalid Command"));
}

TEST_F(Translator, TerritoryCatalogueComesBeforeLanguage) {
    WriteCatalog("de", "tiny", MakeMo({{"Hello", "Hallo"}}, false));
    WriteCatalog("de_AT", "tiny", MakeMo({{"Hello", "Servus"}}, false));
    Select("de_AT.UTF-8@euro");
    TranslatorAddCatalog("tiny");
    EXPECT_EQ("Servus", Translate("Hello"));
    Select("de_CH");
    EXPECT_EQ("Hallo", Translate("Hello"));  // catalogues asked for earlier are reloaded
    Select("fr");
    EXPECT_EQ("Hello", Translate("Hello"));
}

TEST_F(Translator, ReadsBothByteOrdersAndSkipsPluralAndContext) {
    for (bool bigEndian : {false, true}) {
        TranslatorReset();
        WriteCatalog("xx", "tiny", MakeMo({{"", "Content-Type: text/plain; charset=UTF-8\n"},
                                           {"Hello", "Hallo"},
                                           {std::string("file\0files", 10), std::string("Datei\0Dateien", 13)},
                                           {"menu\x04Open", "Öffnen"}},
                                          bigEndian));
        Select("xx");
        TranslatorAddCatalog("tiny");
        EXPECT_EQ("Hallo", Translate("Hello")) << bigEndian;
        EXPECT_EQ("file", Translate("file"));
        EXPECT_EQ("Open", Translate("Open"));
        EXPECT_EQ("", Translate(""));
    }
}

TEST_F(Translator, FirstAddedCatalogueWins) {
    WriteCatalog("xx", "one", MakeMo({{"Hello", "Hallo"}}, false));
    WriteCatalog("xx", "two", MakeMo({{"Hello", "Grüß Gott"}, {"Bye", "Tschüs"}}, true));
    Select("xx");
    TranslatorAddCatalog("one");
    TranslatorAddCatalog("two");
    TranslatorAddCatalog("one");  // again: no effect
    EXPECT_EQ("Hallo", Translate("Hello"));
    EXPECT_EQ("Tschüs", Translate("Bye"));
    TranslatorReset();
    EXPECT_EQ("Hello", Translate("Hello"));
}

TEST_F(Translator, DamagedCataloguesAreIgnored) {
    const std::string good = MakeMo({{"Hello", "Hallo"}, {"World", "Welt"}}, false);
    std::string badMagic = good;
    badMagic[0] = 'X';
    std::string badRevision = good;
    badRevision[6] = 2;  // major revision 2
    std::string badOffset = good;
    badOffset[28 + 4 + 3] = 0x7f;  // first msgid far beyond the end
    std::string hugeCount = good;
    hugeCount[11] = 0x7f;
    const std::vector<std::string> damaged = {good.substr(0, good.size() / 2), good.substr(0, 10), "",
                                              badMagic, badRevision, badOffset, hugeCount};
    for (size_t i = 0; i < damaged.size(); ++i) {
        TranslatorReset();
        WriteCatalog("xx", "broken", damaged[i]);
        WriteCatalog("xx", "fine", MakeMo({{"World", "Erde"}}, false));
        Select("xx");
        TranslatorAddCatalog("broken");
        TranslatorAddCatalog("fine");
        EXPECT_EQ("Hello", Translate("Hello")) << i;
        EXPECT_EQ("Erde", Translate("World")) << i;  // nothing of the broken one survives
    }
}

TEST_F(Translator, ReadersRunWhileTheLanguageChanges) {
    WriteCatalog("xx", "tiny", MakeMo({{"Hello", "Hallo"}}, false));
    TranslatorAddCatalog("tiny");
    std::atomic<bool> stop{false};
    std::atomic<int> wrong{0};
    std::vector<std::thread> readers;
    for (int t = 0; t < 3; ++t)
        readers.emplace_back([&] {
            while (!stop) {
                const std::string s = Translate("Hello");
                if (s != "Hello" && s != "Hallo") ++wrong;
            }
        });
    for (int i = 0; i < 200; ++i) {
        Select(i % 2 ? "xx" : "C");
        TranslatorAddCatalog("tiny");
    }
    stop = true;
    for (auto& r : readers) r.join();
    EXPECT_EQ(0, wrong);
}
