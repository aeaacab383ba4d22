// txscanmd._core: one Runtime per session encoding (a host Session, the
// module loaded into it, and the row engine's thread pool), and `run`, which
// reads Python columns in place as engine inputs, evaluates the rows batch
// by batch with the GIL released and writes the numbers straight into the
// numpy arrays it returns. Between batches it takes the GIL back and
// answers pending signals, so Ctrl-C stops a long call.
#include <algorithm>
#include <bit>
#include <ctime>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "engine/engine.h"
#include "host/binder.h"
#include "host/host.h"
#include "python/src/result_arrays.h"
#include "python/src/text_column.h"
#include "python/src/utf8_writer.h"

namespace py = pybind11;

namespace txpython {
namespace {

// A prepared Program kept for the next call with the same function and
// constants. Its call sites keep a parsed set (modifier O) from one run to
// the next, which is the same set only when every constant is the same, so
// the key holds them all.
struct KeptProgram {
    std::string key;
    txengine::Program program;
    std::int64_t rowsBefore = 0;   // rows of its earlier calls, which the engine counts into firstRow
};

struct Runtime {
    Codec codec;
    // Declared in the order they are built; they are destroyed in reverse.
    txhost::Session session;
    std::unique_ptr<txhost::Module> module;
    std::unique_ptr<txengine::Engine> engine;
    // Dask's threaded scheduler calls from several threads at once; one
    // batch at a time keeps the engine's pool to itself, and it uses every core.
    std::mutex running;
    // The Programs of the last few calls, the latest first. A call takes its
    // Program out and puts it back when done, so two threads never share one.
    std::mutex keptMutex;
    std::vector<KeptProgram> kept;
    static constexpr std::size_t kKeptPrograms = 8;

