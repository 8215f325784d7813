// The C interface for new programs, through the shared library.
#include "vision/superresolution/Burst.h"

#include <cstddef>
#include <cstring>
#include <functional>
#include <memory>
#include <set>
#include <thread>

#include <opencv2/core.hpp>

#include "tests/support/SilentConsole.h"
#include "tests/support/Test.h"
#include "vision/superresolution/SuperResolutionCAdapter.h"

using namespace movra::test;

namespace {

constexpr int width = 48;
constexpr int height = 40;
constexpr std::size_t imageSize = 4 * width * height;

movra_sr_options defaults() {
  movra_sr_options options;
  movra_sr_default_options(&options, sizeof options);
  return options;
}

/// What makes the new interface do what the classic one does.
movra_sr_options classic() {
  movra_sr_options options = defaults();
  options.motion = MOVRA_SR_MOTION_GLOBAL;
  options.preset = MOVRA_SR_PRESET_FAST;
  options.capacity = 5;
  return options;
}

using Handle = std::unique_ptr<movra_sr_burst, decltype(&movra_sr_destroy)>;

Handle open(const movra_sr_options& options = defaults(), const std::vector<Image>& frames = {}) {
  movra_sr_burst* burst = nullptr;
  char text[200] = "";
  EXPECT_EQ(movra_sr_create(width, height, &options, &burst, text, sizeof text), MOVRA_SR_SUCCESS) << text;
  for (const Image& frame : frames) {
    EXPECT_EQ(movra_sr_add_frame(burst, frame.data(), 0), MOVRA_SR_SUCCESS) << movra_sr_error_text(burst);
  }
  return {burst, movra_sr_destroy};
}

movra_sr_result emptyResult() {
  movra_sr_result result{};
  result.size = sizeof result;
  return result;
}

/// Without a look at the result.
movra_sr_status statusOf(const Handle& burst) {
  Image image(imageSize);
  return movra_sr_reconstruct(burst.get(), image.data(), 0, nullptr);
}

/// A frame's shifts, x and y in turn, with their grid.
std::vector<float> fieldOf(const Handle& burst, int frame, movra_sr_field& grid) {
  grid.size = sizeof grid;
  EXPECT_EQ(movra_sr_shift_field(burst.get(), frame, &grid, nullptr), MOVRA_SR_SUCCESS);
  std::vector<float> shifts(static_cast<std::size_t>(2 * grid.columns * grid.rows));
  EXPECT_EQ(movra_sr_shift_field(burst.get(), frame, &grid, shifts.data()), MOVRA_SR_SUCCESS);
  return shifts;
}

/// A block in which most pixels lack the neighbours to be repaired from.
void spoil(Image& frame) {
  for (std::size_t y = 10; y < 16; ++y) {
    std::fill_n(&frame[y * width + 10], 6, notANumber);
  }
}

/// The image of the frames held; empty if there is none.
Image reconstruct(const Handle& burst, movra_sr_status expected = MOVRA_SR_SUCCESS) {
  Image image(imageSize, -1.0f);
  movra_sr_result result = emptyResult();
  EXPECT_EQ(movra_sr_reconstruct(burst.get(), image.data(), 0, &result), expected) << movra_sr_error_text(burst.get());
  EXPECT_EQ(result.status, expected);
  EXPECT_EQ(result.frames, movra_sr_frame_count(burst.get()));
  if (expected < 0) {
    EXPECT_EQ(image, Image(imageSize, -1.0f)) << "the image was written in spite of the failure";
    return {};
  }
  return image;
}

Image classicImage(const std::vector<Image>& frames) {
  const SilentConsole console;
  Image image(imageSize);
  const int context = SuperResolution_init(width, height);
  for (const Image& frame : frames) {
    SuperResolution_addImage(context, frame.data());
  }
  SuperResolution_getSuperresolutionImage(context, image.data());
  SuperResolution_release(context);
  return image;
}

const std::vector<Image>& burstOfFive() {
  static const std::vector<Image> frames = makeBurst({width, height}).frames;
  return frames;
}

}  // namespace

