// A record is parsed in place in the read buffer: the scan jumps between the
// bytes that matter, fields are noted as spans, and only a complete record
// is copied into the batch. A record cut by the end of the buffer is moved
// to its front and parsed again once more input is in.
#include "cli/apply/csv_reader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace txcli {

namespace {

void appendBytes(LargeVector<char>& to, const char* begin, const char* end) { to.insert(to.end(), begin, end); }

}  // namespace

void CsvBatch::clear(std::size_t columnCount) {
    rows = 0;
    columns.resize(columnCount);
    for (auto& column : columns) column.views.clear();
    unescaped.clear();
    // `text` stays: the reader swaps it for its buffer and reads into it.
    recordBegin.clear();
    recordEnd.clear();
}

CsvReader::CsvReader(std::FILE* input, CsvBytes bytes, std::size_t bufferBytes)
    : input_(input), bytes_(bytes), scan_(bytes), buffer_(std::max<std::size_t>(bufferBytes, 64)) {}

// Moves the unparsed rest to the front and reads more behind it (the buffer
// grows only for a record longer than itself); false at the end of input.
bool CsvReader::fill() {
    if (eof_) return false;
    if (keepBuffer_) {
        // Records of the batch are in the buffer: nothing may move but the
        // buffer as a whole (only a skipped bad line gets here).
        if (length_ == buffer_.size()) {
            const char* old = buffer_.data();
            buffer_.resize(buffer_.size() * 2);
            moveViews(old, old + length_, buffer_.data());
        }
    } else if (pos_ > 0) {
        std::memmove(buffer_.data(), buffer_.data() + pos_, length_ - pos_);
        length_ -= pos_;
        pos_ = 0;
    }
    if (length_ == buffer_.size()) {
        const char* old = buffer_.data();
        buffer_.resize(buffer_.size() * 2);
        if (keepBuffer_) moveViews(old, old + length_, buffer_.data());
    }
    const std::size_t got = std::fread(buffer_.data() + length_, 1, buffer_.size() - length_, input_);
    // The scan restarts at every fill: the bytes moved, and parsing goes back
    // to the start of a cut record.
    if (got == 0) {
        if (std::ferror(input_)) throw CsvError(std::string("cannot read the input: ") + std::strerror(errno));
        eof_ = true;
        scan_.reset(buffer_.data() + pos_, buffer_.data() + length_);
        return false;
    }
    length_ += got;
    scan_.reset(buffer_.data() + pos_, buffer_.data() + length_);
    return true;
}

CsvReader::Parse CsvReader::fault(const char* at, const std::string& what) {
    faultAt_ = at;
    faultText_ = what;
    return Parse::Fault;
}

