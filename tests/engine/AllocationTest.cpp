// What happens when memory ends, and where none is taken; through the shared library.
#include <gtest/gtest.h>

#include <memory>
#include <type_traits>

#include "movra/Exception.h"
#include "tests/capi/SuperResolutionCAdapterFixture.h"
#include "tests/support/AllocationHooks.h"
#include "vision/superresolution/SrFloat.h"
#include "vision/superresolution/SrFloatNeon.h"
#include "vision/superresolution/reference/SuperResolution.h"

namespace {

using namespace movra::vision;

constexpr int window = 3;

/// Frames whose range the first one contains, so that the mapping to grey values is the same whatever came before.
std::vector<Image> smallBurst() {
  std::vector<Image> frames = makeFrames(window, {40, 32});
  for (int k = 1; k < window; ++k) {
    for (float& value : frames[static_cast<std::size_t>(k)]) {
      value = 300 + 0.8f * (value - 300);
    }
  }
  return frames;
}

template <class Call>
void attempt(Call call) {
  try {
    call();
  } catch (...) {
  }
}

/// Feeds more frames than the window holds and reconstructs before and after it is full. Failures may happen anywhere.
template <class Engine>
void live(Engine& engine, const std::vector<Image>& frames, Image& out) {
  for (int i = 0; i <= window; ++i) {
    attempt([&] { engine.addFrame(frames[static_cast<std::size_t>(i % window)].data()); });
    if (i >= 1) {
      attempt([&] { engine.computeSR(out.data()); });
    }
  }
}

template <class Engine>
class EngineWithoutMemory : public testing::Test {};

using Engines = testing::Types<SrFloat<SrFloatRegistration2>, SrFloat<SrFloatRegistration1>,
                               SrFloatNeon<SrFloatNeonRegistration>, SuperResolution>;
TYPED_TEST_SUITE(EngineWithoutMemory, Engines);

TYPED_TEST(EngineWithoutMemory, EveryAllocationMayFailOnceOrForAWhile) {
  const SilentConsole unread;
  const std::vector<Image> frames = smallBurst();
  const auto make = [] {
    auto engine = std::make_unique<TypeParam>(40, 32, window, 2.0f);
    engine->setRegError(1);  // trusts all pixels
    return engine;
  };
  Image out(80 * 64), expected(out.size());
  const auto reconstruct = [&](TypeParam& engine, Image& image) {
    for (const Image& frame : frames) {
      engine.addFrame(frame.data());
    }
    return engine.computeSR(image.data());
  };
  const float status = reconstruct(*make(), expected);
  ASSERT_GT(status, 1.3f);

  for (const long failures : {1, 7}) {
    bool failed = true;
    for (long first = 0; failed; first += failures) {
      allocations::failFrom(first, failures);
      std::unique_ptr<TypeParam> engine;
      attempt([&] { engine = make(); });
      if (engine) {
        live(*engine, frames, out);
      }
      failed = allocations::disarm();
      if (engine) {
        ASSERT_EQ(reconstruct(*engine, out), status) << "after failure " << first;
        ASSERT_TRUE(sameBits(out, expected)) << "after failure " << first;
      }
    }
  }
}

TEST(CInterfaceWithoutMemory, AddImageAndQueryLetNothingOut) {
  const SilentConsole unread;
  const std::vector<Image> frames = makeFrames(5, {40, 32});
  const int context = SuperResolution_init(40, 32);
  const Image flat(40 * 32, 300.0f);
  for (int filled = 0; filled <= 6; ++filled) {
    for (long first = 0; first < 3; ++first) {
      allocations::failFrom(first, 1000000);
      int code = 0;
      EXPECT_NO_THROW(code = SuperResolution_addImage(context, flat.data()));
      EXPECT_NO_THROW(SuperResolution_queryOutputImageSize(context, nullptr, nullptr));
      EXPECT_NO_THROW(SuperResolution_getSuperresolutionImage(context, nullptr));
      allocations::disarm();
      EXPECT_NE(code, 0);
      EXPECT_NE(lastError(), "");
    }
    SuperResolution_addImage(context, frames[static_cast<std::size_t>(filled % 5)].data());
  }
  SuperResolution_release(context);
}

TEST(CInterfaceWithoutMemory, ContextsWithoutPixelsCostNothing) {
  for (const auto& [columns, rows] : {std::pair(0, 4000000), std::pair(4000000, 0), std::pair(0, 0)}) {
    const std::size_t before = allocations::bytes;
    const int context = SuperResolution_init(columns, rows);
    EXPECT_GE(context, 0);
    EXPECT_LT(allocations::bytes - before, 100000u) << columns << ' ' << rows;
    SuperResolution_release(context);
    const auto refuse = [&, width = columns, height = rows] {
      EXPECT_THROW(SrFloatRegistration1(width, height, 5), movra::Exception);
      EXPECT_THROW(SuperResolution(width, height, 5, 2), movra::Exception);
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

}  // namespace
