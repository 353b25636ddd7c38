// Memory that cannot be had, and what becomes of the engine's object. A program of its own: the
// linker leads its allocations through the functions below.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <new>
#include <vector>

#include "tests/fast/engine_access.h"
#include "tests/fast/fast_support.h"

namespace {

constexpr std::size_t kBlock = 1955840;

bool refuse_block = false;
bool refuse_object = false;

// Every engine's object, in sight of leak checkers up to the end: some are left behind by design.
std::array<void*, 64> objects{};
std::size_t object_count = 0;

std::vector<void*> deleted;
int deleted_without_an_object = 0;

void* last_object() { return objects[object_count - 1]; }

void write_down_if_object(void* block) {
  const auto object = std::find(objects.begin(), objects.end(), block);
  if (block == nullptr || object == objects.end()) return;
  *object = nullptr;  // the memory may come back as something else
  deleted.push_back(block);
}

}  // namespace

// Names given by the linker's option --wrap; those that begin with _Z are operator new, without
// exceptions, and operator delete, with and without a size.
extern "C" {

void* __real_calloc(std::size_t count, std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size) {
  return refuse_block && count * size >= kBlock ? nullptr : __real_calloc(count, size);
}

void* __real__ZnwmRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag);
void* __wrap__ZnwmRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag) {
  if (refuse_object) return nullptr;
  void* object = __real__ZnwmRKSt9nothrow_t(size, tag);
  if (size == sizeof(kestrane::KestraneLaserFastCalibrator)) objects.at(object_count++) = object;
  return object;
}

void __real__ZdlPvm(void* block, std::size_t size);
void __wrap__ZdlPvm(void* block, std::size_t size) {
  if (size == sizeof(kestrane::KestraneLaserFastCalibrator)) {
    write_down_if_object(block);
    if (block == nullptr) ++deleted_without_an_object;
  }
  __real__ZdlPvm(block, size);
}

// For compilers that do not hand the size over.
void __real__ZdlPv(void* block);
void __wrap__ZdlPv(void* block) {
  write_down_if_object(block);
  __real__ZdlPv(block);
}

}  // extern "C"

namespace {

using namespace fast_support;
using kestrane::KESTRANE_LASER_FAST_CALIB;
using kestrane::KestraneLaserFastCalibrator;

class FastInit : public testing::Test {
 protected:
  FastInit() { forget(); }
  ~FastInit() override { forget(); }

  static void forget() {
    refuse_block = refuse_object = false;
    deleted.clear();
    deleted_without_an_object = 0;
  }

  static bool has_engine(KESTRANE_LASER_FAST_CALIB& calib) {
    return calib.fast_calib(FrameLists(1), 0, 5) != KESTRANE_ERR_NOT_READY;
  }
};

TEST_F(FastInit, ReportsABlockThatCannotBeHad) {
  KestraneLaserFastCalibrator engine;
  refuse_block = true;
  EXPECT_EQ(engine.init(), KESTRANE_ERR_NO_MEMORY);
  EXPECT_EQ(engine.*member(engine_access::Buffer{}), nullptr);
  EXPECT_EQ(engine.*member(engine_access::Standard{}), nullptr);
}

TEST_F(FastInit, ChangesNothingInAnEngineThatHasABlock) {
  KestraneLaserFastCalibrator engine;
  ASSERT_EQ(engine.init(), KESTRANE_OK);
  fast_scene::Standard standard = flat_standard(1);
  engine.set_laser_plane_standard(standard.host());
  void* block = engine.*member(engine_access::Buffer{});
  refuse_block = true;
  EXPECT_EQ(engine.init(), KESTRANE_ERR_NO_MEMORY);
  EXPECT_EQ(engine.*member(engine_access::Buffer{}), block);
  ASSERT_EQ(static_cast<void*>(engine.*member(engine_access::Standard{})), block);
  EXPECT_EQ((engine.*member(engine_access::Standard{}))->plane_count, 1);
}

TEST_F(FastInit, LeavesTheFacadeEmptyWithoutABlock) {
  KESTRANE_LASER_FAST_CALIB calib;
  refuse_block = true;
  EXPECT_EQ(calib.init(), KESTRANE_ERR_NO_MEMORY);
  EXPECT_FALSE(has_engine(calib));
  EXPECT_TRUE(deleted.empty()) << "the engine without a block is left behind";
  refuse_block = false;
  EXPECT_EQ(calib.init(), KESTRANE_OK);
  EXPECT_TRUE(has_engine(calib));
}

TEST_F(FastInit, LeavesTheFacadeEmptyWithoutAnObject) {
  KESTRANE_LASER_FAST_CALIB calib;
  refuse_object = true;
  EXPECT_EQ(calib.init(), KESTRANE_ERR_NO_MEMORY);
  EXPECT_FALSE(has_engine(calib));
}

TEST_F(FastInit, TakesTheOldEngineFromTheFacadeAlsoWhenItFails) {
  for (bool* refused : {&refuse_block, &refuse_object}) {
    KESTRANE_LASER_FAST_CALIB calib;
    ASSERT_EQ(calib.init(), KESTRANE_OK);
    void* first = last_object();
    deleted.clear();
    *refused = true;
    EXPECT_EQ(calib.init(), KESTRANE_ERR_NO_MEMORY);
    EXPECT_FALSE(has_engine(calib));
    EXPECT_EQ(deleted, (std::vector<void*>{first}));
    *refused = false;
  }
}

TEST_F(FastInit, FreesEachEngineOnce) {
  void* second = nullptr;
  {
    KESTRANE_LASER_FAST_CALIB calib;
    ASSERT_EQ(calib.init(), KESTRANE_OK);
    void* first = last_object();
    ASSERT_EQ(calib.init(), KESTRANE_OK);
    EXPECT_EQ(deleted, (std::vector<void*>{first}));
    second = last_object();
    deleted.clear();
  }
  EXPECT_EQ(deleted, (std::vector<void*>{second}));
}

TEST_F(FastInit, GivesNoEngineBackThatItDoesNotHave) {
  { const KESTRANE_LASER_FAST_CALIB never_ready; }
  KESTRANE_LASER_FAST_CALIB calib;
  EXPECT_EQ(calib.init(), KESTRANE_OK);
  EXPECT_EQ(deleted_without_an_object, 0);
}

}  // namespace
