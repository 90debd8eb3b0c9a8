#include "tc/framework/Device.h"

#include "common/Debug.h"
#include "common/StringUtil.h"
#include "common/Translate.h"
#include "common/TvkError.h"
#include "common/xmldef.h"
#include "tc/framework/CaughtError.h"
#include "tc/framework/ComponentOutlet.h"
#include "tc/framework/Diagnosis.h"
#include "tc/framework/Test.h"

// ---- Interface ----

Interface::Interface(const std::string& name, const std::string& caption, const std::string& description,
                     InterfaceRole role)
    : name(name), caption(caption), description(description), role(role) {}

void Interface::ReadAndWrite(ptstream& stream, direction dir, unsigned int) {
    if (dir == ptRead) {
        iptstream& in = static_cast<iptstream&>(stream);
        int32_t r = 0;
        in >> name >> caption >> description >> r;
        role = static_cast<InterfaceRole>(r);
    } else {
        optstream& out = static_cast<optstream&>(stream);
        out << name << caption << description << static_cast<int32_t>(role);
    }
}

void Interface::CopyFromPointer(const Persistent* other) { PersistentCopyFrom(this, other); }

static ClassRegistrar<Interface> InterfaceClassRegistrar;

// ---- SearchDevice ----

void SearchDevice::CopyFromPointer(const Persistent* other) { PersistentCopyFrom(this, other); }

static ClassRegistrar<SearchDevice> SearchDeviceClassRegistrar;

// ---- Device ----

Device::Device(const std::string& givenName, bool makeUnique) : name(givenName) {
    if (!makeUnique) return;
    std::string::size_type lastNonDigit = name.find_last_not_of("0123456789");
    if (lastNonDigit != std::string::npos && lastNonDigit + 1 < name.size()) name.erase(lastNonDigit + 1);
    unsigned int number = 0;
    if (outlet::TakeDeviceNumber(name, number)) name += std::to_string(number);
    if (name != givenName) dbgprintf("Device name changed from %s to %s\n", givenName.c_str(), name.c_str());
}

Device::Device(const Device& other)
    : Persistent(other),
      name(other.name),
      locked(other.locked),
      caption(other.caption),
      description(other.description),
      interfaces(other.interfaces) {
    for (const Test* t : other.tests) tests.push_back(t ? static_cast<Test*>(t->CreateCopy()) : nullptr);
    for (const Diagnosis* d : other.diagnoses)
        diagnoses.push_back(d ? static_cast<Diagnosis*>(d->CreateCopy()) : nullptr);
}

Device::~Device() {
    FreeList(tests);
    FreeList(diagnoses);
    FreeList(properties);
}

void Device::ReadAndWrite(ptstream& stream, direction dir, unsigned int) {
    if (dir == ptRead) {
        iptstream& in = static_cast<iptstream&>(stream);
        in >> name >> locked >> caption >> description;
        in >> tests >> interfaces >> diagnoses;
    } else {
        optstream& out = static_cast<optstream&>(stream);
        out << name << locked << caption << description;
        out << tests << interfaces << diagnoses;
    }
}

const char* Device::GetClassName() const { return className.empty() ? xmldef::device : className.c_str(); }

void Device::Initialize() {}
void Device::Uninitialize() {}
void Device::DeviceAction(XmlObject&) {}

std::string Device::DisplayName() const { return caption.empty() ? name : caption; }

bool Device::operator<(const Device& other) const { return strnumcmp(name, other.name) < 0; }

std::string Device::ID(bool catalog) {
    XmlObject element;
    element.name = xmldef::device;
    element.SetAttribute(xmldef::name, name);
    element.SetAttribute(xmldef::class_x, GetClassName());
    element.SetAttribute(xmldef::caption, caption);
    element.SetAttribute(xmldef::description, description);
    try {
        if (!catalog) Initialize();
        DoID(element, catalog);
        AddPropertyListToXml(element);
        AddInterfaceListToXml(element);
        std::string line = DisplayName();
        if (!description.empty() && line.find(description) == std::string::npos) line += " - " + description;
        element.SetAttribute(xmldef::diagnosable, diagnoses.empty() ? "0" : "1");
        WriteEventLog(Translate("Device Discovered"), line);
        if (!catalog) Uninitialize();
    } catch (TvkError& error) {
        // One faulty device must not spoil a whole catalogue or discovery.
        error.CrossReference("ID", GetClassName());
        element.AddObject(ErrorElement(error));
    }
    return element.GetXmlString();
}

// Takes the first other item of `item`'s name out of `list` and deletes it:
// a device offers one test and one diagnosis of each name.
template <class T>
static void dropNamesake(std::vector<T*>& list, const T* item) {
    for (auto it = list.begin(); it != list.end(); ++it) {
        if (*it && *it != item && (*it)->name == item->name) {
            delete *it;
            list.erase(it);
            return;
        }
    }
}

void Device::AddTest(Test* test) {
    if (!test) return;
    dropNamesake(tests, test);
    test->SetParameters();
    tests.push_back(test);
}

void Device::AddTestAndId(Test* test, XmlObject& xml) {
    AddTest(test);
    // The element itself rather than its text parsed again: a test's text
    // is its catalogue element written.
    if (test) xml.children.push_back(test->CatalogElement());
}

void Device::AddDiagnosis(Diagnosis* diagnosis) {
    if (!diagnosis) return;
    dropNamesake(diagnoses, diagnosis);
    diagnoses.push_back(diagnosis);
}

void Device::AddInterface(const std::string& interfaceName, const std::string& interfaceCaption,
                          const std::string& interfaceDescription, const InterfaceRole& role) {
    interfaces.emplace_back(interfaceName, interfaceCaption, interfaceDescription, role);
}

void Device::AddProperty(Property* property) {
    if (property) properties.push_back(property);
}

template <class T, class List>
static T* findByName(const List& list, const std::string& name) {
    for (T* e : list)
        if (e && e->name == name) return e;
    return nullptr;
}

Test* Device::FindTest(const std::string& testName) { return findByName<Test>(tests, testName); }
const Test* Device::FindTest(const std::string& testName) const { return findByName<Test>(tests, testName); }
Diagnosis* Device::FindDiagnosis(const std::string& diagnosisName) {
    return findByName<Diagnosis>(diagnoses, diagnosisName);
}
const Diagnosis* Device::FindDiagnosis(const std::string& diagnosisName) const {
    return findByName<Diagnosis>(diagnoses, diagnosisName);
}

void Device::AddInterfaceListToXml(XmlObject& xml) const {
    for (const Interface& i : interfaces) {
        XmlObject child;
        child.name = xmldef::interface_x;
        child.SetAttribute(xmldef::name, i.name);
        child.SetAttribute(xmldef::caption, i.caption);
        child.SetAttribute(xmldef::description, i.description);
        switch (i.role) {
            case parentRole: child.SetAttribute(xmldef::role, xmldef::parent); break;
            case childRole: child.SetAttribute(xmldef::role, xmldef::child); break;
            case siblingRole: child.SetAttribute(xmldef::role, xmldef::sibling); break;
            default: break;
        }
        xml.AddObject(child);
    }
}

void Device::AddPropertyListToXml(XmlObject& xml) const {
    for (const Property* p : properties)
        if (p) xml.AddProperty(p->name, p->caption, p->value, 0);
}

void Device::WriteEventLog(const std::string& logCaption, const std::string& logDescription) {
    outlet::WriteLog(logCaption, logDescription);
}
