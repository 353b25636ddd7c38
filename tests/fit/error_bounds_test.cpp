// Every link of the chain of bounds, attacked with clouds that are made to break it, against
// numbers of at least 64 bits of mantissa. The literal form is the decomposed fit that the bounds
// speak of.
#include "fit/error_bounds.h"

#include <gtest/gtest.h>

#include <Eigen/Eigenvalues>
#include <algorithm>
#include <cmath>
#include <vector>

#include "fit/plane_decomposition.h"
#include "records/guard.h"
#include "tests/fit/plane_clouds.h"
#include "tests/literal/plane_fit.h"

namespace {

using namespace plane_clouds;
using kestrane::Centroid;
using kestrane::centroid_of;
using kestrane::CloudShape;
using kestrane::DistanceSums;
using kestrane::kUnitRoundoff;
using kestrane::rows_of;
using kestrane::sums_of;

using Real = long double;
using Vector = Eigen::Matrix<Real, 3, 1>;
using Square = Eigen::Matrix<Real, 3, 3>;

// A centred cloud in long numbers, about the centroid that both fits share to the last bit.
struct Cloud {
  PointMatrix3 points;
  Centroid m;
  CloudShape shape;
  Vector thin;  // third right singular vector

  explicit Cloud(const PointMatrix3& rows)
      : points(rows), m(centroid_of(sums_of(rows_of(rows)), rows.rows())) {
    const auto n = static_cast<Real>(points.rows());
    Square gram = Square::Zero();
    Real reach = 0.0L;
    for (Eigen::Index i = 0; i < points.rows(); ++i) {
      const Vector a = row(i);
      gram += a * a.transpose();
      reach = std::max(reach, a.norm());
    }
    const Eigen::SelfAdjointEigenSolver<Square> solver(gram);
    thin = solver.eigenvectors().col(0);
    shape.count = static_cast<double>(n);
    shape.rows = shape.count;
    shape.centroid_error = 0.0;
    for (int k = 0; k < 3; ++k) {
      shape.spreads[k] =
          static_cast<double>(std::sqrt(std::max<Real>(0.0L, solver.eigenvalues()[2 - k])));
      shape.rms[k] = static_cast<double>(std::sqrt(gram(k, k) / n));
    }
    shape.size = static_cast<double>(std::sqrt(gram.trace()));
    shape.centroid = {m.x, m.y, m.z};
    shape.reach = static_cast<double>(reach);
  }

  Vector row(Eigen::Index i) const {
    return Vector(points(i, 0), points(i, 1), points(i, 2)) - Vector(m.x, m.y, m.z);
  }

  std::vector<std::uint64_t> all() const {
    std::vector<std::uint64_t> bits(static_cast<std::size_t>(kestrane::words_for(points.rows())));
    for (Eigen::Index i = 0; i < points.rows(); ++i) {
      bits[static_cast<std::size_t>(i / 64)] |= std::uint64_t{1} << (i % 64);
    }
    return bits;
  }

  kestrane::CloudRows kernel_rows() const { return {points.data(), points.rows()}; }

  // The decomposed plane, and its normal turned to the side of `side`.
  PlaneAbcd decomposed(const Vector& side) const {
    PlaneAbcd plane;
    PlaneFitStats stats;
    EXPECT_TRUE(literal::fit_plane_svd(points, plane, stats));
    return Vector(plane.head<3>().cast<Real>()).dot(side) < 0.0L ? PlaneAbcd(-plane) : plane;
  }
};

// Clouds for which rounding has it easy: columns of one sign far from the origin, whose sums round
// the same way again and again; large rows first or last; rows that repeat; narrow and thin clouds,
// tilted and along the axes; rows on few levels.
PointMatrix3 hostile_cloud(Random& random, int kind) {
  const Eigen::Index count = 64 + random.index(kind % 4 == 0 ? 20000 : 2500);
  Box box{random_rotation(random),
          {200.0, 200.0 * std::pow(10.0, random.uniform(-1.5, 0.0)), 0.0},
          {random.uniform(20.0, 200.0), random.uniform(-90.0, 90.0), random.uniform(200.0, 900.0)}};
  box.spreads[2] = box.spreads[1] * std::pow(10.0, random.uniform(-4.0, -0.3));
  if (random.index(4) == 0) box.axes.setIdentity();
  PointMatrix3 points = box_cloud(random, count, box);
  switch (kind % 8) {
    case 1:
      points.rowwise() += std::pow(10.0, random.uniform(3.0, 8.0)) * Eigen::RowVector3d(1, 1, 1);
      break;
    case 2:
      for (Eigen::Index i = 0; i < count; ++i) points.row(i) = points.row(i % 9).eval();
      points.topRows(9).array() += 0.5;
      break;
    case 3:
      for (Eigen::Index i = 0; i < count; ++i) {
        points.row(i) *= std::pow(10.0, -3.0 * static_cast<double>(i) / static_cast<double>(count));
      }
      break;
    case 4:
      for (Eigen::Index i = 0; i < count; ++i) {
        points.row(i) *= std::pow(10.0, 3.0 * static_cast<double>(i) / static_cast<double>(count));
      }
      break;
    case 5:
      points = (points.array() * 3.0).round() / 3.0;
      break;
    case 6:
      points *= std::pow(10.0, random.uniform(-20.0, 20.0));
      break;
    default:
      break;
  }
  return points;
}

// How much of a bound was used up, and a complaint where it was more than all of it.
class Worst {
 public:
  void see(Real value, Real bound, int run) {
    if (!std::isfinite(static_cast<double>(bound))) return;
    ++decided_;
    ASSERT_LE(value, bound) << "run " << run;
    if (bound > 0.0L) worst_ = std::max(worst_, static_cast<double>(value / bound));
  }

