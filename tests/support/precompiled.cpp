// Carries the headers that builds with KESTRANE_PRECOMPILE_TESTS parse once; nothing of its own.
