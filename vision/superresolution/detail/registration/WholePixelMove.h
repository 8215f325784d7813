#pragma once

#include <vector>

#include <opencv2/core.hpp>

namespace movra::vision::detail {

/// The rounded shift floor(shift + 0.5), in double so that what remains is within half a pixel. A shift that is not finite
/// or beyond 2^30 gives 0 or +-2^30.
int wholePixels(float shift);

/// True when two frames that lie `shift` apart have pixels in common.
bool overlaps(cv::Point_<int> shift, int width, int height);

/// These pixels, seen from the reference; a frame has them at `shift` from there.
cv::Rect overlapInReference(cv::Point_<int> shift, int width, int height);

/// Moves a frame by the rounded shift as one flat array, zeros entering at the ends: pixels that leave a row at its end
/// come in at the neighbouring row. Reduces `shift` to its fractional part.
void moveByWholePixels(const float* src, int width, int height, cv::Point_<float>& shift, float* dst);

/// Moves each frame by its whole pixels and leaves its fractional shift.
/// @return false at the first shift that is not within half the height on both axes; that frame and those after it are
///         then copied as they are, their shifts left
bool moveAll(int frameCount, int width, int height, float** frames, cv::Point_<float>* shifts, float** movedFrames);

/// Second half of a registration: keeps the complete shifts, moves each frame by its whole pixels and leaves its
/// fractional shift.
/// @param completeShifts grows to the number of frames, never shrinks
/// @return false at the first shift that is not within half the height on both axes; that frame and those after it are
///         then copied as they are
bool splitShifts(int frameCount, int width, int height, float** frames, cv::Point_<float>* shifts,
                 float** shiftedFrames, std::vector<cv::Point_<float>>& completeShifts);

/// Throws movra::Exception "Too large displacement" with the place doRegistration of a named class.
/// @param line a fixed number that callers know
[[noreturn]] void throwTooLargeDisplacement(const char* className, int line);

}  // namespace movra::vision::detail
