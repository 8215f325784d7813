#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <memory>

#include "tools/movra-sr/commands/Commands.h"
#include "tools/movra-sr/commands/Help.h"
#include "tools/movra-sr/commands/Interrupt.h"
#include "tools/movra-sr/commands/OutputSet.h"
#include "tools/movra-sr/commands/ReconstructOptions.h"
#include "tools/movra-sr/io/ImageWriter.h"
#include "tools/movra-sr/reconstruction/Preparation.h"
#include "tools/movra-sr/reconstruction/Reconstruct.h"
#include "tools/movra-sr/reconstruction/Window.h"
#include "tools/movra-sr/report/Description.h"
#include "tools/movra-sr/report/Words.h"

namespace movra::tool {

namespace {

/// Where the results go: pages of one TIFF file, or files with a number in their name.
class ResultSink {
 public:
  ResultSink(const ReconstructOptions& options, const std::vector<std::string>& inputs)
      : name(options.output), replace(options.replace), keptApart(inputs) {
    numberAt = name.find('#');
    if (numberAt != std::string::npos) {
      digits = name.find_first_not_of('#', numberAt) - numberAt;
    } else {
      file = std::make_unique<OutputFile>(name, replace);
      file->keepApartFrom(keptApart);
      pages = std::make_unique<TiffPages>(*file, ImageEncoding{}, 0);
    }
  }

  void add(const cv::Mat_<float>& image, const std::string& description) {
    ++count;
    if (pages) {
      pages->add(image, {description});
      return;
    }
    OutputFile single(numbered(count), replace);
    single.keepApartFrom(keptApart);
    writeImage(single, image, {description});
    single.commit();
  }

  /// What has been added is whole afterwards.
  void finish() {
    if (pages && count > 0) {
      pages->finish();
      file->commit();
    }
  }

 private:
  std::string numbered(int number) const {
    char text[32];
    std::snprintf(text, sizeof text, "%0*d", static_cast<int>(digits), number);
    return name.substr(0, numberAt) + text + name.substr(numberAt + digits);
  }

  std::string name;
  bool replace;
  std::vector<std::string> keptApart;
  std::size_t numberAt = std::string::npos;
  std::size_t digits = 0;
  std::unique_ptr<OutputFile> file;
  std::unique_ptr<TiffPages> pages;
  int count = 0;
};

/// Frames per second and time left, on one line of a terminal or as a line now and then.
class Progress {
 public:
  Progress(const Console& console, std::size_t frames) : target(console), total(frames) {}

  void tell(std::size_t done, const std::string& frame) {
    const auto now = std::chrono::steady_clock::now();
    const bool terminal = isatty(STDERR_FILENO) != 0;
    if (now - told < std::chrono::milliseconds(terminal ? 200 : 5000) && done < total) {
      return;
    }
    told = now;
    const double seconds = std::chrono::duration<double>(now - start).count();
    const double rate = seconds > 0 ? static_cast<double>(done) / seconds : 0;
    char text[160];
    std::snprintf(text, sizeof text, "%zu of %zu frames, %.1f frames/s, %.0f s left", done, total, rate,
                  rate > 0 ? static_cast<double>(total - done) / rate : 0);
    target.tell(terminal ? '\r' + std::string(text) + (done < total ? "   " : "   \n") : text + (", " + frame + '\n'));
  }

