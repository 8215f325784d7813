#include "vision/superresolution/detail/burst/BurstOutcome.h"

#include <algorithm>
#include <utility>

#include "vision/superresolution/detail/engine/BurstJudgement.h"

namespace movra::vision::detail {

void BurstOutcome::rateCoverage() {
  const int limit = coverageLimit(2.0f);
  double covered = 0;
  for (const int count : coverage) {
    covered += std::min(count, limit);
  }
  const auto size = static_cast<double>(coverage.total());
  result.sr_factor = (covered - size) / (4 * size) + 1;
}

void BurstOutcome::fail(movra_sr_status status, std::string text) {
  result.status = status;
  particulars = std::move(text);
  image.release();
}

}  // namespace movra::vision::detail
