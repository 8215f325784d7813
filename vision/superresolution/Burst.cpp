#include "vision/superresolution/Burst.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <limits>
#include <new>
#include <optional>
#include <type_traits>

#include "movra/Exception.h"
#include "vision/superresolution/detail/burst/BurstOptions.h"
#include "vision/superresolution/detail/burst/GlobalBurst.h"
#include "vision/superresolution/detail/burst/LocalBurst.h"
#include "vision/superresolution/detail/burst/Progress.h"
#include "vision/superresolution/detail/burst/VersionedStruct.h"

namespace detail = movra::vision::detail;

namespace {

// The structs as the first version knew them, without what was added since.
constexpr std::size_t firstResult = offsetof(movra_sr_result, pattern);
constexpr std::size_t firstField = sizeof(movra_sr_field);

/// Text of a failure, in memory that is there when there is no other.
struct ErrorText {
  char text[256] = "";

  movra_sr_status set(movra_sr_status status, const char* particulars) {
    std::snprintf(text, sizeof text, "%s", particulars);
    return status;
  }
};

}  // namespace

struct movra_sr_burst {
  movra_sr_options options;
  detail::BurstFrames input;
  std::optional<detail::BurstOutcome> outcome;  ///< of the last successful reconstruction of these frames
  ErrorText error;
};

namespace {

/// The error boundary: runs `call` and turns every exception into a status and a text.
template <class Call>
movra_sr_status guarded(ErrorText& error, Call call) noexcept {
  try {
    return call();
  } catch (const detail::Cancelled&) {
    return error.set(MOVRA_SR_CANCELLED, "the progress function ended the reconstruction");
  } catch (const std::bad_alloc&) {
    return error.set(MOVRA_SR_OUT_OF_MEMORY, "memory has run out");
  } catch (const cv::Exception& exception) {
    return exception.code == cv::Error::StsNoMem ? error.set(MOVRA_SR_OUT_OF_MEMORY, "memory has run out")
                                                 : error.set(MOVRA_SR_INTERNAL_ERROR, exception.what());
  } catch (const std::exception& exception) {
    return error.set(MOVRA_SR_INTERNAL_ERROR, exception.what());
  } catch (const char* text) {  // the engines' setters
    return error.set(MOVRA_SR_INTERNAL_ERROR, text);
  } catch (...) {
    return error.set(MOVRA_SR_INTERNAL_ERROR, "an exception of an unknown kind");
  }
}

movra_sr_status refuse(ErrorText& error, const char* reason) {
  return error.set(MOVRA_SR_INVALID_ARGUMENT, reason);
}

/// The distance of rows in elements that a caller means; 0 if it is too small.
std::size_t strideOf(std::size_t given, int columns) {
  const auto least = static_cast<std::size_t>(columns);
  return given == 0 ? least : given >= least ? given : 0;
}

template <class T>
void copyRows(const T* from, std::size_t fromStride, T* to, std::size_t toStride, int columns, int rows) {
  for (int y = 0; y < rows; ++y) {
    const auto row = static_cast<std::size_t>(y);
    std::copy_n(from + row * fromStride, columns, to + row * toStride);
  }
}

movra_sr_status addFrame(movra_sr_burst& burst, const float* frame, std::size_t stride) {
  detail::BurstFrames& input = burst.input;
  std::vector<float> copy(input.pixels());
  copyRows(frame, stride, copy.data(), static_cast<std::size_t>(input.width), input.width, input.height);
  if (std::none_of(copy.begin(), copy.end(), [&](float pixel) { return detail::isGood(pixel, burst.options); })) {
    return burst.error.set(MOVRA_SR_BAD_FRAME, "no pixel of the frame is good");
  }
  try {
    if (burst.options.motion == MOVRA_SR_MOTION_GLOBAL) {
      detail::checkRepairable(copy, input.width, input.height, burst.options);
    }
  } catch (const movra::Exception& refusal) {
    return burst.error.set(MOVRA_SR_BAD_FRAME, refusal.what());
  }
  if (burst.options.capacity > 0 && input.count() >= burst.options.capacity) {
    std::rotate(input.frames.begin(), input.frames.begin() + 1, input.frames.end());
    input.frames.back().swap(copy);
  } else {
    input.frames.push_back(std::move(copy));
  }
  burst.outcome.reset();
  return MOVRA_SR_SUCCESS;
}

/// @param image null: registration alone
movra_sr_status reconstruct(movra_sr_burst& burst, float* image, std::size_t stride, movra_sr_result* result) {
  if (result != nullptr && !detail::isSize(result->size, firstResult)) {
    return refuse(burst.error, "the result's size is not set");
  }
  burst.outcome.reset();
  detail::BurstOutcome outcome;
  outcome.result.frames = burst.input.count();
  if (result != nullptr) {
    detail::copyKnownPart(result, result->size, outcome.result);  // stays when an exception ends the call
  }
  if (burst.input.frames.empty()) {
    outcome.fail(MOVRA_SR_NO_FRAMES, "no frame has been added");
  } else if (burst.options.reference >= burst.input.count()) {
    outcome.fail(MOVRA_SR_INVALID_ARGUMENT, "reference is " + std::to_string(burst.options.reference) + ", but only " +
                                                std::to_string(burst.input.count()) + " frames are held");
  } else {
    const auto method =
        burst.options.motion == MOVRA_SR_MOTION_GLOBAL ? detail::reconstructGlobally : detail::reconstructLocally;
    outcome = method(burst.input, burst.options, image != nullptr);
  }
  if (result != nullptr) {
    detail::copyKnownPart(result, result->size, outcome.result);
  }
  if (outcome.result.status < 0) {
    return burst.error.set(outcome.result.status, outcome.particulars.c_str());
  }
  if (image != nullptr) {
    copyRows(outcome.image.ptr<float>(), static_cast<std::size_t>(outcome.image.cols), image, stride,
             outcome.image.cols, outcome.image.rows);
    outcome.image.release();  // the caller has it
  }
  burst.outcome = std::move(outcome);
  return burst.outcome->result.status;
}

/// Whether there is a result with such a frame; else the status that says so.
movra_sr_status findFrame(const movra_sr_burst* burst, int frame) {
  if (burst == nullptr || frame < 0 || frame >= burst->input.count()) {
    return MOVRA_SR_INVALID_ARGUMENT;
  }
  return burst->outcome ? MOVRA_SR_SUCCESS : MOVRA_SR_NO_RESULT;
}

/// Whether an image of the reference's size can be handed out; else the status that says why not.
movra_sr_status findImage(const movra_sr_burst* burst, const void* image, std::size_t stride) {
  if (burst == nullptr || image == nullptr || strideOf(stride, burst->input.width) == 0) {
    return MOVRA_SR_INVALID_ARGUMENT;
  }
  return burst->outcome ? MOVRA_SR_SUCCESS : MOVRA_SR_NO_RESULT;
}

template <class T>
void handOut(const movra_sr_burst& burst, const T* from, T* to, std::size_t stride) {
  const int columns = burst.input.width;
  copyRows(from, static_cast<std::size_t>(columns), to, strideOf(stride, columns), columns, burst.input.height);
}

}  // namespace

