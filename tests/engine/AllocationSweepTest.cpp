// Each allocation of a call fails by itself, and with all later ones of the call: what the call, the next one and the
// image say then. AllocationTest.cpp lets a failure happen anywhere in a life.
#include <gtest/gtest.h>

#include <exception>
#include <iostream>
#include <memory>
#include <streambuf>
#include <string>
#include <vector>

#include "tests/support/AllocationHooks.h"
#include "tests/support/Checks.h"
#include "tests/support/SyntheticBurst.h"
#include "vision/superresolution/SrFloat.h"
#include "vision/superresolution/SrFloatNeon.h"
#include "vision/superresolution/SuperResolutionCAdapter.h"
#include "vision/superresolution/reference/SuperResolution.h"

namespace {

using movra::test::Image;
using movra::test::sameBits;
using namespace movra::vision;

constexpr int width = 32;
constexpr int height = 28;
constexpr int window = 5;

/// Swallows the engines' report without an allocation.
class SilentStream : std::streambuf {
 public:
  SilentStream() : console(std::cout.rdbuf(this)) {}
  ~SilentStream() override { std::cout.rdbuf(console); }

 private:
  int_type overflow(int_type character) override { return traits_type::not_eof(character); }

  std::streambuf* console;
};

/// How many allocations fail in a row.
constexpr long modes[] = {1, 1000000};

/// Runs `call` with its first, its second, ... allocation failing, until it has no more, each time followed by `afterwards`.
/// @return how many allocations failed
template <class Call, class Afterwards>
int sweep(long inARow, Call call, Afterwards afterwards) {
  for (int n = 0;; ++n) {
    movra::test::allocations::failFrom(n, inARow);
    call();
    if (!movra::test::allocations::disarm()) {
      return n;
    }
    afterwards();
  }
}

/// Ten frames: the same five places twice, so that all windows have the same range of values.
std::vector<Image> makeFrames() {
  const std::vector<Image> places = movra::test::makeBurst({width, height}).frames;
  std::vector<Image> frames = places;
  frames.insert(frames.end(), places.begin(), places.end());
  return frames;
}

/// What an engine says after frames [0, count) of the burst.
struct Result {
  float outcome;
  Image image;

  bool operator==(const Result& other) const { return outcome == other.outcome && sameBits(image, other.image); }
};

template <class Engine>
class AllocationSweep : public testing::Test {
 protected:
  std::unique_ptr<Engine> fed(int count) const {
    auto engine = std::make_unique<Engine>(width, height, window, 2.0f);
    for (int i = 0; i < count; ++i) {
      engine->addFrame(burst[static_cast<std::size_t>(i)].data());
    }
    return engine;
  }

  static Result resultOf(Engine& engine) {
    Result result{0.0f, Image(4 * width * height)};
    result.outcome = engine.computeSR(result.image.data());
    return result;
  }

  /// The result, or nothing if the engine says that it has none.
  static bool hasResult(Engine& engine, Result& result) {
    try {
      result = resultOf(engine);
      return result.outcome != Engine::registrationFailed;
    } catch (const std::exception&) {
      return false;
    }
  }

  const SilentStream silent;
  const std::vector<Image> burst = makeFrames();
};

using Engines = testing::Types<SrFloat<SrFloatRegistration1>, SrFloat<SrFloatRegistration2>,
                               SrFloatNeon<SrFloatNeonRegistration>, SuperResolution>;
TYPED_TEST_SUITE(AllocationSweep, Engines);

}  // namespace

TYPED_TEST(AllocationSweep, AnEngineThatCannotBeMadeThrows) {
  for (const long inARow : modes) {
    std::unique_ptr<TypeParam> engine;
    bool threw = false;
    const auto make = [&] {
      try {
        engine = std::make_unique<TypeParam>(width, height, window, 2.0f);
      } catch (const std::exception&) {
        threw = true;
      }
    };
    EXPECT_GT(sweep(inARow, make,
                    [&] {
                      EXPECT_TRUE(threw || engine != nullptr);
                      threw = false;
                      engine.reset();
                    }),
              10);
  }
}

// The window has the old frames or the new ones, or the engine says that it has no result; five good frames mend all.
TYPED_TEST(AllocationSweep, AFrameThatCannotBeAddedSpoilsNothing) {
  const Result expected = this->resultOf(*this->fed(2 * window));
  for (const int count : {0, 3, window, window + 1}) {
    const Image& next = this->burst[static_cast<std::size_t>(count)];
    const Result with = this->resultOf(*this->fed(count + 1));
    Result without = with;
    this->hasResult(*this->fed(count), without);
    for (const long inARow : modes) {
      auto engine = this->fed(count);
      sweep(
          inARow,
          [&] {
            try {
              engine->addFrame(next.data());
            } catch (const std::exception&) {
            }
          },
          [&] {
            Result result;
            if (this->hasResult(*engine, result)) {
              EXPECT_TRUE(result == with || result == without) << count << " frames, outcome " << result.outcome;
            }
            for (int i = window; i < 2 * window; ++i) {
              engine->addFrame(this->burst[static_cast<std::size_t>(i)].data());
            }
            EXPECT_TRUE(this->resultOf(*engine) == expected) << count << " frames";
            engine = this->fed(count);
          });
    }
  }
}

