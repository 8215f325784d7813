#ifndef MOVRA_SUPERRESOLUTION_BURST_H
#define MOVRA_SUPERRESOLUTION_BURST_H

/// @file
/// C interface for new programs: a burst of thermal frames in, one image of twice the size out.
///
/// A burst is an opaque handle that holds copies of frames of one size.
///
///     create ---> add_frame, as often as wanted ---> reconstruct ---> shift, shift_field, frame_text, coverage,
///                     ^                              or register      found_bad_pixels, found_pattern
///                     +---- more frames, or clear <------+                                  ---> destroy
///
///     movra_sr_options options;
///     movra_sr_default_options(&options, sizeof options);
///     movra_sr_burst* burst;
///     if (movra_sr_create(160, 120, &options, &burst, NULL, 0) < 0) return 1;
///     for (int i = 0; i < 5; ++i) movra_sr_add_frame(burst, frames[i], 0);
///     movra_sr_result result;
///     result.size = sizeof result;
///     if (movra_sr_reconstruct(burst, image, 0, &result) >= 0) show(image, 320, 240);
///     movra_sr_destroy(burst);
///
/// Frames: height rows of width floats in degrees Celsius, kelvin or counts. A pixel is bad, and left out, when it is NaN
/// or infinite, beyond the options' valid range, listed by movra_sr_set_bad_pixels, or flagged by the camera (bit
/// patterns 129 over-range, 130 under-range, 132 and 133 invalid).
///
/// Image: 2 height rows of 2 width floats in the frames' unit. Pixels (2x ... 2x + 1, 2y ... 2y + 1) cover pixel (x, y) of
/// the reference, the frame whose place the image has. NaN stands where no frame has a good pixel and nothing could be
/// put in its place.
///
/// Frame numbers count from 0, the oldest frame held. Shifts are in low-resolution pixels, x to the right, y downward: the
/// position in the frame less the position in the reference. With a shift of (0.5, 0) the scene lies half a pixel further
/// right in that frame.
///
/// State: a result depends on the frames held, the bad pixels, the pattern and the options alone, bit for bit. It does not
/// depend on frames that have left, on earlier reconstructions, on the instruction set or on the number of threads.
///
/// Threads: the library keeps no state outside the handles. Any number of threads may work at the same time, each with a
/// handle of its own; one handle is used by one thread at a time. The library starts no threads and takes no locks.
///
/// Memory: the caller owns every buffer that it passes; the library copies, and keeps no pointer but those of the
/// options' callbacks.
///
/// Errors: every call that can fail returns a movra_sr_status: 0, above 0 for an image with a reservation, below 0 for a
/// failure. movra_sr_status_text says it in words, movra_sr_error_text has the particulars; calls that take a const handle
/// leave that text as it is. No exception leaves a call, nothing is printed. Null handles and null pointers give MOVRA_SR_INVALID_ARGUMENT unless another meaning is named.
///
/// Structs begin with their size, so that later versions can add fields: set it to sizeof the struct. Fields that are
/// added later mean what they did before when they are zero.

#include <stddef.h>

#include "movra/Export.h"

