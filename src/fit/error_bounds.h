// How far a streamed fit can lie from the fit that decomposes the whole cloud: the chain of bounds
// by which a row is rejected for certain.
//
//   normal_error    of the streamed normal, from the decomposed one
//   distance_error  of the distance of any row
//   sum_error       of the sum of all distances, which is the centre of the sigma band
//   band_error      of a row's place beside a bound of the sigma band
//
// Every link is derived from the operations that are carried out, for any order of summation, so it
// holds with every compiler and every width of vectors. Nothing in it was fitted to a measurement.
//
// Notation. u is the unit roundoff, gamma_n = n u / (1 - n u): a sum of n terms, or any value that
// went through n roundings, is off by no more than gamma_n times the sum of sizes. N rows x_i; m
// their centroid, which both fits add up in the same order and so share to the last bit (but for
// the first rejection, see "centroid"); a_i = x_i - m; A the N x 3 matrix of them, |A| its
// Frobenius norm, s1 >= s2 >= s3 its singular values; n the unit normal of the decomposed fit, n'
// the streamed one (turned to the same side), e = |n - n'|; D_i = n . a_i; g the guard that a
// signed distance adds to d.
#pragma once

#include "fit/points.h"
#include "fit/row_kernel.h"

namespace kestrane {

inline constexpr double kUnitRoundoff = 0x1p-53;

// Rounding of a product of up to thirty rotations, which leaves a normal of length 1 +- this.
inline constexpr double kUnitNormal = 128.0 * kUnitRoundoff;

// gamma_n.
double accumulated(double n);

// A centred cloud as the bounds see it.
struct CloudShape {
  double count;             // N
  double rows;              // that are read for N of them; sums go through additions for all
  Eigen::Vector3d spreads;  // s1, s2, s3
  double size;              // |A|
  Eigen::Vector3d rms;      // root mean square of each column of A
  Eigen::Vector3d centroid;
  double centroid_error;  // how far it lies from the decomposed fit's; 0 where they are shared
  double reach;           // at least the largest |a_i|
};

// ---- normal ------------------------------------------------------------------------------------

// How far the third right singular vector turns, where a matrix with these singular values changes
// by `change` in norm. Infinite where nothing can be said.
double turned_by(double change, double second, double third);

// What a decomposition of the whole cloud, and reflections block by block, amount to as a change of
// A.
double decomposition_change(double count, double size);
double reflections_change(double count, double size);

// Of sums over rows, T = sum of (x - c) and P = sum of (x - c)(x - c)', c being some point inside
// the cloud.
struct MomentErrors {
  double sum;       // of T as a length
  double products;  // of P as a norm
};

// trace  of P
// depth  of the sums, in additions
MomentErrors moment_errors(double count, double trace, double depth);

// of       the errors of all moments before rows were dropped; `count` and `trace` are theirs
// dropped  the errors of the dropped rows' own moments
MomentErrors errors_without(const MomentErrors& of, double count, double trace,
                            const MomentErrors& dropped);

// How far a sum one row after another, over N, lies from the rows' true mean.
//
// sizes  mean of |x| + |y| + |z| at most
double mean_error(double count, double sizes);

// How far the scatter about m, as it comes from moments, lies from A' A.
//
// trace  |A|^2
// sum    |T|
double scatter_change(const MomentErrors& of, double count, double trace, double sum, double sizes);

// How far the last eigenvector of a scatter turns, where it changes by `change` in norm. Infinite
// where nothing can be said.
double turned_by_moments(double change, const Eigen::Vector3d& spreads);

// ---- centroid ----------------------------------------------------------------------------------

// How far a centroid from moments lies from that of the decomposed fit.
double centroid_change(const MomentErrors& of, double count, double sum, double sizes);

// ---- distance ----------------------------------------------------------------------------------

// h, for either normal.
double heights_of(const CloudShape& cloud, const Eigen::Vector3d& normal, double normal_error);

// Of the distance of any row.
double distance_error(const CloudShape& cloud, double normal_error, double heights);

// How far d lies from that of the decomposed plane, and any n . x from what it is there.
double height_error(const CloudShape& cloud, double normal_error, double heights);

// ---- sum ---------------------------------------------------------------------------------------

// Of the sum of all distances.
//
// row_error  that of each
double sum_error(const CloudShape& cloud, const Eigen::Vector3d& normal, double normal_error,
                 double heights, const DistanceSums& sums, double row_error);

// ---- band --------------------------------------------------------------------------------------

// Of sigma.
//
// sum, of_sum  the sum of all distances and its error
double deviation_error(const CloudShape& cloud, const Eigen::Vector3d& normal, double normal_error,
                       double heights, double sum, double of_sum, double sigma);

// Of a row beside a bound: the row's own distance, the centre, k deviations, and the roundings of
// the bounds themselves.
double band_error(double of_distance, double of_sum, double of_deviation, double k, double sum,
                  double sigma);

// The same beside a fixed limit.
double limit_error(double of_distance, double heights, double limit);

}  // namespace kestrane
