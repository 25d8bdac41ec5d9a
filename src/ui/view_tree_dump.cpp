#include <tavrel_sdk/ui/host.hpp>

namespace tavrel {

std::string dumpViewTree() { return "null"; }

}  // namespace tavrel
