// The figures of a field calibration once more, number by number and without a matrix library: what
// quality/field is held against. Nothing here is shared with it.
#pragma once

#include <algorithm>
#include <cmath>
#include <map>
#include <utility>
#include <vector>

namespace literal {

struct FieldPoint {
  double p[3];
  double n[3];  // unit normal of its cell, n[0] > 0
  double d;     // n p + d = 0 on the cell
  int plane;
  int frame;
};

struct FieldFigures {
  double centre[3];
  double length;
  double values[6];      // ascending
  double vectors[6][6];  // one per row
  double sigma[6];       // infinite where nothing moves
  bool fixed[6];
  double by_frame[6][6];  // covariance; 0 where there is none
  double by_plane[6][6];
  double observed[6][6];  // projector
  double residual;        // s0
  double R[9];            // smallest motion
  double t[3];
};

// Eigenvalues of a symmetric matrix, ascending, by turning one pair of axes after the other until
// nothing is left beside the diagonal.
inline void jacobi(const double (&matrix)[6][6], double (&values)[6], double (&vectors)[6][6]) {
  double a[6][6];
  double v[6][6] = {};
  for (int i = 0; i < 6; ++i) {
    v[i][i] = 1.0;
    for (int j = 0; j < 6; ++j) a[i][j] = matrix[i][j];
  }
  for (int sweep = 0; sweep < 60; ++sweep) {
    for (int p = 0; p < 6; ++p) {
      for (int q = p + 1; q < 6; ++q) {
        if (a[p][q] == 0.0) continue;
        const double angle = 0.5 * std::atan2(2.0 * a[p][q], a[q][q] - a[p][p]);
        const double c = std::cos(angle);
        const double s = std::sin(angle);
        for (int k = 0; k < 6; ++k) {
          const double x = a[k][p];
          const double y = a[k][q];
          a[k][p] = c * x - s * y;
          a[k][q] = s * x + c * y;
        }
        for (int k = 0; k < 6; ++k) {
          const double x = a[p][k];
          const double y = a[q][k];
          a[p][k] = c * x - s * y;
          a[q][k] = s * x + c * y;
        }
        for (int k = 0; k < 6; ++k) {
          const double x = v[p][k];
          const double y = v[q][k];
          v[p][k] = c * x - s * y;
          v[q][k] = s * x + c * y;
        }
      }
    }
  }
  std::vector<std::pair<double, int>> order;
  for (int i = 0; i < 6; ++i) order.push_back({a[i][i], i});
  std::sort(order.begin(), order.end());
  for (int i = 0; i < 6; ++i) {
    values[i] = order[static_cast<std::size_t>(i)].first;
    for (int k = 0; k < 6; ++k) {
      vectors[i][k] = v[order[static_cast<std::size_t>(i)].second][k];
    }
  }
}

inline void rotate(const double* R, const double* x, double* out) {
  for (int i = 0; i < 3; ++i) {
    out[i] = R[3 * i] * x[0] + R[3 * i + 1] * x[1] + R[3 * i + 2] * x[2];
  }
}

inline double dot(const double* a, const double* b) {
  return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

// [((p - c) x n) / L, n]
inline void field_row(const double* p, const double* n, const double* c, double L, double* row) {
  const double q[3] = {p[0] - c[0], p[1] - c[1], p[2] - c[2]};
  row[0] = (q[1] * n[2] - q[2] * n[1]) / L;
  row[1] = (q[2] * n[0] - q[0] * n[2]) / L;
  row[2] = (q[0] * n[1] - q[1] * n[0]) / L;
  for (int i = 0; i < 3; ++i) row[3 + i] = n[i];
}

inline void log_rotation(const double* R, double* omega) {
  const double w[3] = {0.5 * (R[7] - R[5]), 0.5 * (R[2] - R[6]), 0.5 * (R[3] - R[1])};
  const double sine = std::sqrt(dot(w, w));
  const double cosine = 0.5 * (R[0] + R[4] + R[8] - 1.0);
  const double angle = std::atan2(sine, cosine);
  for (int i = 0; i < 3; ++i) omega[i] = sine > 0.0 ? w[i] * angle / sine : 0.0;
}

inline void exp_rotation(const double* omega, double* R) {
  const double angle = std::sqrt(dot(omega, omega));
  const double f = angle > 0.0 ? std::sin(angle) / angle : 1.0;
  const double half = std::sin(0.5 * angle);
  const double g = angle > 0.0 ? 2.0 * half * half / (angle * angle) : 0.5;
  const double K[9] = {0, -omega[2], omega[1], omega[2], 0, -omega[0], -omega[1], omega[0], 0};
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      double square = 0.0;
      for (int k = 0; k < 3; ++k) square += K[3 * i + k] * K[3 * k + j];
      R[3 * i + j] = (i == j ? 1.0 : 0.0) + f * K[3 * i + j] + g * square;
    }
  }
}

