// Bad pixels: lists of any content on images of any content, and the repair of frames and results.
#include "tests/fuzz/FuzzInput.h"
#include "vision/superresolution/BadPixel.h"
#include "vision/superresolution/SuperResolutionBadPixelHandling.h"

namespace {

cv::Mat_<unsigned short> anyList(FuzzInput& input, int width, int height) {
  cv::Mat_<unsigned short> list(input.upTo(12), input.upTo(7) > 0 ? 10 : input.between(1, 12));
  for (unsigned short& value : list) {
    value = input.ConsumeBool() ? static_cast<unsigned short>(input.upTo(std::max(width, height) + 1))
                                : input.ConsumeIntegral<unsigned short>();
  }
  return list;
}

void runLists(FuzzInput& input) {
  const int width = input.between(0, 24);
  const int height = input.between(0, 24);
  cv::Mat_<short> image(height, width);
  const bool isWild = input.ConsumeBool();
  for (short& value : image) {
    value = isWild ? input.ConsumeIntegral<short>() : static_cast<short>(input.upTo(40));
  }
  const auto lo = isWild ? input.ConsumeIntegral<short>() : static_cast<short>(input.upTo(20));
  const auto hi = isWild ? input.ConsumeIntegral<short>() : static_cast<short>(input.upTo(45));
  cv::Mat_<int> histogram;
  cv::Mat_<unsigned short> found(input.upTo(40), 10);
  BadPixel::buildValueHistogram(image, histogram, lo, hi);
  BadPixel::performNeighbourSearch(image, histogram, found, lo, hi, input.ConsumeIntegral<unsigned short>(),
                                   static_cast<unsigned short>(input.upTo(80)));

  const cv::Size_<int> size(width, height);
  const int radius = input.between(-1, 9);
  cv::Mat_<unsigned short> list = anyList(input, width, height);
  const auto row = static_cast<unsigned short>(input.upTo(14));
  BadPixel::calculateSingleReplacePixelSimpleNhood(list, row, size);
  BadPixel::calculateSingleReplacePixel(list, row, size, radius);
  BadPixel::calculateReplacePixels(list, size, static_cast<unsigned int>(std::max(radius, 0)));
  cv::Mat all = found;
  BadPixel::appendBadPixel(anyList(input, width, height), all, size, static_cast<unsigned int>(std::max(radius, 0)));
  cv::Mat_<cv::Vec<unsigned char, 3>> picture(height, width, cv::Vec<unsigned char, 3>(0, 0, 0));
  accepts([&] {
    BadPixel::drawBadPixels(list, picture, {1, 2, 3, 0}, static_cast<unsigned int>(input.upTo(9)), input.ConsumeBool());
  });
}

void runRepair(FuzzInput& input) {
  const int width = input.between(0, 24);
  const int height = input.between(0, 24);
  const int window = input.upTo(4);
  SuperResolutionBadPixelHandling handling(static_cast<unsigned int>(window));
  handling.setDataIsNUC(input.ConsumeBool());
  std::vector<cv::Mat_<float>> frames;
  std::vector<std::vector<float>> memory;
  for (int i = input.upTo(6); i > 0; --i) {
    memory.push_back(input.frame(width, height));
    cv::Mat_<float> frame(height, width, memory.back().data());
    accepts([&] { handling.detectAndReplaceBadPixel(frame); });
    for (const float value : memory.back()) {
      require(std::isfinite(value), "a repaired frame is finite");
    }
    frames.push_back(frame);
  }
  std::vector<cv::Point_<float>> shifts;
  for (int i = input.upTo(6); i > 0; --i) {
    shifts.emplace_back(input.number(), input.number());
  }
  std::vector<float> result = input.frame(2 * width, 2 * height);
  cv::Mat_<float> image(2 * height, 2 * width, result.data());
  accepts([&] {
    handling.maskBadPixel(image, shifts);
    handling.replaceMaskedPixel(image, shifts, frames);
  });
}

}  // namespace

void movra::fuzz::feed(FuzzInput& input) {
  if (input.ConsumeBool()) {
    runLists(input);
  } else {
    runRepair(input);
  }
}
