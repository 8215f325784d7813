// What happens when memory ends, and where none is taken; through the shared library. Each allocation of a call fails by
// itself, and with all later ones of the call: what the call, the next one and the image say then.
#include <exception>
#include <memory>
#include <set>

#include "movra/Exception.h"
#include "tests/support/AllocationHooks.h"
#include "tests/support/SilentConsole.h"
#include "tests/support/Test.h"
#include "vision/superresolution/Burst.h"
#include "vision/superresolution/SrFloat.h"
#include "vision/superresolution/SrFloatNeon.h"
#include "vision/superresolution/SuperResolutionCAdapter.h"
#include "vision/superresolution/reference/SuperResolution.h"

namespace {

using namespace movra::test;
using namespace movra::vision;

constexpr int width = 32;
constexpr int height = 28;
constexpr int window = 5;

/// Runs `call` with its first, its second, ... allocation failing alone, then with all later ones, until it has no more;
/// each time after `prepare` and followed by `afterwards`. Of the allocations beyond the fortieth one in `stride`.
/// @return how many allocations failed
template <class Prepare, class Call, class Afterwards>
int sweep(Prepare prepare, Call call, Afterwards afterwards, int stride = 1) {
  int failures = 0;
  for (const long inARow : {1L, 1000000L}) {
    for (int n = 0;; n += n < 40 ? 1 : stride) {
      prepare();
      allocations::failFrom(n, inARow);
      call();
      if (!allocations::disarm()) {
        break;
      }
      ++failures;
      afterwards();
    }
  }
  return failures;
}

/// Whether the call throws a std::exception.
template <class Call>
bool throws(Call call) {
  try {
    call();
    return false;
  } catch (const std::exception&) {
    return true;
  }
}

/// The same five places twice, so that all windows have the same range of values.
const Image& frame(int i) {
  static const std::vector<Image> places = makeBurst({width, height}).frames;
  return places[static_cast<std::size_t>(i % window)];
}

/// What an engine says.
struct Result {
  float outcome = 0;
  Image image = Image(4 * width * height);

  bool operator==(const Result& other) const { return outcome == other.outcome && sameBits(image, other.image); }
};

template <class Engine>
class AllocationSweep : public testing::Test {
 protected:
  /// An engine after frames [0, count).
  static std::unique_ptr<Engine> fed(int count) {
    auto engine = std::make_unique<Engine>(width, height, window, 2.0f);
    for (int i = 0; i < count; ++i) {
      engine->addFrame(frame(i).data());
    }
    return engine;
  }

  static Result resultOf(Engine& engine) {
    Result result;
    result.outcome = engine.computeSR(result.image.data());
    return result;
  }

  /// Whether the engine does not say that it has no result.
  static bool hasResult(Engine& engine, Result& result) {
    return !throws([&] { result = resultOf(engine); }) && result.outcome != Engine::registrationFailed;
  }

  const SilentStream silent;
};

using Engines = testing::Types<SrFloat<SrFloatRegistration1>, SrFloat<SrFloatRegistration2>,
                               SrFloatNeon<SrFloatNeonRegistration>, SuperResolution>;
TYPED_TEST_SUITE(AllocationSweep, Engines);

}  // namespace

TYPED_TEST(AllocationSweep, AnEngineThatCannotBeMadeThrows) {
  bool threw = false;
  std::unique_ptr<TypeParam> engine;
  const auto make = [&] { threw = throws([&] { engine = this->fed(0); }); };
  EXPECT_GT(sweep([&] { engine.reset(); }, make, [&] { EXPECT_NE(threw, engine != nullptr); }), 20);
}

