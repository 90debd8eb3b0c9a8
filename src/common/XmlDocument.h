// A text parsed once, for code that routes on its root element before it
// needs the whole tree: the name and attributes are read from the parse,
// and XmlObject(document) converts the tree only when it is wanted.
// Only the core's own sources include this header; pugixml stays private.
#pragma once

#include <pugixml.hpp>
#include <string>

class XmlDocument {
public:
    // Malformed or empty text throws TvkError ("Malformed XML",
    // "<what> at offset <n>", ""), as XmlObject(text) does.
    explicit XmlDocument(const std::string& xml);

    const char* RootName() const { return document.document_element().name(); }
    // The root's attribute, or "" when it has none of that name.
    const char* RootAttribute(const char* name) const { return document.document_element().attribute(name).value(); }

private:
    friend class XmlObject;
    // pugixml parses in place, and names and values point into the text:
    // a command of usual size is copied here instead of to the heap.
    char local[512];
    std::string heap;
    pugi::xml_document document;
};
