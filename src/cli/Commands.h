#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <vector>

namespace harbor::cli {

// A family of subcommands adds itself to the app; the callbacks it installs
// set the process exit code through `exitCode`. Each command file registers
// its family with a static CommandRegistrar, so adding a command touches no
// other file. `order` places it in --help.
using CommandInstaller = void (*)(CLI::App& app, int& exitCode);

struct CommandRegistrar {
  CommandRegistrar(int order, CommandInstaller install);
};

void installCommands(CLI::App& app, int& exitCode);

// `harbor` with no subcommand.
int runMainJob(bool json);

}  // namespace harbor::cli
