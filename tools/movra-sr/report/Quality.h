#pragma once

#include <opencv2/core.hpp>

namespace movra::tool {

/// Peak signal-to-noise ratio of `image` against `truth` in dB, the peak being the range (maximum - minimum)
/// of the truth. Infinite when both are equal. Images of one size, finite.
double peakSignalToNoise(const cv::Mat_<float>& image, const cv::Mat_<float>& truth);

/// Mean structural similarity with a Gaussian window of 11 x 11, sigma 1.5, K1 = 0.01, K2 = 0.03 and the
/// range of the truth, over the windows that lie whole inside the image (Wang, Bovik, Sheikh, Simoncelli
/// 2004). Images of one size, at least 11 x 11, finite.
double structuralSimilarity(const cv::Mat_<float>& image, const cv::Mat_<float>& truth);

/// The frame at twice its size by cv::resize with INTER_CUBIC: Keys' kernel with a = -0.75, pixel (x, y)
/// covering the pixels 2x, 2x + 1 and 2y, 2y + 1 of the result, which is where the reconstruction puts it.
cv::Mat_<float> enlargeBicubically(const cv::Mat_<float>& frame);

}  // namespace movra::tool
