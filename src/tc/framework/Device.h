// The framework's generic testable thing: a named object that owns tests,
// diagnoses, interfaces to neighbouring devices and display properties, and
// describes itself as one XML element.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "common/Persistent.h"
#include "common/XmlObject.h"

class Test;
class Diagnosis;
class XmlObject;

// Fixed underlying type: a stored role may hold any number.
enum InterfaceRole : int32_t { parentRole = 0, childRole = 1, siblingRole = 2 };

// A link to a neighbouring device.
class Interface : public Persistent {
public:
    std::string name;
    std::string caption;
    std::string description;
    InterfaceRole role = parentRole;

    Interface() = default;
    Interface(const std::string& name, const std::string& caption, const std::string& description, InterfaceRole role);

    void ReadAndWrite(ptstream& stream, direction dir, unsigned int version) override;
    void CopyFromPointer(const Persistent* other) override;
    const char* GetRealClassName() const override { return "Interface"; }
    Persistent* CreateCopy() const override { return new Interface(*this); }
};

// A display property of a device.
class Property {
public:
    std::string name;
    std::string caption;
    std::string value;

    Property() = default;
    Property(const std::string& name, const std::string& caption, const std::string& value)
        : name(name), caption(caption), value(value) {}
    virtual ~Property() = default;
};

class Device : public Persistent {
public:
    std::string name;
    bool locked = false;
    std::string caption = "Device";
    std::string description = "Device";
    std::string className;
    std::vector<Test*> tests;
    std::vector<Interface> interfaces;
    std::vector<Diagnosis*> diagnoses;
    std::vector<Property*> properties;

    Device() = default;
    // With `makeUnique` the name loses its trailing digits and gets the
    // lowest number free in the component's set (not while a catalogue is
    // built, and not without a component).
    Device(const std::string& name, bool makeUnique);
    Device(const Device& other);
    Device& operator=(const Device&) = delete;
    ~Device() override;

    void ReadAndWrite(ptstream& stream, direction dir, unsigned int version) override;

    // `className`, or xmldef::device when it is empty.
    virtual const char* GetClassName() const;
    // Brackets identification and every test run. Default implementation does nothing.
    virtual void Initialize();
    // Default implementation does nothing.
    virtual void Uninitialize();
    // Default implementation does nothing.
    virtual void DeviceAction(XmlObject& command);
    virtual void DoID(XmlObject& element, bool catalog) = 0;

    std::string ID(bool catalog);
    void AddTest(Test* test);
    void AddTestAndId(Test* test, XmlObject& xml);
    void AddDiagnosis(Diagnosis* diagnosis);
    void AddInterface(const std::string& name, const std::string& caption, const std::string& description,
                      const InterfaceRole& role);
    void AddProperty(Property* property);
    Test* FindTest(const std::string& name);
    const Test* FindTest(const std::string& name) const;
    Diagnosis* FindDiagnosis(const std::string& name);
    const Diagnosis* FindDiagnosis(const std::string& name) const;
    void AddInterfaceListToXml(XmlObject& xml) const;
    void AddPropertyListToXml(XmlObject& xml) const;
    void WriteEventLog(const std::string& caption, const std::string& description);

    // Execution (run, cancel, diagnose).
    std::string RunTest(XmlObject& command);
    void CancelTest(const XmlObject& command);
    std::string RunDiagnosis(XmlObject& command);

    // Caption, or name when the caption is empty.
    std::string DisplayName() const;

    bool operator<(const Device& other) const;
};

// A device with no behaviour that exists to be a key.
class SearchDevice : public Device {
public:
    SearchDevice() = default;
    explicit SearchDevice(const std::string& name) : Device(name, false) {}
    void DoID(XmlObject&, bool) override {}
    void ReadAndWrite(ptstream&, direction, unsigned int) override {}
    void CopyFromPointer(const Persistent* other) override;
    const char* GetRealClassName() const override { return "SearchDevice"; }
    Persistent* CreateCopy() const override { return new SearchDevice(*this); }
};

// Orders pointers by what they point to; null pointers by address.
template <class T, class Less>
struct deref_compare {
    bool operator()(const T* a, const T* b) const {
        if (!a || !b) return a < b;
        return Less()(*a, *b);
    }
};

typedef std::set<Device*, deref_compare<Device, std::less<Device>>> DeviceSet;

// Deletes every non-null element through its virtual destructor and empties
// the vector.
template <class T>
void FreeList(std::vector<T*>& list) {
    for (T* e : list) delete e;
    list.clear();
}
