#pragma once

#include <vector>

#include "movra/Export.h"
#include "vision/superresolution/AffineMotion.h"
#include "vision/superresolution/FrameStack.h"

namespace movra::vision {

/// Whether a burst told a pattern.
enum class PatternOutcome {
  notYet,           ///< no round so far
  found,            ///< some round has added something
  nothingFound,     ///< chance explains the residuals
  tooLittleMotion,  ///< below a quarter of a pixel between frames
  tooFewFrames,     ///< below three
};

/// In words, for a report.
MOVRA_SUPERRESOLUTION_API const char* toString(PatternOutcome outcome);

struct PatternReport {
  PatternOutcome outcome = PatternOutcome::notYet;
  int rounds = 0;
  double strength = 0;  ///< robust standard deviation of the pattern of this burst, in the unit of the frames
  double kept = 0;      ///< share of the last round's mean residual that is kept, 0 ... 1; 0: chance explains all of it
  bool grew = false;    ///< whether the last round added anything
};

/// Patterns of one camera, averaged over bursts, so that they get better with every burst. What a file keeps.
/// Plain data: `sums` and `weights` have height x width elements each.
struct MOVRA_SUPERRESOLUTION_API PatternAverage {
  int width = 0;
  int height = 0;
  std::vector<float> sums;     ///< of weight times pattern
  std::vector<float> weights;  ///< frames that told it, per pixel

  /// Whether nothing has been merged yet.
  bool empty() const { return sums.empty(); }

  /// The pattern; 0 where there is no weight.
  std::vector<float> mean() const;

  /// Adds another average of the same size; an empty one takes it over. What is not finite, or has no positive weight,
  /// is left out.
  /// @throws movra::Exception if the sizes differ or a list has not one element per pixel
  void merge(const PatternAverage& other);
};

/// Finds what a sensor adds to every frame: a moving burst sees each scene point with several sensor pixels, so what
/// remains in a sensor pixel on the mean over the frames is its own. The mean residual is shrunk by the share that
/// chance explains (as the estimator of W. James and C. Stein, 1961, does), so that nothing is made up where there is
/// no pattern. Two or three rounds of fit, add() and removeFrom().
///
/// Needs motion: below a quarter of a pixel between frames nothing is found. Owns three floats per pixel. One thread
/// at a time uses an object. Results have the same bits on every instruction set.
class MOVRA_SUPERRESOLUTION_API FixedPattern {
 public:
  /// @throws movra::Exception if a size is below 1
  FixedPattern(int width, int height);

  /// A fit takes part of a pattern for scene, so that its residuals show the rest only: what they show of single pixels
  /// is multiplied by this factor, 1 by default. Columns and rows are estimated together with the fit's error.
  void setRelaxation(float factor) { relaxation = factor; }

  /// Adds what is the sensor's in the residuals of a fit to frames that the pattern so far was taken out of.
  /// @param residuals frame less prediction on each frame's own grid, NaN where there is no prediction
  /// @param motions   one per frame
  /// @param bad       height x width bytes, not 0 for pixels to leave alone; or null
  /// @return what this round adds, height x width: to be subtracted from the frames. All zero if nothing was found.
  /// @throws movra::Exception for residuals of another size or not as many motions as residuals
  const std::vector<float>& add(const FrameStack& residuals, const std::vector<AffineMotion>& motions,
                                const unsigned char* bad);

  /// The sum of all rounds, height x width.
  const std::vector<float>& pattern() const { return total; }

  /// What was found, and whether it was looked for at all.
  const PatternReport& report() const { return state; }

  /// The pattern of this burst, and what an average gave beforehand, for a file: one weight per frame and pixel.
  /// @param before pattern that was taken out of the frames before the first round, or empty
  PatternAverage average(const std::vector<float>& before) const;

  /// Subtracts a pattern from a frame; pixels that are not finite or flagged stay as they are.
  /// @param frame   as many pixels as the pattern has
  /// @param pattern height x width elements
  static void removeFrom(float* frame, const std::vector<float>& pattern);

 private:
  bool refuses(const FrameStack& residuals, const std::vector<AffineMotion>& motions);
  std::vector<float> takeOutLines(const FrameStack& residuals, const std::vector<AffineMotion>& motions,
                                  const unsigned char* bad, float limit);
  float shrink(const std::vector<float>& squares, float middle) const;

  int width;
  int height;
  std::vector<float> total;
  std::vector<float> step;    // of this round
  std::vector<float> counts;  // frames per pixel in this round
  float relaxation = 1;
  PatternReport state;
};

}  // namespace movra::vision
