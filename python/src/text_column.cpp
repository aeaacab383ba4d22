// The one type pass over a column of objects, and the transcoding of the
// rows that cannot be read in place.
#include "python/src/text_column.h"

#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <new>

#include "module/abi/argument_frame.h"

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

struct ThreadBuffers {
    Reused<txengine::TextView> views;
    Reused<std::uint8_t> validity;
    Reused<char> arena;
    std::vector<std::int64_t> pending;   // rows to transcode
};

ThreadBuffers& buffersFor(int slot) {
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

// The longest UTF-8 form of a str of `length` characters of `kind` bytes.
std::size_t utf8Bound(int kind, Py_ssize_t length) {
    return static_cast<std::size_t>(length) * (kind == PyUnicode_1BYTE_KIND ? 2 : kind == PyUnicode_2BYTE_KIND ? 3 : 4);
}

// Bits that are set in an 8-byte word of code units when one of them is
// not ASCII.
template <typename Char>
constexpr std::uint64_t kWideBits = sizeof(Char) == 1 ? 0x8080808080808080u
                                  : sizeof(Char) == 2 ? 0xFF80FF80FF80FF80u
                                                      : 0xFFFFFF80FFFFFF80u;

// Writes the UTF-8 form of `length` code points at `out`; false on a lone
// surrogate, which has none. Runs of ASCII, most of most text, go 8 bytes
// of code units at a time.
template <typename Char>
bool encodeUtf8(const Char* text, Py_ssize_t length, char* out, std::size_t& written) {
    auto* o = reinterpret_cast<unsigned char*>(out);
    std::size_t n = 0;
    constexpr Py_ssize_t kUnits = 8 / sizeof(Char);
    for (Py_ssize_t i = 0; i < length; ++i) {
        while (i + kUnits <= length) {
            std::uint64_t word = 0;
            std::memcpy(&word, text + i, sizeof word);
            if ((word & kWideBits<Char>) != 0) break;
            if constexpr (sizeof(Char) == 1) {
                std::memcpy(o + n, &word, sizeof word);
            } else {
                for (Py_ssize_t k = 0; k < kUnits; ++k) o[n + static_cast<std::size_t>(k)] = static_cast<unsigned char>(text[i + k]);
            }
            n += static_cast<std::size_t>(kUnits);
            i += kUnits;
        }
        if (i >= length) break;
        const std::uint32_t c = text[i];
        if (c < 0x80) {
            o[n++] = static_cast<unsigned char>(c);
        } else if (c < 0x800) {
            o[n++] = static_cast<unsigned char>(0xC0 | (c >> 6));
            o[n++] = static_cast<unsigned char>(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            if (c >= 0xD800 && c <= 0xDFFF) return false;
            o[n++] = static_cast<unsigned char>(0xE0 | (c >> 12));
            o[n++] = static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3F));
            o[n++] = static_cast<unsigned char>(0x80 | (c & 0x3F));
        } else {
            o[n++] = static_cast<unsigned char>(0xF0 | (c >> 18));
            o[n++] = static_cast<unsigned char>(0x80 | ((c >> 12) & 0x3F));
            o[n++] = static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3F));
            o[n++] = static_cast<unsigned char>(0x80 | (c & 0x3F));
        }
    }
    written = n;
    return true;
}

// A str's bytes in the session encoding when they can be read where they
// are; otherwise false, and the row is transcoded later.
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

[[noreturn]] void refuse(const std::string& what, std::int64_t row, const std::string& why) {
    throw py::value_error(what + ", row " + std::to_string(row) + ": " + why);
}

std::string unencodable(const Codec& codec) { return "the text has a character " + codec.name + " cannot encode"; }

