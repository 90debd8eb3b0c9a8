// One XML element as a plain value: name, text value, attributes in the
// order they were set, and child elements. pugixml does the parsing and the
// writing; nothing of it shows in this header, so its symbols stay private.
#pragma once

#include <string>
#include <type_traits>
#include <utility>
#include <vector>

class XmlObject {
public:
    std::string name;
    std::string value;                 // the element's own text
    std::vector<XmlObject> children;

    XmlObject() = default;
    // Parses one element; malformed or empty text throws TvkError
    // ("Malformed XML", "<what> at offset <n>", "").
    explicit XmlObject(const std::string& xml);

    // The attribute's value, or `defaultValue` when the element has none.
    std::string GetAttributeValue(const std::string& attribute,
                                  const std::string& defaultValue = "") const;
    bool HasAttribute(const std::string& attribute) const;
    // Sets or replaces; a new attribute goes after the existing ones.
    void SetAttribute(const std::string& attribute, const char* text);
    void SetAttribute(const std::string& attribute, const std::string& text);
    // Writes `number` in the given base (2..36); base 10 is signed.
    template <typename T>
    void SetAttribute(const std::string& attribute, T number, int base);
    void RemoveAttribute(const std::string& attribute);
    const std::vector<std::pair<std::string, std::string>>& GetAttributes() const { return attributes; }

    // Appends a copy of `child`.
    void AddObject(const XmlObject& child);

    // A display property of a device, written as one child element:
    //   <property name="..." caption="..." value="..."/>
    // `flags` is reserved and ignored.
    void AddProperty(const std::string& propertyName, const std::string& caption,
                     const std::string& propertyValue, int flags = 0);
    void AddProperty(const std::string& propertyName, const std::string& caption,
                     int propertyValue, int flags = 0);

    // First element named `element` (any depth, document order, this element
    // included) that satisfies `predicate`: empty, or "@attr='value'".
    // Returns null when none does. The pointer lives as long as this object
    // is not changed.
    XmlObject* FindFirstMatch(const std::string& element, const std::string& predicate = "");
    const XmlObject* FindFirstMatch(const std::string& element, const std::string& predicate = "") const;
    // Every element named `element` below this one, any depth, document order.
    std::vector<XmlObject*> FindObjects(const std::string& element);

    // Compact text: no declaration, no indentation. A child without a name
    // writes its own children (and text) in its place.
    std::string GetXmlString() const;

private:
    std::vector<std::pair<std::string, std::string>> attributes;
};

std::string XmlFormatNumber(long long number, int base);
// Appends `text` escaped exactly as GetXmlString escapes an attribute value
// (inAttribute) or an element's text, for code that writes hot, fixed-form
// elements straight into a string.
void XmlAppendEscaped(std::string& out, const std::string& text, bool inAttribute);
std::string XmlFormatNumber(unsigned long long number, int base);

template <typename T>
void XmlObject::SetAttribute(const std::string& attribute, T number, int base) {
    static_assert(std::is_integral<T>::value, "SetAttribute<T> takes an integer");
    // Other bases are unsigned in T's own width: an int -1 in base 16 is "ffffffff".
    using U = typename std::make_unsigned<typename std::conditional<std::is_same<T, bool>::value, unsigned char, T>::type>::type;
    if (std::is_signed<T>::value && base == 10)
        SetAttribute(attribute, XmlFormatNumber(static_cast<long long>(number), base));
    else
        SetAttribute(attribute, XmlFormatNumber(static_cast<unsigned long long>(static_cast<U>(number)), base));
}