  int decided() const { return decided_; }
  double worst() const { return worst_; }

 private:
  int decided_ = 0;
  double worst_ = 0.0;
};

constexpr int kRuns = 320;

TEST(NormalBound, HoldsForTheDecomposition) {
  Random random(1);
  Worst worst;
  for (int run = 0; run < kRuns; ++run) {
    const Cloud cloud(hostile_cloud(random, run));
    const double change = kestrane::decomposition_change(cloud.shape.count, cloud.shape.size);
    const double bound =
        kestrane::turned_by(change, cloud.shape.spreads[1], cloud.shape.spreads[2]) +
        kestrane::kUnitNormal;
    const Vector normal = cloud.decomposed(cloud.thin).head<3>().cast<Real>();
    ASSERT_NO_FATAL_FAILURE(worst.see((normal - cloud.thin).norm(), bound, run));
  }
  EXPECT_GE(worst.decided(), kRuns / 2);
  RecordProperty("worst", std::to_string(worst.worst()));
}

// Rods that are almost round turn by far more than a normal's own rounding.
TEST(NormalBound, HoldsForTheDecompositionOfRods) {
  Random random(11);
  Worst worst;
  for (int run = 0; run < 40; ++run) {
    const Box box{random_rotation(random), {200.0, 0.2, 0.19}, {50.0, -20.0, 400.0}};
    const Cloud cloud(box_cloud(random, 64 + random.index(1000), box));
    const double change = kestrane::decomposition_change(cloud.shape.count, cloud.shape.size);
    const double bound =
        kestrane::turned_by(change, cloud.shape.spreads[1], cloud.shape.spreads[2]) +
        kestrane::kUnitNormal;
    const Vector normal = cloud.decomposed(cloud.thin).head<3>().cast<Real>();
    ASSERT_NO_FATAL_FAILURE(worst.see((normal - cloud.thin).norm(), bound, run));
  }
  EXPECT_GE(worst.decided(), 20);
}

TEST(NormalBound, HoldsForReflections) {
  Random random(2);
  Worst worst;
  for (int run = 0; run < kRuns; ++run) {
    const Cloud cloud(hostile_cloud(random, run));
    const kestrane::ThinDirection thin =
        thin_direction_of(reduce_centred(rows_of(cloud.points), cloud.m));
    const double change = kestrane::reflections_change(cloud.shape.count, cloud.shape.size);
    const double bound =
        kestrane::turned_by(change, cloud.shape.spreads[1], cloud.shape.spreads[2]) +
        kestrane::kUnitNormal;
    Vector normal = thin.normal.cast<Real>();
    if (normal.dot(cloud.thin) < 0.0L) normal = -normal;
    ASSERT_NO_FATAL_FAILURE(worst.see((normal - cloud.thin).norm(), bound, run));
    for (int k = 0; k < 3; ++k) {
      ASSERT_LE(std::abs(thin.spreads[k] - cloud.shape.spreads[k]), change) << run;
    }
  }
  EXPECT_GE(worst.decided(), kRuns / 2);
}

// Moments about a point that is not the centroid, of all rows but those that two rejections drop,
// the first of them far out.
struct Gathered {
  std::vector<std::uint64_t> in_use;
  Eigen::Vector3d point;
  Eigen::Vector3d sum = Eigen::Vector3d::Zero();
  Square gram = Square::Zero();  // the true ones
  Vector true_sum = Vector::Zero();
  Eigen::Matrix3d products = Eigen::Matrix3d::Zero();
  kestrane::MomentErrors errors{};
  double count = 0.0;

