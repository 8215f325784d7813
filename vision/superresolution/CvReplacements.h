#pragma once

#include <opencv2/core.hpp>

#include "movra/Export.h"

namespace movra::vision {

/// The pyramidal Lucas-Kanade tracker (J.-Y. Bouguet, "Pyramidal implementation of the Lucas Kanade feature tracker") in
/// fixed-point arithmetic, serial, with the argument lists of the OpenCV functions of the same names. Any number of
/// threads may use it; it starts none.
///
/// Points may be anywhere; those whose windows do not meet the image, or that are not numbers, are lost. Results are the
/// same bits on every processor: those that OpenCV 4.6 has on x86-64.
class MOVRA_SUPERRESOLUTION_API CvReplacements {
 public:
  /// Flags: cv::OPTFLOW_USE_INITIAL_FLOW and cv::OPTFLOW_LK_GET_MIN_EIGENVALS, whose header belongs to a module of OpenCV
  /// that is not needed otherwise.
  static constexpr int useInitialFlow = 4;
  static constexpr int getMinEigenvalues = 8;

  /// Makes the image pyramid that calcOpticalFlowPyrLK takes: 8-bit images, each half as wide and high as the one before,
  /// rounded up, with margins of the window's size around them. The top level is the last that is larger than the window.
  /// @param img                8-bit image of any number of channels
  /// @param pyramid            vector of matrices; each image is followed by its derivatives if these are made. Matrices
  ///                           of the right size that nobody shares are written into.
  /// @param winSize            window of the tracker, 3 x 3 to 4096 x 4096
  /// @param maxLevel           highest level, 0 or more
  /// @param withDerivatives    whether to make the derivatives: 16 bits, x and y of each channel side by side, from
  ///                           differences of neighbours weighted 3, 10, 3 (H. Scharr)
  /// @param pyrBorder          what the images' margins hold; cv::BORDER_TRANSPARENT leaves them as they are
  /// @param derivBorder        what the derivatives' margins hold
  /// @param tryReuseInputImage whether level 0 may be `img` itself if it is part of a large enough matrix
  /// @return the highest level made
  /// @throws movra::Exception if an argument is none of these, cv::Exception for a border that cv::copyMakeBorder refuses
  static int buildOpticalFlowPyramid(cv::InputArray img, cv::OutputArrayOfArrays pyramid, cv::Size winSize,
                                     int maxLevel, bool withDerivatives = true, int pyrBorder = cv::BORDER_REFLECT_101,
                                     int derivBorder = cv::BORDER_CONSTANT, bool tryReuseInputImage = true);

  /// Finds points of one image in another.
  /// @param prevImg 8-bit image, or its pyramid
  /// @param nextImg another one of its size, or its pyramid
  /// @param prevPts          points in the first image: pairs of floats
  /// @param nextPts          the same points in the second image, written, also where one was lost; with
  ///                         useInitialFlow read before, as where the search begins
  /// @param status           one byte per point, written: 1 if it was found
  /// @param err              one float per point, written unless cv::noArray(): mean difference of the windows in grey
  ///                         levels, or with getMinEigenvalues the smaller eigenvalue of the gradients'
  ///                         products
  /// @param winSize          window, 3 x 3 to 4096 x 4096
  /// @param maxLevel         highest level to use; that of the pyramids limits it
  /// @param criteria         ends a search after so many steps, or after one so short (in pixels)
  /// @param flags            sum of the flags above
  /// @param minEigThreshold  points with a smaller eigenvalue are not searched for
  /// @throws movra::Exception if an argument is none of these
  static void calcOpticalFlowPyrLK(
      cv::InputArray prevImg, cv::InputArray nextImg, cv::InputArray prevPts, cv::InputOutputArray nextPts,
      cv::OutputArray status, cv::OutputArray err, cv::Size winSize = cv::Size(21, 21), int maxLevel = 3,
      cv::TermCriteria criteria = cv::TermCriteria(cv::TermCriteria::COUNT + cv::TermCriteria::EPS, 30, 0.01),
      int flags = 0, double minEigThreshold = 1e-4);
};

/// One level of calcOpticalFlowPyrLK: a loop body over points. It keeps references to the images and pointers to the
/// caller's arrays, one entry per point; ranges that do not meet may run at the same time.
class MOVRA_SUPERRESOLUTION_API LKTrackerInvoker : public cv::ParallelLoopBody {
 public:
  /// @param prevImg   level `level` of the first image's pyramid
  /// @param prevDeriv its derivatives
  /// @param nextImg            the same level of the second image's pyramid
  /// @param prevPts            points in the first image, in pixels of level 0
  /// @param nextPts            points in the second image: in pixels of the level above if there is one, else read only
  ///                           with CvReplacements::useInitialFlow, in pixels of level 0; written in pixels of this level
  /// @param status             set to 0 at level 0 where a point was lost, else left
  /// @param err                as for calcOpticalFlowPyrLK, or null
  /// @throws movra::Exception if the images are not such levels
  LKTrackerInvoker(const cv::Mat& prevImg, const cv::Mat& prevDeriv, const cv::Mat& nextImg,
                   const cv::Point_<float>* prevPts, cv::Point_<float>* nextPts, unsigned char* status, float* err,
                   cv::Size winSize, cv::TermCriteria criteria, int level, int maxLevel, int flags,
                   float minEigThreshold);

  /// Tracks the points of a range.
  void operator()(const cv::Range& range) const override;

 private:
  cv::Mat prevImg;
  cv::Mat prevDeriv;
  cv::Mat nextImg;
  const cv::Point_<float>* prevPts;
  cv::Point_<float>* nextPts;
  unsigned char* status;
  float* err;
  cv::Size winSize;
  cv::TermCriteria criteria;
  int level;
  int maxLevel;
  int flags;
  float minEigThreshold;
};

}  // namespace movra::vision
