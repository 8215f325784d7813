#pragma once

#include <functional>
#include <map>
#include <set>
#include <vector>

#include <opencv2/core.hpp>

namespace movra::vision::detail {

/// BadPixel::Query.
using ReplacementQuery = std::vector<std::multimap<float, cv::Point_<int>>>;

/// See BadPixel::computeReplacePixelQuery.
ReplacementQuery replacementQuery(int radius);

/// See BadPixel::calculateSingleReplacePixelSimpleNhood.
bool replaceFromSimpleNeighbourhood(cv::Mat_<unsigned short>& list, int index, cv::Size_<int> size);

/// See BadPixel::calculateSingleReplacePixel. The caller keeps the set of bad places, which are y width + x.
/// @param addBad null if the set is filled; else it gets the places of the list
/// @param isBad  whether a place is in the set
bool chooseReplacements(cv::Mat_<unsigned short>& list, int index, cv::Size_<int> size, const ReplacementQuery& query,
                        const std::function<void(unsigned int)>& addBad,
                        const std::function<bool(unsigned int)>& isBad);

/// The same with the places of the list.
bool chooseReplacements(cv::Mat_<unsigned short>& list, int index, cv::Size_<int> size, const ReplacementQuery& query);

/// See BadPixel::calculateReplacePixels.
bool chooseAllReplacements(cv::Mat_<unsigned short>& list, cv::Size_<int> size, int radius);

/// See BadPixel::appendBadPixel.
bool appendBadPixels(const cv::Mat& newList, cv::Mat& list, cv::Size_<int> size, int radius);

}  // namespace movra::vision::detail
