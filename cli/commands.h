// The subcommands of txscan; each registers itself on the application.
#pragma once

#include <CLI/CLI.hpp>

#include <cstdint>

namespace txcli {

void addInfoCommand(CLI::App& app);
void addEvalCommand(CLI::App& app);
void addApplyCommand(CLI::App& app);

// Exit code of a command that was refused (bad syntax, unknown function or
// encoding, wrong argument count).
inline constexpr int kUsageError = 2;

// The longest variable a KSCANX result may be given (--length): far above
// any real text, and low enough that one per worker always fits in memory.
inline constexpr std::int64_t kMaxResultLength = std::int64_t{1} << 24;

}  // namespace txcli
