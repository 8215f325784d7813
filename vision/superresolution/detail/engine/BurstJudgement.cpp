#include "vision/superresolution/detail/engine/BurstJudgement.h"

#include <cmath>

#include "vision/superresolution/detail/base/Sizes.h"

namespace movra::vision::detail {

bool isLargeDisplacement(float x, float y, int height) {
  const auto limit = static_cast<float>(height / 10);
  return std::fabs(x) > limit || std::fabs(y) > limit;
}

bool isMaskedTooMuch(double sum, int rows, int columns) {
  const float total = static_cast<float>(rows) * static_cast<float>(columns);
  return (total - static_cast<float>(sum)) / total >= 0.5f;
}

int coverageLimit(float factor) {
  return truncateToInt(factor * factor + 1.0f);
}

}  // namespace movra::vision::detail
