#ifndef MOVRA_SUPERRESOLUTION_CADAPTER_H
#define MOVRA_SUPERRESOLUTION_CADAPTER_H

/// @file
/// C interface of the super-resolution library: a burst of thermal frames in, one image of twice the size
/// out.
///
/// A context holds the last five frames of one stream of equal size. It is known by its handle, a small
/// number >= 0.
///
///                 init                  addImage: frames 1 to 4 only fill the window
///     (no context) ----> [ filling ] --------------------------------------------+
///          ^                 |  addImage: frame 5 and every later one            |
///          |                 v  also reconstructs from the latest five           |
///          +----------- [ running ] <--------------------------------------------+
///             release
///
/// `release` ends a context in either state; `init` hands its handle out again.
///
///     int context = SuperResolution_init(160, 120);
///     if (context < 0) ...
///     for (i = 0; i < 5; ++i)
///       if (SuperResolution_addImage(context, frames[i]) == SUPERRESOLUTION_ERROR) ...
///     float* image = malloc(sizeof(float) * 320 * 240);
///     SuperResolution_getSuperresolutionImage(context, image);
///     SuperResolution_release(context);
///
/// Frames: height rows of width floats, row by row without gaps, temperatures in degrees or kelvin from -274
/// to 5000. The bit patterns 129 (over-range), 130 (under-range), 132 and 133 (invalid) flag pixels that the
/// camera gave up on; these, values out of range, NaN and infinities are replaced in the library's copy and
/// kept out of the result.
///
/// Memory: the caller owns every buffer that it passes; the library copies and keeps no pointer. `release`
/// frees what a context owns.
///
/// Threads: all contexts and the last error text are shared, without locks. Call from one thread at a time.
///
/// Errors: a failing call returns a code and leaves its text as the last error, process-wide; successful
/// calls do not clear it, and a call may set it and still return 0 (see SuperResolution_addImage). Exceptions
/// come out of `init`, `setReferenceFrame` and `setCameraAndLensType` only, as told there; a C program must
/// not give these calls the arguments that make them throw.
///
/// Each reconstruction writes a timing report of six lines to standard output.

#include "vision/superresolution/Export.h"

#ifdef __cplusplus
#include <string>