TYPED_TEST(AllocationSweep, AReconstructionThatFailsCanBeRepeated) {
  for (const int count : {1, 3, window, window + 2}) {
    const auto engine = this->fed(count);
    const Result expected = this->resultOf(*this->fed(count));
    for (const long inARow : modes) {
      Image image(expected.image.size());
      bool threw = false;
      float outcome = 0;
      const int failures = sweep(
          inARow,
          [&] {
            try {
              outcome = engine->computeSR(image.data());
            } catch (const std::exception&) {
              threw = true;
            }
          },
          [&] {
            EXPECT_TRUE(threw || (Result{outcome, image} == expected)) << "the failure is reported or has no effect";
            threw = false;
            EXPECT_TRUE(this->resultOf(*engine) == expected) << count << " frames";
          });
      EXPECT_GT(failures, 0);
    }
  }
}

namespace {

class ContextAllocationSweep : public testing::TestWithParam<long> {
 protected:
  ContextAllocationSweep() { EXPECT_EQ(SuperResolution_init(width, height), 0) << "the lowest handle is free"; }
  ~ContextAllocationSweep() override { EXPECT_EQ(SuperResolution_release(0), 0); }

  void feed(int first, int end) const {
    for (int i = first; i < end; ++i) {
      EXPECT_EQ(SuperResolution_addImage(0, burst[static_cast<std::size_t>(i)].data()), 0) << lastError();
    }
  }

  static Image fetch() {
    Image image(4 * width * height);
    EXPECT_EQ(SuperResolution_getSuperresolutionImage(0, image.data()), 0);
    return image;
  }

  static std::string lastError() {
    char text[256] = "";
    SuperResolution_getErrorMessage(text, sizeof text - 1);
    return text;
  }

  const SilentStream silent;
  const std::vector<Image> burst = makeFrames();
};

}  // namespace

TEST_P(ContextAllocationSweep, AnInitWithoutMemoryUsesNoHandleUp) {
  int handle = -2;
  const auto init = [&] {
    try {
      handle = SuperResolution_init(width, height);
    } catch (const std::exception&) {
      handle = -1;
    }
  };
  const auto check = [&] {
    EXPECT_TRUE(handle == -1 || handle == 1);
    EXPECT_EQ(SuperResolution_isContextValid(1), handle == 1);
    SuperResolution_release(1);
  };
  EXPECT_GT(sweep(GetParam(), init, check), 10);
  EXPECT_EQ(handle, 1);
  SuperResolution_release(1);
}

TEST_P(ContextAllocationSweep, AddImageReportsEveryFailureAndGoesOn) {
  feed(0, window);
  feed(0, window);
  const Image expected = fetch();
  int reports = 0;
  int code = 0;
  bool leaked = false;
  const auto add = [&] {
    try {
      code = SuperResolution_addImage(0, burst[0].data());
    } catch (...) {
      leaked = true;
    }
  };
  const auto check = [&] {
    EXPECT_FALSE(leaked) << "an exception left the C interface";
    leaked = false;
    if (code != 0) {
      EXPECT_EQ(code, SUPERRESOLUTION_ERROR);
      EXPECT_TRUE(lastError() == "Unknown exception in addImage()" || lastError().rfind("cv::Exception: ", 0) == 0)
          << lastError();
      ++reports;
    }
    feed(0, window);
    EXPECT_TRUE(sameBits(fetch(), expected)) << "five good frames leave no trace of failures";
  };
  sweep(GetParam(), add, check);
  EXPECT_GT(reports, 10);
}

TEST_P(ContextAllocationSweep, NoOtherCallLetsAFailureOut) {
  feed(0, 3);
  bool leaked = false;
  int code = 0;
  const auto all = [&] {
    try {
      int columns = 0;
      int rows = 0;
      code = SuperResolution_queryOutputImageSize(0, &columns, &rows);
      SuperResolution_addImage(0, nullptr);
      SuperResolution_addImage(7, nullptr);
      SuperResolution_getSuperresolutionImage(0, nullptr);
      SuperResolution_setReferenceFrame(7, 0);
      SuperResolution_setCameraAndLensType(0, "a camera with a long description, m07, FOV 15");
      SuperResolution_release(7);
    } catch (...) {
      leaked = true;
    }
  };
  sweep(GetParam(), all, [&] {
    EXPECT_FALSE(leaked) << "an exception left the C interface";
    EXPECT_TRUE(code == SUPERRESOLUTION_NOT_ENOUGH_IMAGES || code == SUPERRESOLUTION_ERROR) << code;
    leaked = false;
  });
  feed(3, 2 * window);
}

INSTANTIATE_TEST_SUITE_P(, ContextAllocationSweep, testing::ValuesIn(modes));