    Runtime(const std::string& modulePath, const std::string& encoding, int threads)
        : codec(codecFor(encoding)),
          session(txhost::SessionOptions{.encoding = encoding}),
          module(txhost::Module::load(session, modulePath)),
          engine(std::make_unique<txengine::Engine>(session, *module, txengine::EngineOptions{.threads = threads})) {}
};

std::shared_ptr<Runtime> openRuntime(const std::string& modulePath, const std::string& encoding, int threads) {
    const std::vector<std::string> offered = txhost::availableEncodings();
    if (std::find(offered.begin(), offered.end(), encoding) == offered.end()) {
        std::string names;
        for (const std::string& name : offered) names += (names.empty() ? "" : ", ") + name;
        throw py::value_error("unknown session encoding \"" + encoding + "\" (the host offers " + names + ")");
    }
    return std::make_shared<Runtime>(modulePath, encoding, threads);
}

// A forked child has the parent's Runtime but none of its worker threads:
// destroying it would wait for threads that do not exist. The child keeps
// it, unused, for its whole life and builds a new one.
void abandonAfterFork(const std::shared_ptr<Runtime>& runtime) { new std::shared_ptr<Runtime>(runtime); }

// Inputs and the storage behind them, alive until the run is over.
struct PreparedInputs {
    std::vector<txengine::Input> inputs;
    std::vector<ObjectColumn> objects;
    std::vector<py::array_t<double, py::array::c_style | py::array::forcecast>> numbers;
    // Argument 1, an object column left to be read batch by batch (inputs[0]
    // is a stand-in until then).
    py::object first;
};

// Argument 1 read whole, for what only the whole column tells: the error
// its first bad row raises (the same as when nothing was put off), and
// whether it holds text at all.
ObjectColumn readWhole(const py::handle column, const Codec& codec, py::handle na, const std::string& label) {
    ObjectColumn whole = readObjectColumn(py::reinterpret_borrow<py::array>(column), codec, na, 1, label + ": argument 1");
    if (whole.numeric) throw py::value_error(label + ": argument 1 must hold text, not numbers");
    return whole;
}

// Arguments come from the Python layer as (kind, value) pairs, kinds
// "column" (an object array: text or numbers, found by reading it),
// "number_column" (float64), "text", "number" and "absent". Argument 1 must
// be an object column; it is only checked to be one here.
PreparedInputs prepareInputs(const py::list& arguments, std::int64_t rows, const Codec& codec, py::handle na,
                             const std::string& label) {
    PreparedInputs prepared;
    prepared.objects.reserve(arguments.size());
    prepared.numbers.reserve(arguments.size());
    int position = 0;
    for (py::handle argument : arguments) {
        ++position;
        const std::string what = label + ": argument " + std::to_string(position);
        auto pair = argument.cast<py::tuple>();
        const auto kind = pair[0].cast<std::string>();
        py::handle value = pair[1];
        if (position == 1) {
            if (kind != "column") throw py::value_error(label + ": argument 1 must be a column of text");
            prepared.first = py::reinterpret_borrow<py::object>(value);
            prepared.inputs.push_back(txengine::Input::absent());
            continue;
        }
        try {
            if (kind == "column" || kind == "number_column") {
                if (py::len(value) != static_cast<std::size_t>(rows)) {
                    throw py::value_error(what + " has " + std::to_string(py::len(value)) + " rows, argument 1 has " +
                                          std::to_string(rows));
                }
            }
            if (kind == "column") {
                prepared.objects.push_back(
                    readObjectColumn(py::reinterpret_borrow<py::array>(value), codec, na, position, what));
                const ObjectColumn& held = prepared.objects.back();
                prepared.inputs.push_back(held.numeric ? txengine::Input::column(txengine::NumberColumn{held.values.data(), nullptr})
                                                       : txengine::Input::column(held.text));
            } else if (kind == "number_column") {
                auto values = py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(value);
                if (!values || values.ndim() != 1) throw py::value_error(what + ": expected a one-dimensional numeric array");
                prepared.numbers.push_back(values);
                prepared.inputs.push_back(txengine::Input::column(txengine::NumberColumn{values.data(), nullptr}));
            } else if (kind == "text") {
                prepared.inputs.push_back(txengine::Input::constant(textScalar(value, codec, what)));
            } else if (kind == "number") {
                prepared.inputs.push_back(txengine::Input::constant(value.cast<double>()));
            } else {
                prepared.inputs.push_back(txengine::Input::absent());
            }
        } catch (const py::value_error&) {
            // Argument 1's own fault comes first, as when it is read first.
            readWhole(prepared.first, codec, na, label);
            throw;
        }
    }
    return prepared;
}

// The inputs of rows [begin, ...): columns moved on by `begin` rows (a
// multiple of 8, so bitmaps move by whole bytes).
std::vector<txengine::Input> batchOf(const std::vector<txengine::Input>& inputs, std::int64_t begin) {
    std::vector<txengine::Input> batch = inputs;
    for (txengine::Input& in : batch) {
        const auto bitmap = [&](const std::uint8_t* v) { return v == nullptr ? v : v + begin / 8; };
        if (in.kind == txengine::Input::Kind::TextViews) {
            in.views = {in.views.views + begin, bitmap(in.views.validity)};
        } else if (in.kind == txengine::Input::Kind::Number) {
            in.number = {in.number.values + begin, bitmap(in.number.validity)};
        }
    }
    return batch;
}

// What makes a Program's call sites behave alike from call to call: the
// function, the receiving length, and each argument's kind with the value
// of a constant.
std::string programKey(const std::string& function, bool callRoutine, std::int64_t maxLength,
                       const std::vector<txengine::Input>& inputs) {
    std::string key = function + (callRoutine ? "/call/" : "/") + std::to_string(maxLength);
    for (const txengine::Input& in : inputs) {
        key += '|';
        key += static_cast<char>('0' + static_cast<int>(in.kind));
        if (in.kind == txengine::Input::Kind::ConstantText) {
            key += std::to_string(in.constantText.size()) + ':' + in.constantText;
        } else if (in.kind == txengine::Input::Kind::ConstantNumber) {
            key += std::to_string(std::bit_cast<std::uint64_t>(in.constantNumber));
        }
    }
    return key;
}

KeptProgram takeProgram(Runtime& runtime, std::string key, const txengine::ProgramOptions& options) {
    {
        std::lock_guard<std::mutex> lock(runtime.keptMutex);
        auto found = std::find_if(runtime.kept.begin(), runtime.kept.end(), [&](const KeptProgram& k) { return k.key == key; });
        if (found != runtime.kept.end()) {
            KeptProgram taken = std::move(*found);
            runtime.kept.erase(found);
            return taken;
        }
    }
    py::gil_scoped_release released;
    return KeptProgram{std::move(key), runtime.engine->prepare(options), 0};
}

void keepProgram(Runtime& runtime, KeptProgram&& program) {
    std::lock_guard<std::mutex> lock(runtime.keptMutex);
    runtime.kept.insert(runtime.kept.begin(), std::move(program));
    if (runtime.kept.size() > Runtime::kKeptPrograms) runtime.kept.pop_back();
}

// Counts of one kind of message added over the batches.
void addMessages(std::vector<txengine::MessageCount>& all, const std::vector<txengine::MessageCount>& batch) {
    for (const txengine::MessageCount& m : batch) {
        auto same = std::find_if(all.begin(), all.end(), [&](const txengine::MessageCount& a) {
            return a.error == m.error && a.code == m.code && a.functionName == m.functionName && a.character == m.character;
        });
        if (same == all.end()) {
            all.push_back(m);
        } else {
            same->count += m.count;
        }
    }
}

py::list messageList(const std::vector<txengine::MessageCount>& messages) {
    py::list out;
    for (const txengine::MessageCount& m : messages) {
        py::dict d;
        d["error"] = m.error;
        d["code"] = m.code;
        d["function"] = m.functionName;
        d["character"] = m.character != 0 ? std::string(1, static_cast<char>(m.character)) : std::string();
        d["text"] = m.text;
        d["count"] = m.count;
        d["first_row"] = m.firstRow;
        out.append(d);
    }
    return out;
}

// Rows of argument 1 a batch reads: enough for every worker to take
// several tasks, few enough rows and bytes that Ctrl-C is answered within a
// fraction of a second. With one worker, the text it transcodes is kept to
// what stays in the core's cache until the engine reads it back.
RowLimits batchLimits(const Runtime& runtime) {
    const int threads = runtime.engine->threads();
    constexpr std::size_t kText = std::size_t{1} << 26;
    return RowLimits{.rows = std::int64_t{1} << 16 << (threads > 2 ? 1 : 0), .text = kText,
                     .transcoded = threads == 1 ? std::size_t{1} << 18 : kText};
}

// Per-row statuses of this thread's last run: read only to see whether any
// row failed, so kept from call to call rather than faulted in anew.
std::int32_t* statusPlace(std::int64_t rows) {
    thread_local std::vector<std::int32_t> statuses;
    if (statuses.size() < static_cast<std::size_t>(rows)) statuses.resize(static_cast<std::size_t>(rows));
    return statuses.data();
}

// Evaluates `function` over `rows` rows. Returns a dict with "status" (the
// per-row statuses when some row is neither ok nor a missing start, else None),
// "messages" and, by result kind, "number", "position" and "length", or
// "text".
py::dict run(Runtime& runtime, const std::string& label, const std::string& function, bool callRoutine,
             const py::list& arguments, std::int64_t rows, std::int64_t maxLength, py::handle na) {
    PreparedInputs prepared = prepareInputs(arguments, rows, runtime.codec, na, label);
    const bool text = !callRoutine && function == "KSCANX";
    std::int32_t* status = statusPlace(rows);
    py::array_t<double> numbers(text ? 0 : rows);
    py::array_t<double> lengths(callRoutine ? rows : 0);
    py::array texts(py::dtype("O"), std::vector<py::ssize_t>{static_cast<py::ssize_t>(text ? rows : 0)});
    std::optional<SharedResults> shared;   // only text results share objects
    if (text) shared.emplace();
    std::vector<txengine::MessageCount> messages;
    KeptProgram kept = takeProgram(runtime, programKey(function, callRoutine, maxLength, prepared.inputs),
                                   txengine::ProgramOptions{.function = function, .callRoutine = callRoutine,
                                                            .maxLength = maxLength});
    const auto firstColumn = py::reinterpret_borrow<py::array>(prepared.first);
    bool sawText = false, sawBytes = false;
    for (std::int64_t begin = 0, end = 0; begin < rows || begin == 0; begin = end) {
        // Argument 1 is read batch by batch, so that the text transcoded for
        // a batch is still in cache when the engine reads it.
        const ObjectColumn first = readObjectColumn(firstColumn, runtime.codec, na, 1, label + ": argument 1", begin,
                                                    batchLimits(runtime));
        if (first.numeric) readWhole(firstColumn, runtime.codec, na, label);
        end = begin + first.rows;
        if (text && sawBytes && !sawText && first.textRows > 0) {
            // The rows before were all bytes, and so were their results; str
            // now met makes the results str, as for a column read whole.
            bytesToText(texts, begin, runtime.codec, label);
        }
        sawText = sawText || first.textRows > 0;
        sawBytes = sawBytes || first.bytesRows > 0;
        const std::int64_t count = end - begin;
        std::vector<txengine::Input> batch = batchOf(prepared.inputs, begin);
        batch[0] = txengine::Input::column(first.text);
        txengine::OutputPlaces places{.status = status + begin};
        if (!text) places.numbers = numbers.mutable_data() + begin;
        if (callRoutine) places.lengths = lengths.mutable_data() + begin;
        txengine::Result result;
        {
            py::gil_scoped_release released;
            std::lock_guard<std::mutex> lock(runtime.running);
            result = kept.program.run(batch, count, places);
        }
        addMessages(messages, result.messages);
        if (text) fillText(texts, begin, result.text, first.asciiRows, first.text.validity, runtime.codec, sawBytes && !sawText,
                           *shared, label);
        if (PyErr_CheckSignals() != 0) throw py::error_already_set();
        if (rows == 0) break;
    }
    for (txengine::MessageCount& m : messages) m.firstRow -= kept.rowsBefore;
    kept.rowsBefore += rows;
    // A Program whose call issued messages is not kept: its call sites may
    // have noted an unknown modifier once for good, and the next call must
    // report it again.
    if (messages.empty()) keepProgram(runtime, std::move(kept));
    py::dict out;
    const bool failed = std::any_of(status, status + rows, [](std::int32_t code) {
        return code != 0 && code != txscan::contract::kStatusMissingStart;
    });
    out["status"] = failed ? py::object(py::array_t<std::int32_t>(rows, status)) : py::object(py::none());
    out["messages"] = messageList(messages);
    if (callRoutine) {
        out["position"] = numbers;
        out["length"] = lengths;
    } else if (text) {
        out["text"] = texts;
    } else {
        out["number"] = numbers;
    }
    return out;
}

// The engine alone over the same rows, for the benchmark: CPU seconds of
// the thread for each of `rounds` runs of one Program on columns already in
// the engine's layout (offsets and bytes).
std::vector<double> engineSeconds(Runtime& runtime, const std::string& function, bool callRoutine, const py::list& arguments,
                     std::int64_t rows, int rounds) {
    PreparedInputs prepared = prepareInputs(arguments, rows, runtime.codec, py::none(), "engine");
    const ObjectColumn first = readWhole(prepared.first, runtime.codec, py::none(), "engine");
    std::vector<std::int64_t> offsets{0};
    std::vector<char> bytes;
    std::vector<txengine::Input> inputs = prepared.inputs;
    const txengine::TextViewColumn& views = first.text;
    for (std::int64_t row = 0; row < rows; ++row) {
        const txengine::TextView& v = views.views[row];
        bytes.insert(bytes.end(), v.data, v.data + v.length);
        offsets.push_back(static_cast<std::int64_t>(bytes.size()));
    }
    inputs[0] = txengine::Input::column(txengine::TextColumn{offsets.data(), bytes.data(), views.validity});
    py::gil_scoped_release released;
    std::lock_guard<std::mutex> lock(runtime.running);
    txengine::Program program = runtime.engine->prepare(
        txengine::ProgramOptions{.function = function, .callRoutine = callRoutine, .maxLength = 200});
    std::vector<double> seconds;
    for (int round = 0; round < rounds; ++round) {
        timespec start{}, end{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &start);
        txengine::Result result = program.run(inputs, rows);
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &end);
        seconds.push_back(static_cast<double>(end.tv_sec - start.tv_sec) +
                          1e-9 * static_cast<double>(end.tv_nsec - start.tv_nsec));
    }
    return seconds;
}

}  // namespace
}  // namespace txpython

