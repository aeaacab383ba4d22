// The CSV reader on a thread of its own, one batch ahead of the evaluation,
// so that parsing overlaps the engine's work and the writing of the output.
#pragma once

#include <array>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>

#include "cli/apply/csv_reader.h"

namespace txcli {

class BatchPipe {
public:
    BatchPipe(CsvReader& reader, std::int64_t maxRows, std::int64_t maxBytes, bool skipBad);
    ~BatchPipe();
    BatchPipe(const BatchPipe&) = delete;
    BatchPipe& operator=(const BatchPipe&) = delete;

    // The next batch (the pipe's own, valid until the next call), or null at
    // the end of the input; rethrows the reader's error where it stopped.
    const CsvBatch* next();
    // Input bytes read up to the end of the last batch returned.
    std::int64_t bytesRead() const { return bytesRead_; }

private:
    struct Slot {
        CsvBatch batch;
        bool full = false;            // written by the reader, not yet handed back
        std::int64_t bytesRead = 0;
    };
    void readAhead(CsvReader& reader, std::int64_t maxRows, std::int64_t maxBytes, bool skipBad);

    CsvReader& reader_;
    std::int64_t maxRows_;
    std::int64_t maxBytes_;
    bool skipBad_;
    std::array<Slot, 2> slots_;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool stopping_ = false;
    bool readerDone_ = false;
    std::exception_ptr readerError_;
    int nextSlot_ = 0;
    int heldSlot_ = -1;
    std::int64_t bytesRead_ = 0;
    std::thread thread_;   // not joinable: no thread could be had, next() reads in turn
};

}  // namespace txcli
