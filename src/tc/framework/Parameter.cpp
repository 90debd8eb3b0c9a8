#include "tc/framework/Parameter.h"

#include "common/xmldef.h"

// ---- Parameter ----

Parameter::Parameter(const std::string& name, const std::string& caption, const std::string& description)
    : name(name), caption(caption), description(description) {}

void Parameter::ReadAndWrite(ptstream& stream, direction dir, unsigned int) {
    if (dir == ptRead) {
        static_cast<iptstream&>(stream) >> name >> caption >> description;
    } else {
        static_cast<optstream&>(stream) << name << caption << description;
    }
}

XmlObject Parameter::ToXml() {
    XmlObject element;
    element.name = xmldef::parameter;
    element.SetAttribute(xmldef::name, name);
    element.SetAttribute(xmldef::caption, caption);
    element.SetAttribute(xmldef::description, description);
    element.SetAttribute(xmldef::type, GetType());
    element.SetAttribute(xmldef::defaultValue, GetDefaultValue());
    return element;
}

void Parameter::Set(std::string newName, std::string newCaption, std::string newDescription) {
    name = newName;
    caption = newCaption;
    description = newDescription;
}

// ---- StringParameter ----

StringParameter::StringParameter(const std::string& name, const std::string& caption, const std::string& description,
                                 const std::string& defaultValue)
    : Parameter(name, caption, description), defaultValue(defaultValue) {}

void StringParameter::ReadAndWrite(ptstream& stream, direction dir, unsigned int) {
    Parameter::ReadAndWrite(stream, dir, 0);
    if (dir == ptRead) {
        static_cast<iptstream&>(stream) >> defaultValue >> value;
    } else {
        static_cast<optstream&>(stream) << defaultValue << value;
    }
}

void StringParameter::CopyFromPointer(const Persistent* other) { PersistentCopyFrom(this, other); }

void StringParameter::SetValue(std::string text) { value = text.empty() ? defaultValue : text; }

void StringParameter::Set(std::string newName, std::string newCaption, std::string newDescription,
                          std::string newDefault) {
    Parameter::Set(newName, newCaption, newDescription);
    defaultValue = newDefault;
}

std::string StringParameter::GetType() { return xmldef::string_x; }

static ClassRegistrar<StringParameter> StringParameterClassRegistrar;

// ---- ParameterList ----

void ParameterList::ReadAndWrite(ptstream& stream, direction dir, unsigned int) {
    // The entries belong to the test, so they are stored as references.
    if (dir == ptRead) {
        iptstream& in = static_cast<iptstream&>(stream);
        uint32_t count = in.ReadCount(4);
        for (uint32_t i = 0; i < count; ++i) {
            Parameter* parameter = nullptr;
            in.ReadReference(parameter);
            parameters.push_back(parameter);
        }
    } else {
        optstream& out = static_cast<optstream&>(stream);
        out << static_cast<uint32_t>(parameters.size());
        for (const Parameter* parameter : parameters) out.WriteReference(parameter);
    }
}

void ParameterList::CopyFromPointer(const Persistent* other) { PersistentCopyFrom(this, other); }

void ParameterList::Insert(Parameter* parameter) { parameters.push_back(parameter); }

XmlObject ParameterList::ToXml() const {
    XmlObject list;
    for (Parameter* parameter : parameters)
        if (parameter) list.AddObject(parameter->ToXml());
    return list;
}

void ParameterList::Parse(const XmlObject& command) {
    for (Parameter* parameter : parameters)
        if (parameter) parameter->SetValue(command.GetAttributeValue(parameter->GetName(), ""));
}

static ClassRegistrar<ParameterList> ParameterListClassRegistrar;
