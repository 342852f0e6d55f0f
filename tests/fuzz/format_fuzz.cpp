// The formatter: a conversion between two texts, with any flags, width, precision and value,
// against the standard library's where both promise the same.
#include <algorithm>
#include <vector>

#include <fuzzer/FuzzedDataProvider.h>

#include "fuzz.h"
#include "lib.h"

namespace {

struct Format {
    std::string text;
    size_t before; // characters that come in front of the conversion
    bool ends;     // with the conversion
    int stars;     // for the width and, from 2 on, for the precision
    int width, precision;
};

// Calls a printf-like function with the arguments that the conversion takes.
template <typename Print, typename Value>
int call(Print print, std::vector<char> &buffer, const Format &format, Value value)
{
    const auto size = static_cast<unsigned>(buffer.size());
    const char *text = format.text.c_str();
    if (format.stars == 0)
        return print(buffer.data(), size, text, value);
    if (format.stars == 1)
        return print(buffer.data(), size, text, format.width, value);
    return print(buffer.data(), size, text, format.width, format.precision, value);
}

Format take_format(FuzzedDataProvider &bytes, char letter)
{
    const auto literal = [&bytes] {
        std::string text = bytes.ConsumeRandomLengthString(40);
        std::erase_if(text, [](char c) { return c == '%' || c == '\0'; });
        return text;
    };
    Format format = {
        .text = literal(), .before = 0, .ends = false, .stars = 0, .width = 0, .precision = 0};
    format.before = format.text.size() + 1;
    format.text += "%%%";
    for (const char flag : {'-', '+', '0', ' ', '#'})
        if (bytes.ConsumeBool())
            format.text += flag;
    format.stars = bytes.ConsumeIntegralInRange(0, 2);
    format.width = bytes.ConsumeIntegralInRange(-400, 400);
    format.precision = bytes.ConsumeIntegralInRange(-400, 400);
    if (format.stars > 0)
        format.text += '*';
    else if (format.width > 0)
        format.text += std::to_string(format.width);
    if (format.stars > 1)
        format.text += ".*";
    else if (format.precision >= 0)
        format.text += "." + std::to_string(format.precision);
    const std::string after = literal();
    format.ends = after.empty();
    format.text += letter + after;
    return format;
}

template <typename Value> void check(const Format &format, size_t size, Value value, bool same)
{
    std::vector<char> closed(size, 'x');
    const int closed_length = call(lprintf, closed, format, value);
    require(closed.at(static_cast<size_t>(closed_length)) == '\0', "lprintf always terminates");
    std::vector<char> buffer(size, 'x');
    const int length = call(plp_snprintf, buffer, format, value);
    require(length < 0 || buffer.at(static_cast<size_t>(length)) == '\0',
            "what fits is terminated");
    std::vector<char> whole(4096);
    // A negative "*" width is ignored, where the standard aligns to the left.
    if (!same || (format.stars > 0 && format.width < 0))
        return;
    const auto expected = static_cast<size_t>(call(std::snprintf, whole, format, value));
    require(expected < whole.size(), "there is room to compare");
    const bool in_text = format.before >= size || !format.ends;
    require(length == static_cast<int>(expected < size ? expected
                                       : in_text       ? 0 - 1U
                                                       : size - 1),
            "-1 when text is cut");
    require(std::equal(whole.begin(),
                       whole.begin() + static_cast<int>(std::min(expected, size - 1)),
                       buffer.begin()),
            "as the standard library formats");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, size_t length)
{
    constexpr std::string_view letters = "cdiouxXeEfgGsp";
    FuzzedDataProvider bytes(data, length);
    const auto size = bytes.ConsumeIntegralInRange<size_t>(1, 1000);
    const char letter = letters[bytes.ConsumeIntegralInRange<size_t>(0, letters.size() - 1)];
    const Format format = take_format(bytes, letter);
    if (letter == 's') {
        const bool is_null = bytes.ConsumeBool();
        const std::string text = bytes.ConsumeRemainingBytesAsString();
        check(format, size, is_null ? nullptr : text.c_str(), !is_null);
    } else if (letter == 'p') {
        // The standard promises nothing for the precision of a pointer.
        check(format, size, reinterpret_cast<void *>(bytes.ConsumeIntegral<std::uintptr_t>()),
              false);
    } else if (std::string_view("eEfgG").find(letter) != std::string_view::npos) {
        check(format, size, bytes.ConsumeFloatingPoint<double>(), true);
    } else {
        // A NUL character ends its field.
        const int value = bytes.ConsumeIntegral<int>();
        check(format, size, value, letter != 'c' || static_cast<unsigned char>(value) != 0);
    }
    return 0;
}
