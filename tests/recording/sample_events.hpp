#pragma once

// Event file bytes for reader and tool tests: the worked examples' game event line and input
// records, as a writer would leave them.

#include "recording/event_format.hpp"

#include <cstdint>
#include <initializer_list>
#include <string>

namespace tavrel::testing {

inline std::string words(std::initializer_list<std::int32_t> values) {
  std::string bytes;
  for (const std::int32_t value : values) appendWord(bytes, value);
  return bytes;
}

inline const std::string kHeader(kGameEventHeader);
inline const std::string kMagic(kInputEventMagic);
inline const std::string kLine = "{\"a\": \"jump\", \"e\": \"level-2\", \"t\": 4250}\n";
inline const std::string kMoved = words({12345, 7, 0, 6, 3, 16887, 15549, 0});
inline const std::string kEnded = words({12400, 4, 0, 7, 3});

}  // namespace tavrel::testing