  void take(const kestrane::RowMoments& m, double sign) {
    const double* p = m.products;
    Eigen::Matrix3d matrix;
    matrix << p[0], p[1], p[2], p[1], p[3], p[4], p[2], p[4], p[5];
    count += sign * static_cast<double>(m.count);
    sum += sign * Eigen::Vector3d(m.sum[0], m.sum[1], m.sum[2]);
    products += sign * matrix;
  }

  Gathered(Random& random, const PointMatrix3& points, const Eigen::Vector3d& about, double reach)
      : in_use(static_cast<std::size_t>(kestrane::words_for(points.rows()))), point(about) {
    const auto& passes = row_passes(kestrane::best_row_vectors());
    const kestrane::CloudRows rows{points.data(), points.rows()};
    const auto all = static_cast<double>(points.rows());
    kestrane::RowMoments moments;
    double farthest;
    passes.select(rows, {-kInf, kInf, {point[0], point[1], point[2]}}, in_use.data(), moments,
                  farthest);
    take(moments, 1.0);
    errors = kestrane::moment_errors(count, products.trace(), kestrane::summation_depth(all));
    for (const double share : {0.9, 0.7}) {
      const Eigen::Vector3d normal =
          Eigen::Vector3d(random.gaussian(), random.gaussian(), random.gaussian()).normalized();
      kestrane::RejectionJob job{{{}, {}}, 0.0, share * reach, {}};
      for (int k = 0; k < 3; ++k) {
        job.plane.point[k] = job.moments_point[k] = point[k];
        job.plane.normal[k] = normal[k];
      }
      std::vector<std::uint64_t> kept(in_use.size());
      kestrane::Rejection rejection;
      passes.reject(rows, job, in_use.data(), kept.data(), rejection);
      const double* p = rejection.dropped.products;
      errors = kestrane::errors_without(
          errors, count, products.trace(),
          kestrane::moment_errors(static_cast<double>(rejection.dropped.count), p[0] + p[3] + p[5],
                                  kestrane::dropped_depth(all)));
      take(rejection.dropped, -1.0);
      in_use.swap(kept);
    }
    for (Eigen::Index i = 0; i < points.rows(); ++i) {
      if ((in_use[static_cast<std::size_t>(i / 64)] >> (i % 64) & 1U) == 0) continue;
      const Vector a = Vector(points(i, 0), points(i, 1), points(i, 2)) - point.cast<Real>();
      true_sum += a;
      gram += a * a.transpose();
    }
  }
};

TEST(NormalBound, HoldsForMoments) {
  Random random(3);
  Worst worst_sum, worst_products;
  int with_dropped = 0;
  for (int run = 0; run < kRuns; ++run) {
    const Cloud cloud(hostile_cloud(random, run));
    const Eigen::Vector3d point =
        cloud.shape.centroid +
        0.3 * cloud.shape.rms.norm() *
            Eigen::Vector3d(random.uniform(-1, 1), random.uniform(-1, 1), random.uniform(-1, 1));
    const Gathered gathered(random, cloud.points, point, cloud.shape.reach);
    with_dropped += gathered.count < cloud.shape.count ? 1 : 0;
    ASSERT_NO_FATAL_FAILURE(worst_sum.see((gathered.sum.cast<Real>() - gathered.true_sum).norm(),
                                          gathered.errors.sum, run));
    ASSERT_NO_FATAL_FAILURE(worst_products.see(
        (gathered.products.cast<Real>() - gathered.gram).norm(), gathered.errors.products, run));
  }
  EXPECT_GE(with_dropped, kRuns / 4);
  EXPECT_GE(worst_sum.worst(), 1e-3);
  EXPECT_GE(worst_products.worst(), 1e-3);
}

// The scatter about the centroid, which both fits share.
TEST(NormalBound, HoldsForTheScatter) {
  Random random(12);
  for (int run = 0; run < kRuns; ++run) {
    const Cloud cloud(hostile_cloud(random, run));
    const Eigen::Vector3d point =
        cloud.shape.centroid +
        0.3 * cloud.shape.rms.norm() *
            Eigen::Vector3d(random.uniform(-1, 1), random.uniform(-1, 1), random.uniform(-1, 1));
    const Gathered gathered(random, cloud.points, point, kInf);
    const double n = cloud.shape.count;
    ASSERT_EQ(gathered.count, n);
    const Eigen::Matrix3d scatter = gathered.products - gathered.sum * gathered.sum.transpose() / n;
    Square gram = Square::Zero();
    for (Eigen::Index i = 0; i < cloud.points.rows(); ++i) {
      gram += cloud.row(i) * cloud.row(i).transpose();
    }
    const double trace = static_cast<double>(gram.trace());
    const double sizes = cloud.shape.centroid.lpNorm<1>() + std::sqrt(3.0 * trace / n);
    const double bound =
        kestrane::scatter_change(gathered.errors, n, trace, gathered.sum.norm(), sizes);
    ASSERT_LE(static_cast<double>((scatter.cast<Real>() - gram).norm()), bound) << run;
  }
}

// A centroid from moments, beside the sum of one row after another.
TEST(CentroidBound, HoldsForTheCentroidOfMoments) {
  Random random(13);
  Worst worst;
  for (int run = 0; run < kRuns; ++run) {
    PointMatrix3 points = hostile_cloud(random, run);
    if (run % 2 == 0) points.rowwise() = points.row(0).eval();  // every addition rounds alike
    const Cloud cloud(points);
    const Eigen::Vector3d point =
        cloud.shape.centroid +
        0.3 * Eigen::Vector3d(random.gaussian(), random.gaussian(), random.gaussian())
                  .cwiseProduct(cloud.shape.rms);
    const Gathered gathered(random, points, point, kInf);
    const double n = cloud.shape.count;
    const double sizes =
        cloud.shape.centroid.lpNorm<1>() + std::sqrt(3.0) * cloud.shape.size / std::sqrt(n);
    const double bound = kestrane::centroid_change(gathered.errors, n, gathered.sum.norm(), sizes);
    const Eigen::Vector3d mean = point + gathered.sum / n;
    ASSERT_NO_FATAL_FAILURE(worst.see((mean - cloud.shape.centroid).norm(), bound, run));
  }
  EXPECT_GE(worst.worst(), 0.02);
}

// Signed distances as the literal form rounds them, to a plane of the very normal.
struct Distances {
  std::vector<double> rounded;
  std::vector<Real> exact;  // n . (x - m), turned to the side of the rounded ones
  double heights;