#ifdef __cplusplus
extern "C" {
#endif

/// The version that this header belongs to; movra_sr_version tells that of the library in use.
#define MOVRA_SR_VERSION_MAJOR 0
#define MOVRA_SR_VERSION_MINOR 9
#define MOVRA_SR_VERSION_PATCH 0
#define MOVRA_SR_VERSION_NUMBER (MOVRA_SR_VERSION_MAJOR * 10000 + MOVRA_SR_VERSION_MINOR * 100 + MOVRA_SR_VERSION_PATCH)

/// Frames of one size, and what was made of them.
typedef struct movra_sr_burst movra_sr_burst;

/// What calls return. Above 0: there is an image, with a reservation.
typedef enum movra_sr_status {
  MOVRA_SR_SUCCESS = 0,
  MOVRA_SR_TOO_MANY_MASKED_PIXELS = 1,  ///< global motion: half of some frame's pixels or more do not match
  MOVRA_SR_DISPLACEMENT_TOO_LARGE = 2,  ///< global motion: a frame lies beyond a tenth of the height
  MOVRA_SR_SINGLE_FRAME = 3,            ///< one frame was given: the image is an enlargement of it
  MOVRA_SR_REFERENCE_ALONE = 4,         ///< no other frame could be aligned: an enlargement of the reference
  MOVRA_SR_STRUCTURELESS = 5,           ///< the reference has one value throughout, and so has the image
  MOVRA_SR_INVALID_ARGUMENT = -1,
  MOVRA_SR_NO_FRAMES = -2,       ///< nothing to work on
  MOVRA_SR_BAD_FRAME = -3,       ///< a frame has no good pixel, or too many bad ones to be repaired
  MOVRA_SR_NOT_REGISTERED = -4,  ///< the frames could not be aligned
  MOVRA_SR_NO_RESULT = -5,       ///< there was no successful reconstruct or register since the frames changed
  MOVRA_SR_CANCELLED = -6,       ///< the progress function said so
  MOVRA_SR_OUT_OF_MEMORY = -7,
  MOVRA_SR_INTERNAL_ERROR = -8
} movra_sr_status;

/// How frames move against each other.
typedef enum movra_sr_motion {
  MOVRA_SR_MOTION_LOCAL = 0,  ///< each part of the image moves by itself, as with a hand-held camera
  MOVRA_SR_MOTION_GLOBAL = 1  ///< each frame is shifted as a whole
} movra_sr_motion;

/// Trade between time and picture.
typedef enum movra_sr_preset {
  MOVRA_SR_PRESET_STANDARD = 0,  ///< 12 iterations, relative residue 0.002; local motion 9
  MOVRA_SR_PRESET_FAST =
      1,                    ///< 8 iterations, relative residue 0.007: what the classic C interface does; local 6, 0.002
  MOVRA_SR_PRESET_BEST = 2  ///< 40 iterations, relative residue 0.001; local motion 24
} movra_sr_preset;

/// How the shifts of the global motion are found.
typedef enum movra_sr_registration {
  MOVRA_SR_REGISTRATION_CORNERS = 0,  ///< by tracked corners
  MOVRA_SR_REGISTRATION_PHASE = 1     ///< by phase correlation; for scenes without corners
} movra_sr_registration;

enum {
  /// As reference: the frame that suits the motion model best; of the global motion the fourth newest, or the oldest.
  MOVRA_SR_BEST_REFERENCE = -1,
  /// As number of frames: no limit.
  MOVRA_SR_ALL_FRAMES = -1
};

/// Told the share of the work that is done, 0 to 1, on the thread that called movra_sr_reconstruct, or movra_sr_register,
/// which ends at about a half.
/// @return 0 to go on; anything else cancels
typedef int (*movra_sr_progress)(void* user, double done);

/// Runs jobs 0 to jobs - 1 by job(context, number), in any order and on any number of threads, and returns when all are
/// done. The image has the same bits for each.
typedef void (*movra_sr_run_jobs)(void* user, int jobs, void (*job)(void* context, int number), void* context);

/// Parameters of a burst. Start from movra_sr_default_options, which sets what stands in brackets; where 0 has a meaning
/// named, it is the default.
typedef struct movra_sr_options {
  size_t size;           ///< sizeof(movra_sr_options)
  int motion;            ///< a movra_sr_motion [MOVRA_SR_MOTION_LOCAL]
  int preset;            ///< a movra_sr_preset [MOVRA_SR_PRESET_STANDARD]
  int registration;      ///< a movra_sr_registration; global motion only [MOVRA_SR_REGISTRATION_CORNERS]
  int reference;         ///< number of the frame whose place the image has [MOVRA_SR_BEST_REFERENCE]
  int capacity;          ///< most frames held; the oldest leaves for a newer one. 0: no limit
  double lowest_valid;   ///< smallest value of a good pixel [-274]
  double highest_valid;  ///< largest one [5000]; the global motion knows values from -32768 to 32767
  /// Standard deviation of the PSF in high-resolution pixels, 0.3 to 2; global motion 0.01 to 2 [0.683].
  double psf_sigma;
  double weight_tv;         ///< inverse strength of the smoothing, 1 to 10000. 0: from the frames; global motion: 400
  int iterations;           ///< most iterations of the solver, 1 to 1000. 0: as the preset says
  double relative_residue;  ///< at which the solver stops, 1e-5 to 1. 0: as the preset says
  movra_sr_progress progress;  ///< called now and then during reconstruct and register; null: never
  void* progress_user;         ///< its first argument
  movra_sr_run_jobs run_jobs;  ///< local motion only; null: one job after the other on the calling thread
  void* run_jobs_user;         ///< its first argument

  /* What local motion takes out of the frames, unless the field is other than 0. */
  int keep_offset;      ///< differences of level between frames
  int keep_bad_pixels;  ///< pixels that the burst shows to be bad, beside the listed ones
  int keep_pattern;     ///< fixed pattern of the sensor that the burst shows, beside the one that was set

  /// Local motion: most frames that take part. Of more held, those that complement each other best are chosen; frame_text
  /// says why each other one was left out. 0: 12, or 20 of noisy ones. MOVRA_SR_ALL_FRAMES: all.
  int frames;
} movra_sr_options;

/// Seconds that the stages of a reconstruction took.
typedef struct movra_sr_times {
  double preparation;  ///< bad pixels, blur
  double motion;       ///< registration
  double masks;        ///< which pixels take part
  double solve;        ///< the solver
  double total;
} movra_sr_times;

/// What a reconstruction tells beside the image.
typedef struct movra_sr_result {
  size_t size;             ///< sizeof(movra_sr_result), set by the caller
  movra_sr_status status;  ///< what reconstruct returned
  int frames;              ///< frames held
  int used_frames;         ///< frames that took part, the reference included
  int reference;           ///< number of the reference
  double sr_factor;        ///< how well the frames cover the image: 2 five of them everywhere, 1 one, 0.75 none
  double noise;            ///< standard deviation of a frame's noise, in the frames' unit; NaN: not measured
  double weight_tv;        ///< weight that was used
  double psf_sigma;        ///< width that the solver used
  double iterations;       ///< iterations that were made, a mean if there were several systems
  int fallback_frames;     ///< global motion: frames with a bad pixel that had no good neighbours to be repaired from
  movra_sr_times seconds;
  double pattern;       ///< local motion: standard deviation of the fixed pattern that was found and taken out
  int bad_pixels;       ///< local motion: pixels that the burst showed to be bad, without those that were listed
  int doubtful_pixels;  ///< others that were left out because they differ from their neighbours in most frames
} movra_sr_result;

/// A grid of places of the reference for which shifts are told: place (column, row) lies at low-resolution pixel
/// (left + column * step_x, top + row * step_y). Between the places shifts are interpolated; a single place stands for all.
typedef struct movra_sr_field {
  size_t size;  ///< sizeof(movra_sr_field), set by the caller
  int columns;
  int rows;
  double left;
  double top;
  double step_x;
  double step_y;
} movra_sr_field;

/// Version of the library in use, as MOVRA_SR_VERSION_NUMBER: 10000 major + 100 minor + patch.
MOVRA_SUPERRESOLUTION_API int movra_sr_version(void);

/// The same as "major.minor.patch".
MOVRA_SUPERRESOLUTION_API const char* movra_sr_version_text(void);

/// The status in words, without a full stop; never null.
MOVRA_SUPERRESOLUTION_API const char* movra_sr_status_text(int status);

/// Sets all options to their defaults.
/// @param options null: nothing is done
/// @param size    sizeof(movra_sr_options) in the caller's code; its field `size` becomes that
MOVRA_SUPERRESOLUTION_API void movra_sr_default_options(movra_sr_options* options, size_t size);

/// Makes a burst without frames.
/// @param width  columns of a frame, 8 to 16384; from 11 on with phase correlation
/// @param height rows of a frame, likewise
/// @param options       copied; null: the defaults
/// @param burst         receives the handle, or null on failure
/// @param error         receives what is wrong, terminated, on failure; may be null
/// @param error_size    characters that it has room for
/// @return
///   - MOVRA_SR_SUCCESS
///   - MOVRA_SR_INVALID_ARGUMENT: a size or an option is out of its range, or `options` comes from a later version and
///     asks for what this one does not have
///   - MOVRA_SR_OUT_OF_MEMORY
MOVRA_SUPERRESOLUTION_API movra_sr_status movra_sr_create(int width, int height, const movra_sr_options* options,
                                                          movra_sr_burst** burst, char* error, size_t error_size);

/// Ends a burst and frees what it owns; null does nothing.
MOVRA_SUPERRESOLUTION_API void movra_sr_destroy(movra_sr_burst* burst);

/// Particulars of the last failure of a call with this handle, empty at first; kept until the next failure.
/// @return a text that the burst owns, never null; for a null handle the text says so
MOVRA_SUPERRESOLUTION_API const char* movra_sr_error_text(const movra_sr_burst* burst);

/// Copies a frame to the end of the burst. On failure nothing is changed. There is no result until the next reconstruct.
/// @param frame      height rows of width floats; only read
/// @param row_stride distance of two rows in floats, at least width; 0: width
/// @return
///   - MOVRA_SR_SUCCESS
///   - MOVRA_SR_INVALID_ARGUMENT
///   - MOVRA_SR_BAD_FRAME: no pixel is good; or, with global motion, more than ten cannot be repaired from their
///     neighbours
///   - MOVRA_SR_OUT_OF_MEMORY
MOVRA_SUPERRESOLUTION_API movra_sr_status movra_sr_add_frame(movra_sr_burst* burst, const float* frame,
                                                             size_t row_stride);

/// Forgets all frames and the result. Options and bad pixels stay.
MOVRA_SUPERRESOLUTION_API movra_sr_status movra_sr_clear(movra_sr_burst* burst);

/// Number of frames held; 0 for a null handle.
MOVRA_SUPERRESOLUTION_API int movra_sr_frame_count(const movra_sr_burst* burst);

/// Says which pixels of the sensor are known to be bad, in all frames held and to come. There is no result until the next
/// reconstruct.
/// @param map        height rows of width bytes, other than 0 where bad; copied. Null: none
/// @param row_stride distance of two rows in bytes, at least width; 0: width
MOVRA_SUPERRESOLUTION_API movra_sr_status movra_sr_set_bad_pixels(movra_sr_burst* burst, const unsigned char* map,
                                                                  size_t row_stride);

/// Sets the fixed pattern of the sensor, known from other bursts: it is taken out of all frames held and to come, and the
/// search for a pattern goes on from there. There is no result until the next reconstruct.
/// @param pattern    height rows of width finite floats in the frames' unit; copied. Null: none
/// @param row_stride distance of two rows in floats, at least width; 0: width
/// @return MOVRA_SR_SUCCESS, MOVRA_SR_INVALID_ARGUMENT (also with global motion, which knows no pattern) or
///         MOVRA_SR_OUT_OF_MEMORY
MOVRA_SUPERRESOLUTION_API movra_sr_status movra_sr_set_pattern(movra_sr_burst* burst, const float* pattern,
                                                               size_t row_stride);

/// Reconstructs the image from all frames held. The frames stay; the same frames give the same bits again.
/// @param image      receives 2 height rows of 2 width floats if the call returns 0 or more; else it is not written
/// @param row_stride distance of two rows in floats, at least 2 width; 0: 2 width
/// @param result     receives the particulars, on failure too if its size is right; null: they are not wanted
/// @return any status but MOVRA_SR_NO_RESULT
MOVRA_SUPERRESOLUTION_API movra_sr_status movra_sr_reconstruct(movra_sr_burst* burst, float* image, size_t row_stride,
                                                               movra_sr_result* result);

/// Measures where the frames held lie, without an image: shifts, field, coverage, bad pixels and pattern are the same
/// bits that movra_sr_reconstruct leaves.
/// @param result receives the particulars, as of movra_sr_reconstruct; noise is NaN, weight_tv and iterations are 0. Null:
///               they are not wanted
/// @return any status but MOVRA_SR_NO_RESULT
MOVRA_SUPERRESOLUTION_API movra_sr_status movra_sr_register(movra_sr_burst* burst, movra_sr_result* result);

/// Shift of a frame at the middle of the reference, from the last reconstruct or register, as all that follows.
/// @param frame number of the frame
/// @param x receives the shift to the right in low-resolution pixels; NaN for a frame that took no part
/// @param y the same downward
/// @return MOVRA_SR_SUCCESS, MOVRA_SR_INVALID_ARGUMENT or MOVRA_SR_NO_RESULT
MOVRA_SUPERRESOLUTION_API movra_sr_status movra_sr_shift(const movra_sr_burst* burst, int frame, double* x, double* y);

/// Shifts of a frame on a grid of places. The grid is the same for all frames; with global
/// motion it has a single place.
/// @param frame  number of the frame
/// @param grid   receives the grid
/// @param shifts receives rows x columns pairs (x, y) in low-resolution pixels, NaN for a frame that took no part; null:
///               only the grid is wanted
/// @return MOVRA_SR_SUCCESS, MOVRA_SR_INVALID_ARGUMENT or MOVRA_SR_NO_RESULT
MOVRA_SUPERRESOLUTION_API movra_sr_status movra_sr_shift_field(const movra_sr_burst* burst, int frame,
                                                               movra_sr_field* grid, float* shifts);

/// Whether a frame took part, and if not, why, in words.
/// @return a text that is never freed, null without a result or such a frame
MOVRA_SUPERRESOLUTION_API const char* movra_sr_frame_text(const movra_sr_burst* burst, int frame);

/// For each pixel of the reference the number of frames that back it.
/// @param coverage   receives height rows of width numbers
/// @param row_stride distance of two rows in numbers, at least width; 0: width
/// @return MOVRA_SR_SUCCESS, MOVRA_SR_INVALID_ARGUMENT or MOVRA_SR_NO_RESULT
MOVRA_SUPERRESOLUTION_API movra_sr_status movra_sr_coverage(const movra_sr_burst* burst, unsigned short* coverage,
                                                            size_t row_stride);

/// Pixels of the sensor that the burst showed to be stuck, offset or flickering, as movra_sr_set_bad_pixels takes them;
/// listed ones are 0. One burst may be wrong: a pixel that two showed is certain. With global motion there are none.
/// @param map        receives height rows of width bytes, 1 where bad
/// @param row_stride distance of two rows in bytes, at least width; 0: width
/// @return MOVRA_SR_SUCCESS, MOVRA_SR_INVALID_ARGUMENT or MOVRA_SR_NO_RESULT
MOVRA_SUPERRESOLUTION_API movra_sr_status movra_sr_found_bad_pixels(const movra_sr_burst* burst, unsigned char* map,
                                                                    size_t row_stride);

/// Fixed pattern of the sensor, the one that was set included, as movra_sr_set_pattern takes it. The mean over bursts,
/// weighted by frames, is better than that of one.
/// @param pattern    receives height rows of width floats in the frames' unit, 0 where nothing is known
/// @param frames     receives the number of frames that told it, per pixel, 0 where nothing is known; null: not wanted
/// @param row_stride distance of two rows in floats, at least width; 0: width
/// @return MOVRA_SR_SUCCESS, MOVRA_SR_INVALID_ARGUMENT or MOVRA_SR_NO_RESULT
MOVRA_SUPERRESOLUTION_API movra_sr_status movra_sr_found_pattern(const movra_sr_burst* burst, float* pattern,
                                                                 float* frames, size_t row_stride);

#ifdef __cplusplus
}
#endif

#endif
