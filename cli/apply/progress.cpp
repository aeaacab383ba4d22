// Redrawn at most five times a second on one line of standard error.
#include "cli/apply/progress.h"

#include <string>

#include "host/binder.h"
#include "host/host.h"

namespace txcli {

namespace {

std::string duration(double seconds) {
    const auto whole = static_cast<long long>(seconds + 0.5);
    char text[32];
    if (whole >= 3600) {
        std::snprintf(text, sizeof text, "%lldh%02lldm", whole / 3600, whole / 60 % 60);
    } else if (whole >= 60) {
        std::snprintf(text, sizeof text, "%lldm%02llds", whole / 60, whole % 60);
    } else {
        std::snprintf(text, sizeof text, "%llds", whole);
    }
    return text;
}

}  // namespace

Progress::Progress(bool show, std::int64_t totalBytes)
    : show_(show && totalBytes > 0), totalBytes_(totalBytes), start_(std::chrono::steady_clock::now()), lastDrawn_(start_) {}

double Progress::elapsedSeconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
}

void Progress::update(std::int64_t rows, std::int64_t bytes) {
    if (!show_) return;
    const auto now = std::chrono::steady_clock::now();
    if (now - lastDrawn_ < std::chrono::milliseconds(200)) return;
    lastDrawn_ = now;
    const double elapsed = std::chrono::duration<double>(now - start_).count();
    const double fraction = std::min(1.0, static_cast<double>(bytes) / static_cast<double>(totalBytes_));
    const double rate = elapsed > 0 ? static_cast<double>(bytes) / elapsed : 0;
    const double left = rate > 0 ? static_cast<double>(totalBytes_ - bytes) / rate : 0;
    constexpr int kBarWidth = 24;
    const int filled = static_cast<int>(fraction * kBarWidth);
    std::string bar(static_cast<std::size_t>(filled), '#');
    bar.resize(kBarWidth, '.');
    std::fprintf(stderr, "\r%lld rows  %.1f MB/s  elapsed %s  left %s  [%s] %3d%%\033[K", static_cast<long long>(rows),
                 rate / 1e6, duration(elapsed).c_str(), duration(left).c_str(), bar.c_str(),
                 static_cast<int>(fraction * 100));
    std::fflush(stderr);
    drawn_ = true;
}

void Progress::finish() {
    if (drawn_) std::fprintf(stderr, "\r\033[K");
    drawn_ = false;
}

void printSummary(std::FILE* to, const Plan& plan, const Tally& tally, const SkippedRecords& skipped, double seconds) {
    std::fprintf(to, "txscan apply: %lld rows in %.2f s", static_cast<long long>(tally.rows), seconds);
    if (seconds > 0 && tally.rows > 0) std::fprintf(to, " (%.0f rows/s)", static_cast<double>(tally.rows) / seconds);
    std::fprintf(to, "\n");
    if (skipped.count > 0) {
        std::fprintf(to, "  %lld malformed record%s left out; the first: %s\n", static_cast<long long>(skipped.count),
                     skipped.count == 1 ? "" : "s", skipped.firstReason.c_str());
    }
    for (std::size_t a = 0; a < plan.assignmentNames.size(); ++a) {
        std::string line;
        for (std::size_t c = 0; c < plan.columns.size(); ++c) {
            if (plan.steps[static_cast<std::size_t>(plan.columns[c].step)].assignment != static_cast<int>(a)) continue;
            line += (line.empty() ? "" : ", ") + plan.columns[c].name + ": " + std::to_string(tally.missing[c]) + " missing";
        }
        const AssignmentTally& counts = tally.assignments[a];
        for (const auto& [status, rows] : counts.statuses) {
            line += "; " + txhost::statusText(status) + " in " +
                    std::to_string(rows) + (rows == 1 ? " row" : " rows");
        }
        std::fprintf(to, "  %s\n", line.c_str());
        for (const auto& m : counts.messages) {
            std::fprintf(to, "    %s %d, %lld time%s, first in row %lld: %s\n", m.error ? "error" : "note", m.code,
                         static_cast<long long>(m.count), m.count == 1 ? "" : "s",
                         static_cast<long long>(m.firstRow + 1), m.text.c_str());
        }
    }
}

}  // namespace txcli
