#pragma once

#include <opencv2/core.hpp>
#include <vector>

#include "movra/Export.h"

namespace movra::vision {

/// Keeps defective sensor pixels out of a reconstruction: finds and repairs them in each incoming frame,
/// remembers where they were, and afterwards recomputes the high-resolution pixels that derive from them.
///
/// A pixel is defective when the camera flagged it (bit patterns 129, 130, 132 and 133 of
/// SuperResolutionTypes.h), when it is NaN or infinite, or when it lies outside the valid range of the kind
/// of data. Bit patterns are compared as integers, so nothing here depends on how the processor treats
/// subnormal floats.
///
/// Use by an engine: detectAndReplaceBadPixel once per frame; after the reconstruction maskBadPixel and then
/// replaceMaskedPixel on the same image with the same shifts. The scale between low and high resolution is 2
/// here, whatever the engine's factor.
///
/// Owns the history of defect maps, one byte per pixel and one map per frame of the window, oldest first.
/// Images belong to the caller and may be views with any row stride. One thread at a time uses an object.
class MOVRA_SUPERRESOLUTION_API SuperResolutionBadPixelHandling {
 public:
  /// Keeps the defect maps of the last `frameCount` frames; with 0 it keeps none. Starts with temperature
  /// data.
  explicit SuperResolutionBadPixelHandling(unsigned int frameCount);

  /// Sets the valid range: -32768 ... 32767 for NUC data (counts), -274 ... 5000 for temperatures, bounds
  /// included. Defect maps that are held stay.
  void setDataIsNUC(bool isNUC);

  /// Minimum and maximum of the valid values of `img`. Without a valid value, `minVal` is the upper and
  /// `maxVal` the lower bound of the valid range, so that minVal > maxVal.
  ///
  /// @param minLoc null, or receives (column, row) of the first minimum. Each search starts from the opposite end of the
  ///               valid range; a location stays as it is when no valid value lies beyond that start.
  /// @param maxLoc the same of the maximum
  void getMinMaxVal(const cv::Mat_<float>& img, float& minVal, float& maxVal, cv::Point_<int>* minLoc,
                    cv::Point_<int>* maxLoc) const;

  /// Mean of the valid ones among the left, right, upper and lower neighbours of column x, row y.
  ///
  /// @param value  receives the mean when at least one neighbour is valid.
  /// @return whether the mean may replace the pixel: four neighbours are valid, or three and the pixel lies
  ///         on the image border. A corner has two at most, so it never succeeds.
  bool getReplacementValue_(const cv::Mat_<float>& img, int x, int y, float& value) const;

  /// Finds the defective pixels of `frame`, replaces them in place and adds the frame's defect map to the
  /// history, where it takes the oldest one's place once as many as the frame count are held.
  ///
  /// Pixels are visited in raster order, and a repaired pixel is a valid neighbour for later ones. A pixel
  /// without a usable mean becomes the frame's maximum (flagged over-range, or too large), its minimum
  /// (flagged under-range, or too small) or 0 (otherwise).
  ///
  /// @return 0, or -2 when a pixel without a usable mean was none of the camera's over-range or under-range
  ///         flags.
  /// @throws movra::Exception "Too many defect pixels. No processing possible." when more than 10 pixels
  ///         became 0; the frame is changed and its defect map held all the same.
  int detectAndReplaceBadPixel(cv::Mat_<float>& frame);

  /// Flags every pixel of the high-resolution image whose centre lies near a defective pixel of some frame:
  /// the 7 x 7 block around the place where the defect falls becomes 130 (under-range), 129 (over-range) or
  /// 132 (other). A place above, left of or below the image flags nothing; one up to three columns right of
  /// it flags the last columns.
  ///
  /// @param hr  the high-resolution image, 2 * rows x 2 * columns.
  /// @param shifts  one per held defect map, oldest first: the frame's displacement in low-resolution pixels.
  ///                A shift that is not finite flags nothing.
  /// @throws movra::Exception "maskBadPixel(): number of shifts ist not equal to number of defectMaps"
  void maskBadPixel(cv::Mat_<float>& hr, const std::vector<cv::Point_<float>>& shifts);

  /// Sets every pixel of `hr` that holds the bit pattern 129, 130 or 132 to the mean of the good
  /// low-resolution pixels that fall on it; where no frame has one, the flag stays.
  ///
  /// @param shifts  one per frame, as for maskBadPixel; a shift that is not finite leaves its frame out.
  /// @param frames  the repaired frames, oldest first, one per held defect map; surplus ones are ignored, and
  ///                where shifts or frames are fewer, only the frames that have all three are used.
  /// @throws movra::Exception "bad pixel masks not initalized" when no defect map is held.
  void replaceMaskedPixel(cv::Mat_<float>& hr, const std::vector<cv::Point_<float>>& shifts,
                          const std::vector<cv::Mat_<float>>& frames);

  /// For visual inspection: paints `colour` with (0, 0, 255) where `img` is flagged over-range and with (255,
  /// 0, 0) where it is flagged under-range, and leaves its other pixels. `colour` has the size of `img`.
  void colorBadPixel(const cv::Mat_<float>& img, cv::Mat_<cv::Vec<unsigned char, 3>>& colour);

  /// Empties the history of defect maps: for an engine that clears its window of frames.
  void clearDefectMaps();

 private:
  struct Repair {
    int result = 0;
    int unreplaceable = 0;
  };

  // Appends a map to the history: the oldest one of a full history, so that its buffer is reused; else an empty one.
  cv::Mat_<unsigned char>& pushSpareMap();

  // Repairs the frame and writes the codes of its defective pixels into the map, which holds zeros.
  Repair replaceDefects(cv::Mat_<float>& frame, cv::Mat_<unsigned char>& defectMap, float minVal, float maxVal) const;

  // Sets a high-resolution pixel to the mean of the good low-resolution pixels on it, if there are any.
  void replaceFromFrames(float& value, int x, int y, const std::vector<cv::Point_<float>>& shifts,
                         const std::vector<cv::Mat_<float>>& frames) const;

  unsigned int frameCount;
  float minValidValue;
  float maxValidValue;
  cv::Point_<int> neighbourOffsets[4];
  std::vector<cv::Mat_<unsigned char>> defectMaps;
};

}  // namespace movra::vision
