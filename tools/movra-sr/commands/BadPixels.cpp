#include <algorithm>
#include <cmath>
#include <iostream>
#include <memory>
#include <optional>

#include "tools/movra-sr/commands/Commands.h"
#include "tools/movra-sr/io/BadPixelFile.h"
#include "tools/movra-sr/io/Frames.h"
#include "tools/movra-sr/io/ImageWriter.h"
#include "tools/movra-sr/io/OutputFile.h"
#include "tools/movra-sr/reconstruction/BadPixelList.h"
#include "tools/movra-sr/report/Preview.h"
#include "vision/superresolution/BadPixel.h"

namespace movra::tool {

namespace {

using List = cv::Mat_<unsigned short>;
using vision::BadPixel;

struct BadPixelsOptions {
  std::vector<std::string> inputs;
  std::optional<int> low;
  std::optional<int> high;
  unsigned short maxCount = 5;
  unsigned short window = 128;
  unsigned int radius = 5;
  std::string output;
  std::string picture;
  bool replace = false;
};

constexpr int listColumns = 10;
constexpr int squareSize = 7;  // of the marks in the picture

/// A sensor with a larger share of bad pixels is not what these settings describe.
constexpr double largestShare = 0.01;

/// Raw values as the search wants them: 16 bits with a sign. Unsigned counts are shifted by 32768, which
/// keeps their order; an image with negative values is taken as it is.
struct RawImage {
  cv::Mat_<short> values;
  int shift;  ///< count = value + shift

