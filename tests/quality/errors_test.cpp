#include "kestrane/quality/errors.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using kestrane::quality::FileError;

TEST(FileError, NamesPathAndReason) {
  const FileError error("table.txt", "cut after plane 3, line 7");
  EXPECT_EQ(error.path(), "table.txt");
  EXPECT_EQ(error.reason(), "cut after plane 3, line 7");
  EXPECT_STREQ(error.what(), "table.txt: cut after plane 3, line 7");
}

TEST(FileError, HasTheErrorNumberOfTheSystemWhereThatRefused) {
  EXPECT_EQ(FileError("a", "cut").error_number(), 0);
  EXPECT_EQ(FileError("a", "cannot be opened", 13).error_number(), 13);
}

TEST(FileError, CanBeCaughtAsARuntimeError) {
  EXPECT_THROW(throw FileError("a", "b"), std::runtime_error);
}

}  // namespace
