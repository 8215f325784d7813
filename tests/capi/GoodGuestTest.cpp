// The library in a host that watches its threads and its standard output. Each test runs in a process of its own.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <iostream>
#include <memory>
#include <thread>

#include <opencv2/core.hpp>

#include "tests/support/SyntheticBurst.h"
#include "vision/superresolution/CvReplacements.h"
#include "vision/superresolution/SrFloat.h"
#include "vision/superresolution/SuperResolutionCAdapter.h"

namespace {

using namespace movra::test;
using namespace movra::vision;

constexpr int width = 320;
constexpr int height = 240;

bool reconstructs(const std::vector<Image>& frames) {
  const int context = SuperResolution_init(width, height);
  int code = context;
  for (const Image& frame : frames) {
    code |= SuperResolution_addImage(context, frame.data());
  }
  return code == 0 && SuperResolution_queryOutputImageSize(context, nullptr, nullptr) == 0;
}

/// How a copy of this process ends that runs `host`: its exit code, or the negative number of a signal.
template <class Host>
int endOf(Host host) {
  std::cout.flush();
  const pid_t child = fork();
  if (child == 0) {
    _exit(host());
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

TEST(GoodGuest, StaysOnTheCallersThreadsAndKeepsTheHostsSetting) {
  const std::vector<Image> frames = makeBurst({width, height}).frames;
  const int end = endOf([&] {
    cv::setNumThreads(4);
    std::cout.rdbuf(nullptr);
    std::vector<cv::Mat> pyramid;
    CvReplacements::buildOpticalFlowPyramid(cv::Mat(height, width, CV_8U, cv::Scalar(7)), pyramid, {21, 21}, 3);
    const auto work = [&](auto engine) {
      cv::Mat_<float> out;
      for (int i = 0; i < 30; ++i) {
        engine->addFrame(frames[static_cast<std::size_t>(i % 5)].data());
        engine->computeSR(out);
      }
    };
    std::thread other([&] { work(std::make_unique<SrFloat<SrFloatRegistration2>>(width, height, 5, 2.0f)); });
    work(std::make_unique<SrFloat<SrFloatRegistration1>>(width, height, 5, 2.0f));
    other.join();
    if (!reconstructs(frames) || cv::getNumThreads() != 4) {
      return 100;
    }
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return static_cast<int>(std::distance(tasks, std::filesystem::directory_iterator()));
  });
  EXPECT_EQ(end, 1) << "threads";
}

TEST(GoodGuest, AClosedStandardOutputDoesNoHarm) {
  const std::vector<Image> frames = makeBurst({width, height}).frames;
  for (const bool isPipe : {true, false}) {
    const int end = endOf([&] {
      signal(SIGPIPE, SIG_DFL);
      int ends[2];
      if (pipe(ends) != 0 || dup2(ends[1], 1) != 1 || close(ends[0]) != 0 || (!isPipe && close(1) != 0)) {
        return 100;
      }
      std::cout.exceptions(std::ios::failbit | std::ios::badbit);
      std::cout.precision(2);
      const bool works = reconstructs(frames);
      return works && std::cout.good() && std::cout.precision() == 2 && std::ferror(stdout) == 0 ? 0 : 1;
    });
    EXPECT_EQ(end, 0) << (isPipe ? "pipe without a reader" : "closed descriptor");
  }
}

}  // namespace
