#include "common/TvkError.h"

#include <cstring>

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

// Written straight into text (errors are on the hot path of every refused
// command); the form is exactly that of GetXmlObject().GetXmlString().
std::string TvkWarning::GetXml() const {
    // The text is the message, then ": " and the detail; a NUL in the
    // message ends it there, which only the element itself handles.
    if (message.find('\0') != std::string::npos) return GetXmlObject().GetXmlString();
    const char* tag = GetTagName();
    const char* code = GetErrorCode();
    const size_t tagSize = std::strlen(tag);
    XmlTextWriter xml;
    xml.Raw("<").Raw(tag, tagSize).Raw(" errorCode=\"").Raw(code, std::strlen(code));
    xml.Raw("\" key=\"").Attribute(message).Raw("\" detail=\"").Attribute(detail).Raw("\"");
    if (!extra.empty()) xml.Raw(" extra=\"").Attribute(extra).Raw("\"");
    if (!referenceA.empty() || !referenceB.empty())
        xml.Raw(" reference=\"").Attribute(referenceA + ", " + referenceB).Raw("\"");
    if (message.empty() && detail.empty()) return xml.Raw("/>").Str();
    xml.Raw(">").Text(message);
    if (!detail.empty()) xml.Raw(": ").Text(detail);
    return xml.Raw("</").Raw(tag, tagSize).Raw(">").Str();
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

FrontendError::FrontendError(const std::string& message, const std::string& detail) : TvkError(message, detail, "") {}

const char* FrontendError::GetErrorCode() const { return "FrontendError"; }
