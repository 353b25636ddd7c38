#include "quality/refinement/sheet_fit.h"

#include <gtest/gtest.h>

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <utility>
#include <vector>

#include "simulation/random.h"
#include "tests/support/bits.h"

namespace {

using namespace kestrane::quality::refinement;
using kestrane_test::same_bits;

using Terms = Eigen::Matrix<double, 6, 1>;
using Taken = std::vector<std::uint8_t>;

// Six terms about (30, 400), scaled by 50 and 100.
Sheet bent_sheet(int terms) {
  return {terms, 30.0, 400.0, 50.0, 100.0, {118.0, 0.5, -20.0, 0.75, -0.25, 1.5}};
}

Terms terms_at(const Sheet& sheet, double y, double z) {
  const double v = (y - sheet.y0) / sheet.ys, w = (z - sheet.z0) / sheet.zs;
  return Terms{1.0, v, w, v * v, v * w, w * w};
}

double plain_x(const Sheet& sheet, double y, double z) {
  const Terms terms = terms_at(sheet, y, z);
  double x = 0.0;
  for (int t = 0; t < sheet.terms; ++t) x += sheet.c[static_cast<std::size_t>(t)] * terms[t];
  return x;
}

// Points off a bent sheet by up to `noise`, in turn from `frames` frames.
std::vector<Sample> samples_of(int count, int frames, double noise, std::uint64_t seed) {
  simulation::Random random(seed);
  std::vector<Sample> samples;
  for (int n = 0; n < count; ++n) {
    const double y = random.uniform(-80.0, 120.0), z = random.uniform(200.0, 700.0);
    const double x = plain_x(bent_sheet(6), y, z) + noise * random.gaussian();
    samples.push_back({x, y, z, n % frames, 0, 0});
  }
  return samples;
}

double plain_scale(const std::vector<Sample>& samples, const Taken& taken, const Sheet& sheet,
                   std::size_t every) {
  std::vector<double> sizes;
  for (std::size_t n = 0; n < samples.size(); n += every) {
    const Sample& s = samples[n];
    if (taken[static_cast<std::size_t>(s.frame)] != 0)
      sizes.push_back(std::abs(s.x - plain_x(sheet, s.y, s.z)));
  }
  std::sort(sizes.begin(), sizes.end());
  const std::size_t half = sizes.size() / 2;
  return 1.4826 * (sizes.size() % 2 == 1 ? sizes[half] : 0.5 * (sizes[half - 1] + sizes[half]));
}

double plain_weight(Weighting weighting, double t) {  // t: size in scales
  switch (weighting) {
    case Weighting::kLeastAbsolute:
      return 1.0 / std::max(t, 0.1);
    case Weighting::kHuber:
      return std::min(1.0, 1.345 / t);
    case Weighting::kTukey:
      return t < 4.685 ? std::pow(1.0 - std::pow(t / 4.685, 2), 2) : 0.0;
  }
  return 0.0;
}

// --- a sheet ---------------------------------------------------------------------------------

TEST(Sheet, IsAPlaneOrAQuadratic) {
  for (const int terms : {3, 6}) {
    const Sheet sheet = bent_sheet(terms);
    for (const double y : {-70.0, 30.0, 95.0})
      for (const double z : {250.0, 400.0, 640.0})
        EXPECT_NEAR(sheet.at(y, z), plain_x(sheet, y, z), 1e-12) << terms;
  }
}

// --- where samples lie -----------------------------------------------------------------------

std::vector<Sample> places(std::initializer_list<std::pair<double, double>> at) {
  std::vector<Sample> samples;
  for (const auto& [y, z] : at) samples.push_back({0.0, y, z, 0, 0, 0});
  return samples;
}

// Five points of a cross whose arms are 10 and 2 long, turned by an angle of cosine 0.8.
TEST(Spread, IsThatOfAPointCloudsAxes) {
  const auto cross = places({{5.0, 300.0},
                             {5.0 + 8.0, 300.0 + 6.0},
                             {5.0 - 8.0, 300.0 - 6.0},
                             {5.0 - 1.2, 300.0 + 1.6},
                             {5.0 + 1.2, 300.0 - 1.6}});
  const Spread spread = spread_of(cross);
  EXPECT_NEAR(spread.y0, 5.0, 1e-13);
  EXPECT_NEAR(spread.z0, 300.0, 1e-13);
  EXPECT_NEAR(spread.ys, std::sqrt((2.0 * 64.0 + 2.0 * 1.44) / 5.0), 1e-13);
  EXPECT_NEAR(spread.zs, std::sqrt((2.0 * 36.0 + 2.0 * 2.56) / 5.0), 1e-13);
  EXPECT_NEAR(spread.ratio, 0.2, 1e-13);
}

TEST(Spread, IsNoneAcrossALineAndNoneInAPoint) {
  EXPECT_NEAR(spread_of(places({{0.0, 300.0}, {10.0, 305.0}, {20.0, 310.0}})).ratio, 0.0, 1e-7);
  const Spread point = spread_of(places({{7.0, 300.0}, {7.0, 300.0}}));
  EXPECT_EQ(point.ratio, 0.0);
  EXPECT_EQ(point.ys, 0.0);
}

// --- one step --------------------------------------------------------------------------------

// By the normal equations of all samples that count, one row each.
Sheet plain_step(const std::vector<Sample>& samples, const Taken& taken, const Sheet& model,
                 double scale, Weighting weighting, int terms, std::size_t every) {
  const auto count = static_cast<Eigen::Index>(samples.size());
  Eigen::MatrixXd rows = Eigen::MatrixXd::Zero(count, terms);
  Eigen::VectorXd right = Eigen::VectorXd::Zero(count);
  for (std::size_t n = 0; n < samples.size(); n += every) {
    const Sample& s = samples[n];
    if (taken[static_cast<std::size_t>(s.frame)] == 0) continue;
    const double t = std::abs(s.x - plain_x(model, s.y, s.z)) / scale;
    const double root = std::sqrt(plain_weight(weighting, t));
    rows.row(static_cast<Eigen::Index>(n)) =
        root * terms_at(model, s.y, s.z).head(terms).transpose();
    right[static_cast<Eigen::Index>(n)] = root * s.x;
  }
  const Eigen::VectorXd c = rows.colPivHouseholderQr().solve(right);
  Sheet sheet = model;
  sheet.terms = terms;
  sheet.c = {};
  std::copy_n(c.data(), terms, sheet.c.begin());
  return sheet;
}

TEST(FitStep, EqualsPlainWeightedLeastSquares) {
  const auto samples = samples_of(301, 7, 1.0, 1);
  const Taken taken = {1, 1, 0, 1, 1, 0, 1};
  Sheet model = bent_sheet(3);
  model.c[0] += 0.5;
  for (const Weighting weighting :
       {Weighting::kLeastAbsolute, Weighting::kHuber, Weighting::kTukey}) {
    for (const int terms : {kPlaneTerms, kQuadraticTerms}) {
      for (const std::size_t every : {std::size_t{1}, std::size_t{3}}) {
        const auto sheet = fit_step(samples, taken, model, 3.0, weighting, terms, every);
        ASSERT_TRUE(sheet);
        const Sheet expected = plain_step(samples, taken, model, 3.0, weighting, terms, every);
        EXPECT_EQ(sheet->terms, terms);
        EXPECT_EQ(sheet->y0, 30.0);
        EXPECT_EQ(sheet->zs, 100.0);
        for (std::size_t t = 0; t < 6; ++t) EXPECT_NEAR(sheet->c[t], expected.c[t], 1e-9);
      }
    }
  }
}

TEST(FitStep, GivesNothingWhereTheSamplesDoNotFixTheTerms) {
  auto samples = samples_of(50, 1, 0.0, 2);
  const auto step = [&](int terms) {
    return fit_step(samples, {1}, bent_sheet(3), 1.0, Weighting::kHuber, terms, 1).has_value();
  };
  EXPECT_TRUE(step(3));
  EXPECT_TRUE(step(6));
  for (Sample& s : samples) s.y = 40.0 + (s.y > 0.0 ? 20.0 : 0.0);  // on two lines
  EXPECT_TRUE(step(3));
  EXPECT_FALSE(step(6));
  for (Sample& s : samples) s.y = 40.0;
  EXPECT_FALSE(step(3));
  samples = samples_of(50, 1, 0.0, 2);
  samples[3].x = kestrane_test::kNaN;
  EXPECT_FALSE(step(3));
}

TEST(ScaleAgainst, IsTheMedianSizeOfTheResidualsOfTakenFrames) {
  std::vector<double> scratch = {1.0};
  const Sheet sheet = bent_sheet(6);
  for (const int count : {40, 41}) {
    const auto samples = samples_of(count, 3, 1.0, 3);
    for (const Taken& taken : {Taken{1, 1, 1}, Taken{1, 0, 1}}) {
      for (const std::size_t every : {std::size_t{1}, std::size_t{2}}) {
        EXPECT_NEAR(scale_against(samples, taken, sheet, every, scratch),
                    plain_scale(samples, taken, sheet, every), 1e-12);
      }
    }
  }
  const auto exact = samples_of(20, 1, 0.0, 4);
  EXPECT_EQ(scale_against(exact, {1}, sheet, 1, scratch), 1e-9);  // no less, whatever is exact
}

// --- several steps ---------------------------------------------------------------------------

void expect_same_sheet(const std::optional<FittedSheet>& fitted, const Sheet& sheet, double scale) {
  ASSERT_TRUE(fitted);
  EXPECT_EQ(fitted->sheet.terms, sheet.terms);
  EXPECT_TRUE(same_bits(fitted->sheet.c, sheet.c));
  EXPECT_TRUE(same_bits(fitted->scale, scale));
}

// Least squares, then twelve steps, on every n-th sample: at most 8191 of them.
TEST(AbsoluteFit, TakesTwelveStepsFromLeastSquares) {
  for (const int count : {400, 8191, 8192}) {
    const auto samples = samples_of(count, 5, 1.0, 5);
    const Taken taken = {1, 1, 0, 1, 1};
    const std::size_t every = count == 8192 ? 2 : 1;
    const Spread spread = spread_of(samples);
    for (const int terms : {kPlaneTerms, kQuadraticTerms}) {
      std::vector<double> scratch;
      Sheet sheet{3, spread.y0, spread.z0, spread.ys, spread.zs, {}};
      sheet = *fit_step(samples, taken, sheet, 1e9, Weighting::kHuber, terms, every);
      double scale = scale_against(samples, taken, sheet, every, scratch);
      for (int step = 0; step < 12; ++step) {
        sheet = *fit_step(samples, taken, sheet, scale, Weighting::kLeastAbsolute, terms, every);
        scale = scale_against(samples, taken, sheet, every, scratch);
      }
      expect_same_sheet(absolute_fit(samples, taken, spread, terms), sheet, scale);
    }
  }
}

TEST(Improve, TakesTwoSteps) {
  for (const int count : {300, 65535, 65536}) {
    const auto samples = samples_of(count, 5, 1.0, 6);
    const Taken taken = {1, 0, 1, 1, 1};
    const std::size_t every = count == 65536 ? 2 : 1;
    std::vector<double> scratch;
    Sheet sheet = bent_sheet(6);
    sheet.c[0] += 1.0;
    const FittedSheet from{sheet, 17.0};  // a scale of its own counts for nothing
    double scale = scale_against(samples, taken, sheet, every, scratch);
    for (int step = 0; step < 2; ++step) {
      sheet = *fit_step(samples, taken, sheet, scale, Weighting::kTukey, 6, every);
      scale = scale_against(samples, taken, sheet, every, scratch);
    }
    expect_same_sheet(improve(samples, taken, from, Weighting::kTukey), sheet, scale);
  }
}

TEST(SeveralSteps, GiveNothingWhereOneGivesNothing) {
  auto samples = samples_of(50, 1, 0.0, 7);
  const Spread spread = spread_of(samples);
  for (Sample& s : samples) s.y = 40.0;
  EXPECT_FALSE(absolute_fit(samples, {1}, spread, 3));
  EXPECT_FALSE(improve(samples, {1}, {bent_sheet(3), 1.0}, Weighting::kHuber));
}

}  // namespace
