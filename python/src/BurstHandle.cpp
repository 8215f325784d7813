#include "python/src/BurstHandle.h"

#include <stdexcept>
#include <utility>
#include <vector>

namespace py = pybind11;

namespace movra::python {

namespace {

/// Sets a field when the options name it.
template <class Field>
void take(const py::dict& options, const char* name, Field& field) {
  if (options.contains(name)) {
    field = options[name].cast<Field>();
  }
}

movra_sr_options read(const py::dict& given) {
  movra_sr_options options;
  movra_sr_default_options(&options, sizeof options);
  take(given, "motion", options.motion);
  take(given, "preset", options.preset);
  take(given, "registration", options.registration);
  take(given, "reference", options.reference);
  take(given, "capacity", options.capacity);
  take(given, "lowest_valid", options.lowest_valid);
  take(given, "highest_valid", options.highest_valid);
  take(given, "psf_sigma", options.psf_sigma);
  take(given, "weight_tv", options.weight_tv);
  take(given, "iterations", options.iterations);
  take(given, "relative_residue", options.relative_residue);
  take(given, "keep_offset", options.keep_offset);
  take(given, "keep_bad_pixels", options.keep_bad_pixels);
  take(given, "keep_pattern", options.keep_pattern);
  take(given, "frames", options.frames);
  return options;
}

/// The distance of rows in elements, for an array whose rows are dense.
template <class T>
std::size_t rowStride(const py::array_t<T>& array) {
  return static_cast<std::size_t>(array.strides(0)) / sizeof(T);
}

}  // namespace

BurstHandle::BurstHandle(int width_, int height_, const py::dict& options)
    : burst(nullptr, movra_sr_destroy), width(width_), height(height_) {
  movra_sr_options own = read(options);
  own.progress = tell;
  own.progress_user = this;
  take(options, "threads", threads);
  if (threads > 1) {
    own.run_jobs = runJobs;
    own.run_jobs_user = this;
  }
  movra_sr_burst* made = nullptr;
  char error[256] = "";
  const movra_sr_status status = movra_sr_create(width, height, &own, &made, error, sizeof error);
  if (status == MOVRA_SR_OUT_OF_MEMORY) {
    throw std::bad_alloc();
  }
  if (status < 0) {
    throw py::value_error(error);
  }
  burst.reset(made);
}

template <class Call>
auto BurstHandle::locked(Call call) const {
  if (owner == std::this_thread::get_id()) {
    throw std::runtime_error("the burst is reconstructing; its progress function cannot use it");
  }
  const py::gil_scoped_release released;
  const std::lock_guard<std::mutex> guard(mutex);
  owner = std::this_thread::get_id();
  struct Leave {
    std::atomic<std::thread::id>& owner;
    ~Leave() { owner = std::thread::id(); }
  } const leave{owner};
  return call();
}

int BurstHandle::addFrame(const FloatArray& frame) {
  return locked([&, data = frame.data(), stride = rowStride(frame)] {
    return static_cast<int>(movra_sr_add_frame(burst.get(), data, stride));
  });
}

int BurstHandle::setBadPixels(const py::object& map) {
  if (map.is_none()) {
    return locked([&] { return static_cast<int>(movra_sr_set_bad_pixels(burst.get(), nullptr, 0)); });
  }
  const auto array = map.cast<py::array_t<unsigned char>>();
  return locked([&, data = array.data(), stride = rowStride(array)] {
    return static_cast<int>(movra_sr_set_bad_pixels(burst.get(), data, stride));
  });
}

int BurstHandle::setPattern(const py::object& pattern) {
  if (pattern.is_none()) {
    return locked([&] { return static_cast<int>(movra_sr_set_pattern(burst.get(), nullptr, 0)); });
  }
  const auto array = pattern.cast<FloatArray>();
  return locked([&, data = array.data(), stride = rowStride(array)] {
    return static_cast<int>(movra_sr_set_pattern(burst.get(), data, stride));
  });
}

void BurstHandle::clear() {
  locked([&] { return movra_sr_clear(burst.get()); });
}

int BurstHandle::frameCount() const {
  return locked([&] { return movra_sr_frame_count(burst.get()); });
}

std::string BurstHandle::errorText() const {
  return locked([&] { return std::string(movra_sr_error_text(burst.get())); });
}

int BurstHandle::tell(void* self, double done) {
  auto& handle = *static_cast<BurstHandle*>(self);
  const py::gil_scoped_acquire interpreter;
  try {
    if (PyErr_CheckSignals() != 0) {
      throw py::error_already_set();
    }
    return !handle.listener.is_none() && handle.listener(done).is(py::bool_(false)) ? 1 : 0;
  } catch (...) {
    handle.interruption = std::current_exception();
    return 1;
  }
}

void BurstHandle::runJobs(void* self, int jobs, void (*job)(void* context, int number), void* context) {
  static_cast<BurstHandle*>(self)->pool->run(jobs, [=](int number) { job(context, number); });
}

py::tuple BurstHandle::reconstruct(const py::object& progress) {
  FloatArray image({2 * height, 2 * width});
  return work(progress, &image);
}

py::tuple BurstHandle::registerFrames(const py::object& progress) {
  return work(progress, nullptr);
}

py::tuple BurstHandle::work(const py::object& progress, FloatArray* image) {
  movra_sr_result result{};
  result.size = sizeof result;
  std::exception_ptr thrown;
  const movra_sr_status status = locked([&, pixels = image == nullptr ? nullptr : image->mutable_data()] {
    {
      const py::gil_scoped_acquire interpreter;
      listener = progress;
    }
    pool.emplace(threads);
    const movra_sr_status outcome = pixels == nullptr ? movra_sr_register(burst.get(), &result)
                                                      : movra_sr_reconstruct(burst.get(), pixels, 0, &result);
    pool.reset();
    const py::gil_scoped_acquire interpreter;
    listener = py::none();
    thrown = std::exchange(interruption, nullptr);
    return outcome;
  });
  if (thrown) {
    std::rethrow_exception(thrown);
  }
  py::dict particulars;
  particulars["frames"] = result.frames;
  particulars["used_frames"] = result.used_frames;
  particulars["reference"] = result.reference;
  particulars["sr_factor"] = result.sr_factor;
  particulars["noise"] = result.noise;
  particulars["weight_tv"] = result.weight_tv;
  particulars["psf_sigma"] = result.psf_sigma;
  particulars["iterations"] = result.iterations;
  particulars["timings"] = py::dict(py::arg("preparation") = result.seconds.preparation,
                                    py::arg("motion") = result.seconds.motion, py::arg("masks") = result.seconds.masks,
                                    py::arg("solve") = result.seconds.solve, py::arg("total") = result.seconds.total);
  particulars["doubtful_pixels"] = result.doubtful_pixels;
  const bool hasImage = status >= 0 && image != nullptr;
  return py::make_tuple(static_cast<int>(status), hasImage ? py::object(*image) : py::object(py::none()), particulars);
}

py::array_t<double> BurstHandle::shifts() const {
  const std::vector<double> pairs = locked([&] {
    std::vector<double> values(static_cast<std::size_t>(2 * movra_sr_frame_count(burst.get())));
    for (std::size_t i = 0; i < values.size(); i += 2) {
      movra_sr_shift(burst.get(), static_cast<int>(i / 2), &values[i], &values[i + 1]);
    }
    return values;
  });
  return py::array_t<double>({static_cast<py::ssize_t>(pairs.size() / 2), py::ssize_t{2}}, pairs.data());
}

py::tuple BurstHandle::shiftField() const {
  movra_sr_field grid{};
  grid.size = sizeof grid;
  int frames = 0;
  const std::vector<float> values = locked([&] {
    std::vector<float> all;
    frames = movra_sr_frame_count(burst.get());
    for (int i = 0; i < frames && movra_sr_shift_field(burst.get(), i, &grid, nullptr) == MOVRA_SR_SUCCESS; ++i) {
      const auto size = static_cast<std::size_t>(2 * grid.columns * grid.rows);
      all.resize(all.size() + size);
      movra_sr_shift_field(burst.get(), i, &grid, all.data() + all.size() - size);
    }
    return all;
  });
  return py::make_tuple(py::make_tuple(grid.left, grid.top, grid.step_x, grid.step_y),
                        FloatArray({frames, grid.rows, grid.columns, 2}, values.data()));
}

std::vector<std::string> BurstHandle::frameTexts() const {
  return locked([&] {
    std::vector<std::string> texts;
    while (const char* text = movra_sr_frame_text(burst.get(), static_cast<int>(texts.size()))) {
      texts.emplace_back(text);
    }
    return texts;
  });
}

py::array_t<unsigned short> BurstHandle::coverage() const {
  py::array_t<unsigned short> image({height, width});
  locked([&, pixels = image.mutable_data()] { return movra_sr_coverage(burst.get(), pixels, 0); });
  return image;
}

py::array_t<unsigned char> BurstHandle::foundBadPixels() const {
  py::array_t<unsigned char> map({height, width});
  locked([&, pixels = map.mutable_data()] { return movra_sr_found_bad_pixels(burst.get(), pixels, 0); });
  return map;
}

py::tuple BurstHandle::foundPattern() const {
  FloatArray pattern({height, width});
  FloatArray frames({height, width});
  locked([&, values = pattern.mutable_data(), counts = frames.mutable_data()] {
    return movra_sr_found_pattern(burst.get(), values, counts, 0);
  });
  return py::make_tuple(pattern, frames);
}

}  // namespace movra::python
