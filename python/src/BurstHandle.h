#pragma once

#include <pybind11/pybind11.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "python/src/Arrays.h"
#include "tools/movra-sr/reconstruction/JobPool.h"
#include "vision/superresolution/Burst.h"

namespace movra::python {

/// A burst of the C interface. Any Python thread may use it: a lock, which is taken without the interpreter's, keeps them
/// apart.
class BurstHandle {
 public:
  /// @throws pybind11::value_error with what is wrong with the options
  BurstHandle(int width, int height, const pybind11::dict& options);

  int addFrame(const FloatArray& frame);
  int setBadPixels(const pybind11::object& map);
  int setPattern(const pybind11::object& pattern);
  void clear();
  int frameCount() const;
  std::string errorText() const;

  /// Status, image or None, and the particulars. `progress` is None or called with the share done; an exception of its own
  /// ends the reconstruction and comes out of here, and so does an interrupt from the keyboard.
  pybind11::tuple reconstruct(const pybind11::object& progress);
  /// The same without an image.
  pybind11::tuple registerFrames(const pybind11::object& progress);

  /// Rows of (x, y), one per frame.
  pybind11::array_t<double> shifts() const;
  /// (left, top, step_x, step_y), and an array of frames x rows x columns x 2.
  pybind11::tuple shiftField() const;
  pybind11::array_t<unsigned short> coverage() const;
  pybind11::array_t<unsigned char> foundBadPixels() const;
  /// The pattern, and the number of frames that told it.
  pybind11::tuple foundPattern() const;
  /// Whether each frame took part.
  std::vector<std::string> frameTexts() const;

 private:
  static int tell(void* self, double done);
  static void runJobs(void* self, int jobs, void (*job)(void* context, int number), void* context);
  pybind11::tuple work(const pybind11::object& progress, FloatArray* image);

  /// Runs the call with the lock held and the interpreter free.
  template <class Call>
  auto locked(Call call) const;

  std::unique_ptr<movra_sr_burst, decltype(&movra_sr_destroy)> burst;
  int width;
  int height;
  int threads = 1;
  std::optional<tool::JobPool> pool;  // during reconstruct: threads that wait do not survive a fork
  mutable std::mutex mutex;
  mutable std::atomic<std::thread::id> owner;  // of the lock
  pybind11::object listener;                   // during reconstruct
  std::exception_ptr interruption;             // what its call threw
};

}  // namespace movra::python
