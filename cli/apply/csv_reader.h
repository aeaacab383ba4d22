// CSV input of `txscan apply`: RFC 4180 records (a header row, quoted fields
// with embedded separators, quotes and line ends; lines end with LF, CRLF or a
// bare CR) read into column batches, the bytes of every field kept as they
// are in the file. Optionally an escape byte (`\"`) besides doubled quotes.
#pragma once

#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include "cli/apply/csv_scan.h"
#include "cli/apply/large_pages.h"
#include "engine/engine.h"

namespace txcli {

// One column of a batch: row i's cell as a view of its bytes, in the batch's
// `text` where the cell needs no unescaping, else in its `unescaped`.
struct CsvColumn {
    LargeVector<txengine::TextView> views;
};

// A run of consecutive good records. Cleared, not freed, between batches so
// that a long input streams through the same memory.
struct CsvBatch {
    std::int64_t rows = 0;
    std::vector<CsvColumn> columns;   // the columns the reader was asked for; the others stay empty
    // Each record's text as in the input, its line end left out: row i is
    // text[recordBegin[i], recordEnd[i]). `text` is the read buffer the
    // records were parsed in, handed over whole: neither a record nor a
    // cell is copied.
    LargeVector<char> text;
    LargeVector<std::int64_t> recordBegin;
    LargeVector<std::int64_t> recordEnd;
    // Cells with doubled quotes or escape bytes, taken out.
    LargeVector<char> unescaped;
    void clear(std::size_t columnCount);
};

// A malformed record, or input that is not CSV at all; the text names the
// record and its line.
struct CsvError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class CsvReader {
public:
    // A batch's records come from one read buffer of `bufferBytes` (more
    // for a longer record).
    explicit CsvReader(std::FILE* input, CsvBytes bytes = {}, std::size_t bufferBytes = std::size_t{1} << 20);
    CsvReader(const CsvReader&) = delete;
    CsvReader& operator=(const CsvReader&) = delete;

    // The first record, a UTF-8 byte-order mark before it left out. Throws
    // CsvError on empty or malformed input.
    std::vector<std::string> readHeader();
    // The columns that batches fill (by default all of them).
    void readColumns(std::vector<bool> wanted) { wanted_ = std::move(wanted); }
    // Fills `batch` with the next records, at most `maxRows` of them and
    // about `maxBytes` of text; false when the input is done. A malformed
    // record throws CsvError, or with `skipBad` is counted and left out.
    bool read(CsvBatch& batch, std::int64_t maxRows, std::int64_t maxBytes, bool skipBad);

    std::int64_t bytesRead() const { return bytesRead_; }
    std::int64_t skippedRecords() const { return skipped_; }
    std::int64_t firstSkippedRecord() const { return firstSkipped_; }
    const std::string& firstSkipReason() const { return firstSkipReason_; }
    // The line end of the input's first record (CRLF, or LF for LF and a
    // bare CR), so output keeps the same.
    const char* lineEnd() const { return crlf_ ? "\r\n" : "\n"; }

    // A field (a quoted one left open, most likely) longer than this stops the
    // record instead of swallowing the rest of the input into memory.
    static constexpr std::size_t kMaxFieldBytes = std::size_t{16} << 20;
    static constexpr std::size_t kMaxRecordBytes = std::size_t{64} << 20;

private:
    struct Field {
        const char* begin;
        const char* end;
        bool quoted;
        bool escaped;   // holds doubled quotes or escape bytes to take out
    };
    enum class Parse { Record, Blank, More, End, Fault };
    enum class Step { Next, BatchFull, End };

    Parse parseRecord();
    Parse fault(const char* at, const std::string& what);
    bool fill();
    void skipLine();
    void consume(const char* to);
    void appendField(LargeVector<char>& to, const Field& field) const;
    void takeRecord(CsvBatch* batch);
    void moveViews(const char* from, const char* to, const char* moved);
    void settleFault(bool skipBad);
    Step step(CsvBatch* batch, bool skipBad);

    std::FILE* input_;
    CsvBytes bytes_;
    CsvScan scan_;
    LargeVector<char> buffer_;
    std::size_t pos_ = 0;      // the next record's first byte
    std::size_t length_ = 0;
    bool eof_ = false;
    bool finished_ = false;

    // The record parsed last.
    std::vector<Field> fields_;
    const char* contentEnd_ = nullptr;
    const char* recordEnd_ = nullptr;
    std::int64_t recordLines_ = 0;       // line ends inside the record and ending it
    const char* faultAt_ = nullptr;
    std::string faultText_;

    std::int64_t bytesRead_ = 0;
    std::int64_t line_ = 1;              // line of the byte at pos_
    std::int64_t recordNumber_ = 0;      // records so far, the header included
    bool crlf_ = false;
    bool readingHeader_ = true;
    std::vector<std::string> header_;
    std::vector<bool> wanted_;
    std::int64_t batchBytes_ = 0;
    bool keepBuffer_ = false;            // the buffer holds records of the batch being read
    CsvBatch* filling_ = nullptr;        // the batch being read, whose views point into the buffer

    std::string pendingFault_;
    std::int64_t skipped_ = 0;
    std::int64_t firstSkipped_ = 0;
    std::string firstSkipReason_;
};

}  // namespace txcli
