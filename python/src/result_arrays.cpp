// Engine results to numpy: filled under the GIL, one pass per column.
#include "python/src/result_arrays.h"

#include <cmath>
#include <limits>

namespace txpython {

py::array_t<double> numberArray(const std::vector<double>& values, const std::vector<std::uint8_t>& valid) {
    py::array_t<double> out(static_cast<py::ssize_t>(values.size()));
    double* data = out.mutable_data();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (std::size_t i = 0; i < values.size(); ++i) data[i] = valid[i] != 0 ? values[i] : nan;
    return out;
}

py::array_t<double> numberArray(const std::vector<double>& values) {
    py::array_t<double> out(static_cast<py::ssize_t>(values.size()));
    double* data = out.mutable_data();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (std::size_t i = 0; i < values.size(); ++i) data[i] = std::isnan(values[i]) ? nan : values[i];
    return out;
}

py::array_t<std::int32_t> statusArray(const std::vector<std::int32_t>& status) {
    py::array_t<std::int32_t> out(static_cast<py::ssize_t>(status.size()));
    std::copy(status.begin(), status.end(), out.mutable_data());
    return out;
}

py::array textArray(const txengine::TextResult& text, const Codec& codec, bool asBytes, const std::string& what) {
    const auto rows = static_cast<std::int64_t>(text.offsets.size()) - 1;
    py::array out(py::dtype("O"), std::vector<py::ssize_t>{static_cast<py::ssize_t>(rows)});
    auto** items = static_cast<PyObject**>(out.mutable_data());
    for (std::int64_t row = 0; row < rows; ++row) {
        PyObject* item = nullptr;
        if (!txengine::rowValid(text.validity.data(), row)) {
            item = Py_NewRef(Py_None);
        } else {
            const char* data = text.bytes.data() + text.offsets[static_cast<std::size_t>(row)];
            const auto size = static_cast<Py_ssize_t>(text.offsets[static_cast<std::size_t>(row + 1)] -
                                                      text.offsets[static_cast<std::size_t>(row)]);
            if (asBytes) {
                item = PyBytes_FromStringAndSize(data, size);
            } else if (codec.utf8) {
                item = PyUnicode_DecodeUTF8(data, size, "strict");
            } else {
                item = PyUnicode_Decode(data, size, codec.name.c_str(), "strict");
            }
            if (item == nullptr) {
                PyErr_Clear();
                throw py::value_error(what + ", row " + std::to_string(row) + ": the result is not valid " +
                                      codec.name + " text");
            }
        }
        // A fresh object array holds None (or null) in every slot; the reference moves in.
        Py_XDECREF(items[row]);
        items[row] = item;
    }
    return out;
}

}  // namespace txpython