  Distances(const Cloud& cloud, const Eigen::Vector3d& normal) {
    PlaneAbcd plane;
    plane << normal, -(normal[0] * cloud.m.x + normal[1] * cloud.m.y + normal[2] * cloud.m.z);
    literal::plane_signed_distances(cloud.points, plane, rounded);
    const double s = plane[3] + kestrane::kGuard;
    const bool turned = 0.0 > plane[0] / s ? s > 0.0 : s < 0.0;
    const Vector n = normal.cast<Real>();
    for (Eigen::Index i = 0; i < cloud.points.rows(); ++i) {
      exact.push_back(turned ? -n.dot(cloud.row(i)) : n.dot(cloud.row(i)));
    }
    heights = kestrane::heights_of(cloud.shape, normal, 0.0);
  }
};

TEST(DistanceBound, HoldsForTheRoundingOfEveryRow) {
  Random random(4);
  Worst worst;
  for (int run = 0; run < kRuns; ++run) {
    const Cloud cloud(hostile_cloud(random, run));
    const Distances distances(cloud, cloud.thin.cast<double>().normalized());
    const Real bound = kestrane::distance_error(cloud.shape, 0.0, distances.heights);
    for (std::size_t i = 0; i < distances.exact.size(); ++i) {
      ASSERT_NO_FATAL_FAILURE(
          worst.see(std::abs(distances.rounded[i] - distances.exact[i]), bound, run));
    }
  }
  EXPECT_GE(worst.worst(), 1e-3);  // else the bound says nothing
}

// Any normal, far from the thin direction too: the rounding has nothing to do with the fit.
TEST(DistanceBound, HoldsForAnyNormal) {
  Random random(5);
  Worst worst;
  for (int run = 0; run < kRuns; ++run) {
    const Cloud cloud(hostile_cloud(random, run));
    Eigen::Vector3d normal(random.gaussian(), random.gaussian(), random.gaussian());
    for (int k = 0; k < 3; ++k) {
      if (random.index(4) == 0) normal[k] *= 1e-9;
    }
    const Distances distances(cloud, normal.normalized());
    const Real bound = kestrane::distance_error(cloud.shape, 0.0, distances.heights);
    for (std::size_t i = 0; i < distances.exact.size(); ++i) {
      ASSERT_NO_FATAL_FAILURE(
          worst.see(std::abs(distances.rounded[i] - distances.exact[i]), bound, run));
    }
  }
}

TEST(DistanceBound, HoldsForATurnedNormal) {
  Random random(6);
  Worst worst;
  for (int run = 0; run < kRuns; ++run) {
    const Cloud cloud(hostile_cloud(random, run));
    const double angle = std::pow(10.0, random.uniform(-12.0, -3.0));
    const Eigen::Vector3d normal = cloud.thin.cast<double>().normalized();
    const Eigen::Vector3d turned =
        Eigen::AngleAxisd(angle, normal.unitOrthogonal()).toRotationMatrix() * normal;
    const Distances distances(cloud, turned);
    const Real e = (turned - normal).cast<Real>().norm();
    const double heights = kestrane::heights_of(cloud.shape, normal, static_cast<double>(e));
    const Real bound = kestrane::distance_error(cloud.shape, static_cast<double>(e), heights);
    const bool same_side = distances.exact[0] * turned.cast<Real>().dot(cloud.row(0)) >= 0.0L;
    for (std::size_t i = 0; i < distances.exact.size(); ++i) {
      const Real near = normal.cast<Real>().dot(cloud.row(static_cast<Eigen::Index>(i)));
      ASSERT_NO_FATAL_FAILURE(
          worst.see(std::abs(distances.rounded[i] - (same_side ? near : -near)), bound, run));
    }
  }
  EXPECT_GE(worst.worst(), 0.3);
}

// Beside a limit: the distance as the pass works it out, and as the literal form does. A row at a
// time, so that the nearest one is known.
TEST(LimitBound, HoldsForTheDistanceOfARejection) {
  Random random(14);
  Worst worst;
  const auto& passes = row_passes(kestrane::best_row_vectors());
  for (int run = 0; run < kRuns; ++run) {
    const Cloud cloud(hostile_cloud(random, run));
    Eigen::Vector3d normal(random.gaussian(), random.gaussian(), random.gaussian());
    if (run % 2 == 0) normal = cloud.thin.cast<double>();
    normal.normalize();
    const Distances distances(cloud, normal);
    const double of_distance = kestrane::distance_error(cloud.shape, 0.0, distances.heights);
    const Real bound = kestrane::limit_error(of_distance, distances.heights, 0.0);
    const kestrane::RejectionJob job{
        {{cloud.m.x, cloud.m.y, cloud.m.z}, {normal[0], normal[1], normal[2]}}, 0.0, 0.0, {}};
    for (int k = 0; k < 20; ++k) {
      const auto i = static_cast<std::size_t>(random.index(static_cast<int>(cloud.points.rows())));
      std::vector<std::uint64_t> one(cloud.all().size()), kept(one.size());
      one[i / 64] = std::uint64_t{1} << (i % 64);
      kestrane::Rejection rejection;
      passes.reject(cloud.kernel_rows(), job, one.data(), kept.data(), rejection);
      const Real off = std::abs(rejection.nearest - std::abs(Real{distances.rounded[i]}));
      ASSERT_NO_FATAL_FAILURE(worst.see(off, bound, run));
    }
  }
  EXPECT_GE(worst.worst(), 1e-2);
}

// The literal form's band by its own plane, and the streamed one by a plane that is turned a
// little.
struct Bands {
  double literal_sum = 0.0;
  double literal_sigma = 0.0;
  DistanceSums sums;
  double sigma;
  double of_distance;
  double of_sum;
  double of_deviation;