int movra_sr_version(void) {
  return MOVRA_SR_VERSION_NUMBER;
}

#define MOVRA_SR_TEXT_OF(number) #number
#define MOVRA_SR_VERSION_OF(major, minor, patch) \
  MOVRA_SR_TEXT_OF(major) "." MOVRA_SR_TEXT_OF(minor) "." MOVRA_SR_TEXT_OF(patch)

const char* movra_sr_version_text(void) {
  return MOVRA_SR_VERSION_OF(MOVRA_SR_VERSION_MAJOR, MOVRA_SR_VERSION_MINOR, MOVRA_SR_VERSION_PATCH);
}

const char* movra_sr_status_text(int status) {
  switch (status) {
    case MOVRA_SR_SUCCESS:
      return "success";
    case MOVRA_SR_TOO_MANY_MASKED_PIXELS:
      return "half of a frame's pixels or more do not match the reference";
    case MOVRA_SR_DISPLACEMENT_TOO_LARGE:
      return "a frame lies further from the reference than a tenth of the height";
    case MOVRA_SR_SINGLE_FRAME:
      return "one frame was given; the image is an enlargement of it";
    case MOVRA_SR_REFERENCE_ALONE:
      return "no other frame could be aligned; the image is an enlargement of the reference";
    case MOVRA_SR_STRUCTURELESS:
      return "the reference has one value throughout, and so has the image";
    case MOVRA_SR_INVALID_ARGUMENT:
      return "an argument cannot be used";
    case MOVRA_SR_NO_FRAMES:
      return "there are no frames";
    case MOVRA_SR_BAD_FRAME:
      return "a frame has no good pixel, or too many bad ones to be repaired";
    case MOVRA_SR_NOT_REGISTERED:
      return "the frames could not be aligned";
    case MOVRA_SR_NO_RESULT:
      return "there was no successful reconstruction since the frames changed";
    case MOVRA_SR_CANCELLED:
      return "cancelled";
    case MOVRA_SR_OUT_OF_MEMORY:
      return "memory has run out";
    case MOVRA_SR_INTERNAL_ERROR:
      return "internal error";
  }
  return "unknown status";
}

