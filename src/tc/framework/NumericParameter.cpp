#include "tc/framework/NumericParameter.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <locale>
#include <sstream>

#include "common/TvkError.h"
#include "common/xmldef.h"

namespace {

const char* const outOfRange = "Parameter outside acceptable range";

// Overflow wraps around as on the 32-bit machines this runs on; the
// arithmetic is done unsigned so that it is defined.
template <class T>
using Unsigned = typename std::make_unsigned<T>::type;

template <class T>
T wrapAdd(T a, T b) {
    return static_cast<T>(static_cast<Unsigned<T>>(a) + static_cast<Unsigned<T>>(b));
}
template <class T>
T wrapSub(T a, T b) {
    return static_cast<T>(static_cast<Unsigned<T>>(a) - static_cast<Unsigned<T>>(b));
}
template <class T>
T wrapMul(T a, T b) {
    return static_cast<T>(static_cast<Unsigned<T>>(a) * static_cast<Unsigned<T>>(b));
}
template <class T>
T wrapShift(T a, unsigned int bits) {
    return static_cast<T>(static_cast<Unsigned<T>>(a) << bits);
}
// The one quotient that does not fit wraps like the others.
template <class T>
T wrapDiv(T a, T b) {
    if (b == -1) return wrapSub<T>(0, a);
    return a / b;
}

// Reads the number at the start of `text` as a stream does: it stops at the
// first character that cannot continue the number, gives 0 when there is
// none and the type's limit when it is too large.
template <class T>
T readNumber(const std::string& text, bool hexadecimal) {
    std::istringstream in(text);
    in.imbue(std::locale::classic());
    if (hexadecimal) in >> std::hex;
    T number = 0;
    in >> number;
    return number;
}

// Parentheses nest by recursion; a bound keeps a hostile text from
// exhausting the stack of the host's thread.
const int maxNesting = 200;
thread_local int nesting = 0;

struct NestingGuard {
    NestingGuard() { ++nesting; }
    ~NestingGuard() { --nesting; }
};

}  // namespace

template <class T>
void NumericParameter<T>::ReadAndWrite(ptstream& stream, direction dir, unsigned int) {
    Parameter::ReadAndWrite(stream, dir, 0);
    if (dir == ptRead) {
        iptstream& in = static_cast<iptstream&>(stream);
        int32_t v = 0, d = 0, lo = 0, hi = 0;
        in >> v >> d >> lo >> hi >> defaultText;
        value = v;
        defaultNumber = d;
        min = lo;
        max = hi;
    } else {
        static_cast<optstream&>(stream) << static_cast<int32_t>(value) << static_cast<int32_t>(defaultNumber)
                                        << static_cast<int32_t>(min) << static_cast<int32_t>(max) << defaultText;
    }
}

template <class T>
void NumericParameter<T>::CopyFromPointer(const Persistent* other) {
    PersistentCopyFrom(this, other);
}

template <class T>
XmlObject NumericParameter<T>::ToXml() {
    XmlObject element = Parameter::ToXml();
    element.SetAttribute(xmldef::min, min, 10);
    element.SetAttribute(xmldef::max, max, 10);
    return element;
}

template <class T>
void NumericParameter<T>::Set(std::string newName, std::string newCaption, std::string newDescription, T newDefault,
                              T newMin, T newMax) {
    Parameter::Set(newName, newCaption, newDescription);
    defaultNumber = newDefault;
    min = newMin;
    max = newMax;
    defaultText = std::to_string(newDefault);
}

template <class T>
std::string NumericParameter<T>::GetType() {
    return xmldef::int_x;
}

template <class T>
void NumericParameter<T>::SetValue(std::string text) {
    if (text.empty()) {
        value = defaultNumber;
        return;
    }
    value = CalculateFromString(text);
    // A computed 0 is taken only from the text "0": anything that is no
    // number at all also comes out as 0.
    const bool accepted = (value != 0 || text == "0") && value >= min && (max <= min || value <= max);
    if (!accepted)
        throw FrontendError(outOfRange, "You entered " + text + ", please enter a value between " +
                                            std::to_string(min) + " and " + std::to_string(max));
}

template <class T>
T NumericParameter<T>::CalculateFromString(std::string text) {
    text.erase(std::remove(text.begin(), text.end(), ' '), text.end());
    if (text.empty()) return 0;
    StringTokenizer tokenizer(text, "+-*/");
    if (!tokenizer.HasMoreTokens()) return 0;

    // "*" and "/" bind tighter and run from left to right. The right side of
    // "+" and "-" is the whole rest of the text, so a - b + c means
    // a - (b + c): each "-" flips the sign of every term behind it. Summing
    // the signed terms in a loop gives what evaluating the rest recursively
    // gives, without a stack frame per operator.
    T total = 0;
    bool negative = false;
    for (;;) {
        T term = ReplaceMaxMin(tokenizer.NextToken(), tokenizer);
        char additive = '\0';
        while (tokenizer.HasMoreTokens()) {
            const char separator = tokenizer.GetLastSeparator();
            if (separator == '*') {
                term = wrapMul<T>(term, ReplaceMaxMin(tokenizer.NextToken(), tokenizer));
            } else if (separator == '/') {
                const T divisor = ReplaceMaxMin(tokenizer.NextToken(), tokenizer);
                if (divisor == 0) throw FrontendError(outOfRange, "Please don't divide by zero.");
                term = wrapDiv<T>(term, divisor);
            } else {
                additive = separator;
                break;
            }
        }
        total = negative ? wrapSub<T>(total, term) : wrapAdd<T>(total, term);
        if (additive != '+' && additive != '-') return total;
        if (additive == '-') negative = !negative;
    }
}

template <class T>
T NumericParameter<T>::ReplaceMaxMin(std::string token, StringTokenizer& tokenizer) {
    if (!token.empty() && token[0] == '(') {
        const char* const malformed = "Malformed expression, Check your parenthesis.";
        NestingGuard guard;
        if (nesting > maxNesting) throw FrontendError(outOfRange, malformed);
        long depth = 1;
        std::string expr = token.substr(1);
        std::string cur = expr;
        while (depth > 0) {
            const std::string::size_type opening = cur.find_first_not_of('(');
            depth += static_cast<long>(opening == std::string::npos ? cur.size() : opening);
            const std::string::size_type lastOther = cur.find_last_not_of(')');
            depth -= static_cast<long>(lastOther == std::string::npos ? cur.size() : cur.size() - 1 - lastOther);
            if (depth < 1) {
                if (!expr.empty()) expr.pop_back();
            } else {
                const char separator = tokenizer.GetLastSeparator();
                if (!tokenizer.HasMoreTokens()) throw FrontendError(outOfRange, malformed);
                cur = tokenizer.NextToken();
                expr += separator;
                expr += cur;
            }
        }
        return CalculateFromString(expr);
    }

    if (token == "MAX") return max;
    if (token == "MIN") return min;
    if (!token.empty()) {
        unsigned int shift = 0;
        switch (token.back()) {
            case 'G': shift = 30; break;
            case 'M': shift = 20; break;
            case 'K': shift = 10; break;
            default: break;
        }
        if (shift) return wrapShift<T>(readNumber<T>(token.substr(0, token.size() - 1), false), shift);
    }
    return readNumber<T>(token, token.compare(0, 2, "0x") == 0);
}

template class NumericParameter<int>;
