#pragma once

// The library is built with hidden visibility; TAVREL_EXPORT marks what a host may link against.
#if defined(TAVREL_BUILDING_LIBRARY)
#define TAVREL_EXPORT __attribute__((visibility("default")))
#else
#define TAVREL_EXPORT __attribute__((visibility("default")))
#endif
