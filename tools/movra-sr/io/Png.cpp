#include "tools/movra-sr/io/Png.h"

#include <unistd.h>

#include <opencv2/imgcodecs.hpp>
#include <vector>

#include "tools/movra-sr/Outcome.h"
#include "tools/movra-sr/io/DivertedDescriptor.h"

namespace movra::tool {

cv::Mat readPng(const std::filesystem::path& path) {
  cv::Mat image;
  try {
    // The PNG library prints its complaints; the message below says it better.
    const DivertedDescriptor silence(STDERR_FILENO, DivertedDescriptor::nowhere);
    image = cv::imread(path.string(), cv::IMREAD_UNCHANGED);
  } catch (const cv::Exception&) {
    image.release();
  }
  if (image.empty()) {
    throw Failure(ExitCode::badInput, path.string() + ": not a whole PNG file; copy or export it again");
  }
  if (image.channels() != 1) {
    throw Failure(ExitCode::badInput,
                  path.string() + ": is a colour image; export the frames as single-channel grey values");
  }
  return image;
}

void writePng(const OutputFile& file, const cv::Mat& picture) {
  std::vector<unsigned char> bytes;
  if (!cv::imencode(".png", picture, bytes)) {
    file.fail("the picture cannot be encoded");
  }
  file.write(bytes.data(), bytes.size());
}

}  // namespace movra::tool
