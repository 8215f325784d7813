#include "vision/superresolution/SuperResolutionCAdapter.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <opencv2/core.hpp>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "movra/Exception.h"
#include "movra/exp/ImageIO.h"
#include "movra/exp/TypeObjectInitializer.h"
#include "vision/superresolution/CameraModels.h"
#include "vision/superresolution/SrFloat.h"
#include "vision/superresolution/detail/base/Sizes.h"

namespace {

using Engine = movra::vision::SrFloat<movra::vision::SrFloatRegistration2>;

constexpr int windowSize = 5;
constexpr float upscaling = 2.0f;
constexpr int logWriteMode = 2;

/// One slot of the registry; free while it has no engine.
struct SuperResolution_CtxData {
  int width = 0;
  int height = 0;
  cv::Mat_<float> result;
  std::unique_ptr<Engine> engine;
  movra::exp::ImageIO imageLog{logWriteMode};
  int numImages = 0;
};

// In this order: constructed first, the initializer outlives the other two.
const movra::exp::TypeObjectInitializer typeObjectInitializer;
std::vector<SuperResolution_CtxData> SuperResolution_Contexts;
// Of fixed size, so that a text can be left without memory too; longer ones are cut.
char SuperResolution_LastError[1024] = "";

int fail(const char* text, int code = SUPERRESOLUTION_ERROR, const char* more = "") {
  std::snprintf(SuperResolution_LastError, sizeof SuperResolution_LastError, "%s%s", text, more);
  return code;
}

int failInvalidContext() {
  return fail("Context invalid.");
}

/// The error boundary: runs `call` and turns every exception into the last error text and -999. Calls that
/// are made outside it let exceptions through, as the header tells.
template <class Call>
int guarded(Call call) {
  try {
    return call();
  } catch (const movra::Exception& exception) {
    return fail(exception.what());
  } catch (const cv::Exception& exception) {
    return fail("cv::Exception: ", SUPERRESOLUTION_ERROR, exception.err.c_str());
  } catch (...) {
    return fail("Unknown exception in addImage()");
  }
}

/// A valid context's slot. Reference valid until the registry grows.
SuperResolution_CtxData& slotOf(int context) {
  return SuperResolution_Contexts[static_cast<std::size_t>(context)];
}

/// Index of the first free slot, made if there is none.
std::size_t takeFreeSlot() {
  const auto isFree = [](const SuperResolution_CtxData& slot) { return slot.engine == nullptr; };
  const auto found = std::find_if(SuperResolution_Contexts.begin(), SuperResolution_Contexts.end(), isFree);
  const auto index = static_cast<std::size_t>(found - SuperResolution_Contexts.begin());
  if (found == SuperResolution_Contexts.end()) {
    SuperResolution_Contexts.emplace_back();
  }
  return index;
}

void configure(Engine& engine) {
  engine.setReferenceIndex(3);
  engine.setWeightTV(400.0f);
  engine.setRegError(0.0001f);
  engine.setRelativeResidue(0.007f);
}

float reconstruct(SuperResolution_CtxData& slot) {
  return slot.engine->computeSR(slot.result.ptr<float>());
}

/// Whether the values span at least the engine's threshold. OpenCV's rules hold for NaN: it never is the
/// largest or smallest value, and a frame of infinities alone passes.
bool hasStructure(const cv::Mat_<float>& frame, const Engine& engine) {
  double minimum = 0;
  double maximum = 0;
  cv::minMaxLoc(frame, &minimum, &maximum);
  return !(maximum - minimum < static_cast<double>(engine.getMinStructureThreshold()));
}

int addFrame(SuperResolution_CtxData& slot, const float* image) {
  // cv::Mat has no const view; the matrix is only read.
  const cv::Mat_<float> frame(slot.height, slot.width, const_cast<float*>(image));
  if (slot.imageLog.isOpen()) {
    slot.imageLog.write(frame, "");
  }

  int status = SUPERRESOLUTION_SUCCESS;
  if (!hasStructure(frame, *slot.engine)) {
    status = fail("  image has not enough structure", SUPERRESOLUTION_NOT_ENOUGH_STRUCTURE);
  }

  const bool fallbackUsed = slot.engine->addFrame(image) == SUPERRESOLUTION_FALLBACK_USED;
  if (slot.numImages < std::numeric_limits<int>::max()) {
    ++slot.numImages;
  }
  // Other outcomes (no registration, too large a displacement) have no code of their own.
  const float outcome = slot.numImages < windowSize ? 0.0f : reconstruct(slot);
  if (outcome == Engine::tooManyMaskedPixels) {
    return SUPERRESOLUTION_TOO_MANY_MASKED_PIXELS;
  }
  if (outcome == static_cast<float>(SUPERRESOLUTION_FALLBACK_USED) || fallbackUsed) {
    return SUPERRESOLUTION_FALLBACK_USED;
  }
  return status;
}

constexpr float sigmaOfUnknownCamera = 0.683f;

/// The whole number that a text begins with, as a stream of the classic locale reads it: 0 if there is something else, -1 if
/// there is nothing, the nearest int if it is too large. Needs no memory.
int leadingNumber(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
  if (text.empty()) {
    return -1;
  }
  if (text.size() > 1 && text[0] == '+' && text[1] != '-') {
    text.remove_prefix(1);
  }
  int number = 0;
  if (std::from_chars(text.data(), text.data() + text.size(), number).ec == std::errc::result_out_of_range) {
    return text[0] == '-' ? std::numeric_limits<int>::min() : std::numeric_limits<int>::max();
  }
  return number;
}

/// SuperResolution_getCameraAndLensType without a string for the camera.
bool readCameraAndLens(std::string_view description, const char*& camera, int& lens) {
  const auto& models = movra::vision::cameraModels;
  const auto model = std::find_if(models.begin(), models.end(), [&](const auto& each) {
    return description.find(each.key) != std::string_view::npos;
  });
  if (model == models.end()) {
    return false;
  }
  camera = model->name;

  constexpr std::string_view label = "FOV";
  const std::size_t position = description.find(label);
  if (position == std::string_view::npos) {
    return false;
  }
  lens = leadingNumber(description.substr(position + label.size()));
  return lens != -1;
}

}  // namespace