CsvReader::Parse CsvReader::parseRecord() {
    const char* const start = buffer_.data() + pos_;
    const char* const end = buffer_.data() + length_;
    const char separator = bytes_.separator;
    const char quote = bytes_.quote;
    const char escape = static_cast<char>(bytes_.escape);
    const bool escapes = bytes_.escape >= 0;
    fields_.clear();
    recordLines_ = 0;
    // Any kind of line end here ends a blank line, which is no record.
    if (start == end) return eof_ ? Parse::End : Parse::More;
    if (*start == '\n' || *start == '\r') {
        if (*start == '\r' && start + 1 == end && !eof_) return Parse::More;
        recordEnd_ = start + (*start == '\r' && start + 1 < end && start[1] == '\n' ? 2 : 1);
        return Parse::Blank;
    }
    const auto more = [&]() {
        if (static_cast<std::size_t>(end - start) >= kMaxRecordBytes) {
            return fault(end, "a record longer than " + std::to_string(kMaxRecordBytes >> 20) +
                                  " MiB (a quoted field left open?)");
        }
        return Parse::More;
    };
    const char* p = start;
    for (;;) {   // one field a turn, p at its first byte
        // Built where it is kept: a copy made at the end stalled on its
        // freshly written bytes (store forwarding) longer than the scan took.
        Field& field = fields_.emplace_back();
        field.begin = field.end = p;
        if (p < end && *p == quote) {
            field.quoted = true;
            const char* q = p + 1;
            for (;;) {
                q = scan_.next(q);
                if (q == end) {
                    if (!eof_) return more();
                    return fault(q, "a quoted field is still open at the end of the input");
                }
                const char c = *q;
                if (c == quote) {
                    if (q + 1 == end && !eof_) return more();
                    if (q + 1 == end || q[1] != quote) break;
                    field.escaped = true;
                    q += 2;
                } else if (escapes && c == escape) {
                    if (q + 1 == end) return eof_ ? fault(q, "an escape byte at the end of the input") : more();
                    field.escaped = true;
                    q += 2;
                } else if (c == '\r') {
                    if (q + 1 == end && !eof_) return more();
                    ++recordLines_;
                    q += q + 1 < end && q[1] == '\n' ? 2 : 1;
                } else {
                    recordLines_ += c == '\n';
                    ++q;
                }
            }
            field.begin = p + 1;
            field.end = q;
            p = q + 1;
            if (p < end && *p != separator && *p != '\n' && *p != '\r') {
                return fault(p, "text after a closing quote on line " + std::to_string(line_ + recordLines_));
            }
        } else {
            const char* q = scan_.next(p);
            while (escapes && q < end && *q == escape) {
                if (q + 1 == end) return eof_ ? fault(q, "an escape byte at the end of the input") : more();
                field.escaped = true;
                q = scan_.next(q + 2);
            }
            if (q < end && *q == quote) {
                return fault(q, "a quote inside an unquoted field on line " + std::to_string(line_ + recordLines_));
            }
            field.end = q;
            p = q;
        }
        if (static_cast<std::size_t>(field.end - field.begin) > kMaxFieldBytes) {
            return fault(p, "a field longer than " + std::to_string(kMaxFieldBytes >> 20) + " MiB");
        }
        if (p == end) {
            if (!eof_) return more();
            contentEnd_ = recordEnd_ = end;
            return Parse::Record;
        }
        if (*p == separator) {
            ++p;
            continue;
        }
        contentEnd_ = p;
        if (*p == '\r') {
            if (p + 1 == end && !eof_) return more();
            p += p + 1 < end && p[1] == '\n' ? 2 : 1;
        } else {
            ++p;
        }
        ++recordLines_;
        recordEnd_ = p;
        return Parse::Record;
    }
}

void CsvReader::consume(const char* to) {
    const auto used = static_cast<std::size_t>(to - (buffer_.data() + pos_));
    pos_ += used;
    bytesRead_ += static_cast<std::int64_t>(used);
}

// After a fault: the record ends at the next line end, quotes or not.
void CsvReader::skipLine() {
    for (;;) {
        const char* p = buffer_.data() + pos_;
        const char* const end = buffer_.data() + length_;
        while (p < end && *p != '\n' && *p != '\r') ++p;
        if (p == end) {
            consume(p);
            if (!fill()) return;
            continue;
        }
        if (*p == '\r' && p + 1 == end && !eof_) {
            consume(p);
            if (fill()) continue;
            p = buffer_.data() + pos_;
        }
        const bool crlf = *p == '\r' && p + 1 < buffer_.data() + length_ && p[1] == '\n';
        ++line_;
        consume(p + (crlf ? 2 : 1));
        return;
    }
}

void CsvReader::appendField(LargeVector<char>& to, const Field& field) const {
    if (!field.escaped) {
        appendBytes(to, field.begin, field.end);
        return;
    }
    // The parse paired every doubled quote and escape with the byte after it.
    for (const char* c = field.begin; c < field.end; ++c) {
        if ((bytes_.escape >= 0 && *c == static_cast<char>(bytes_.escape)) || (field.quoted && *c == bytes_.quote)) ++c;
        to.push_back(*c);
    }
}

// The batch's views of bytes that moved from [from, to) to `moved` follow
// them.
void CsvReader::moveViews(const char* from, const char* to, const char* moved) {
    if (filling_ == nullptr || from == moved) return;
    for (CsvColumn& column : filling_->columns) {
        for (txengine::TextView& view : column.views) {
            if (view.data >= from && view.data < to) view.data = moved + (view.data - from);
        }
    }
}

