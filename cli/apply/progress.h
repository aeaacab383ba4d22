// The progress line of `txscan apply` on a terminal (rows done, MB/s,
// elapsed and remaining time) and the closing summary.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>

#include "cli/apply/evaluate.h"
#include "cli/apply/plan.h"

namespace txcli {

class Progress {
public:
    // Shown only when `show` and the input's size is known (totalBytes > 0).
    Progress(bool show, std::int64_t totalBytes);
    void update(std::int64_t rows, std::int64_t bytes);
    void finish();
    double elapsedSeconds() const;

private:
    bool show_;
    std::int64_t totalBytes_;
    std::chrono::steady_clock::time_point start_;
    std::chrono::steady_clock::time_point lastDrawn_;
    bool drawn_ = false;
};

struct SkippedRecords {
    std::int64_t count = 0;
    std::string firstReason;
};

void printSummary(std::FILE* to, const Plan& plan, const Tally& tally, const SkippedRecords& skipped, double seconds);

}  // namespace txcli
