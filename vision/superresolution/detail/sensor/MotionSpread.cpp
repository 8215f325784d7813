#include "vision/superresolution/detail/sensor/MotionSpread.h"

#include <cmath>
#include <cstddef>
#include <utility>

#include "vision/superresolution/detail/sensor/OrderStatistics.h"

namespace movra::vision::detail {

double medianDistance(const std::vector<AffineMotion>& motions) {
  std::vector<double> distances;
  for (std::size_t i = 0; i < motions.size(); ++i) {
    for (std::size_t j = 0; j < i; ++j) {
      const double dx = motions[i].x - motions[j].x;
      const double dy = motions[i].y - motions[j].y;
      const double distance = std::sqrt(dx * dx + dy * dy);
      if (std::isfinite(distance)) {
        distances.push_back(distance);
      }
    }
  }
  return medianOf(std::move(distances));
}

}  // namespace movra::vision::detail