TEST(Burst, FastPresetWithGlobalMotionHasTheBitsOfTheClassicInterface) {
  std::vector<Image> frames = burstOfFive();
  EXPECT_TRUE(sameBits(reconstruct(open(classic(), frames)), classicImage(frames)));

  // A flag in the middle is repaired in both; what stays flagged in the classic image is NaN here.
  for (Image& frame : frames) {
    for (int y = 18; y < 26; ++y) {
      std::fill_n(&frame[static_cast<std::size_t>(y * width + 20)], 8, asFloat(129));
    }
  }
  const Image expected = classicImage(frames);
  const Image image = reconstruct(open(classic(), frames));
  int holes = 0;
  for (std::size_t i = 0; i < imageSize; ++i) {
    const bool hole = std::fpclassify(expected[i]) == FP_SUBNORMAL;
    holes += hole ? 1 : 0;
    ASSERT_TRUE(hole ? std::isnan(image[i]) : image[i] == expected[i]) << i;
  }
  EXPECT_GT(holes, 0);
}

TEST(Burst, AResultDependsOnTheFramesHeldAloneAndNothingIsPrinted) {
  const SilentConsole console;
  testing::internal::CaptureStdout();
  const std::vector<Image>& frames = burstOfFive();
  const Image expected = reconstruct(open(classic(), frames));

  const Handle burst = open(classic());
  Image farOff = frames[2];  // its range would fix the grey values that corners are tracked in
  std::fill_n(farOff.begin(), width * height / 3, 1000.0f);
  EXPECT_EQ(movra_sr_add_frame(burst.get(), farOff.data(), 0), MOVRA_SR_SUCCESS);
  statusOf(burst);
  for (const Image& frame : frames) {
    EXPECT_EQ(movra_sr_add_frame(burst.get(), frame.data(), 0), MOVRA_SR_SUCCESS);
  }
  EXPECT_EQ(movra_sr_frame_count(burst.get()), 5);
  EXPECT_TRUE(sameBits(reconstruct(burst), expected));
  EXPECT_TRUE(sameBits(reconstruct(burst), expected)) << "the second time";
  EXPECT_EQ(movra_sr_clear(burst.get()), MOVRA_SR_SUCCESS);
  reconstruct(burst, MOVRA_SR_NO_FRAMES);
  EXPECT_EQ(testing::internal::GetCapturedStdout() + console.text(), "");
}

TEST(Burst, RowStrides) {
  const std::vector<Image>& frames = burstOfFive();
  const Image expected = reconstruct(open(defaults(), frames));
  constexpr std::size_t stride = width + 7, imageStride = 2 * width + 3;
  const Handle burst = open();
  std::vector<unsigned char> noBadPixels(stride * height, 1);  // 1 between the rows
  for (const Image& frame : frames) {
    Image padded(stride * height, notANumber);
    for (std::size_t y = 0; y < height; ++y) {
      std::copy_n(&frame[y * width], width, &padded[y * stride]);
      std::fill_n(&noBadPixels[y * stride], width, 0);
    }
    EXPECT_EQ(movra_sr_add_frame(burst.get(), padded.data(), stride), MOVRA_SR_SUCCESS);
  }
  EXPECT_EQ(movra_sr_set_bad_pixels(burst.get(), noBadPixels.data(), stride), MOVRA_SR_SUCCESS);
  Image image(imageStride * 2 * height, -1.0f);
  EXPECT_EQ(movra_sr_reconstruct(burst.get(), image.data(), imageStride, nullptr), MOVRA_SR_SUCCESS);
  for (std::size_t y = 0; y < 2 * height; ++y) {
    ASSERT_EQ(std::memcmp(&image[y * imageStride], &expected[y * 2 * width], 2 * width * sizeof(float)), 0) << y;
    ASSERT_EQ(image[y * imageStride + 2 * width], -1.0f) << "written between the rows";
  }
}

