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
std::string TvkWarning::GetXml() const {
    XmlObject element;
    element.name = GetTagName();
    element.SetAttribute(xmldef::errorCode, GetErrorCode());
    element.SetAttribute(xmldef::key, message);
    element.SetAttribute(xmldef::detail, detail);
    if (!extra.empty()) element.SetAttribute("extra", extra);
    if (!referenceA.empty() || !referenceB.empty())
        element.SetAttribute(xmldef::reference, referenceA + ", " + referenceB);
    element.value = message;
    if (!detail.empty()) {
        element.value += ": ";
        element.value += detail;
    }
    return element.GetXmlString();
}

TvkError::TvkError(const std::string& message, const std::string& detail, const std::string& extra)
    : TvkWarning(message, detail, extra) {}

const char* TvkError::GetTagName() const { return xmldef::error; }

const char* TvkError::GetErrorCode() const { return "TvkError"; }

FrontendError::FrontendError(const std::string& message, const std::string& detail)
    : TvkError(message, detail, "") {}

const char* FrontendError::GetErrorCode() const { return "FrontendError"; }
