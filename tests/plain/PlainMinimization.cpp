#include "tests/plain/PlainMinimization.h"

#include <algorithm>
#include <cmath>

#include "vision/superresolution/detail/base/ErrorFunction.h"

namespace movra::test {

namespace {

constexpr int factor = 2;
constexpr int taps = 6;

template <class T, class Term>
T sum(std::size_t count, Term term) {
  T lanes[16] = {};
  for (std::size_t i = 0; i < count; ++i) {
    lanes[i % 16] += term(i);
  }
  for (int half = 8; half > 0; half /= 2) {
    for (int l = 0; l < half; ++l) {
      lanes[l] += lanes[l + half];
    }
  }
  return lanes[0];
}

float dot(const Image& a, const Image& b) {
  return sum<float>(a.size(), [&](std::size_t i) { return a[i] * b[i]; });
}

// The Gaussian's mass on each cell of the kernel; the outer cells stay empty.
std::vector<float> basePsf(float sigma) {
  const float q = 1.0f / (sigma * 1.4142135f);
  const float inner = 0.5f * vision::detail::approximateErf(q);
  const float outer = 0.5f * (vision::detail::approximateErf(2.0f * q) - vision::detail::approximateErf(q));
  const float total = 2.0f * inner + 2.0f * outer;
  return {0.0f / total, outer / total, inner / total, inner / total, outer / total, 0.0f / total};
}

std::vector<float> movedPsf(const std::vector<float>& base, float d) {
  std::vector<float> moved(taps, 0.0f);
  for (std::size_t j = 0; j < taps; ++j) {
    if (d < 0 && j > 0) {
      moved[j] = base[j - 1] * -d + base[j] * (1.0f + d);
    } else if (!(d < 0) && j + 1 < taps) {
      moved[j] = base[j] * (1.0f - d) + base[j + 1] * d;
    }
  }
  return moved;
}

}  // namespace

void PlainTv::freezeAt(const float* x, float coefficient, float epsilon) {
  const float invEpsilon = 1.0f / epsilon;
  const auto clamp = [=](float d) { return epsilon < d ? (invEpsilon <= d ? invEpsilon : d) : epsilon; };
  const auto axis = [=](float a, float b) { return coefficient / clamp(std::abs(a - b)); };
  const auto diagonal = [=](float a, float b) { return coefficient / clamp(std::abs(a - b) * 0.70710677f) * 0.5f; };
  const std::size_t w = static_cast<std::size_t>(width), count = size();
  for (std::size_t i = 0; i + 1 < count; ++i) {
    right[i] = axis(x[i + 1], x[i]);
  }
  for (std::size_t i = 0; i + w < count; ++i) {
    down[i] = axis(x[i + w], x[i]);
    downLeft[i] = diagonal(x[i + w - 1], x[i]);
  }
  for (std::size_t i = 0; i + w + 1 < count; ++i) {
    downRight[i] = diagonal(x[i + w + 1], x[i]);
  }
  right[0] = axis(x[2], x[1]);
  down[0] = axis(x[w + 1], x[1]);
  downRight[0] = diagonal(x[w + 2], x[1]);
  for (std::size_t row = 0; row < count; row += w) {
    right[row + w - 1] = downRight[row + w - 1] = downLeft[row] = 0;
  }
  for (std::size_t i = 0; i < count; ++i) {
    centre[i] = -sumOverNeighbours(static_cast<std::ptrdiff_t>(i), 0.0f, [](std::ptrdiff_t) { return 1.0f; });
  }
}

void PlainTv::apply(const float* x, float* out) const {
  const std::ptrdiff_t w = width, count = static_cast<std::ptrdiff_t>(size());
  const auto atTheEnds = [&](std::ptrdiff_t i) {
    out[i] = sumOverNeighbours(i, centre[static_cast<std::size_t>(i)] * x[i], [=](std::ptrdiff_t j) { return x[j]; });
  };
  for (std::ptrdiff_t i = 0; i <= w; ++i) {
    atTheEnds(i);
  }
  const float *c = centre.data(), *r = right.data(), *d = down.data(), *dl = downLeft.data(), *dr = downRight.data();
  for (std::ptrdiff_t i = w + 1; i < count - w - 1; ++i) {
    out[i] = c[i] * x[i] + r[i - 1] * x[i - 1] + r[i] * x[i + 1] + d[i - w] * x[i - w] + d[i] * x[i + w] +
             dr[i - w - 1] * x[i - w - 1] + dr[i] * x[i + w + 1] + dl[i - w + 1] * x[i - w + 1] + dl[i] * x[i + w - 1];
  }
  for (std::ptrdiff_t i = count - w - 1; i < count; ++i) {
    atTheEnds(i);
  }
}

// Adds weight times value of the eight neighbours, of which those outside the image are left out.
template <class Value>
float PlainTv::sumOverNeighbours(std::ptrdiff_t i, float total, Value value) const {
  const std::ptrdiff_t w = width;
  const auto add = [&](const Image& weights, std::ptrdiff_t edge, std::ptrdiff_t neighbour) {
    if (neighbour >= 0 && neighbour < static_cast<std::ptrdiff_t>(size())) {
      total += weights[static_cast<std::size_t>(edge)] * value(neighbour);
    }
  };
  add(right, i - 1, i - 1);
  add(right, i, i + 1);
  add(down, i - w, i - w);
  add(down, i, i + w);
  add(downRight, i - w - 1, i - w - 1);
  add(downRight, i, i + w + 1);
  add(downLeft, i - w + 1, i - w + 1);
  add(downLeft, i, i + w - 1);
  return total;
}

PlainMinimization::PlainMinimization(int width_, int height_, int frameCount)
    : width(width_),
      height(height_),
      tv{factor * width_ + taps - 1, factor * height_ + taps - 1},
      convolution(factor * width_, factor * height_, taps, taps, factor),
      psfX(static_cast<std::size_t>(frameCount)),
      psfY(psfX),
      lowResBuffer(static_cast<std::size_t>(width) * static_cast<std::size_t>(height)),
      frameBuffer(tv.size()),
      rhs(tv.size()),
      estimate(tv.size()),
      residual(tv.size()),
      direction(tv.size()),
      directionImage(tv.size()) {}

int PlainMinimization::minimize(int frameCount, int refIndex, float** frames, Shift* shifts, char** masks, float* out) {
  const std::size_t size = lowResBuffer.size();
  const float* reference = frames[refIndex];
  const double mean =
      sum<double>(size, [=](std::size_t i) { return double{reference[i]}; }) / static_cast<double>(size);
  const double variance =
      sum<double>(size, [=](std::size_t i) { return (double{reference[i]} - mean) * (double{reference[i]} - mean); }) /
      static_cast<double>(size);
  const float m = static_cast<float>(mean);
  const float s = std::sqrt(static_cast<float>(variance));
  const std::vector<float> psf = basePsf(psfSigma);
  std::fill(rhs.begin(), rhs.end(), 0.0f);
  for (int k = 0; k < frameCount; ++k) {
    for (std::size_t i = 0; i < size; ++i) {
      frames[k][i] = (frames[k][i] - m) / s;
    }
    psfX[static_cast<std::size_t>(k)] = movedPsf(psf, shifts[k].x * factor);
    psfY[static_cast<std::size_t>(k)] = movedPsf(psf, shifts[k].y * factor);
    addTranspose(frames[k], k, masks[k], rhs.data());
  }
  invRhsNorm2 = static_cast<float>(
      1.0 / sum<double>(rhs.size(), [this](std::size_t i) { return static_cast<double>(rhs[i] * rhs[i]); }));
  estimate = rhs;

  applications = 0;
  int total = 0;
  for (int pass = 0; pass < maxIter; ++pass) {
    const int made = conjugateGradients(frameCount, masks, maxIter - total);
    total += made;
    if (made == 0) {
      break;
    }
  }
  constexpr int margin = (taps - 1) / 2;
  for (int y = 0; y < factor * height; ++y) {
    for (int x = 0; x < factor * width; ++x) {
      out[y * factor * width + x] = s * estimate[static_cast<std::size_t>((y + margin) * tv.width + x + margin)] + m;
    }
  }
  return total;
}

int PlainMinimization::conjugateGradients(int frameCount, char** masks, int maxIterations) {
  tv.freezeAt(estimate.data(), -1.0f / weightTV, epsilon);
  gradient(estimate.data(), frameCount, masks, residual.data());
  for (std::size_t i = 0; i < residual.size(); ++i) {
    residual[i] = rhs[i] - residual[i];
  }
  direction = residual;
  residualNorm2 = dot(residual, residual);
  if (relRes * relRes > residualNorm2 * invRhsNorm2) {
    return 0;
  }
  for (int i = 0; i < maxIterations; ++i) {
    if (iteration(frameCount, masks)) {
      return i + 1;
    }
  }
  return maxIterations;
}

bool PlainMinimization::iteration(int frameCount, char** masks) {
  gradient(direction.data(), frameCount, masks, directionImage.data());
  const float alpha = residualNorm2 / dot(direction, directionImage);
  for (std::size_t i = 0; i < estimate.size(); ++i) {
    estimate[i] += alpha * direction[i];
  }
  for (std::size_t i = 0; i < residual.size(); ++i) {
    residual[i] -= alpha * directionImage[i];
  }
  const float newNorm2 = dot(residual, residual);
  if (relRes * relRes > invRhsNorm2 * newNorm2) {
    return true;
  }
  const float beta = newNorm2 / residualNorm2;
  for (std::size_t i = 0; i < direction.size(); ++i) {
    direction[i] = beta * direction[i] + residual[i];
  }
  residualNorm2 = newNorm2;
  return false;
}

void PlainMinimization::gradient(float* x, int frameCount, char** masks, float* out) {
  ++applications;
  tv.apply(x, out);
  for (int k = 0; k < frameCount; ++k) {
    const auto index = static_cast<std::size_t>(k);
    convolution.validCorrToSparse(x, psfX[index].data(), psfY[index].data(), lowResBuffer.data());
    addTranspose(lowResBuffer.data(), k, masks[k], out);
  }
}

void PlainMinimization::addTranspose(float* image, int k, char* mask, float* out) {
  const auto index = static_cast<std::size_t>(k);
  convolution.fullConvFromSparse(image, psfX[index].data(), psfY[index].data(), mask, frameBuffer.data());
  for (std::size_t i = 0; i < frameBuffer.size(); ++i) {
    out[i] += frameBuffer[i];
  }
}

}  // namespace movra::test
