// How the operator's typed answer becomes the value the component gets, and
// the program's own words in the operator's language.
#include <gtest/gtest.h>

// The host program is no library: its answer logic and its catalogue reader are compiled in here.
#include "../../tools/zorbus-host/Language.cpp"
#include "../../tools/zorbus-host/PromptAnswer.cpp"

TEST(PromptAnswer, ButtonsByOneBasedNumberOrCaptionOtherPromptsAsTyped) {
    const std::vector<std::string> three = {"Yes", "No", "Retry later"}, ok = {"OK"};
    const struct {
        const char* typed;
        std::vector<std::string> buttons;
        bool buttonPrompt;
        const char* value;  // empty: refused with `error`, or "neither" for the usual refusal
        const char* error;
    } cases[] = {
        {"1", three, true, "0", ""},
        {"3", three, true, "2", ""},
        {" 2 ", three, true, "1", ""},
        {"no", three, true, "1", ""},
        {"YES", three, true, "0", ""},
        {"  Retry Later\n", three, true, "2", ""},
        {"003", three, true, "2", ""},
        // A caption wins over a position; a prompt's one empty button is still chosen by its number.
        {"2", {"2", "1"}, true, "0", ""},
        {"1", {"2", "1"}, true, "1", ""},
        {"1", {""}, true, "0", ""},
        {"  serial 42 ", ok, false, "  serial 42 ", ""},
        {"7", {}, true, "7", ""},
        {"0", ok, true, "", "no button 0 (1 to 1)"},
        {"2", ok, true, "", "no button 2 (1 to 1)"},
        {"", ok, true, "", "neither"},
        {"", {""}, true, "", "neither"},
        {"Cancel", ok, true, "", "neither"},
        {"-1", ok, true, "", "neither"},
        {"99999999999999999999", ok, true, "", "neither"},
        {"O K", ok, true, "", "neither"},
    };
    for (const auto& c : cases) {
        const host::PromptChoice choice = host::ChoosePromptAnswer(c.typed, c.buttons, c.buttonPrompt);
        EXPECT_EQ(choice.valid, *c.value != '\0') << c.typed;
        EXPECT_EQ(choice.value, c.value) << c.typed;
        EXPECT_EQ(choice.error, std::string(c.error) != "neither"
                                    ? std::string(c.error)
                                    : "'" + std::string(c.typed) + "' is neither a button's number nor its caption")
            << c.typed;
    }
}

TEST(HostProgramLanguage, TheProjectsCatalogueGivesTheProgramsWordsAndAnUnknownLanguageAWarning) {
    const std::string locale = ZORBUS_BINARY_DIR "/locale";
    EXPECT_EQ(host::tr.Select("de_DE.UTF-8:" + locale, ""), "");
    EXPECT_EQ(host::tr("DEVICE"), "GERÄT");
    EXPECT_EQ(host::tr("passed"), "bestanden") << "the component's words are in the same catalogue";
    EXPECT_EQ(host::tr("no such text"), "no such text");
    EXPECT_EQ(host::ChoosePromptAnswer("2", {"OK"}, true).error, "keine Schaltfläche 2 (1 bis 1)");
    // The library's folder holds the catalogues of a build.
    EXPECT_EQ(host::tr.Select("de", ZORBUS_BINARY_DIR "/libzorbus.so"), "");
    EXPECT_EQ(host::tr("DEVICE"), "GERÄT");

    EXPECT_EQ(host::tr.Select("xx", ZORBUS_BINARY_DIR "/libzorbus.so"),
              "no catalogue for the language 'xx': texts stay in English");
    EXPECT_EQ(host::tr("DEVICE"), "DEVICE");
    EXPECT_EQ(host::tr.Select("de:/nonexistent", ""), "no catalogue for the language 'de': texts stay in English");
    for (const char* english : {"en", "en_GB.UTF-8", "C", "POSIX", ""})
        EXPECT_EQ(host::tr.Select(english, ""), "") << english;

    std::unordered_map<std::string, std::string> texts;
    EXPECT_FALSE(host::Language::Parse(std::string("\xde\x12\x04\x95", 4) + std::string(16, '\xff'), texts));
    EXPECT_FALSE(host::Language::Parse("not a catalogue at all", texts));
    EXPECT_TRUE(texts.empty());

    EXPECT_EQ(host::Format("%s takes %s, not '%s'", {"retries", "0 to 5", "abc"}), "retries takes 0 to 5, not 'abc'");
    EXPECT_EQ(host::Format("%s and %s", {"one"}), "one and %s");
}
