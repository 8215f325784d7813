#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>

#include "tools/movra-sr/commands/CameraFiles.h"
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
    }
  }

  /// Whether one encoding is for all images, because they are in one file.
  bool isOneFile() const { return file != nullptr; }

  void add(const cv::Mat_<float>& image, const std::string& description, const ImageEncoding& encoding) {
    ++count;
    if (isOneFile()) {
      if (!pages) {
        pages = std::make_unique<TiffPages>(*file, encoding, 0);
      }
      pages->add(image, {description});
      return;
    }
    OutputFile single(numbered(count), replace);
    single.keepApartFrom(keptApart);
    writeImage(single, image, {description}, encoding);
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
  /// @param frames how many there are; 0: nobody knows
  Progress(const Console& console, std::size_t frames) : target(console), total(frames) {}

  void tell(std::size_t done, const std::string& frame) {
    const auto now = std::chrono::steady_clock::now();
    if (now - told < std::chrono::milliseconds(terminal ? 200 : 5000) && done != total) {
      return;
    }
    told = now;
    const double seconds = std::chrono::duration<double>(now - start).count();
    const double rate = seconds > 0 ? static_cast<double>(done) / seconds : 0;
    char text[160];
    if (total == 0) {
      std::snprintf(text, sizeof text, "%zu frames, %.1f frames/s", done, rate);
    } else {
      std::snprintf(text, sizeof text, "%zu of %zu frames, %.1f frames/s, %.0f s left", done, total, rate,
                    rate > 0 ? static_cast<double>(total - done) / rate : 0);
    }
    isLineOpen = terminal;
    target.tell(terminal ? '\r' + std::string(text) + "   " : text + (", " + frame + '\n'));
  }

  /// Ends the line, so that what follows has its own.
  void close() {
    if (isLineOpen) {
      target.tell("\n");
      isLineOpen = false;
    }
  }

 private:
  const Console& target;
  std::size_t total;
  const bool terminal = isatty(STDERR_FILENO) != 0;
  bool isLineOpen = false;
  std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
  std::chrono::steady_clock::time_point told = start;
};

struct Series {
  int results = 0;
  int degraded = 0;
};

/// Reconstructs from the window and adds the result to the sink.
void addResult(const Window& window, const ReconstructOptions& options, const std::vector<float>& pattern,
               ResultSink& sink, Series& series, Console& console) {
  Parameters parameters = options.parameters;
  parameters.pattern = pattern;
  parameters.referenceSlot = referenceFor(window, options);
  parameters.frames = ReconstructOptions::allFrames;  // of the window
  const Reconstruction result = reconstruct(window.frames, parameters);
  const std::string status = statusInWords(result);
  Json entry{{"newest", window.frames.back().name}, {"status", status}};
  if (!isGood(result)) {
    ++series.degraded;
    console.note(window.frames.back().name + ": " + status);
  }
  if (!result.image.empty()) {
    const std::string reference = result.frames[static_cast<std::size_t>(result.reference)].name;
    const Frame& newest = window.frames.back();
    const ImageEncoding encoding = encodingFor(options, newest, result.image);
    if (sink.isOneFile() && options.sixteenBits && (encoding.sample != newest.sample || options.isRaw())) {
      throw Failure(ExitCode::usage,
                    "--16-bit: one file holds the frames' own integers, and these are none; name "
                    "numbered files, such as sharp_####.tiff");
    }
    sink.add(result.image, "super-resolution; reference: " + reference + "; status: " + status, encoding);
    entry["reference"] = reference;
    entry["page"] = ++series.results;
  }
  console.document["results"].push_back(entry);
}

/// Whether standard input has something, which may take as long as the camera likes.
bool waitForInput() {
  pollfd input{STDIN_FILENO, POLLIN, 0};
  while (!isInterrupted()) {
    if (poll(&input, 1, 200) > 0) {
      return true;
    }
  }
  return false;
}

void checkSeries(const ReconstructOptions& options) {
  if (options.output.empty()) {
    throw Failure(ExitCode::usage, "--output is required: name the series' file (see movra-sr stream --help)");
  }
  if (options.output.find('#') == std::string::npos) {
    requireExtension(options.output, {".tif", ".tiff"},
                     "a series goes into one .tiff file, or into numbered files, named such as sharp_####.tiff");
  } else {
    requireWritable(options.output, {options.sixteenBits ? Sample::uint16 : Sample::float32, {}});
  }
  if (options.frameCount == ReconstructOptions::allFrames) {
    throw Failure(ExitCode::usage, "--frames all: a window that slides has a number of frames");
  }
}

/// The frames of a recording, through a window that slides.
class Stream {
 public:
  Stream(const ReconstructOptions& given, Console& toUser)
      : options(given),
        console(toUser),
        preparation(given.nucLow, given.nucHigh, given.badPixels),
        source(given.inputs, {given.scale, given.raw}),
        sink(given, inputs()),
        size(static_cast<std::size_t>(given.frameCount.value_or(engineWindow))) {}

