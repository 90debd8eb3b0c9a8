#include "PromptAnswer.h"

#include <strings.h>

#include <cctype>

#include "Language.h"

namespace host {

namespace {

std::string Trimmed(const std::string& text) {
    size_t begin = 0;
    size_t end = text.size();
    while (begin < end && std::isspace(static_cast<unsigned char>(text[begin]))) ++begin;
    while (end > begin && std::isspace(static_cast<unsigned char>(text[end - 1]))) --end;
    return text.substr(begin, end - begin);
}

bool AllDigits(const std::string& text) {
    if (text.empty() || text.size() > 6) return false;
    for (char c : text)
        if (!std::isdigit(static_cast<unsigned char>(c))) return false;
    return true;
}

}  // namespace

PromptChoice ChoosePromptAnswer(const std::string& answer, const std::vector<std::string>& buttons, bool buttonPrompt) {
    PromptChoice choice;
    if (!buttonPrompt || buttons.empty()) {
        choice.valid = true;
        choice.value = answer;
        return choice;
    }
    const std::string typed = Trimmed(answer);
    // A caption wins over a number, so that a button captioned "2" is found
    // by its caption.
    for (size_t i = 0; i < buttons.size(); ++i) {
        if (!typed.empty() && strcasecmp(Trimmed(buttons[i]).c_str(), typed.c_str()) == 0) {
            choice.valid = true;
            choice.value = std::to_string(i);
            return choice;
        }
    }
    if (AllDigits(typed)) {
        const unsigned long number = std::stoul(typed);
        if (number >= 1 && number <= buttons.size()) {
            choice.valid = true;
            choice.value = std::to_string(number - 1);
            return choice;
        }
        choice.error = Format(tr("no button %s (1 to %s)"), {typed, std::to_string(buttons.size())});
        return choice;
    }
    choice.error = Format(tr("'%s' is neither a button's number nor its caption"), {typed});
    return choice;
}

}  // namespace host
