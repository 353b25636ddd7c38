// A cost function that refuses a non-finite result by itself.
//
// The solver treats a residual or derivative that is not finite as a failed evaluation, and says so
// on standard error. A false from the cost function has the same effect without the line, and
// nothing of this library may write there. A problem whose very first evaluation fails ends at once
// with all parameters as they were, again with a line: `can_start` tells so beforehand.
#pragma once

#include <cmath>
#include <memory>
#include <utility>
#include <vector>

#include "ceres/cost_function.h"

namespace kestrane {

// Hands every evaluation on to the cost function that it owns.
class QuietCostFunction final : public ceres::CostFunction {
 public:
  explicit QuietCostFunction(std::unique_ptr<ceres::CostFunction> inner)
      : inner_(std::move(inner)) {
    set_num_residuals(inner_->num_residuals());
    *mutable_parameter_block_sizes() = inner_->parameter_block_sizes();
  }

  bool Evaluate(double const* const* parameters, double* residuals,
                double** jacobians) const override {
    if (!inner_->Evaluate(parameters, residuals, jacobians)) return false;
    if (!all_finite(residuals, num_residuals())) return false;
    if (jacobians == nullptr) return true;
    for (std::size_t block = 0; block < parameter_block_sizes().size(); ++block) {
      if (jacobians[block] == nullptr) continue;
      if (!all_finite(jacobians[block], jacobian_entries(block))) return false;
    }
    return true;
  }

  // Whether residuals and all derivatives can be had at these parameters.
  bool can_start(double const* const* parameters) const {
    std::vector<double> residuals(static_cast<std::size_t>(num_residuals()));
    std::vector<std::vector<double>> entries;
    std::vector<double*> jacobians;
    entries.reserve(parameter_block_sizes().size());
    for (std::size_t block = 0; block < parameter_block_sizes().size(); ++block) {
      jacobians.push_back(
          entries.emplace_back(static_cast<std::size_t>(jacobian_entries(block))).data());
    }
    return Evaluate(parameters, residuals.data(), jacobians.data());
  }

 private:
  int jacobian_entries(std::size_t block) const {
    return num_residuals() * parameter_block_sizes()[block];
  }

  static bool all_finite(const double* values, int count) {
    for (int i = 0; i < count; ++i) {
      if (!std::isfinite(values[i])) return false;
    }
    return true;
  }

  std::unique_ptr<ceres::CostFunction> inner_;
};

}  // namespace kestrane
