#pragma once

#include <functional>

namespace movra::tool {

/// Runs jobs on several threads.
class JobPool {
 public:
  /// @param threads 0: as many as the processor runs at once
  explicit JobPool(int threads);

  int threads() const { return count; }

  /// Runs jobs 0 ... jobs - 1, each once, and returns when all are done.
  void run(int jobs, const std::function<void(int)>& job) const;

 private:
  int count;
};

}  // namespace movra::tool
