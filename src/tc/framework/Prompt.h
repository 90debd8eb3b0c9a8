// A question to the user in the middle of a test: an XML element sent
// through the component's event callback; the host's reply carries the
// answer. The calling thread blocks until then.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

class Prompt {
public:
    std::string testName;
    std::string deviceName;
    std::string testCaption;    // for the log line
    std::string deviceCaption;  // for the log line
    int32_t loop = 0;
    int32_t recordNum = 0;
    bool superLed = false;    // options carry the Super LED hotkeys and images
    bool blankTitle = false;  // the prompt carries a blank title
    std::vector<std::string> options;

    Prompt() = default;
    virtual ~Prompt();

    // Through the component's log when there is a component. Default
    // implementation sends the "diagEvent" line.
    virtual void WriteEventLog(std::string title, std::string text);
    // The host's reply, or "" without a component. Default implementation
    // sends the prompt through the component's callback.
    virtual std::string GetPromptResponse(std::string xml);

    // Sends the prompt and returns the answer's value attribute ("" when it
    // has none).
    std::string PromptUserText(const std::string& text, std::vector<std::string>& options, const std::string& type,
                               const std::string& width, const std::string& height);
};

struct SuperLEDItems {
    std::vector<std::string> captions;  // translated
    std::vector<std::string> images;
    std::vector<std::string> hotkeys;
};

// The fixed list of devices of the test in which the user names the device
// whose LED blinks.
class SuperLEDPrompt {
public:
    SuperLEDItems getItems();
};
