#pragma once

#include <vector>

#include "movra/Export.h"
#include "vision/superresolution/AffineMotion.h"
#include "vision/superresolution/FrameStack.h"

namespace movra::vision {

/// Why a sensor pixel is not to be believed.
enum class PixelFault {
  known,       ///< the caller listed it
  flagged,     ///< not finite or flagged by the camera in at least half of the frames
  candidate,   ///< differs from its neighbours in most frames; not yet compared with a prediction
  stuck,       ///< shows the same value whatever it looks at
  offset,      ///< follows the scene, but off by the same amount
  flickering,  ///< off in two frames, or far off in one
};

/// Whether and how the burst was searched.
enum class BadPixelSearch {
  notYet,           ///< no residuals so far: there are candidates only
  done,             ///< searched
  strict,           ///< searched with a stricter test, because the frames lie less than a pixel apart
  tooLittleMotion,  ///< not searched: without motion a pixel's fault and the scene's detail look the same
  tooFewFrames,     ///< not searched: one frame
  eightBitData,     ///< not searched: coarse steps and saturated edges of video look like faults
};

/// In words, for a report.
MOVRA_SUPERRESOLUTION_API const char* toString(PixelFault fault);
/// In words, for a report.
MOVRA_SUPERRESOLUTION_API const char* toString(BadPixelSearch search);

struct BadPixelFinding {
  int x;
  int y;
  PixelFault fault;
  /// How far it is off, in the unit of the frames; of a flickering one in its worst or second worst frame; else 0.
  double deviation;
};

struct BadPixelReport {
  BadPixelSearch search = BadPixelSearch::notYet;
  double medianDistance = 0;            ///< between two frames, low-resolution pixels
  int rounds = 0;                       ///< fits compared so far
  std::vector<BadPixelFinding> pixels;  ///< row by row
};

/// Finds the defective pixels of a sensor from a moving burst alone: stuck ones, ones with an offset, flickering ones.
///
///     BurstBadPixels search(frames);
///     do {
///       // a fit in which the pixels of search.map() have mask 0, and its residuals
///     } while (search.update(frames, residuals, motions));
///
/// Without registration the candidates are pixels that differ from the median of their neighbours in most frames. The
/// residuals of a fit without them then decide. A residual is the sensor's when it is large against its surroundings and
/// against the detail of the prediction, and stays in one sensor pixel while the scene moves. A real hot point moves with
/// the scene and is kept. Found pixels are to be masked in the reconstruction; fill() is for registration only.
///
/// Owns one byte per pixel. One thread at a time uses an object. Results have the same bits on every instruction set.
class MOVRA_SUPERRESOLUTION_API BurstBadPixels {
 public:
  /// A fit and a comparison happen this often at most.
  static constexpr int mostRounds = 4;

  /// Marks the candidates, at most 3 % of the pixels.
  /// @param frames as the camera gave them: whether they are 8-bit data shows only before anything is subtracted
  /// @throws movra::Exception if there is no frame
  explicit BurstBadPixels(const FrameStack& frames);

  /// Marks a pixel for good. Positions outside the frame are ignored.
  void addKnown(int x, int y);

  /// Takes candidates back whose detail moves with the scene: a cheap look before the first fit, once the motion is known.
  /// @param frames,motions as for update
  /// @return whether there were any
  bool leaveToScene(const FrameStack& frames, const std::vector<AffineMotion>& motions);

  /// Takes the residuals of a fit that left out the pixels of map(), and decides anew which pixels are bad.
  /// @param frames    as they went into the fit, but with the values of the bad pixels untouched
  /// @param residuals frame less prediction on each frame's own grid, NaN where there is no prediction
  /// @param motions   one per frame
  /// @return whether another fit without the new map() can tell more: it changed, and it was not the last round
  /// @throws movra::Exception for stacks of different shapes, another frame size, or not as many motions as frames
  bool update(const FrameStack& frames, const FrameStack& residuals, const std::vector<AffineMotion>& motions);

  /// height x width bytes, not 0 where a pixel is bad.
  const std::vector<unsigned char>& map() const { return bad; }

  /// What was found, and whether there was a search at all.
  const BadPixelReport& report() const { return state; }

  /// Fills bad and unmeasured pixels with the median of the good ones among their 8, 24 or 80 neighbours.
  /// @param frame height x width, dense
  void fill(float* frame) const;

  /// Whether all frames hold whole numbers from 0 to 255, or these divided by 255.
  static bool isEightBitData(const FrameStack& frames);

 private:
  void adopt(std::vector<BadPixelFinding> found);

  int width;
  int height;
  std::vector<unsigned char> bad;
  std::vector<BadPixelFinding> fixed;  // flagged and known, row by row
  BadPixelReport state;
};

}  // namespace movra::vision
