#include "tests/support/Test.h"
#include "vision/superresolution/BadPixel.h"

using movra::test::textThrownBy;
using movra::vision::BadPixel;

namespace {

using Point = cv::Point_<unsigned int>;
using Reasons = std::vector<unsigned short>;
using List = cv::Mat_<unsigned short>;
using Row = cv::Vec<unsigned short, 10>;
using Rows = std::vector<Row>;

List listOf(const Rows& rows) {
  return List(cv::Mat(rows, true).reshape(1));
}

// A row with the pixel and, if given, its first replacement.
Row rowOf(int x, int y, int x1 = 0, int y1 = 0) {
  return cv::Vec<int, 10>(x, y, x1, y1);
}

Rows rowsOf(const cv::Mat& list) {
  Rows rows;
  for (int i = 0; i < list.rows; ++i) {
    rows.push_back(*list.ptr<Row>(i));
  }
  return rows;
}

}  // namespace

TEST(BadPixel, TwoNumbersAreRowAndColumnAndASetPointIsTransposed) {
  BadPixel pixel(7, 3, {Point(1, 2)}, {4});
  EXPECT_EQ(pixel.pos(), Point(3, 7));
  pixel.set(pixel.pos());
  EXPECT_EQ(pixel.pos(), Point(7, 3));
  unsigned int a = 0, b = 0;
  pixel.pos(a, b);
  EXPECT_EQ(Point(a, b), Point(pixel.y(), pixel.x()));
  pixel.addReplacementPixel(5, 6);
  pixel.addReplacementPixel(Point(5, 6));
  EXPECT_EQ(pixel.getReplacementPixels(), (std::vector<Point>{{1, 2}, {6, 5}, {5, 6}}));
  pixel.addDefectReasons({2, 5, 2, 4});
  EXPECT_EQ(pixel.retrieveDefectReasons(), (Reasons{4, 2, 5}));
}

TEST(BadPixel, TheHistogramCountsWhatLiesOutsideInItsEndBins) {
  const cv::Mat_<short> img = (cv::Mat_<short>(2, 4) << -32768, -3, -2, 0, 0, 2, 3, 32767);
  cv::Mat_<int> hist;
  ASSERT_TRUE(BadPixel::buildValueHistogram(img, hist, -2, 2));
  EXPECT_EQ(cv::countNonZero(hist != (cv::Mat_<int>(1, 5) << 3, 0, 2, 0, 3)), 0);
  ASSERT_TRUE(BadPixel::buildValueHistogram(img, hist, -32768, 32767));
  EXPECT_EQ(hist.cols, 65536);
  EXPECT_EQ(cv::sum(hist)[0], 8);
  EXPECT_FALSE(BadPixel::buildValueHistogram(img, hist, 2, 2));
  EXPECT_FALSE(BadPixel::buildValueHistogram({}, hist, 0, 2));
}

TEST(BadPixel, TheNeighbourSearchFindsExtremesAndThenRareValuesWithFewOthersNear) {
  for (const int low : {1, 45, 87})  // the window leaves the histogram at its start, nowhere, at its end
    for (const auto& [gap, nextGap] : {std::pair(5, 5), {5, 6}, {6, 5}}) {
      const int middle = low + gap, high = middle + nextGap;
      const cv::Mat_<short> whole = (cv::Mat_<short>(2, 4) << 100, high, low, 77, middle, 0, 100, 77);
      const cv::Mat_<short> img = whole.colRange(0, 3);
      cv::Mat_<int> hist;
      List list(7, 10);
      BadPixel::buildValueHistogram(img, hist, 0, 100);
      EXPECT_TRUE(BadPixel::performNeighbourSearch(img, hist, list, 0, 100, 3, 10));
      Rows expected{rowOf(0, 0, 3, 2), rowOf(1, 1, 3, 2), rowOf(2, 1, 3, 2)};
      if (gap + nextGap > 10)  // each has one other near it, else the three hide one another
        expected.insert(expected.end(), {rowOf(2, 0, 3, 2), rowOf(0, 1, 3, 2), rowOf(1, 0, 3, 2)});
      EXPECT_EQ(rowsOf(list), expected) << low << ' ' << gap << ' ' << nextGap;
    }
}

TEST(BadPixel, TheNeighbourSearchRefusesWhatItCannotSearch) {
  cv::Mat_<short> img(4, 5, static_cast<short>(50));
  img(0, 0) = 99;
  img(1, 1) = 1;
  img(2, 2) = 70;
  cv::Mat_<int> hist;
  BadPixel::buildValueHistogram(img, hist, 1, 99);
  List list;
  const auto search = [&](cv::Size listSize, cv::Mat_<int> bins, unsigned short maxCount = 2,
                          unsigned short window = 4) {
    list.create(listSize);
    return BadPixel::performNeighbourSearch(img, bins, list, 1, 99, maxCount, window);
  };
  EXPECT_FALSE(search({10, 1}, hist.clone())) << "two extremes";
  EXPECT_TRUE(list.empty());
  EXPECT_FALSE(search({10, 2}, hist.clone())) << "full before the first bin";
  EXPECT_EQ(list.rows, 2);
  EXPECT_FALSE(search({10, 20}, hist, 0) || search({10, 20}, hist, 2, 1) || search({9, 20}, hist));
  EXPECT_FALSE(search({10, 20}, {}));
  EXPECT_EQ(list.rows, 20) << "untouched";
}

