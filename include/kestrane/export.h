/// @file
/// Marks what the shared libraries export. Everything else stays hidden.

#pragma once

#if defined(__GNUC__)
/// Stands in front of every class and function that a host may use.
#define KESTRANE_API __attribute__((visibility("default")))
#else
#define KESTRANE_API
#endif
