#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "movra/Export.h"
#include "vision/superresolution/AffineMotion.h"
#include "vision/superresolution/FixedPattern.h"

namespace movra::vision {

/// Outcome of a reconstruction. There is an image from `done` to `structureless`.
enum class LocalMotionStatus {
  done,            ///< several frames make the image
  singleFrame,     ///< one frame was given: a deconvolved enlargement
  referenceAlone,  ///< no other frame could be aligned: a deconvolved
                   ///< enlargement of the reference
  structureless,   ///< the reference has one value throughout, and so has the
                   ///< image
  noFrames,        ///< nothing to work on
  noValidPixels,   ///< the reference has no valid pixel
  cancelled,       ///< the progress function said so
};

/// The same in words, a whole sentence without a full stop. Never null.
MOVRA_SUPERRESOLUTION_API const char* toString(LocalMotionStatus status);

/// Why a frame takes no part.
enum class FrameUse {
  used,
  noValidPixels,
  notAligned,     ///< no motion was found that brings it onto the reference
  fewAgreeing,    ///< too small a share of its blocks agrees with one motion
  spare,          ///< it would do, but others complement each other better
  lowCoverage,    ///< far fewer of its pixels can be trusted than of the other frames
  largeShift,     ///< it lies too far from the reference
  largeResidual,  ///< it differs from the prediction by far more than the other frames
};

/// The same in words. Never null.
MOVRA_SUPERRESOLUTION_API const char* toString(FrameUse use);

/// What is known of one frame.
struct LocalMotionFrame {
  FrameUse use = FrameUse::used;
  AffineMotion motion;   ///< against the reference
  double agreement = 1;  ///< share of its blocks within 0.25 pixels of that motion, or of another one that it shows as
                         ///< well, such as that of something near, 0 ... 1
  double localMotion = 0;  ///< standard deviation of the local shifts about that
                           ///< motion, low-resolution pixels
  double offset = 0;       ///< level minus the reference's that was taken out, in the
                           ///< frames' unit
  double coverage = 1;     ///< share of the reference's pixels that it backs, 0 ... 1
  double residual = 0;     ///< robust deviation of frame less prediction, in the frames' unit; 0: not measured
};

/// Shifts of all frames on a grid of places.
struct ShiftField {
  int columns = 0;
  int rows = 0;
  double left = 0;  ///< reference position of the first place, low-resolution pixels
  double top = 0;
  double stepX = 0;  ///< distance of the places
  double stepY = 0;
  std::vector<std::vector<cv::Point2f>> shifts;  ///< per frame, rows x columns: frame's position minus the
                                                 ///< reference's
};

/// Seconds of each stage, by the caller's clock.
struct LocalMotionTimes {
  double preparation = 0;  ///< bad pixels filled, offsets, blur
  double motion = 0;       ///< global start, affine motion, blocks
  double sensor = 0;       ///< fits, bad pixels, pattern
  double masks = 0;
  double solve = 0;
  double total = 0;
};

/// What came out of LocalMotionSuperResolution::computeSR.
struct LocalMotionResult {
  LocalMotionStatus status = LocalMotionStatus::noFrames;

  /// 2 height x 2 width, in the frames' unit; empty if there is none. Low-resolution pixel (x, y) of the reference covers
  /// pixels 2x ... 2x + 1, 2y ... 2y + 1.
  cv::Mat_<float> image;

  /// height x width: number of frames, the reference included, whose pixel nearest to this place of the reference takes
  /// part. 0: nothing is known here but the surroundings. Where it equals usedFrames, all frames have seen the place. What
  /// the solver masks after a look at its image is not taken off.
  cv::Mat_<unsigned short> coverage;

  int reference = 0;
  int usedFrames = 0;    ///< the reference included
  int wantedFrames = 0;  ///< as many could take part
  std::vector<LocalMotionFrame> frames;
  ShiftField field;

  double noise = 0;     ///< standard deviation per pixel of a frame, from the
                        ///< residual of the fit, in the frames' unit
  double weightTV = 0;  ///< weight used, referred to the standard deviation of the reference
  double psfSigma = 0;  ///< standard deviation of the Gaussian that the solver
                        ///< used, high-resolution pixels
  int tiles = 0;
  int tileCore = 0;       ///< low-resolution pixels
  double iterations = 0;  ///< conjugate-gradient iterations, mean over the tiles
  int badPixels = 0;      ///< pixels found bad in the burst, without those that were listed
  double pattern = 0;     ///< standard deviation of the fixed pattern that was subtracted, in the frames' unit

  /// height x width, other than 0 where the burst showed a pixel to be stuck, offset or flickering; listed ones are 0.
  cv::Mat_<unsigned char> badPixelMap;

  /// The pattern of this burst, the known one included, to be merged with that of other bursts. Empty, or of weight 0,
  /// if the burst could not tell.
  PatternAverage patternAverage;

  LocalMotionTimes seconds;
};

}  // namespace movra::vision
