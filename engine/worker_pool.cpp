// Workers sleep on a condition variable between runs and take tasks one at a
// time under the pool's lock: a task is thousands of rows, so the lock is
// taken a few hundred times per million rows.
#include "engine/worker_pool.h"

namespace txengine {

// A system short of threads or memory (a pids limit, an address-space limit)
// may refuse a thread: the pool then runs on the threads it got. Throwing
// instead would leave the started workers waiting on members being unwound.
WorkerPool::WorkerPool(int workers) {
    const int wanted = workers < 1 ? 1 : workers;
    try {
        threads_.reserve(static_cast<std::size_t>(wanted - 1));
        for (int w = 1; w < wanted; ++w) threads_.emplace_back([this, w] { serve(w); });
    } catch (...) {
    }
    workers_ = static_cast<int>(threads_.size()) + 1;
}

WorkerPool::~WorkerPool() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    started_.notify_all();
    for (std::thread& t : threads_) t.join();
}

void WorkerPool::run(std::int64_t tasks, const std::function<void(int, std::int64_t)>& work) {
    std::lock_guard<std::mutex> turn(runMutex_);
    {
        std::lock_guard<std::mutex> lock(mutex_);
        job_ = &work;
        tasks_ = tasks;
        next_ = 0;
        failure_ = nullptr;
        busy_ = workers_ - 1;
        ++generation_;
    }
    started_.notify_all();
    this->work(0);
    std::unique_lock<std::mutex> lock(mutex_);
    finished_.wait(lock, [this] { return busy_ == 0; });
    job_ = nullptr;
    if (failure_) std::rethrow_exception(failure_);
}

void WorkerPool::serve(int worker) {
    std::uint64_t seen = 0;
    for (;;) {
        {
            std::unique_lock<std::mutex> lock(mutex_);
            started_.wait(lock, [&] { return stopping_ || generation_ != seen; });
            if (stopping_) return;
            seen = generation_;
        }
        work(worker);
        {
            std::lock_guard<std::mutex> lock(mutex_);
            --busy_;
        }
        finished_.notify_one();
    }
}

void WorkerPool::work(int worker) {
    for (;;) {
        std::int64_t task = 0;
        const std::function<void(int, std::int64_t)>* job = nullptr;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (next_ >= tasks_) return;
            task = next_++;
            job = job_;
        }
        try {
            (*job)(worker, task);
        } catch (...) {
            std::lock_guard<std::mutex> lock(mutex_);
            if (!failure_) failure_ = std::current_exception();
        }
    }
}

}  // namespace txengine
