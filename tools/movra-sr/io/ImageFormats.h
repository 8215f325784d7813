#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "tools/movra-sr/io/ImageReader.h"

namespace movra::tool {

// One function per format; openImage chooses. `start` holds the first bytes of the file.

bool looksLikeTiff(const std::string& start);
bool looksLikePng(const std::string& start);
bool looksLikePgm(const std::string& start);
bool looksLikeNpy(const std::string& start);
bool looksLikeText(const std::string& start);

using SharedBytes = std::shared_ptr<const Bytes>;

std::unique_ptr<ImageReader> openTiff(SharedBytes bytes, const std::string& name);
std::unique_ptr<ImageReader> openPng(SharedBytes bytes, const std::string& name);
std::unique_ptr<ImageReader> openPgm(SharedBytes bytes, const std::string& name);
std::unique_ptr<ImageReader> openNpy(SharedBytes bytes, const std::string& name);
std::unique_ptr<ImageReader> openTable(SharedBytes bytes, const std::string& name);
std::unique_ptr<ImageReader> openRaw(SharedBytes bytes, const std::string& name, const RawLayout& layout);

/// Reads rows of samples that lie one behind the other from `offset` on, swapping their bytes if need be.
/// Returns false when the file ends early.
bool readPlainRows(const Bytes& bytes, std::uint64_t offset, const ImageLayout& layout, bool bigEndian,
                   const Piece& receive);

}  // namespace movra::tool
