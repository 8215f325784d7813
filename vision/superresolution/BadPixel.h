#pragma once

#include <functional>
#include <map>
#include <set>
#include <vector>

#include <opencv2/core.hpp>

#include "movra/Export.h"

namespace movra::vision {

/// A defective sensor pixel: its position, the pixels that replace it and the reasons why it is defective.
/// Beside this record stand operations on bad-pixel lists of raw 16-bit images: finding defective pixels from
/// the histogram of values, choosing four replacement pixels for each, merging lists and drawing them.
///
/// A bad-pixel list is a CV_16UC1 matrix with 10 columns and a row per defective pixel: x, y, then x, y of
/// four replacement pixels. A replacement at (image width, image height) has not been chosen yet. The list
/// operations accept any content, positions outside the image included; image sizes are (width, height) in
/// pixels.
///
/// The two-number forms of the record's operations take the row first; the point forms are (x, y), except
/// that set(point) transposes its point.
///
/// A record owns its lists and may be a base class. One thread at a time uses a record; the list operations
/// share nothing but OpenCV's global random generator (drawBadPixels with random colours).
class MOVRA_SUPERRESOLUTION_API BadPixel {
 public:
  /// A replacement query: for each of four directions the offsets to try, by increasing distance.
  using Query = std::vector<std::multimap<float, cv::Point_<int>>>;

  BadPixel() = default;
  /// The pixel at row a, column b.
  BadPixel(unsigned int a, unsigned int b, const std::vector<cv::Point_<unsigned int>>& replacements,
           const std::vector<unsigned short>& reasons);
  BadPixel(const BadPixel&) = default;
  BadPixel& operator=(const BadPixel&) = default;
  virtual ~BadPixel();

  /// Moves the record to row a, column b.
  void set(unsigned int a, unsigned int b);
  /// Moves the record to row p.x, column p.y: the point is transposed, so set(pos()) swaps x and y.
  void set(const cv::Point_<unsigned int>& p);

  /// Position as (column, row).
  cv::Point_<unsigned int> pos() const;
  /// Row into a, column into b.
  void pos(unsigned int& a, unsigned int& b) const;
  /// Column.
  unsigned int x() const;
  /// Row.
  unsigned int y() const;

  /// Appends the pixel at row a, column b.
  void addReplacementPixel(unsigned int a, unsigned int b);
  /// Appends the pixel at column p.x, row p.y.
  void addReplacementPixel(const cv::Point_<unsigned int>& p);
  /// The replacement pixels in the order in which they were appended, as (column, row).
  std::vector<cv::Point_<unsigned int>> getReplacementPixels() const;
  /// Number of replacement pixels held.
  std::size_t getNumberOfReplacementPixels() const;
  /// Drops all replacement pixels.
  void clearReplacements();

  /// Appends each code that is not yet held, in the given order. The caller defines the codes.
  void addDefectReasons(const std::vector<unsigned short>& reasons);
  /// The codes held, in the order in which they were appended.
  std::vector<unsigned short> retrieveDefectReasons() const;

  // Finding defective pixels

  /// Counts the values of `img` in bins lo ... hi; the first bin also counts what is smaller, the last what is
  /// larger.
  ///
  /// @param hist  becomes 1 x (hi - lo + 1).
  /// @return false, with `hist` as it was, if the image is empty or lo >= hi.
  static bool buildValueHistogram(const cv::Mat_<short>& img, cv::Mat_<int>& hist, short lo, short hi);

  /// Lists the pixels whose value is at most `lo`, at least `hi`, or rare: fewer than `maxCount` pixels have
  /// values in its bin and the `window` bins left of it, likewise right of it, and in window / 2 bins on
  /// either side. First come the extremes in raster order, then the rare values in increasing order.
  ///
  /// @param hist  what buildValueHistogram made of `img` with the same bounds; its first and last bin are set
  ///              to 0.
  /// @param list  rows: the capacity, 10 columns; becomes the list of the pixels found, with the first
  ///              replacement not chosen yet and the others 0, or an empty matrix if none is found.
  /// @return whether the whole histogram was searched. False if more pixels are extreme than the list can
  ///         hold (the list is then empty), if the capacity was reached before the last bin, if a count of
  ///         the histogram is negative so that a sum would be too, or if an argument cannot be used: an empty
  ///         image or one larger than 65535 x 65535, no histogram of one row, maxCount 0, window < 2, or not
  ///         10 columns.
  static bool performNeighbourSearch(const cv::Mat_<short>& img, cv::Mat_<int>& hist, cv::Mat_<unsigned short>& list,
                                     short lo, short hi, unsigned short maxCount, unsigned short window);

