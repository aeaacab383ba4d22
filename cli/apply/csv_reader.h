// CSV input of `txscan apply`: RFC 4180 records (a header row, quoted fields
// with embedded commas, quotes and newlines; lines end with LF, CRLF or a
// bare CR) read through libcsv into column batches, the bytes of every field
// kept as they are in the file.
#pragma once

#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

struct csv_parser;

namespace txcli {

// One column of a batch in the engine's text layout: row i is
// bytes[offsets[i], offsets[i + 1]).
struct CsvColumn {
    std::vector<std::int64_t> offsets{0};
    std::vector<char> bytes;
};

// A run of consecutive good records. Cleared, not freed, between batches so
// that a long input streams through the same memory.
struct CsvBatch {
    std::int64_t rows = 0;
    std::vector<CsvColumn> columns;
    void clear(std::size_t columnCount);
    std::int64_t byteSize() const;
};

// A malformed record, or input that is not CSV at all; the text names the
// record and its line.
struct CsvError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class CsvReader {
public:
    explicit CsvReader(std::FILE* input);
    ~CsvReader();
    CsvReader(const CsvReader&) = delete;
    CsvReader& operator=(const CsvReader&) = delete;

    // The first record. Throws CsvError on empty or malformed input.
    std::vector<std::string> readHeader();
    // Fills `batch` with the next records, at most `maxRows` of them and
    // about `maxBytes` of field text; false when the input is done. A
    // malformed record throws CsvError, or with `skipBad` is counted and left
    // out.
    bool read(CsvBatch& batch, std::int64_t maxRows, std::int64_t maxBytes, bool skipBad);

    std::int64_t bytesRead() const { return bytesRead_; }
    std::int64_t skippedRecords() const { return skipped_; }
    std::int64_t firstSkippedRecord() const { return firstSkipped_; }
    const std::string& firstSkipReason() const { return firstSkipReason_; }
    // The line end of the input's first record, so output keeps the same.
    const char* lineEnd() const { return crlf_ ? "\r\n" : "\n"; }

    // A field (a quoted one left open, most likely) longer than this stops the
    // run instead of swallowing the rest of the input into memory.
    static constexpr std::size_t kMaxFieldBytes = std::size_t{16} << 20;

private:
    static void onField(void* data, std::size_t length, void* self);
    static void onRecordEnd(int terminator, void* self);
    void resetParser();
    void rollBackRecord();
    void fault(const std::string& what);
    // Feeds the parser up to the end of the next line; false at the end of input.
    bool feedLine();
    void finishInput();
    void settleFault(bool skipBad);

    std::FILE* input_;
    csv_parser* parser_;
    std::vector<char> buffer_;
    std::size_t bufferPos_ = 0;
    std::size_t bufferLength_ = 0;
    bool inputDone_ = false;
    bool finished_ = false;
    bool skipToLineEnd_ = false;

    std::int64_t bytesRead_ = 0;
    std::int64_t line_ = 1;            // line of the next byte fed
    std::int64_t recordNumber_ = 0;    // records ended so far, the header included
    std::int64_t recordLine_ = 1;      // first line of the record being read
    bool recordOpen_ = false;
    std::size_t fieldCount_ = 0;       // fields of the record being read
    bool crlf_ = false;
    bool lineEndsCrlf_ = false;        // the line being fed ends with CRLF
    bool afterCr_ = false;             // the last block ended with a CR
    std::int64_t batchBytes_ = 0;
    bool sawFirstRecord_ = false;

    bool readingHeader_ = true;
    std::vector<std::string> header_;
    CsvBatch* batch_ = nullptr;
    std::size_t columnCount_ = 0;

    std::string pendingFault_;
    std::int64_t skipped_ = 0;
    std::int64_t firstSkipped_ = 0;
    std::string firstSkipReason_;
};

}  // namespace txcli
