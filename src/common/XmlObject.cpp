#include "common/XmlObject.h"

#include <algorithm>
#include <cstring>
#include <pugixml.hpp>

#include "common/TvkError.h"
#include "common/XmlDocument.h"
#include "common/xmldef.h"

namespace {

// Characters that need an entity, per context, exactly as pugixml's writer
// decides: in attributes & < " and every control character; in text & < >
// and the control characters other than tab, line feed and carriage return.
// NUL ends a value, as it ends pugixml's C strings.
enum : unsigned char { kPlain = 0, kSpecial = 1 };

struct EscapeTables {
    unsigned char attribute[256];
    unsigned char text[256];
    EscapeTables() {
        for (int c = 0; c < 256; ++c) {
            attribute[c] = (c < 32 || c == '&' || c == '<' || c == '"') ? kSpecial : kPlain;
            text[c] = ((c < 32 && c != '\t' && c != '\n' && c != '\r') || c == '&' || c == '<' || c == '>')
                          ? kSpecial
                          : kPlain;
        }
    }
};

const EscapeTables kEscape;

// The longest entity, "&quot;": the most one character can become.
constexpr size_t kLongestEntity = 6;

// Writes the entity of `c`, a character that needs one (not NUL), at `to`;
// returns its length.
size_t WriteEntity(char* to, unsigned char c) {
    switch (c) {
        case '&': std::memcpy(to, "&amp;", 5); return 5;
        case '<': std::memcpy(to, "&lt;", 4); return 4;
        case '>': std::memcpy(to, "&gt;", 4); return 4;
        case '"': std::memcpy(to, "&quot;", 6); return 6;
        default: {
            const char numeric[5] = {'&', '#', static_cast<char>('0' + c / 10), static_cast<char>('0' + c % 10), ';'};
            std::memcpy(to, numeric, 5);
            return 5;
        }
    }
}

void AppendEscaped(std::string& out, const std::string& s, const unsigned char* special) {
    const char* p = s.data();
    const char* end = p + s.size();
    while (p < end) {
        const char* run = p;
        while (p < end && !special[static_cast<unsigned char>(*p)]) ++p;
        out.append(run, static_cast<size_t>(p - run));
        if (p == end || *p == '\0') return;  // a NUL ends a value
        char entity[kLongestEntity];
        out.append(entity, WriteEntity(entity, static_cast<unsigned char>(*p++)));
    }
}

// Writes `s` escaped at `to`, which has room for the worst case; returns
// the characters written. Runs without markup, most of any text, are
// copied whole.
size_t EscapeInto(char* to, const std::string& s, const unsigned char* special) {
    char* const start = to;
    const char* p = s.data();
    const char* const end = p + s.size();
    while (p < end) {
        const char* run = p;
        while (p < end && !special[static_cast<unsigned char>(*p)]) ++p;
        std::memcpy(to, run, static_cast<size_t>(p - run));
        to += p - run;
        if (p == end || *p == '\0') break;  // a NUL ends a value
        to += WriteEntity(to, static_cast<unsigned char>(*p++));
    }
    return static_cast<size_t>(to - start);
}

void Write(const XmlObject& element, std::string& out) {
    if (element.name.empty()) {
        // A nameless element is only a holder: its contents take its place.
        AppendEscaped(out, element.value, kEscape.text);
        for (const XmlObject& child : element.children) Write(child, out);
        return;
    }
    out += '<';
    out += element.name;
    for (const auto& attribute : element.GetAttributes()) {
        out += ' ';
        out += attribute.first;
        out.append("=\"", 2);
        AppendEscaped(out, attribute.second, kEscape.attribute);
        out += '"';
    }
    out += '>';
    const size_t contentStart = out.size();
    AppendEscaped(out, element.value, kEscape.text);
    for (const XmlObject& child : element.children) Write(child, out);
    if (out.size() == contentStart) {
        out.back() = '/';
        out += '>';
    } else {
        out.append("</", 2);
        out += element.name;
        out += '>';
    }
}

// The length of the element's text before escaping: enough to size the
// output of a large tree once instead of growing it step by step, which
// copies it again and again and, past the allocator's mapping threshold,
// touches fresh pages each time.
size_t PlainSize(const XmlObject& element) {
    size_t size = element.value.size() + 2 * element.name.size() + 5;
    for (const auto& attribute : element.GetAttributes()) size += attribute.first.size() + attribute.second.size() + 4;
    for (const XmlObject& child : element.children) size += PlainSize(child);
    return size;
}

// "@attr='value'" or "@attr=\"value\"". Anything else is not understood
// and matches no element.
struct Predicate {
    bool any = false;
    bool valid = false;
    std::string attribute;
    std::string value;

