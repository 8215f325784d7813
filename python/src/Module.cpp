// The part of the Python module that is not Python: the C interface's burst, and what the tool's simulation and comparison
// compute. What users see, checks and conversions included, is in python/movra_sr.
#include <pybind11/stl.h>

#include <tuple>

#include "movra/Exception.h"
#include "python/src/Arrays.h"
#include "python/src/BurstHandle.h"
#include "tools/movra-sr/report/Quality.h"
#include "tools/movra-sr/simulation/Burst.h"
#include "tools/movra-sr/simulation/Scene.h"
#include "vision/superresolution/EdgePsf.h"

namespace py = pybind11;

namespace movra::python {

namespace {

/// Frames (n x rows x columns), truth, shifts at the middle (n x 2), and the number of the reference.
py::tuple simulate(int width, int height, int frames, std::uint64_t seed, double psfSigma,
                   const tool::MotionModel& motion, const tool::FaultModel& faults) {
  tool::SimulatedCamera camera;
  camera.frameSize = {width, height};
  camera.frameCount = frames;
  camera.seed = seed;
  camera.psfSigma = psfSigma;
  camera.motion = motion;
  camera.faults = faults;
  tool::SimulatedBurst burst;
  {
    const py::gil_scoped_release released;
    const int margin = tool::sceneMargin(camera);
    burst = tool::simulateBurst(tool::drawScene({2 * (width + margin), 2 * (height + margin)}, seed), camera);
  }
  FloatArray stack({frames, height, width});
  py::array_t<double> shifts({frames, 2});
  for (int i = 0; i < frames; ++i) {
    const auto index = static_cast<std::size_t>(i);
    std::copy(burst.frames[index].begin(), burst.frames[index].end(), stack.mutable_data(i, 0, 0));
    shifts.mutable_at(i, 0) = burst.motions[index].camera.x;
    shifts.mutable_at(i, 1) = burst.motions[index].camera.y;
  }
  return py::make_tuple(stack, arrayOf(burst.truth), shifts, burst.reference);
}

py::tuple compare(const FloatArray& image, const FloatArray& truth) {
  const cv::Mat_<float> a = matrixOf(image);
  const cv::Mat_<float> b = matrixOf(truth);
  const py::gil_scoped_release released;
  const double ratio = tool::peakSignalToNoise(a, b);
  const double similarity = tool::structuralSimilarity(a, b);
  const py::gil_scoped_acquire interpreter;
  return py::make_tuple(ratio, similarity);
}

/// Outcome in words, whether it was measured, (total, uncertainty) along x and y or None, and which lines are interpolated.
py::tuple measurePsf(const FloatArray& frame) {
  const auto [data, rows, columns] = std::tuple(frame.data(), frame.shape(0), frame.shape(1));
  vision::EdgePsfReport report;
  {
    const py::gil_scoped_release released;
    report = vision::EdgePsf::measure(data, static_cast<int>(columns), static_cast<int>(rows));
  }
  const auto blur = [](const vision::DirectionBlur& direction) -> py::object {
    return direction.windows == 0 ? py::object(py::none()) : py::make_tuple(direction.total, direction.uncertainty);
  };
  return py::make_tuple(std::string(toString(report.outcome)), report.outcome == vision::EdgeOutcome::measured,
                        blur(report.x), blur(report.y), std::string(toString(report.interpolated)));
}

}  // namespace

PYBIND11_MODULE(_core, module) {
  module.doc() = "Compiled part of movra_sr; use that instead.";
  py::register_exception_translator([](std::exception_ptr thrown) {
    try {
      std::rethrow_exception(thrown);
    } catch (const movra::Exception& exception) {
      PyErr_SetString(PyExc_ValueError, exception.what());
    } catch (const cv::Exception& exception) {
      PyErr_SetString(PyExc_RuntimeError, exception.what());
    } catch (const char* text) {
      PyErr_SetString(PyExc_ValueError, text);
    }
  });

  module.def("version", [] { return std::string(movra_sr_version_text()); });
  module.def("status_text", &movra_sr_status_text, py::arg("status"));

  const auto dense = py::arg("frame").noconvert();
  py::class_<BurstHandle>(module, "BurstHandle")
      .def(py::init<int, int, const py::dict&>(), py::arg("width"), py::arg("height"), py::arg("options"))
      .def("add_frame", &BurstHandle::addFrame, dense)
      .def("set_bad_pixels", &BurstHandle::setBadPixels, py::arg("bad_pixels"))
      .def("set_pattern", &BurstHandle::setPattern, py::arg("pattern"))
      .def("clear", &BurstHandle::clear)
      .def("frame_count", &BurstHandle::frameCount)
      .def("error_text", &BurstHandle::errorText)
      .def("reconstruct", &BurstHandle::reconstruct, py::arg("progress"))
      .def("register", &BurstHandle::registerFrames, py::arg("progress"))
      .def("found_bad_pixels", &BurstHandle::foundBadPixels)
      .def("found_pattern", &BurstHandle::foundPattern)
      .def("shifts", &BurstHandle::shifts)
      .def("shift_field", &BurstHandle::shiftField)
      .def("coverage", &BurstHandle::coverage)
      .def("frame_texts", &BurstHandle::frameTexts);

  module.def(
      "simulate",
      [](int width, int height, int frames, std::uint64_t seed, double psfSigma, double maxShift, double roll,
         double zoom, double parallax, double shutter, double noise, double drift, double pattern, int stuck) {
        tool::MotionModel motion;
        motion.maxShift = maxShift;
        motion.roll = roll;
        motion.zoom = zoom;
        motion.parallax = parallax;
        motion.shutter = shutter;
        tool::FaultModel faults;
        faults.noise = noise;
        faults.drift = drift;
        faults.pattern = pattern;
        faults.stuck = stuck;
        return simulate(width, height, frames, seed, psfSigma, motion, faults);
      },
      py::kw_only(), py::arg("width"), py::arg("height"), py::arg("frames"), py::arg("seed"), py::arg("psf_sigma"),
      py::arg("max_shift"), py::arg("roll"), py::arg("zoom"), py::arg("parallax"), py::arg("shutter"), py::arg("noise"),
      py::arg("drift"), py::arg("pattern"), py::arg("stuck"));
  module.def("compare", &compare, py::arg("image").noconvert(), py::arg("truth").noconvert());
  module.def("measure_psf", &measurePsf, dense);
  module.def(
      "enlarge", [](const FloatArray& frame) { return arrayOf(tool::enlargeBicubically(matrixOf(frame))); }, dense);
}

}  // namespace movra::python
