// The C interface when there is no memory for an image, through the shared library.
#include <gtest/gtest.h>

#include <exception>
#include <new>
#include <opencv2/core.hpp>

#include "SuperResolutionCAdapterFixture.h"
#include "vision/superresolution/SuperResolutionCAdapter.h"

namespace {

/// OpenCV's allocator, of which the allocation fails that meets zero while `untilFailure` counts down.
class FusedAllocator : public cv::MatAllocator {
 public:
  cv::UMatData* allocate(int dims, const int* sizes, int type, void* data, std::size_t* step, cv::AccessFlag flags,
                         cv::UMatUsageFlags usage) const override {
    const bool fails = untilFailure >= 0 && untilFailure-- == 0;
    if (fails && throwsForeign) {
      throw std::bad_alloc();
    }
    if (fails) {
      CV_Error(cv::Error::StsNoMem, "no room for an image");
    }
    return cv::Mat::getStdAllocator()->allocate(dims, sizes, type, data, step, flags, usage);
  }
  bool allocate(cv::UMatData* data, cv::AccessFlag flags, cv::UMatUsageFlags usage) const override {
    return cv::Mat::getStdAllocator()->allocate(data, flags, usage);
  }
  void deallocate(cv::UMatData* data) const override { cv::Mat::getStdAllocator()->deallocate(data); }

  mutable int untilFailure = -1;
  bool throwsForeign = false;
};

class SuperResolutionCAdapterStressTest : public SuperResolutionCAdapterTest {
 protected:
  SuperResolutionCAdapterStressTest() { cv::Mat::setDefaultAllocator(&allocator); }
  ~SuperResolutionCAdapterStressTest() override { cv::Mat::setDefaultAllocator(cv::Mat::getStdAllocator()); }

  /// Makes the first, second, ... allocation of the call fail until it has no more.
  template <class Call>
  void failEachAllocation(Call call) {
    for (int n = 0; allocator.untilFailure < 0; ++n) {
      allocator.untilFailure = n;
      call();
    }
    allocator.untilFailure = -1;
  }

  FusedAllocator allocator;
};

TEST_F(SuperResolutionCAdapterStressTest, AnInitWithoutMemoryUsesNoHandleUp) {
  const int before = open();
  int failures = 0;
  failEachAllocation([&] {
    try {
      EXPECT_EQ(open({8, 8}), before + 1);
    } catch (const cv::Exception&) {
      EXPECT_FALSE(SuperResolution_isContextValid(before + 1));
      ++failures;
    }
  });
  EXPECT_GT(failures, 0);
}

TEST_F(SuperResolutionCAdapterStressTest, EveryFailedAllocationIsReportedAndSurvived) {
  const std::vector<Image> burst = makeFrames();
  const int context = openAndFeed(burst);
  const Image expected = fetch(context);
  for (const bool foreign : {false, true}) {
    const std::string text = foreign ? "Unknown exception in addImage()" : "cv::Exception: no room for an image";
    allocator.throwsForeign = foreign;
    const int fresh = open();
    int reports = 0;
    failEachAllocation([&] {
      const int code = SuperResolution_addImage(fresh, burst[0].data());
      if (allocator.untilFailure < 0) {
        EXPECT_NE(code, 0);
        EXPECT_EQ(lastError(), text);
        ++reports;
      }
    });
    EXPECT_GT(reports, 0);
    int code = -1;
    for (const Image& frame : burst) {
      code = SuperResolution_addImage(fresh, frame.data());
    }
    EXPECT_EQ(code, 0);
    EXPECT_TRUE(sameBits(fetch(fresh), expected)) << "five good frames leave no trace of failures";
  }
}

TEST_F(SuperResolutionCAdapterStressTest, AFullWindowNeedsNoMemoryForImages) {
  const std::vector<Image> burst = makeFrames();
  const int context = openAndFeed(burst);
  allocator.untilFailure = 0;
  for (const Image& frame : burst) {
    EXPECT_EQ(SuperResolution_addImage(context, frame.data()), 0);
  }
  allocator.untilFailure = -1;
}

}  // namespace