int SuperResolution_init(int width, int height) {
  // Earlier releases took the path of a log file from here. It is still read, then ignored.
  if (const char* logFile = std::getenv("SRLIB_LOG_FILE")) {
    const std::string ignored(logFile);
  }

  const std::size_t index = takeFreeSlot();
  try {
    // All that can fail comes before the slot is touched, so it stays free.
    auto engine = std::make_unique<Engine>(width, height, windowSize, upscaling);
    configure(*engine);
    cv::Mat_<float> result(movra::vision::detail::scaledSize(height, upscaling),
                           movra::vision::detail::scaledSize(width, upscaling), 0.0f);

    SuperResolution_CtxData& slot = SuperResolution_Contexts[index];
    slot.engine = std::move(engine);
    slot.width = width;
    slot.height = height;
    slot.numImages = 0;
    slot.result = std::move(result);
  } catch (const movra::Exception& exception) {
    return fail(exception.what(), SUPERRESOLUTION_INIT_FAILED);
  }
  return static_cast<int>(index);
}

int SuperResolution_release(int context) {
  if (!SuperResolution_isContextValid(context)) {
    return failInvalidContext();
  }
  SuperResolution_CtxData& slot = slotOf(context);
  slot.engine.reset();
  slot.result.release();
  slot.width = 0;
  slot.height = 0;
  if (slot.imageLog.isOpen()) {
    slot.imageLog.close();
  }
  return SUPERRESOLUTION_SUCCESS;
}

bool SuperResolution_isContextValid(int context) {
  return context >= 0 && static_cast<std::size_t>(context) < SuperResolution_Contexts.size() &&
         slotOf(context).engine != nullptr;
}

int SuperResolution_addImage(int context, const float* image) {
  if (!SuperResolution_isContextValid(context)) {
    return failInvalidContext();
  }
  SuperResolution_CtxData& slot = slotOf(context);
  if (slot.width == 0 || slot.height == 0) {
    return fail("Size of expected Ir images unknown");
  }
  if (image == nullptr) {
    return fail("ir image data pointer is NULL");
  }
  return guarded([&] { return addFrame(slot, image); });
}

int SuperResolution_queryOutputImageSize(int context, int* width, int* height) {
  if (!SuperResolution_isContextValid(context)) {
    return failInvalidContext();
  }
  SuperResolution_CtxData& slot = slotOf(context);
  int code = SUPERRESOLUTION_SUCCESS;
  if (slot.numImages < windowSize) {
    code = guarded([&] {
      fail("Not enough input images (<5)");
      reconstruct(slot);
      return SUPERRESOLUTION_NOT_ENOUGH_IMAGES;
    });
  }
  if (width != nullptr) {
    *width = slot.result.cols;
  }
  if (height != nullptr) {
    *height = slot.result.rows;
  }
  return code;
}

int SuperResolution_getSuperresolutionImage(int context, float* image) {
  if (!SuperResolution_isContextValid(context)) {
    return failInvalidContext();
  }
  const SuperResolution_CtxData& slot = slotOf(context);
  int code = SUPERRESOLUTION_SUCCESS;
  if (image == nullptr) {
    code = fail("Ir mosaic data pointer is NULL.");
  }
  if (slot.numImages < windowSize) {
    code = fail("Not enough input images (<5)", SUPERRESOLUTION_NOT_ENOUGH_IMAGES);
  }
  if (image == nullptr || slot.result.empty()) {
    return fail("Memcpy called on nullptr!!!!");
  }
  std::memcpy(image, slot.result.ptr<float>(), slot.result.total() * sizeof(float));
  return code;
}

int SuperResolution_setReferenceFrame(int context, int index) {
  if (!SuperResolution_isContextValid(context)) {
    return failInvalidContext();
  }
  slotOf(context).engine->setReferenceIndex(index);
  return SUPERRESOLUTION_SUCCESS;
}

bool SuperResolution_getCameraAndLensType(const std::string& description, std::string& camera, int& lens) {
  const char* name = nullptr;
  const bool recognised = readCameraAndLens(description, name, lens);
  if (name != nullptr) {
    camera = name;
  }
  return recognised;
}

int SuperResolution_setCameraAndLensType(int context, const char* description) {
  if (description == nullptr) {
    throw std::logic_error("camera and lens description is NULL");
  }
  const char* camera = nullptr;
  int lens = 0;
  const bool recognised = readCameraAndLens(description, camera, lens);
  const auto known = recognised ? movra::vision::psfSigmaOfCamera(camera, lens) : std::nullopt;
  const float sigma = known.value_or(sigmaOfUnknownCamera);
  if (SuperResolution_isContextValid(context)) {
    slotOf(context).engine->setPsfSigma(sigma);
  }
  return SUPERRESOLUTION_SUCCESS;
}

int SuperResolution_getErrorMessage(char* buffer, int length) {
  if (buffer != nullptr && length > 0) {
    std::strncpy(buffer, SuperResolution_LastError, static_cast<std::size_t>(length));
  }
  return SUPERRESOLUTION_SUCCESS;
}

int SuperResolution_setLogFile(const char* /*path*/) {
  return SUPERRESOLUTION_SUCCESS;
}
