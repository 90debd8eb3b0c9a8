// An integer test parameter with bounds. Its value text is a small
// expression: + - * /, parentheses, MAX and MIN for the bounds, the size
// suffixes K, M and G, and 0x for hexadecimal.
#pragma once

#include <string>

#include "common/StringTokenizer.h"
#include "tc/framework/Parameter.h"

template <class T>
class NumericParameter : public Parameter {
public:
    T value = 0;
    T defaultNumber = 0;  // taken when a run gives no value
    T min = 0;
    T max = 0;  // no upper bound unless above min
    std::string defaultText = "0";

    NumericParameter() = default;

    void ReadAndWrite(ptstream& stream, direction dir, unsigned int version) override;
    void CopyFromPointer(const Persistent* other) override;
    const char* GetRealClassName() const override { return "NumericParameter < T >"; }
    Persistent* CreateCopy() const override { return new NumericParameter(*this); }

    XmlObject ToXml() override;
    // Evaluates `text` and checks it against the bounds; throws FrontendError
    // "Parameter outside acceptable range" with the permitted range. An empty
    // text selects the default.
    void SetValue(std::string text) override;
    using Parameter::Set;
    // The base's fields, then the numbers; `value` is not touched.
    void Set(std::string name, std::string caption, std::string description, T defaultNumber, T min, T max);
    std::string GetDefaultValue() override { return defaultText; }
    std::string GetType() override;

    // The whole expression, in 32-bit arithmetic with wrap-around.
    T CalculateFromString(std::string text);
    // One operand; a parenthesised group pulls its further tokens from
    // `tokenizer`.
    T ReplaceMaxMin(std::string token, StringTokenizer& tokenizer);
};

extern template class NumericParameter<int>;
