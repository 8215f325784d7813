#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cmath>
#include <cstdlib>
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

  /// Makes frame_00.tiff .. frame_04.tiff of 96 x 72 pixels in the folder `burst`.
  void simulate() const { ASSERT_EQ(run("simulate -o burst --size 96x72 --force").code, 0); }

  void overwrite(const std::string& name, const cv::Mat_<float>& image) const {
    movra::tool::OutputFile file(at(name), true);
    movra::tool::writeImage(file, image, {{}, true});
    file.commit();
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
