// Runs the benchmarks; progress goes to standard error, the table of the reconstruction to standard output.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include "vision/superresolution/detail/base/InstructionSet.h"

namespace {

// Work that one application of the system operator and the vector updates around it need per low-resolution pixel, with
// five shifted frames, none masked: that of the fused form, which is the least that is known. A share of the peak says
// how near it is. A shifted PSF has five taps along rows; changes of sign are not counted.
//   Operations: per frame two rows of 9, then 11 along columns to the sample, 10 and two rows of 10 back; for each of
//   four pixels edge weights 20, stencil 24 and vectors 10.
//   Bytes: for each of four pixels the frozen image, r, p and x read and p, x and q written in one pass; q and r read and
//   r written in the other.
constexpr double operationsPerPixel = 5 * (2 * 9 + 11 + 10 + 2 * 10) + 4 * (20 + 24 + 10);
constexpr double bytesPerPixel = 4 * 10 * sizeof(float);

// Bytes per pixel that the intake of a frame has to move at least: copy 8, bad pixels 4, blur 8, grey values 5, pyramid 3,
// derivatives 6.
constexpr double intakeBytesPerPixel = 8 + 4 + 8 + 5 + 3 + 6;

// Bytes per pixel that the registration of a window of five has to move at least: blur 8, grey pyramid 3, derivatives 6;
// gradients 12, corner strength 12; four fine steps of two passes over two gradients and two images, and a mask; masks
// cleared; five frames moved.
constexpr double registrationBytesPerPixel = 8 + 3 + 6 + 12 + 12 + 4 * (2 * 4 * 4 + 1) + 5 + 5 * 8;

class TableReporter : public benchmark::ConsoleReporter {
 public:
  TableReporter() : ConsoleReporter(OO_None) {}

  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.error_occurred || run.run_type != Run::RT_Iteration || run.iterations == 0) {
        continue;
      }
      Measurement& best = measured[run.run_name.function_name][run.run_name.args];
      const bool isLocal = run.run_name.function_name == "LocalMotion";  // may have several threads
      const double seconds =
          (isLocal ? run.real_accumulated_time : run.cpu_accumulated_time) / static_cast<double>(run.iterations);
      if (best.seconds == 0 || seconds < best.seconds) {
        best.seconds = seconds;
        for (const auto& [name, counter] : run.counters) {
          best.counters[name] = counter.value;
        }
      }
    }
  }

  void Finalize() override {
    ConsoleReporter::Finalize();
    if (measured.count("minimize") != 0) {
      printTable();
    }
    if (measured.count("LocalMotion") != 0) {
      printLocalMotion();
    }
  }

 private:
  struct Measurement {
    double seconds = 0;
    std::map<std::string, double> counters;
  };

  // 0 for what was not run, here and below.
  Measurement of(const std::string& function, const std::string& args) { return measured[function][args]; }
  static double ratio(double a, double b) { return b > 0 ? a / b : 0; }

  void printTable() {
    Measurement triad = of("triad", ""), multiplyAdd = of("multiplyAdd", "");
    const double bandwidth = ratio(triad.counters["bytes"], triad.seconds);
    const double peak = ratio(multiplyAdd.counters["operations"], multiplyAdd.seconds);
    std::printf("Five frames, factor 2, one thread, %s; triad %.1f GB/s, multiply-add %.1f Gop/s\n\n",
                name(movra::vision::detail::activeInstructionSet()), bandwidth * 1e-9, peak * 1e-9);
    std::printf(
        "| size | addFrame | registration | minimize | computeSR | growth "
        "| registration: times plain | minimize: times plain | computeSR: times plain "
        "| addFrame: of triad | registration: of triad | minimize: of triad | of multiply-add |\n"
        "|---|--:|--:|--:|--:|--:|--:|--:|--:|--:|--:|--:|--:|\n");
    for (const char* size : {"80/60", "160/120", "320/240", "640/480", "1024/768"}) {
      printRow(size, bandwidth, peak);
    }
    std::printf(
        "\nStages: ms (ns per low-resolution pixel). Registration: one new frame is prepared, then the window is "
        "registered; computeSR: one new frame is added, then the window is reconstructed. Growth: time of computeSR "
        "per "
        "pixel relative to the next smaller size. Times plain: speed-up over plain loops.\n\n"
        "| size | computeSR: heap | by phases | heap | in vectors | heap |\n|---|--:|--:|--:|--:|--:|\n");
    for (const char* size : {"80/60", "160/120", "320/240", "640/480", "1024/768"}) {
      printEngines(size);
    }
    std::printf("\nEngines: ms per result; heap: MiB.\n");
  }

  static std::string argumentsOf(const std::string& size) {
    const auto slash = size.find('/');
    return "width:" + size.substr(0, slash) + "/height:" + size.substr(slash + 1);
  }

  void printEngines(const std::string& size) {
    std::printf("| %s |", size.c_str());
    for (const char* engine : {"computeSR", "computeSRByPhases", "computeSRInVectors"}) {
      Measurement measurement = of(engine, argumentsOf(size));
      if (measurement.seconds == 0) {
        std::printf(" - | - |");  // not run, or no result
        continue;
      }
      if (engine != std::string("computeSR")) {
        std::printf(" %.2f |", measurement.seconds * 1e3);
      }
      std::printf(" %.1f |", measurement.counters["heap"] / (1 << 20));
    }
    std::printf("\n");
  }

  void printRow(const std::string& size, double bandwidth, double peak) {
    const auto slash = size.find('/');
    const std::string width = size.substr(0, slash), height = size.substr(slash + 1);
    const auto seconds = [&](const char* function) { return of(function, argumentsOf(size)).seconds; };
    const double pixels = std::stod(width) * std::stod(height);
    std::printf("| %sx%s |", width.c_str(), height.c_str());
    for (const char* stage : {"addFrame", "registerWindow", "minimize", "computeSR"}) {
      std::printf(" %.2f (%.1f) |", seconds(stage) * 1e3, seconds(stage) / pixels * 1e9);
    }
    const double perPixel = seconds("computeSR") / pixels;
    if (perPixelBefore > 0) {
      std::printf(" %.2f |", perPixel / perPixelBefore);
    } else {
      std::printf(" |");  // the first size
    }
    perPixelBefore = perPixel;
    std::printf(" %.2f | %.2f | %.2f |", ratio(seconds("PlainRegisterWindow"), seconds("registerWindow")),
                ratio(seconds("PlainMinimize"), seconds("minimize")),
                ratio(seconds("PlainComputeSR"), seconds("computeSR")));
    const double applications = of("PlainMinimize", argumentsOf(size)).counters["applications"] * pixels;
    const auto shareOf = [&](double most, double perPixelWork) {
      return 100 * ratio(ratio(applications * perPixelWork, seconds("minimize")), most);
    };
    const auto moving = [&](double bytes, const char* stage) {
      return 100 * ratio(ratio(pixels * bytes, seconds(stage)), bandwidth);
    };
    std::printf(" %.0f %% | %.0f %% | %.0f %% | %.0f %% |\n", moving(intakeBytesPerPixel, "addFrame"),
                moving(registrationBytesPerPixel, "registerWindow"), shareOf(bandwidth, bytesPerPixel),
                shareOf(peak, operationsPerPixel));
  }

  void printLocalMotion() {
    Measurement multiplyAdd = of("multiplyAdd", "");
    const double peak = ratio(multiplyAdd.counters["operations"], multiplyAdd.seconds);
    std::printf(
        "\n| local motion: size, preset, roll / 0.01 degrees, threads | ms | preparation | motion | sensor | masks | "
        "solve "
        "| solve: of multiply-add |\n|---|--:|--:|--:|--:|--:|--:|--:|\n");
    for (auto& [arguments, measurement] : measured["LocalMotion"]) {
      std::printf("| %s | %.0f |", arguments.c_str(), measurement.seconds * 1e3);
      const auto secondsOf = [seconds = measurement.seconds, &counters = measurement.counters](const char* stage) {
        return 0.01 * counters[stage] * seconds;
      };
      for (const char* stage : {"preparation", "motion", "sensor", "masks", "solve"}) {
        std::printf(" %.0f |", secondsOf(stage) * 1e3);
      }
      const double operations = measurement.counters["solved"] * operationsPerPixel;
      std::printf(" %.0f %% |\n", 100 * ratio(ratio(operations, secondsOf("solve")), peak));
    }
    std::printf("\nLocal motion: wall time; the share of the peak is that of one thread.\n");
  }

  double perPixelBefore = 0;
  std::map<std::string, std::map<std::string, Measurement>> measured;  // by function and arguments
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 1;
  }
  TableReporter reporter;
  reporter.SetOutputStream(&std::cerr);
  reporter.SetErrorStream(&std::cerr);
  return benchmark::RunSpecifiedBenchmarks(&reporter) > 0 ? 0 : 1;
}
