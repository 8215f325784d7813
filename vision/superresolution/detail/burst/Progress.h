#pragma once

#include "vision/superresolution/Burst.h"

namespace movra::vision::detail {

/// Thrown where the caller's progress function asks for the end.
struct Cancelled {};

/// The caller's progress function, if there is one.
class Progress {
 public:
  explicit Progress(const movra_sr_options& options) : tellCaller(options.progress), user(options.progress_user) {}

  /// @throws Cancelled
  void tell(double done) const {
    if (tellCaller != nullptr && tellCaller(user, done) != 0) {
      throw Cancelled();
    }
  }

 private:
  movra_sr_progress tellCaller;
  void* user;
};

}  // namespace movra::vision::detail
