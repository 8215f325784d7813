#include "vision/superresolution/detail/burst/BurstOptions.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "vision/superresolution/detail/burst/VersionedStruct.h"

namespace movra::vision::detail {

namespace {

constexpr int smallestSide = 8;
constexpr int smallestSideOfPhase = 11;
constexpr int largestSide = 16384;

// The struct as the first version knew it, without what was added since.
constexpr std::size_t firstOptions = offsetof(movra_sr_options, keep_offset);

bool within(double value, double low, double high) {
  return value >= low && value <= high;  // false for NaN
}

}  // namespace

movra_sr_options defaultOptions() {
  movra_sr_options defaults{};
  defaults.size = sizeof defaults;
  defaults.motion = MOVRA_SR_MOTION_LOCAL;
  defaults.reference = MOVRA_SR_BEST_REFERENCE;
  defaults.lowest_valid = -274;
  defaults.highest_valid = 5000;
  defaults.psf_sigma = 0.683;
  return defaults;
}

bool readOptions(const movra_sr_options& given, movra_sr_options& options) {
  std::size_t size = 0;
  std::memcpy(&size, &given, sizeof size);
  if (!isSize(size, firstOptions)) {
    return false;
  }
  const auto* bytes = reinterpret_cast<const unsigned char*>(&given);
  std::memcpy(&options, bytes, std::min(size, sizeof options));
  options.size = sizeof options;
  return std::all_of(bytes + std::min(size, sizeof options), bytes + size,
                     [](unsigned char byte) { return byte == 0; });
}

const char* faultOf(const movra_sr_options& options, int width, int height) {
  const bool local = options.motion == MOVRA_SR_MOTION_LOCAL;
  const bool countsFit = local || (options.lowest_valid >= -32768 && options.highest_valid <= 32767);
  const struct {
    bool good;
    const char* text;
  } rules[] = {
      {within(width, smallestSide, largestSide) && within(height, smallestSide, largestSide),
       "width and height are 8 to 16384 pixels each"},
      {options.registration != MOVRA_SR_REGISTRATION_PHASE || std::min(width, height) >= smallestSideOfPhase,
       "phase correlation needs frames of 11 pixels a side or more"},
      {local || options.motion == MOVRA_SR_MOTION_GLOBAL, "motion is no motion model of this version"},
      {within(options.preset, MOVRA_SR_PRESET_STANDARD, MOVRA_SR_PRESET_BEST), "preset is none of this version"},
      {within(options.registration, MOVRA_SR_REGISTRATION_CORNERS, MOVRA_SR_REGISTRATION_PHASE),
       "registration is none of this version"},
      {options.capacity >= 0, "capacity is negative"},
      {options.reference >= MOVRA_SR_BEST_REFERENCE && (options.capacity == 0 || options.reference < options.capacity),
       "reference is no frame number below capacity"},
      {options.lowest_valid < options.highest_valid, "lowest_valid is not below highest_valid"},
      {countsFit, "the valid range of the global motion lies within -32768 to 32767"},
      {within(options.psf_sigma, local ? 0.3 : 0.01, 2), "psf_sigma is not 0.3 to 2, or with global motion 0.01 to 2"},
      {options.weight_tv == 0 || within(options.weight_tv, 1, 10000), "weight_tv is neither 0 nor 1 to 10000"},
      {within(options.iterations, 0, 1000), "iterations is not 0 to 1000"},
      {options.relative_residue == 0 || within(options.relative_residue, 1e-5, 1),
       "relative_residue is neither 0 nor 1e-5 to 1"},
      {options.frames >= MOVRA_SR_ALL_FRAMES, "frames is neither a number of frames, 0 nor MOVRA_SR_ALL_FRAMES"},
  };
  for (const auto& rule : rules) {
    if (!rule.good) {
      return rule.text;
    }
  }
  return nullptr;
}

}  // namespace movra::vision::detail
