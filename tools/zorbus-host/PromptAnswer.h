// Turns what the operator typed into the value that goes back to the
// component. Kept free of XML and terminal code so that it can be tested
// on its own.
#pragma once

#include <string>
#include <vector>

namespace host {

struct PromptChoice {
    bool valid = false;
    std::string value;  // what the reply carries: the 0-based button, or the text
    std::string error;  // why the answer was refused
};

// `buttons`: the captions of the prompt's options; a prompt of type "button"
// with options is answered by position (a 1-based number or a caption, case
// ignored); any other prompt takes the text as it is.
PromptChoice ChoosePromptAnswer(const std::string& answer, const std::vector<std::string>& buttons, bool buttonPrompt);

}  // namespace host