  /// Throws Failure for a frame that cannot be read, after what there is has been written.
  ExitCode run() {
    noteInterrupts();
    Progress progress(console, source.isEndless() ? 0 : source.count());
    try {
      int number = 0;
      while (std::optional<Frame> frame = nextFrame()) {
        ++number;
        const std::string name = frame->name;
        if (number >= options.first.value_or(1)) {
          take(std::move(*frame));
        }
        progress.tell(static_cast<std::size_t>(number), name);
      }
    } catch (const Failure&) {
      if (!isInterrupted()) {  // by which the camera, too, ends in the middle of a frame
        progress.close();
        sink.finish();
        throw;
      }
    }
    progress.close();
    sink.finish();
    return close();
  }

 private:
  std::vector<std::string> inputs() const {
    std::vector<std::string> files = preparation.files();
    files.insert(files.end(), source.files().begin(), source.files().end());
    if (!options.pattern.empty()) {
      files.push_back(options.pattern);
    }
    return files;
  }

  std::optional<Frame> nextFrame() {
    if (isInterrupted() || (source.isEndless() && !waitForInput())) {
      return {};
    }
    std::optional<Frame> frame = source.next();
    for (const std::string& note : source.takeNotes()) {
      console.note(note);
    }
    return frame;
  }

  void take(Frame&& frame) {
    const std::string fault = faultOf(frame, options.isRaw() || options.parameters.counts);
    if (!fault.empty()) {
      console.note(leftOut(frame, fault));
      return;
    }
    ++usable;
    std::vector<Frame> prepared{std::move(frame)};
    const std::string kind = preparation.calibrate(prepared);
    if (!kind.empty() && !isKindTold) {
      console.say(kind);
      isKindTold = true;
    }
    preparation.mark(prepared);
    if (usable == 1) {
      pattern = knownPatternFor(prepared.front(), options);
    }
    window.frames.push_back(std::move(prepared.front()));
    requireSameSize(window.frames);
    if (window.frames.size() > size) {
      window.frames.erase(window.frames.begin());
    }
    if (window.frames.size() == size) {
      addResult(window, options, pattern, sink, series, console);
    }
  }

  ExitCode close() const {
    console.document["count"] = series.results;
    console.document["window"] = size;
    console.document["files"]["series"] = options.output;
    if (isInterrupted()) {
      console.note("interrupted; what is written is whole");
    }
    if (series.results == 0) {
      throw Failure(ExitCode::degraded, usable < size ? "nothing written: " + std::to_string(usable) +
                                                            " usable frames do not fill the window of " +
                                                            std::to_string(size) + " (--frames)"
                                                      : "nothing written: no window could be reconstructed");
    }
    console.say("series: " + options.output + ", " + std::to_string(series.results) +
                (series.results == 1 ? " image" : " images") + " from windows of " + std::to_string(size) + " frames");
    return series.degraded == 0 && !isInterrupted() ? ExitCode::done : ExitCode::degraded;
  }

  const ReconstructOptions& options;
  Console& console;
  Preparation preparation;
  FrameSource source;
  ResultSink sink;
  std::size_t size;
  std::size_t usable = 0;
  bool isKindTold = false;
  std::vector<float> pattern;  // known beforehand, or nothing
  Window window;
  Series series;
};

ExitCode runStream(ReconstructOptions options, Console& console) {
  options.sixteenBits |= lowerCaseExtension(options.output) == ".png";
  checkSeries(options);
  settleMethod(options);
  return Stream(options, console).run();
}

}  // namespace

void addStream(CLI::App& application, Console& console, Action& chosen) {
  auto options = std::make_shared<ReconstructOptions>();
  CLI::App* command =
      application.add_subcommand("stream", "Make an image per new frame of a recording, from a sliding window");
  addInputOptions(*command, *options);
  command->get_option("--frames")->description("Frames in the window [5]");
  command->get_option("--first")->description("Number of the frame with which the first window begins, from 1 [1]");
  command
      ->add_option(
          "-o,--output", options->output,
          "The series (required): one .tiff with a page per image, or numbered files, sharp_####.tiff (or .png, "
          ".npy, .csv)")
      ->type_name("FILE")
      ->group("Output");
  command->add_flag("--16-bit", options->sixteenBits, "16-bit integers, in the frames' encoding if they have one")
      ->group("Output");
  command->add_flag("--force", options->replace, "Replace files that exist")->group("Output");
  addConsoleOptions(*command, console);
  addKnownPattern(*command, *options);
  addMethodOptions(*command, *options);
  addHelpAll(*command);
  command->footer(
      "Example:\n"
      "  movra-sr stream recording.tiff -o sharp.tiff\n"
      "  CAMERA | movra-sr stream - --raw 640x512 --gain 0.01 --offset -273.15 -o sharp_####.tiff\n\n"
      "The window holds --frames frames [5]. The first image comes when it is full; each further frame\n"
      "makes one more, on the grid of its --reference. An interrupt (Ctrl-C) ends the series; what is\n"
      "written is whole.");
  command->callback([=, &console, &chosen] { chosen = [=, &console] { return runStream(*options, console); }; });
}

}  // namespace movra::tool
