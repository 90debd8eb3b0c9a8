// What a user may set for a test: a named value published in the catalogue
// and read back from the attributes of a run command.
#pragma once

#include <string>
#include <vector>

#include "common/Persistent.h"
#include "common/XmlObject.h"

class Parameter : public Persistent {
public:
    std::string name;  // the attribute of the run command that carries the value
    std::string caption;
    std::string description;

    Parameter() = default;
    Parameter(const std::string& name, const std::string& caption, const std::string& description);

    void ReadAndWrite(ptstream& stream, direction dir, unsigned int version) override;
    // The catalogue element: name, caption, description, type and default.
    // The value in force is not published.
    virtual XmlObject ToXml();
    // Takes the text of a run command; empty selects the default.
    virtual void SetValue(std::string text) = 0;
    virtual void Set(std::string name, std::string caption, std::string description);
    virtual std::string GetDefaultValue() = 0;
    virtual std::string GetType() = 0;

    void SetName(std::string text) { name = text; }
    void SetCaption(std::string text) { caption = text; }
    void SetDescription(std::string text) { description = text; }
    std::string GetName() const { return name; }
    std::string GetCaption() const { return caption; }
    std::string GetDescription() const { return description; }
};

class StringParameter : public Parameter {
public:
    std::string defaultValue;
    std::string value;  // empty until the first SetValue

    StringParameter() = default;
    StringParameter(const std::string& name, const std::string& caption, const std::string& description,
                    const std::string& defaultValue);

    void ReadAndWrite(ptstream& stream, direction dir, unsigned int version) override;
    void CopyFromPointer(const Persistent* other) override;
    const char* GetRealClassName() const override { return "StringParameter"; }
    Persistent* CreateCopy() const override { return new StringParameter(*this); }

    void SetValue(std::string text) override;
    using Parameter::Set;
    // The base's fields, then the default; `value` is not touched.
    void Set(std::string name, std::string caption, std::string description, std::string defaultValue);
    std::string GetDefaultValue() override { return defaultValue; }
    std::string GetType() override;
    std::string GetValue() const { return value; }
    void SetDefaultValue(std::string text) { defaultValue = text; }
};

// A test's parameters, in order. The list does not own them: a test keeps
// its parameters as members and hands their addresses over.
class ParameterList : public Persistent {
public:
    std::vector<Parameter*> parameters;

    void ReadAndWrite(ptstream& stream, direction dir, unsigned int version) override;
    void CopyFromPointer(const Persistent* other) override;
    const char* GetRealClassName() const override { return "ParameterList"; }
    Persistent* CreateCopy() const override { return new ParameterList(*this); }

    // Appends; neither the pointer nor the name is checked for duplicates.
    void Insert(Parameter* parameter);
    // An element without a name holding one child per parameter.
    XmlObject ToXml() const;
    // Every parameter takes the command's attribute of its name (empty when
    // absent). The first SetValue that throws ends the parse.
    void Parse(const XmlObject& command);
};
