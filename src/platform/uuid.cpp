#include "platform/uuid.hpp"

#include <uuid/uuid.h>

namespace tavrel {

std::string makeUuidString() {
  uuid_t uuid;
  uuid_generate_random(uuid);
  char text[37];
  uuid_unparse_upper(uuid, text);
  return std::string(text, 36);
}

}  // namespace tavrel