TEST(BadPixel, TheQueryHoldsHalfDiscsOneRowOff) {
  using Entries = std::vector<std::pair<float, cv::Point>>;
  const auto entries = [](const auto& map) { return Entries(map.begin(), map.end()); };
  const auto one = BadPixel::computeReplacePixelQuery(1);
  const cv::Point offsets[] = {{0, 1}, {-1, 0}, {0, -1}, {1, 0}};
  ASSERT_EQ(one.size(), 4U);
  for (std::size_t k = 0; k < 4; ++k) {
    EXPECT_EQ(entries(one[k]), (Entries{{0, offsets[k]}}));
  }
  const auto two = BadPixel::computeReplacePixelQuery(2);
  EXPECT_EQ(entries(two[1]), (Entries{{0, {-1, 0}}, {1, {-1, 1}}, {1, {-1, -1}}, {1, {-2, 0}}}));
  for (const int radius : {0, std::numeric_limits<int>::min()})
    for (const auto& map : BadPixel::computeReplacePixelQuery(radius)) {
      EXPECT_TRUE(map.empty()) << radius;
    }
}

TEST(BadPixel, ReplacementsAreTheNearestGoodPixelOfEachDirectionByDistance) {
  // Downward and upward the nearest pixel is bad, and the next ones are equally far.
  const Rows bad{rowOf(10, 5), rowOf(10, 6), rowOf(10, 4), rowOf(0, 0)};
  const Rows expected{Row(10, 5, 9, 5, 11, 5, 11, 6, 9, 4), Row(10, 6, 10, 7, 9, 6, 11, 6, 9, 5),
                      Row(10, 4, 9, 4, 10, 3, 11, 4, 11, 5), Row(0, 0, 0, 1, 1, 0, 0, 1, 1, 0)};
  for (const unsigned int radius : {2U, 3U, 6U}) {
    List list = listOf(bad);
    EXPECT_TRUE(BadPixel::calculateReplacePixels(list, {20, 10}, radius));
    EXPECT_EQ(rowsOf(list), expected) << radius;
  }
  List list = listOf(bad);
  EXPECT_TRUE(BadPixel::calculateSingleReplacePixel(list, 0, {20, 10}, 2));
  EXPECT_EQ(rowsOf(list), (Rows{expected[0], bad[1], bad[2], bad[3]}));
}

template <class Integer>
void expectTheSetIsFilledAndUsed() {
  const BadPixel::Query query = BadPixel::computeReplacePixelQuery(2);
  List list = listOf({rowOf(5, 5), rowOf(5, 6)}), expected = list.clone();
  EXPECT_TRUE(BadPixel::calculateSingleReplacePixel(expected, 0, {20, 10}, query));
  std::set<Integer> badPositions;
  EXPECT_TRUE(BadPixel::calculateSingleReplacePixel(list, 0, {20, 10}, query, badPositions));
  EXPECT_EQ(rowsOf(list), rowsOf(expected));
  EXPECT_EQ(badPositions, (std::set<Integer>{105, 125}));
  badPositions = {Integer{1}};  // a set that is not empty is believed
  EXPECT_TRUE(BadPixel::calculateSingleReplacePixel(list, 0, {20, 10}, query, badPositions));
  EXPECT_EQ(rowsOf(list)[0], Row(5, 5, 5, 6, 4, 5, 5, 4, 6, 5));
}

TEST(BadPixel, TheSetOfBadPositionsHasAnyIntegerType) {
  expectTheSetIsFilledAndUsed<unsigned int>();
  expectTheSetIsFilledAndUsed<unsigned char>();
  expectTheSetIsFilledAndUsed<std::int64_t>();
}

TEST(BadPixel, TheSimpleNeighbourhoodFallsThroughToTheNextDirection) {
  List corner = listOf({rowOf(0, 0)});
  EXPECT_TRUE(BadPixel::calculateSingleReplacePixel(corner, 0, {20, 10}, 3));
  EXPECT_EQ(rowsOf(corner)[0], Row(0, 0, 1, 0, 1, 0, 0, 1, 1, 0));
  // Upward (5, 4), (5, 3) and (4, 4) are bad, so the fourth offset is taken; to the left the second.
  List middle = listOf({rowOf(5, 5), rowOf(5, 4), rowOf(5, 3), rowOf(4, 4), rowOf(4, 5)});
  EXPECT_TRUE(BadPixel::calculateSingleReplacePixelSimpleNhood(middle, 0, {20, 10}));
  EXPECT_EQ(rowsOf(middle)[0], Row(5, 5, 6, 4, 6, 5, 5, 6, 3, 5));
  EXPECT_FALSE(BadPixel::calculateSingleReplacePixelSimpleNhood(corner, 1, {20, 10}));
}

