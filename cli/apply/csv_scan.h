// The bytes that give CSV its structure (quote, separator, CR, LF and an
// optional escape byte), found 64 bytes at a time with SSE2 compares: the
// reader jumps from one to the next instead of looking at every byte, and the
// writer asks whether a field holds any at all.
#pragma once

#include <cstddef>
#include <cstdint>

namespace txcli {

struct CsvBytes {
    char separator = ',';
    char quote = '"';
    int escape = -1;   // a byte, or -1 for none
};

class CsvScan {
public:
    explicit CsvScan(CsvBytes bytes) : bytes_(bytes) {}

    // Starts a scan of [begin, end).
    void reset(const char* begin, const char* end) {
        begin_ = begin;
        end_ = end;
        block_ = begin;
        mask_ = maskOf(block_);
    }
    // The first structural byte at or after `from` (which never moves back
    // between calls of one scan), or the end.
    const char* next(const char* from) {
        if (from >= end_) return end_;
        if (from >= block_ + 64) {
            block_ = begin_ + ((from - begin_) & ~std::ptrdiff_t{63});
            mask_ = maskOf(block_);
        }
        std::uint64_t mask = mask_ & (~std::uint64_t{0} << (from - block_));
        while (mask == 0) {
            block_ += 64;
            if (block_ >= end_) return end_;
            mask_ = mask = maskOf(block_);
        }
        const char* found = block_ + __builtin_ctzll(mask);
        return found < end_ ? found : end_;
    }
    // Whether [begin, end) holds a structural byte: a field that must be quoted.
    bool anyIn(const char* begin, const char* end) const;

private:
    // Bit i: block[i] is structural; bytes at or past end_ read as none.
    std::uint64_t maskOf(const char* block) const;

    CsvBytes bytes_;
    const char* begin_ = nullptr;
    const char* end_ = nullptr;
    const char* block_ = nullptr;
    std::uint64_t mask_ = 0;
};

}  // namespace txcli
