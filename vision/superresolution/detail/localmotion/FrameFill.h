#pragma once

#include <vector>

namespace movra::vision::detail {

/// Gives the pixels of a frame that are not good a value from their surroundings, so that blurs and differences can be
/// taken. What is filled never counts in the solver.
///
/// A pixel becomes the median of at least three good ones within 1, 2 or 4 pixels. What lies deeper is a hole: its rows are
/// bridged between the pixels beside it.
/// @param good   height x width, 0 where bad
/// @param frame  height x width; only bad pixels change
/// @param usable cleared if there is no hole; else height x width, 0 in and around holes, 1 elsewhere
/// @return false if no pixel is good
bool fillBadPixels(const std::vector<char>& good, int width, int height, std::vector<float>& frame,
                   std::vector<unsigned char>& usable);

}  // namespace movra::vision::detail
