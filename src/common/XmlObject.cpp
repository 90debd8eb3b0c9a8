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
            text[c] = ((c < 32 && c != '\t' && c != '\n' && c != '\r') || c == '&' || c == '<' || c == '>') ? kSpecial
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

// Visits `root` and every element below it in document order: `enter` on
// the way down (returning false stops the walk), `leave` on the way up. The
// stack holds one frame a level, never the elements of a level.
template <class Element, class Enter, class Leave>
void Walk(Element& root, Enter enter, Leave leave) {
    struct Frame {
        Element* element;
        size_t next;
    };
    std::vector<Frame> stack;
    if (!enter(root)) return;
    stack.push_back({&root, 0});
    while (!stack.empty()) {
        Frame& top = stack.back();
        if (top.next < top.element->children.size()) {
            Element& child = top.element->children[top.next++];
            if (!enter(child)) return;
            stack.push_back({&child, 0});
        } else {
            leave(*top.element);
            stack.pop_back();
        }
    }
}

void Write(const XmlObject& root, XmlTextWriter& out) {
    // Where each open element's content began: an element that wrote none
    // closes itself.
    std::vector<size_t> contentStarts;
    Walk(
        root,
        [&](const XmlObject& element) {
            if (!element.name.empty()) {
                out.Raw("<").Raw(element.name);
                for (const auto& attribute : element.GetAttributes())
                    out.Raw(" ").Raw(attribute.first).Raw("=\"").Attribute(attribute.second).Raw("\"");
                out.Raw(">");
                contentStarts.push_back(out.Size());
            }
            // A nameless element is only a holder: its contents take its place.
            out.Text(element.value);
            return true;
        },
        [&](const XmlObject& element) {
            if (element.name.empty()) return;
            if (out.Size() == contentStarts.back()) {
                out.Drop(1);
                out.Raw("/>");
            } else {
                out.Raw("</").Raw(element.name).Raw(">");
            }
            contentStarts.pop_back();
        });
}

// The length of the element's text before escaping, and its longest value:
// enough to size the output of a large tree once instead of growing it step
// by step, which copies it again and again and, past the allocator's
// mapping threshold, touches fresh pages each time.
size_t PlainSize(const XmlObject& root, size_t& longestValue) {
    size_t size = 0;
    longestValue = 0;
    Walk(
        root,
        [&](const XmlObject& element) {
            size += element.value.size() + 2 * element.name.size() + 5;
            longestValue = std::max(longestValue, element.value.size());
            for (const auto& attribute : element.GetAttributes()) {
                size += attribute.first.size() + attribute.second.size() + 4;
                longestValue = std::max(longestValue, attribute.second.size());
            }
            return true;
        },
        [](const XmlObject&) {});
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

const XmlObject* FindFirst(const XmlObject& root, const std::string& name, const Predicate& predicate) {
    const XmlObject* found = nullptr;
    Walk(
        root,
        [&](const XmlObject& element) {
            if (element.name == name && predicate.Matches(element)) found = &element;
            return found == nullptr;
        },
        [](const XmlObject&) {});
    return found;
}

void CollectNamed(XmlObject& root, const std::string& name, std::vector<XmlObject*>& found) {
    Walk(
        root,
        [&](XmlObject& element) {
            if (&element != &root && element.name == name) found.push_back(&element);
            return true;
        },
        [](XmlObject&) {});
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
        // Name, attributes and text of `node`, and room for exactly its
        // element children, so that filling them never moves the ones made.
        static void Fill(const pugi::xml_node& node, XmlObject& out) {
            out.name = node.name();
            size_t count = 0;
            for (pugi::xml_attribute a = node.first_attribute(); a; a = a.next_attribute()) ++count;
            out.attributes.reserve(count);
            for (pugi::xml_attribute a = node.first_attribute(); a; a = a.next_attribute())
                out.attributes.emplace_back(a.name(), a.value());
            size_t elements = 0;
            for (pugi::xml_node child = node.first_child(); child; child = child.next_sibling()) {
                if (child.type() == pugi::node_element)
                    ++elements;
                else if (child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata)
                    out.value += child.value();
            }
            out.children.reserve(elements);
        }
        static pugi::xml_node NextElement(pugi::xml_node node) {
            while (node && node.type() != pugi::node_element) node = node.next_sibling();
            return node;
        }
    };
    // Document order along pugixml's own links; `open` holds the element of
    // each level above the one being filled.
    const pugi::xml_node root = parsed.document.document_element();
    std::vector<XmlObject*> open;
    pugi::xml_node node = root;
    XmlObject* out = this;
    Converter::Fill(node, *out);
    for (;;) {
        if (pugi::xml_node child = Converter::NextElement(node.first_child())) {
            open.push_back(out);
            out->children.emplace_back();
            out = &out->children.back();
            node = child;
            Converter::Fill(node, *out);
            continue;
        }
        for (;;) {
            if (node == root) return;
            if (pugi::xml_node sibling = Converter::NextElement(node.next_sibling())) {
                open.back()->children.emplace_back();
                out = &open.back()->children.back();
                node = sibling;
                Converter::Fill(node, *out);
                break;
            }
            node = node.parent();
            out = open.back();
            open.pop_back();
        }
    }
}

