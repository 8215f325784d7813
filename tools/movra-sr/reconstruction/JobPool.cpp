#include "tools/movra-sr/reconstruction/JobPool.h"

#include <algorithm>
#include <exception>

namespace movra::tool {

JobPool::JobPool(int threads)
    : count(threads > 0 ? threads : std::max(1, static_cast<int>(std::thread::hardware_concurrency()))) {}

JobPool::~JobPool() {
  {
    const std::lock_guard<std::mutex> guard(mutex);
    closing = true;
  }
  begin.notify_all();
  for (std::thread& helper : helpers) {
    helper.join();
  }
}

void JobPool::run(int jobs, const std::function<void(int)>& job) {
  if (jobs < 2 || count < 2) {
    for (int i = 0; i < jobs; ++i) {
      job(i);
    }
    return;
  }
  if (helpers.empty()) {
    try {
      for (int i = 1; i < count; ++i) {
        helpers.emplace_back([this, done = round] { help(done); });
      }
    } catch (const std::exception&) {  // no more threads or memory: those that there are do the work
    }
  }
  {
    const std::lock_guard<std::mutex> guard(mutex);
    current = &job;
    jobCount = jobs;
    next = 0;
    busy = static_cast<int>(helpers.size());
    ++round;
  }
  begin.notify_all();
  work();
  std::unique_lock<std::mutex> lock(mutex);
  end.wait(lock, [this] { return busy == 0; });
}

void JobPool::help(unsigned done) {
  std::unique_lock<std::mutex> lock(mutex);
  while (true) {
    begin.wait(lock, [&] { return closing || round != done; });
    if (closing) {
      return;
    }
    done = round;
    lock.unlock();
    work();
    lock.lock();
    if (--busy == 0) {
      end.notify_one();
    }
  }
}

void JobPool::work() {
  for (int i = next++; i < jobCount; i = next++) {
    (*current)(i);
  }
}

}  // namespace movra::tool
