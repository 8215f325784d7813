#include "tools/movra-sr/reconstruction/JobPool.h"

#include <algorithm>
#include <atomic>
#include <system_error>
#include <thread>
#include <vector>

namespace movra::tool {

JobPool::JobPool(int threads)
    : count(threads > 0 ? threads : std::max(1, static_cast<int>(std::thread::hardware_concurrency()))) {}

void JobPool::run(int jobs, const std::function<void(int)>& job) const {
  std::atomic<int> next{0};
  const auto work = [&] {
    for (int i = next++; i < jobs; i = next++) {
      job(i);
    }
  };
  std::vector<std::thread> helpers;
  for (int i = 1; i < std::min(count, jobs); ++i) {
    try {
      helpers.emplace_back(work);
    } catch (const std::system_error&) {
      break;  // no more threads to be had: those that are there do the work
    }
  }
  work();
  for (std::thread& helper : helpers) {
    helper.join();
  }
}

}  // namespace movra::tool
