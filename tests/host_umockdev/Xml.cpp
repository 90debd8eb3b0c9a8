#include "Xml.h"

#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace {

class Reader {
public:
    explicit Reader(const std::string& text) : s(text) {}

    Element Document() {
        SkipBlanks();
        if (Starts("<?")) Skip(s.find("?>", pos), 2);
        SkipBlanks();
        Element root = ReadElement();
        SkipBlanks();
        if (pos != s.size()) Fail("text after the root element");
        return root;
    }

private:
    const std::string& s;
    size_t pos = 0;

    [[noreturn]] void Fail(const char* what) const {
        throw std::runtime_error(std::string(what) + " at offset " + std::to_string(pos) + " in: " + s);
    }
    bool Starts(const char* prefix) const { return s.compare(pos, std::strlen(prefix), prefix) == 0; }
    void Skip(size_t at, size_t length) {
        if (at == std::string::npos) Fail("unterminated construct");
        pos = at + length;
    }
    void SkipBlanks() {
        while (pos < s.size() && std::strchr(" \t\r\n", s[pos])) ++pos;
    }
    void Expect(char c) {
        if (pos >= s.size() || s[pos] != c) Fail("unexpected character");
        ++pos;
    }
    std::string Name() {
        const size_t start = pos;
        while (pos < s.size() && !std::strchr(" \t\r\n/>=", s[pos])) ++pos;
        if (pos == start) Fail("missing name");
        return s.substr(start, pos - start);
    }
    std::string Decode(const std::string& raw) {
        static const std::pair<const char*, char> entities[] = {
            {"&amp;", '&'}, {"&lt;", '<'}, {"&gt;", '>'}, {"&quot;", '"'}, {"&apos;", '\''}};
        std::string out;
        for (size_t i = 0; i < raw.size();) {
            bool replaced = false;
            if (raw[i] == '&') {
                for (const auto& e : entities) {
                    if (raw.compare(i, std::strlen(e.first), e.first) == 0) {
                        out += e.second;
                        i += std::strlen(e.first);
                        replaced = true;
                        break;
                    }
                }
                // Decimal character references of single bytes ("&#10;").
                const size_t end = raw.find(';', i);
                if (!replaced && raw.compare(i, 2, "&#") == 0 && end != std::string::npos && end > i + 2 &&
                    end - i <= 5 && raw.find_first_not_of("0123456789", i + 2) == end) {
                    out += static_cast<char>(std::atoi(raw.c_str() + i + 2));
                    i = end + 1;
                    replaced = true;
                }
                if (!replaced) Fail("unknown entity");
            } else {
                out += raw[i++];
            }
        }
        return out;
    }

    Element ReadElement() {
        Expect('<');
        Element e;
        e.name = Name();
        for (;;) {
            SkipBlanks();
            if (Starts("/>")) {
                pos += 2;
                return e;
            }
            if (Starts(">")) {
                ++pos;
                break;
            }
            std::string key = Name();
            SkipBlanks();
            Expect('=');
            SkipBlanks();
            if (pos >= s.size() || (s[pos] != '"' && s[pos] != '\'')) Fail("unquoted attribute");
            const char quote = s[pos++];
            const size_t end = s.find(quote, pos);
            if (end == std::string::npos) Fail("unterminated attribute");
            e.attributes.emplace_back(key, Decode(s.substr(pos, end - pos)));
            pos = end + 1;
        }
        for (;;) {
            if (pos >= s.size()) Fail("unterminated element");
            if (Starts("</")) {
                pos += 2;
                if (Name() != e.name) Fail("mismatched end tag");
                SkipBlanks();
                Expect('>');
                return e;
            }
            if (Starts("<!--")) {
                Skip(s.find("-->", pos), 3);
            } else if (s[pos] == '<') {
                e.children.push_back(ReadElement());
            } else {
                const size_t end = s.find('<', pos);
                if (end == std::string::npos) Fail("unterminated element");
                e.text += Decode(s.substr(pos, end - pos));
                pos = end;
            }
        }
    }
};

}  // namespace

std::string Element::Attr(const std::string& key, const std::string& fallback) const {
    for (const auto& a : attributes)
        if (a.first == key) return a.second;
    return fallback;
}

bool Element::Has(const std::string& key) const {
    for (const auto& a : attributes)
        if (a.first == key) return true;
    return false;
}

std::vector<std::string> Element::AttributeNames() const {
    std::vector<std::string> names;
    for (const auto& a : attributes) names.push_back(a.first);
    return names;
}

std::vector<const Element*> Element::Children(const std::string& childName) const {
    std::vector<const Element*> found;
    for (const Element& c : children)
        if (c.name == childName) found.push_back(&c);
    return found;
}

Element Element::Parse(const std::string& xml) { return Reader(xml).Document(); }