void CsvReader::takeRecord(CsvBatch* batch) {
    ++recordNumber_;
    if (readingHeader_) {
        for (const Field& field : fields_) {
            LargeVector<char> name;
            appendField(name, field);
            header_.emplace_back(name.begin(), name.end());
        }
        crlf_ = contentEnd_ + 2 == recordEnd_;
        readingHeader_ = false;
    } else if (fields_.size() != header_.size()) {
        if (pendingFault_.empty()) {
            pendingFault_ = "record " + std::to_string(recordNumber_) + " (line " + std::to_string(line_) +
                            "): " + std::to_string(fields_.size()) + (fields_.size() == 1 ? " field" : " fields") +
                            " where the header has " + std::to_string(header_.size());
        }
    } else {
        for (std::size_t c = 0; c < fields_.size(); ++c) {
            if (!wanted_.empty() && !wanted_[c]) continue;
            const Field& field = fields_[c];
            if (!field.escaped) {
                batch->columns[c].views.push_back({field.begin, field.end - field.begin});
                continue;
            }
            LargeVector<char>& out = batch->unescaped;
            const std::size_t at = out.size();
            if (out.capacity() - at < static_cast<std::size_t>(field.end - field.begin)) {
                const char* old = out.data();
                out.reserve(std::max(2 * out.capacity(), at + static_cast<std::size_t>(field.end - field.begin)));
                moveViews(old, old + at, out.data());
            }
            appendField(out, field);
            batch->columns[c].views.push_back({out.data() + at, static_cast<std::int64_t>(out.size() - at)});
        }
        batch->recordBegin.push_back(static_cast<std::int64_t>(pos_));
        batch->recordEnd.push_back(contentEnd_ - buffer_.data());
        batchBytes_ += recordEnd_ - (buffer_.data() + pos_);
        ++batch->rows;
        keepBuffer_ = true;
    }
    line_ += recordLines_;
    consume(recordEnd_);
}

// Reads one record or blank line into `batch`. A record cut by the end of
// the buffer ends the batch, so the buffer can go to the batch as it is.
CsvReader::Step CsvReader::step(CsvBatch* batch, bool skipBad) {
    switch (parseRecord()) {
        case Parse::End:
            return Step::End;
        case Parse::More:
            if (keepBuffer_ && length_ == buffer_.size()) return Step::BatchFull;
            fill();
            return Step::Next;
        case Parse::Blank:
            ++line_;
            consume(recordEnd_);
            return Step::Next;
        case Parse::Record:
            takeRecord(batch);
            break;
        case Parse::Fault: {
            ++recordNumber_;
            if (pendingFault_.empty()) {
                pendingFault_ =
                    "record " + std::to_string(recordNumber_) + " (line " + std::to_string(line_) + "): " + faultText_;
            }
            // Lines up to the fault, then on to the end of its line.
            const char* p = buffer_.data() + pos_;
            for (; p < faultAt_; ++p) {
                if (*p == '\n' || (*p == '\r' && !(p + 1 < faultAt_ && p[1] == '\n'))) ++line_;
            }
            consume(faultAt_);
            skipLine();
            break;
        }
    }
    settleFault(skipBad);
    return Step::Next;
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
    while (length_ - pos_ < 3 && fill()) {
    }
    if (length_ - pos_ >= 3 && std::memcmp(buffer_.data() + pos_, "\xEF\xBB\xBF", 3) == 0) {
        consume(buffer_.data() + pos_ + 3);
    }
    while (readingHeader_) {
        if (step(nullptr, false) == Step::End) throw CsvError("the input is empty: no header row");
    }
    return header_;
}

bool CsvReader::read(CsvBatch& batch, std::int64_t maxRows, std::int64_t maxBytes, bool skipBad) {
    batch.clear(header_.size());
    // Cells taken out of escapes are never longer than the records.
    batch.unescaped.reserve(buffer_.size());
    batchBytes_ = 0;
    filling_ = &batch;
    while (!finished_ && batch.rows < maxRows && batchBytes_ < maxBytes) {
        const Step next = step(&batch, skipBad);
        if (next == Step::End) finished_ = true;
        if (next == Step::BatchFull) break;
    }
    filling_ = nullptr;
    // The buffer goes to the batch (moved whole, so the views stay good);
    // the batch's old one, with the unparsed rest copied to its front, is
    // read into next.
    if (keepBuffer_) {
        LargeVector<char> next = std::move(batch.text);
        next.resize(buffer_.size());
        const std::size_t rest = length_ - pos_;
        if (rest != 0) std::memcpy(next.data(), buffer_.data() + pos_, rest);
        batch.text = std::move(buffer_);
        buffer_ = std::move(next);
        pos_ = 0;
        length_ = rest;
        keepBuffer_ = false;
        scan_.reset(buffer_.data(), buffer_.data() + length_);
    }
    return batch.rows > 0;
}

}  // namespace txcli
