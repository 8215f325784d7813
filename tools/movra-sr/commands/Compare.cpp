#include <cstdio>
#include <memory>
#include <opencv2/core.hpp>

#include "tools/movra-sr/commands/Commands.h"
#include "tools/movra-sr/io/Frames.h"
#include "tools/movra-sr/report/Quality.h"

namespace movra::tool {

namespace {

struct CompareOptions {
  std::string image;
  std::string truth;
  int border = 8;
};

constexpr int smallestComparedSide = 11;  // the window of the structural similarity

cv::Mat_<float> withoutBorder(const Frame& image, int border) {
  const cv::Mat_<float>& pixels = image.pixels;
  if (std::min(pixels.cols, pixels.rows) < 2 * border + smallestComparedSide) {
    throw Failure(ExitCode::badInput, image.name + ": is " + sizeText(pixels.size()) + ", too small for a border of " +
                                          std::to_string(border) + " pixels; give a smaller --border");
  }
  cv::Mat_<float> inner = pixels(cv::Rect(border, border, pixels.cols - 2 * border, pixels.rows - 2 * border));
  if (!cv::checkRange(inner)) {
    throw Failure(ExitCode::badInput, image.name + ": has pixels that are not finite numbers; repair or crop them");
  }
  return inner.clone();
}

ExitCode compare(const CompareOptions& options, Console& console) {
  Frame image = readImage(options.image);
  const Frame truth = readImage(options.truth);
  const bool enlarge = image.pixels.size() * 2 == truth.pixels.size();
  if (enlarge) {
    image.pixels = enlargeBicubically(image.pixels);
  }
  if (image.pixels.size() != truth.pixels.size()) {
    throw Failure(ExitCode::badInput, image.name + " is " + sizeText(image.pixels.size()) + " but " + truth.name +
                                          " is " + sizeText(truth.pixels.size()) +
                                          "; compare images of one size, or a frame with "
                                          "an image of twice its size");
  }

  const cv::Mat_<float> a = withoutBorder(image, options.border);
  const cv::Mat_<float> b = withoutBorder(truth, options.border);
  double low = 0;
  double high = 0;
  cv::minMaxLoc(b, &low, &high);
  if (low == high) {
    throw Failure(ExitCode::badInput, truth.name + ": all pixels are equal, which leaves nothing to compare with");
  }

  const double psnr = peakSignalToNoise(a, b);
  const double ssim = structuralSimilarity(a, b);
  char line[160];
  console.say(image.name + (enlarge ? ", enlarged twice (bicubic, a = -0.75)," : "") + " against " + truth.name);
  std::snprintf(line, sizeof line, "PSNR: %.2f dB\nSSIM: %.4f", psnr, ssim);
  console.say(line);
  std::snprintf(line, sizeof line, "data range: %g (that of the second image), border of %d pixels left out",
                high - low, options.border);
  console.say(line);
  console.document.update({{"image", image.name}, {"truth", truth.name}, {"enlarged", enlarge}});
  // JSON knows no infinity, which equal images have: null.
  console.document.update({{"psnr_db", psnr}, {"ssim", ssim}, {"data_range", high - low}, {"border", options.border}});
  return ExitCode::done;
}

}  // namespace

void addCompare(CLI::App& application, Console& console, Action& chosen) {
  auto options = std::make_shared<CompareOptions>();
  CLI::App* command = application.add_subcommand(
      "compare", "Print PSNR and SSIM of an image against a truth; an image of half the size is enlarged bicubically");
  command->add_option("IMAGE", options->image, "Image to judge")->required()->type_name("FILE");
  command->add_option("TRUTH", options->truth, "Image to judge it by")->required()->type_name("FILE");
  command
      ->add_option("--border", options->border,
                   "Pixels left out on each side, where not all frames have seen the scene")
      ->check(CLI::Range(0, 10000))
      ->capture_default_str();
  addConsoleOptions(*command, console);
  command->footer("Example:\n  movra-sr compare sharp.tiff burst/truth.tiff");
  command->callback([=, &console, &chosen] { chosen = [=, &console] { return compare(*options, console); }; });
}

}  // namespace movra::tool
