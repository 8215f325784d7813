#pragma once

#include <cstdint>
#include <opencv2/core.hpp>

namespace movra::tool {

/// Draws what a thermal camera might see, in degrees Celsius: a cold sky over warm ground, a house with lit
/// windows, people, a car, a tree, and fine structure (fence, wires, lettering, a test star). The same size
/// and seed give the same scene; the seed moves and warms things a little. Rows x columns of `size`.
cv::Mat_<float> drawScene(cv::Size size, std::uint64_t seed);

}  // namespace movra::tool