void movra_sr_default_options(movra_sr_options* options, size_t size) {
  if (options == nullptr || size < sizeof options->size) {
    return;
  }
  detail::copyKnownPart(options, size, detail::defaultOptions());
}

movra_sr_status movra_sr_create(int width, int height, const movra_sr_options* options, movra_sr_burst** burst,
                                char* error, size_t error_size) {
  ErrorText text;
  const movra_sr_status status = guarded(text, [&] {
    if (burst == nullptr) {
      return refuse(text, "the pointer that receives the handle is null");
    }
    *burst = nullptr;
    movra_sr_options own = detail::defaultOptions();
    if (options != nullptr && !detail::readOptions(*options, own)) {
      return refuse(text, "the options are of another version; set them with movra_sr_default_options first");
    }
    if (const char* fault = detail::faultOf(own, width, height)) {
      return refuse(text, fault);
    }
    *burst = new movra_sr_burst{own, {width, height, {}, {}, {}}, std::nullopt, {}};
    return MOVRA_SR_SUCCESS;
  });
  if (status < 0 && error != nullptr && error_size > 0) {
    std::snprintf(error, error_size, "%s", text.text);
  }
  return status;
}

void movra_sr_destroy(movra_sr_burst* burst) {
  delete burst;
}

const char* movra_sr_error_text(const movra_sr_burst* burst) {
  return burst == nullptr ? "the handle is null" : burst->error.text;
}

movra_sr_status movra_sr_add_frame(movra_sr_burst* burst, const float* frame, size_t row_stride) {
  if (burst == nullptr) {
    return MOVRA_SR_INVALID_ARGUMENT;
  }
  return guarded(burst->error, [&] {
    const std::size_t stride = strideOf(row_stride, burst->input.width);
    if (frame == nullptr || stride == 0) {
      return refuse(burst->error, frame == nullptr ? "the frame is null" : "row_stride is less than the width");
    }
    return addFrame(*burst, frame, stride);
  });
}

movra_sr_status movra_sr_clear(movra_sr_burst* burst) {
  if (burst == nullptr) {
    return MOVRA_SR_INVALID_ARGUMENT;
  }
  burst->input.frames.clear();
  burst->outcome.reset();
  return MOVRA_SR_SUCCESS;
}

int movra_sr_frame_count(const movra_sr_burst* burst) {
  return burst == nullptr ? 0 : burst->input.count();
}

movra_sr_status movra_sr_set_bad_pixels(movra_sr_burst* burst, const unsigned char* map, size_t row_stride) {
  if (burst == nullptr) {
    return MOVRA_SR_INVALID_ARGUMENT;
  }
  return guarded(burst->error, [&] {
    detail::BurstFrames& input = burst->input;
    const std::size_t stride = strideOf(row_stride, input.width);
    if (stride == 0) {
      return refuse(burst->error, "row_stride is less than the width");
    }
    std::vector<unsigned char> copy(map == nullptr ? 0 : input.pixels());
    if (map != nullptr) {
      copyRows(map, stride, copy.data(), static_cast<std::size_t>(input.width), input.width, input.height);
    }
    input.badPixels.swap(copy);
    burst->outcome.reset();
    return MOVRA_SR_SUCCESS;
  });
}

movra_sr_status movra_sr_set_pattern(movra_sr_burst* burst, const float* pattern, size_t row_stride) {
  if (burst == nullptr) {
    return MOVRA_SR_INVALID_ARGUMENT;
  }
  return guarded(burst->error, [&] {
    detail::BurstFrames& input = burst->input;
    const std::size_t stride = strideOf(row_stride, input.width);
    if (stride == 0) {
      return refuse(burst->error, "row_stride is less than the width");
    }
    if (pattern != nullptr && burst->options.motion == MOVRA_SR_MOTION_GLOBAL) {
      return refuse(burst->error, "global motion knows no pattern");
    }
    std::vector<float> copy(pattern == nullptr ? 0 : input.pixels());
    if (pattern != nullptr) {
      copyRows(pattern, stride, copy.data(), static_cast<std::size_t>(input.width), input.width, input.height);
    }
    if (!std::all_of(copy.begin(), copy.end(), [](float value) { return std::isfinite(value); })) {
      return refuse(burst->error, "the pattern has values that are not finite");
    }
    input.pattern.swap(copy);
    burst->outcome.reset();
    return MOVRA_SR_SUCCESS;
  });
}

