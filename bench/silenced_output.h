// The solver's report goes to standard output; a benchmark's table does not want it there.
#pragma once

#include <iostream>
#include <sstream>

class SilencedOutput {
 public:
  SilencedOutput() : before_(std::cout.rdbuf(sink_.rdbuf())) {}
  ~SilencedOutput() { std::cout.rdbuf(before_); }
  SilencedOutput(const SilencedOutput&) = delete;
  SilencedOutput& operator=(const SilencedOutput&) = delete;

 private:
  std::ostringstream sink_;
  std::streambuf* before_;
};
