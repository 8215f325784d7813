#include "vision/superresolution/CvReplacements.h"

#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>

#include "tests/support/Test.h"
#include "vision/superresolution/detail/registration/CornerTracking.h"

namespace movra::vision {
namespace {

using namespace movra::test;

const cv::TermCriteria usual(cv::TermCriteria::COUNT + cv::TermCriteria::EPS, 30, 0.01);

cv::Mat noise(cv::RNG& random, cv::Size size, int type, int kind) {
  cv::Mat image(size, type);
  random.fill(image, cv::RNG::UNIFORM, 0, 256);
  if (kind % 3 == 1) {
    cv::GaussianBlur(image, image, {9, 9}, 0);
    cv::normalize(image, image, 0, 255, cv::NORM_MINMAX);
  } else if (kind % 3 == 2) {  // the largest differences there are
    cv::resize(image, image, {}, 0.3, 0.3, cv::INTER_NEAREST);
    cv::threshold(image, image, 127, 255, cv::THRESH_BINARY);
    cv::resize(image, image, size, 0, 0, cv::INTER_NEAREST);
  }
  return image;
}

struct Tracks {
  std::vector<cv::Point2f> points;
  std::vector<unsigned char> status;
  std::vector<float> errors;
};

using Tracker = decltype(&CvReplacements::calcOpticalFlowPyrLK);

struct Settings {
  cv::Size window{21, 21};
  int levels = 3;
  cv::TermCriteria criteria = usual;
  int flags = 0;
  double threshold = 1e-4;
};

template <class Image>
Tracks tracksBy(Tracker track, const Image& from, const Image& to, const std::vector<cv::Point2f>& points,
                const Settings& s, const std::vector<cv::Point2f>& start = {}) {
  Tracks result{start, {}, {}};
  track(from, to, points, result.points, result.status, result.errors, s.window, s.levels, s.criteria, s.flags,
        s.threshold);
  return result;
}

template <class Image>
int expectSameTracks(const Image& from, const Image& to, const std::vector<cv::Point2f>& points, const Settings& s,
                     const std::vector<cv::Point2f>& start = {}) {
  const Tracks expected = tracksBy(cv::calcOpticalFlowPyrLK, from, to, points, s, start);
  const Tracks tracks = tracksBy(CvReplacements::calcOpticalFlowPyrLK, from, to, points, s, start);
  EXPECT_EQ(tracks.status, expected.status);
  EXPECT_EQ(tracks.points, expected.points);
  EXPECT_EQ(tracks.errors, expected.errors);
  return static_cast<int>(std::count(expected.status.begin(), expected.status.end(), 1));
}

std::vector<cv::Point2f> scattered(cv::RNG& random, cv::Size size, int count) {
  std::vector<cv::Point2f> points;
  for (int i = 0; i < count; ++i) {
    points.emplace_back(random.uniform(-30.0f, static_cast<float>(size.width + 30)),
                        random.uniform(-30.0f, static_cast<float>(size.height + 30)));
  }
  return points;
}

TEST(CvReplacements, TracksLikeTheLibraryFunctionBitForBit) {
  cv::setNumThreads(1);
  onEveryInstructionSet([] {
    cv::RNG random(11);
    int tracked = 0;
    for (int trial = 0; trial < 240; ++trial) {
      SCOPED_TRACE(trial);
      const cv::Size size(random.uniform(3, 140), random.uniform(3, 140));
      const int type = trial % 7 == 0 ? CV_8UC3 : CV_8UC1;
      const cv::Mat from = noise(random, size, type, trial);
      const cv::Mat to = trial % 2 == 0 ? noise(random, size, type, trial) : cv::Mat(from.clone());
      Settings s;
      if (trial % 3 == 1) {
        s.window = {random.uniform(3, 30), random.uniform(3, 30)};
      }
      s.levels = random.uniform(0, 5);
      s.criteria = {trial % 4, random.uniform(-1, 40), random.uniform(0.0, 0.5)};
      s.flags =
          (trial % 5 == 0 ? cv::OPTFLOW_USE_INITIAL_FLOW : 0) + (trial % 5 < 2 ? cv::OPTFLOW_LK_GET_MIN_EIGENVALS : 0);
      s.threshold = trial % 6 == 0 ? 1.0 : 1e-4;
      const std::vector<cv::Point2f> points = scattered(random, size, 60);
      const auto start = trial % 5 == 0 ? scattered(random, size, 60) : std::vector<cv::Point2f>();
      tracked += expectSameTracks(from, to, points, s, start);
    }
    EXPECT_GT(tracked, 3000);
  });
}

// Corners of noise are led astray, some of them out of the image by their last step.
TEST(CornerTracking, LosesTheCornersThatTheLibraryFunctionLosesWhenAskedForErrors) {
  cv::RNG random(5);
  int tracked = 0, lostByTheirLastStep = 0;
  for (int trial = 0; trial < 60; ++trial) {
    const cv::Size size(random.uniform(24, 84), random.uniform(24, 84));
    const auto pyramid = [&] {
      std::vector<cv::Mat> made;
      cv::buildOpticalFlowPyramid(noise(random, size, CV_8U, 1), made, {21, 21}, 3);
      return made;
    };
    const auto from = pyramid();
    std::vector<cv::Point2f> corners, unused;
    for (int i = 0; i < size.area(); i += 25) {
      corners.emplace_back(i % size.width, i / size.width);
    }
    std::vector<std::vector<cv::Mat>> images;
    std::vector<Tracks> expected;
    for (int k = 0; k <= trial % 6; ++k) {  // searched side by side
      images.push_back(pyramid());
      expected.push_back(tracksBy(cv::calcOpticalFlowPyrLK, from, images.back(), corners, {}));
      std::vector<unsigned char> withoutErrors;
      cv::calcOpticalFlowPyrLK(from, images.back(), corners, unused, withoutErrors, cv::noArray(), {21, 21}, 3, usual);
      tracked += static_cast<int>(cv::sum(expected.back().status)[0]);
      lostByTheirLastStep += static_cast<int>(cv::sum(withoutErrors)[0] - cv::sum(expected.back().status)[0]);
    }
    std::vector<const std::vector<cv::Mat>*> to;
    for (const auto& image : images) {
      to.push_back(&image);
    }
    onEveryInstructionSet([&] {
      const auto tracks = detail::trackCorners(from, to, corners, 21, 3);
      for (std::size_t k = 0; k < to.size(); ++k) {
        EXPECT_EQ(tracks[k].positions, expected[k].points);
        EXPECT_EQ(tracks[k].isTracked, expected[k].status);
      }
    });
  }
  EXPECT_GT(tracked, 1000);
  EXPECT_GT(lostByTheirLastStep, 0);
}

// Matrices and their margins.
void expectSamePyramids(const cv::Mat& image, cv::Size window, int levels, bool derivatives, int border,
                        int derivativeBorder, bool reuse) {
  std::vector<cv::Mat> expected;
  std::vector<cv::Mat> pyramid;
  const int top =
      cv::buildOpticalFlowPyramid(image, expected, window, levels, derivatives, border, derivativeBorder, reuse);
  for (int again = 0; again < 2; ++again) {
    EXPECT_EQ(CvReplacements::buildOpticalFlowPyramid(image, pyramid, window, levels, derivatives, border,
                                                      derivativeBorder, reuse),
              top);
    ASSERT_EQ(pyramid.size(), expected.size());
    EXPECT_EQ(pyramid[0].data == image.data, expected[0].data == image.data);
    for (std::size_t i = 0; i < pyramid.size(); ++i) {
      cv::Mat mine = pyramid[i];
      cv::Mat theirs = expected[i];
      if ((derivatives && i % 2 == 1 ? derivativeBorder : border) != cv::BORDER_TRANSPARENT) {
        mine.adjustROI(window.height, window.height, window.width, window.width);
        theirs.adjustROI(window.height, window.height, window.width, window.width);
      }
      ASSERT_EQ(mine.size(), theirs.size());
      ASSERT_EQ(mine.type(), theirs.type());
      EXPECT_EQ(cv::norm(mine, theirs, cv::NORM_INF), 0) << i;
    }
  }
}

TEST(CvReplacements, BuildsTheLibraryFunctionsPyramid) {
  cv::RNG random(12);
  for (int trial = 0; trial < 100; ++trial) {
    SCOPED_TRACE(trial);
    const cv::Mat whole =
        noise(random, {random.uniform(1, 150), random.uniform(1, 150)}, trial % 3 == 0 ? CV_8UC3 : CV_8UC1, trial);
    const cv::Rect part(0, 0, random.uniform(1, whole.cols + 1), random.uniform(1, whole.rows + 1));
    const cv::Point offset(random.uniform(0, whole.cols - part.width + 1),
                           random.uniform(0, whole.rows - part.height + 1));
    const cv::Size window(random.uniform(3, 24), random.uniform(3, 24));
    const int borders[] = {cv::BORDER_REFLECT_101, cv::BORDER_CONSTANT, cv::BORDER_REPLICATE, cv::BORDER_TRANSPARENT};
    expectSamePyramids(whole(part + offset), window, trial % 5, trial % 2 == 0, borders[trial % 4],
                       borders[trial / 4 % 4], trial / 16 % 2 == 0);
  }
}

TEST(CvReplacements, LosesPointsThatAreNowhereAndRefusesWhatItCannotRead) {
  cv::RNG random(13);
  const cv::Mat image = noise(random, {64, 48}, CV_8UC1, 1);
  const float far = std::numeric_limits<float>::max();
  const std::vector<cv::Point2f> nowhere{{notANumber, 5}, {5, infinity}, {-infinity, 5},
                                         {far, far},      {-far, 5},     {3e9f, 5}};
  const Tracks tracks = tracksBy(CvReplacements::calcOpticalFlowPyrLK, image, image, nowhere, {});
  EXPECT_EQ(tracks.status, std::vector<unsigned char>(nowhere.size(), 0));
  Tracks none = tracksBy(CvReplacements::calcOpticalFlowPyrLK, image, image, {}, {});
  EXPECT_TRUE(none.points.empty() && none.status.empty() && none.errors.empty());

  std::vector<cv::Point2f> points{{20, 20}};  // also where they go
  std::vector<unsigned char> status;
  CvReplacements::calcOpticalFlowPyrLK(image, image, points, points, status, cv::noArray());
  EXPECT_EQ(points, std::vector<cv::Point2f>({{20, 20}}));

  std::vector<cv::Mat> pyramid;
  const auto build = [&](const cv::Mat& of, cv::Size window, int levels) {
    return textThrownBy([&] { CvReplacements::buildOpticalFlowPyramid(of, pyramid, window, levels); });
  };
  EXPECT_NE(build({}, {21, 21}, 3), "");
  EXPECT_NE(build(cv::Mat_<float>(9, 9), {21, 21}, 3), "");
  EXPECT_NE(build(image, {2, 21}, 3), "");
  EXPECT_NE(build(image, {21, 5000}, 3), "");
  EXPECT_NE(build(image, {21, 21}, -1), "");
  ASSERT_EQ(build(image, {21, 21}, 3), "");

  const auto track = [&](const std::vector<cv::Mat>& from, const std::vector<cv::Mat>& to, const Settings& s) {
    return textThrownBy([&] { tracksBy(CvReplacements::calcOpticalFlowPyrLK, from, to, points, s); });
  };
  EXPECT_EQ(track(pyramid, pyramid, {}), "");
  EXPECT_NE(track({}, pyramid, {}), "");
  EXPECT_NE(track({image}, pyramid, {}), "");  // without margins
  EXPECT_NE(track(pyramid, pyramid, {{22, 21}}), "");
  EXPECT_NE(track(pyramid, pyramid, {{21, 21}, -1}), "");
  EXPECT_NE(track(pyramid, pyramid, {{21, 21}, 3, usual, cv::OPTFLOW_USE_INITIAL_FLOW}),
            "");  // no points to begin with
  std::vector<cv::Mat> other;
  CvReplacements::buildOpticalFlowPyramid(noise(random, {65, 48}, CV_8UC1, 0), other, {21, 21}, 3);
  EXPECT_NE(track(pyramid, other, {}), "");
}

}  // namespace
}  // namespace movra::vision
