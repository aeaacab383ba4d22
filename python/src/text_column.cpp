// The one type pass over a column of objects, and the transcoding of the
// rows that cannot be read in place.
#include "python/src/text_column.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <new>

#include "engine/prefetch.h"
#include "module/abi/argument_frame.h"
#include "python/src/utf8_writer.h"

namespace txpython {

namespace {

// Storage of one thread kept from call to call: grown when a column needs
// more (without copying or clearing: every element is written before it is
// read), never shrunk, so a thread that calls again allocates nothing.
template <typename T>
class Reused {
public:
    T* get(std::size_t count) {
        if (count > capacity_) {
            data_.reset();
            capacity_ = 0;
            void* fresh = std::malloc(std::max<std::size_t>(count, 1) * sizeof(T));
            if (fresh == nullptr) throw std::bad_alloc();
            data_.reset(static_cast<T*>(fresh));
            capacity_ = count;
        }
        return data_.get();
    }

private:
    struct Free {
        void operator()(T* p) const { std::free(p); }
    };
    std::unique_ptr<T, Free> data_;
    std::size_t capacity_ = 0;
};

// Transcoded text of one thread. It grows (keeping what it holds, and
// moving, so views into it follow) while a
// pass fills it, so rows are written while their objects are at hand
// rather than found again later; it is kept at its largest, so a thread
// that calls again on a column no larger neither grows nor faults it in.
class Arena {
public:
    // Room for `bytes` more past what is used, which may move the storage.
    unsigned char* room(std::size_t bytes) {
        if (used_ + bytes > capacity_) {
            const std::size_t capacity = std::max(capacity_ * 2, used_ + bytes);
            void* moved = std::realloc(data_.get(), capacity);
            if (moved == nullptr) throw std::bad_alloc();
            data_.release();
            data_.reset(static_cast<char*>(moved));
            capacity_ = capacity;
        }
        return reinterpret_cast<unsigned char*>(data_.get() + used_);
    }
    std::size_t used() const { return used_; }
    void commit(std::size_t bytes) { used_ += bytes; }
    void clear() { used_ = 0; }
    const char* base() const { return data_.get(); }

private:
    struct Free {
        void operator()(char* p) const { std::free(p); }
    };
    std::unique_ptr<char, Free> data_;
    std::size_t capacity_ = 0, used_ = 0;
};

struct ThreadBuffers {
    Reused<txengine::TextView> views;
    Reused<std::uint8_t> validity;
    Reused<std::uint8_t> asciiRows;
    Arena arena;
};

// The views of the first `rows` rows that point into [from, from + bytes)
// moved with it to `to`: the arena grew and moved during the pass, which
// happens only on a thread's larger column than ever before.
void followArena(txengine::TextView* views, std::int64_t rows, const char* from, std::size_t bytes, const char* to) {
    const auto start = reinterpret_cast<std::uintptr_t>(from);
    for (std::int64_t row = 0; row < rows; ++row) {
        const std::uintptr_t at = reinterpret_cast<std::uintptr_t>(views[row].data) - start;
        if (at < bytes) views[row].data = to + at;
    }
}

// Out of line: the module is loaded with dlopen, where each look-up of a
// thread_local is a call, and inlined the compiler would repeat it per row
// rather than keep the address.
[[gnu::noinline]] ThreadBuffers& buffersFor(int slot) {
    thread_local std::array<ThreadBuffers, txscan::contract::kMaxArguments + 1> buffers;
    return buffers.at(static_cast<std::size_t>(slot));
}

std::string typeName(PyObject* item) { return Py_TYPE(item)->tp_name; }

bool isNull(PyObject* item, PyObject* na) {
    if (item == Py_None || item == na) return true;
    return PyFloat_Check(item) && std::isnan(PyFloat_AS_DOUBLE(item));
}

bool isNumber(PyObject* item) {
    if (PyFloat_Check(item)) return true;
    if (PyBool_Check(item) || PyComplex_Check(item)) return false;
    if (PyLong_Check(item)) return true;
    // numpy's scalars; its bool is no number here, as Python's is not.
    return PyNumber_Check(item) && std::strcmp(Py_TYPE(item)->tp_name, "numpy.bool_") != 0;
}

// A str's bytes in the session encoding when they can be read where they
// are; otherwise false, and the row is transcoded.
bool viewInPlace(PyObject* item, const Codec& codec, txengine::TextView& view) {
    const Py_ssize_t length = PyUnicode_GET_LENGTH(item);
    if (PyUnicode_IS_ASCII(item) && codec.asciiSame) {
        view = {static_cast<const char*>(PyUnicode_DATA(item)), length};
        return true;
    }
    if (codec.latin1 && PyUnicode_KIND(item) == PyUnicode_1BYTE_KIND) {
        view = {static_cast<const char*>(PyUnicode_DATA(item)), length};
        return true;
    }
    if (codec.utf8 && PyUnicode_IS_COMPACT(item) && !PyUnicode_IS_ASCII(item)) {
        // A UTF-8 copy someone else already made (the package never makes one).
        const auto* compact = reinterpret_cast<const PyCompactUnicodeObject*>(item);
        if (compact->utf8 != nullptr) {
            view = {compact->utf8, compact->utf8_length};
            return true;
        }
    }
    return false;
}

// Rows ahead whose header is asked for: a row read in place takes a few
// nanoseconds and a header from memory some hundred, so at 16 rows ahead
// the pass waited on memory over a column of a million rows (a fifth of
// its time).
constexpr std::int64_t kHeadersAhead = 64;

// A str's header (its type, length and kind) is longer than the 16 bytes
// the allocator aligns objects to, so it often lies across two cache lines.
inline void prefetchHeader(PyObject* item) {
    __builtin_prefetch(item);
    __builtin_prefetch(reinterpret_cast<const char*>(item) + sizeof(PyCompactUnicodeObject) - 1);
}

// A long text to transcode is asked for whole one row ahead: each row is an
// object of its own, where the hardware's prefetch starts anew and late.
// Short ones come with their header, and asking for them cost more than it gave.
constexpr Py_ssize_t kLongText = 256;
constexpr std::int64_t kLongTextMost = 4096;

inline void prefetchLongText(PyObject* item, const Codec& codec) {
    if (!PyUnicode_Check(item) || (PyUnicode_IS_ASCII(item) && codec.asciiSame)) return;
    const Py_ssize_t bytes = PyUnicode_GET_LENGTH(item) * static_cast<Py_ssize_t>(PyUnicode_KIND(item));
    if (bytes > kLongText) txengine::prefetchLines(static_cast<const char*>(PyUnicode_DATA(item)), bytes, kLongTextMost);
}

[[noreturn]] void refuse(const std::string& what, std::int64_t row, const std::string& why) {
    throw py::value_error(what + ", row " + std::to_string(row) + ": " + why);
}

std::string unencodable(const Codec& codec) { return "the text has a character " + codec.name + " cannot encode"; }

// Appends a str that cannot be read in place to the arena, in the session
// encoding, and returns its length there.
std::int64_t appendEncoded(PyObject* item, ThreadBuffers& b, const Codec& codec, std::int64_t row,
                           const std::string& what) {
    if (codec.utf8) {
        const void* data = PyUnicode_DATA(item);
        const Py_ssize_t length = PyUnicode_GET_LENGTH(item);
        const int kind = static_cast<int>(PyUnicode_KIND(item));
        unsigned char* out = b.arena.room(utf8Bound(kind, length) + kUtf8Slack);
        std::int64_t written = 0;
        switch (kind) {
        case PyUnicode_1BYTE_KIND: written = writeUtf8(static_cast<const std::uint8_t*>(data), length, out); break;
        case PyUnicode_2BYTE_KIND: written = writeUtf8(static_cast<const std::uint16_t*>(data), length, out); break;
        default: written = writeUtf8(static_cast<const std::uint32_t*>(data), length, out); break;
        }
        if (written < 0) refuse(what, row, "the text has no UTF-8 form");
        b.arena.commit(static_cast<std::size_t>(written));
        return written;
    }
    PyObject* encoded = PyUnicode_AsEncodedString(item, codec.name.c_str(), "strict");
    if (encoded == nullptr) {
        PyErr_Clear();
        refuse(what, row, unencodable(codec));
    }
    const auto size = static_cast<std::size_t>(PyBytes_GET_SIZE(encoded));
    std::memcpy(b.arena.room(size), PyBytes_AS_STRING(encoded), size);
    b.arena.commit(size);
    Py_DECREF(encoded);
    return static_cast<std::int64_t>(size);
}

}  // namespace

Codec codecFor(const std::string& encoding) {
    Codec codec{encoding, encoding == "UTF-8", encoding == "ISO-8859-1", true};
    if (!codec.utf8 && !codec.latin1) {
        std::string ascii(128, '\0');
        for (int c = 0; c < 128; ++c) ascii[static_cast<std::size_t>(c)] = static_cast<char>(c);
        py::object encoded = py::str(ascii).attr("encode")(encoding, "strict");
        codec.asciiSame = encoded.cast<std::string>() == ascii;
    }
    return codec;
}

ObjectColumn readObjectColumn(const py::array& items, const Codec& codec, py::handle na, int slot,
                              const std::string& what, std::int64_t begin, const RowLimits& limits) {
    if (items.ndim() != 1 || items.dtype().kind() != 'O' || (items.size() > 1 && items.strides(0) != sizeof(PyObject*))) {
        throw py::value_error(what + ": expected a contiguous one-dimensional object array");
    }
    const auto total = static_cast<std::int64_t>(items.size());
    const std::int64_t rows = std::clamp<std::int64_t>(limits.rows, 0, total - begin);
    auto* const* values = static_cast<PyObject* const*>(items.data()) + begin;
    ThreadBuffers& b = buffersFor(slot);
    txengine::TextView* views = b.views.get(static_cast<std::size_t>(rows));
    std::uint8_t* validity = nullptr;
    std::uint8_t* asciiRows = b.asciiRows.get(static_cast<std::size_t>((rows + 7) / 8));
    b.arena.clear();
    std::int64_t textRows = 0, bytesRows = 0, numberRows = 0, firstNumber = -1, end = rows;
    std::size_t textBytes = 0;   // of the rows read, in place or transcoded
    const bool asciiInPlace = codec.asciiSame;
    // Eight rows at a time, a byte of each bitmap.
    for (std::int64_t group = 0; group < end; group += 8) {
        const std::int64_t groupEnd = std::min(group + 8, rows);
        std::uint8_t bits = 0, asciiBits = 0;   // validity and ASCII str of these rows
        for (std::int64_t row = group; row < groupEnd; ++row) {
            PyObject* item = values[row];
            const auto bit = static_cast<std::uint8_t>(1u << (row & 7));
            // Objects lie wherever the allocator put them: ask for a later
            // row's header while this one is read. Not for text read in
            // place, which waits for the engine, which asks for it itself.
            if (row + kHeadersAhead < rows) prefetchHeader(values[row + kHeadersAhead]);
            // Most rows: an ASCII str, read where it lies.
            if (Py_IS_TYPE(item, &PyUnicode_Type) && asciiInPlace && PyUnicode_IS_COMPACT_ASCII(item)) {
                const Py_ssize_t length = PyUnicode_GET_LENGTH(item);
                views[row] = {static_cast<const char*>(PyUnicode_DATA(item)), length};
                ++textRows;
                textBytes += static_cast<std::size_t>(length);
                bits = static_cast<std::uint8_t>(bits | bit);
                asciiBits = static_cast<std::uint8_t>(asciiBits | bit);
                continue;
            }
            // Of the text to transcode, only a long one is asked for ahead.
            if (row + 1 < rows) prefetchLongText(values[row + 1], codec);
            bool valid = true;
            if (PyUnicode_Check(item)) {
                ++textRows;
                if (PyUnicode_READY(item) < 0) {
                    PyErr_Clear();
                    refuse(what, begin + row, "the text cannot be read");
                }
                if (PyUnicode_IS_ASCII(item) && codec.asciiSame) asciiBits = static_cast<std::uint8_t>(asciiBits | bit);
                if (!viewInPlace(item, codec, views[row])) {
                    if (codec.latin1) refuse(what, begin + row, unencodable(codec));
                    const char* base = b.arena.base();
                    const std::size_t offset = b.arena.used();
                    const std::int64_t length = appendEncoded(item, b, codec, begin + row, what);
                    if (b.arena.base() != base && offset > 0) followArena(views, row, base, offset, b.arena.base());
                    views[row] = {b.arena.base() + offset, length};
                }
            } else if (PyBytes_Check(item)) {
                ++bytesRows;
                views[row] = {PyBytes_AS_STRING(item), PyBytes_GET_SIZE(item)};
            } else if (isNull(item, na.ptr())) {
                valid = false;
                views[row] = {};
            } else if (isNumber(item)) {
                if (numberRows++ == 0) firstNumber = row;
                views[row] = {};
            } else {
                refuse(what, begin + row, typeName(item) + " is not text");
            }
            textBytes += static_cast<std::size_t>(views[row].length);
            if (valid) bits = static_cast<std::uint8_t>(bits | bit);
        }
        const auto full = static_cast<std::uint8_t>(groupEnd - group == 8 ? 0xFFu : (1u << (groupEnd - group)) - 1);
        if (bits != full && validity == nullptr) {
            // The first null: every earlier byte was full.
            validity = b.validity.get(static_cast<std::size_t>((rows + 7) / 8));
            std::memset(validity, 0xFF, static_cast<std::size_t>(group >> 3));
        }
        if (validity != nullptr) validity[group >> 3] = bits;
        asciiRows[group >> 3] = asciiBits;
        // Enough text for one batch: the rows end here, on a whole byte of
        // the bitmaps.
        if (textBytes >= limits.text || b.arena.used() >= limits.transcoded) end = groupEnd;
    }
    ObjectColumn column;
    column.rows = end;
    column.textRows = textRows;
    column.bytesRows = bytesRows;
    if (numberRows > 0) {
        if (textRows + bytesRows > 0) refuse(what, begin + firstNumber, typeName(values[firstNumber]) + " is not text");
        column.numeric = true;
        column.values.resize(static_cast<std::size_t>(end));
        for (std::int64_t row = 0; row < end; ++row) {
            PyObject* item = values[row];
            double value = std::numeric_limits<double>::quiet_NaN();
            if (!isNull(item, na.ptr())) {
                value = PyFloat_Check(item) ? PyFloat_AS_DOUBLE(item) : PyFloat_AsDouble(item);
                if (value == -1.0 && PyErr_Occurred()) {
                    PyErr_Clear();
                    refuse(what, begin + row, typeName(item) + " has no value as a number");
                }
            }
            column.values[static_cast<std::size_t>(row)] = value;
        }
        return column;
    }
    column.text = txengine::TextViewColumn{views, validity};
    column.asciiRows = asciiRows;
    return column;
}

std::string textScalar(py::handle value, const Codec& codec, const std::string& what) {
    PyObject* item = value.ptr();
    if (PyBytes_Check(item)) return std::string(PyBytes_AS_STRING(item), static_cast<std::size_t>(PyBytes_GET_SIZE(item)));
    if (!PyUnicode_Check(item)) throw py::value_error(what + ": " + typeName(item) + " is not text");
    PyObject* encoded = PyUnicode_AsEncodedString(item, codec.utf8 ? "utf-8" : codec.name.c_str(), "strict");
    if (encoded == nullptr) {
        PyErr_Clear();
        throw py::value_error(what + ": " + (codec.utf8 ? std::string("the text has no UTF-8 form") : unencodable(codec)));
    }
    std::string bytes(PyBytes_AS_STRING(encoded), static_cast<std::size_t>(PyBytes_GET_SIZE(encoded)));
    Py_DECREF(encoded);
    return bytes;
}

}  // namespace txpython