TEST(BadPixel, AnyListIsSafe) {
  List empty, nine(2, 9, static_cast<unsigned short>(0));
  EXPECT_FALSE(BadPixel::calculateSingleReplacePixel(empty, 0, {5, 5}, 3));
  EXPECT_TRUE(BadPixel::calculateReplacePixels(empty, {5, 5}, 2));
  EXPECT_FALSE(BadPixel::calculateReplacePixels(nine, {5, 5}, 2));
  const Rows before{rowOf(65535, 65535), rowOf(5, 2), rowOf(0, 65535)};
  List outside = listOf(before);
  for (const unsigned int radius : {0U, 0xffffffffU}) {
    EXPECT_FALSE(BadPixel::calculateReplacePixels(outside, {5, 5}, radius));
  }
  EXPECT_EQ(rowsOf(outside), before);
  EXPECT_FALSE(BadPixel::calculateReplacePixels(outside, {5, 5}, 2)) << "only the second is near the image";
  EXPECT_EQ(rowsOf(outside), (Rows{before[0], Row(5, 2, 4, 2, 4, 3, 4, 1, 4, 3), before[2]}));

  List longer(70000, 10, static_cast<unsigned short>(0));  // more rows than an index counts
  EXPECT_TRUE(BadPixel::calculateReplacePixels(longer, {20, 10}, 2));
  EXPECT_EQ(*longer.ptr<Row>(69999), Row(0, 0, 0, 1, 1, 0, 0, 1, 1, 0));
}

TEST(BadPixel, AppendingRecomputesWhatBecameBad) {
  const cv::Size size(20, 10);
  cv::Mat list;
  ASSERT_TRUE(BadPixel::appendBadPixel(listOf({rowOf(5, 5, 20, 10), rowOf(12, 5, 20, 10)}), list, size, 2));
  const Rows first = rowsOf(list);
  EXPECT_EQ(first[0], Row(5, 5, 5, 6, 4, 5, 5, 4, 6, 5));

  const Row replacesFirst(6, 5, 7, 7, 7, 7, 7, 7, 7, 7);
  const Row good(1, 1, 1, 2, 0, 1, 1, 0, 2, 1);
  const Row byOld(15, 8, 12, 5, 7, 7, 7, 7, 7, 7);
  const Row byOutside(17, 7, 7, 7, 7, 7, 7, 7, 7, 10);
  ASSERT_TRUE(BadPixel::appendBadPixel(listOf({replacesFirst, good, byOld, byOutside}), list, size, 2));
  const Rows combined = rowsOf(list);
  EXPECT_EQ(combined, (Rows{Row(5, 5, 5, 6, 4, 5, 5, 4, 6, 4), first[1], replacesFirst, good,
                            Row(15, 8, 15, 9, 14, 8, 15, 7, 16, 8), Row(17, 7, 17, 8, 16, 7, 17, 6, 18, 7)}));

  EXPECT_TRUE(BadPixel::appendBadPixel(List(0, 10), list, size, 2));
  EXPECT_FALSE(BadPixel::appendBadPixel(List(1, 9), list, size, 2));
  EXPECT_FALSE(BadPixel::appendBadPixel(cv::Mat(1, 10, CV_16SC1), list, size, 2));
  EXPECT_EQ(rowsOf(list), combined);
}

TEST(BadPixel, SquaresAreDrawnAroundTheListedPixels) {
  const cv::Scalar red(0, 0, 255);
  cv::Mat_<cv::Vec3b> img(10, 20, cv::Vec3b(0, 0, 0)), expected = img.clone();
  expected(cv::Rect(4, 3, 3, 3)).setTo(red);
  expected(4, 5) = cv::Vec3b(0, 0, 0);
  const List one = listOf({rowOf(5, 4)});
  BadPixel::drawBadPixels(one, img, red, 3, false);
  BadPixel::drawBadPixels(one, img, red, 0xffffffffU, false);  // no side lies in the image
  EXPECT_EQ(cv::norm(img, expected, cv::NORM_INF), 0);

  BadPixel::drawBadPixels(listOf({rowOf(0, 9), rowOf(19, 0)}), img, red, 1, true);
  EXPECT_NE(img(9, 0), img(0, 19)) << "a random colour each";

  const auto draw = [&](const cv::Mat& list) {
    return textThrownBy([&] { BadPixel::drawBadPixels(list, img, red, 1, false); });
  };
  for (const cv::Mat& list : {cv::Mat(1, 9, CV_16UC1), cv::Mat(1, 10, CV_16SC1)}) {
    EXPECT_EQ(draw(list), "exception: ERROR: \t >>Unspported BadPixel format!!");
  }
  EXPECT_EQ(draw(listOf({rowOf(2, 2), rowOf(3, 10)})), "exception: ERROR: \t >>BadPixel [10,3] out of bounds ");
}
