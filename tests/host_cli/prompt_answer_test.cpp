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
        const char* value;  // empty: refused with `error`, or "neither" for the usual refusal
        const char* error;
    } cases[] = {
        {"1", three, true, "0", ""}, {"3", three, true, "2", ""}, {" 2 ", three, true, "1", ""},
        {"no", three, true, "1", ""}, {"YES", three, true, "0", ""}, {"  Retry Later\n", three, true, "2", ""},
        {"003", three, true, "2", ""},
        // A caption wins over a position; a prompt's one empty button is still chosen by its number.
        {"2", {"2", "1"}, true, "0", ""}, {"1", {"2", "1"}, true, "1", ""}, {"1", {""}, true, "0", ""},
        {"  serial 42 ", ok, false, "  serial 42 ", ""}, {"7", {}, true, "7", ""},
        {"0", ok, true, "", "no button 0 (1 to 1)"}, {"2", ok, true, "", "no button 2 (1 to 1)"},
        {"", ok, true, "", "neither"}, {"", {""}, true, "", "neither"}, {"Cancel", ok, true, "", "neither"},
        {"-1", ok, true, "", "neither"}, {"99999999999999999999", ok, true, "", "neither"},
        {"O K", ok, true, "", "neither"},
    };
    for (const auto& c : cases) {
        const host::PromptChoice choice = host::ChoosePromptAnswer(c.typed, c.buttons, c.buttonPrompt);
        EXPECT_EQ(choice.valid, *c.value != '\0') << c.typed;
        EXPECT_EQ(choice.value, c.value) << c.typed;
        EXPECT_EQ(choice.error, std::string(c.error) != "neither" ? std::string(c.error)
                      : "'" + std::string(c.typed) + "' is neither a button's number nor its caption") << c.typed;
    }
}
