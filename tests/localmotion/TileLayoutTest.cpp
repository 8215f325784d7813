#include "vision/superresolution/detail/localmotion/TileLayout.h"

#include <gtest/gtest.h>

using movra::vision::detail::TileAxis;

TEST(TileAxis, CoversEveryPlaceWithWeightsThatSumToOne) {
  for (const int extent : {8, 9, 31, 64, 97, 240}) {
    for (const int core : {8, 13, 64, 500}) {
      const TileAxis axis(extent, core, 6);
      for (int place = 0; place < 2 * extent; ++place) {
        float sum = 0;
        int last = -3;
        for (int i = 0; i < axis.count(); ++i) {
          const float weight = axis.weight(i, place);
          const bool inside = place >= 2 * axis.begin(i) && place < 2 * (axis.begin(i) + axis.length());
          EXPECT_TRUE(weight == 0 || inside) << extent << " " << core << " " << place << " " << i;
          // Tiles of one group, which may run at once, touch no common place.
          EXPECT_TRUE(weight == 0 || i - last != 2) << extent << " " << core << " " << place << " " << i;
          last = weight > 0 ? i : last;
          sum += weight;
        }
        EXPECT_NEAR(static_cast<double>(sum), 1, 1e-6) << extent << " " << core << " " << place;
      }
    }
  }
}
