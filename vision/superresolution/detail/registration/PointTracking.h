#pragma once

#include <cstddef>
#include <vector>

#include <opencv2/core.hpp>

#include "vision/superresolution/detail/registration/PatchKernels.h"

namespace movra::vision::detail {

/// Whether a matrix is part of one that reaches so far beyond it on all sides.
bool hasMargins(const cv::Mat& image, cv::Size margin);

/// A level of a pyramid, as the tracker reads it: all pixels up to a window beyond the image must be there. It shares
/// the matrices' memory.
struct TrackedLevel {
  /// @param derivatives x and y of each channel side by side, 16 bits; empty for an image that is only searched
  /// @throws movra::Exception if an image is not an 8-bit one with margins of `window`, or the derivatives do not fit it
  TrackedLevel(const cv::Mat& image, const cv::Mat& derivatives, cv::Size window);

  const unsigned char* grey;
  std::ptrdiff_t greyStride;
  const short* derivatives;
  std::ptrdiff_t derivativeStride;
  cv::Size size;
  int channels;
};

/// When the search for a point ends.
struct SearchLimits {
  /// Reads the parameters of cv::calcOpticalFlowPyrLK: without a count it is 30 steps, at most 100; without an epsilon it
  /// is 0.01, at most 10.
  SearchLimits(const cv::TermCriteria& criteria, double minEigenvalue);

  int steps;
  double squaredStep;   // the search ends after a step as small as this
  float minEigenvalue;  // points of less structure are not searched for
};

/// The surroundings of one point of the reference at one level of its pyramid, ready to be found in other images
/// (J.-Y. Bouguet, "Pyramidal implementation of the Lucas Kanade feature tracker").
class ReferencePatch {
 public:
  /// @param window at least 3 x 3 pixels
  ReferencePatch(cv::Size window, int channels);

  /// Takes the window around `point`. False if it lies outside the image; the patch must not be used then.
  bool read(const TrackedLevel& level, cv::Point_<float> point);

  /// The smaller eigenvalue of the matrix of the gradients' products, per pixel of the window.
  float smallerEigenvalue() const { return eigenvalue; }
  bool canBeFound(const SearchLimits& limits) const;

  /// Searches an image for the patch.
  struct Search {
    const TrackedLevel* level;
    cv::Point_<float> point;  // where the search begins, then where the patch is, or where the search left the image
    bool isFound;             // false if it left the image
  };

  /// Searches several images side by side.
  void find(std::vector<Search>& searches, const SearchLimits& limits);

  /// Whether the window around `point` and the image have a common pixel.
  bool windowTouchesImage(const TrackedLevel& level, cv::Point_<float> point) const;

  /// The mean difference in grey levels to the window around `point`, which must meet the image.
  float distance(const TrackedLevel& level, cv::Point_<float> point) const;

 private:
  cv::Size window;
  /// A search on its way.
  struct Walk {
    Search* search;
    cv::Point_<float> corner;  // of the window
    cv::Point_<float> before;  // the step before
    ImagePlace place;
    float sums[2];
    int steps;
  };

  template <class Ends>
  void removeIf(Ends ends);
  bool makeStep(const SearchLimits& limits, Walk& walk) const;

  PatchShape shape;
  std::vector<PatchBlock> blocks;
  std::vector<Walk> walks;
  std::vector<const ImagePlace*> places;  // of the walks, as are the sums
  std::vector<float*> sums;
  float xx = 0;  // sums of the gradients' products
  float xy = 0;
  float yy = 0;
  float determinant = 0;
  float eigenvalue = 0;
};

}  // namespace movra::vision::detail
