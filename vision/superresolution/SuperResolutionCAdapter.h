#ifndef MOVRA_SUPERRESOLUTION_CADAPTER_H
#define MOVRA_SUPERRESOLUTION_CADAPTER_H

/// @file
/// C interface of the super-resolution library: a burst of thermal frames in, one image of twice the size out.
///
/// A context holds the last five frames of one stream of frames of equal size. It is known by its handle, a
/// small number >= 0.
///
///     init ---> FILLING -------------------> RUNNING ---> release
///               addImage, frames 1 to 4:     addImage, frame 5 and every later one:
///               kept for later               replaces the oldest, then reconstructs
///
/// A context may be released at any time; its handle is handed out again by a later `init`.
///
///     const int context = SuperResolution_init(160, 120);
///     for (int i = 0; i < 5; ++i)
///       if (SuperResolution_addImage(context, frames[i]) == SUPERRESOLUTION_ERROR) explain();
///     if (SuperResolution_getSuperresolutionImage(context, image) == SUPERRESOLUTION_SUCCESS) show(image, 320, 240);
///     SuperResolution_release(context);
///
/// Frames: height rows of width floats, row by row without gaps, in degrees Celsius or kelvin, from -274 to 5000.
/// The bit patterns 129 (over-range), 130 (under-range), 132 and 133 (invalid) flag pixels that the camera gave up
/// on. Flagged pixels, values out of range, NaN and infinities are replaced in the library's copy of the frame.
///
/// Image: 2 height rows of 2 width floats, in the frames' unit. The upper left four pixels cover the reference
/// frame's upper left pixel. A pixel for which every frame has bad pixels only holds 129, 130 or 132; these are
/// subnormal numbers, to be compared as 32-bit integers.
///
/// Memory: the caller owns every buffer that it passes; the library copies, and keeps no pointer. `release` frees
/// what a context owns.
///
/// One far-off frame: the mapping of frames to grey values, by which their shifts are found, lives as long as the context
/// and is renewed only by a frame that exceeds it. After one frame with a region of 1000 degrees among scenes of room
/// temperature, later frames may be too flat to be registered, and the image stays as it was until the context is released
/// and made anew.
///
/// Cost: a context takes about 250 bytes per pixel of a frame; the fifth frame and every later one take some 25 ms at
/// 640 x 480 on one core of a recent processor. The library starts no threads and sets no signal handlers.
///
/// Threads: all contexts and the last error text are shared, without locks. Call from one thread at a time.
///
/// Errors: a call that fails returns a code and leaves a text, one for the whole process, to be had from
/// SuperResolution_getErrorMessage. Success does not clear the text. Codes that come without a text leave the one
/// before.
///
/// Exceptions: `addImage` and `queryOutputImageSize` let none out. `init`, `setReferenceFrame` and
/// `setCameraAndLensType` do, as told there; a C program has to keep from the arguments in question, because it
/// cannot catch them.
///
/// Each reconstruction writes a timing report of six lines to standard output. A program that uses standard output
/// itself turns the descriptor elsewhere meanwhile. A closed standard output does no harm: no signal is raised.

#include "movra/Export.h"

#ifdef __cplusplus
#include <string>