PYBIND11_MODULE(_core, m) {
    using namespace txpython;
    m.doc() = "The row engine over the txscanmd module (the package's native part)";
    py::class_<Runtime, std::shared_ptr<Runtime>>(m, "Runtime")
        .def(py::init(&openRuntime), py::arg("module_path"), py::arg("encoding"), py::arg("threads") = 0)
        .def_property_readonly("encoding", [](const Runtime& r) { return r.codec.name; })
        .def_property_readonly("threads", [](const Runtime& r) { return r.engine->threads(); });
    m.def("run", &run, py::arg("runtime"), py::arg("label"), py::arg("function"), py::arg("call_routine"),
          py::arg("arguments"), py::arg("rows"), py::arg("max_length"), py::arg("na"));
    m.def("abandon_after_fork", &abandonAfterFork);
    m.def("engine_seconds", &engineSeconds, py::arg("runtime"), py::arg("function"), py::arg("call_routine"),
          py::arg("arguments"), py::arg("rows"), py::arg("rounds"));
    // For the tests: each UTF-8 writer the machine has (0 plain, 1 AVX2, 2 AVX-512).
    m.def("_set_utf8_writer", &setUtf8Writer, py::arg("writer"));
    m.def("_best_utf8_writer", &bestUtf8Writer);
    m.def("status_name", &txhost::statusName);
    m.def("status_text", &txhost::statusText);
    m.attr("STATUS_MISSING_START") = txscan::contract::kStatusMissingStart;
    m.def("available_encodings", &txhost::availableEncodings);
}
