// The subcommands of txscan; each registers itself on the application.
#pragma once

#include <CLI/CLI.hpp>

namespace txcli {

void addInfoCommand(CLI::App& app);
void addEvalCommand(CLI::App& app);
void addApplyCommand(CLI::App& app);
// Built where DuckDB is at hand (TXSCAN_HAVE_DUCKDB).
void addSqlCommand(CLI::App& app);

// Exit code of a command that was refused (bad syntax, unknown function or
// encoding, wrong argument count).
inline constexpr int kUsageError = 2;

}  // namespace txcli