TEST(Burst, TellsShiftsCoverageAndParticulars) {
  const SyntheticBurst truth = makeBurst({width, height});
  movra_sr_options options = defaults();
  options.motion = MOVRA_SR_MOTION_GLOBAL;
  options.reference = 1;
  const Handle burst = open(options, truth.frames);
  double x = 0, y = 0;
  EXPECT_EQ(movra_sr_shift(burst.get(), 0, &x, &y), MOVRA_SR_NO_RESULT);
  std::vector<unsigned short> coverage(width * height);
  EXPECT_EQ(movra_sr_coverage(burst.get(), coverage.data(), 0), MOVRA_SR_NO_RESULT);

  Image image(imageSize);
  movra_sr_result result = emptyResult();
  ASSERT_EQ(movra_sr_reconstruct(burst.get(), image.data(), 0, &result), MOVRA_SR_SUCCESS);
  EXPECT_GT(gainOverBicubic(image, truth, 1), 1.0);
  movra_sr_field grid{};
  for (int i = 0; i < 5; ++i) {
    const Shift expected = truth.shifts[static_cast<std::size_t>(i)];
    EXPECT_EQ(movra_sr_shift(burst.get(), i, &x, &y), MOVRA_SR_SUCCESS);
    EXPECT_NEAR(x, static_cast<double>(expected.x), 0.1);
    EXPECT_NEAR(y, static_cast<double>(expected.y), 0.1);
    EXPECT_EQ(fieldOf(burst, i, grid), (std::vector<float>{static_cast<float>(x), static_cast<float>(y)}))
        << "one place";
  }
  EXPECT_EQ(movra_sr_shift(burst.get(), 5, &x, &y), MOVRA_SR_INVALID_ARGUMENT);
  EXPECT_EQ(movra_sr_coverage(burst.get(), coverage.data(), 0), MOVRA_SR_SUCCESS);
  const auto [least, most] = std::minmax_element(coverage.begin(), coverage.end());
  EXPECT_GE(*least, 1);
  EXPECT_EQ(*most, 5);
  EXPECT_EQ(result.frames, 5);
  EXPECT_EQ(result.reference, 1);
  EXPECT_EQ(result.used_frames, 5);
  EXPECT_GT(result.sr_factor, 1.5);
  EXPECT_LE(result.sr_factor, 2.0);
  EXPECT_GE(result.iterations, 1);
  EXPECT_GT(result.seconds.solve, 0);
  EXPECT_GE(result.seconds.total, result.seconds.preparation + result.seconds.motion + result.seconds.solve);
}

TEST(Burst, ListedPixelsAreLeftOut) {
  std::vector<Image> frames = burstOfFive();
  std::vector<unsigned char> map(width * height, 0);
  for (const std::size_t pixel : {5 * width + 7, 20 * width + 30, 33 * width + 11}) {
    map[pixel] = 1;
    for (Image& frame : frames) {
      frame[pixel] += 25;  // stuck
    }
  }
  std::vector<Image> flagged = frames;
  for (Image& frame : flagged) {
    for (std::size_t i = 0; i < map.size(); ++i) {
      frame[i] = map[i] != 0 ? notANumber : frame[i];
    }
  }
  const Handle burst = open(classic(), frames);
  const Image spoilt = reconstruct(burst);
  EXPECT_EQ(movra_sr_set_bad_pixels(burst.get(), map.data(), 0), MOVRA_SR_SUCCESS);
  double x = 0;
  EXPECT_EQ(movra_sr_shift(burst.get(), 0, &x, &x), MOVRA_SR_NO_RESULT) << "the result is of other pixels";
  EXPECT_TRUE(sameBits(reconstruct(burst), reconstruct(open(classic(), flagged))));
  EXPECT_EQ(movra_sr_set_bad_pixels(burst.get(), nullptr, 0), MOVRA_SR_SUCCESS);
  EXPECT_TRUE(sameBits(reconstruct(burst), spoilt));
}

