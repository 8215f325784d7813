#pragma once

#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace movra::vision::detail {

/// Workspaces that jobs borrow: as many as run at once, each made when first needed and used again.
template <class Workspace>
class WorkspacePool {
 public:
  /// Borrows a workspace for as long as it lives.
  class Loan {
   public:
    Loan(WorkspacePool& owner, std::unique_ptr<Workspace> borrowed) : pool(owner), workspace(std::move(borrowed)) {}
    Loan(const Loan&) = delete;
    Loan& operator=(const Loan&) = delete;
    ~Loan() {
      const std::lock_guard<std::mutex> lock(pool.mutex);
      pool.free.push_back(std::move(workspace));  // cannot grow: place was made when it was borrowed
    }
    Workspace& operator*() { return *workspace; }
    Workspace* operator->() { return workspace.get(); }

   private:
    WorkspacePool& pool;
    std::unique_ptr<Workspace> workspace;
  };

  /// @param make called without arguments, returns a std::unique_ptr<Workspace>
  template <class Make>
  Loan borrow(Make make) {
    {
      const std::lock_guard<std::mutex> lock(mutex);
      if (!free.empty()) {
        std::unique_ptr<Workspace> workspace = std::move(free.back());
        free.pop_back();
        return Loan(*this, std::move(workspace));
      }
      ++made;
      free.reserve(made);
    }
    return Loan(*this, make());
  }

 private:
  std::mutex mutex;
  std::vector<std::unique_ptr<Workspace>> free;
  std::size_t made = 0;
};

}  // namespace movra::vision::detail