XmlObject::XmlObject(const XmlObject& other, Shallow)
    : name(other.name), value(other.value), attributes(other.attributes) {}

XmlObject::XmlObject(const XmlObject& other) : XmlObject(other, Shallow()) {
    // Pairs of an original and its copy whose children are still to be made;
    // room for all of a level is made first, so copies never move.
    std::vector<std::pair<const XmlObject*, XmlObject*>> pending{{&other, this}};
    while (!pending.empty()) {
        const XmlObject* from = pending.back().first;
        XmlObject* to = pending.back().second;
        pending.pop_back();
        to->children.reserve(from->children.size());
        for (const XmlObject& child : from->children) to->children.emplace_back(child, Shallow());
        for (size_t i = 0; i < from->children.size(); ++i)
            if (!from->children[i].children.empty()) pending.emplace_back(&from->children[i], &to->children[i]);
    }
}

XmlObject& XmlObject::operator=(const XmlObject& other) {
    if (this != &other) *this = XmlObject(other);
    return *this;
}

XmlObject& XmlObject::operator=(XmlObject&& other) noexcept {
    if (this != &other) {
        // The old tree goes with `discarded`, whose destructor takes it apart
        // without recursion.
        XmlObject discarded(std::move(*this));
        name = std::move(other.name);
        value = std::move(other.value);
        children = std::move(other.children);
        attributes = std::move(other.attributes);
    }
    return *this;
}

XmlObject::~XmlObject() {
    if (children.empty()) return;
    // Each level's children are moved onto a stack before their parent goes,
    // so every element is destroyed without children and nothing recurses.
    std::vector<std::vector<XmlObject>> levels;
    levels.push_back(std::move(children));
    while (!levels.empty()) {
        std::vector<XmlObject>& level = levels.back();
        if (level.empty()) {
            levels.pop_back();
        } else if (!level.back().children.empty()) {
            std::vector<XmlObject> below = std::move(level.back().children);
            levels.push_back(std::move(below));
        } else {
            level.pop_back();
        }
    }
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

void XmlObject::AddProperty(const std::string& propertyName, const std::string& caption, int propertyValue, int flags) {
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
    XmlTextWriter out;
    // A leaf is small; only a tree is worth the extra walk. The writer makes
    // room for a whole value's worst case before it escapes it.
    if (!children.empty()) {
        size_t longestValue = 0;
        const size_t plain = PlainSize(*this, longestValue);
        out.Reserve(plain + plain / 32 + kLongestEntity * longestValue + 64);
    }
    Write(*this, out);
    return out.Take();
}

std::string XmlTextWriter::Take() {
    std::string text;
    if (data == local) {
        text.assign(local, used);
    } else {
        heap.resize(used);
        text.swap(heap);
    }
    data = local;
    capacity = sizeof local;
    used = 0;
    return text;
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

void AppendWrittenElement(std::string& out, const std::string& element) {
    if (element.find('\r') == std::string::npos)
        out += element;
    else
        out += XmlObject(element).GetXmlString();
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