TEST(Burst, RefusesWhatItCannotUseAndStaysAsItWas) {
  struct Case {
    std::string text;
    void (*spoil)(movra_sr_options&);
  };
  const Case cases[] = {
      {"another version", [](movra_sr_options& o) { o.size = offsetof(movra_sr_options, keep_offset) - 8; }},
      {"frames", [](movra_sr_options& o) { o.frames = -2; }},
      {"another version", [](movra_sr_options& o) { o.size = ~std::size_t{0}; }},
      {"motion", [](movra_sr_options& o) { o.motion = 7; }},
      {"preset", [](movra_sr_options& o) { o.preset = -1; }},
      {"registration", [](movra_sr_options& o) { o.registration = 2; }},
      {"capacity", [](movra_sr_options& o) { o.capacity = -1; }},
      {"reference", [](movra_sr_options& o) { o.reference = o.capacity; }},
      {"reference", [](movra_sr_options& o) { o.reference = -2; }},
      {"lowest_valid", [](movra_sr_options& o) { o.lowest_valid = static_cast<double>(notANumber); }},
      {"valid range", [](movra_sr_options& o) { o.highest_valid = 65535; }},
      {"psf_sigma", [](movra_sr_options& o) { o.psf_sigma = static_cast<double>(notANumber); }},
      {"weight_tv", [](movra_sr_options& o) { o.weight_tv = 0.5; }},
      {"iterations", [](movra_sr_options& o) { o.iterations = -3; }},
      {"relative_residue", [](movra_sr_options& o) { o.relative_residue = 2; }},
  };
  for (const Case& each : cases) {
    movra_sr_options options = classic();
    each.spoil(options);
    char text[100] = "";
    auto* burst = reinterpret_cast<movra_sr_burst*>(text);
    EXPECT_EQ(movra_sr_create(width, height, &options, &burst, text, sizeof text), MOVRA_SR_INVALID_ARGUMENT);
    EXPECT_EQ(burst, nullptr);
    EXPECT_NE(std::string(text).find(each.text), std::string::npos) << text;
  }
  movra_sr_burst* none = nullptr;
  char oneLetter = 'x';
  EXPECT_EQ(movra_sr_create(7, 40, nullptr, &none, &oneLetter, 1), MOVRA_SR_INVALID_ARGUMENT);
  EXPECT_EQ(oneLetter, 0);
  EXPECT_EQ(movra_sr_create(40, 1 << 20, nullptr, &none, nullptr, 0), MOVRA_SR_INVALID_ARGUMENT);
  movra_sr_options phase = defaults();
  phase.registration = MOVRA_SR_REGISTRATION_PHASE;
  EXPECT_EQ(movra_sr_create(40, 10, &phase, &none, nullptr, 0), MOVRA_SR_INVALID_ARGUMENT);

  const Handle burst = open(classic(), burstOfFive());
  const Image before = reconstruct(burst);
  Image image(imageSize);
  Image useless(width * height, notANumber), cluster = burstOfFive()[0];
  spoil(cluster);
  movra_sr_result unsized{};
  EXPECT_EQ(movra_sr_add_frame(burst.get(), useless.data(), 0), MOVRA_SR_BAD_FRAME);
  EXPECT_STREQ(movra_sr_error_text(burst.get()), "no pixel of the frame is good");
  EXPECT_EQ(movra_sr_add_frame(burst.get(), cluster.data(), 0), MOVRA_SR_BAD_FRAME);
  EXPECT_STREQ(movra_sr_error_text(burst.get()), "Too many defect pixels. No processing possible.");
  for (const movra_sr_status status :
       {movra_sr_add_frame(burst.get(), nullptr, 0), movra_sr_add_frame(burst.get(), before.data(), width - 1),
        movra_sr_reconstruct(burst.get(), nullptr, 0, nullptr),
        movra_sr_reconstruct(burst.get(), image.data(), 5, nullptr),
        movra_sr_reconstruct(burst.get(), image.data(), 0, &unsized), movra_sr_coverage(burst.get(), nullptr, 0),
        movra_sr_add_frame(nullptr, before.data(), 0)}) {
    EXPECT_EQ(status, MOVRA_SR_INVALID_ARGUMENT);
  }
  EXPECT_TRUE(sameBits(reconstruct(burst), before));
}

