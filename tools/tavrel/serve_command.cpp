#include "commands.hpp"

namespace tavrel::cli {

// Not yet available: registers nothing.
void addServeCommand(CLI::App&, int&) {}

}  // namespace tavrel::cli
