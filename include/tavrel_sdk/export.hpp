#pragma once

// The library is built with hidden visibility; TAVREL_EXPORT marks what a host may link against.
#define TAVREL_EXPORT __attribute__((visibility("default")))
