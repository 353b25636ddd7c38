// The example programs as a person runs them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <string>

namespace {

using testing::HasSubstr;
using testing::Not;

// How a program ended.
struct Ended {
  int status;          // exit status
  std::string output;  // standard output, and standard error where it was asked for
};

Ended run(const std::string& command) {
  Ended result = {-1, {}};
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return result;
  std::array<char, 4096> buffer;
  while (const std::size_t count = fread(buffer.data(), 1, buffer.size(), pipe)) {
    result.output.append(buffer.data(), count);
  }
  const int status = pclose(pipe);
  if (WIFEXITED(status)) result.status = WEXITSTATUS(status);
  return result;
}

// A folder that is not there yet, and gone at the end of its test.
class Folder {
 public:
  Folder() : path_(testing::TempDir() + "kestrane_device_" + std::to_string(getpid())) {}
  ~Folder() { std::filesystem::remove_all(path_); }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

Ended device_life(const std::string& arguments) {
  const Folder folder;
  return run(std::string(DEVICE_LIFE) + " --out " + folder.path() + " " + arguments + " 2>&1");
}

std::size_t count_of(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at) ++count;
  return count;
}

// device_life

TEST(DeviceLife, LivesThroughItsStagesWithinTheBounds) {
  const Ended life = device_life("--planes 4 --points 6000 --seed 3");
  EXPECT_EQ(life.status, 0) << life.output;
  EXPECT_THAT(life.output, HasSubstr("calibrating plane 4 of 4"));
  EXPECT_THAT(life.output, HasSubstr("Factory calibration"));
  EXPECT_THAT(life.output, testing::ContainsRegex(
                               "Refined from the same points, the table comes to rms 0\\.00"));
  EXPECT_THAT(life.output, HasSubstr("Coefficients"));
  EXPECT_THAT(life.output, HasSubstr("Fast calibration after a knock: 4 planes, 16000 points"));
  EXPECT_THAT(life.output, HasSubstr("frames in 80, kept by their mean residual 72, used 72"));
  EXPECT_THAT(life.output, HasSubstr("planes 0 to 3 hold one transform: yes"));
  EXPECT_THAT(life.output, HasSubstr("Compensation"));
  EXPECT_THAT(life.output, Not(HasSubstr("beyond the bound")));
}

TEST(DeviceLife, LeavesItsFilesInTheFolderThatItIsGiven) {
  const Folder folder;
  const Ended life = run(std::string(DEVICE_LIFE) + " --planes 2 --points 6000 --out " +
                         folder.path() + "/a/b 2>&1");
  EXPECT_EQ(life.status, 0) << life.output;
  // 12 bytes of counts, 8 of one range, 19748 per plane.
  EXPECT_EQ(std::filesystem::file_size(folder.path() + "/a/b/coefficients.bin"),
            12u + 8u + 2u * 19748u);
  EXPECT_TRUE(std::filesystem::exists(folder.path() + "/a/b/planes.txt"));
}

TEST(DeviceLife, FailsWhereItsFilesCannotBeWritten) {
  const Ended life =
      run(std::string(DEVICE_LIFE) + " --planes 1 --points 6000 --out /dev/null/a 2>&1");
  EXPECT_EQ(life.status, 1);
  EXPECT_THAT(life.output, HasSubstr("/dev/null/a/coefficients.bin: its folder cannot be opened"));
}

TEST(DeviceLife, LivesWithTheOptimisedTableToo) {
  const Ended life = device_life("--planes 4 --points 6000 --optimise");
  EXPECT_EQ(life.status, 0) << life.output;
  EXPECT_THAT(life.output, HasSubstr("keeps the table with optimised corners"));
}

TEST(DeviceLife, LivesWithOnePlane) {
  const Ended life = device_life("--planes 1 --points 6000");
  EXPECT_EQ(life.status, 0) << life.output;
}

// The sheets run along y: a shift along it moves none of them, whatever its figure.
TEST(DeviceLife, NamesTheMotionThatNoSheetShows) {
  const Ended life = device_life("--planes 8 --points 6000");
  EXPECT_THAT(life.output, testing::ContainsRegex("shift along y[^\n]* not fixed\n"));
  EXPECT_EQ(count_of(life.output, "not fixed\n"), 1u) << life.output;
}

// One sheet shows the shift across it and the turns about its own two directions, nothing else.
TEST(DeviceLife, NamesThreeMotionsWhereThereIsOneSheet) {
  const Ended life = device_life("--planes 1 --points 6000");
  EXPECT_EQ(count_of(life.output, "not fixed\n"), 3u) << life.output;
}

TEST(DeviceLife, EndsWithItsFindings) {
  const Ended life = device_life("--planes 4 --points 6000");
  const std::size_t findings = life.output.find("Findings against the limits of this device");
  ASSERT_NE(findings, std::string::npos) << life.output;
  EXPECT_LT(life.output.find("Compensation, device 15 K warmer"), findings);
  const std::string told = life.output.substr(findings);
  EXPECT_THAT(told, HasSubstr("warn screened"));
  EXPECT_THAT(told, HasSubstr("warn borrowed      sectors without points of their own reach into "
                              "the working volume on plane 3"));
  EXPECT_THAT(told, HasSubstr("warn direction     weak: shift along y"));
  EXPECT_THAT(told, HasSubstr("ok   field_motion"));
  EXPECT_THAT(told, HasSubstr("Verdict: usable with limits"));
}

TEST(DeviceLife, EndsWithWhatWasSeenAndWhatIsNext) {
  const Ended life = device_life("--planes 2 --points 6000");
  const std::size_t seen = life.output.find("What was seen");
  const std::size_t next = life.output.find("Next: device_life --planes 100");
  ASSERT_NE(seen, std::string::npos) << life.output;
  ASSERT_NE(next, std::string::npos) << life.output;
  EXPECT_LT(life.output.find("Compensation, device 15 K warmer"), seen);
  EXPECT_LT(seen, next);
}

TEST(DeviceLife, ShowsProgressOnStandardErrorAlone) {
  const Ended life = run(std::string(DEVICE_LIFE) + " --planes 1 --points 6000 --out " +
                         Folder().path() + " 2>/dev/null");
  EXPECT_EQ(life.status, 0);
  EXPECT_THAT(life.output, Not(HasSubstr("calibrating plane")));
}

TEST(DeviceLife, FailsWhereACallFails) {
  const Ended life = device_life("--planes 2 --points 100");
  EXPECT_EQ(life.status, 1);
  EXPECT_THAT(life.output, HasSubstr("no plane could be calibrated: no sector has 200 points"));
}

TEST(DeviceLife, EndsWithItsUsageForAnArgumentThatItDoesNotUnderstand) {
  for (const char* bad : {"--planes 0", "--planes 101", "--planes", "--planes 3x", "--points 0",
                          "--seed -1", "--seed 1.5", "--out", "--bad", "extra"}) {
    const Ended life = device_life(bad);
    EXPECT_EQ(life.status, 2) << bad;
    EXPECT_THAT(life.output, HasSubstr("usage: device_life")) << bad;
  }
}

TEST(DeviceLife, HelpsWhenAsked) {
  const Ended life = device_life("--help");
  EXPECT_EQ(life.status, 0);
  EXPECT_THAT(life.output, HasSubstr("usage: device_life"));
}

// One program for each of the four jobs; each judges its own result by its exit status.

TEST(FirstTable, PrintsThreePlanesThatMeetTheirSheets) {
  const Ended table = run(FIRST_TABLE);
  EXPECT_EQ(table.status, 0) << table.output;
  EXPECT_THAT(table.output, testing::StartsWith("plane 0: -0.0"));
  EXPECT_THAT(table.output, HasSubstr("plane 2: "));
}

TEST(UpdateCoefficients, MovesTheModelsAndStoresTheRecord) {
  const Folder folder;
  std::filesystem::create_directory(folder.path());
  const std::string file = folder.path() + "/coefficients.bin";
  const Ended update = run(std::string(UPDATE_COEFFICIENTS) + " " + file);
  EXPECT_EQ(update.status, 0) << update.output;
  EXPECT_THAT(update.output, HasSubstr("models off by 0.100 moved by 0.0009"));
  EXPECT_EQ(std::filesystem::file_size(file), 12u + 19748u);  // no plane range is in use
}

TEST(UpdateCoefficients, FailsWhereItsFileCannotBeWritten) {
  EXPECT_EQ(run(std::string(UPDATE_COEFFICIENTS) + " /dev/null/a").status, 1);
}

TEST(FieldCalibration, FindsTheMotion) {
  const Ended field = run(FIELD_CALIBRATION);
  EXPECT_EQ(field.status, 0) << field.output;
  EXPECT_THAT(field.output, HasSubstr("Ceres Solver Report"));
  EXPECT_THAT(field.output, HasSubstr("moved sheets off the truth by 0.0"));
}

TEST(SafeFactory, JudgesTheTableThatItMeetsTheTruthWith) {
  const Ended factory = run(SAFE_FACTORY);
  EXPECT_EQ(factory.status, 0) << factory.output;
  EXPECT_THAT(factory.output, HasSubstr("warn screened"));
  EXPECT_THAT(factory.output, HasSubstr("ok   planes        all of 8 planes calibrated"));
  EXPECT_THAT(factory.output, HasSubstr("usable with limits"));
  EXPECT_THAT(factory.output, HasSubstr("blocks of 8 planes off the truth by"));
}

TEST(SafeField, TellsTheMotionWithItsUncertaintyAndWhatIsNotFixed) {
  const Ended field = run(SAFE_FIELD);
  EXPECT_EQ(field.status, 0) << field.output;
  EXPECT_THAT(field.output, testing::ContainsRegex("moved by 0\\.[0-9]+ \\+- 0\\.0[0-9]+; off"));
  EXPECT_THAT(field.output, HasSubstr("not fixed: shift along y"));
  EXPECT_THAT(field.output, HasSubstr("usable with limits"));
}

TEST(SafeRefinement, MeetsTheBowOfTheSheets) {
  const Ended refinement = run(SAFE_REFINEMENT);
  EXPECT_EQ(refinement.status, 0) << refinement.output;
  EXPECT_THAT(refinement.output, HasSubstr("20 frames, which support a bent sheet, 0.05"));
  EXPECT_THAT(refinement.output,
              testing::ContainsRegex(
                  "off the sheets by 0\\.00[0-9]+ at most, the plain table by 0\\.[1-9]"));
}

TEST(SafeCoefficients, StoreARecordWhoseTableMeetsTheDevice) {
  const Folder folder;
  std::filesystem::create_directory(folder.path());
  const std::string file = folder.path() + "/coefficients.bin";
  const Ended update = run(std::string(SAFE_COEFFICIENTS) + " " + file);
  EXPECT_EQ(update.status, 0) << update.output;
  EXPECT_THAT(update.output, HasSubstr("table of 3 planes at condition 24, off its sheets by 0."));
  EXPECT_TRUE(std::filesystem::exists(file));
}

TEST(SafeCoefficients, NameTheFileThatCannotBeWritten) {
  const Ended update = run(std::string(SAFE_COEFFICIENTS) + " /dev/null/a 2>&1");
  EXPECT_EQ(update.status, 1);
  EXPECT_THAT(update.output, HasSubstr("/dev/null/a: "));
}

TEST(CompensateProgram, MeetsTheWarmDevice) {
  const Ended warm = run(COMPENSATE);
  EXPECT_EQ(warm.status, 0) << warm.output;
  EXPECT_THAT(warm.output, HasSubstr("compensated planes off the warm device by"));
}

}  // namespace
