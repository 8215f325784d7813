#pragma once

#include <string>
#include <vector>

#include "tools/movra-sr/reconstruction/Window.h"
#include "vision/superresolution/AffineMotion.h"

namespace movra::tool {

/// A frame's motion as movra-sr register tells it.
struct KnownMotion {
  std::string frame;  ///< its name
  vision::AffineMotion motion;
  bool used = true;  ///< false: register could not align it
};

/// Reads a file of movra-sr register, CSV or JSON. CSV by other programs needs the columns frame, dx and dy, and may have
/// roll_degrees and zoom_percent, or xx, xy, yx and yy, and used. Throws Failure.
std::vector<KnownMotion> readMotions(const std::string& file);

/// Takes the frames that the file calls unused out of the window, with a note. Throws Failure if none is left.
void dropUnaligned(Window& window, const std::vector<KnownMotion>& motions, const std::string& file);

/// The motions of the frames, found by name: the whole one, or else the file's without its folder. Throws Failure for a
/// frame that is not in the file or in it twice.
std::vector<vision::AffineMotion> motionsOf(const std::vector<Frame>& frames, const std::vector<KnownMotion>& motions,
                                            const std::string& file);

}  // namespace movra::tool
