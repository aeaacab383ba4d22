// Two batches take turns: the reader fills one while the caller works on the
// other, so memory stays at two batches whatever the input's length.
#include "cli/apply/batch_pipe.h"

namespace txcli {

BatchPipe::BatchPipe(CsvReader& reader, std::int64_t maxRows, std::int64_t maxBytes, bool skipBad)
    : reader_(reader), maxRows_(maxRows), maxBytes_(maxBytes), skipBad_(skipBad) {
    // A system that refuses the thread gets the same batches read in turn.
    try {
        thread_ = std::thread([this] { readAhead(reader_, maxRows_, maxBytes_, skipBad_); });
    } catch (const std::system_error&) {
    }
}

BatchPipe::~BatchPipe() {
    if (!thread_.joinable()) return;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

void BatchPipe::readAhead(CsvReader& reader, std::int64_t maxRows, std::int64_t maxBytes, bool skipBad) {
    for (int slot = 0;; slot ^= 1) {
        {
            std::unique_lock<std::mutex> lock(mutex_);
            changed_.wait(lock, [&] { return stopping_ || !slots_[static_cast<std::size_t>(slot)].full; });
            if (stopping_) return;
        }
        Slot& filling = slots_[static_cast<std::size_t>(slot)];
        bool more = false;
        std::exception_ptr error;
        try {
            more = reader.read(filling.batch, maxRows, maxBytes, skipBad);
        } catch (...) {
            error = std::current_exception();
        }
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (more) {
                filling.full = true;
                filling.bytesRead = reader.bytesRead();
            } else {
                readerDone_ = true;
                readerError_ = error;
            }
        }
        changed_.notify_all();
        if (!more) return;
    }
}

const CsvBatch* BatchPipe::next() {
    if (!thread_.joinable()) {
        Slot& slot = slots_[0];
        if (readerDone_ || !reader_.read(slot.batch, maxRows_, maxBytes_, skipBad_)) {
            readerDone_ = true;
            return nullptr;
        }
        bytesRead_ = reader_.bytesRead();
        return &slot.batch;
    }
    std::unique_lock<std::mutex> lock(mutex_);
    if (heldSlot_ >= 0) {
        slots_[static_cast<std::size_t>(heldSlot_)].full = false;
        heldSlot_ = -1;
        changed_.notify_all();
    }
    Slot& slot = slots_[static_cast<std::size_t>(nextSlot_)];
    changed_.wait(lock, [&] { return slot.full || readerDone_; });
    if (!slot.full) {
        if (readerError_) std::rethrow_exception(readerError_);
        return nullptr;
    }
    heldSlot_ = nextSlot_;
    nextSlot_ ^= 1;
    bytesRead_ = slot.bytesRead;
    return &slot.batch;
}

}  // namespace txcli
