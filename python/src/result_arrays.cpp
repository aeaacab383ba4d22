// Engine text results to Python objects: one object per distinct short
// result or per row, no copy kept.
#include "python/src/result_arrays.h"

#include <cstring>

namespace txpython {

SharedResults::SharedResults() {
    thread_local std::array<Slot, kSlots> table;
    slots_ = table.data();
}

SharedResults::~SharedResults() {
    for (const std::uint16_t at : filled_) {
        Py_XDECREF(slots_[at].object);
        slots_[at] = Slot{};
    }
}

namespace {

// The first `n` (at most 8) bytes of a word read from memory.
inline std::uint64_t firstBytes(std::uint64_t word, Py_ssize_t n) {
    return n >= 8 ? word : n <= 0 ? 0 : word & ((std::uint64_t{1} << (8 * n)) - 1);
}

}  // namespace

template <typename Make>
PyObject* SharedResults::get(const char* data, Py_ssize_t size, std::int64_t readable, Make make) {
    if (size > kLongest) return make();
    std::uint64_t head = 0, tail = 0;
    if (readable >= kLongest) {
        // Two whole words, masked: a short copy into a zeroed buffer would
        // be read back before its stores could be forwarded.
        std::memcpy(&head, data, 8);
        std::memcpy(&tail, data + 8, 8);
        head = firstBytes(head, size);
        tail = firstBytes(tail, size - 8);
    } else {
        char padded[kLongest] = {};
        if (size > 0) std::memcpy(padded, data, static_cast<std::size_t>(size));
        std::memcpy(&head, padded, 8);
        std::memcpy(&tail, padded + 8, 8);
    }
    const std::uint64_t mixed = (head * 0x9E3779B97F4A7C15u) ^ (tail * 0xC2B2AE3D27D4EB4Fu) ^ static_cast<std::uint64_t>(size);
    const auto at = static_cast<std::uint16_t>((mixed * 0x9E3779B97F4A7C15u) >> 52);
    Slot& slot = slots_[at];
    if (slot.size != size || slot.head != head || slot.tail != tail) {
        PyObject* fresh = make();
        if (fresh == nullptr) return nullptr;
        if (slot.object == nullptr) filled_.push_back(at);
        Py_XDECREF(slot.object);
        slot = Slot{head, tail, size, fresh};
    }
    return Py_NewRef(slot.object);
}

namespace {

[[noreturn]] void notText(const std::string& what, std::int64_t row, const Codec& codec) {
    PyErr_Clear();
    throw py::value_error(what + ", row " + std::to_string(row) + ": the result is not valid " + codec.name + " text");
}

PyObject* asciiString(const char* data, Py_ssize_t size) {
    PyObject* item = PyUnicode_New(size, 127);
    if (item != nullptr && size > 0) std::memcpy(PyUnicode_DATA(item), data, static_cast<std::size_t>(size));
    return item;
}

}  // namespace

void fillText(py::array& out, std::int64_t begin, const txengine::TextResult& text, const std::uint8_t* asciiRows,
              const std::uint8_t* sourceValidity, const Codec& codec, bool asBytes, SharedResults& shared,
              const std::string& what) {
    const auto rows = static_cast<std::int64_t>(text.offsets.size()) - 1;
    auto** items = static_cast<PyObject**>(out.mutable_data()) + begin;
    for (std::int64_t row = 0; row < rows; ++row) {
        PyObject* item = nullptr;
        const char* data = text.bytes.data() + text.offsets[static_cast<std::size_t>(row)];
        auto size = static_cast<Py_ssize_t>(text.offsets[static_cast<std::size_t>(row + 1)] -
                                            text.offsets[static_cast<std::size_t>(row)]);
        const std::int64_t readable = static_cast<std::int64_t>(text.bytes.size()) - text.offsets[static_cast<std::size_t>(row)];
        if (!txengine::rowValid(sourceValidity, row)) size = 0;
        if (!txengine::rowValid(text.validity.data(), row)) {
            item = Py_NewRef(Py_None);
        } else if (asBytes) {
            item = PyBytes_FromStringAndSize(data, size);
        } else if (asciiRows != nullptr && ((asciiRows[row >> 3] >> (row & 7)) & 1) != 0) {
            // Every piece of an ASCII row is ASCII.
            item = shared.get(data, size, readable, [&] { return asciiString(data, size); });
        } else if (codec.utf8) {
            item = shared.get(data, size, readable, [&] { return PyUnicode_DecodeUTF8(data, size, "strict"); });
        } else if (codec.latin1) {
            item = shared.get(data, size, readable, [&] { return PyUnicode_DecodeLatin1(data, size, "strict"); });
        } else {
            item = PyUnicode_Decode(data, size, codec.name.c_str(), "strict");
        }
        if (item == nullptr) notText(what, begin + row, codec);
        // A fresh object array holds None (or null) in every slot; the reference moves in.
        Py_XDECREF(items[row]);
        items[row] = item;
    }
}

void bytesToText(py::array& out, std::int64_t rows, const Codec& codec, const std::string& what) {
    auto** items = static_cast<PyObject**>(out.mutable_data());
    for (std::int64_t row = 0; row < rows; ++row) {
        if (!PyBytes_Check(items[row])) continue;
        PyObject* item = PyUnicode_Decode(PyBytes_AS_STRING(items[row]), PyBytes_GET_SIZE(items[row]), codec.name.c_str(), "strict");
        if (item == nullptr) notText(what, row, codec);
        Py_DECREF(items[row]);
        items[row] = item;
    }
}

}  // namespace txpython