// N+ (sum of u u^T) N+ G / (G - 6), over clusters with their sums u; 0 with fewer than 8.
inline void cluster_covariance(const double (&inverse)[6][6],
                               const std::map<int, std::vector<double>>& clusters,
                               double (&covariance)[6][6]) {
  const auto G = static_cast<double>(clusters.size());
  for (int i = 0; i < 6; ++i) {
    for (int j = 0; j < 6; ++j) {
      covariance[i][j] = 0.0;
      if (clusters.size() < 8) continue;
      for (const auto& [number, u] : clusters) {
        double left = 0.0;
        double right = 0.0;
        for (int k = 0; k < 6; ++k) {
          left += inverse[i][k] * u[static_cast<std::size_t>(k)];
          right += inverse[j][k] * u[static_cast<std::size_t>(k)];
        }
        covariance[i][j] += left * right * G / (G - 6.0);
      }
    }
  }
}

inline double quadratic(const double* v, const double (&m)[6][6]) {
  double sum = 0.0;
  for (int i = 0; i < 6; ++i) {
    for (int j = 0; j < 6; ++j) sum += v[i] * m[i][j] * v[j];
  }
  return sum;
}

// R, t    the job's motion
// turned  the rotation that the normals are carried by; R up to one degree
inline FieldFigures field_figures(const std::vector<FieldPoint>& points, const double* R,
                                  const double* t, const double* turned) {
  FieldFigures f = {};
  const auto count = static_cast<double>(points.size());
  for (const FieldPoint& point : points) {
    for (int i = 0; i < 3; ++i) f.centre[i] += point.p[i] / count;
  }
  double squares = 0.0;
  for (const FieldPoint& point : points) {
    for (int i = 0; i < 3; ++i) squares += std::pow(point.p[i] - f.centre[i], 2) / count;
  }
  f.length = std::sqrt(squares);

  double N[6][6] = {};
  double residuals = 0.0;
  std::map<int, std::vector<double>> frames;
  std::map<int, std::vector<double>> planes;
  for (const FieldPoint& point : points) {
    double moved[3];
    rotate(R, point.n, moved);
    const double shifted[3] = {point.p[0] - t[0], point.p[1] - t[1], point.p[2] - t[2]};
    const double r = dot(moved, shifted) + point.d;
    rotate(turned, point.n, moved);
    double row[6];
    field_row(point.p, moved, f.centre, f.length, row);
    std::vector<double>& of_frame = frames.try_emplace(point.frame, 6, 0.0).first->second;
    std::vector<double>& of_plane = planes.try_emplace(point.plane, 6, 0.0).first->second;
    for (int i = 0; i < 6; ++i) {
      of_frame[static_cast<std::size_t>(i)] += row[i] * r;
      of_plane[static_cast<std::size_t>(i)] += row[i] * r;
      for (int j = 0; j < 6; ++j) N[i][j] += row[i] * row[j];
    }
    residuals += r * r;
  }
  f.residual = std::sqrt(residuals / count);

  jacobi(N, f.values, f.vectors);
  double inverse[6][6] = {};
  for (int k = 0; k < 6; ++k) {
    if (f.values[k] < 1e-9 * f.values[5]) continue;
    for (int i = 0; i < 6; ++i) {
      for (int j = 0; j < 6; ++j) {
        inverse[i][j] += f.vectors[k][i] * f.vectors[k][j] / f.values[k];
        f.observed[i][j] += f.vectors[k][i] * f.vectors[k][j];
      }
    }
  }
  cluster_covariance(inverse, frames, f.by_frame);
  cluster_covariance(inverse, planes, f.by_plane);

  double omega[3];
  log_rotation(R, omega);
  double w[6];
  double turned_centre[3];
  rotate(R, f.centre, turned_centre);
  for (int i = 0; i < 3; ++i) {
    w[i] = f.length * omega[i];
    w[3 + i] = turned_centre[i] - f.centre[i] + t[i];
  }
  double part[6] = {};
  for (int k = 0; k < 6; ++k) {
    f.sigma[k] = INFINITY;
    if (f.values[k] >= 1e-9 * f.values[5]) {
      f.sigma[k] = std::max({std::sqrt(quadratic(f.vectors[k], f.by_frame)),
                             std::sqrt(quadratic(f.vectors[k], f.by_plane)),
                             f.residual / std::sqrt(f.values[k])});
    }
    f.fixed[k] = f.sigma[k] <= 1.0;
    if (!f.fixed[k]) continue;
    double along = 0.0;
    for (int i = 0; i < 6; ++i) along += f.vectors[k][i] * w[i];
    for (int i = 0; i < 6; ++i) part[i] += along * f.vectors[k][i];
  }
  for (int i = 0; i < 3; ++i) omega[i] = part[i] / f.length;
  exp_rotation(omega, f.R);
  rotate(f.R, f.centre, turned_centre);
  for (int i = 0; i < 3; ++i) f.t[i] = f.centre[i] + part[3 + i] - turned_centre[i];
  return f;
}

}  // namespace literal
