#include "quality/refinement/penalty.h"

#include <gtest/gtest.h>

#include <Eigen/Dense>
#include <cmath>
#include <functional>
#include <vector>

#include "simulation/random.h"
#include "tests/quality/refinement/dense.h"

namespace {

using namespace kestrane::quality::refinement;
using quality_tests::dense;

using Function = std::function<double(double y, double z)>;

Eigen::VectorXd at_nodes(const FanNodes& nodes, const ActiveNodes& active, const Function& f) {
  Eigen::VectorXd values(active.count());
  for (int j = active.first_z; j < active.first_z + active.along; ++j) {
    for (int i = active.first_u; i < active.first_u + active.across; ++i) {
      const double z = nodes.z[static_cast<std::size_t>(j)];
      values[active.number(i, j)] = f(nodes.u[static_cast<std::size_t>(i)] * z, z);
    }
  }
  return values;
}

double form(const BandedMatrix& s, const Eigen::VectorXd& f) { return f.dot(dense(s) * f); }

constexpr ActiveNodes kPart{2, 9, 4, 13};

// How small a form has to be that should vanish: against the same form of values of the same size
// without any smoothness.
double vanishing(const BandedMatrix& s, const Eigen::VectorXd& f) {
  return 1e-9 * dense(s).norm() * f.squaredNorm();
}

TEST(Penalty, OfOrderTwoLeavesPlanesFree) {
  const FanNodes nodes = fan_nodes();
  const BandedMatrix s = penalty(nodes, kPart, 2);
  for (const Function& f :
       {Function([](double, double) { return 1.0; }), Function([](double y, double) { return y; }),
        Function([](double, double z) { return z; })}) {
    const Eigen::VectorXd values = at_nodes(nodes, kPart, f);
    EXPECT_LT(std::abs(form(s, values)), vanishing(s, values));
    EXPECT_LT((dense(s) * values).norm(), 1e-9 * dense(s).norm() * values.norm());
  }
}

TEST(Penalty, OfOrderThreeLeavesQuadraticsFree) {
  const FanNodes nodes = fan_nodes();
  const BandedMatrix s = penalty(nodes, kPart, 3);
  for (const Function& f : {Function([](double y, double) { return y * y; }),
                            Function([](double, double z) { return z * z; }),
                            Function([](double y, double z) { return y * z; }),
                            Function([](double y, double z) { return 3.0 + 2.0 * y - z; })}) {
    const Eigen::VectorXd values = at_nodes(nodes, kPart, f);
    EXPECT_LT((dense(s) * values).norm(), 1e-9 * dense(s).norm() * values.norm());
  }
}

TEST(Penalty, IsPositiveAndFreeForNothingElse) {
  const FanNodes nodes = fan_nodes();
  for (const int order : {2, 3}) {
    const Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd> solver(
        dense(penalty(nodes, kPart, order)));
    const Eigen::VectorXd values = solver.eigenvalues();
    const double largest = values[values.size() - 1];
    const int free = order == 2 ? 3 : 6;
    EXPECT_GT(values[0], -1e-12 * largest);
    EXPECT_LT(values[free - 1], 1e-11 * largest) << order;
    EXPECT_GT(values[free], 1e-11 * largest) << order;
  }
}

// The integral, over the part of the fan that the nodes span, of the squared derivatives of order k
// with d/dy across and D = d/dz + u d/dy along the ray, made free of units. For y^2: y_yy = 2,
// D y_y = 2 u, D^2 y^2 = 2 u^2; for z^2: only D^2 = 2.
double integral_of_order_two(const FanNodes& nodes, const ActiveNodes& a, double yy, double dy,
                             double dd) {
  const double area = std::tan(M_PI / 6.0) * (1500.0 * 1500.0 - 150.0 * 150.0);
  const double z0 = nodes.z[static_cast<std::size_t>(a.first_z)];
  const double z1 = nodes.z[static_cast<std::size_t>(a.first_z + a.along - 1)];
  const double depth = 0.5 * (z1 * z1 - z0 * z0);  // of z dz
  const double u0 = nodes.u[static_cast<std::size_t>(a.first_u)];
  const double u1 = nodes.u[static_cast<std::size_t>(a.first_u + a.across - 1)];
  double sum = 0.0;
  constexpr int kSteps = 1000;
  for (int n = 0; n < kSteps; ++n) {
    const double u = u0 + (n + 0.5) * (u1 - u0) / kSteps;
    sum += (yy * yy + 2.0 * dy * dy * u * u + dd * dd * std::pow(u, 4)) * (u1 - u0) / kSteps;
  }
  return sum * depth * std::pow(450.0, 4) / area;
}

// Stencils do not reach the outermost half intervals, so the form is a few parts in a hundred
// short.
TEST(Penalty, OfOrderTwoIsTheIntegralOfTheSquaredDerivatives) {
  const FanNodes nodes = fan_nodes();
  const ActiveNodes whole;
  const BandedMatrix s = penalty(nodes, whole, 2);
  const auto y2 = at_nodes(nodes, whole, [](double y, double) { return y * y; });
  EXPECT_NEAR(form(s, y2) / integral_of_order_two(nodes, whole, 2.0, 2.0, 2.0), 0.90, 0.10);
}

// Along the rays the difference of z^2 is exact, and the form a sum over stencils: the depths but
// the first and last, and the widths of the rays, those at the edges as wide as their one interval.
TEST(Penalty, OfOrderTwoWeighsTheStencilsAlongTheRaysByTheirAreas) {
  const FanNodes nodes = fan_nodes();
  const ActiveNodes whole;
  const auto z2 = at_nodes(nodes, whole, [](double, double z) { return z * z; });
  double depths = 0.0;
  for (int j = 1; j < 50; ++j) depths += 27.0 * (150.0 + 27.0 * j);
  const double widths = 2.0 * nodes.u[15] + (nodes.u[15] - nodes.u[14]);
  const double area = std::tan(M_PI / 6.0) * (1500.0 * 1500.0 - 150.0 * 150.0);
  EXPECT_NEAR(
      form(penalty(nodes, whole, 2), z2) / (4.0 * depths * widths * std::pow(450.0, 4) / area), 1.0,
      1e-6);
}

// z^3: its only derivative of third order is D^3 = 6.
TEST(Penalty, OfOrderThreeIsTheIntegralOfTheSquaredDerivatives) {
  const FanNodes nodes = fan_nodes();
  const ActiveNodes whole;
  const BandedMatrix s = penalty(nodes, whole, 3);
  const auto z3 = at_nodes(nodes, whole, [](double, double z) { return z * z * z; });
  EXPECT_NEAR(form(s, z3) / (36.0 * std::pow(450.0, 6)), 0.98, 0.08);
}

// f[x_0, ...] of Newton's divided differences.
double divided(const std::vector<double>& x, const std::vector<double>& f) {
  std::vector<double> rest = f;
  for (std::size_t order = 1; order < x.size(); ++order)
    for (std::size_t n = 0; n + order < x.size(); ++n)
      rest[n] = (rest[n + 1] - rest[n]) / (x[n + order] - x[n]);
  return rest[0];
}

// The form of one family: differences of order `q` along the ray of derivatives of order `p`
// across, squared, times the areas of their stencils.
double plain_family(const FanNodes& nodes, const ActiveNodes& a, const Eigen::VectorXd& f, int p,
                    int q) {
  double sum = 0.0;
  for (int j = 0; j + q < a.along; ++j) {
    for (int i = 0; i + p < a.across; ++i) {
      const auto u = [&](int n) { return nodes.u[static_cast<std::size_t>(a.first_u + n)]; };
      const auto z = [&](int n) { return nodes.z[static_cast<std::size_t>(a.first_z + n)]; };
      std::vector<double> rows;  // the derivative across at each depth
      for (int s = 0; s <= q; ++s) {
        std::vector<double> y, values;
        for (int t = 0; t <= p; ++t) {
          y.push_back(u(i + t) * z(j + s));
          values.push_back(f[a.across * (j + s) + i + t]);
        }
        rows.push_back(std::tgamma(p + 1.0) * divided(y, values));
      }
      std::vector<double> depths;
      for (int s = 0; s <= q; ++s) depths.push_back(27.0 * s);
      const double derivative = std::tgamma(q + 1.0) * divided(depths, rows);
      const double width = p > 0               ? (u(i + p) - u(i)) / p
                           : i == 0            ? u(1) - u(0)
                           : i + 1 == a.across ? u(i) - u(i - 1)
                                               : 0.5 * (u(i + 1) - u(i - 1));
      sum += derivative * derivative * 27.0 * 0.5 * (z(j) + z(j + q)) * width;
    }
  }
  const double area = std::tan(M_PI / 6.0) * (1500.0 * 1500.0 - 150.0 * 150.0);
  return sum * std::pow(450.0, 2 * (p + q)) / area;
}

TEST(Penalty, IsTheSumOfItsFamilies) {
  const FanNodes nodes = fan_nodes();
  simulation::Random random(1);
  for (const ActiveNodes& active : {kPart, ActiveNodes{0, 4, 0, 4}, ActiveNodes{11, 5, 44, 7}}) {
    for (int n = 0; n < 3; ++n) {
      Eigen::VectorXd f(active.count());
      for (double& value : f) value = random.uniform(-1.0, 1.0);
      const double two = plain_family(nodes, active, f, 0, 2) +
                         2.0 * plain_family(nodes, active, f, 1, 1) +
                         plain_family(nodes, active, f, 2, 0);
      const double three =
          plain_family(nodes, active, f, 0, 3) + 3.0 * plain_family(nodes, active, f, 1, 2) +
          3.0 * plain_family(nodes, active, f, 2, 1) + plain_family(nodes, active, f, 3, 0);
      EXPECT_NEAR(form(penalty(nodes, active, 2), f) / two, 1.0, 1e-10);
      EXPECT_NEAR(form(penalty(nodes, active, 3), f) / three, 1.0, 1e-10);
    }
  }
}

TEST(Penalty, StaysWithinTheBandOfTheNodes) {
  const FanNodes nodes = fan_nodes();
  for (const int order : {2, 3}) {
    const BandedMatrix s = penalty(nodes, kPart, order);
    EXPECT_EQ(s.rows(), kPart.count());
    EXPECT_EQ(s.width(), kPart.band());
  }
}

}  // namespace
