// How the operator's typed answer becomes the value the component gets.
#include <gtest/gtest.h>

// The host program is no library: its pure answer logic is compiled in here.
#include "../../tools/zorbus-host/PromptAnswer.cpp"

namespace {

using host::ChoosePromptAnswer;

TEST(PromptAnswer, ButtonsAreChosenByOneBasedNumberOrCaption) {
    const std::vector<std::string> buttons = {"Yes", "No", "Retry later"};
    const struct {
        const char* typed;
        const char* value;
    } good[] = {{"1", "0"}, {"3", "2"}, {" 2 ", "1"}, {"no", "1"}, {"YES", "0"}, {"retry later", "2"},
                {"  Retry Later\n", "2"}, {"003", "2"}};
    for (const auto& g : good) {
        const host::PromptChoice choice = ChoosePromptAnswer(g.typed, buttons, true);
        EXPECT_TRUE(choice.valid) << g.typed;
        EXPECT_EQ(choice.value, g.value) << g.typed;
        EXPECT_EQ(choice.error, "");
    }
}

TEST(PromptAnswer, AnswersThatNameNoButtonAreRefusedWithTheReason) {
    const std::vector<std::string> buttons = {"OK"};
    const struct {
        const char* typed;
        const char* error;
    } bad[] = {{"0", "no button 0 (1 to 1)"},
               {"2", "no button 2 (1 to 1)"},
               {"", "'' is neither a button's number nor its caption"},
               {"Cancel", "'Cancel' is neither a button's number nor its caption"},
               {"-1", "'-1' is neither a button's number nor its caption"},
               {"99999999999999999999", "'99999999999999999999' is neither a button's number nor its caption"},
               {"O K", "'O K' is neither a button's number nor its caption"}};
    for (const auto& b : bad) {
        const host::PromptChoice choice = ChoosePromptAnswer(b.typed, buttons, true);
        EXPECT_FALSE(choice.valid) << b.typed;
        EXPECT_EQ(choice.error, b.error);
    }
}

TEST(PromptAnswer, CaptionWinsOverPositionAndEmptyCaptionsAreNoMatch) {
    // A button captioned "2" is found by its caption, at position 0.
    EXPECT_EQ(ChoosePromptAnswer("2", {"2", "1"}, true).value, "0");
    EXPECT_EQ(ChoosePromptAnswer("1", {"2", "1"}, true).value, "1");
    // A prompt's one empty button is still chosen by its number.
    const host::PromptChoice empty = ChoosePromptAnswer("1", {""}, true);
    EXPECT_TRUE(empty.valid);
    EXPECT_EQ(empty.value, "0");
    EXPECT_FALSE(ChoosePromptAnswer("", {""}, true).valid);
}

TEST(PromptAnswer, OtherPromptsTakeTheTextAsTyped) {
    const host::PromptChoice text = ChoosePromptAnswer("  serial 42 ", {"OK"}, false);
    EXPECT_TRUE(text.valid);
    EXPECT_EQ(text.value, "  serial 42 ");
    const host::PromptChoice noButtons = ChoosePromptAnswer("7", {}, true);
    EXPECT_TRUE(noButtons.valid);
    EXPECT_EQ(noButtons.value, "7");
}

}  // namespace
