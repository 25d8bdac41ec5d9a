#include "commands.hpp"

namespace tavrel::cli {

// Not yet available: registers nothing.
void addInspectCommand(CLI::App&, int&) {}

}  // namespace tavrel::cli
