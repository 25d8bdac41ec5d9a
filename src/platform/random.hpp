#pragma once

// arc4random and arc4random_uniform of the installed platform: glibc's on Linux, a seeded
// (or scripted) generator in the simulation.

#include <tavrel_sdk/platform.hpp>

#include <cstdint>

namespace tavrel {

inline std::uint32_t arc4random() { return Platform::current().arc4random(); }
inline std::uint32_t arc4random_uniform(std::uint32_t upperBound) {
  return Platform::current().arc4random_uniform(upperBound);
}

}  // namespace tavrel