TEST(Burst, LocalMotionIsTheDefaultAndFollowsWhatGlobalMotionCannot) {
  EXPECT_EQ(defaults().motion, MOVRA_SR_MOTION_LOCAL);
  // A cluster of bad pixels, which global motion refuses to repair, is left out; a stranger too, and named.
  std::vector<Image> frames = burstOfFive();
  spoil(frames[0]);
  frames.push_back(randomImage(width * height, 280, 300, 3));
  movra_sr_options options = defaults();
  options.reference = 1;
  const Handle burst = open(options, frames);
  EXPECT_EQ(movra_sr_frame_text(burst.get(), 0), nullptr);
  EXPECT_GT(gainOverBicubic(reconstruct(burst), makeBurst({width, height}), 1), 1.0);
  EXPECT_STREQ(movra_sr_frame_text(burst.get(), 0), "used");
  EXPECT_NE(std::string(movra_sr_frame_text(burst.get(), 5)).find("left out"), std::string::npos);
  EXPECT_EQ(movra_sr_frame_text(burst.get(), 6), nullptr);
  double x = 0, y = 0;
  EXPECT_EQ(movra_sr_shift(burst.get(), 5, &x, &y), MOVRA_SR_SUCCESS);
  EXPECT_TRUE(std::isnan(x) && std::isnan(y));
  movra_sr_field grid{};
  const std::vector<float> field = fieldOf(burst, 2, grid);
  EXPECT_GT(grid.columns * grid.rows, 1);
  for (std::size_t i = 0; i < field.size(); ++i) {
    EXPECT_NEAR(field[i], i % 2 == 0 ? smallShifts[2].x : smallShifts[2].y, 0.2f);
  }

  // Jobs in any order and on other threads.
  options.run_jobs = [](void* user, int jobs, void (*job)(void*, int), void* context) {
    ++*static_cast<int*>(user);
    std::thread other([&] {
      for (int i = jobs - 1; i >= jobs / 2; --i) {
        job(context, i);
      }
    });
    for (int i = 0; i < jobs / 2; ++i) {
      job(context, i);
    }
    other.join();
  };
  int runs = 0;
  options.run_jobs_user = &runs;
  EXPECT_TRUE(sameBits(reconstruct(open(options, frames)), reconstruct(burst)));
  EXPECT_GT(runs, 0);
}

TEST(Burst, FewAndPoorFrames) {
  reconstruct(open(), MOVRA_SR_NO_FRAMES);
  const std::vector<Image>& frames = burstOfFive();
  EXPECT_LT(distance(reconstruct(open(defaults(), {frames[1]}), MOVRA_SR_SINGLE_FRAME),
                     makeBurst({width, height}).truth, 2 * width, 8),
            1.0);
  EXPECT_EQ(reconstruct(open(classic(), {3, Image(width * height, 21.5f)}), MOVRA_SR_STRUCTURELESS),
            Image(imageSize, 21.5f));

  movra_sr_options third = classic();
  third.reference = 2;
  reconstruct(open(third, {frames[0], frames[1]}), MOVRA_SR_INVALID_ARGUMENT);

  // A stranger among the frames: no crash, and no image without a reservation.
  std::vector<Image> strangers = frames;
  strangers[3] = randomImage(width * height, 280, 300, 3);
  for (const int registration : {MOVRA_SR_REGISTRATION_CORNERS, MOVRA_SR_REGISTRATION_PHASE}) {
    movra_sr_options options = classic();
    options.registration = registration;
    EXPECT_NE(statusOf(open(options, strangers)), MOVRA_SR_SUCCESS);
    EXPECT_GT(gainOverBicubic(reconstruct(open(options, frames)), makeBurst({width, height}), 1), 1.0);
  }
}