 private:
  const Console& target;
  std::size_t total;
  std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
  std::chrono::steady_clock::time_point told = start;
};

struct Series {
  int results = 0;
  int degraded = 0;
};

/// Reconstructs from the window and adds the result to the sink.
void addResult(const Window& window, const ReconstructOptions& options, ResultSink& sink, Series& series,
               Console& console) {
  Parameters parameters = options.parameters;
  parameters.referenceSlot = referenceFor(window, options);
  const Reconstruction result = reconstruct(window.frames, parameters);
  const std::string status = statusInWords(result);
  Json entry{{"newest", window.frames.back().name}, {"status", status}};
  if (!isGood(result)) {
    ++series.degraded;
    console.note(window.frames.back().name + ": " + status);
  }
  if (!result.image.empty()) {
    const std::string reference = result.frames[static_cast<std::size_t>(result.reference)].name;
    sink.add(result.image, "super-resolution; reference: " + reference + "; status: " + status);
    entry["reference"] = reference;
    entry["page"] = ++series.results;
  }
  console.document["results"].push_back(entry);
}

ExitCode runStream(ReconstructOptions options, Console& console) {
  if (options.output.empty()) {
    throw Failure(ExitCode::usage, "--output is required: name the series' file (see movra-sr stream --help)");
  }
  if (options.output.find('#') == std::string::npos) {
    requireExtension(options.output, {".tif", ".tiff"},
                     "a series goes into one .tiff file, or into numbered files, named such as sharp_####.tiff");
  } else {
    requireWritable(options.output, {});
  }
  const int wanted = options.frameCount.value_or(engineWindow);
  if (wanted == ReconstructOptions::allFrames) {
    throw Failure(ExitCode::usage, "--frames all: a window that slides has a number of frames");
  }
  settleMethod(options);
  const Preparation preparation(options.nucLow, options.nucHigh, options.badPixels);
  FrameSource source(options.inputs, {options.scale, options.raw});
  std::vector<std::string> inputs = preparation.files();
  inputs.insert(inputs.end(), source.files().begin(), source.files().end());
  ResultSink sink(options, inputs);
  const auto size = static_cast<std::size_t>(wanted);
  const std::size_t total = source.count();

  noteInterrupts();
  Progress progress(console, total);
  Window window;
  Series series;
  for (std::size_t i = static_cast<std::size_t>(options.first.value_or(1) - 1); i < total && !isInterrupted(); ++i) {
    Frame frame = source.read(i);
    const std::string fault = faultOf(frame, options.isRaw() || options.parameters.counts);
    const std::string name = frame.name;
    if (!fault.empty()) {
      console.note(name + ": left out, " + fault);
      continue;
    }
    std::vector<Frame> prepared{std::move(frame)};
    preparation.calibrate(prepared);
    preparation.mark(prepared);
    window.frames.push_back(std::move(prepared.front()));
    requireSameSize(window.frames);
    if (window.frames.size() > size) {
      window.frames.erase(window.frames.begin());
    }
    if (window.frames.size() == size) {
      addResult(window, options, sink, series, console);
    }
    progress.tell(i + 1, name);
  }
  sink.finish();
  console.document["count"] = series.results;
  if (isInterrupted()) {
    console.note("interrupted; what is written is whole");
  }
  if (series.results == 0) {
    throw Failure(ExitCode::degraded,
                  "nothing written: no window of " + std::to_string(size) + " frames could be reconstructed");
  }
  console.say("series: " + options.output + ", " + std::to_string(series.results) + " images from windows of " +
              std::to_string(size) + " frames");
  return series.degraded == 0 && !isInterrupted() ? ExitCode::done : ExitCode::degraded;
}

}  // namespace

void addStream(CLI::App& application, Console& console, Action& chosen) {
  auto options = std::make_shared<ReconstructOptions>();
  CLI::App* command =
      application.add_subcommand("stream", "Make an image per new frame of a recording, from a sliding window");
  addInputOptions(*command, *options);
  command
      ->add_option("-o,--output", options->output,
                   "The series (required): one .tiff with a page per image, or numbered files, sharp_####.tiff")
      ->type_name("FILE")
      ->group("Output");
  command->add_flag("--force", options->replace, "Replace files that exist")->group("Output");
  addConsoleOptions(*command, console);
  addMethodOptions(*command, *options);
  addHelpAll(*command);
  command->footer(
      "Example:\n"
      "  movra-sr stream recording.tiff -o sharp.tiff\n\n"
      "The window holds --frames frames [5]. The first image comes when it is full; each further frame\n"
      "makes one more, on the grid of its --reference. An interrupt (Ctrl-C) ends the series; what is\n"
      "written is whole.");
  command->callback([=, &console, &chosen] { chosen = [=, &console] { return runStream(*options, console); }; });
}

}  // namespace movra::tool
