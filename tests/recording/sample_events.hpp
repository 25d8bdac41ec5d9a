#pragma once

// Event file bytes written by hand, independently of the library's encoders.

#include <cstdint>
#include <initializer_list>
#include <string>

namespace tavrel::testing {

inline std::string words(std::initializer_list<std::int32_t> values) {
  std::string bytes;
  for (const std::int32_t value : values)
    for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(static_cast<std::uint32_t>(value) >> shift);
  return bytes;
}

inline const std::string kHeader = "GEV\n1\n";
inline const std::string kMagic("INP\x02", 4);
inline const std::string kLine = "{\"a\": \"jump\", \"e\": \"level-2\", \"t\": 4250}\n";
inline const std::string kMoved = words({12345, 7, 0, 6, 3, 16887, 15549, 0});
inline const std::string kEnded = words({12400, 4, 0, 7, 3});

}  // namespace tavrel::testing
