#pragma once

#include <numeric>
#include <vector>

namespace movra::test {

/// Every kind of factor, alone and together: all small lengths, sensor sizes, large primes.
inline std::vector<int> transformLengths() {
  std::vector<int> all(70);
  std::iota(all.begin(), all.end(), 1);
  for (const int n : {77, 80, 120, 121, 160, 191, 240, 288, 320, 382, 480, 512, 640, 1009}) {
    all.push_back(n);
  }
  return all;
}

}  // namespace movra::test
