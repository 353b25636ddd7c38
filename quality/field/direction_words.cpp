#include "quality/field/direction_words.h"

#include <Eigen/LU>
#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace kestrane::quality {
namespace {

using Basis = Eigen::Matrix<double, 6, Eigen::Dynamic>;

constexpr std::array<const char*, 6> kWords = {"turn about x",  "turn about y",  "turn about z",
                                               "shift along x", "shift along y", "shift along z"};
constexpr double kNamed = 0.35;  // components from here on are named beside the largest one
constexpr double kEqual = 1e-6;  // sizes nearer than this part of theirs are equal but for rounding

// Numbers of the components, the largest first, equal ones in their own order.
std::array<int, 6> by_size(const Vector6& sizes) {
  std::array<int, 6> order = {0, 1, 2, 3, 4, 5};
  for (std::size_t place = 0; place < order.size(); ++place) {
    std::size_t best = place;
    for (std::size_t next = place + 1; next < order.size(); ++next) {
      if (sizes[order[next]] > (1.0 + kEqual) * sizes[order[best]]) best = next;
    }
    std::rotate(&order[place], &order[best], &order[best] + 1);
  }
  return order;
}

// One component per column of the basis: in turn the one that the rest of the space reaches best,
// the space being cut down to what does not move that component. Rotations of the basis change no
// length here, hence no choice.
std::vector<int> own_components(Basis basis) {
  std::vector<int> chosen;
  for (Eigen::Index i = 0; i < basis.cols(); ++i) {
    const Vector6 reach = basis.rowwise().norm();
    chosen.push_back(by_size(reach)[0]);
    const Eigen::VectorXd taken = basis.row(chosen.back()).normalized().transpose();
    basis -= (basis * taken) * taken.transpose();
  }
  std::sort(chosen.begin(), chosen.end());
  return chosen;
}

}  // namespace

std::string direction_words(const Vector6& direction) {
  const Vector6 sizes = direction.cwiseAbs();
  const std::array<int, 6> order = by_size(sizes);
  std::string words = kWords[static_cast<std::size_t>(order[0])];
  const char* before = " (with ";
  for (std::size_t i = 1; i < order.size() && sizes[order[i]] > kNamed; ++i) {
    words += before;
    words += kWords[static_cast<std::size_t>(order[i])];
    before = ", ";
  }
  return before[0] == ',' ? words + ")" : words;
}

Basis along_axes(const Basis& basis) {
  const std::vector<int> components = own_components(basis);
  const Eigen::Index count = basis.cols();
  Eigen::MatrixXd pivots(count, count);
  for (Eigen::Index i = 0; i < count; ++i) {
    pivots.row(i) = basis.row(components[static_cast<std::size_t>(i)]);
  }
  // Column i moves its own component by 1 and those of the other columns not at all.
  Basis reduced = basis * pivots.fullPivLu().inverse();
  for (Eigen::Index i = 0; i < count; ++i) reduced.col(i).normalize();
  return reduced;
}

}  // namespace kestrane::quality
