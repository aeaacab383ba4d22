// `txscan apply`: a CSV file in, the same rows out with new columns computed
// by the module's functions, streamed in batches through the row engine.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "cli/apply/assignment.h"
#include "cli/apply/batch_pipe.h"
#include "cli/apply/csv_reader.h"
#include "cli/apply/csv_writer.h"
#include "cli/apply/evaluate.h"
#include "cli/apply/output_file.h"
#include "cli/apply/plan.h"
#include "cli/apply/progress.h"
#include "cli/commands.h"
#include "cli/number_option.h"
#include "cli/terminal_text.h"
#include "engine/engine.h"
#include "host/host.h"

namespace txcli {

namespace {

struct ApplySettings {
    std::string input;
    std::string output = "-";
    std::string encoding = "UTF-8";
    int threads = 0;
    bool quiet = false;
    std::string onError = "fail";
    std::int64_t length = 200;
    std::string escape;
    std::string modulePath = TXSCAN_MODULE_PATH;
    std::vector<std::string> assignments;
};

// A refusal that names its cause on one line; exit code 2.
struct Refusal : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Rows per batch: enough for every worker to get a few tasks, few enough
// that a batch's memory stays in cache and is touched for the first time
// only once (a fresh page costs more than the CSV work on its bytes).
constexpr std::int64_t kRowsPerTask = 4096;
constexpr std::int64_t kBatchBytes = std::int64_t{16} << 20;
constexpr std::int64_t kBytesPerRow = 64;   // a guess that sizes the read buffer

class InputFile {
public:
    explicit InputFile(const std::string& path) {
        if (path == "-") {
            file_ = stdin;
        } else {
            file_ = std::fopen(path.c_str(), "rb");
            if (file_ == nullptr) throw Refusal("cannot open " + path + ": " + std::strerror(errno));
        }
        struct stat info {};
        if (fstat(fileno(file_), &info) == 0 && S_ISREG(info.st_mode)) size_ = info.st_size;
    }
    ~InputFile() {
        if (file_ != stdin) std::fclose(file_);
    }
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;
    std::FILE* file() const { return file_; }
    std::int64_t size() const { return size_; }   // 0 when unknown (a pipe)

private:
    std::FILE* file_ = nullptr;
    std::int64_t size_ = 0;
};

void checkSettings(const ApplySettings& settings) {
    const auto encodings = txhost::availableEncodings();
    if (std::find(encodings.begin(), encodings.end(), settings.encoding) == encodings.end()) {
        std::string known;
        for (const auto& name : encodings) known += " " + name;
        throw Refusal("unknown encoding " + settings.encoding + " (known:" + known + ")");
    }
    if (!settings.escape.empty() && (settings.escape.size() != 1 || std::strchr(",\"\r\n", settings.escape[0]))) {
        throw Refusal("--escape takes one byte other than a comma, a quote, CR or LF, not '" + settings.escape + "'");
    }
}

// Threads beyond a few per core only cost memory (a stack and a result
// buffer each), so a larger count is lowered with a warning.
int workerThreads(int asked) {
    const int cores = std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
    const int most = 4 * cores;
    if (asked <= most) return asked;
    std::cerr << "txscan: warning: --threads " << asked << " is more than 4 per core; using " << most << "\n";
    return most;
}

std::string headerName(const TerminalText& terminal, const std::string& bytes) {
    try {
        return terminal.fromSession(bytes);
    } catch (const std::exception&) {
        return bytes;
    }
}

int runApply(const ApplySettings& settings) {
    checkSettings(settings);
    std::vector<Assignment> assignments;
    for (const auto& text : settings.assignments) assignments.push_back(parseAssignment(text));

    InputFile input(settings.input);
    txhost::SessionOptions sessionOptions;
    sessionOptions.encoding = settings.encoding;
    txhost::Session session(sessionOptions);
    auto module = txhost::Module::load(session, settings.modulePath);
    const int threads = workerThreads(settings.threads);
    txengine::Engine engine(session, *module, {threads, kRowsPerTask});
    if (threads > 0 && engine.threads() < threads) {
        std::cerr << "txscan: warning: the system gave " << engine.threads() << " of " << threads
                  << " worker threads; running on those\n";
    }
    const TerminalText terminal(settings.encoding);

    CsvBytes bytes;
    if (!settings.escape.empty()) bytes.escape = static_cast<unsigned char>(settings.escape[0]);
    const std::int64_t batchRows = kRowsPerTask * std::max(8, 4 * engine.threads());
    CsvReader reader(input.file(), bytes,
                     static_cast<std::size_t>(std::clamp(batchRows * kBytesPerRow, std::int64_t{1} << 20, kBatchBytes)));
    const std::vector<std::string> header = reader.readHeader();
    std::vector<std::string> headerUtf8;
    for (const auto& name : header) headerUtf8.push_back(headerName(terminal, name));
    Plan plan = makePlan(assignments, headerUtf8, *module, engine, terminal, settings.length);
    // The output copies each record's text, so the reader fills only the
    // columns that calls read.
    std::vector<bool> read(header.size(), false);
    for (const auto& step : plan.steps) {
        for (const auto& source : step.arguments) {
            if (source.kind == Source::Kind::InputText || source.kind == Source::Kind::InputNumber) {
                read[static_cast<std::size_t>(source.index)] = true;
            }
        }
    }
    reader.readColumns(read);
    const CsvWriter writer(bytes, reader.lineEnd());

    OutputFile output(settings.output);
    std::vector<std::string> outputHeader = header;
    for (const auto& column : plan.columns) outputHeader.push_back(terminal.toSession(column.name));
    // The header goes out with the first batch, so that a run refused at
    // its first record writes nothing at all.
    OutputText text;
    writer.appendRecord(text, outputHeader);

    const bool skipBad = settings.onError == "skip";
    Progress progress(!settings.quiet && isatty(STDERR_FILENO), input.size());
    BatchEvaluator evaluator(plan);
    {
        BatchPipe batches(reader, batchRows, kBatchBytes, skipBad);
        while (const CsvBatch* batch = batches.next()) {
            evaluator.evaluate(*batch);
            writer.appendRows(text, *batch, plan, evaluator);
            output.write(text.data(), text.size());
            text.clear();
            progress.update(evaluator.tally().rows, batches.bytesRead());
        }
    }
    output.write(text.data(), text.size());
    output.commit();
    progress.finish();
    if (!settings.quiet) {
        printSummary(stderr, plan, evaluator.tally(), {reader.skippedRecords(), reader.firstSkipReason()},
                     progress.elapsedSeconds());
    }
    return 0;
}

}  // namespace

void addApplyCommand(CLI::App& app) {
    auto settings = std::make_shared<ApplySettings>();
    auto* command = app.add_subcommand(
        "apply", "Compute new columns of a CSV file, e.g. apply people.csv 'surname = KSCANX(name, -1)'");
    command->add_option("-o,--output", settings->output, "Output CSV file, or - for standard output (the default)");
    command->add_option("--encoding", settings->encoding,
                        "Session encoding, also the file's (UTF-8, ISO-8859-1, windows-1252, ISO-8859-15, Shift_JIS)");
    addNumberOption<int>(command, "--threads", settings->threads,
                         "Worker threads (default: one per core; at most 4 per core)", 0);
    command->add_flag("--quiet", settings->quiet, "No progress line and no summary");
    command->add_option("--on-error", settings->onError, "A malformed record stops the run (fail) or is left out (skip)")
        ->check(CLI::IsMember({"fail", "skip"}));
    addNumberOption<std::int64_t>(command, "--length", settings->length,
                                  "Length of the variable that receives a KSCANX result (at most " +
                                      std::to_string(kMaxResultLength) + " bytes)",
                                  0, kMaxResultLength);
    command->add_option("--escape", settings->escape,
                        "A byte that makes the next one text, as in \"6\\\" pipe\" (besides doubled quotes)");
    command->add_option("--module", settings->modulePath, "Path of the module file");
    command->add_option("input", settings->input, "Input CSV file, or - for standard input")->required();
    command->add_option("assignments", settings->assignments, "NAME = CALL, or (POS, LEN) = CALL KSCANX(...)")
        ->required();
    command->callback([settings] {
        int code = 0;
        try {
            code = runApply(*settings);
        } catch (const SyntaxError& e) {
            std::cerr << "txscan: " << e.what() << "\n";
            code = kUsageError;
        } catch (const Refusal& e) {
            std::cerr << "txscan: " << e.what() << "\n";
            code = kUsageError;
        } catch (const PlanError& e) {
            std::cerr << "txscan: " << e.what() << "\n";
            code = kUsageError;
        } catch (const CsvError& e) {
            std::cerr << "txscan: " << (settings->input == "-" ? std::string("<stdin>") : settings->input) << ": "
                      << e.what() << "\n";
            code = kUsageError;
        } catch (const std::exception& e) {
            std::cerr << "txscan: " << e.what() << "\n";
            code = 1;
        }
        if (code != 0) throw CLI::RuntimeError(code);
    });
}

}  // namespace txcli
