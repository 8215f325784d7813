#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/TestFolder.h"
#include "tests/tool/TestImages.h"
#include "tools/movra-sr/io/Frames.h"
#include "tools/movra-sr/io/ImageWriter.h"
#include "tools/movra-sr/io/OutputFile.h"

inline constexpr const char* frameNames[] = {"frame_00.tiff", "frame_01.tiff", "frame_02.tiff", "frame_03.tiff",
                                             "frame_04.tiff"};

/// What a run of the tool left behind.
struct Outcome {
  int code;
  std::string out;
  std::string err;
};

/// Runs of the tool in a folder of the test.
class ToolCommand : public TestFolder {
 protected:
  /// Runs the tool in the test's folder.
  Outcome run(const std::string& arguments) const {
    const std::string command = "cd '" + folder.string() + "' && '" MOVRA_SR_PROGRAM "' " + arguments + " >'" +
                                at("stdout") + "' 2>'" + at("stderr") + "'";
    const int status = std::system(command.c_str());
    Outcome result{WIFEXITED(status) ? WEXITSTATUS(status) : -1, readAll(at("stdout")), readAll(at("stderr"))};
    std::filesystem::remove(at("stdout"));
    std::filesystem::remove(at("stderr"));
    return result;
  }

  /// What a run with --json says.
  nlohmann::json documentOf(const std::string& arguments, int code = 0) const {
    const Outcome result = run(arguments + " --json");
    EXPECT_EQ(result.code, code) << arguments << result.err;
    return nlohmann::json::parse(result.out, nullptr, false);
  }

  /// Runs that end with the code, each by its own part of the arguments; a wrong command line with one line of text.
  void expectCode(int code, const std::string& command, const std::vector<std::string>& rest) const {
    for (const std::string& arguments : rest) {
      const Outcome result = run(command + arguments);
      EXPECT_EQ(result.code, code) << command + arguments << ": " << result.err;
      EXPECT_TRUE(code != 2 || std::count(result.err.begin(), result.err.end(), '\n') == 1) << result.err;
    }
  }

  /// Makes frame_00.tiff .. frame_04.tiff of 96 x 72 pixels in the folder `burst`.
  void simulate() const { ASSERT_EQ(run("simulate -o burst --size 96x72 --force").code, 0); }

  void overwrite(const std::string& name, const cv::Mat_<float>& image) const {
    movra::tool::OutputFile file(at(name), true);
    movra::tool::writeImage(file, image, {{}, true});
    file.commit();
  }

  /// Changes every frame of `burst` but those that the change leaves alone.
  template <class Change>
  void changeFrames(Change change) const {
    for (const std::string name : frameNames) {
      cv::Mat_<float> frame = imageOf("burst/" + name);
      change(name, frame);
      overwrite("burst/" + name, frame);
    }
  }

  /// `raw` holds the frames of `burst` as counts, cold.tiff and warm.tiff those of even scenes of -5 and 45.
  template <class Counts>
  void writeRaw(Counts counts) const {
    std::filesystem::create_directory(at("raw"));
    for (const std::string name : frameNames) {
      movra::test::writeTiff(at("raw/" + name), {counts(imageOf("burst/" + name))});
    }
    movra::test::writeTiff(at("cold.tiff"), {counts(cv::Mat_<float>(72, 96, -5.f))});
    movra::test::writeTiff(at("warm.tiff"), {counts(cv::Mat_<float>(72, 96, 45.f))});
  }

  cv::Mat_<float> imageOf(const std::string& name) const { return movra::tool::readImage(at(name)).pixels; }

  /// The largest difference of two images.
  double difference(const std::string& a, const std::string& b) const {
    return cv::norm(imageOf(a), imageOf(b), cv::NORM_INF);
  }

  /// An even scene of a 16-bit sensor with defects of known values, as 16-bit PNG.
  void writeScene(const std::string& name, const std::vector<std::pair<cv::Point, int>>& defects) const {
    cv::Mat_<ushort> image(48, 64);
    cv::RNG(9).fill(image, cv::RNG::UNIFORM, 40000, 40060);
    for (const auto& [pixel, value] : defects) {
      image(pixel) = static_cast<ushort>(value);
    }
    movra::test::writePng(at(name), image);
  }

  /// Of an image compared to the simulated scene.
  double psnr(const std::string& image) const {
    return number(run("compare " + image + " burst/truth.tiff").out, "PSNR: ");
  }

  /// The number behind the text in the output.
  static double number(const std::string& output, const std::string& text) {
    const auto place = output.find(text);
    EXPECT_NE(place, std::string::npos) << output;
    return place == std::string::npos ? std::nan("") : std::strtod(output.c_str() + place + text.size(), nullptr);
  }
};
