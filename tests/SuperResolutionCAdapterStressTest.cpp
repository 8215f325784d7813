// The C interface under failing allocations, through the shared library.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <opencv2/core.hpp>
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

}  // namespace
