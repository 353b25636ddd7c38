// The example programs as a person runs them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "simulation/scanner.h"

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

Ended device_life(const std::string& arguments) {
  return run(std::string(DEVICE_LIFE).append(" ").append(arguments).append(" 2>&1"));
}

Ended calibrate_clouds(const std::string& arguments) {
  return run(std::string(CALIBRATE_CLOUDS).append(" ").append(arguments).append(" 2>&1"));
}

// A CSV file that is gone at the end of its test.
class CsvFile {
 public:
  CsvFile() : path_(testing::TempDir() + "kestrane_clouds_" + std::to_string(getpid()) + ".csv") {
    std::ofstream(path_) << "plane,frame,x,y,z\n";
  }
  ~CsvFile() { std::filesystem::remove(path_); }
  CsvFile(const CsvFile&) = delete;
  CsvFile& operator=(const CsvFile&) = delete;

  const std::string& path() const { return path_; }

  void add(const std::string& line) { std::ofstream(path_, std::ios::app) << line << '\n'; }

  // Rows of several clouds in turn, as a device that measures its planes side by side writes them.
  void add_in_turn(const std::vector<int>& planes, const std::vector<simulation::Cloud>& clouds) {
    std::ofstream file(path_, std::ios::app);
    file.precision(12);
    for (std::size_t i = 0; i < clouds[0].points.size(); ++i) {
      for (std::size_t p = 0; p < planes.size(); ++p) {
        const _KESTRANE_ID_POINT3D& point = clouds[p].points[i];
        file << planes[p] << ',' << point.id << ',' << point.x << ',' << point.y << ',' << point.z
             << '\n';
      }
    }
  }

 private:
  std::string path_;
};

const simulation::Sheet kSheet = {118.0, 0.004, -0.2, 0.4, -0.3};

simulation::Cloud cloud_of(double fan_low_degrees, double fan_high_degrees) {
  simulation::CloudSettings settings;
  settings.points = 6000;
  settings.fan_low_degrees = fan_low_degrees;
  settings.fan_high_degrees = fan_high_degrees;
  settings.dropped_share = 0.01;
  settings.frames = 10;
  return simulation::measure(kSheet, settings);
}

// device_life

TEST(DeviceLife, LivesThroughItsStagesWithinTheBounds) {
  const Ended life = device_life("--planes 4 --points 6000 --seed 3");
  EXPECT_EQ(life.status, 0) << life.output;
  EXPECT_THAT(life.output, HasSubstr("calibrating plane 4 of 4"));
  EXPECT_THAT(life.output, HasSubstr("Factory calibration"));
  EXPECT_THAT(life.output, HasSubstr("Compensation"));
  EXPECT_THAT(life.output, Not(HasSubstr("beyond the bound")));
}

TEST(DeviceLife, LivesWithTheRefinedTableToo) {
  const Ended life = device_life("--planes 4 --points 6000 --optimise");
  EXPECT_EQ(life.status, 0) << life.output;
  EXPECT_THAT(life.output, HasSubstr("refined grid corners goes on"));
}

TEST(DeviceLife, LivesWithOnePlane) {
  const Ended life = device_life("--planes 1 --points 6000");
  EXPECT_EQ(life.status, 0) << life.output;
}

TEST(DeviceLife, ShowsProgressOnStandardErrorAlone) {
  const Ended life = run(std::string(DEVICE_LIFE) + " --planes 1 --points 6000 2>/dev/null");
  EXPECT_EQ(life.status, 0);
  EXPECT_THAT(life.output, Not(HasSubstr("calibrating plane")));
}

TEST(DeviceLife, FailsWhereACallFails) {
  const Ended life = device_life("--planes 2 --points 100");
  EXPECT_EQ(life.status, 1);
  EXPECT_THAT(life.output, HasSubstr("factory_calib failed with status -1"));
}

