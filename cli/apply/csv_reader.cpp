// libcsv does the parsing; this file feeds it one line at a time so that every
// record can be named by its first line, and turns its callbacks into column
// batches. Faults are noted in the callbacks and raised after libcsv returns,
// so no exception crosses the C library.
#include "cli/apply/csv_reader.h"

#include <csv.h>

#include <cerrno>
#include <cstring>

namespace txcli {

namespace {

constexpr unsigned char kParserOptions = CSV_STRICT | CSV_STRICT_FINI;
constexpr std::size_t kReadBlock = std::size_t{1} << 20;

// Blanks belong to the field (libcsv trims them unless told otherwise).
int noBlanks(unsigned char) { return 0; }

void appendBytes(std::vector<char>& to, const void* data, std::size_t length) {
    const std::size_t at = to.size();
    to.resize(at + length);
    if (length != 0) std::memcpy(to.data() + at, data, length);
}

}  // namespace

void CsvBatch::clear(std::size_t columnCount) {
    rows = 0;
    columns.resize(columnCount);
    for (auto& column : columns) {
        column.offsets.assign(1, 0);
        column.bytes.clear();
    }
}

std::int64_t CsvBatch::byteSize() const {
    std::int64_t size = 0;
    for (const auto& column : columns) size += static_cast<std::int64_t>(column.bytes.size());
    return size;
}

CsvReader::CsvReader(std::FILE* input) : input_(input), parser_(new csv_parser), buffer_(kReadBlock) {
    csv_init(parser_, kParserOptions);
    csv_set_space_func(parser_, noBlanks);
    csv_set_blk_size(parser_, 4096);
}

CsvReader::~CsvReader() {
    csv_free(parser_);
    delete parser_;
}

void CsvReader::resetParser() {
    csv_free(parser_);
    csv_init(parser_, kParserOptions);
    csv_set_space_func(parser_, noBlanks);
    csv_set_blk_size(parser_, 4096);
}

void CsvReader::onField(void* data, std::size_t length, void* selfPointer) {
    auto& self = *static_cast<CsvReader*>(selfPointer);
    const std::size_t index = self.fieldCount_++;
    if (self.readingHeader_) {
        self.header_.emplace_back(static_cast<const char*>(data), length);
    } else if (self.batch_ != nullptr && index < self.columnCount_) {
        CsvColumn& column = self.batch_->columns[index];
        appendBytes(column.bytes, data, length);
        column.offsets.push_back(static_cast<std::int64_t>(column.bytes.size()));
        self.batchBytes_ += static_cast<std::int64_t>(length);
    }
}

void CsvReader::onRecordEnd(int terminator, void* selfPointer) {
    auto& self = *static_cast<CsvReader*>(selfPointer);
    if (!self.sawFirstRecord_) {
        self.sawFirstRecord_ = true;
        self.crlf_ = terminator == '\r' && self.lineEndsCrlf_;
    }
    ++self.recordNumber_;
    if (self.readingHeader_) {
        self.readingHeader_ = false;
        self.columnCount_ = self.header_.size();
    } else if (self.fieldCount_ != self.columnCount_) {
        self.fault(std::to_string(self.fieldCount_) + (self.fieldCount_ == 1 ? " field" : " fields") +
                   " where the header has " + std::to_string(self.columnCount_));
        self.rollBackRecord();
    } else {
        ++self.batch_->rows;
    }
    self.fieldCount_ = 0;
    self.recordOpen_ = false;
}

void CsvReader::fault(const std::string& what) {
    if (pendingFault_.empty()) {
        pendingFault_ = "record " + std::to_string(recordNumber_) + " (line " + std::to_string(recordLine_) + "): " + what;
    }
}

void CsvReader::rollBackRecord() {
    if (batch_ == nullptr) return;
    const auto rows = static_cast<std::size_t>(batch_->rows);
    batchBytes_ = 0;
    for (auto& column : batch_->columns) {
        column.offsets.resize(rows + 1);
        column.bytes.resize(static_cast<std::size_t>(column.offsets[rows]));
        batchBytes_ += static_cast<std::int64_t>(column.bytes.size());
    }
}

bool CsvReader::feedLine() {
    if (bufferPos_ == bufferLength_) {
        if (inputDone_) return false;
        bufferLength_ = std::fread(buffer_.data(), 1, buffer_.size(), input_);
        bufferPos_ = 0;
        if (bufferLength_ == 0) {
            if (std::ferror(input_)) throw CsvError(std::string("cannot read the input: ") + std::strerror(errno));
            inputDone_ = true;
            return false;
        }
    }
    const char* begin = buffer_.data() + bufferPos_;
    const std::size_t available = bufferLength_ - bufferPos_;
    // The LF of a CRLF whose CR ended the previous block ends no line of its own.
    const bool restOfCrlf = afterCr_ && begin[0] == '\n';
    afterCr_ = false;
    // A line ends at LF, CRLF or a bare CR, on every line alike: files from
    // old Macs end lines with CR, and Python's csv module and libcsv read
    // them so; taking CR as a line end only on some lines changes data.
    const char* newline = restOfCrlf ? begin : nullptr;
    for (std::size_t i = 0; newline == nullptr && i < available; ++i) {
        if (begin[i] == '\n' || begin[i] == '\r') newline = begin + i;
    }
    lineEndsCrlf_ = false;
    if (newline != nullptr && *newline == '\r') {
        if (newline + 1 < begin + available) {
            lineEndsCrlf_ = newline[1] == '\n';
            newline += lineEndsCrlf_ ? 1 : 0;
        } else {
            afterCr_ = true;
        }
    }
    const std::size_t length = newline != nullptr ? static_cast<std::size_t>(newline - begin) + 1 : available;
    bufferPos_ += length;
    bytesRead_ += static_cast<std::int64_t>(length);
    if (restOfCrlf) {
        csv_parse(parser_, begin, length, onField, onRecordEnd, this);
        return true;
    }
    if (skipToLineEnd_) {
        skipToLineEnd_ = newline == nullptr;
        if (newline != nullptr) ++line_;
        return true;
    }
    if (!recordOpen_) {
        for (std::size_t i = 0; i < length; ++i) {
            if (begin[i] != '\n' && begin[i] != '\r') {
                recordOpen_ = true;
                recordLine_ = line_;
                break;
            }
        }
    }
    const std::size_t parsed = csv_parse(parser_, begin, length, onField, onRecordEnd, this);
    const bool badQuoting = parsed < length;
    if (badQuoting || parser_->entry_pos > kMaxFieldBytes) {
        ++recordNumber_;
        fault(badQuoting ? "a quote inside an unquoted field, or text after a closing quote, on line " +
                               std::to_string(line_)
                         : "a field longer than " + std::to_string(kMaxFieldBytes >> 20) +
                               " MiB (a quoted field left open?)");
        rollBackRecord();
        resetParser();
        recordOpen_ = false;
        fieldCount_ = 0;
        skipToLineEnd_ = newline == nullptr;
    }
    if (newline != nullptr) ++line_;
    return true;
}

void CsvReader::finishInput() {
    if (finished_) return;
    finished_ = true;
    if (csv_fini(parser_, onField, onRecordEnd, this) != 0) {
        ++recordNumber_;
        fault("a quoted field is still open at the end of the input");
        rollBackRecord();
    }
}

void CsvReader::settleFault(bool skipBad) {
    if (pendingFault_.empty()) return;
    if (!skipBad || readingHeader_) throw CsvError(pendingFault_);
    if (skipped_++ == 0) {
        firstSkipped_ = recordNumber_;
        firstSkipReason_ = pendingFault_;
    }
    pendingFault_.clear();
}

std::vector<std::string> CsvReader::readHeader() {
    while (readingHeader_) {
        if (!feedLine()) {
            finishInput();
            if (readingHeader_) {
                settleFault(false);
                throw CsvError("the input is empty: no header row");
            }
        }
        settleFault(false);
    }
    return header_;
}

bool CsvReader::read(CsvBatch& batch, std::int64_t maxRows, std::int64_t maxBytes, bool skipBad) {
    batch.clear(columnCount_);
    batch_ = &batch;
    batchBytes_ = 0;
    if (finished_) return false;
    while (recordOpen_ || (batch.rows < maxRows && batchBytes_ < maxBytes)) {
        if (!feedLine()) {
            finishInput();
            settleFault(skipBad);
            break;
        }
        settleFault(skipBad);
    }
    return batch.rows > 0;
}

}  // namespace txcli
