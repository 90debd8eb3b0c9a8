// The catalogue element of a USB test whose retries are offered with a
// default of 0.
#pragma once

#include <string>

// `element` (the text of Test::GetXmlString) with the `xmldef::defaultValue`
// of the first parameter named `xmldef::retries` set to "0": the text that
// parsing it, setting that attribute and writing it again gives. Where the
// parameter stands as Test::GetXmlString writes it, its value is replaced in
// place, without the round trip through an element tree.
std::string WithRetriesDefaultZero(const std::string& element);
