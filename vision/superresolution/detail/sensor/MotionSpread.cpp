#include "vision/superresolution/detail/sensor/MotionSpread.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

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
  if (distances.empty()) {
    return 0;
  }
  std::sort(distances.begin(), distances.end());
  return 0.5 * (distances[(distances.size() - 1) / 2] + distances[distances.size() / 2]);
}

}  // namespace movra::vision::detail