TEST(Burst, ProgressGrowsAndMayCancel) {
  struct Listener {
    std::vector<double> heard;
    std::size_t most;
  };
  const auto listen = [](void* user, double done) {
    auto& listener = *static_cast<Listener*>(user);
    listener.heard.push_back(done);
    return listener.heard.size() > listener.most ? 1 : 0;
  };
  Listener listener;
  for (const int motion : {MOVRA_SR_MOTION_GLOBAL, MOVRA_SR_MOTION_LOCAL}) {
    listener = {{}, 1000};
    movra_sr_options options = defaults();
    options.motion = motion;
    options.progress = listen;
    options.progress_user = &listener;
    const Handle burst = open(options, burstOfFive());
    const Image expected = reconstruct(burst);
    const std::size_t calls = listener.heard.size();
    EXPECT_GE(calls, 5U);
    EXPECT_TRUE(std::is_sorted(listener.heard.begin(), listener.heard.end()));
    EXPECT_EQ(listener.heard.back(), 1.0);
    for (std::size_t most = 0; most < calls; ++most) {
      listener = {{}, most};
      reconstruct(burst, MOVRA_SR_CANCELLED);
      EXPECT_EQ(listener.heard.size(), most + 1) << "went on after being told to stop";
    }
    listener = {{}, 1000};
    EXPECT_TRUE(sameBits(reconstruct(burst), expected));
  }
}

TEST(Burst, VersionAndWords) {
  EXPECT_EQ(movra_sr_version(), MOVRA_SR_VERSION_NUMBER);
  EXPECT_STREQ(movra_sr_version_text(), MOVRA_PROJECT_VERSION);
  std::set<std::string> texts;
  for (int status = -9; status <= 6; ++status) {
    texts.insert(movra_sr_status_text(status));
  }
  EXPECT_EQ(texts.size(), 15U) << "each status has words of its own, and so has an unknown one";
  movra_sr_options longer[2];  // as a later version's caller has it
  std::memset(longer, 0x55, sizeof longer);
  movra_sr_default_options(longer, sizeof longer);
  movra_sr_burst* burst = nullptr;
  EXPECT_EQ(movra_sr_create(width, height, longer, &burst, nullptr, 0), MOVRA_SR_SUCCESS);
  movra_sr_destroy(burst);
  longer[1].capacity = 1;  // a field that this version does not know
  EXPECT_EQ(movra_sr_create(width, height, longer, &burst, nullptr, 0), MOVRA_SR_INVALID_ARGUMENT);

  // A program that was compiled with the first version: its structs end earlier, and nothing beyond is touched.
  movra_sr_options first = defaults();
  first.size = offsetof(movra_sr_options, keep_offset);
  first.keep_offset = first.frames = 0x55;
  EXPECT_TRUE(sameBits(reconstruct(open(first, burstOfFive())), reconstruct(open(defaults(), burstOfFive()))));
  movra_sr_result result = emptyResult();
  result.size = offsetof(movra_sr_result, pattern);
  result.bad_pixels = 77;
  EXPECT_EQ(movra_sr_register(open(first, burstOfFive()).get(), &result), MOVRA_SR_SUCCESS);
  EXPECT_EQ(result.used_frames, 5);
  EXPECT_EQ(result.bad_pixels, 77);
}

