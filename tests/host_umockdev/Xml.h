// A small reader for the XML the component answers with: elements,
// attributes in their order, text and the five predefined entities. Enough
// to look at an answer element by element without linking the core.
#pragma once

#include <string>
#include <utility>
#include <vector>

struct Element {
    std::string name;
    std::vector<std::pair<std::string, std::string>> attributes;
    std::string text;
    std::vector<Element> children;

    // The value of an attribute, or `fallback` when it is not there.
    std::string Attr(const std::string& key, const std::string& fallback = "<absent>") const;
    bool Has(const std::string& key) const;
    std::vector<std::string> AttributeNames() const;
    std::vector<const Element*> Children(const std::string& childName) const;

    // Throws std::runtime_error with the offset on text it cannot read.
    static Element Parse(const std::string& xml);
};