// The rows the pass left over, into one arena sized once.
void transcode(PyObject* const* items, ThreadBuffers& b, std::size_t bound, const Codec& codec,
               txengine::TextView* views, const std::string& what) {
    if (b.pending.empty()) return;
    if (codec.utf8) {
        char* arena = b.arena.get(bound);
        std::size_t at = 0;
        for (const std::int64_t row : b.pending) {
            PyObject* item = items[row];
            const void* data = PyUnicode_DATA(item);
            const Py_ssize_t length = PyUnicode_GET_LENGTH(item);
            std::size_t written = 0;
            bool ok = false;
            switch (PyUnicode_KIND(item)) {
            case PyUnicode_1BYTE_KIND: ok = encodeUtf8(static_cast<const Py_UCS1*>(data), length, arena + at, written); break;
            case PyUnicode_2BYTE_KIND: ok = encodeUtf8(static_cast<const Py_UCS2*>(data), length, arena + at, written); break;
            default: ok = encodeUtf8(static_cast<const Py_UCS4*>(data), length, arena + at, written); break;
            }
            if (!ok) refuse(what, row, "the text has no UTF-8 form");
            views[row] = {arena + at, static_cast<std::int64_t>(written)};
            at += written;
        }
        return;
    }
    // Other encodings go through Python's codec; their sizes are known only
    // once encoded, so the encoded rows are held until the arena is sized.
    std::vector<py::object> encoded;
    encoded.reserve(b.pending.size());
    std::size_t total = 0;
    for (const std::int64_t row : b.pending) {
        PyObject* bytes = PyUnicode_AsEncodedString(items[row], codec.name.c_str(), "strict");
        if (bytes == nullptr) {
            PyErr_Clear();
            refuse(what, row, unencodable(codec));
        }
        encoded.push_back(py::reinterpret_steal<py::object>(bytes));
        total += static_cast<std::size_t>(PyBytes_GET_SIZE(bytes));
    }
    char* arena = b.arena.get(total);
    std::size_t at = 0;
    for (std::size_t i = 0; i < encoded.size(); ++i) {
        PyObject* bytes = encoded[i].ptr();
        const auto size = static_cast<std::size_t>(PyBytes_GET_SIZE(bytes));
        if (size > 0) std::memcpy(arena + at, PyBytes_AS_STRING(bytes), size);
        views[b.pending[i]] = {arena + at, static_cast<std::int64_t>(size)};
        at += size;
    }
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
                              const std::string& what) {
    if (items.ndim() != 1 || items.dtype().kind() != 'O' || (items.size() > 1 && items.strides(0) != sizeof(PyObject*))) {
        throw py::value_error(what + ": expected a contiguous one-dimensional object array");
    }
    const auto rows = static_cast<std::int64_t>(items.size());
    auto* const* values = static_cast<PyObject* const*>(items.data());
    ThreadBuffers& b = buffersFor(slot);
    txengine::TextView* views = b.views.get(static_cast<std::size_t>(rows));
    std::uint8_t* validity = nullptr;
    b.pending.clear();
    std::size_t bound = 0;
    std::int64_t textRows = 0, bytesRows = 0, numberRows = 0, firstNumber = -1;
    std::uint8_t bits = 0;   // validity of the current eight rows
    for (std::int64_t row = 0; row < rows; ++row) {
        PyObject* item = values[row];
        bool valid = true;
        if (PyUnicode_Check(item)) {
            ++textRows;
            if (PyUnicode_READY(item) < 0) {
                PyErr_Clear();
                refuse(what, row, "the text cannot be read");
            }
            if (!viewInPlace(item, codec, views[row])) {
                if (codec.latin1) refuse(what, row, unencodable(codec));
                views[row] = {};
                b.pending.push_back(row);
                bound += utf8Bound(PyUnicode_KIND(item), PyUnicode_GET_LENGTH(item));
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
            refuse(what, row, typeName(item) + " is not text");
        }
        bits = static_cast<std::uint8_t>(bits | (valid ? 1u << (row & 7) : 0u));
        if ((row & 7) == 7 || row == rows - 1) {
            const bool last = row == rows - 1 && (rows & 7) != 0;
            const auto full = static_cast<std::uint8_t>(last ? (1u << (rows & 7)) - 1 : 0xFFu);
            if (bits != full && validity == nullptr) {
                // The first null: every earlier byte was full.
                validity = b.validity.get(static_cast<std::size_t>((rows + 7) / 8));
                std::memset(validity, 0xFF, static_cast<std::size_t>(row >> 3));
            }
            if (validity != nullptr) validity[row >> 3] = bits;
            bits = 0;
        }
    }
    ObjectColumn column;
    if (numberRows > 0) {
        if (textRows + bytesRows > 0) refuse(what, firstNumber, typeName(values[firstNumber]) + " is not text");
        column.numeric = true;
        column.values.resize(static_cast<std::size_t>(rows));
        for (std::int64_t row = 0; row < rows; ++row) {
            PyObject* item = values[row];
            double value = std::numeric_limits<double>::quiet_NaN();
            if (!isNull(item, na.ptr())) {
                value = PyFloat_Check(item) ? PyFloat_AS_DOUBLE(item) : PyFloat_AsDouble(item);
                if (value == -1.0 && PyErr_Occurred()) {
                    PyErr_Clear();
                    refuse(what, row, typeName(item) + " has no value as a number");
                }
            }
            column.values[static_cast<std::size_t>(row)] = value;
        }
        return column;
    }
    transcode(values, b, bound, codec, views, what);
    column.allBytes = bytesRows > 0 && textRows == 0;
    column.text = txengine::TextViewColumn{views, validity};
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
