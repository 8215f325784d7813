// The C interface for new programs: options, calls and frames of any kind. What it promises is checked on the way: a result
// depends on the frames held, the bad pixels and the options alone, bit for bit.
#include <string>

#include "tests/fuzz/FuzzInput.h"
#include "vision/superresolution/Burst.h"

namespace {

using Frames = std::vector<std::vector<float>>;

/// Mostly possible options, now and then one that is not.
movra_sr_options anyOptions(FuzzInput& input) {
  movra_sr_options options;
  movra_sr_default_options(&options, sizeof options);
  options.motion = input.upTo(7) > 0 ? MOVRA_SR_MOTION_GLOBAL : input.between(-1, 5);
  options.preset = MOVRA_SR_PRESET_FAST;
  options.iterations = input.upTo(7) > 0 ? 2 : input.between(-2, 6);
  options.registration = input.upTo(2);
  options.reference = input.between(-2, 5);
  options.capacity = input.upTo(3) > 0 ? 0 : input.between(-1, 4);
  if (input.upTo(7) == 0) {
    options.lowest_valid = static_cast<double>(input.number());
    options.highest_valid = static_cast<double>(input.number());
  }
  if (input.upTo(7) == 0) {
    options.psf_sigma = static_cast<double>(input.number());
    options.weight_tv = static_cast<double>(input.number());
    options.relative_residue = static_cast<double>(input.number());
  }
  if (input.upTo(31) == 0) {
    options.size = static_cast<std::size_t>(input.upTo(static_cast<int>(sizeof options) - 1));
  }
  return options;
}

struct Outcome {
  movra_sr_status status;
  std::vector<float> image;

  bool operator==(const Outcome& other) const {
    return status == other.status && image.size() == other.image.size() &&
           std::memcmp(image.data(), other.image.data(), image.size() * sizeof(float)) == 0;
  }
};

Outcome reconstruct(movra_sr_burst* burst, int width, int height) {
  Outcome outcome{MOVRA_SR_SUCCESS, std::vector<float>(4 * static_cast<std::size_t>(width * height), 77.0f)};
  movra_sr_result result;
  result.size = sizeof result;
  outcome.status = movra_sr_reconstruct(burst, outcome.image.data(), 0, &result);
  require(outcome.status != MOVRA_SR_NO_RESULT && outcome.status != MOVRA_SR_INTERNAL_ERROR &&
              outcome.status != MOVRA_SR_OUT_OF_MEMORY,
          "reconstruct has one of its own results");
  require(result.status == outcome.status && result.frames == movra_sr_frame_count(burst), "the result tells the same");
  if (outcome.status < 0) {
    require(std::string(movra_sr_error_text(burst)) != "", "a failure has a text");
    for (const float value : outcome.image) {
      require(value == 77.0f, "a failure leaves the image alone");
    }
  } else {
    require(result.used_frames >= 1 && result.used_frames <= result.frames, "at least the reference takes part");
    require(result.reference >= 0 && result.reference < result.frames, "the reference is one of the frames");
    require(result.sr_factor >= 0.75 && result.sr_factor <= 2.0, "the sr factor lies in its range");
  }
  return outcome;
}

void readResults(movra_sr_burst* burst, int width, int height, int frame) {
  double x = 0;
  double y = 0;
  movra_sr_shift(burst, frame, &x, &y);
  movra_sr_field grid;
  grid.size = sizeof grid;
  if (movra_sr_shift_field(burst, frame, &grid, nullptr) == MOVRA_SR_SUCCESS) {
    std::vector<float> shifts(2 * static_cast<std::size_t>(grid.columns) * static_cast<std::size_t>(grid.rows));
    require(movra_sr_shift_field(burst, frame, &grid, shifts.data()) == MOVRA_SR_SUCCESS, "the field can be had");
  }
  std::vector<unsigned short> coverage(static_cast<std::size_t>(width * height));
  if (movra_sr_coverage(burst, coverage.data(), 0) == MOVRA_SR_SUCCESS) {
    for (const unsigned short count : coverage) {
      require(count <= movra_sr_frame_count(burst), "no pixel has more frames than there are");
    }
    std::vector<unsigned char> bad(coverage.size());
    std::vector<float> pattern(coverage.size());
    require(movra_sr_found_bad_pixels(burst, bad.data(), 0) == MOVRA_SR_SUCCESS, "the bad pixels can be had");
    require(movra_sr_found_pattern(burst, pattern.data(), pattern.data(), 0) == MOVRA_SR_SUCCESS, "so can the pattern");
  }
}

}  // namespace

