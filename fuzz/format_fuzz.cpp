// The formatter: a conversion between two texts, with any flags, width, precision and value,
// against the standard library's where both promise the same.
#include <algorithm>
#include <bit>
#include <vector>

#include <fuzzer/FuzzedDataProvider.h>

#include "fuzz.h"

struct Format {
    std::string text;
    size_t before;
    bool has_after, has_stars;
    int width, precision;
};

// Calls a printf-like function with the arguments that the conversion takes.
template <typename Print, typename Value>
static int call(Print print, std::vector<char> &buffer, const Format &format, Value value)
{
    const auto size = static_cast<unsigned>(buffer.size());
    const char *text = format.text.c_str();
    return format.has_stars
               ? print(buffer.data(), size, text, format.width, format.precision, value)
               : print(buffer.data(), size, text, value);
}

template <typename Value>
static void check(const Format &format, size_t size, Value value, bool same = true)
{
    std::vector<char> closed(size, 'x'), buffer(size, 'x'), whole(4096);
    const auto last = static_cast<size_t>(call(lprintf, closed, format, value));
    require(closed.at(last) == '\0', "lprintf always terminates");
    const int length = call(plp_snprintf, buffer, format, value);
    // A negative "*" width is ignored, where the standard aligns to the left.
    if (!same || (format.has_stars && format.width < 0))
        return;
    const int expected = call(std::snprintf, whole, format, value);
    const int most = static_cast<int>(size) - 1;
    const int cut = format.before >= size || format.has_after ? -1 : most;
    require(length == (expected <= most ? expected : cut), "-1 when text is cut");
    require(std::equal(buffer.data(), buffer.data() + last, whole.data()), "same text");
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, size_t length)
{
    FuzzedDataProvider bytes(data, length);
    const auto size = bytes.ConsumeIntegralInRange<size_t>(1, 1000);
    Format format;
    format.before = bytes.ConsumeIntegralInRange<size_t>(0, 40);
    format.has_after = bytes.ConsumeBool();
    format.has_stars = bytes.ConsumeBool();
    format.width = bytes.ConsumeIntegralInRange(-400, 400);
    format.precision = bytes.ConsumeIntegralInRange(-400, 400);
    format.text = std::string(format.before, '<') + "%";
    for (const char flag : {'-', '+', '0', ' ', '#'})
        format.text += bytes.ConsumeBool() ? std::string(1, flag) : "";
    if (format.has_stars)
        format.text += "*.*";
    else if (format.width > 0 && format.precision >= 0)
        format.text += std::to_string(format.width) + "." + std::to_string(format.precision);
    const char letter = bytes.PickValueInArray(
        {'c', 'd', 'i', 'o', 'u', 'x', 'X', 'e', 'E', 'f', 'g', 'G', 's', 'p'});
    format.text += letter + std::string(format.has_after, '>');
    const auto value = bytes.ConsumeIntegral<std::uint64_t>();
    const std::string text = bytes.ConsumeRemainingBytesAsString();
    if (letter == 's')
        check(format, size, value % 8 ? text.c_str() : nullptr, value % 8 != 0);
    else if (letter == 'p') // The standard promises nothing for its precision.
        check(format, size, reinterpret_cast<void *>(static_cast<std::uintptr_t>(value)), false);
    else if (std::string_view("eEfgG").find(letter) != std::string_view::npos)
        check(format, size, std::bit_cast<double>(value));
    else // A NUL character ends its field.
        check(format, size, static_cast<int>(value), letter != 'c' || value % 256 != 0);
    return 0;
}
