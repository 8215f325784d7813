#include <algorithm>
#include <memory>

#include "tools/movra-sr/commands/CameraFiles.h"
#include "tools/movra-sr/commands/Commands.h"
#include "tools/movra-sr/commands/Help.h"
#include "tools/movra-sr/commands/OutputSet.h"
#include "tools/movra-sr/commands/ReconstructOptions.h"
#include "tools/movra-sr/reconstruction/Preparation.h"
#include "tools/movra-sr/reconstruction/Reconstruct.h"
#include "tools/movra-sr/reconstruction/Window.h"
#include "tools/movra-sr/report/Description.h"
#include "tools/movra-sr/report/Format.h"
#include "tools/movra-sr/report/Words.h"

namespace movra::tool {

namespace {

/// A name as a field of CSV.
std::string quoted(const std::string& name) {
  if (name.find_first_of(",\"\n") == std::string::npos) {
    return name;
  }
  std::string field = "\"";
  for (const char c : name) {
    field += c == '"' ? "\"\"" : std::string(1, c);
  }
  return field + '"';
}

std::string asCsv(const Reconstruction& result) {
  std::string table = "frame,dx,dy,roll_degrees,zoom_percent,local_motion,agreeing_share,used,xx,xy,yx,yy\n";
  for (const FrameOutcome& frame : result.frames) {
    table +=
        quoted(frame.name) +
        format(",%.5f,%.5f,%.5f,%.5f,%.5f,", frame.shift.x, frame.shift.y, frame.roll, frame.zoom, frame.localMotion) +
        (frame.agreement < 0 ? "" : format("%.4f", frame.agreement)) + (frame.used ? ",1" : ",0") +
        format(",%.7f,%.7f,%.7f,%.7f\n", frame.motion.xx, frame.motion.xy, frame.motion.yx, frame.motion.yy);
  }
  return table;
}

Json asJson(const ShiftGrid& field) {
  Json json{{"columns", field.columns},
            {"rows", field.rows},
            {"first", {field.first.x, field.first.y}},
            {"step", {field.step.x, field.step.y}}};
  json["shifts"] = Json::array();
  for (const auto& frame : field.shifts) {
    Json shifts = Json::array();
    for (const cv::Point2f& shift : frame) {
      shifts.push_back({shift.x, shift.y});
    }
    json["shifts"].push_back(std::move(shifts));
  }
  return json;
}

/// As many as are named, the last ones; an engine's five.
WindowChoice everyFrame(const ReconstructOptions& options) {
  WindowChoice choice = choiceFor(options);
  if (options.parameters.motion == Motion::local) {
    choice.most = std::max(0, options.frameCount.value_or(0));
  }
  return choice;
}

ExitCode registerFrames(ReconstructOptions options, Console& console) {
  const bool toFile = !options.output.empty();
  if (toFile) {
    requireExtension(options.output, {".csv", ".json"}, "shifts are written as .csv or, with the field, as .json");
  }
  settleMethod(options);
  const Preparation preparation(options.nucLow, options.nucHigh, options.badPixels);
  FrameSource source(options.inputs, {options.scale, options.raw});
  std::vector<std::string> inputs = preparation.files();
  inputs.insert(inputs.end(), source.files().begin(), source.files().end());
  if (!options.pattern.empty()) {
    inputs.push_back(options.pattern);
  }
  OutputSet files(options.replace, inputs);
  OutputFile* const file = files.open("shifts", options.output);

  Window window = readWindow(source, everyFrame(options));
  for (const std::string& note : window.notes) {
    console.note(note);
  }
  if (const std::string kind = preparation.calibrate(window.frames); !kind.empty()) {
    console.say(kind);
  }
  preparation.mark(window.frames);
  Parameters parameters = options.parameters;
  parameters.referenceSlot = referenceFor(window, options);
  parameters.pattern = knownPatternFor(window.frames.front(), options);
  parameters.wantsImage = false;
  parameters.iterations = 1;  // of an engine, which makes one
  parameters.frames = ReconstructOptions::allFrames;
  const Reconstruction result = reconstruct(window.frames, parameters);

  Json description = describe(result, {});
  for (const char* const key : {"image", "method", "seconds", "status", "sr_factor"}) {
    description.erase(key);
  }
  if (result.field.columns > 0) {
    description["field"] = asJson(result.field);
  }
  console.document.update(description);
  if (result.verdict == Verdict::registrationFailed) {
    throw Failure(ExitCode::degraded, "nothing written: " + statusInWords(result));
  }
  for (const std::string& remark : remarks(result)) {
    console.note(remark);
  }
  if (!toFile) {
    const std::string table = frameTable(result);
    console.say(table.substr(0, table.size() - 1));
    return ExitCode::done;
  }
  console.endIfStrict();
  file->write(lowerCaseExtension(options.output) == ".csv" ? asCsv(result) : description.dump(1) + '\n');
  files.commit(console);
  return ExitCode::done;
}

}  // namespace

void addRegister(CLI::App& application, Console& console, Action& chosen) {
  auto options = std::make_shared<ReconstructOptions>();
  CLI::App* command = application.add_subcommand("register", "Tell how each frame moved against the reference");
  addInputOptions(*command, *options);
  command->get_option("--frames")->description("How many frames, the last ones, or all [all; 5 with global]");
  command
      ->add_option("-o,--output", options->output,
                   "Shifts per frame as .csv, or with the field of local shifts as .json [a table]")
      ->type_name("FILE")
      ->group("Output");
  command->add_flag("--force", options->replace, "Replace files that exist")->group("Output");
  addConsoleOptions(*command, console);
  addKnownPattern(*command, *options);
  addMethodOptions(*command, *options);
  addHelpAll(*command);
  command->footer(
      "Example:\n"
      "  movra-sr register FOLDER -o shifts.csv\n\n"
      "A shift is the position in the frame minus the position in the reference, in frame pixels, x to the\n"
      "right and y down, in the middle of the image; roll turns clockwise, both about the middle; xx, xy,\n"
      "yx and yy are the matrix of roll, zoom and shear. reconstruct --shifts takes the file back.");
  command->callback([=, &console, &chosen] { chosen = [=, &console] { return registerFrames(*options, console); }; });
}

}  // namespace movra::tool
