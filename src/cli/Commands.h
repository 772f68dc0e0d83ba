#pragma once

#include <CLI/CLI.hpp>

namespace harbor::cli {

// Each family of subcommands registers itself on the app; the callback it
// installs sets the process exit code through `exitCode`.
void addSyntaxCommands(CLI::App& app, int& exitCode);
void addImportCommand(CLI::App& app, int& exitCode);

// `harbor` with no subcommand.
int runMainJob();

}  // namespace harbor::cli
