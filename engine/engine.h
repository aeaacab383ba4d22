// The row engine: one function of the module evaluated over whole columns,
// on every core. Columns follow Apache Arrow's layouts (a text column is
// offsets plus bytes, or a view per row, with a validity bitmap; a numeric
// column is f64 values with a validity bitmap), so callers holding Arrow,
// DuckDB vectors, Python objects or CSV chunks hand them over without a copy.
// Numeric outputs may go straight into the caller's memory. A Program is prepared once (function, argument
// shapes, receiving length) and run chunk after chunk: each worker thread
// keeps its own call site (frame and setCache) for the Program's lifetime, so
// modifier O caches a parsed set across every row and chunk, as it does at a
// call site of the host system.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace txhost {
class Session;
class Module;
}  // namespace txhost

namespace txengine {

// Validity bitmaps are Arrow's: bit i of byte i/8 (least significant first)
// is 1 when row i holds a value. A null bitmap pointer means every row does.
inline bool rowValid(const std::uint8_t* validity, std::int64_t row) {
    return validity == nullptr || ((validity[row >> 3] >> (row & 7)) & 1) != 0;
}

// Text in the session encoding, Arrow's large-string layout: row i is
// bytes[offsets[i], offsets[i + 1]). A null row is an absent argument.
struct TextColumn {
    const std::int64_t* offsets = nullptr;   // rows + 1 entries
    const char* bytes = nullptr;
    const std::uint8_t* validity = nullptr;
};

// One row of text that lives wherever its owner keeps it (a Python str, a
// DuckDB vector, an Arrow string-view buffer).
struct TextView {
    const char* data = nullptr;   // may be null when length is 0
    std::int64_t length = 0;
};

// Text as one view per row: rows need not be adjacent or in order, so no
// copy is made to bring them together. A null row is an absent argument.
struct TextViewColumn {
    const TextView* views = nullptr;   // rows entries
    const std::uint8_t* validity = nullptr;
};

// Numbers; a null row is the missing value.
struct NumberColumn {
    const double* values = nullptr;
    const std::uint8_t* validity = nullptr;
};

// One argument of a Program: a column, a constant, or absent (a null value
// pointer in every row's frame).
struct Input {
    enum class Kind { Text, Number, ConstantText, ConstantNumber, Absent, TextViews };
    Kind kind = Kind::Absent;
    TextColumn text{};
    TextViewColumn views{};
    NumberColumn number{};
    std::string constantText{};
    double constantNumber = 0;

    static Input column(TextColumn column);
    static Input column(TextViewColumn column);
    static Input column(NumberColumn column);
    static Input constant(std::string_view text);
    static Input constant(double number);
    static Input absent();
};

// A text result column in the same layout, owned by the result.
struct TextResult {
    std::vector<std::int64_t> offsets;   // rows + 1
    std::vector<char> bytes;
    std::vector<std::uint8_t> validity;  // a row is null when the module stored no text
};

// Messages of a run, counted per kind (not copied per row).
struct MessageCount {
    bool error = false;             // an error (true) or a note (false)
    std::int32_t code = 0;          // note or error number
    std::string functionName;       // notes: the function's short name ("FIND")
    std::int32_t character = 0;     // notes: the letter
    std::string text;               // the host catalogue's text of the first one
    std::int64_t count = 0;
    std::int64_t firstRow = 0;      // row (0-based, counted across the Program's runs) of the first
};

// What one run over `rows` rows produced, in row order.
struct Result {
    std::int64_t rows = 0;
    // Numeric functions: the stored f64 (the module's missing value where it
    // answers it); the call routine: the position. numberValid[i] is 0 when
    // nothing was stored or the value is missing.
    std::vector<double> numbers;
    std::vector<std::uint8_t> numberValid;
    std::vector<double> lengths;          // the call routine: the length
    TextResult text;                      // the KSCANX function
    std::vector<std::int32_t> status;     // per row, 0 = ok
    std::vector<MessageCount> messages;
};

// Places in the caller's memory for a run's outputs (a numpy array, a DuckDB
// vector), `rows` entries each unless said otherwise. Every row is written
// and nothing is read, so they need no clearing. A null member leaves that
// output to the Result's own vector, as without places.
struct OutputPlaces {
    // Numeric functions' result, the call routine's position: the value, or
    // a quiet NaN where there is none (the module's missing value included).
    double* numbers = nullptr;
    // Validity of `numbers` as an Arrow bitmap of (rows + 7) / 8 bytes; the
    // last byte's bits past `rows` are left as they were.
    std::uint8_t* validity = nullptr;
    double* lengths = nullptr;           // the call routine's length; NaN where missing
    std::int32_t* status = nullptr;      // per row, 0 = ok
};

struct ProgramOptions {
    std::string function;           // "KFIND" ... "KSCANX"
    bool callRoutine = false;       // KSCANX only: the call routine (two outputs)
    std::int64_t maxLength = 200;   // receiving length of KSCANX function results
};

class Engine;

// One function over one argument list, prepared once and run chunk by chunk.
// Each worker's call site may keep a parsed set (modifier O) only when every
// text argument after the first is a constant: a set from a column would
// then depend on which rows a worker happened to take first. With a text
// column there, every row parses its own set, as at a site that may not
// cache. A Program lives no longer than its Engine; one run at a time.
class Program {
public:
    ~Program();
    Program(Program&&) noexcept;
    Program& operator=(Program&&) noexcept;
    // Evaluates rows [0, rows) of the inputs (one Input per argument, as many
    // as the function takes, the call routine's two outputs not included).
    // Throws std::invalid_argument on a shape the function refuses (argument
    // count, a column where the descriptor allows no such type), on a column
    // without its offsets or values, and on text offsets out of order (the
    // first such row named); nothing is returned then. Offsets must lie
    // within the column's bytes. Throws std::runtime_error once the module
    // serves another Session (Module::requireItsSession).
    Result run(const std::vector<Input>& arguments, std::int64_t rows);
    // The same, the outputs `places` names written there rather than into
    // the Result (whose vectors for them stay empty). Text views must not
    // have negative lengths.
    Result run(const std::vector<Input>& arguments, std::int64_t rows, const OutputPlaces& places);
    struct Impl;
private:
    friend class Engine;
    explicit Program(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> impl_;
};

struct EngineOptions {
    int threads = 0;                      // 0: one per core
    std::int64_t rowsPerTask = 16384;     // granularity of the split (rounded up to a multiple of 8)
};

// The engine over a loaded module: its thread pool and one task (call
// context) per worker thread. The calling thread is worker 0; runs from
// several threads on one Engine take turns.
class Engine {
public:
    Engine(txhost::Session& session, txhost::Module& module, EngineOptions options = {});
    ~Engine();
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;
    int threads() const;
    // Throws std::invalid_argument for an unknown function.
    Program prepare(const ProgramOptions& options);
    struct Impl;
private:
    std::unique_ptr<Impl> impl_;
};

}  // namespace txengine
