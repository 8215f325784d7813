// The C interface under failing allocations and random calls, through the shared library.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <limits>
#include <new>
#include <opencv2/core.hpp>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "SuperResolutionCAdapterFixture.h"
#include "vision/superresolution/SuperResolutionCAdapter.h"

namespace {

/// Counts allocations down; the one that meets zero fails. Below zero none does.
struct Fuse {
  bool blows() { return untilFailure >= 0 && untilFailure-- == 0; }
  int untilFailure = -1;
};

Fuse arrayFuse;  // for `new` in the library; OpenCV's own are left alone, because it leaks when they fail
Fuse imageFuse;  // for the pixels of OpenCV's images

bool isInLibrary(const void* code) {
  Dl_info place;
  return dladdr(code, &place) != 0 && std::strstr(place.dli_fname, "libmovra_superresolution") != nullptr;
}

void* allocate(std::size_t size, const void* caller, std::size_t alignment = alignof(std::max_align_t)) {
  const bool fails = arrayFuse.untilFailure >= 0 && isInLibrary(caller) && arrayFuse.blows();
  const std::size_t wholeSize = (std::max(size, std::size_t{1}) + alignment - 1) / alignment * alignment;
  void* const memory = fails ? nullptr : std::aligned_alloc(alignment, wholeSize);
  return memory != nullptr ? memory : throw std::bad_alloc();
}

}  // namespace

