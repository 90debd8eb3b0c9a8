// How the operator's typed answer becomes the value the component gets.
#include <gtest/gtest.h>

// The host program is no library: its pure answer logic is compiled in here.
#include "../../tools/zorbus-host/PromptAnswer.cpp"

TEST(PromptAnswer, ButtonsByOneBasedNumberOrCaptionOtherPromptsAsTyped) {
    const std::vector<std::string> three = {"Yes", "No", "Retry later"}, ok = {"OK"};
    const struct {
        const char* typed;
        std::vector<std::string> buttons;
        bool buttonPrompt;
        const char* value;  // empty: refused with `error`
        const char* error;
    } cases[] = {
        {"1", three, true, "0", ""}, {"3", three, true, "2", ""}, {" 2 ", three, true, "1", ""},
        {"no", three, true, "1", ""}, {"YES", three, true, "0", ""}, {"  Retry Later\n", three, true, "2", ""},
        {"003", three, true, "2", ""},
        // A caption wins over a position; a prompt's one empty button is still chosen by its number.
        {"2", {"2", "1"}, true, "0", ""}, {"1", {"2", "1"}, true, "1", ""}, {"1", {""}, true, "0", ""},
        {"  serial 42 ", ok, false, "  serial 42 ", ""}, {"7", {}, true, "7", ""},
        {"0", ok, true, "", "no button 0 (1 to 1)"}, {"2", ok, true, "", "no button 2 (1 to 1)"},
        {"", ok, true, "", "'' is neither a button's number nor its caption"},
        {"", {""}, true, "", "'' is neither a button's number nor its caption"},
        {"Cancel", ok, true, "", "'Cancel' is neither a button's number nor its caption"},
        {"-1", ok, true, "", "'-1' is neither a button's number nor its caption"},
        {"99999999999999999999", ok, true, "", "'99999999999999999999' is neither a button's number nor its caption"},
        {"O K", ok, true, "", "'O K' is neither a button's number nor its caption"},
    };
    for (const auto& c : cases) {
        const host::PromptChoice choice = host::ChoosePromptAnswer(c.typed, c.buttons, c.buttonPrompt);
        EXPECT_EQ(choice.valid, *c.value != '\0') << c.typed;
        EXPECT_EQ(choice.value, c.value) << c.typed;
        EXPECT_EQ(choice.error, c.error) << c.typed;
    }
}
