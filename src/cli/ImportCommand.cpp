#include "cli/Commands.h"

namespace harbor::cli {

void addImportCommand(CLI::App&, int&) {}

}  // namespace harbor::cli
