#include "quality/refinement/frame_check.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

using namespace kestrane::quality::refinement;

using Taken = std::vector<std::uint8_t>;

// Residuals of frames, as samples that stand one of each frame after the other.
struct Residuals {
  std::vector<Sample> samples;
  std::vector<double> values;

  explicit Residuals(const std::vector<std::vector<double>>& frames) {
    for (std::size_t n = 0, added = 1; added > 0; ++n) {
      added = 0;
      for (std::size_t f = 0; f < frames.size(); ++f) {
        if (n >= frames[f].size()) continue;
        samples.push_back({0.0, 0.0, 0.0, static_cast<std::int32_t>(f), 0, 0});
        values.push_back(frames[f][n]);
        ++added;
      }
    }
  }
};

TEST(FrameMedians, AreThoseOfEachFramesResiduals) {
  const Residuals r({{3.0, 1.0, 2.0}, {-1.0, -3.0}, {5.0}, {0.5, 0.0, 0.75, 10.0}});
  std::vector<double> scratch(3, 9.0);
  const FrameMedians medians = frame_medians(r.samples, r.values, 4, scratch);
  EXPECT_EQ(medians.median, (std::vector<double>{2.0, -2.0, 5.0, 0.625}));
  EXPECT_EQ(medians.samples, (std::vector<std::size_t>{3, 2, 1, 4}));
  EXPECT_EQ(medians.middle, 0.5 * (2.0 + 0.625));  // 1.3125
  // Distances 0.6875, 3.3125, 3.6875, 0.6875.
  EXPECT_EQ(medians.spread, 1.4826 * (0.5 * (0.6875 + 3.3125)));
}

FrameMedians medians_of(const std::vector<double>& median, std::size_t samples, double middle,
                        double spread) {
  return {median, std::vector<std::size_t>(median.size(), samples), middle, spread};
}

TEST(TakenFrames, LieWithinTheSpreadOfTheFrames) {
  const auto medians = medians_of({1.0, 2.0, 3.0, 4.0, -2.5, -4.5, 9.0, 1.0}, 16, 1.0, 1.5);
  EXPECT_EQ(taken_frames(medians, 0.1, 2.0), (Taken{1, 1, 1, 1, 0, 0, 0, 1}));
  EXPECT_EQ(taken_frames(medians, 0.1, 3.0), (Taken{1, 1, 1, 1, 1, 0, 0, 1}));
}

// Whose medians scatter by scale / sqrt(16) without any error of theirs.
TEST(TakenFrames, LieWithinWhatTheirSamplesScatter) {
  const auto medians = medians_of({1.0, 2.0, 3.0, 4.0, -2.5, -4.5, 9.0, 1.0}, 16, 1.0, 0.1);
  EXPECT_EQ(taken_frames(medians, 6.0, 2.0), (Taken{1, 1, 1, 1, 0, 0, 0, 1}));
  EXPECT_EQ(taken_frames(medians, 10.0, 2.0), (Taken{1, 1, 1, 1, 1, 0, 0, 1}));
  auto few = medians;
  few.samples[6] = 1;
  EXPECT_EQ(taken_frames(few, 5.0, 2.0), (Taken{1, 1, 1, 0, 0, 0, 1, 1}));
}

TEST(TakenFrames, AreAllWhereTheyAreFewOrNoneIsToBeDropped) {
  const std::vector<double> seven = {0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 9.0};
  EXPECT_EQ(taken_frames(medians_of(seven, 4, 0.0, 0.1), 0.1, 2.0), Taken(7, 1));
  std::vector<double> eight = seven;
  eight.push_back(0.0);
  EXPECT_EQ(taken_frames(medians_of(eight, 4, 0.0, 0.1), 0.1, 2.0),
            (Taken{1, 1, 1, 1, 1, 1, 0, 1}));
  EXPECT_EQ(taken_frames(medians_of(eight, 4, 0.0, 0.1), 0.1, 0.0), Taken(8, 1));
}

}  // namespace
