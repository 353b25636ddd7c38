// The sheet under a screened cloud, step by step: which points are looked at, the sheets drawn
// through a few of them, the nearer half, the reweighting. Least squares and the condition of
// points are the library's own, which have tests of their own.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <tuple>
#include <utility>
#include <vector>

#include "kestrane/quality/screening.h"
#include "quality/screening/sheet_terms.h"

namespace literal {

using kestrane::quality::PointList;
using kestrane::quality::ScreeningSheet;
using kestrane::quality::SheetPoint;
using SheetPoints = std::vector<SheetPoint>;
using Numbers = std::vector<double>;

constexpr double kMost = std::numeric_limits<double>::max();

struct Draws {
  std::uint64_t state;

  std::size_t below(std::size_t count) {
    state += 0x9E3779B97F4A7C15U;
    std::uint64_t x = state;
    x ^= x >> 30;
    x *= 0xBF58476D1CE4E5B9U;
    x ^= x >> 27;
    x *= 0x94D049BB133111EBU;
    x ^= x >> 31;
    return ((x >> 32) * count) >> 32;
  }
};

// One place of each even piece, or all places where there are no more than pieces.
inline std::vector<std::size_t> spread_places(std::size_t count, std::size_t pieces, Draws& draws) {
  std::vector<std::size_t> places;
  if (count <= pieces) {
    for (std::size_t i = 0; i < count; ++i) places.push_back(i);
    return places;
  }
  for (std::size_t k = 0; k < pieces; ++k) {
    const std::size_t first = k * count / pieces;
    const std::size_t next = (k + 1) * count / pieces;
    places.push_back(first + draws.below(next - first));
  }
  return places;
}

inline double off_sheet(const Numbers& c, const SheetPoint& p) {
  const double first = c[1] + c[3] * p.u + c[4] * p.v;
  const double second = c[2] + c[5] * p.v;
  return p.x - (c[0] + p.u * first + p.v * second);
}

inline double size_off(const Numbers& c, const SheetPoint& p) {
  const double size = std::abs(off_sheet(c, p));
  return size < kMost ? size : kMost;  // what is not a number, too
}

inline double middle_size(const SheetPoints& points, const Numbers& c) {
  Numbers sizes;
  for (const SheetPoint& p : points) sizes.push_back(size_off(c, p));
  std::sort(sizes.begin(), sizes.end());
  const std::size_t half = sizes.size() / 2;
  return sizes.size() % 2 == 1 ? sizes[half] : 0.5 * sizes[half - 1] + 0.5 * sizes[half];
}

// Elimination with the largest pivot of each column; rows hold their right side last.
inline bool eliminate(std::vector<Numbers>& rows, Numbers& c) {
  const std::size_t n = rows.size();
  for (std::size_t k = 0; k < n; ++k) {
    std::size_t largest = k;
    for (std::size_t i = k; i < n; ++i) {
      if (std::abs(rows[i][k]) > std::abs(rows[largest][k])) largest = i;
    }
    if (rows[largest][k] == 0.0) return false;
    rows[k].swap(rows[largest]);
    for (std::size_t i = k + 1; i < n; ++i) {
      const double factor = rows[i][k] / rows[k][k];
      for (std::size_t j = k; j <= n; ++j) rows[i][j] -= factor * rows[k][j];
    }
  }
  c.assign(6, 0.0);
  for (std::size_t left = n; left > 0; --left) {
    const std::size_t k = left - 1;
    double rest = rows[k][n];
    for (std::size_t j = left; j < n; ++j) rest -= rows[k][j] * c[j];
    c[k] = rest / rows[k][k];
  }
  return true;
}

inline SheetPoints no_farther(const SheetPoints& points, const Numbers& c, double most) {
  SheetPoints near;
  for (const SheetPoint& p : points) {
    if (size_off(c, p) <= most) near.push_back(p);
  }
  return near;
}

inline Numbers least_squares(const SheetPoints& points, int terms) {
  kestrane::quality::TermSums sums(terms);
  for (const SheetPoint& p : points) sums.add(p);
  Numbers c(6);
  sums.solve(c.data());
  return c;
}

struct Start {
  bool found = false;
  Numbers c = Numbers(6, 0.0);
  SheetPoints support;
  double median = 0.0;
  int steps = 0;  // that brought the median down
};

inline Start start_of(const SheetPoints& sample, int terms, Draws& draws) {
  Start start;
  const auto needed = static_cast<std::size_t>(terms);
  if (sample.size() < needed) return start;
  SheetPoints judges;
  for (const std::size_t i : spread_places(sample.size(), 128, draws)) judges.push_back(sample[i]);
  double best = kMost;
  for (int draw = 0; draw < 128; ++draw) {
    std::vector<Numbers> rows;
    while (rows.size() < needed) {
      const SheetPoint& p = sample[draws.below(sample.size())];
      Numbers row = {1.0, p.u, p.v, p.u * p.u, p.u * p.v, p.v * p.v};
      row.resize(needed);
      row.push_back(p.x);
      rows.push_back(row);
    }
    Numbers c;
    if (!eliminate(rows, c)) continue;
    std::size_t nearer = 0;
    for (const SheetPoint& p : judges) nearer += std::abs(off_sheet(c, p)) < best ? 1 : 0;
    if (2 * nearer <= judges.size()) continue;
    best = middle_size(judges, c);
    start.found = true;
    start.c = c;
  }
  if (!start.found) return start;
  start.median = middle_size(sample, start.c);
  while (true) {
    start.support = no_farther(sample, start.c, start.median);
    if (start.steps == 8) return start;
    const Numbers c = least_squares(start.support, terms);
    const double median = middle_size(sample, c);
    if (!(median < start.median)) return start;
    start.c = c;
    start.median = median;
    ++start.steps;
  }
}

inline double scale_from(double median) { return std::max(1.4826 * median, 1e-9); }

// Centre and half extent of numbers; 1 for the extent of equal ones.
inline std::pair<double, double> middle_and_reach(const Numbers& numbers) {
  const double low = *std::min_element(numbers.begin(), numbers.end());
  const double high = *std::max_element(numbers.begin(), numbers.end());
  return {0.5 * low + 0.5 * high, high > low ? 0.5 * high - 0.5 * low : 1.0};
}

// The sample of a cloud: points beside the fan last, or not at all where they are the fewer ones.
inline PointList sample_of(const PointList& cloud, Draws& draws) {
  PointList inside, beside;
  const double slope = std::tan(0.5235987755982988) + 0.02;
  for (const std::size_t i : spread_places(cloud.size(), 1024, draws)) {
    (std::abs(cloud[i].y) <= slope * cloud[i].z ? inside : beside).push_back(cloud[i]);
  }
  if (inside.size() < beside.size()) inside.insert(inside.end(), beside.begin(), beside.end());
  return inside;
}

inline SheetPoint seen_by(const ScreeningSheet& sheet, const _KESTRANE_ID_POINT3D& p) {
  return {(p.y - sheet.y0) / sheet.ys, (p.z - sheet.z0) / sheet.zs, p.x};
}

inline bool fit_sheet(const SheetPoints& sample, std::int32_t degree, Draws& draws,
                      ScreeningSheet& sheet) {
  const int terms = degree == 2 ? 6 : 3;
  const Start start = start_of(sample, terms, draws);
  if (!start.found) return false;
  const double condition =
      kestrane::quality::scaled_condition(start.support.data(), start.support.size(), terms);
  if (!(condition <= 1e8)) return false;
  Numbers c = start.c;
  double scale = scale_from(start.median);
  for (int round = 0; round < 2; ++round) {
    c = least_squares(no_farther(sample, c, 4.0 * scale), terms);
    scale = scale_from(middle_size(sample, c));
  }
  sheet.degree = degree;
  std::copy(c.begin(), c.end(), sheet.c.begin());
  return true;
}

struct RobustSheet {
  ScreeningSheet sheet;
  Numbers residuals;
};

inline RobustSheet robust_sheet(const PointList& cloud, double gross) {
  RobustSheet fit;
  if (cloud.empty()) return fit;
  Draws draws{0x6B65737472616E65U};
  const PointList picked = sample_of(cloud, draws);
  ScreeningSheet& sheet = fit.sheet;
  Numbers ys, zs;
  for (const auto& p : picked) ys.push_back(p.y);
  for (const auto& p : picked) zs.push_back(p.z);
  std::tie(sheet.y0, sheet.ys) = middle_and_reach(ys);
  std::tie(sheet.z0, sheet.zs) = middle_and_reach(zs);
  SheetPoints sample;
  for (const auto& p : picked) sample.push_back(seen_by(sheet, p));
  if (!fit_sheet(sample, 2, draws, sheet) && !fit_sheet(sample, 1, draws, sheet)) return fit;
  SheetPoints all;
  for (const auto& p : cloud) all.push_back(seen_by(sheet, p));
  const Numbers c(sheet.c.begin(), sheet.c.end());
  for (const SheetPoint& p : all) fit.residuals.push_back(off_sheet(c, p));
  sheet.scale = scale_from(middle_size(all, c));
  sheet.limit = std::max(gross, 10.0 * sheet.scale);
  return fit;
}

}  // namespace literal