TEST(Burst, RegistrationAloneTellsWhatAReconstructionTells) {
  std::vector<Image> frames = makeBurst({width, height, smallShifts, 0.02, 3}).frames;
  for (Image& frame : frames) {
    frame[20 * width + 30] = 35;  // stuck
  }
  for (const int motion : {MOVRA_SR_MOTION_GLOBAL, MOVRA_SR_MOTION_LOCAL}) {
    movra_sr_options options = defaults();
    options.motion = motion;
    struct Told {
      movra_sr_result result = emptyResult();
      std::vector<float> floats = std::vector<float>(10 * width * height);
      std::vector<unsigned char> bad = std::vector<unsigned char>(width * height);
      std::vector<unsigned short> coverage = std::vector<unsigned short>(width * height);
    } told[2];
    for (const bool alone : {false, true}) {
      const Handle burst = open(options, frames);
      Told& t = told[alone ? 1 : 0];
      EXPECT_EQ(movra_sr_found_bad_pixels(burst.get(), t.bad.data(), 0), MOVRA_SR_NO_RESULT);
      Image image(imageSize);
      EXPECT_EQ(alone ? movra_sr_register(burst.get(), &t.result)
                      : movra_sr_reconstruct(burst.get(), image.data(), 0, &t.result),
                MOVRA_SR_SUCCESS);
      movra_sr_field grid{};
      grid.size = sizeof grid;
      EXPECT_EQ(movra_sr_shift_field(burst.get(), 4, &grid, t.floats.data()), MOVRA_SR_SUCCESS);
      float* const pattern = t.floats.data() + 8 * width * height;
      EXPECT_EQ(movra_sr_found_pattern(burst.get(), pattern, pattern + width * height, 0), MOVRA_SR_SUCCESS);
      EXPECT_EQ(movra_sr_found_bad_pixels(burst.get(), t.bad.data(), 0), MOVRA_SR_SUCCESS);
      EXPECT_EQ(movra_sr_coverage(burst.get(), t.coverage.data(), 0), MOVRA_SR_SUCCESS);
    }
    const bool local = motion == MOVRA_SR_MOTION_LOCAL;
    EXPECT_TRUE(told[0].floats == told[1].floats && told[0].bad == told[1].bad && told[0].coverage == told[1].coverage);
    EXPECT_EQ(told[0].result.sr_factor, told[1].result.sr_factor);
    EXPECT_EQ(told[1].result.bad_pixels, std::count(told[1].bad.begin(), told[1].bad.end(), 1));
    EXPECT_EQ(told[1].bad[20 * width + 30], local ? 1 : 0);
    EXPECT_EQ(told[1].result.seconds.solve, 0);
  }
  reconstruct(open(), MOVRA_SR_NO_FRAMES);

  // What a camera's earlier bursts told comes in; what is switched off stays in.
  Image pattern(width * height);
  std::generate(pattern.begin(), pattern.end(), [i = 0]() mutable { return 0.5f * static_cast<float>(++i * 7 % 3); });
  std::vector<Image> patterned = frames;
  for (Image& frame : patterned) {
    std::transform(frame.begin(), frame.end(), pattern.begin(), frame.begin(), std::plus<>());
  }
  movra_sr_options plain = defaults();
  plain.keep_pattern = plain.keep_bad_pixels = plain.keep_offset = 1;
  const Handle known = open(plain, patterned);
  EXPECT_EQ(movra_sr_set_pattern(known.get(), pattern.data(), 0), MOVRA_SR_SUCCESS);
  const Image expected = reconstruct(open(plain, frames));
  EXPECT_LT(distance(reconstruct(known), expected, 2 * width, 0), 1e-3);
  EXPECT_GT(distance(reconstruct(open(plain, patterned)), expected, 2 * width, 0), 0.1);
  EXPECT_GT(distance(reconstruct(open(defaults(), frames)), expected, 2 * width, 0), 0.1) << "the stuck pixel";
  pattern[7] = notANumber;
  EXPECT_EQ(movra_sr_set_pattern(known.get(), pattern.data(), 0), MOVRA_SR_INVALID_ARGUMENT);
  EXPECT_EQ(movra_sr_set_pattern(open(classic()).get(), frames[0].data(), 0), MOVRA_SR_INVALID_ARGUMENT);
}

// What the thread sanitizer looks at.
TEST(BurstThreads, TwoHandlesOnTwoThreads) {
  const std::vector<Image> frames[] = {burstOfFive(), makeBurst({width, height, smallShifts, 0.1, 7}).frames};
  const Image alone[] = {reconstruct(open(classic(), frames[0])), reconstruct(open(classic(), frames[1]))};
  std::vector<Image> together[2];
  std::vector<std::thread> threads;
  for (std::size_t t = 0; t < 2; ++t) {
    threads.emplace_back([&, t] {
      for (int repetition = 0; repetition < 4; ++repetition) {
        together[t].push_back(reconstruct(open(classic(), frames[t])));
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  for (std::size_t t = 0; t < 2; ++t) {
    for (const Image& image : together[t]) {
      EXPECT_TRUE(sameBits(image, alone[t]));
    }
  }
}
