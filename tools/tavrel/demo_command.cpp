#include "commands.hpp"

namespace tavrel::cli {

// Not yet available: registers nothing.
void addDemoCommand(CLI::App&, int&) {}

}  // namespace tavrel::cli
