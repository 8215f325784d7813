#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace movra::tool {

/// Runs jobs on several threads, which begin with the first jobs and end with the pool.
class JobPool {
 public:
  /// @param threads 0: as many as the processor runs at once
  explicit JobPool(int threads);
  ~JobPool();
  JobPool(const JobPool&) = delete;
  JobPool& operator=(const JobPool&) = delete;

  int threads() const { return count; }

  /// Runs jobs 0 ... jobs - 1, each once, and returns when all are done. Jobs throw nothing. One caller at a time.
  void run(int jobs, const std::function<void(int)>& job);

 private:
  void help(unsigned done);
  void work();

  int count;
  std::vector<std::thread> helpers;
  std::mutex mutex;
  std::condition_variable begin;
  std::condition_variable end;
  const std::function<void(int)>* current = nullptr;
  int jobCount = 0;
  std::atomic<int> next{0};
  unsigned round = 0;  // number of the run
  int busy = 0;        // helpers that have not finished it
  bool closing = false;
};

}  // namespace movra::tool