  int smallest() const { return shift - 32768; }
  int largest() const { return shift + 32767; }
};

RawImage rawImage(const Frame& image) {
  const auto fail = [&](const std::string& reason) {
    throw Failure(ExitCode::badInput, image.name + ": " + reason + "; give raw 16-bit frames, before any correction");
  };
  if (std::any_of(image.pixels.begin(), image.pixels.end(), [](float v) { return !(v == std::floor(v)); })) {
    fail("its values are not whole numbers");
  }
  double low = 0;
  double high = 0;
  cv::minMaxLoc(image.pixels, &low, &high);
  RawImage raw{{}, low < 0 ? 0 : 32768};
  if (low < raw.smallest() || high > raw.largest()) {
    fail("its values span more than 16 bits");
  }
  image.pixels.convertTo(raw.values, CV_16S, 1, -raw.shift);
  return raw;
}

/// A bound in counts as a value of the raw image.
short bound(const std::optional<int>& count, int otherwise, const RawImage& raw, const char* option) {
  const int value = count.value_or(otherwise);
  if (value < raw.smallest() || value > raw.largest()) {
    throw Failure(ExitCode::usage, std::string(option) + " " + std::to_string(value) + " lies outside the frames' " +
                                       std::to_string(raw.smallest()) + " .. " + std::to_string(raw.largest()));
  }
  return static_cast<short>(value - raw.shift);
}

List findBadPixels(const Frame& image, const BadPixelsOptions& options) {
  const RawImage raw = rawImage(image);
  const short low = bound(options.low, raw.smallest(), raw, "--low");
  const short high = bound(options.high, raw.largest(), raw, "--high");
  cv::Mat_<int> histogram;
  if (!BadPixel::buildValueHistogram(raw.values, histogram, low, high)) {
    throw Failure(ExitCode::usage, "--low must be smaller than --high");
  }
  const int capacity = std::max(100, static_cast<int>(largestShare * static_cast<double>(raw.values.total())));
  List found(capacity, listColumns);
  if (!BadPixel::performNeighbourSearch(raw.values, histogram, found, low, high, options.maxCount, options.window)) {
    throw Failure(ExitCode::degraded, image.name + ": " + std::to_string(capacity) +
                                          " pixels or more stand out, too many for defects; check --low and --high, "
                                          "or give a smaller --max-count or a larger --window");
  }
  return found;
}

cv::Mat_<cv::Vec3b> drawPicture(const Frame& image, const List& list) {
  cv::Mat_<cv::Vec3b> picture = drawGrey(image.pixels);
  BadPixel::drawBadPixels(list, picture, cv::Scalar(0, 0, 255), squareSize, false);
  return picture;
}

void describe(const BadPixelsOptions& options, Console& console, const List& list, cv::Size size, int images) {
  Json& document = console.document;
  document.update({{"frames", images}, {"width", size.width}, {"height", size.height}, {"count", list.rows}});
  document["bad_pixels"] = Json::array();
  for (int row = 0; row < list.rows; ++row) {
    document["bad_pixels"].push_back({{"x", list(row, 0)}, {"y", list(row, 1)}});
  }
  if (!options.output.empty() && options.output != "-") {
    document["files"]["list"] = options.output;
  }
  if (!options.picture.empty()) {
    document["files"]["picture"] = options.picture;
  }
}

ExitCode listBadPixels(const BadPixelsOptions& options, Console& console) {
  const std::vector<std::string> inputs = expandFolders(options.inputs);
  const auto newFile = [&](const std::string& name) {
    auto file = name.empty() || name == "-" ? nullptr : std::make_unique<OutputFile>(name, options.replace);
    if (file) {
      file->keepApartFrom(inputs);
    }
    return file;
  };
  const auto csv = newFile(options.output == "-" ? "" : options.output);
  const auto pictureFile = newFile(options.picture);
  if (csv && pictureFile && csv->isSameAs(*pictureFile)) {
    throw Failure(ExitCode::usage, "list and picture cannot both be " + options.output + "; give two names");
  }

  Frame first;
  List list(0, listColumns);
  int images = 0;
  for (const std::string& file : inputs) {
    readFrames(file, {}, [&](Frame&& image) {
      ++images;
      if (first.pixels.empty()) {
        first = image;
      }
      if (image.pixels.size() != first.pixels.size()) {
        throw Failure(ExitCode::badInput, image.name + ": is " + sizeText(image.pixels.size()) + " but " + first.name +
                                              " is " + sizeText(first.pixels.size()) + "; give frames of one camera");
      }
      appendNewPixels(list, findBadPixels(image, options), first.pixels.size(), options.radius);
    });
  }
  const cv::Size size = first.pixels.size();
  const int unreplaced = markUnreplaced(list, size);

  const std::string text = badPixelsAsCsv(list, size);
  if (pictureFile) {
    writePng(*pictureFile, drawPicture(first, list));
  }
  if (csv) {
    csv->write(text);
  }
  std::vector<OutputFile*> written;
  for (const auto& file : {csv.get(), pictureFile.get()}) {
    if (file != nullptr) {
      written.push_back(file);
    }
  }
  OutputFile::commitAll(written);

  describe(options, console, list, size, images);
  if (!csv && !console.json) {
    std::cout << text;
  }
  const std::string count = "bad pixels: " + std::to_string(list.rows) + " in " + std::to_string(images) +
                            (images == 1 ? " frame of " : " frames of ") + sizeText(size);
  if (csv) {
    console.say(count);
    console.say("list: " + options.output);
  } else {
    console.tell(count + '\n');
  }
  if (pictureFile) {
    console.say("picture: " + options.picture);
  }
  if (unreplaced == 0) {
    return ExitCode::done;
  }
  console.note(std::to_string(unreplaced) + " of them have no good pixel around; give a larger --radius");
  return ExitCode::degraded;
}

}  // namespace

void addBadPixels(CLI::App& application, Console& console, Action& chosen) {
  auto options = std::make_shared<BadPixelsOptions>();
  CLI::App* command = application.add_subcommand(
      "bad-pixels", "List the defective pixels of a sensor, with replacements, from raw 16-bit frames");
  command->add_option("IMAGE", options->inputs, "Raw frames of one sensor, best of an even scene; folders likewise")
      ->required();
  command->add_option("--low", options->low, "Values up to this are defects [the smallest that 16 bits hold]");
  command->add_option("--high", options->high, "Values from this on are defects [the largest that 16 bits hold]");
  const auto count = [&](const char* name, auto& value, int low, int high, const char* text) {
    command->add_option(name, value, text)->check(CLI::Range(low, high))->capture_default_str();
  };
  count("--max-count", options->maxCount, 1, 65535,
        "A value is rare, and its pixels defects, when fewer pixels than this have values around it");
  count("--window", options->window, 2, 65535, "How many values below, above and around it are looked at");
  count("--radius", options->radius, 1, 100, "How far from a defect its replacements may lie, pixels");
  command->add_option("-o,--output", options->output, "CSV file for the list, - for standard output [-]")
      ->type_name("FILE");
  command->add_option("--picture", options->picture, "PNG of the first frame with the pixels marked")
      ->type_name("FILE");
  command->add_flag("--force", options->replace, "Replace files that exist");
  addConsoleOptions(*command, console);
  command->footer(
      "Example:\n"
      "  movra-sr bad-pixels even-scene.tiff -o sensor.csv --picture sensor.png\n\n"
      "A defect shows by a value that hardly any other pixel of the frame has: frames of an even scene are\n"
      "best. A small thing that is very hot or cold can look like defects, and a defect with an ordinary\n"
      "value is not found. Where many pixels are stuck at the same value, --low and --high catch them. The\n"
      "list of several frames holds what was found in any of them. Use it with reconstruct --bad-pixels.");
  command->callback([=, &console, &chosen] { chosen = [=, &console] { return listBadPixels(*options, console); }; });
}

}  // namespace movra::tool