// The window has the old frames or the new ones, or the engine says that it has no result; five good frames mend all.
TYPED_TEST(AllocationSweep, AFrameThatCannotBeAddedSpoilsNothing) {
  const Result expected = this->resultOf(*this->fed(2 * window));
  for (const int count : {0, 3, window, window + 1}) {
    const Result with = this->resultOf(*this->fed(count + 1));
    Result without = with;
    this->hasResult(*this->fed(count), without);
    std::unique_ptr<TypeParam> engine;
    const auto feed = [&] { engine = this->fed(count); };
    const auto add = [&] { throws([&] { engine->addFrame(frame(count).data()); }); };
    sweep(feed, add, [&] {
      Result result;
      if (this->hasResult(*engine, result)) {
        EXPECT_TRUE(result == with || result == without) << count << " frames, outcome " << result.outcome;
      }
      for (int i = 0; i < window; ++i) {
        engine->addFrame(frame(i).data());
      }
      EXPECT_TRUE(this->resultOf(*engine) == expected) << count << " frames";
    });
  }
}

TYPED_TEST(AllocationSweep, AReconstructionThatFailsCanBeRepeated) {
  for (const int count : {1, 3, window, window + 2}) {
    const auto engine = this->fed(count);
    const Result expected = this->resultOf(*this->fed(count));
    Result result;
    bool threw = false;
    const auto compute = [&] { threw = throws([&] { result.outcome = engine->computeSR(result.image.data()); }); };
    const auto check = [&] {
      EXPECT_TRUE(threw || result == expected) << "the failure is reported or has no effect";
      EXPECT_TRUE(this->resultOf(*engine) == expected) << count << " frames";
    };
    EXPECT_GT(sweep([] {}, compute, check), 0);
  }
}

namespace {

/// One context, with the lowest handle.
class ContextAllocationSweep : public testing::Test {
 protected:
  ~ContextAllocationSweep() override { SuperResolution_release(0); }

  static void feed(int count) {
    for (int i = 0; i < count; ++i) {
      EXPECT_EQ(SuperResolution_addImage(0, frame(i).data()), 0) << lastError();
    }
  }

