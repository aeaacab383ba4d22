// Python objects to Arrow-layout text: one pass, no Python code per row.
#include "python/src/text_column.h"

#include <cmath>

namespace txpython {

txengine::TextColumn OwnedTextColumn::view() const {
    return txengine::TextColumn{offsets.data(), bytes.data(), validity.empty() ? nullptr : validity.data()};
}

namespace {

bool isNull(PyObject* item, PyObject* na) {
    if (item == Py_None || item == na) return true;
    return PyFloat_Check(item) && std::isnan(PyFloat_AS_DOUBLE(item));
}

std::string typeName(PyObject* item) { return Py_TYPE(item)->tp_name; }

// Appends the session-encoding bytes of `item` (str or bytes) to `out`.
// Returns false (with the reason in `error`) when it is neither or the codec
// refuses it.
bool appendText(PyObject* item, const Codec& codec, std::vector<char>& out, std::string& error) {
    if (PyBytes_Check(item)) {
        const char* data = PyBytes_AS_STRING(item);
        out.insert(out.end(), data, data + PyBytes_GET_SIZE(item));
        return true;
    }
    if (!PyUnicode_Check(item)) {
        error = typeName(item) + " is not text";
        return false;
    }
    if (codec.utf8) {
        Py_ssize_t size = 0;
        const char* data = PyUnicode_AsUTF8AndSize(item, &size);
        if (data == nullptr) {
            // Lone surrogates have no UTF-8 form.
            PyErr_Clear();
            error = "the text has no UTF-8 form";
            return false;
        }
        out.insert(out.end(), data, data + size);
        return true;
    }
    PyObject* encoded = PyUnicode_AsEncodedString(item, codec.name.c_str(), "strict");
    if (encoded == nullptr) {
        PyErr_Clear();
        error = "the text has a character " + codec.name + " cannot encode";
        return false;
    }
    const char* data = PyBytes_AS_STRING(encoded);
    out.insert(out.end(), data, data + PyBytes_GET_SIZE(encoded));
    Py_DECREF(encoded);
    return true;
}

}  // namespace

OwnedTextColumn textColumnFrom(const py::array& items, const Codec& codec, py::handle na, const std::string& what) {
    if (items.ndim() != 1 || items.dtype().kind() != 'O' || (items.size() > 1 && items.strides(0) != sizeof(PyObject*))) {
        throw py::value_error(what + ": expected a contiguous one-dimensional object array");
    }
    const auto rows = static_cast<std::int64_t>(items.size());
    auto* const* values = static_cast<PyObject* const*>(items.data());
    OwnedTextColumn column;
    column.offsets.reserve(static_cast<std::size_t>(rows) + 1);
    // Rows of names and addresses: a guess that spares most regrowth.
    column.bytes.reserve(static_cast<std::size_t>(rows) * 24);
    std::string error;
    for (std::int64_t row = 0; row < rows; ++row) {
        PyObject* item = values[row];
        if (isNull(item, na.ptr())) {
            if (column.validity.empty()) column.validity.assign(static_cast<std::size_t>((rows + 7) / 8), 0xFF);
            column.validity[static_cast<std::size_t>(row >> 3)] &= static_cast<std::uint8_t>(~(1u << (row & 7)));
        } else if (!appendText(item, codec, column.bytes, error)) {
            throw py::value_error(what + ", row " + std::to_string(row) + ": " + error);
        }
        column.offsets.push_back(static_cast<std::int64_t>(column.bytes.size()));
    }
    return column;
}

std::string textScalar(py::handle value, const Codec& codec, const std::string& what) {
    std::vector<char> bytes;
    std::string error;
    if (!appendText(value.ptr(), codec, bytes, error)) throw py::value_error(what + ": " + error);
    return std::string(bytes.begin(), bytes.end());
}

}  // namespace txpython
