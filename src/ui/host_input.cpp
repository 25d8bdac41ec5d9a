#include <tavrel_sdk/ui/host.hpp>

namespace tavrel {

bool UIHost::fingersDown(const std::vector<Finger>&) { return false; }
bool UIHost::fingersMoved(const std::vector<Finger>&) { return false; }
bool UIHost::fingersUp(const std::vector<Finger>&) { return false; }
bool UIHost::fingersCancelled(const std::vector<Finger>&) { return false; }
bool UIHost::typeText(std::string_view) { return false; }
bool UIHost::pressReturn() { return false; }
bool UIHost::pressBackspace() { return false; }
bool UIHost::tapElement(std::string_view) { return false; }
bool UIHost::isCovered() const { return false; }

}  // namespace tavrel
