// `txscan rng`: numbers from a random stream of the module's library.
#pragma once

#include <CLI/CLI.hpp>

namespace txcli {

void addRngCommand(CLI::App& app);

}  // namespace txcli
