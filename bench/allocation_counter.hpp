#pragma once

// Counts every operator new of the program: include from exactly one file of a benchmark
// program, and read tavrel::bench::allocations.

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace tavrel::bench {
inline std::atomic<std::uint64_t> allocations{0};
}  // namespace tavrel::bench

// Default visibility so that the library's allocations come here too; never inlined, so that GCC
// does not pair the malloc inside with a delete elsewhere and warn of a mismatch.
__attribute__((visibility("default"), noinline)) void* operator new(std::size_t size) {
  tavrel::bench::allocations.fetch_add(1, std::memory_order_relaxed);
  if (void* block = std::malloc(size == 0 ? 1 : size)) return block;
  throw std::bad_alloc();
}
__attribute__((visibility("default"), noinline)) void operator delete(void* block) noexcept { std::free(block); }
__attribute__((visibility("default"), noinline)) void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}