extern "C" {
#endif

/// What the calls return, other than handles.
enum SuperResolution_Result {
  SUPERRESOLUTION_SUCCESS = 0,
  /// `init` could not make the context.
  SUPERRESOLUTION_INIT_FAILED = -1,
  /// A bad pixel of the frame had too few good neighbours and took a fallback value instead of their mean.
  SUPERRESOLUTION_FALLBACK_USED = -2,
  /// In a frame of the window, half the pixels or more do not match the reference and were left out.
  SUPERRESOLUTION_TOO_MANY_MASKED_PIXELS = -3,
  /// The largest and the smallest value of the frame differ by less than 2.
  SUPERRESOLUTION_NOT_ENOUGH_STRUCTURE = -4,
  /// Fewer than five frames have been added.
  SUPERRESOLUTION_NOT_ENOUGH_IMAGES = -5,
  /// Invalid context, missing pointer, unknown size, or an exception was caught; the text tells.
  SUPERRESOLUTION_ERROR = -999
};

/// Makes a context for frames of one size. Its image starts as zeros, the reference is the second oldest frame, the
/// width of the point-spread function 0.683. The lowest free handle is taken. The environment variable SRLIB_LOG_FILE is
/// read, and has no effect. Every size is accepted, but frames of less than 16 pixels a side seldom hold corners enough to
/// be registered.
/// @param width  columns of a frame; with 0 columns or rows the context accepts no frames and costs nothing
/// @param height its rows
/// @return
///   - the handle, >= 0
///   - -1 with the text of the movra::Exception that ended the construction
/// @throws std::bad_array_new_length if a size is negative or too large, std::bad_alloc or cv::Exception if there is
///         not enough memory. No handle is used up then.
MOVRA_SUPERRESOLUTION_API int SuperResolution_init(int width, int height);

/// Ends a context and frees what it owns.
/// @return
///   - 0
///   - -999 "Context invalid."
MOVRA_SUPERRESOLUTION_API int SuperResolution_release(int context);

/// Adds a frame. From the fifth frame on it also reconstructs from the latest five, which takes most of the time.
///
/// Not every outcome of a reconstruction shows in the result: when a frame lies further from the reference than a
/// tenth of the height the image is made all the same, and when there is nothing to register the frames by it stays
/// as it was. Both give 0, -2 or -4; the engine itself tells them apart (SrFloat.h, computeSR).
///
/// After a frame with values hundreds of degrees off the others', the context may find nothing to register later frames
/// by, so that the image stays as it was: release it and make a new one.
/// @param image the frame, height x width floats; only read
/// @return the first that applies:
///   - -999 "Context invalid."
///   - -999 "Size of expected Ir images unknown": a size of 0 was given to init
///   - -999 "ir image data pointer is NULL"
///   - -999 "Too many defect pixels. No processing possible.": more than ten pixels could not be repaired at all. The
///     frame is in the window but not counted; the context goes on working.
///   - -999 "Too large displacement": a frame lies half the height or more from the reference. The frame is counted;
///     the image stays as it was.
///   - -999 "maskBadPixel(): number of shifts ist not equal to number of defectMaps", "cv::Exception: " and OpenCV's
///     description, or "Unknown exception in addImage()", for instance when memory runs out
///   - -3, from the fifth frame on; the image is made. No text of its own.
///   - -2; no text of its own
///   - -4 "  image has not enough structure", which begins with two blanks. The frame is added. This text is also
///     left when -3, -2 or an exception outranks the code.
///   - 0
MOVRA_SUPERRESOLUTION_API int SuperResolution_addImage(int context, const float* image);

/// Tells the size of the image. With fewer than five frames it also reconstructs from those there are, for an early
/// look at the image.
/// @param width  receives twice the frame's columns, unless the context is invalid; null is skipped
/// @param height the same of the rows
/// @return
///   - 0
///   - -5 "Not enough input images (<5)"
///   - -999 "Context invalid."
///   - -999 and the text of the exception that ended the early reconstruction, as for SuperResolution_addImage; the
///     last one names addImage here too
MOVRA_SUPERRESOLUTION_API int SuperResolution_queryOutputImageSize(int context, int* width, int* height);

/// Copies the latest image.
/// @param image receives (2 height) x (2 width) floats, unless the result is -999
/// @return
///   - 0
///   - -5 "Not enough input images (<5)"; zeros, or the early image, are copied
///   - -999 "Context invalid."
///   - -999 "Memcpy called on nullptr!!!!": `image` is null, or a size of 0 was given to init. For a null pointer the
///     text is "Ir mosaic data pointer is NULL." first, and then replaced.
MOVRA_SUPERRESOLUTION_API int SuperResolution_getSuperresolutionImage(int context, float* image);

/// Chooses the reference: the frame that the others are registered against and whose place the image has. It counts
/// from the next reconstruction on; the latest image stays.
/// @param index counted back from the newest frame: 0 is the newest, 4 the oldest of five, 3 the default. While fewer
///              frames are held than that, the oldest one is taken.
/// @return
///   - 0
///   - -999 "Context invalid."
/// @throws const char* "Invalid reference index specified." if the context is valid and the index is not 0 to 4
MOVRA_SUPERRESOLUTION_API int SuperResolution_setReferenceFrame(int context, int index);

/// Sets the width of the point-spread function (standard deviation in high-resolution pixels), from the next
/// reconstruction on, by a description of camera and lens, such as "m07, FOV 15":
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
/// Recognised is what holds a camera's key somewhere and "FOV" followed by a number somewhere; of several keys the
/// lowest counts, of several FOV the first. See SuperResolution_getCameraAndLensType for odd numbers.
/// @return 0, always; leaves no text. An invalid handle has no effect.
/// @throws std::logic_error if `description` is null
MOVRA_SUPERRESOLUTION_API int SuperResolution_setCameraAndLensType(int context, const char* description);

/// Copies the last error text, empty at first and never longer than 1023 characters, as strncpy does: at most `length`
/// characters, zeros in the rest of the `length`, and NO terminator when the text has `length` characters or more. Safe is
///
///     char text[256] = "";
///     SuperResolution_getErrorMessage(text, sizeof text - 1);
///
/// @param buffer `length` characters; a null pointer, or a length below 1, makes the call do nothing
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
/// @param camera receives "cam1" to "cam8" for the keys m01 to m08; unchanged when no key is found
/// @param lens   receives the whole number after the first "FOV", a field of view in degrees: 0 if there is something
///               else, -1 if there is nothing, the nearest int if the number is too large. Unchanged without a key or
///               without "FOV".
/// @return whether camera and "FOV" were found and lens is not -1
MOVRA_SUPERRESOLUTION_API bool SuperResolution_getCameraAndLensType(const std::string& description, std::string& camera,
                                                                    int& lens);

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
