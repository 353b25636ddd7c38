#include "fit/error_bounds.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "records/guard.h"

namespace kestrane {
namespace {

// Roundings that every row shares alike: of d, of s and of the terms that carry the centroid.
double common_rounding(double heights) {
  return 1.001 * 11.0 * kUnitRoundoff * heights + 2.0 * kGuard;
}

}  // namespace

double accumulated(double n) {
  const double nu = n * kUnitRoundoff;
  return nu < 0.5 ? nu / (1.0 - nu) : std::numeric_limits<double>::infinity();
}

// ---- normal ------------------------------------------------------------------------------------
//
// Perturbation. Let v3 be the third right singular vector of A and v that of A + E. With
// r = (A + E)'(A + E) v3 - s3^2 v3 = s3 E' u3 + (A + E)' E v3, each component of r along another
// right singular vector of A + E is at most s3 p_k + s_k q_k, where (p_1, p_2) and (q_1, q_2) are
// parts of E' u3 and E v3; division by s_k^2 - s3^2 leaves at most max(p_k, q_k) / (s_k - s3). So
//
//   |v - v3| <= sqrt(2) |E| / (s2 - s3 - |E|).
//
// The last |E| is what A + E may have lost of its second singular value; a normal is no longer than
// its sine by more than the rounding that kUnitNormal holds.
double turned_by(double change, double second, double third) {
  const double gap = second - third - change;
  return gap > 0.0 ? std::sqrt(2.0) * change / gap : std::numeric_limits<double>::infinity();
}

// Decomposed normal: |E| of a column-pivoting Householder reduction of N x 3 and of a Jacobi
// iteration on its 3 x 3 triangle.
//
// Reflection of a column c0, c: beta is off by a part h <= (N / 2 + 2) u, half of what the sum of
// squares is. With c0 = -k beta, 0 <= k <= 1, that changes the entries of the reflection, in terms
// of the unit vectors along head and column, by k h, h, h and 2 h at most: 2.7 h in norm. Applying
// it to a column b adds gamma_N of a dot product, sqrt(2 (1 - k)) |b| of it, and up to 40
// roundings. So one application costs (1.35 + 1.42) N u |b|, and the reflected column itself h. The
// first column meets h, the second an application and h, the third two and h: 0.5, 3.3 and 6.1 N u
// of their lengths. Pivoting makes the first column the longest, at least a third of |A|^2:
//   (0.5^2 + 2 * 6.1^2) / 3 < 5^2.
// Centring and scaling add 2 u, three reflections 40 roundings each, the triangle's iteration
// (fewer than ten sweeps of three rotations, 20 roundings each, and what it leaves beside the
// diagonal) fewer than 800.
double decomposition_change(double count, double size) {
  return (5.0 * count + 1000.0) * kUnitRoundoff * size;
}

// Streamed normal from a triangle: the same reflections, but with dot products of 64 additions a
// lane, blocks of 256 rows that are joined level by level, three rows at a time.
double reflections_change(double count, double size) {
  const double levels = std::ceil(std::log2(count / 256.0 + 2.0));
  return (5.0 * 70.0 + 200.0 + levels * (5.0 * 8.0 + 120.0) + 1000.0) * kUnitRoundoff * size;
}

// Streamed normal from moments: T = sum of (x - c), P = sum of (x - c)(x - c)', c being some point
// inside the cloud. Each component of T is off by gamma of its depth and of a rounding, each of the
// nine products by gamma of its depth and of 3; the sizes that enter T add up to at most
// sqrt(N trace P), over three components too, and |P'| over all nine to at most trace P. Rows that
// are dropped are taken off again, one rounding of what was there before.
MomentErrors moment_errors(double count, double trace, double depth) {
  return {accumulated(depth + 1.0) * std::sqrt(count * trace), accumulated(depth + 3.0) * trace};
}

MomentErrors errors_without(const MomentErrors& of, double count, double trace,
                            const MomentErrors& dropped) {
  return {of.sum + dropped.sum + 1.001 * kUnitRoundoff * std::sqrt(count * trace),
          of.products + dropped.products + 1.001 * kUnitRoundoff * trace};
}

// How far a sum one row after another, over N, lies from the rows' true mean: gamma_N for each
// coordinate.
double mean_error(double count, double sizes) { return accumulated(count + 2.0) * sizes; }

// The scatter about m is P - T T' / N + N (m - mean)(m - mean)'. The last part is left out; T T' /
// N costs a few roundings. The 3 x 3 eigen solver leaves fewer than 100.
double scatter_change(const MomentErrors& of, double count, double trace, double sum,
                      double sizes) {
  const double shift = sum / count;
  const double off_mean = mean_error(count, sizes);
  return of.products + (2.0 * shift + of.sum / count) * of.sum + 8.0 * kUnitRoundoff * shift * sum +
         count * off_mean * off_mean + 100.0 * kUnitRoundoff * trace;
}

// An eigenvector of C + E lies within |E| / (gap - |E|) of that of C; sqrt(2) for turning a sine
// into a length generously.
double turned_by_moments(double change, const Eigen::Vector3d& spreads) {
  const double gap = spreads[1] * spreads[1] - spreads[2] * spreads[2] - 3.0 * change;
  return gap > 0.0 ? std::sqrt(2.0) * change / gap : std::numeric_limits<double>::infinity();
}

// ---- centroid ----------------------------------------------------------------------------------
//
// For the first rejection the streamed centroid is c + T / N, and adding up the rows one after
// another is left out: what that moves a distance by is nothing beside a fixed limit. (The second
// rejection has the sum of all distances as its centre, and N times it matters.) It lies as far
// from the mean as T is off and a division and an addition round, and the mean from the decomposed
// fit's centroid as told above.
double centroid_change(const MomentErrors& of, double count, double sum, double sizes) {
  return of.sum / count + 3.0 * kUnitRoundoff * (sum / count + sizes) + mean_error(count, sizes);
}

// ---- distance ----------------------------------------------------------------------------------
//
// The decomposed fit has d off by gamma_3 h from -n . m, h being the sum of |n_j m_j|, and s = d +
// g off by u |s| more. Its distance is (t z + (p x + q y) + k) w with p = a / s and so on:
// multiplied by s, every term went through at most 5 roundings, so that, as |n_j x_j| is at most
// |n_j m_j| + |n_j a_j|, the bracket is off from D by
//
//   gamma_5 (h + sum_j |n_j a_j|) + gamma_5 h + 2 g,
//
// the second part for d and s, whose |s| is at most (1 + gamma_4) h + g. The factor w and the
// length of n are off by parts of D itself, gamma_6 and kUnitNormal. The streamed distance n' . (x
// - m) is off by gamma_4 of sum_j |n'_j a_j|. The sum over j is at most |a_i|. Planes through
// different centroids are that much further apart.

double heights_of(const CloudShape& cloud, const Eigen::Vector3d& normal, double normal_error) {
  return (normal.cwiseAbs().array() + normal_error)
      .matrix()
      .dot((cloud.centroid.cwiseAbs().array() + cloud.centroid_error).matrix());
}

double distance_error(const CloudShape& cloud, double normal_error, double heights) {
  const double own = 10.0 * kUnitRoundoff + 1.1 * kUnitNormal;
  return (normal_error + own) * (cloud.reach + cloud.centroid_error) + cloud.centroid_error +
         common_rounding(heights);
}

double height_error(const CloudShape& cloud, double normal_error, double heights) {
  return normal_error * (cloud.centroid.norm() + cloud.reach) + 2.0 * cloud.centroid_error +
         8.0 * kUnitRoundoff * (heights + cloud.reach) + kGuard;
}

// ---- sum ---------------------------------------------------------------------------------------
//
// The decomposed fit adds N rounded distances one after another: each partial sum is rounded once,
// u times all their sizes (`walk`). The rounded distances are off from D_i as told above; over the
// rows, sum_i |n_j a_ij| is at most N rms_j. The D_i add up to n . (sum of a_i), where the sum of
// a_i is what rounding left the centroid off by: each component gamma_N (|m_j| + rms_j) N. The
// streamed sum runs over n' . a_i, in lanes.
double sum_error(const CloudShape& cloud, const Eigen::Vector3d& normal, double normal_error,
                 double heights, const DistanceSums& sums, double row_error) {
  const double n = cloud.count;
  const double levers = (normal.cwiseAbs().array() + normal_error).matrix().dot(cloud.rms);
  const double off_centre =
      accumulated(n + 2.0) * (cloud.centroid.lpNorm<1>() + cloud.rms.lpNorm<1>());
  const double sizes = std::sqrt(sums.squares / n) + row_error;  // mean of |D| at most
  const double parts = 1.1 * kUnitNormal + accumulated(summation_depth(cloud.rows));
  // Partial sums and chunks of the decomposed fit differ from the streamed ones by row errors.
  const double walk = sums.walk + n * (256.0 + n) * row_error;
  return n * (common_rounding(heights) + 1.001 * 9.0 * kUnitRoundoff * levers + parts * sizes +
              normal_error * off_centre) +
         1.001 * kUnitRoundoff * walk;
}

// ---- band --------------------------------------------------------------------------------------
//
// The band is S -+ k sigma with sigma^2 the mean of (D_i - S)^2.
//   - Rounding moves sigma by no more than the root mean square of what it moves the distances by.
//   - A turned normal moves the mean of D_i^2 by (n' C n' - n C n) / N. Both lie within e of the
//     vector for which that is smallest, so it is at most 4 e^2 |A|^2 / N, and at most e |A| /
//     sqrt(N) as a distance.
//   - A change h of S moves sigma^2 by 2 h (mean of D - S) + h^2, and |mean of D - S| is at most
//     (1 + 1/N) |S|; it moves sigma by h at most.
//   - The sum of squares goes through gamma_(N+3), half of which reaches its root.
double deviation_error(const CloudShape& cloud, const Eigen::Vector3d& normal, double normal_error,
                       double heights, double sum, double of_sum, double sigma) {
  const double n = cloud.count;
  const double levers = (normal.cwiseAbs().array() + normal_error).matrix().dot(cloud.rms);
  const double rounding = common_rounding(heights) + 1.001 * 9.0 * kUnitRoundoff * levers;
  const double lever = normal_error * cloud.size / std::sqrt(n);
  // By a sigma of 0 the quotients are infinite, or not a number, which is not the smaller one.
  const double turned = std::min(lever, 4.0 * lever * lever / sigma);
  const double pull = std::min(1.0, (2.1 * std::abs(sum) + of_sum) / sigma);
  const double relative = accumulated(n + 8.0 + summation_depth(cloud.rows)) + 1.1 * kUnitNormal;
  return rounding + turned + pull * of_sum + relative * sigma;
}

double band_error(double of_distance, double of_sum, double of_deviation, double k, double sum,
                  double sigma) {
  return of_distance + of_sum + k * of_deviation +
         8.0 * kUnitRoundoff * (std::abs(sum) + k * sigma);
}

// Beside a fixed limit the streamed distance is n' . x - n' . m: gamma_5 of the sum of |n'_j x_j|
// and gamma_4 of h, and |n'_j x_j| is at most |n'_j m_j| + |n'_j a_j|. The last part is told above,
// with one rounding more that the length of n leaves room for.
double limit_error(double of_distance, double heights, double limit) {
  return of_distance + 10.0 * kUnitRoundoff * heights + 8.0 * kUnitRoundoff * limit;
}

}  // namespace kestrane