extern "C" {
#endif

/// What the calls return.
enum SuperResolution_Result {
  SUPERRESOLUTION_SUCCESS = 0,
  SUPERRESOLUTION_INIT_FAILED = -1,    ///< the context could not be made
  SUPERRESOLUTION_FALLBACK_USED = -2,  ///< a bad pixel of the frame had no neighbours to be repaired from
  SUPERRESOLUTION_TOO_MANY_MASKED_PIXELS =
      -3,  ///< a frame of the window could be registered in less than half its pixels
  SUPERRESOLUTION_NOT_ENOUGH_STRUCTURE = -4,  ///< the frame's values span less than 2
  SUPERRESOLUTION_NOT_ENOUGH_IMAGES = -5,     ///< fewer than five frames have been added
  SUPERRESOLUTION_ERROR = -999  ///< invalid context, missing pointer, unknown size or an exception
};

/// Makes a context for frames of one size: window of five frames, factor 2, the second oldest frame as
/// reference, PSF width 0.683. The result image starts as zeros. The lowest free handle is taken. The
/// environment variable SRLIB_LOG_FILE is read and has no effect.
/// @param width, height size of a frame in pixels. A width or height of 0 makes a context that accepts no
/// frame.
/// @return the handle, >= 0; or -1 with the text of the movra::Exception that stopped the construction
/// @throws std::bad_array_new_length (negative or too large a size), std::bad_alloc or cv::Exception (no
/// memory); no
///         handle is used up then
MOVRA_SUPERRESOLUTION_API int SuperResolution_init(int width, int height);

/// Ends a context and frees what it owns.
/// @return 0; or -999 "Context invalid."
MOVRA_SUPERRESOLUTION_API int SuperResolution_release(int context);

/// Adds a frame; from the fifth one on, also reconstructs from the latest five, which takes most of the time.
/// @param image height x width floats, read only
/// @return Before the fifth frame, the first that applies:
///         - -999 "Context invalid."
///         - -999 "Size of expected Ir images unknown": the context was made with a width or height of 0
///         - -999 "ir image data pointer is NULL"
///         - -999 "Too many defect pixels. No processing possible.": more than ten bad pixels could not be
///         repaired. The
///           frame takes its place in the window but is not counted; the context goes on working.
///         - -2 a bad pixel had to take a fallback value; the text stays as it was
///         - -4 "  image has not enough structure" (with two leading blanks): the largest and smallest value
///         differ by
///           less than 2. The frame is added all the same.
///         - 0
///
///         From the fifth frame on -3 comes before -2; the text stays as it was, or is the one of -4 where
///         that applies too. A reconstruction that found too large a displacement, or no way to register the
///         frames, does not show here: the result is 0 or -4, and the image the one made, or in the latter
///         case the previous one. It can also throw, which gives -999 with one of
///         - "Too large displacement": a frame lies half the height or more from the reference
///         - "maskBadPixel(): number of shifts ist not equal to number of defectMaps"
///         - "cv::Exception: " and OpenCV's description
///         - "Unknown exception in addImage()", for instance when memory runs out
MOVRA_SUPERRESOLUTION_API int SuperResolution_addImage(int context, const float* image);

/// Tells the size of the result: twice the frame's.
/// With fewer than five frames it also reconstructs from those held, so that getSuperresolutionImage can
/// deliver an early image.
/// @param width, height written unless the context is invalid; null pointers are passed over
/// @return 0; -999 "Context invalid."; -5 "Not enough input images (<5)"; or -999 and the text of the
/// exception that
///         ended the reconstruction, as for addImage (the last text also names addImage here)
MOVRA_SUPERRESOLUTION_API int SuperResolution_queryOutputImageSize(int context, int* width, int* height);

/// Copies the latest result.
/// @param image (2 height) x (2 width) floats, written unless the result is -999
/// @return 0; -999 "Context invalid."; -5 "Not enough input images (<5)", when zeros or an early image are
/// copied;
///         or -999 "Memcpy called on nullptr!!!!" when `image` is null ("Ir mosaic data pointer is NULL.",
///         which is set first, is replaced) or the context was made with a width or height of 0
MOVRA_SUPERRESOLUTION_API int SuperResolution_getSuperresolutionImage(int context, float* image);

/// Chooses the frame that the others are registered against and on whose pixel grid the image is made.
/// @param index counted back from the newest frame: 0 the newest ... 4 the oldest of five; 3 after init
/// @return 0; or -999 "Context invalid."
/// @throws const char* "Invalid reference index specified." for another index of a valid context
MOVRA_SUPERRESOLUTION_API int SuperResolution_setReferenceFrame(int context, int index);

/// Sets the width (standard deviation in high-resolution pixels) of the sensor's point-spread function from a
/// description of camera and lens, such as "m07, FOV 15".
///
///     camera              lens              width
///     m01                 any               0.81
///     m02 m03 m04 m05     any               0.01
///     m06                 any               0.625
///     m07                 FOV up to 22      0.65
///     m07                 FOV above 22      0.35
///     m08                 any               0.34
///     not recognised                        0.683
///
/// A description is recognised when it holds a camera key and, anywhere, "FOV" followed by a number. Of
/// several keys the topmost counts.
/// @return 0, whatever happened; the last error is not touched. An invalid handle has no effect.
/// @throws std::logic_error if `description` is null
MOVRA_SUPERRESOLUTION_API int SuperResolution_setCameraAndLensType(int context, const char* description);

/// Copies the last error text, which is empty at first, as strncpy does: at most `length` characters, the
/// rest of the buffer filled with zeros, and NO terminator when the text has `length` characters or more. So
/// pass one less than the buffer has and terminate it yourself:
///
///     char text[256] = "";
///     SuperResolution_getErrorMessage(text, sizeof text - 1);
///
/// A null buffer, or a length below 1, copies nothing.
/// @return 0
MOVRA_SUPERRESOLUTION_API int SuperResolution_getErrorMessage(char* buffer, int length);

#ifdef __cplusplus
}  // extern "C"

/// Whether the handle belongs to a context between init and release.
MOVRA_SUPERRESOLUTION_API bool SuperResolution_isContextValid(int context);

/// Kept for old callers; does nothing.
/// @return 0
MOVRA_SUPERRESOLUTION_API int SuperResolution_setLogFile(const char* path);

/// Reads camera and lens from a description, as SuperResolution_setCameraAndLensType does.
/// @param camera "cam1" to "cam8" for the keys m01 to m08; unchanged when no key is found
/// @param lens   the number after the first "FOV", a field of view in degrees; unchanged when there is no key
/// or no
///               "FOV", -1 when nothing follows it
/// @return whether both were found
MOVRA_SUPERRESOLUTION_API bool SuperResolution_getCameraAndLensType(const std::string& description,
                                                                    std::string& camera, int& lens);

namespace movra::vision {
using ::SuperResolution_addImage;
using ::SuperResolution_getCameraAndLensType;
using ::SuperResolution_getErrorMessage;
using ::SuperResolution_getSuperresolutionImage;
using ::SuperResolution_init;
using ::SuperResolution_isContextValid;
using ::SuperResolution_queryOutputImageSize;
using ::SuperResolution_release;
using ::SuperResolution_setCameraAndLensType;
using ::SuperResolution_setLogFile;
using ::SuperResolution_setReferenceFrame;
}  // namespace movra::vision
#endif

#endif
