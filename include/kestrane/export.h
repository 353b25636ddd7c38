// Marks what the shared library hands out. Everything else stays hidden.
#pragma once

#if defined(__GNUC__)
#define KESTRANE_API __attribute__((visibility("default")))
#else
#define KESTRANE_API
#endif
