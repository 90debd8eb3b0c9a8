#include "tc/framework/Prompt.h"

#include "common/Translate.h"
#include "common/XmlObject.h"
#include "common/xmldef.h"
#include "tc/framework/ComponentOutlet.h"

Prompt::~Prompt() = default;

void Prompt::WriteEventLog(std::string title, std::string text) { outlet::WriteLog(title, text); }

std::string Prompt::GetPromptResponse(std::string xml) { return outlet::SendEvent(xml); }

std::string Prompt::PromptUserText(const std::string& text, std::vector<std::string>& promptOptions,
                                   const std::string& type, const std::string& width, const std::string& height) {
    options = promptOptions;

    XmlObject element;
    element.name = xmldef::diagPrompt;
    element.SetAttribute(xmldef::test, testName);
    element.SetAttribute(xmldef::device, deviceName);
    element.SetAttribute(xmldef::type, type);
    element.SetAttribute(xmldef::width, width);
    element.SetAttribute(xmldef::height, height);
    element.SetAttribute(xmldef::loop, loop, 10);
    element.SetAttribute(xmldef::recordNum, recordNum, 10);
    if (superLed) element.SetAttribute(xmldef::titleCaption, Translate("Super LED Test"));
    if (blankTitle) element.SetAttribute(xmldef::titleCaption, "  ");
    element.value = text;

    SuperLEDItems items;
    if (superLed) items = SuperLEDPrompt().getItems();
    for (std::vector<std::string>::size_type i = 0; i < options.size(); ++i) {
        XmlObject option;
        option.name = xmldef::option;
        option.SetAttribute(xmldef::caption, Translate(options[i]));
        // Items go by position; a longer list has nothing to show beyond them.
        if (superLed && i < items.hotkeys.size()) {
            option.SetAttribute(xmldef::hotkey, items.hotkeys[i]);
            option.SetAttribute(xmldef::image, items.images[i]);
        }
        element.AddObject(option);
    }

    const std::string line = (deviceCaption.empty() ? deviceName : deviceCaption) + " - " +
                             (testCaption.empty() ? testName : testCaption) + ";" + text;
    WriteEventLog(Translate("Test Prompts User"), line);

    const std::string reply = GetPromptResponse(element.GetXmlString());
    // No reply at all is an answer without a value.
    if (reply.empty()) return std::string();
    return XmlObject(reply).GetAttributeValue(xmldef::value, "");
}

SuperLEDItems SuperLEDPrompt::getItems() {
    static const char* const table[][3] = {
        {"Keyboard", "kbDevice.BMP", "k"},      {"Hard Drive", "HDSCSI.BMP", "h"},
        {"CDROM Drive", "cdrom.BMP", "c"},      {"Floppy Drive", "diskette.BMP", "f"},
        {"Tape Drive", "TAPE.BMP", "t"},        {"Zip Drive", "zipDrive.BMP", "z"},
        {"DVD Drive", "DVD.BMP", "v"},          {"Green Power LED", "PowerLed.BMP", "p"},
        {"Red Power LED", "PowerLed.BMP", "l"}, {"CDRW Drive", "CDRWM.BMP", "r"},
        {"DVDRW Drive", "DVD.BMP", "w"},        {"Combo Drive", "cdrom.BMP", "m"},
    };
    SuperLEDItems items;
    for (const auto& row : table) {
        items.captions.push_back(Translate(row[0]));
        items.images.push_back(row[1]);
        items.hotkeys.push_back(row[2]);
    }
    return items;
}
