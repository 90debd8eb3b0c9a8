#include "common/TvkError.h"

#include "common/XmlObject.h"
#include "common/xmldef.h"

TvkWarning::TvkWarning(const std::string& message, const std::string& detail, const std::string& extra)
    : message(message), detail(detail), extra(extra) {}

void TvkWarning::CrossReference(const std::string& a, const std::string& b) {
    referenceA = a;
    referenceB = b;
}

const char* TvkWarning::GetTagName() const { return xmldef::warning; }

const char* TvkWarning::GetErrorCode() const { return "TvkWarning"; }

// Built through XmlObject so that any text, markup characters included,
// comes out escaped and parses back unchanged.
// Written straight into text (errors are on the hot path of every refused
// command); the form is exactly that of GetXmlObject().GetXmlString().
std::string TvkWarning::GetXml() const {
    std::string out;
    out.reserve(96 + message.size() * 2 + detail.size() * 2);
    const char* tag = GetTagName();
    out += '<';
    out += tag;
    auto attribute = [&out](const char* name, const std::string& value) {
        out += ' ';
        out += name;
        out += "=\"";
        XmlAppendEscaped(out, value, true);
        out += '"';
    };
    out += " errorCode=\"";
    out += GetErrorCode();
    out += '"';
    attribute(xmldef::key, message);
    attribute(xmldef::detail, detail);
    if (!extra.empty()) attribute("extra", extra);
    if (!referenceA.empty() || !referenceB.empty()) attribute(xmldef::reference, referenceA + ", " + referenceB);
    // The text is the message, then ": " and the detail, written straight
    // in; a NUL ends it, which only the slow road handles.
    if (message.find('\0') != std::string::npos) {
        std::string escaped;
        XmlAppendEscaped(escaped, GetText(), false);
        if (escaped.empty()) return out += "/>";
        return out.append(">").append(escaped).append("</").append(tag).append(">");
    }
    if (message.empty() && detail.empty()) return out += "/>";
    out += '>';
    XmlAppendEscaped(out, message, false);
    if (!detail.empty()) {
        out += ": ";
        XmlAppendEscaped(out, detail, false);
    }
    out += "</";
    out += tag;
    out += '>';
    return out;
}

std::string TvkWarning::GetText() const {
    if (detail.empty()) return message;
    return message + ": " + detail;
}

XmlObject TvkWarning::GetXmlObject() const {
    XmlObject element;
    element.name = GetTagName();
    element.SetAttribute(xmldef::errorCode, GetErrorCode());
    element.SetAttribute(xmldef::key, message);
    element.SetAttribute(xmldef::detail, detail);
    if (!extra.empty()) element.SetAttribute("extra", extra);
    if (!referenceA.empty() || !referenceB.empty())
        element.SetAttribute(xmldef::reference, referenceA + ", " + referenceB);
    element.value = GetText();
    return element;
}

TvkError::TvkError(const std::string& message, const std::string& detail, const std::string& extra)
    : TvkWarning(message, detail, extra) {}

const char* TvkError::GetTagName() const { return xmldef::error; }

const char* TvkError::GetErrorCode() const { return "TvkError"; }

FrontendError::FrontendError(const std::string& message, const std::string& detail)
    : TvkError(message, detail, "") {}

const char* FrontendError::GetErrorCode() const { return "FrontendError"; }
