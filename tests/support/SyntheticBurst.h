#pragma once

#include <cstdint>
#include <vector>

#include <opencv2/core.hpp>

namespace movra::test {

using Image = std::vector<float>;
using Mask = std::vector<char>;
using Shift = cv::Point_<float>;

/// Temperature of an endless scene, in kelvin, at a point of the high-resolution grid: slow waves, blobs with rounded
/// edges (corners to track) and a fine pattern that a single low-resolution frame cannot show. Smooth, and made of
/// exactly rounded operations alone, so that it is the same with every C library.
double sceneTemperature(double x, double y);

/// Parts of a pixel; the second frame lies still.
inline const std::vector<Shift> smallShifts{
    {0.31f, -0.22f}, {0.0f, 0.0f}, {-0.44f, 0.37f}, {0.18f, 0.46f}, {-0.27f, -0.39f}};

/// What to make. Shifts are in low-resolution pixels and may be of any size: a frame's position less the reference's,
/// so that frame(x, y) shows the scene at (x - shift.x, y - shift.y).
struct BurstRecipe {
  int width = 48;
  int height = 40;
  std::vector<Shift> shifts = smallShifts;
  double noise = 0;  // standard deviation in kelvin
  std::uint32_t seed = 1;
};

template <class T>
std::vector<T*> pointersTo(std::vector<std::vector<T>>& images) {
  std::vector<T*> result;
  for (std::vector<T>& image : images) {
    result.push_back(image.data());
  }
  return result;
}

/// Frames, height x width each, their shifts, and the scene itself as 2 height x 2 width pixels. Pixel (x, y) of a frame
/// is the mean of the scene under the PSF around the centre of high-resolution pixels 2x ... 2x + 1, 2y ... 2y + 1.
struct SyntheticBurst {
  int width;
  int height;
  std::vector<Shift> shifts;
  std::vector<Image> frames;
  std::vector<Mask> masks;  // all 1
  Image truth;

  /// Arguments of the minimisation and the registration.
  std::vector<float*> framePointers() { return pointersTo(frames); }
  std::vector<char*> maskPointers() { return pointersTo(masks); }
};

SyntheticBurst makeBurst(const BurstRecipe& recipe);

/// Root of the mean squared difference of two images of that width, away from the border.
double distance(const Image& a, const Image& b, int width, int margin);

/// How much closer to the truth an image is than the bicubic enlargement of frame `still`, in decibels.
double gainOverBicubic(const Image& image, const SyntheticBurst& burst, std::size_t still);

/// Numbers in [low, high), uniform, the same everywhere.
Image randomImage(int size, float low, float high, std::uint32_t seed);

}  // namespace movra::test
