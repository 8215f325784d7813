#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <utility>

namespace movra::vision::detail {

/// Normal equations of up to N unknowns, filled in the order of the observations and solved by elimination with
/// pivoting.
template <std::size_t N>
class NormalEquations {
 public:
  explicit NormalEquations(std::size_t unknowns_ = N) : unknowns(unknowns_) {}

  /// One observation: `weight` times (row . x - value)^2.
  void add(const std::array<double, N>& row, double value, double weight) {
    for (std::size_t i = 0; i < unknowns; ++i) {
      const double weighted = weight * row[i];
      for (std::size_t j = 0; j < unknowns; ++j) {
        matrix[i][j] += weighted * row[j];
      }
      right[i] += weighted * value;
    }
  }

  double& diagonal(std::size_t i) { return matrix[i][i]; }
  void addToRight(std::size_t i, double value) { right[i] += value; }

  /// The unknowns, zeros beyond the number in use; false if the equations do not tell them.
  bool solve(std::array<double, N>& x) const {
    auto a = matrix;
    auto b = right;
    double largest = 0;
    for (std::size_t i = 0; i < unknowns; ++i) {
      largest = std::max(largest, std::abs(a[i][i]));
    }
    x = {};
    for (std::size_t i = 0; i < unknowns; ++i) {
      std::size_t best = i;
      for (std::size_t r = i + 1; r < unknowns; ++r) {
        best = std::abs(a[r][i]) > std::abs(a[best][i]) ? r : best;
      }
      if (!(std::abs(a[best][i]) > 1e-13 * largest)) {
        return false;
      }
      std::swap(a[i], a[best]);
      std::swap(b[i], b[best]);
      for (std::size_t r = i + 1; r < unknowns; ++r) {
        const double factor = a[r][i] / a[i][i];
        for (std::size_t c = i; c < unknowns; ++c) {
          a[r][c] -= factor * a[i][c];
        }
        b[r] -= factor * b[i];
      }
    }
    for (std::size_t i = unknowns; i-- > 0;) {
      double sum = b[i];
      for (std::size_t c = i + 1; c < unknowns; ++c) {
        sum -= a[i][c] * x[c];
      }
      x[i] = sum / a[i][i];
    }
    return true;
  }

 private:
  std::size_t unknowns;
  std::array<std::array<double, N>, N> matrix{};
  std::array<double, N> right{};
};

}  // namespace movra::vision::detail