    explicit Predicate(const std::string& text) {
        if (text.empty()) {
            any = valid = true;
            return;
        }
        if (text.size() < 5 || text[0] != '@') return;
        const size_t equals = text.find('=');
        if (equals == std::string::npos || equals < 2 || text.size() - equals < 3) return;
        const char quote = text[equals + 1];
        if ((quote != '\'' && quote != '"') || text.back() != quote) return;
        const size_t valueStart = equals + 2;
        const size_t valueLength = text.size() - 1 - valueStart;
        if (text.find(quote, valueStart) != valueStart + valueLength) return;
        attribute = text.substr(1, equals - 1);
        value = text.substr(valueStart, valueLength);
        valid = true;
    }

    bool Matches(const XmlObject& element) const {
        if (any) return true;
        for (const auto& a : element.GetAttributes())
            if (a.first == attribute) return a.second == value;
        return false;
    }
};

const XmlObject* FindFirst(const XmlObject& element, const std::string& name, const Predicate& predicate) {
    if (element.name == name && predicate.Matches(element)) return &element;
    for (const XmlObject& child : element.children)
        if (const XmlObject* found = FindFirst(child, name, predicate)) return found;
    return nullptr;
}

void CollectNamed(XmlObject& element, const std::string& name, std::vector<XmlObject*>& found) {
    for (XmlObject& child : element.children) {
        if (child.name == name) found.push_back(&child);
        CollectNamed(child, name, found);
    }
}

}  // namespace

XmlDocument::XmlDocument(const std::string& xml) {
    // The copy ends in a NUL that is parsed with it, as in pugixml's own
    // copy: errors at the end of the text then give the same offsets.
    char* text = local;
    if (xml.size() >= sizeof local) {
        heap.reserve(xml.size() + 1);
        heap.assign(xml).push_back('\0');
        text = &heap[0];
    } else {
        std::memcpy(local, xml.data(), xml.size());
        local[xml.size()] = '\0';
    }
    const pugi::xml_parse_result result =
        document.load_buffer_inplace(text, xml.size() + 1, pugi::parse_default, pugi::encoding_utf8);
    if (!result)
        throw TvkError("Malformed XML",
                       std::string(result.description()) + " at offset " + std::to_string(result.offset), "");
}

XmlObject::XmlObject(const std::string& xml) : XmlObject(XmlDocument(xml)) {}

XmlObject::XmlObject(const XmlDocument& parsed) {
    // A local class of a member function may fill the private attribute
    // lists directly, without the duplicate search of SetAttribute.
    struct Converter {
        static void Convert(const pugi::xml_node& node, XmlObject& out) {
            out.name = node.name();
            size_t count = 0;
            for (pugi::xml_attribute a = node.first_attribute(); a; a = a.next_attribute()) ++count;
            out.attributes.reserve(count);
            for (pugi::xml_attribute a = node.first_attribute(); a; a = a.next_attribute())
                out.attributes.emplace_back(a.name(), a.value());
            size_t elements = 0;
            for (pugi::xml_node child = node.first_child(); child; child = child.next_sibling())
                if (child.type() == pugi::node_element) ++elements;
            out.children.reserve(elements);
            for (pugi::xml_node child = node.first_child(); child; child = child.next_sibling()) {
                switch (child.type()) {
                    case pugi::node_element:
                        out.children.emplace_back();
                        Convert(child, out.children.back());
                        break;
                    case pugi::node_pcdata:
                    case pugi::node_cdata:
                        out.value += child.value();
                        break;
                    default:
                        break;
                }
            }
        }
    };
    Converter::Convert(parsed.document.document_element(), *this);
}

