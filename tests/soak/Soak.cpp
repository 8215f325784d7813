// Many bursts of many sizes through the library, with the faults that cameras and callers make, for as long as asked:
//   movra_soak SECONDS [SEED]
// It ends at once when an outcome is none of the documented ones, when a burst that is repeated again and again gives other
// bits, or when the memory in use grows from round to round.
#include <malloc.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>

#include "tests/support/SilentConsole.h"
#include "tests/support/Test.h"
#include "vision/superresolution/SuperResolutionCAdapter.h"

using namespace movra::test;

namespace {

void require(bool holds, const std::string& what) {
  if (!holds) {
    std::fprintf(stderr, "FAILED: %s\n", what.c_str());
    std::exit(1);
  }
}

class Soak {
 public:
  explicit Soak(unsigned seed) : generator(seed) {}

  /// A context of a random size and 1 to 12 frames of it, some damaged.
  void burst() {
    const int width = between(8, 90);
    const int height = between(8, 70);
    const int context = SuperResolution_init(width, height);
    require(context >= 0, "a context can be made");
    BurstRecipe recipe{width, height, smallShifts, 0.02, static_cast<std::uint32_t>(generator())};
    for (Shift& shift : recipe.shifts) {
      const int reach = between(0, 9) == 0 ? height : 2;
      shift = {static_cast<float>(between(-100 * reach, 100 * reach)) / 100.0f,
               static_cast<float>(between(-100 * reach, 100 * reach)) / 100.0f};
    }
    const std::vector<Image> frames = makeBurst(recipe).frames;
    for (int count = between(1, 12); count > 0; --count) {
      Image frame = frames[static_cast<std::size_t>(between(0, static_cast<int>(frames.size()) - 1))];
      damage(frame, width);
      const int code = SuperResolution_addImage(context, between(0, 30) == 0 ? nullptr : frame.data());
      require(code == 0 || (code <= -2 && code >= -4) || code == SUPERRESOLUTION_ERROR, "documented codes only");
      if (between(0, 5) == 0) {
        SuperResolution_setReferenceFrame(context, between(0, 4));
        SuperResolution_setCameraAndLensType(context, between(0, 1) == 0 ? "m07, FOV 15" : "none of them");
      }
    }
    Image image(4 * static_cast<std::size_t>(width * height));
    const int code = SuperResolution_getSuperresolutionImage(context, image.data());
    require(code == 0 || code == SUPERRESOLUTION_NOT_ENOUGH_IMAGES, "an image, or the reason why there is none");
    require(SuperResolution_release(context) == 0, "a context can be released");
  }

  /// The same burst each time: its bits are those of the first time.
  void yardstick() {
    const int context = SuperResolution_init(48, 40);
    for (const Image& frame : still) {
      require(SuperResolution_addImage(context, frame.data()) == 0, "good frames give 0");
    }
    Image image(4 * 48 * 40);
    SuperResolution_getSuperresolutionImage(context, image.data());
    SuperResolution_release(context);
    if (first.empty()) {
      first = image;
    }
    require(sameBits(image, first), "the same frames give the same bits");
  }

 private:
  int between(int minimum, int maximum) { return std::uniform_int_distribution<int>(minimum, maximum)(generator); }

  void damage(Image& frame, int width) {
    static const float values[] = {notANumber, infinity, asFloat(129), asFloat(130), asFloat(132), -300, 6000, 0};
    const float value = values[between(0, 7)];
    const int last = static_cast<int>(frame.size()) - 1;
    const int kind = between(0, 11);
    if (kind == 0) {
      std::fill(frame.begin(), frame.end(), value);
    } else if (kind == 1) {  // a row and a half
      std::fill_n(frame.begin() + between(0, std::max(last - 2 * width, 0)), std::min(3 * width / 2, last), value);
    } else if (kind == 2) {
      std::for_each(frame.begin(), frame.end(), [](float& pixel) { pixel += 700; });
    } else if (kind <= 4) {
      for (int count = between(1, 20); count > 0; --count) {
        frame[static_cast<std::size_t>(between(0, last))] = value;
      }
    }
  }

  std::mt19937 generator;
  const std::vector<Image> still = makeBurst({}).frames;
  Image first;
};

}  // namespace

int main(int argc, char** argv) {
  const double seconds = argc > 1 ? std::atof(argv[1]) : 5.0;
  const unsigned seed = argc > 2 ? static_cast<unsigned>(std::atol(argv[2])) : std::random_device{}();
  const SilentStream silent;  // std::printf writes all the same
  Soak soak(seed);
  const auto start = std::chrono::steady_clock::now();
  const auto elapsed = [&] { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(); };
  std::size_t warm = 0;
  std::size_t used = 0;
  long rounds = 0;
  for (double said = 0; elapsed() < seconds; ++rounds) {
    for (int i = 0; i < 10; ++i) {
      soak.burst();
    }
    soak.yardstick();
    used = mallinfo2().uordblks;
    if (elapsed() < seconds / 4) {
      warm = std::max(warm, used);
    } else {
      require(warm == 0 || used < warm + (256u << 10), "memory in use grew, seed " + std::to_string(seed));
    }
    if (elapsed() > said + 60) {
      said = elapsed();
      std::fprintf(stderr, "%4.0f s, %ld bursts, %zu KiB in use\n", said, 11 * rounds, used >> 10);
    }
  }
  std::printf("%ld bursts in %.0f s with seed %u; %zu KiB in use at the end, at most %zu while warming up\n",
              11 * rounds, elapsed(), seed, used >> 10, warm >> 10);
  return 0;
}
