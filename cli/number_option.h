// Numeric options read exactly: the whole text must be a number of the
// option's type and range (whole numbers in decimal or 0x hexadecimal,
// finite decimal numbers), or the command is refused with a one-line
// error naming the option. The stream conversions behind CLI11's own
// options clamp or wrap out-of-range values instead.
#pragma once

#include <CLI/CLI.hpp>

#include <charconv>
#include <cmath>
#include <limits>
#include <string>
#include <type_traits>

namespace txcli {

template <typename Number>
Number parseNumberOption(const std::string& option, const std::string& text, Number lowest, Number highest) {
    const auto range = [&] {
        if constexpr (std::is_floating_point_v<Number>) return option + ": " + text + " is not a finite number";
        return option + ": " + text + " is out of range (" + std::to_string(lowest) + " to " +
               std::to_string(highest) + ")";
    };
    Number value{};
    const char* first = text.data();
    const char* last = text.data() + text.size();
    if (text.size() > 1 && text[0] == '+' && text[1] != '-') ++first;
    std::from_chars_result read{};
    if constexpr (std::is_floating_point_v<Number>) {
        read = std::from_chars(first, last, value);
        if (read.ec == std::errc() && !std::isfinite(value)) read.ec = std::errc::result_out_of_range;
    } else {
        int base = 10;
        if (last - first > 2 && first[0] == '0' && (first[1] == 'x' || first[1] == 'X')) {
            first += 2;
            base = 16;
        }
        // A sign before a number that may not be negative is a range fault, not a typo.
        if constexpr (std::is_unsigned_v<Number>) {
            if (first != last && *first == '-') throw CLI::ValidationError(range());
        }
        read = std::from_chars(first, last, value, base);
    }
    if (read.ec == std::errc::result_out_of_range) throw CLI::ValidationError(range());
    if (read.ec != std::errc() || read.ptr != last || text.empty()) {
        throw CLI::ValidationError(option + ": '" + text + "' is not " +
                                   (std::is_floating_point_v<Number> ? "a number" : "a whole number"));
    }
    if (value < lowest || value > highest) throw CLI::ValidationError(range());
    return value;
}

// Adds `name` to `command`, storing into `target` (a Number, or an optional
// one) only values in lowest .. highest.
template <typename Number, typename Target>
CLI::Option* addNumberOption(CLI::App* command, const std::string& name, Target& target, const std::string& description,
                             Number lowest = std::numeric_limits<Number>::lowest(),
                             Number highest = std::numeric_limits<Number>::max()) {
    return command
        ->add_option_function<std::string>(
            name,
            [&target, name, lowest, highest](const std::string& text) {
                target = parseNumberOption(name, text, lowest, highest);
            },
            description)
        ->type_name(std::is_floating_point_v<Number> ? "NUMBER" : "INT");
}

}  // namespace txcli
