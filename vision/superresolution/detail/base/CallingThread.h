#pragma once

#include <opencv2/core/utility.hpp>

namespace movra::vision::detail {

/// Runs `call` so that OpenCV's functions in it stay on the calling thread, without touching the number of threads that
/// the host has set. OpenCV runs loops one after the other when they are nested in another one, and a range of one element
/// stays on its caller's thread.
template <class Call>
void onCallingThread(Call call) {
  cv::parallel_for_(cv::Range(0, 1), [&](const cv::Range&) { call(); });
}

}  // namespace movra::vision::detail
