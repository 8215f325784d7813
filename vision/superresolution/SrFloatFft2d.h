#pragma once

#include <memory>

#include "movra/Export.h"

namespace movra::vision {

namespace detail {
struct Fft2dTables;
}

/// Two-dimensional discrete Fourier transform of real images of one size, with a Gaussian low-pass filter as
/// a spectrum and the repair of the borders of images blurred through it.
///
/// Images have `height` rows x `width` columns of floats, row-major without padding. Their spectra are half
/// spectra: height rows x (width / 2 + 1) columns (integer division) of complex values, each (real,
/// imaginary). Arrays belong to the caller and must not overlap.
///
/// The object owns its tables and scratch space, all made by the constructor; no operation allocates. One
/// object serves one thread at a time; different objects are independent. Every result is the same bit for
/// bit on every processor.
class MOVRA_SUPERRESOLUTION_API SrFloatFft2d {
 public:
  /// @throws movra::Exception if a size is less than 1, or a product of more than 13 factors (none below 3
  ///         million is)
  SrFloatFft2d(int width, int height);
  ~SrFloatFft2d();

  SrFloatFft2d(const SrFloatFft2d&) = delete;
  SrFloatFft2d& operator=(const SrFloatFft2d&) = delete;

  /// Forward transform, exponent -2 pi i (k x / width + l y / height), unnormalised.
  /// @param image height x width; not changed
  /// @param spectrum height x (width / 2 + 1), overwritten
  void forward(float* image, float (*spectrum)[2]);

  /// Backward transform, unnormalised: backward(forward(x)) is width * height * x. Columns 0 and, of an even
  /// width, width / 2 count as real once transformed along the columns: what is imaginary then is left out.
  /// @param spectrum height x (width / 2 + 1); not changed
  /// @param image height x width, overwritten
  void backward(float (*spectrum)[2], float* image);

  /// The normalised Gaussian, its mass in each pixel from the error function (S. Winitzki's approximation),
  /// cut off beyond `radius`. The filter is scaled so that backward(forward(image) * filter), the product by
  /// elements, is the blurred image, with borders wrapped around.
  /// @param radius pixels, 0 <= 2 * radius < width and height
  /// @param sigma standard deviation in pixels; 0 gives the filter that changes nothing
  /// @param filter height x (width / 2 + 1), overwritten with the spectrum divided by width * height
  /// @param taps radius + 1 floats, overwritten with the taps at the distances 0 ... radius
  /// @throws movra::Exception if the radius does not fit the image; nothing is changed
  void gaussFft(int radius, float sigma, float (*filter)[2], float* taps);

  /// Replaces the wrapped-around values of a blurred image, those less than `radius` pixels from a border, by
  /// the convolution of the image with those taps that lie inside it, first along the columns, then along
  /// the rows, each divided by the sum of those taps.
  /// @param image height x width, unblurred
  /// @param blurred height x width; pixels further from every border keep their values
  /// @param radius as given to gaussFft; below 1 nothing is changed
  /// @param taps radius + 1 floats from gaussFft
  /// @throws movra::Exception if 2 * radius is not less than width and height; nothing is changed
  void repairGaussBlur(const float* image, float* blurred, int radius, float* taps);

 private:
  int width;
  int height;
  std::unique_ptr<detail::Fft2dTables> tables;
};

}  // namespace movra::vision
