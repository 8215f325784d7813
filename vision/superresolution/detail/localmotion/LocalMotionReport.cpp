// What the caller is told.

#include "vision/superresolution/detail/localmotion/LocalMotionBurst.h"

namespace movra::vision::detail {

namespace {

/// std::floor of a number in the range of int, which older processors have no instruction for.
int floorOf(double value) {
  const int towardsZero = static_cast<int>(value);
  return towardsZero - (static_cast<double>(towardsZero) > value ? 1 : 0);
}

}  // namespace

/// Adds the good pixels that a frame has by one of its motions to the coverage; their number.
std::size_t LocalMotionBurst::countCoverage(const Frame& frame, const MotionField& motion,
                                            const std::vector<char>& trusted,
                                            cv::Mat_<unsigned short>& coverage) const {
  const bool isReference = &frame == &frames[static_cast<std::size_t>(reference)];
  const auto w = static_cast<std::size_t>(width);
  std::size_t backed = 0;
  for (int y = 0; y < height; ++y) {
    const char* const trustedRow = trusted.data() + static_cast<std::size_t>(y) * w;
    for (int x = 0; x < width; ++x) {
      if (trustedRow[x] == 0) {
        continue;
      }
      const auto s = isReference ? AffineMotion::Shift{0, 0} : motion.shiftAt(x, y);
      const int u = floorOf(x + s.x + 0.5), v = floorOf(y + s.y + 0.5);
      if (u >= 0 && u < width && v >= 0 && v < height &&
          frame.good[static_cast<std::size_t>(v) * w + static_cast<std::size_t>(u)] != 0) {
        ++coverage(y, x);
        ++backed;
      }
    }
  }
  return backed;
}

void LocalMotionBurst::report(LocalMotionResult& result) const {
  result.frames.clear();
  result.field.shifts.clear();
  result.usedFrames = 0;
  const int columns = 9, rows = 7;
  ShiftField& field = result.field;
  field = {
      columns, rows, 0, 0, static_cast<double>(width - 1) / (columns - 1), static_cast<double>(height - 1) / (rows - 1),
      {}};
  result.coverage.create(height, width);
  result.coverage.setTo(0);
  if (result.badPixelMap.empty()) {  // not searched
    result.badPixelMap.create(height, width);
    result.badPixelMap.setTo(0);
  }
  for (std::size_t k = 0; k < frames.size(); ++k) {
    const Frame& frame = frames[k];
    LocalMotionFrame told;
    told.use = frame.use;
    told.motion = frame.field.affine();
    told.agreement = frame.agreement;
    told.localMotion = frame.field.spread();
    told.offset = frame.offset;
    told.residual = frame.residual;
    told.coverage = 0;
    std::vector<cv::Point2f> shifts;
    for (int i = 0; i < columns * rows; ++i) {
      const int column = i % columns, row = i / columns;
      const auto s = frame.field.shiftAt(field.stepX * column, field.stepY * row);
      shifts.emplace_back(static_cast<float>(s.x), static_cast<float>(s.y));
    }
    field.shifts.push_back(std::move(shifts));
    if (frame.use == FrameUse::used && !frame.trusted.empty()) {
      ++result.usedFrames;
      std::size_t backed = countCoverage(frame, frame.field, frame.trusted, result.coverage);
      for (const Layer& other : frame.others) {
        backed += countCoverage(frame, other.field, other.trusted, result.coverage);
      }
      told.coverage = static_cast<double>(backed) / (static_cast<double>(width) * height);
    }
    result.frames.push_back(told);
  }
}

void LocalMotionBurst::judge(LocalMotionResult& result) const {
  result.status = referenceDeviation == 0  ? LocalMotionStatus::structureless
                  : givenCount() == 1      ? LocalMotionStatus::singleFrame
                  : result.usedFrames == 1 ? LocalMotionStatus::referenceAlone
                                           : LocalMotionStatus::done;
}

}  // namespace movra::vision::detail