  // Choosing replacements

  /// The offsets to try in each direction (down, left, up, right), as maps from distance to offset; equal
  /// distances keep their order. An offset's key is the distance of the place one row nearer than the offset
  /// itself: the nearest neighbours have key 0. A radius below 1 gives four empty maps.
  static Query computeReplacePixelQuery(int radius);

  /// Chooses replacements for one row from a fixed neighbourhood of seven pixels upward, to the right,
  /// downward and to the left; a direction without a good pixel takes one of the next direction that has any.
  ///
  /// @return false, with the row as it was, if there is no such row or no good pixel in the neighbourhood.
  static bool calculateSingleReplacePixelSimpleNhood(cv::Mat_<unsigned short>& list, unsigned short index,
                                                     cv::Size_<int> size);

  /// Chooses replacements for one row: in each direction of the query the nearest pixel that lies inside the
  /// image and is not bad. With fewer than four directions that have one, these pixels are repeated.
  ///
  /// @param badPositions  y * width + x of every bad pixel, converted to the set's type of integer; filled from the list
  ///                      if it is empty.
  /// @return false, with the row as it was, if there is no such row or no direction has a good pixel.
  template <class Integer>
  static bool calculateSingleReplacePixel(cv::Mat_<unsigned short>& list, unsigned short index, cv::Size_<int> size,
                                          const Query& query, std::set<Integer>& badPositions) {
    std::function<void(unsigned int)> addBad;
    if (badPositions.empty()) {
      addBad = [&](unsigned int place) { badPositions.insert(static_cast<Integer>(place)); };
    }
    return chooseReplacements(list, index, size, query, addBad,
                              [&](unsigned int place) { return badPositions.count(static_cast<Integer>(place)) > 0; });
  }
  /// The same with the bad positions of the list.
  static bool calculateSingleReplacePixel(cv::Mat_<unsigned short>& list, unsigned short index, cv::Size_<int> size,
                                          const Query& query);
  /// The same with the query for a radius; radius 3 uses the fixed neighbourhood instead.
  static bool calculateSingleReplacePixel(cv::Mat_<unsigned short>& list, unsigned short index, cv::Size_<int> size,
                                          int radius);

  /// Chooses replacements for every row with the query for `radius`, also where that is 3.
  ///
  /// @return whether every row has got replacements.
  static bool calculateReplacePixels(cv::Mat_<unsigned short>& list, cv::Size_<int> size, unsigned int radius);

  /// Appends the rows of `newList` to `list` and chooses anew the replacements that became bad by this, as
  /// well as new rows' replacements that were not chosen yet, lie outside the image or are the pixel itself.
  ///
  /// @return false if `newList` has rows but is no bad-pixel list, or `list` has rows and is none.
  static bool appendBadPixel(const cv::Mat& newList, cv::Mat& list, cv::Size_<int> size, unsigned int radius);

  /// Draws a square outline of `size` pixels around each listed pixel, in `colour` or in random colours.
  ///
  /// @throws movra::Exception if the list is not CV_16UC1 with 10 columns, or at the first listed pixel that
  ///         lies outside the image; what was drawn before stays.
  static void drawBadPixels(const cv::Mat& list, cv::Mat_<cv::Vec<unsigned char, 3>>& img,
                            const cv::Scalar_<double>& colour, unsigned int size, bool randomColour);

 private:
  static bool chooseReplacements(cv::Mat_<unsigned short>& list, unsigned short index, cv::Size_<int> size,
                                 const Query& query, const std::function<void(unsigned int)>& addBad,
                                 const std::function<bool(unsigned int)>& isBad);

  std::vector<cv::Point_<unsigned int>> replacementPixels;
  unsigned int column = 0;
  unsigned int row = 0;
  std::vector<unsigned short> defectReasons;
};

}  // namespace movra::vision
