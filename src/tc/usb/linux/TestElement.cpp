#include "tc/usb/linux/TestElement.h"

#include "common/XmlObject.h"
#include "common/xmldef.h"

namespace {

// Where the value of the parameter's default stands: the start tag of the
// first parameter element names retries as its first attribute, no other
// parameter element comes before it, and each attribute is written as
// name="value" (a value holds no quote: the writer escapes it).
bool FindDefault(const std::string& element, size_t& valueStart, size_t& valueEnd) {
    const std::string tag = std::string("<") + xmldef::parameter;
    const std::string opening = tag + " " + xmldef::name + "=\"" + xmldef::retries + "\"";
    const size_t first = element.find(tag + " ");
    if (first == std::string::npos || element.compare(first, opening.size(), opening) != 0) return false;
    const std::string defaultName = xmldef::defaultValue;
    for (size_t at = first + tag.size(); at < element.size();) {
        if (element[at] == '/' || element[at] == '>') return false;
        if (element[at++] != ' ') return false;
        const size_t equals = element.find("=\"", at);
        if (equals == std::string::npos) return false;
        const size_t close = element.find('"', equals + 2);
        if (close == std::string::npos) return false;
        if (element.compare(at, equals - at, defaultName) == 0) {
            valueStart = equals + 2;
            valueEnd = close;
            return true;
        }
        at = close + 1;
    }
    return false;
}

}  // namespace

std::string WithRetriesDefaultZero(const std::string& element) {
    size_t valueStart = 0;
    size_t valueEnd = 0;
    if (FindDefault(element, valueStart, valueEnd))
        return element.substr(0, valueStart) + "0" + element.substr(valueEnd);
    XmlObject parsed(element);
    if (XmlObject* retries = parsed.FindFirstMatch(xmldef::parameter, "@name='retries'"))
        retries->SetAttribute(xmldef::defaultValue, "0");
    return parsed.GetXmlString();
}
