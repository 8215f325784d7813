#pragma once

#include <pybind11/numpy.h>

#include <opencv2/core.hpp>
#include <vector>

namespace movra::python {

using FloatArray = pybind11::array_t<float>;

/// A new array of the shape rows x columns with the matrix's values.
template <class T>
pybind11::array_t<T> arrayOf(const cv::Mat_<T>& image) {
  pybind11::array_t<T> array({image.rows, image.cols});
  for (int y = 0; y < image.rows; ++y) {
    std::copy_n(image.template ptr<T>(y), image.cols, array.mutable_data(y, 0));
  }
  return array;
}

/// A matrix header over a dense two-dimensional array, which has to outlive it.
inline cv::Mat_<float> matrixOf(const FloatArray& array) {
  return {static_cast<int>(array.shape(0)), static_cast<int>(array.shape(1)), const_cast<float*>(array.data())};
}

}  // namespace movra::python