TEST(DeviceLife, EndsWithItsUsageForAnArgumentThatItDoesNotUnderstand) {
  for (const char* bad : {"--planes 0", "--planes 101", "--planes", "--planes 3x", "--points 0",
                          "--seed -1", "--seed 1.5", "--bad", "extra"}) {
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

// calibrate_clouds

TEST(CalibrateClouds, CalibratesEveryPlaneOfAFileWhateverItsNumber) {
  CsvFile file;
  file.add_in_turn({700, -3}, {cloud_of(-30.0, 30.0), cloud_of(-10.0, 14.0)});
  const Ended clouds = calibrate_clouds(file.path());
  EXPECT_EQ(clouds.status, 0) << clouds.output;
  const std::size_t second = clouds.output.find("plane 700\n");
  ASSERT_NE(second, std::string::npos) << clouds.output;
  const std::string narrow = clouds.output.substr(0, second);
  const std::string whole = clouds.output.substr(second);
  EXPECT_THAT(narrow, HasSubstr("plane -3\n"));
  EXPECT_THAT(narrow, HasSubstr("status      0, ok"));
  EXPECT_THAT(narrow, HasSubstr("points      6000, "));
  // From -10 to 14 degrees: sectors 5 to 10.
  EXPECT_THAT(narrow, HasSubstr("sectors     6 of 15 populated"));
  EXPECT_THAT(narrow, HasSubstr("borrowed    0-4, 11-14:"));
  // Depths 100 to 1000: 32 of the 50 bands.
  EXPECT_THAT(narrow, HasSubstr("cells       192 of 750 populated"));
  EXPECT_THAT(whole, HasSubstr("sectors     15 of 15 populated"));
  EXPECT_THAT(whole, HasSubstr("cells       480 of 750 populated"));
  EXPECT_THAT(whole, Not(HasSubstr("borrowed")));
  EXPECT_THAT(clouds.output, Not(HasSubstr("optimised")));
}

TEST(CalibrateClouds, TellsHowManyCornersTheOptimisationMoved) {
  CsvFile file;
  file.add_in_turn({0}, {cloud_of(-30.0, 30.0)});
  const Ended clouds = calibrate_clouds("--optimise " + file.path());
  EXPECT_EQ(clouds.status, 0) << clouds.output;
  // Up to 16 x 33 corners touch one of the 15 x 32 measured cells.
  EXPECT_THAT(clouds.output, testing::ContainsRegex("moved 5[0-9][0-9] of 816 corners"));
}

TEST(CalibrateClouds, TakesTheNearDepthsOnlyWithoutFar) {
  CsvFile file;
  simulation::CloudSettings settings;
  settings.depth_high = 219.0;
  settings.points = 6000;
  file.add_in_turn({0}, {simulation::measure(kSheet, settings)});
  EXPECT_EQ(calibrate_clouds(file.path()).status, 0);
  const Ended far = calibrate_clouds("--far " + file.path());
  EXPECT_EQ(far.status, 1);
  EXPECT_THAT(far.output, HasSubstr("status      -1, failed"));
}

TEST(CalibrateClouds, FailsForAPlaneWithTooFewPointsAndGoesOn) {
  CsvFile file;
  file.add("0,0,100,0,500");
  file.add_in_turn({1}, {cloud_of(-30.0, 30.0)});
  const Ended clouds = calibrate_clouds("--optimise " + file.path());
  EXPECT_EQ(clouds.status, 1);
  EXPECT_THAT(clouds.output, HasSubstr("plane 0\n  status      -1, failed"));
  EXPECT_THAT(clouds.output, HasSubstr("plane 1\n  status      0, ok"));
}

TEST(CalibrateClouds, EndsAtABadLineWithItsNumberAndAReason) {
  CsvFile file;
  file.add("0,0,100,0,500");
  file.add("0,0,100,0,5OO");
  const Ended clouds = calibrate_clouds(file.path());
  EXPECT_EQ(clouds.status, 1);
  EXPECT_EQ(clouds.output, file.path() + ": line 3: z '5OO' is not a number\n");
}

TEST(CalibrateClouds, EndsForAFileThatIsNotThere) {
  const Ended clouds = calibrate_clouds(testing::TempDir() + "no_such_clouds.csv");
  EXPECT_EQ(clouds.status, 1);
  EXPECT_THAT(clouds.output, HasSubstr("cannot be opened"));
}

TEST(CalibrateClouds, EndsWithItsUsageForAnArgumentThatItDoesNotUnderstand) {
  for (const char* bad : {"", "--bad", "--bad one.csv", "one.csv two.csv"}) {
    const Ended clouds = calibrate_clouds(bad);
    EXPECT_EQ(clouds.status, 2) << bad;
    EXPECT_THAT(clouds.output, HasSubstr("usage: calibrate_clouds")) << bad;
  }
}

TEST(CalibrateClouds, HelpsWhenAsked) {
  const Ended clouds = calibrate_clouds("--help");
  EXPECT_EQ(clouds.status, 0);
  EXPECT_THAT(clouds.output, HasSubstr("usage: calibrate_clouds"));
}

TEST(CalibrateClouds, FindsTheSheetsOfARealDevice) {
  if (!std::filesystem::exists(REAL_CLOUDS)) GTEST_SKIP() << "no " << REAL_CLOUDS;
  for (const char* options : {"", "--far ", "--optimise "}) {
    const Ended clouds = calibrate_clouds(std::string(options).append(REAL_CLOUDS));
    EXPECT_EQ(clouds.status, 0) << clouds.output;
    EXPECT_THAT(clouds.output, HasSubstr("plane 0\n  status      0, ok\n  points      5561\n"));
    EXPECT_THAT(clouds.output, HasSubstr("plane 1\n  status      0, ok\n  points      5975\n"));
    EXPECT_THAT(clouds.output, HasSubstr("sectors     5 of 15 populated"));
    EXPECT_THAT(clouds.output, HasSubstr("borrowed    0-5, 11-14:"));
  }
}

}  // namespace
