#pragma once

#include <png.h>

namespace movra::tool {

/// libpng's warnings concern neither the pixels that are read nor those that are written.
inline void ignoreWarning(png_structp, png_const_charp) {}

/// What libpng calls at an error: a jump to the last setjmp.
[[noreturn]] inline void jumpOut(png_structp png, png_const_charp) {
  png_longjmp(png, 1);
}

}  // namespace movra::tool
