#include "tests/support/RealBurst.h"

#include <cstdlib>
#include <filesystem>

#include "tools/movra-sr/io/Frames.h"

namespace movra::test {

std::string realBurstFolder() {
  const char* const folder = std::getenv("MOVRA_TEST_DATA");
  return folder != nullptr ? folder : MOVRA_SOURCE_DIR "/../shared/data";
}

SyntheticBurst readRealBurst(const std::string& name, const std::vector<int>& numbers) {
  SyntheticBurst burst{};
  const std::filesystem::path folder = std::filesystem::path(realBurstFolder()) / name;
  for (const int i : numbers) {
    std::filesystem::path file = folder / ("frame_0" + std::to_string(i) + ".tiff");
    if (!std::filesystem::exists(file)) {
      file.replace_extension(".png");
    }
    if (!std::filesystem::exists(file)) {
      return {};
    }
    const cv::Mat_<float> image = tool::readImage(file.string()).pixels;
    burst.width = image.cols;
    burst.height = image.rows;
    burst.frames.emplace_back(image.begin(), image.end());
    burst.masks.emplace_back(burst.frames.back().size());
  }
  return burst;
}

}  // namespace movra::test
