#pragma once

#include <string>

#include "tools/movra-sr/io/ImageWriter.h"

namespace movra::tool {

// What the writers of the formats share.

/// What goes into the Software field.
std::string signatureOf(const ImageDescription& description);

/// The description with the scale of integers before it.
std::string fullText(const ImageDescription& description, const ImageEncoding& encoding);

/// A row as 16-bit integers.
void storeRow(const float* values, int count, const ImageEncoding& encoding, void* stored);

/// Writes an image as grey PNG of 16 bits.
void writeGreyPng(const OutputFile& file, const cv::Mat_<float>& image, const ImageDescription& description,
                  const ImageEncoding& encoding);

}  // namespace movra::tool
