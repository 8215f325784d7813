#pragma once

namespace movra::vision::detail {

/// Number of partial sums of every sum over an image: number l has the elements i with i mod 16 = l in ascending order.
constexpr int partialSums = 16;

/// Combines the partial sums: l with l + 8, then with l + 4, l + 2, l + 1.
template <class T>
T combineSums(const T* partial) {
  T sums[partialSums];
  for (int l = 0; l < partialSums; ++l) {
    sums[l] = partial[l];
  }
  for (int half = partialSums / 2; half > 0; half /= 2) {
    for (int l = 0; l < half; ++l) {
      sums[l] = sums[l] + sums[l + half];
    }
  }
  return sums[0];
}

}  // namespace movra::vision::detail
