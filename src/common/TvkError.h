// The module's exceptions. Each carries a message, a detail and a third text
// (empty as a rule), plus an optional cross reference (where the error was
// seen: a class and an object name). GetXml() gives an element that
// XmlObject parses:
//   <error errorCode="TvkError" key="MESSAGE" detail="DETAIL"
//          [extra="THIRD"] [reference="A, B"]>MESSAGE[: DETAIL]</error>
// A warning has the element name "warning" and errorCode "TvkWarning".
#pragma once

#include <exception>
#include <string>

#include "common/XmlObject.h"

class TvkWarning : public std::exception {
public:
    TvkWarning(const std::string& message, const std::string& detail, const std::string& extra);
    ~TvkWarning() override = default;

    void CrossReference(const std::string& a, const std::string& b);
    std::string GetXml() const;
    // The element of GetXml(), without a round trip through text.
    XmlObject GetXmlObject() const;
    // The element's text value: the message, then ": " and the detail.
    std::string GetText() const;
    // Element name of GetXml().
    virtual const char* GetTagName() const;
    // Value of the errorCode attribute.
    virtual const char* GetErrorCode() const;
    const char* what() const noexcept override { return message.c_str(); }

    const std::string& GetMessage() const { return message; }
    const std::string& GetDetail() const { return detail; }
    const std::string& GetExtra() const { return extra; }
    const std::string& GetReferenceA() const { return referenceA; }
    const std::string& GetReferenceB() const { return referenceB; }

protected:
    std::string message;
    std::string detail;
    std::string extra;
    std::string referenceA;
    std::string referenceB;
};

class TvkError : public TvkWarning {
public:
    TvkError(const std::string& message, const std::string& detail, const std::string& extra);
    const char* GetTagName() const override;
    const char* GetErrorCode() const override;
};

// Bad input from the user.
class FrontendError : public TvkError {
public:
    FrontendError(const std::string& message, const std::string& detail);
    const char* GetErrorCode() const override;
};