void movra::fuzz::feed(FuzzInput& input) {
  const int width = input.upTo(15) > 0 ? input.between(8, 28) : input.between(-1, 8);
  const int height = input.upTo(15) > 0 ? input.between(8, 28) : input.between(-1, 8);
  const movra_sr_options options = anyOptions(input);
  movra_sr_burst* burst = nullptr;
  char error[80];
  const movra_sr_status created = movra_sr_create(width, height, &options, &burst, error, sizeof error);
  require((created == MOVRA_SR_SUCCESS) == (burst != nullptr), "a handle or a failure");
  if (burst == nullptr) {
    require(created == MOVRA_SR_INVALID_ARGUMENT && error[0] != '\0', "the reason is told");
    return;
  }
  Frames held;
  std::vector<unsigned char> badPixels;
  for (int calls = 0; calls < 16 && !input.isUsedUp(); ++calls) {
    const int choice = input.upTo(12);
    if (choice <= 5) {
      std::vector<float> frame = input.frame(width, height);
      if (movra_sr_add_frame(burst, frame.data(), 0) == MOVRA_SR_SUCCESS) {
        held.push_back(std::move(frame));
        if (options.capacity > 0 && held.size() > static_cast<std::size_t>(options.capacity)) {
          held.erase(held.begin());
        }
      }
    } else if (choice <= 7) {
      reconstruct(burst, width, height);
    } else if (choice == 8) {
      readResults(burst, width, height, input.between(-1, 6));
    } else if (choice == 9) {
      badPixels.assign(static_cast<std::size_t>(width * height), input.upTo(31) == 0 ? 1 : 0);
      for (int count = input.upTo(12); count > 0; --count) {
        badPixels[input.ConsumeIntegralInRange<std::size_t>(0, badPixels.size() - 1)] = 1;
      }
      movra_sr_set_bad_pixels(burst, badPixels.data(), 0);
    } else if (choice == 11) {
      movra_sr_register(burst, nullptr);
    } else if (choice == 10) {
      movra_sr_clear(burst);
      held.clear();
    } else {
      require(movra_sr_add_frame(burst, nullptr, 0) == MOVRA_SR_INVALID_ARGUMENT, "a null frame is refused");
      require(movra_sr_reconstruct(nullptr, nullptr, 0, nullptr) == MOVRA_SR_INVALID_ARGUMENT, "so is a null handle");
    }
    require(movra_sr_frame_count(burst) == static_cast<int>(held.size()), "frames are counted");
  }
  const Outcome outcome = reconstruct(burst, width, height);
  movra_sr_destroy(burst);

  movra_sr_create(width, height, &options, &burst, nullptr, 0);
  movra_sr_set_bad_pixels(burst, badPixels.empty() ? nullptr : badPixels.data(), 0);
  bool accepted = true;  // a frame may have been judged before pixels of it were listed as bad
  for (const std::vector<float>& frame : held) {
    accepted = movra_sr_add_frame(burst, frame.data(), 0) == MOVRA_SR_SUCCESS && accepted;
  }
  require(!accepted || reconstruct(burst, width, height) == outcome, "a result depends on frames, bad pixels, options");
  movra_sr_destroy(burst);
}
