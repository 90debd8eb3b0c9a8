// One XML element as a plain value: name, text value, attributes in the
// order they were set, and child elements. pugixml does the parsing and the
// writing; nothing of it shows in this header, so its symbols stay private.
// A host may send elements nested a million levels deep: converting,
// copying, writing, searching and destroying a tree use loops with stacks of
// their own, never recursion, so the depth of a tree never reaches the
// call stack.
#pragma once

#include <cstring>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

class XmlDocument;

class XmlObject {
public:
    std::string name;
    std::string value;  // the element's own text
    std::vector<XmlObject> children;

    XmlObject() = default;
    // Parses one element; malformed or empty text throws TvkError
    // ("Malformed XML", "<what> at offset <n>", "").
    explicit XmlObject(const std::string& xml);
    // The root element of a parsed text, converted whole.
    explicit XmlObject(const XmlDocument& document);
    XmlObject(const XmlObject& other);
    XmlObject(XmlObject&& other) noexcept = default;
    XmlObject& operator=(const XmlObject& other);
    XmlObject& operator=(XmlObject&& other) noexcept;
    ~XmlObject();

    // The attribute's value, or `defaultValue` when the element has none.
    std::string GetAttributeValue(const std::string& attribute, const std::string& defaultValue = "") const;
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
    void AddProperty(const std::string& propertyName, const std::string& caption, const std::string& propertyValue,
                     int flags = 0);
    void AddProperty(const std::string& propertyName, const std::string& caption, int propertyValue, int flags = 0);

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
    struct Shallow {};

public:
    // Name, text and attributes of `other`, without its children; only the
    // class itself can make a Shallow, the containers may pass it on.
    XmlObject(const XmlObject& other, Shallow);

private:
    std::vector<std::pair<std::string, std::string>> attributes;
};

// Appends `element`, the text of one element as GetXmlString writes it, in
// the form it takes as a child of another element's GetXmlString. That is
// the text itself, unless it holds a carriage return, which a parse turns
// into a line feed in element text; then it takes that road.
void AppendWrittenElement(std::string& out, const std::string& element);

std::string XmlFormatNumber(long long number, int base);
std::string XmlFormatNumber(unsigned long long number, int base);

// Writes XML text: GetXmlString writes every tree with it, and hot,
// fixed-form elements (an event, an error) are written with it straight
// into text. Room for the worst case of each piece is made before it is
// written, so the characters go in without a check each. Short elements
// stay in a buffer of the writer's own and cost no allocation until Str
// copies them out.
class XmlTextWriter {
public:
    XmlTextWriter() = default;
    XmlTextWriter(const XmlTextWriter&) = delete;
    XmlTextWriter& operator=(const XmlTextWriter&) = delete;

    XmlTextWriter& Raw(const char* piece, size_t size) {
        std::memcpy(Room(size), piece, size);
        used += size;
        return *this;
    }
    template <size_t N>
    XmlTextWriter& Raw(const char (&literal)[N]) {
        return Raw(literal, N - 1);
    }
    XmlTextWriter& Raw(const std::string& piece) { return Raw(piece.data(), piece.size()); }
    XmlTextWriter& Attribute(const std::string& value);  // escaped as an attribute value
    XmlTextWriter& Text(const std::string& value);       // escaped as an element's text

    // The text so far, ended by a NUL; valid until the next write.
    const char* CStr() {
        *Room(1) = '\0';
        return data;
    }
    std::string Str() const { return std::string(data, used); }
    // The text, taken out of the writer, which is left empty.
    std::string Take();

    size_t Size() const { return used; }
    // Forgets the last `count` characters written.
    void Drop(size_t count) { used -= count; }
    // Room for `size` characters in all, made at once.
    void Reserve(size_t size) {
        if (size > capacity) Grow(size - used);
    }

private:
    char* Room(size_t size) {
        if (capacity - used < size) Grow(size);
        return data + used;
    }
    void Grow(size_t size);
    char local[256];
    std::string heap;  // the text once it outgrows `local`
    char* data = local;
    size_t capacity = sizeof local;
    size_t used = 0;
};

template <typename T>
void XmlObject::SetAttribute(const std::string& attribute, T number, int base) {
    static_assert(std::is_integral<T>::value, "SetAttribute<T> takes an integer");
    // Other bases are unsigned in T's own width: an int -1 in base 16 is "ffffffff".
    using U = typename std::make_unsigned<
        typename std::conditional<std::is_same<T, bool>::value, unsigned char, T>::type>::type;
    if (std::is_signed<T>::value && base == 10)
        SetAttribute(attribute, XmlFormatNumber(static_cast<long long>(number), base));
    else
        SetAttribute(attribute, XmlFormatNumber(static_cast<unsigned long long>(static_cast<U>(number)), base));
}