  Bands(const Cloud& cloud, const Eigen::Vector3d& streamed) {
    const PlaneAbcd plane = cloud.decomposed(streamed.cast<Real>());
    std::vector<double> distances;
    literal::plane_signed_distances(cloud.points, plane, distances);
    for (const double d : distances) literal_sum += d;
    double squares = 0.0;
    for (const double d : distances) squares += (d - literal_sum) * (d - literal_sum);
    literal_sigma = std::sqrt(squares / static_cast<double>(distances.size()));
    const double s = plane[3] + kestrane::kGuard;
    if (0.0 > plane[0] / s ? s > 0.0 : s < 0.0) literal_sum = -literal_sum;
    const std::vector<std::uint64_t> in_use = cloud.all();
    std::vector<std::uint64_t> kept(in_use.size());
    const kestrane::PointAndNormal at{{cloud.m.x, cloud.m.y, cloud.m.z},
                                      {streamed[0], streamed[1], streamed[2]}};
    kestrane::Rejection rejection;
    row_passes(kestrane::best_row_vectors())
        .reject_and_sum(cloud.kernel_rows(), {at, 0.0, kInf, {}}, in_use.data(), kept.data(),
                        rejection, sums, nullptr, 0);
    const double n = cloud.shape.count;
    sigma = std::sqrt((sums.squares + (n - 2.0) * sums.sum * sums.sum) / n);
    const double e = (plane.head<3>() - streamed).norm() + kestrane::kUnitNormal;
    const double heights = kestrane::heights_of(cloud.shape, streamed, e);
    of_distance = kestrane::distance_error(cloud.shape, e, heights);
    of_sum = kestrane::sum_error(cloud.shape, streamed, e, heights, sums, of_distance);
    of_deviation =
        kestrane::deviation_error(cloud.shape, streamed, e, heights, sums.sum, of_sum, sigma);
  }
};

// The streamed normal of the cloud, and one that is turned by `angle` from it.
Eigen::Vector3d streamed_normal(Random& random, const Cloud& cloud, double angle) {
  const Eigen::Vector3d normal = cloud.thin.cast<double>().normalized();
  const Eigen::Vector3d axis =
      normal.cross(Eigen::Vector3d(random.gaussian(), random.gaussian(), random.gaussian()));
  return (Eigen::AngleAxisd(angle, axis.normalized()).toRotationMatrix() * normal).normalized();
}

TEST(SumBound, HoldsForSumsOneRowAfterAnother) {
  Random random(7);
  Worst worst;
  for (int run = 0; run < kRuns; ++run) {
    const Cloud cloud(hostile_cloud(random, run));
    const double angle = run % 2 == 0 ? 0.0 : std::pow(10.0, random.uniform(-15.0, -10.0));
    const Bands bands(cloud, streamed_normal(random, cloud, angle));
    ASSERT_NO_FATAL_FAILURE(
        worst.see(std::abs(bands.literal_sum - bands.sums.sum), bands.of_sum, run));
  }
  EXPECT_GE(worst.worst(), 1e-3);
}

// Rows at one place on either side of a plane far out: every distance is rounded the same way, and
// the roundings add up as far as they can.
TEST(SumBound, HoldsWhereEveryRowRoundsTheSameWay) {
  Random random(8);
  Worst worst;
  for (int run = 0; run < kRuns; ++run) {
    const double y = random.uniform(1.0, 300.0);
    const double z = random.uniform(1.0, 300.0);
    const Eigen::RowVector3d centre(random.uniform(-300.0, 300.0), random.uniform(-300.0, 300.0),
                                    random.uniform(300.0, 900.0));
    const Eigen::Matrix3d axes = random_rotation(random);
    const Eigen::Index quarter = 50 + random.index(3000);
    PointMatrix3 points(4 * quarter, 3);
    for (Eigen::Index i = 0; i < quarter; ++i) {
      const double x = 0.1 * (i % 2 == 0 ? 1.0 : -1.0);
      points.middleRows(4 * i, 4) << x, y, z, -x, -y, z, x, -y, -z, -x, y, -z;
    }
    const Cloud cloud((points * axes.transpose()).rowwise() + centre);
    const Bands bands(cloud, streamed_normal(random, cloud, 0.0));
    ASSERT_NO_FATAL_FAILURE(
        worst.see(std::abs(bands.literal_sum - bands.sums.sum), bands.of_sum, run));
  }
  EXPECT_GE(worst.worst(), 0.02);
}

TEST(BandBound, HoldsForTheDeviation) {
  Random random(9);
  Worst worst;
  for (int run = 0; run < kRuns; ++run) {
    const Cloud cloud(hostile_cloud(random, run));
    const double angle = run % 2 == 0 ? 0.0 : std::pow(10.0, random.uniform(-15.0, -6.0));
    const Bands bands(cloud, streamed_normal(random, cloud, angle));
    ASSERT_NO_FATAL_FAILURE(
        worst.see(std::abs(bands.literal_sigma - bands.sigma), bands.of_deviation, run));
  }
  EXPECT_GE(worst.worst(), 1e-3);
}

TEST(BandBound, HoldsForBothBoundsAndARowBesideThem) {
  constexpr double kTwo = 2.0;
  Random random(10);
  Worst worst;
  for (int run = 0; run < kRuns; ++run) {
    const Cloud cloud(hostile_cloud(random, run));
    const Bands bands(cloud, streamed_normal(random, cloud, 0.0));
    const double bound = kestrane::band_error(bands.of_distance, bands.of_sum, bands.of_deviation,
                                              kTwo, bands.sums.sum, bands.sigma);
    for (const double side : {-kTwo, kTwo}) {
      const Real moved = std::abs((bands.literal_sum + side * bands.literal_sigma) -
                                  (bands.sums.sum + side * bands.sigma));
      ASSERT_NO_FATAL_FAILURE(worst.see(moved + bands.of_distance, bound, run));
    }
  }
}

TEST(BandBound, AddsUpItsLinks) {
  EXPECT_EQ(kestrane::band_error(1.0, 2.0, 3.0, 2.0, 0.0, 0.0), 9.0);
  EXPECT_EQ(kestrane::band_error(0.0, 0.0, 0.0, 2.0, -3.0, 0.5), 32.0 * kUnitRoundoff);
  EXPECT_EQ(kestrane::limit_error(1.0, 0.0, 0.0), 1.0);
  EXPECT_EQ(kestrane::limit_error(0.0, 2.0, 0.5), 24.0 * kUnitRoundoff);
}

TEST(NormalBound, SaysNothingWhereTheSecondSpreadIsTheThird) {
  EXPECT_TRUE(std::isinf(kestrane::turned_by(1e-3, 5.0, 5.0)));
  EXPECT_TRUE(std::isinf(kestrane::turned_by(1e-3, 5.0, 4.9995)));
  EXPECT_NEAR(kestrane::turned_by(1e-9, 5.0, 4.0), std::sqrt(2.0) * 1e-9, 1e-17);
  EXPECT_TRUE(std::isinf(kestrane::turned_by_moments(1.0, {9.0, 2.0, 1.5})));
}

// ---- the formulas themselves -------------------------------------------------------------------

constexpr Real kU = 0x1p-53L;
constexpr Real kGuard = 0x1p-52L;  // to 1e-16 of it

Real gamma(Real n) { return n * kU / (1.0L - n * kU); }

// As derived, in long numbers. Inputs of any size, so that every part of a sum is the largest one
// in some run.
class EachBound : public testing::Test {
 protected:
  static constexpr int kTimes = 400;