// Replaces the operators of the whole process.
// clang-format off
void* operator new(std::size_t size) { return allocate(size, __builtin_return_address(0)); }
void* operator new[](std::size_t size) { return allocate(size, __builtin_return_address(0)); }
void* operator new[](std::size_t size, std::align_val_t alignment) {
  return allocate(size, __builtin_return_address(0), static_cast<std::size_t>(alignment));
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::align_val_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept { std::free(memory); }
// clang-format on

namespace {

/// OpenCV's allocator of images, with a fuse.
class FusedAllocator : public cv::MatAllocator {
 public:
  cv::UMatData* allocate(int dims, const int* sizes, int type, void* data, std::size_t* step,
                         cv::AccessFlag flags, cv::UMatUsageFlags usage) const override {
    if (imageFuse.blows()) CV_Error(cv::Error::StsNoMem, "no room for an image");
    return cv::Mat::getStdAllocator()->allocate(dims, sizes, type, data, step, flags, usage);
  }
  bool allocate(cv::UMatData* data, cv::AccessFlag flags, cv::UMatUsageFlags usage) const override {
    return cv::Mat::getStdAllocator()->allocate(data, flags, usage);
  }
  void deallocate(cv::UMatData* data) const override { cv::Mat::getStdAllocator()->deallocate(data); }
};

class SuperResolutionCAdapterStressTest : public SuperResolutionCAdapterTest {
 protected:
  SuperResolutionCAdapterStressTest() { cv::Mat::setDefaultAllocator(&allocator); }
  ~SuperResolutionCAdapterStressTest() override { cv::Mat::setDefaultAllocator(cv::Mat::getStdAllocator()); }

  /// Makes the first, second, ... allocation of the call fail until it has no more.
  /// @return how many there were
  template <class Call>
  static int failEachAllocation(Fuse& fuse, Call call) {
    for (int n = 0;; ++n) {
      fuse.untilFailure = n;
      call();
      const bool failed = fuse.untilFailure < 0;
      fuse.untilFailure = -1;
      if (!failed) return n;
    }
  }

  FusedAllocator allocator;
};

TEST_F(SuperResolutionCAdapterStressTest, AnInitWithoutMemoryUsesNoHandleUp) {
  for (Fuse* fuse : {&arrayFuse, &imageFuse}) {
    const int before = open();
    const int failures = failEachAllocation(*fuse, [&] {
      try {
        EXPECT_EQ(open({8, 8}), before + 1);
      } catch (const std::exception&) {  // std::bad_alloc or cv::Exception
        EXPECT_FALSE(SuperResolution_isContextValid(before + 1));
      }
    });
    EXPECT_GT(failures, 0);
    EXPECT_TRUE(SuperResolution_isContextValid(before + 1));
  }
}

TEST_F(SuperResolutionCAdapterStressTest, EveryFailedAllocationIsReportedAndSurvived) {
  const std::vector<Image> burst = makeFrames();
  const int context = openAndFeed(burst);
  const Image expected = fetch(context);
  const std::pair<Fuse*, std::string> kinds[] = {{&arrayFuse, "Unknown exception in addImage()"},
                                                 {&imageFuse, "cv::Exception: no room for an image"}};
  for (const auto& [fuse, text] : kinds) {
    int reports = 0;
    failEachAllocation(*fuse, [&, &expectedText = text] {
      if (SuperResolution_addImage(context, burst[0].data()) != -999) return;
      EXPECT_EQ(lastError(), expectedText);
      ++reports;
    });
    EXPECT_GT(reports, 0);
    for (const Image& frame : burst) EXPECT_EQ(SuperResolution_addImage(context, frame.data()), 0);
    EXPECT_TRUE(sameBits(fetch(context), expected)) << "five good frames leave no trace of failures";

    const int fresh = open();
    SuperResolution_addImage(fresh, burst[0].data());
    int columns = 0;
    int rows = 0;
    fuse->untilFailure = 0;
    EXPECT_EQ(SuperResolution_queryOutputImageSize(fresh, &columns, &rows), -999);
    fuse->untilFailure = -1;
    EXPECT_EQ(lastError(), text) << "though it is another function";
    EXPECT_EQ(columns, 2 * width);
    EXPECT_EQ(rows, 2 * height);
  }
}

/// What a slot of the registry should be like.
struct Expected {
  bool valid = false;
  Size size{0, 0};
  int count = 0;
};

TEST_F(SuperResolutionCAdapterStressTest, RandomCallsGiveWhatTheModelSays) {
  constexpr Size sizes[] = {{24, 20}, {17, 23}, {0, 9}};
  std::mt19937 random(20240611);
  const auto pick = [&](int count) { return static_cast<int>(random() % static_cast<unsigned>(count)); };
  const auto randomFrame = [&](Size size) {
    Image frame =
        makeFrame({static_cast<float>(pick(100)) / 80.0F, static_cast<float>(pick(100)) / 80.0F}, size);
    const float odd[] = {
        notANumber,   infinity,     -infinity,    6000.0F,      asFloat(129),
        asFloat(130), asFloat(131), asFloat(132), asFloat(133), std::numeric_limits<float>::max()};
    const int spoiled = pick(4) == 0 && !frame.empty() ? pick(30) : 0;
    for (int i = 0; i < spoiled; ++i)
      frame[static_cast<std::size_t>(pick(static_cast<int>(frame.size())))] = odd[pick(10)];
    if (pick(12) == 0) std::fill(frame.begin(), frame.end(), odd[pick(10)]);
    frame.push_back(0);  // never empty
    return frame;
  };

  std::vector<Expected> slots;
  const auto expectInvalid = [](int code) {
    EXPECT_EQ(code, -999);
    EXPECT_EQ(lastError(), "Context invalid.");
  };
  for (int call = 0; call < 6000 && !HasFailure(); ++call) {
    const int context = pick(6) - 1;
    const bool valid = context >= 0 && static_cast<std::size_t>(context) < slots.size() &&
                       slots[static_cast<std::size_t>(context)].valid;
    ASSERT_EQ(SuperResolution_isContextValid(context), valid);
    Expected none;
    Expected& slot = valid ? slots[static_cast<std::size_t>(context)] : none;
    switch (pick(16)) {
      case 0: {
        const auto free =
            std::find_if(slots.begin(), slots.end(), [](const Expected& s) { return !s.valid; });
        const auto index = free - slots.begin();
        if (index == 5) break;
        const Size size = sizes[pick(3)];
        ASSERT_EQ(open(size), index);
        if (free == slots.end()) slots.emplace_back();
        slots[static_cast<std::size_t>(index)] = {true, size, 0};
        break;
      }
      case 1:
        if (!valid)
          expectInvalid(SuperResolution_release(context));
        else
          EXPECT_EQ(SuperResolution_release(context), 0);
        slot.valid = false;
        break;
      case 2: {
        int columns = -7;
        int rows = -7;
        const int code = SuperResolution_queryOutputImageSize(context, pick(4) ? &columns : nullptr, &rows);
        if (!valid) {
          expectInvalid(code);
          EXPECT_EQ(rows, -7);
        } else {
          EXPECT_TRUE(slot.count >= 5 ? code == 0 : code == -5 || code == -999) << code;
          EXPECT_EQ(rows, 2 * slot.size.height);
          EXPECT_TRUE(columns == -7 || columns == 2 * slot.size.width);
        }
        break;
      }
      case 3: {
        const auto pixels = static_cast<std::size_t>(4 * slot.size.width * slot.size.height);
        Image image(pixels + 1, 123.0F);
        const bool null = pick(6) == 0;
        const int code = SuperResolution_getSuperresolutionImage(context, null ? nullptr : image.data());
        if (!valid) {
          expectInvalid(code);
        } else if (null || pixels == 0) {
          EXPECT_EQ(code, -999);
          EXPECT_EQ(lastError(), "Memcpy called on nullptr!!!!");
        } else {
          EXPECT_EQ(code, slot.count >= 5 ? 0 : -5);
        }
        EXPECT_EQ(image[pixels], 123.0F);
        break;
      }
      case 4:
        if (!valid)
          expectInvalid(SuperResolution_setReferenceFrame(context, 2));
        else if (pick(2))
          EXPECT_EQ(SuperResolution_setReferenceFrame(context, pick(5)), 0);
        else
          EXPECT_THROW(SuperResolution_setReferenceFrame(context, 5 + pick(3)), const char*);
        break;
      case 5: {
        const char* descriptions[] = {"m01 FOV 3", "m05 FOV 3", "m07 FOV 30", "", "FOV"};
        EXPECT_EQ(SuperResolution_setCameraAndLensType(context, descriptions[pick(5)]), 0);
        break;
      }
      case 6: {
        char text[20];
        EXPECT_EQ(SuperResolution_getErrorMessage(pick(3) ? text : nullptr, pick(30) - 9), 0);
        break;
      }
      default: {
        const Image frame = randomFrame(slot.size);
        const bool null = pick(20) == 0;
        const int code = SuperResolution_addImage(context, null ? nullptr : frame.data());
        if (!valid) {
          expectInvalid(code);
        } else if (slot.size.width == 0) {
          EXPECT_EQ(code, -999);
          EXPECT_EQ(lastError(), markedText);
        } else if (null) {
          EXPECT_EQ(code, -999);
          EXPECT_EQ(lastError(), "ir image data pointer is NULL");
        } else if (code == -999) {
          // Too many defects: not counted. Exceptions of the reconstruction: counted.
          if (lastError() != "Too many defect pixels. No processing possible.") {
            EXPECT_GE(++slot.count, 5);
            EXPECT_EQ(lastError(), "Too large displacement");
          }
        } else {
          ++slot.count;
          EXPECT_TRUE(code == 0 || code == -2 || code == -4 || (code == -3 && slot.count >= 5)) << code;
          EXPECT_TRUE(code != -4 || lastError() == "  image has not enough structure");
        }
      }
    }
  }
}

}  // namespace
