// A fixed set of worker threads that share out numbered tasks: the row
// engine's split of a run into row ranges. The calling thread is worker 0,
// so a pool of one runs everything inline, with no thread at all.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace txengine {

class WorkerPool {
public:
    explicit WorkerPool(int workers);
    ~WorkerPool();
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    // The workers that run, the calling thread included: fewer than asked
    // for when the system refused a thread.
    int workers() const { return workers_; }
    // Calls work(worker, task) once for every task in [0, tasks), tasks taken
    // in increasing order by whichever worker is free, and returns when all
    // are done. The first exception a task throws is rethrown here (the
    // other tasks still run). One run at a time: callers take turns.
    void run(std::int64_t tasks, const std::function<void(int, std::int64_t)>& work);

private:
    void serve(int worker);
    void work(int worker);

    int workers_ = 1;
    std::vector<std::thread> threads_;
    std::mutex runMutex_;   // one run at a time

    std::mutex mutex_;
    std::condition_variable started_;
    std::condition_variable finished_;
    std::uint64_t generation_ = 0;   // a new run, under mutex_
    bool stopping_ = false;
    int busy_ = 0;                   // background workers still in this run
    const std::function<void(int, std::int64_t)>* job_ = nullptr;
    std::int64_t tasks_ = 0;
    std::int64_t next_ = 0;          // next task to hand out, under mutex_
    std::exception_ptr failure_;
};

}  // namespace txengine