std::string XmlObject::GetAttributeValue(const std::string& attribute, const std::string& defaultValue) const {
    for (const auto& a : attributes)
        if (a.first == attribute) return a.second;
    return defaultValue;
}

bool XmlObject::HasAttribute(const std::string& attribute) const {
    for (const auto& a : attributes)
        if (a.first == attribute) return true;
    return false;
}

void XmlObject::SetAttribute(const std::string& attribute, const char* text) {
    SetAttribute(attribute, std::string(text ? text : ""));
}

void XmlObject::SetAttribute(const std::string& attribute, const std::string& text) {
    for (auto& a : attributes) {
        if (a.first == attribute) {
            a.second = text;
            return;
        }
    }
    if (attributes.empty()) attributes.reserve(8);  // most elements have a handful
    attributes.emplace_back(attribute, text);
}

void XmlObject::RemoveAttribute(const std::string& attribute) {
    for (auto it = attributes.begin(); it != attributes.end(); ++it) {
        if (it->first == attribute) {
            attributes.erase(it);
            return;
        }
    }
}

void XmlObject::AddObject(const XmlObject& child) { children.push_back(child); }

void XmlObject::AddProperty(const std::string& propertyName, const std::string& caption,
                            const std::string& propertyValue, int /*flags*/) {
    children.emplace_back();
    XmlObject& property = children.back();
    property.name = xmldef::property;
    property.attributes.reserve(3);
    property.attributes.emplace_back(xmldef::name, propertyName);
    property.attributes.emplace_back(xmldef::caption, caption);
    property.attributes.emplace_back(xmldef::value, propertyValue);
}

void XmlObject::AddProperty(const std::string& propertyName, const std::string& caption, int propertyValue,
                            int flags) {
    AddProperty(propertyName, caption, std::to_string(propertyValue), flags);
}

XmlObject* XmlObject::FindFirstMatch(const std::string& element, const std::string& predicate) {
    return const_cast<XmlObject*>(static_cast<const XmlObject*>(this)->FindFirstMatch(element, predicate));
}

const XmlObject* XmlObject::FindFirstMatch(const std::string& element, const std::string& predicate) const {
    const Predicate parsed(predicate);
    if (!parsed.valid) return nullptr;
    return FindFirst(*this, element, parsed);
}

std::vector<XmlObject*> XmlObject::FindObjects(const std::string& element) {
    std::vector<XmlObject*> found;
    CollectNamed(*this, element, found);
    return found;
}

std::string XmlObject::GetXmlString() const {
    std::string out;
    // A leaf is small; only a tree is worth the extra walk.
    const size_t plain = children.empty() ? 0 : PlainSize(*this);
    out.reserve(children.empty() ? 256 : plain + plain / 32 + 64);
    Write(*this, out);
    return out;
}

void XmlTextWriter::Grow(size_t size) {
    capacity = std::max(2 * capacity, used + size);
    heap.resize(capacity);
    if (data == local) std::memcpy(&heap[0], local, used);
    data = &heap[0];
}

XmlTextWriter& XmlTextWriter::Attribute(const std::string& value) {
    used += EscapeInto(Room(kLongestEntity * value.size()), value, kEscape.attribute);
    return *this;
}

XmlTextWriter& XmlTextWriter::Text(const std::string& value) {
    used += EscapeInto(Room(kLongestEntity * value.size()), value, kEscape.text);
    return *this;
}

std::string XmlFormatNumber(long long number, int base) {
    if (base == 10 || base < 2 || base > 36) return std::to_string(number);
    return XmlFormatNumber(static_cast<unsigned long long>(number), base);
}

std::string XmlFormatNumber(unsigned long long number, int base) {
    if (base < 2 || base > 36) base = 10;
    static const char digits[] = "0123456789abcdefghijklmnopqrstuvwxyz";
    char buffer[64];
    char* p = buffer + sizeof buffer;
    do {
        *--p = digits[number % static_cast<unsigned>(base)];
        number /= static_cast<unsigned>(base);
    } while (number != 0);
    return std::string(p, static_cast<size_t>(buffer + sizeof buffer - p));
}
