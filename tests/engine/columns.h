// Test columns in the engine's layout, built from optional strings and
// numbers, and generated rows of words in a session encoding.
#pragma once

#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "engine/engine.h"

namespace enginetest {

struct OwnedText {
    std::vector<std::int64_t> offsets{0};
    std::string bytes;
    std::vector<std::uint8_t> validity;
    std::vector<std::optional<std::string>> rows;

    explicit OwnedText(std::vector<std::optional<std::string>> values) : rows(std::move(values)) {
        validity.assign((rows.size() + 7) / 8, 0);
        for (std::size_t i = 0; i < rows.size(); ++i) {
            if (rows[i]) {
                bytes += *rows[i];
                validity[i / 8] |= static_cast<std::uint8_t>(1u << (i % 8));
            }
            offsets.push_back(static_cast<std::int64_t>(bytes.size()));
        }
    }
    txengine::TextColumn column() const { return {offsets.data(), bytes.data(), validity.data()}; }
};

struct OwnedNumbers {
    std::vector<double> values;
    std::vector<std::uint8_t> validity;
    std::vector<std::optional<double>> rows;

    explicit OwnedNumbers(std::vector<std::optional<double>> numbers) : rows(std::move(numbers)) {
        validity.assign((rows.size() + 7) / 8, 0);
        for (std::size_t i = 0; i < rows.size(); ++i) {
            values.push_back(rows[i].value_or(0));
            if (rows[i]) validity[i / 8] |= static_cast<std::uint8_t>(1u << (i % 8));
        }
    }
    txengine::NumberColumn column() const { return {values.data(), validity.data()}; }
};

// Rows of 0 to 7 words from `words` joined by blanks or commas; about one
// row in 13 null and one in 11 empty.
inline std::vector<std::optional<std::string>> wordRows(const std::vector<std::string>& words, std::size_t count,
                                                         unsigned seed) {
    std::mt19937 random(seed);
    std::vector<std::optional<std::string>> rows;
    for (std::size_t i = 0; i < count; ++i) {
        if (random() % 13 == 0) {
            rows.emplace_back();
            continue;
        }
        std::string row;
        const unsigned n = random() % 11 == 0 ? 0 : random() % 8;
        for (unsigned w = 0; w < n; ++w) {
            if (w > 0) row += random() % 4 == 0 ? ", " : " ";
            row += words[random() % words.size()];
        }
        rows.emplace_back(row);
    }
    return rows;
}

}  // namespace enginetest
