// Value texts of numeric parameters: any text must end in a value or in a
// FrontendError, never in another exception, a crash or undefined
// behaviour (wrap-around, division, shifts, deep parentheses).
#include <cstddef>
#include <cstdint>
#include <string>

#include "common/TvkError.h"
#include "tc/framework/NumericParameter.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    // The first byte picks the bounds, so MAX and MIN take extreme values too.
    static const int bounds[][2] = {{1, 8}, {0, 0}, {INT32_MIN, INT32_MAX}, {-5, -10}, {INT32_MAX, INT32_MIN}};
    const auto& b = bounds[data[0] % (sizeof bounds / sizeof bounds[0])];
    const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);

    NumericParameter<int> parameter;
    parameter.Set("n", "N", "", 3, b[0], b[1]);
    try {
        parameter.SetValue(text);
    } catch (const TvkError&) {
    }
    try {
        parameter.CalculateFromString(text);
    } catch (const TvkError&) {
    }
    return 0;
}