  static void openAndFeed(int count) {
    SuperResolution_release(0);
    EXPECT_EQ(SuperResolution_init(width, height), 0);
    feed(count);
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
};

}  // namespace

TEST_F(ContextAllocationSweep, AnInitWithoutMemoryUsesNoHandleUp) {
  openAndFeed(0);
  int handle = -2;
  const auto init = [&] {
    if (throws([&] { handle = SuperResolution_init(width, height); })) {
      handle = -1;
    }
  };
  const auto check = [&] {
    EXPECT_TRUE(handle == -1 || handle == 1);
    EXPECT_EQ(SuperResolution_isContextValid(1), handle == 1);
  };
  EXPECT_GT(sweep([] { SuperResolution_release(1); }, init, check), 20);
  EXPECT_EQ(handle, 1);
  SuperResolution_release(1);
}

TEST_F(ContextAllocationSweep, AddImageReportsEveryFailureAndGoesOn) {
  openAndFeed(window);
  const Image expected = fetch();
  std::set<std::string> texts;
  for (const int held : {0, window - 1, window + 1}) {
    int code = 0;
    bool leaked = false;
    const auto add = [&] {
      try {
        code = SuperResolution_addImage(0, frame(held).data());
      } catch (...) {
        leaked = true;
      }
    };
    const auto check = [&] {
      ASSERT_FALSE(leaked) << "an exception left the C interface";
      if (code != 0) {
        EXPECT_EQ(code, SUPERRESOLUTION_ERROR);
        texts.insert(lastError());
      }
      feed(window);
      EXPECT_TRUE(sameBits(fetch(), expected)) << "five good frames leave no trace of failures";
    };
    sweep([held] { openAndFeed(held); }, add, check);
  }
  EXPECT_EQ(texts, (std::set<std::string>{"Unknown exception in addImage()", "cv::Exception: no room for an image"}));
}

TEST_F(ContextAllocationSweep, NoOtherCallLetsAFailureOut) {
  openAndFeed(3);
  bool leaked = false;
  int code = 0;
  const auto all = [&] {
    try {
      code = SuperResolution_queryOutputImageSize(0, nullptr, nullptr);
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
  const auto check = [&] {
    EXPECT_FALSE(leaked) << "an exception left the C interface";
    EXPECT_TRUE(code == SUPERRESOLUTION_NOT_ENOUGH_IMAGES || code == SUPERRESOLUTION_ERROR) << code;
  };
  sweep([] {}, all, check);
  feed(2 * window);
}

TEST(BurstAllocationSweep, EachAllocationOfALifeMayFailAndTheHandleGoesOn) {
  cv::setNumThreads(1);  // so that all allocations are this thread's
  Image image(4 * width * height), expected;
  movra_sr_burst* burst = nullptr;
  movra_sr_status status = MOVRA_SR_SUCCESS;
  const auto live = [&] {
    status = burst != nullptr ? MOVRA_SR_SUCCESS : movra_sr_create(width, height, nullptr, &burst, nullptr, 0);
    while (status == MOVRA_SR_SUCCESS && movra_sr_frame_count(burst) < window) {
      status = movra_sr_add_frame(burst, frame(movra_sr_frame_count(burst)).data(), 0);
    }
    status = status == MOVRA_SR_SUCCESS ? movra_sr_reconstruct(burst, image.data(), 0, nullptr) : status;
  };
  const auto destroy = [&] {
    movra_sr_destroy(burst);
    burst = nullptr;
  };
  live();
  destroy();
  expected = image;
  const auto check = [&] {
    EXPECT_EQ(status, MOVRA_SR_OUT_OF_MEMORY) << movra_sr_error_text(burst);
    live();
    EXPECT_EQ(status, MOVRA_SR_SUCCESS);
    EXPECT_TRUE(sameBits(image, expected));
  };
  EXPECT_GT(sweep(destroy, live, check, 7), 80);
  destroy();
}

TEST(Allocations, AFullWindowTakesNoneForImages) {
  const SilentStream silent;
  const int context = SuperResolution_init(320, 240);
  const std::vector<Image> frames = makeBurst({320, 240}).frames;
  std::size_t most = 0;
  for (int i = 0; i < 3 * window; ++i) {
    const std::size_t before = allocations::bytes;
    EXPECT_EQ(SuperResolution_addImage(context, frames[static_cast<std::size_t>(i % window)].data()), 0);
    most = i < window ? 0 : std::max(most, allocations::bytes - before);
  }
  EXPECT_LT(most, 320u * 240u);
  SuperResolution_release(context);
}

TEST(Allocations, ContextsWithoutPixelsCostNothing) {
  for (const auto& [columns, rows] : {std::pair(0, 4000000), std::pair(4000000, 0), std::pair(0, 0)}) {
    const std::size_t before = allocations::bytes;
    const int context = SuperResolution_init(columns, rows);
    EXPECT_GE(context, 0);
    EXPECT_LT(allocations::bytes - before, 100000u) << columns << ' ' << rows;
    SuperResolution_release(context);
    const auto refuse = [&, w = columns, h = rows] {
      EXPECT_THROW(SrFloatRegistration1(w, h, 5), movra::Exception);
      EXPECT_THROW(SuperResolution(w, h, 5, 2), movra::Exception);
    };
    refuse();
    EXPECT_LT(allocations::bytes - before, 100000u) << "refused: " << columns << ' ' << rows;
  }
}

TEST(Allocations, MinimizeMakesNone) {
  SyntheticBurst burst = makeBurst({40, 32});
  auto frames = burst.framePointers();
  auto masks = burst.maskPointers();
  Image out(80 * 64);
  SrFloatMinimization minimization(40, 32, 5, 2.0f);
  const long before = allocations::made;
  minimization.minimize(5, 1, frames.data(), burst.shifts.data(), masks.data(),
                        out.data());  // the first of the process
  EXPECT_EQ(allocations::made, before);
}
