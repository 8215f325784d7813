#include "vision/superresolution/reference/SuperResolutionConvolution.h"

#include "tests/support/SparseArrays.h"
#include "tests/support/Test.h"

using namespace movra::test;
using movra::vision::SuperResolutionConvolution;

TEST(SuperResolutionConvolution, ImagingFollowsItsDefinitionAndTheTransposeIsAdjoint) {
  for (const int factor : {1, 2, 3})
    for (const int hrWidth : {1, 7, 12, 37})
      for (const int psfHeight : {1, 3 * factor}) {
        const auto scale = static_cast<float>(factor);
        SparseArrays c{hrWidth, 13, 3 * factor, psfHeight, scale};
        c.roundToIntegers();
        SuperResolutionConvolution operators(hrWidth, 13, 3 * factor, psfHeight, scale);
        EXPECT_EQ(c.imaged(operators), c.imagedByDefinition(factor, factor)) << c.name();
        const auto [imaging, transpose] = c.adjointProducts(operators);
        EXPECT_EQ(imaging, transpose) << c.name();
      }
}

TEST(SuperResolutionConvolution, ImpossibleSizesThrow) {
  const int huge = std::numeric_limits<int>::max();
  EXPECT_THROW(SuperResolutionConvolution(-1, 4, 6, 6, 2.0f), std::bad_array_new_length);
  EXPECT_THROW(SuperResolutionConvolution(huge, huge, 1, 1, 2.0f), std::bad_array_new_length);
}
