// txscan: the command line for the txscanmd functions.
#include <iostream>

#include "cli/commands.h"
#include "cli/rng/rng_command.h"

int main(int argc, char** argv) {
    CLI::App app{"txscan: character-based string functions of the txscanmd module"};
    app.require_subcommand(1);
    // A refusal is one line; --help says the rest.
    app.failure_message([](const CLI::App*, const CLI::Error& e) { return "txscan: " + std::string(e.what()) + "\n"; });
    txcli::addInfoCommand(app);
    txcli::addEvalCommand(app);
    txcli::addApplyCommand(app);
#ifdef TXSCAN_HAVE_DUCKDB
    txcli::addSqlCommand(app);
#endif
    txcli::addRngCommand(app);
    try {
        app.parse(argc, argv);
    } catch (const CLI::RuntimeError& e) {
        return e.get_exit_code();
    } catch (const CLI::ParseError& e) {
        const int code = app.exit(e);
        return code == 0 ? 0 : txcli::kUsageError;
    }
    return 0;
}
