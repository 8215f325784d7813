#include <algorithm>
#include <cstdio>
#include <memory>
#include <opencv2/imgproc.hpp>

#include "tools/movra-sr/commands/Commands.h"
#include "tools/movra-sr/commands/OutputSet.h"
#include "tools/movra-sr/io/Frames.h"
#include "tools/movra-sr/io/ImageWriter.h"
#include "tools/movra-sr/report/EdgePlot.h"
#include "vision/superresolution/EdgePsf.h"

namespace movra::tool {

namespace {

struct MeasureOptions {
  std::string image;
  std::string output;
  std::string plot;
  bool replace = false;
};

std::string directionInWords(const char* words, const vision::DirectionBlur& blur) {
  char text[200];
  if (blur.windows == 0) {
    std::snprintf(text, sizeof text, "%s: no edge to measure it by", words);
  } else {
    std::snprintf(text, sizeof text, "%s: %.3f +- %.3f high-resolution pixels (optics alone %.3f), %d places", words,
                  blur.total, blur.uncertainty, blur.optics, blur.windows);
  }
  return text;
}

Json asJson(const vision::DirectionBlur& blur) {
  if (blur.windows == 0) {
    return {};
  }
  return {
      {"psf_sigma", blur.total}, {"uncertainty", blur.uncertainty}, {"optics", blur.optics}, {"places", blur.windows}};
}

/// One width for both directions: their mean, or the one that there is.
double widthOf(const vision::EdgePsfReport& report) {
  const int directions = (report.x.windows > 0 ? 1 : 0) + (report.y.windows > 0 ? 1 : 0);
  const double sum = (report.x.windows > 0 ? report.x.total : 0) + (report.y.windows > 0 ? report.y.total : 0);
  return sum / directions;
}

ExitCode measure(const MeasureOptions& options, Console& console) {
  OutputSet files(options.replace, {options.image});
  OutputFile* const output = files.open("psf file", options.output);
  OutputFile* const plot = files.open("plot", options.plot);
  const Frame frame = readImage(options.image);
  const cv::Mat_<float> dense = frame.pixels.isContinuous() ? frame.pixels : frame.pixels.clone();
  const vision::EdgePsfReport report = vision::EdgePsf::measure(dense.ptr<float>(), dense.cols, dense.rows);
  console.document["image"] = frame.name;
  console.document["outcome"] = vision::toString(report.outcome);
  if (report.outcome != vision::EdgeOutcome::measured) {
    throw Failure(ExitCode::degraded, frame.name + ": nothing measured: " + vision::toString(report.outcome));
  }
  Json result{{"psf_sigma", widthOf(report)}, {"right", asJson(report.x)}, {"down", asJson(report.y)}};
  result.update({{"angle_degrees", report.angle}, {"contrast", report.contrast}, {"noise", report.noise}});
  console.document.update(result);
  console.say(directionInWords("blur from left to right", report.x));
  console.say(directionInWords("blur from top to bottom", report.y));
  char text[80];
  std::snprintf(text, sizeof text, "--psf-sigma %.3f", widthOf(report));
  console.say(text);
  if (report.interpolated != vision::InterpolatedLines::none) {
    console.note(frame.name + ": " + vision::toString(report.interpolated));
  }
  if (output != nullptr) {
    output->write(result.dump(2) + '\n');
  }
  if (plot != nullptr) {
    std::vector<EdgePoint> points;
    for (const vision::EdgeProfilePoint& point : report.profile) {
      points.push_back({point.distance, point.value, point.model});
    }
    writePng(*plot, drawEdge(points));
  }
  files.commit(console);
  return ExitCode::done;
}

}  // namespace

void addMeasurePsf(CLI::App& application, Console& console, Action& chosen) {
  auto options = std::make_shared<MeasureOptions>();
  CLI::App* command =
      application.add_subcommand("measure-psf", "Measure the blur of lens and sensor by a straight slanted edge");
  command->add_option("EDGE", options->image, "Frame with a straight edge, a few degrees off the pixels' direction")
      ->required()
      ->type_name("FILE");
  command->add_option("-o,--output", options->output, "JSON file of the widths, for reconstruct --psf-file")
      ->type_name("FILE");
  command->add_option("--plot", options->plot, "PNG of the edge's profile with the fit")->type_name("FILE");
  command->add_flag("--force", options->replace, "Replace files that exist");
  addConsoleOptions(*command, console);
  command->footer(
      "Example:\n"
      "  movra-sr measure-psf edge.tiff -o lens.json --plot edge.png\n\n"
      "A hot plate before a cold wall will do: a contrast of 200 times the noise gives the width to 0.01,\n"
      "60 times to 0.03. The edge must not run exactly along rows or columns.");
  command->callback([=, &console, &chosen] { chosen = [=, &console] { return measure(*options, console); }; });
}

}  // namespace movra::tool