  double any() { return std::pow(10.0, random.uniform(-20.0, 20.0)); }
  double number(double most) { return std::floor(std::pow(10.0, random.uniform(0.0, most))); }
  Eigen::Vector3d any_vector() { return {any(), -any(), any()}; }

  CloudShape any_shape() {
    return {number(6), number(9), {}, any(), any_vector().cwiseAbs(), any_vector(), any(), any()};
  }

  static Real common(Real heights) { return 11.011L * kU * heights + 2.0L * kGuard; }

  static Real levers(const CloudShape& cloud, const Eigen::Vector3d& normal, Real normal_error) {
    Real sum = 0.0L;
    for (int k = 0; k < 3; ++k) sum += (std::abs(Real{normal[k]}) + normal_error) * cloud.rms[k];
    return sum;
  }

  static void expect_equal(double value, Real expected) {
    EXPECT_LE(std::abs(value - expected), 1e-13L * expected) << value;
  }

  Random random{15};
};

TEST_F(EachBound, OfTheNormalEqualsItsFormula) {
  for (int run = 0; run < kTimes; ++run) {
    const double count = number(6), trace = any(), depth = number(6), size = any();
    expect_equal(kestrane::decomposition_change(count, size), (5.0L * count + 1000.0L) * kU * size);
    int levels = 0;  // of blocks of 256 rows, and two blocks more
    while (256.0 * std::ldexp(1.0, levels) < count + 512.0) ++levels;
    expect_equal(kestrane::reflections_change(count, size),
                 (1550.0L + 160.0L * static_cast<Real>(levels)) * kU * size);
    const kestrane::MomentErrors of{any(), any()}, dropped{any(), any()};
    const kestrane::MomentErrors alone = kestrane::moment_errors(count, trace, depth);
    const Real root = std::sqrt(Real{count} * trace);
    expect_equal(alone.sum, gamma(depth + 1.0L) * root);
    expect_equal(alone.products, gamma(depth + 3.0L) * trace);
    const kestrane::MomentErrors rest = kestrane::errors_without(of, count, trace, dropped);
    expect_equal(rest.sum, Real{of.sum} + dropped.sum + 1.001L * kU * root);
    expect_equal(rest.products, Real{of.products} + dropped.products + 1.001L * kU * trace);
    const double sum = any(), sizes = any();
    const Real off_mean = gamma(count + 2.0L) * sizes;
    expect_equal(kestrane::mean_error(count, sizes), off_mean);
    const Real shift = Real{sum} / count;
    expect_equal(kestrane::scatter_change(of, count, trace, sum, sizes),
                 of.products + 2.0L * shift * of.sum + Real{of.sum} * of.sum / count +
                     8.0L * kU * shift * sum + count * off_mean * off_mean + 100.0L * kU * trace);
  }
}

TEST_F(EachBound, OfATurnEqualsItsFormula) {
  const Real root = std::sqrt(2.0L);
  for (int run = 0; run < kTimes; ++run) {
    const double second = any(), third = random.uniform(0.0, 0.5) * second;
    const double change = random.uniform(0.0, 0.4) * second;
    expect_equal(kestrane::turned_by(change, second, third),
                 root * change / (Real{second} - third - change));
    const double of_squares = random.uniform(0.0, 0.2) * second * second;
    expect_equal(
        kestrane::turned_by_moments(of_squares, {any(), second, third}),
        root * of_squares / (Real{second} * second - Real{third} * third - 3.0L * of_squares));
  }
}

TEST_F(EachBound, OfCentroidAndDistanceEqualsItsFormula) {
  for (int run = 0; run < kTimes; ++run) {
    const CloudShape cloud = any_shape();
    const double sum = any(), sizes = any(), error = any(), heights = any(), limit = any();
    const kestrane::MomentErrors of{any(), any()};
    expect_equal(kestrane::centroid_change(of, cloud.count, sum, sizes),
                 of.sum / Real{cloud.count} + 3.0L * kU * (sum / Real{cloud.count} + sizes) +
                     gamma(cloud.count + 2.0L) * sizes);
    const Eigen::Vector3d normal = any_vector();
    Real own = 0.0L;
    for (int k = 0; k < 3; ++k) {
      own += (std::abs(Real{normal[k]}) + error) *
             (std::abs(Real{cloud.centroid[k]}) + cloud.centroid_error);
    }
    expect_equal(kestrane::heights_of(cloud, normal, error), own);
    const Real reach = cloud.reach, centroid_error = cloud.centroid_error;
    expect_equal(
        kestrane::distance_error(cloud, error, heights),
        (error + 150.8L * kU) * (reach + centroid_error) + centroid_error + common(heights));
    const Real from_origin = cloud.centroid.cast<Real>().norm();
    expect_equal(kestrane::height_error(cloud, error, heights),
                 error * (from_origin + reach) + 2.0L * centroid_error +
                     8.0L * kU * (heights + reach) + kGuard);
    expect_equal(kestrane::limit_error(error, heights, limit),
                 error + 10.0L * kU * heights + 8.0L * kU * limit);
  }
}

TEST_F(EachBound, OfTheSumEqualsItsFormula) {
  for (int run = 0; run < kTimes; ++run) {
    const CloudShape cloud = any_shape();
    const Eigen::Vector3d normal = any_vector();
    const double error = any(), heights = any(), row_error = any();
    const DistanceSums sums{any(), any(), any()};
    const Real n = cloud.count;
    const Real additions = 132.0L + cloud.rows / 16384.0L;
    const Real off_centre = gamma(n + 2.0L) * (cloud.centroid.cwiseAbs().cast<Real>().sum() +
                                               cloud.rms.cast<Real>().sum());
    const Real each = common(heights) + 9.009L * kU * levers(cloud, normal, error) +
                      (140.8L * kU + gamma(additions)) * (std::sqrt(sums.squares / n) + row_error) +
                      error * off_centre;
    expect_equal(kestrane::sum_error(cloud, normal, error, heights, sums, row_error),
                 n * each + 1.001L * kU * (sums.walk + n * (256.0L + n) * row_error));
  }
}

TEST_F(EachBound, OfTheBandEqualsItsFormula) {
  for (int run = 0; run < kTimes; ++run) {
    const CloudShape cloud = any_shape();
    const Eigen::Vector3d normal = any_vector();
    const double error = any(), heights = any(), of_sum = any();
    const double sum = run % 2 == 0 ? any() : -any();
    const double sigma = run % 10 == 0 ? 0.0 : any();
    const Real n = cloud.count;
    const Real lever = error * Real{cloud.size} / std::sqrt(n);
    Real turned = lever, pull = 1.0L;
    if (sigma > 0.0) {
      turned = std::min(lever, 4.0L * lever * lever / sigma);
      pull = std::min(1.0L, (2.1L * std::abs(Real{sum}) + of_sum) / sigma);
    }
    const Real relative = gamma(n + 140.0L + cloud.rows / 16384.0L) + 140.8L * kU;
    expect_equal(kestrane::deviation_error(cloud, normal, error, heights, sum, of_sum, sigma),
                 common(heights) + 9.009L * kU * levers(cloud, normal, error) + turned +
                     pull * of_sum + relative * sigma);
    const double of_distance = any(), of_deviation = any(), k = number(1);
    expect_equal(kestrane::band_error(of_distance, of_sum, of_deviation, k, sum, sigma),
                 Real{of_distance} + of_sum + k * Real{of_deviation} +
                     8.0L * kU * (std::abs(Real{sum}) + k * Real{sigma}));
  }
}

TEST(Accumulated, IsGamma) {
  EXPECT_EQ(kestrane::accumulated(0.0), 0.0);
  EXPECT_EQ(kestrane::accumulated(4.0), 4.0 * kUnitRoundoff / (1.0 - 4.0 * kUnitRoundoff));
  EXPECT_TRUE(std::isinf(kestrane::accumulated(1e16)));
}

}  // namespace