movra_sr_status movra_sr_reconstruct(movra_sr_burst* burst, float* image, size_t row_stride, movra_sr_result* result) {
  if (burst == nullptr) {
    return MOVRA_SR_INVALID_ARGUMENT;
  }
  const movra_sr_status status = guarded(burst->error, [&] {
    const std::size_t stride = strideOf(row_stride, 2 * burst->input.width);
    if (image == nullptr || stride == 0) {
      return refuse(burst->error, image == nullptr ? "the image is null" : "row_stride is less than twice the width");
    }
    return reconstruct(*burst, image, stride, result);
  });
  if (result != nullptr && detail::isSize(result->size, firstResult)) {
    result->status = status;
  }
  return status;
}

movra_sr_status movra_sr_register(movra_sr_burst* burst, movra_sr_result* result) {
  if (burst == nullptr) {
    return MOVRA_SR_INVALID_ARGUMENT;
  }
  const movra_sr_status status = guarded(burst->error, [&] { return reconstruct(*burst, nullptr, 0, result); });
  if (result != nullptr && detail::isSize(result->size, firstResult)) {
    result->status = status;
  }
  return status;
}

movra_sr_status movra_sr_shift(const movra_sr_burst* burst, int frame, double* x, double* y) {
  const movra_sr_status status = x == nullptr || y == nullptr ? MOVRA_SR_INVALID_ARGUMENT : findFrame(burst, frame);
  if (status == MOVRA_SR_SUCCESS) {
    const cv::Point2d& shift = burst->outcome->middleShifts[static_cast<std::size_t>(frame)];
    *x = shift.x;
    *y = shift.y;
  }
  return status;
}

movra_sr_status movra_sr_shift_field(const movra_sr_burst* burst, int frame, movra_sr_field* grid, float* shifts) {
  if (grid == nullptr || !detail::isSize(grid->size, firstField)) {
    return MOVRA_SR_INVALID_ARGUMENT;
  }
  const movra_sr_status status = findFrame(burst, frame);
  if (status == MOVRA_SR_SUCCESS) {
    detail::copyKnownPart(grid, grid->size, burst->outcome->field);
    if (shifts != nullptr) {
      for (const cv::Point2f& shift : burst->outcome->shifts[static_cast<std::size_t>(frame)]) {
        *shifts++ = shift.x;
        *shifts++ = shift.y;
      }
    }
  }
  return status;
}

const char* movra_sr_frame_text(const movra_sr_burst* burst, int frame) {
  return findFrame(burst, frame) == MOVRA_SR_SUCCESS ? burst->outcome->remarks[static_cast<std::size_t>(frame)]
                                                     : nullptr;
}

movra_sr_status movra_sr_coverage(const movra_sr_burst* burst, unsigned short* coverage, size_t row_stride) {
  const movra_sr_status status = findImage(burst, coverage, row_stride);
  if (status == MOVRA_SR_SUCCESS) {
    handOut(*burst, burst->outcome->coverage.ptr<unsigned short>(), coverage, row_stride);
  }
  return status;
}

movra_sr_status movra_sr_found_bad_pixels(const movra_sr_burst* burst, unsigned char* map, size_t row_stride) {
  const movra_sr_status status = findImage(burst, map, row_stride);
  if (status == MOVRA_SR_SUCCESS) {
    handOut(*burst, burst->outcome->badPixels.data(), map, row_stride);
  }
  return status;
}

movra_sr_status movra_sr_found_pattern(const movra_sr_burst* burst, float* pattern, float* frames, size_t row_stride) {
  const movra_sr_status status = findImage(burst, pattern, row_stride);
  if (status == MOVRA_SR_SUCCESS) {
    handOut(*burst, burst->outcome->pattern.data(), pattern, row_stride);
    if (frames != nullptr) {
      handOut(*burst, burst->outcome->patternFrames.data(), frames, row_stride);
    }
  }
  return status;
}
