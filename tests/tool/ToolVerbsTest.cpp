// What each verb of the command-line tool promises, in words, in JSON and in files.

#include <sstream>

#include "tests/tool/ToolRun.h"
#include "tools/movra-sr/io/FrameSource.h"

using namespace movra::tool;

namespace {

/// A straight edge some degrees off the columns, its blur a Gaussian of this width in frame pixels.
cv::Mat_<float> slantedEdge(cv::Size size, double blur) {
  cv::Mat_<float> edge(size);
  for (int y = 0; y < size.height; ++y) {
    for (int x = 0; x < size.width; ++x) {
      const double distance = std::cos(0.1) * (x - size.width / 2) + std::sin(0.1) * (y - size.height / 2);
      edge(y, x) = static_cast<float>(20 + 10 * std::erf(distance / (blur * std::sqrt(2.))));
    }
  }
  cv::Mat_<float> noise(size);
  cv::RNG(4).fill(noise, cv::RNG::NORMAL, 0, 0.02);
  edge += noise;
  return edge;
}

std::vector<Frame> pagesOf(const std::string& file) {
  std::vector<Frame> pages;
  readFrames(file, {}, [&](Frame&& page) { pages.push_back(std::move(page)); });
  return pages;
}

TEST_F(ToolCommand, EveryHelpFitsItsColumnsAndTellsTheExitCodes) {
  for (const std::string command :
       {"", "reconstruct", "stream", "register", "bad-pixels", "measure-psf", "simulate", "compare", "info", "batch"}) {
    const Outcome help = run(command + " --help");
    EXPECT_EQ(help.code, 0) << command;
    EXPECT_NE(help.out.find("Exit codes"), std::string::npos) << command;
    EXPECT_NE(help.out.find("Example:"), std::string::npos) << command;
    std::istringstream lines(help.out);
    for (std::string line; std::getline(lines, line);) {
      EXPECT_LE(line.size(), 100U) << line;
    }
    EXPECT_LE(std::count(help.out.begin(), help.out.end(), '\n'), 70) << command;
  }
  EXPECT_GT(run("reconstruct --help-all").out.size(), run("reconstruct --help").out.size() + 500);
}

TEST_F(ToolCommand, JsonIsOneDocumentWithTheFiguresOfTheWords) {
  const auto document = [&](const std::string& arguments, int code) {
    const nlohmann::json json = documentOf(arguments, code);
    EXPECT_EQ(json.value("exit_code", -1), code) << arguments << json;
    return json;
  };
  const auto simulated = document("simulate -o burst --size 96x72 --stuck 2", 0);
  EXPECT_EQ(simulated["files"]["frames"].size(), 5U);
  EXPECT_EQ(simulated["burst"], nlohmann::json::parse(readAll(at("burst/burst.json"))));

  const auto made = document("reconstruct burst -o sr.tiff --coverage coverage.tiff", 0);
  const std::string words = run("reconstruct burst -o sr.tiff --force").out;
  EXPECT_NEAR(made["sr_factor"], number(words, "sr factor: "), 0.005);
  for (const std::string figure : {"minimum", "mean", "maximum"}) {
    EXPECT_NEAR(made["inside"][figure], number(words, figure + " "), 0.005);
  }
  EXPECT_NE(words.find(made["status"].get<std::string>()), std::string::npos);
  const cv::Rect inside(made["inside"]["x"], made["inside"]["y"], made["inside"]["width"], made["inside"]["height"]);
  const cv::Mat_<float> image = imageOf("sr.tiff");
  EXPECT_NEAR(cv::mean(image(inside))[0], made["inside"]["mean"], 1e-4);
  for (std::size_t i = 0; i < 5; ++i) {
    EXPECT_NEAR(made["frames"][i]["dx"], simulated["burst"]["frames"][i]["dx"], 0.1) << i;
  }
  const cv::Mat_<float> coverage = imageOf("coverage.tiff");
  EXPECT_EQ(coverage.size(), cv::Size(96, 72));
  const auto [least, most] = std::minmax_element(coverage.begin(), coverage.end());
  EXPECT_TRUE(*least >= 1 && *most == 5) << *least << *most;
  ASSERT_EQ(run("reconstruct burst -o cropped.tiff --crop-border").code, 0);
  EXPECT_EQ(cv::norm(imageOf("cropped.tiff"), image(inside), cv::NORM_INF), 0);

  const auto compared = document("compare sr.tiff burst/truth.tiff", 0);
  EXPECT_NEAR(compared["psnr_db"], psnr("sr.tiff"), 0.005);
  EXPECT_EQ(document("bad-pixels burst/frame_00.tiff", 3)["error"].get<std::string>().find("burst/frame_00.tiff"), 0U);
  EXPECT_EQ(document("info", 0)["cameras"].size(), 8U);
  EXPECT_EQ(run("reconstruct burst -o sr.tiff --force --quiet").out, "");
}

TEST_F(ToolCommand, WhatIsWorthANoteIsToldAndStrictMakesItAFailure) {
  ASSERT_EQ(run("simulate -o burst --size 96x72 --max-shift 0").code, 0);
  const Outcome still = run("reconstruct --motion global burst -o still.tiff");
  EXPECT_EQ(still.code, 0);
  EXPECT_NE(still.err.find("fractions of a pixel"), std::string::npos) << still.err;
  EXPECT_EQ(run("reconstruct --motion global burst -o strict.tiff --strict").code, 1);
  EXPECT_FALSE(std::filesystem::exists(at("strict.tiff")));
  EXPECT_EQ(run("register burst -o strict.csv --strict").code, 1);
  EXPECT_FALSE(std::filesystem::exists(at("strict.csv")));

  // One axis only, a jump of level, and an unusable frame that the window does not hold.
  ASSERT_EQ(run("simulate -o burst --size 96x72 --frames 6 --force").code, 0);
  overwrite("burst/frame_05.tiff", cv::Mat_<float>(72, 96, 20.f));
  EXPECT_EQ(run("reconstruct --motion global burst -o first.tiff --first 1").code, 0);
  overwrite("burst/frame_02.tiff", cv::Mat_<float>(imageOf("burst/frame_02.tiff") + 30));
  const Outcome jump = run("reconstruct --motion global burst -o jump.tiff --first 1");
  EXPECT_NE(jump.err.find("frame_02.tiff: its level is 29"), std::string::npos) << jump.err;

  std::filesystem::remove(at("burst/frame_05.tiff"));
  simulate();
  const Outcome byFile = run("reconstruct burst -o file.tiff --reference frame_03.tiff");
  const Outcome byNumber = run("reconstruct burst -o number.tiff --reference 1");
  EXPECT_EQ(byFile.out.substr(0, byFile.out.find("image:")), byNumber.out.substr(0, byNumber.out.find("image:")));
  expectCode(2, "reconstruct burst -o x.tiff --reference ", {"5", "truth.tiff"});
}

TEST_F(ToolCommand, LocalMotionFollowsRollAndAnyNumberOfThreadsGivesTheSameImage) {
  ASSERT_EQ(run("simulate -o burst --size 96x72 --roll 1").code, 0);
  ASSERT_EQ(run("reconstruct burst -o one.tiff --threads 1").code, 0);
  ASSERT_EQ(run("reconstruct burst -o three.tiff --threads 3").code, 0);
  EXPECT_EQ(difference("one.tiff", "three.tiff"), 0);
  ASSERT_EQ(run("reconstruct burst -o global.tiff --motion global").code, 0);
  EXPECT_GT(psnr("one.tiff"), psnr("global.tiff") + 3);

  const auto made = documentOf("register burst");
  const auto truth = nlohmann::json::parse(readAll(at("burst/burst.json")));
  for (std::size_t i = 0; i < 5; ++i) {
    for (const char* const key : {"dx", "dy", "roll_degrees"}) {
      EXPECT_NEAR(made["frames"][i][key], truth["frames"][i][key], 0.08) << i << key;
    }
  }
  ASSERT_EQ(run("register burst -o shifts.csv").code, 0);
  const std::string csv = readAll(at("shifts.csv"));
  EXPECT_EQ(csv.rfind("frame,dx,dy,roll_degrees,", 0), 0U);
  EXPECT_EQ(std::count(csv.begin(), csv.end(), '\n'), 6);
  EXPECT_NE(run("reconstruct burst/frame_00.tiff -o single.tiff").out.find("made of one frame"), std::string::npos);
}

TEST_F(ToolCommand, FaultsOfTheSensorAreFoundUnlessTheSearchIsSwitchedOff) {
  ASSERT_EQ(run("simulate -o burst --size 128x96 --stuck 8 --drift 1").code, 0);
  const auto made = documentOf("reconstruct burst -o found.tiff");
  EXPECT_GE(made["method"]["bad_pixels_found"], 6);
  ASSERT_EQ(run("reconstruct burst -o kept.tiff --no-bad-pixel-search --no-pattern --no-offset").code, 0);
  EXPECT_GT(psnr("found.tiff"), psnr("kept.tiff") + 1);
  EXPECT_EQ(run("reconstruct burst -o x.tiff --motion global --no-pattern").code, 2);
}

TEST_F(ToolCommand, TheListOfACameraGrowsAndAPixelCountsWhenTwoBurstsShowedIt) {
  ASSERT_EQ(run("simulate -o burst --size 128x96 --stuck 6").code, 0);
  const std::string burst = "reconstruct burst -o sharp.tiff --force --bad-pixels camera.csv";
  const auto grow = [&] { return documentOf(burst + " --save-bad-pixels camera.csv")["bad_pixels"]; };
  const auto first = grow();
  EXPECT_EQ(first["kept_certain"], 0);
  EXPECT_GE(first["kept_doubtful"], 5);
  EXPECT_EQ(documentOf(burst)["bad_pixels"]["listed"], 0);
  const auto second = grow();
  EXPECT_EQ(second["kept_certain"], first["kept_doubtful"]);
  const std::string list = readAll(at("camera.csv"));
  const auto third = grow();
  EXPECT_EQ(third["listed"], second["kept_certain"]);
  EXPECT_EQ(third["kept_certain"], second["kept_certain"]);
  EXPECT_EQ(list.rfind("x,y,x1,y1,x2,y2,x3,y3,x4,y4,width,height,bursts\n", 0), 0U);

  writeAll(at("hand.csv"), "x,y\n3,4\n");
  ASSERT_EQ(run("reconstruct burst -o sharp.tiff --force --bad-pixels hand.csv --save-bad-pixels all.csv").code, 0);
  EXPECT_NE(readAll(at("all.csv")).find("\n3,4,3,5,2,4,3,3,4,4,128,96,0\n"), std::string::npos)
      << readAll(at("all.csv"));
  EXPECT_EQ(readAll(at("hand.csv")), "x,y\n3,4\n");
  EXPECT_EQ(run("reconstruct burst -o x.tiff --save-bad-pixels all.csv").code, 4) << "a list that is not read";
  expectCode(2, "reconstruct burst -o x.tiff --save-bad-pixels b.csv ", {"--no-bad-pixel-search", "--motion global"});
}

TEST_F(ToolCommand, ThePatternOfACameraIsUsedAndAveragedAndNothingElseIsTakenForOne) {
  ASSERT_EQ(run("simulate -o burst --size 128x96 --pattern 0.5").code, 0);
  ASSERT_EQ(run("reconstruct burst -o first.tiff --pattern camera.tiff").code, 0);
  const std::vector<Frame> before = pagesOf(at("camera.tiff"));
  ASSERT_EQ(run("reconstruct burst -o second.tiff --pattern camera.tiff --save-bad-pixels b.csv").code, 0);
  EXPECT_GT(psnr("second.tiff"), psnr("first.tiff"));
  const auto frames = [](const std::vector<Frame>& pattern) { return cv::sum(pattern.at(1).pixels)[0]; };
  const double once = frames(before);
  EXPECT_GT(once, 4 * 128 * 96);
  EXPECT_GT(frames(pagesOf(at("camera.tiff"))), 1.9 * once);

  const std::string now = readAll(at("camera.tiff"));
  const std::string standing = " burst/frame_00.tiff burst/frame_01.tiff -o x.tiff --pattern ";
  const Outcome untold = run("reconstruct" + standing + "camera.tiff");
  EXPECT_EQ(untold.code, 0) << untold.err;
  EXPECT_NE(untold.err.find("tells no fixed pattern"), std::string::npos) << untold.err;
  EXPECT_EQ(run("reconstruct" + standing + "new.tiff --force").code, 0);
  EXPECT_FALSE(std::filesystem::exists(at("new.tiff")));
  ASSERT_EQ(run("stream burst -o series.tiff --frames 4").code, 0);  // two pages
  const std::string series = readAll(at("series.tiff"));
  const std::string moving = "reconstruct burst -o x.tiff --force --pattern ";
  expectCode(3, moving, {"camera.tiff --gain 2", "series.tiff", "burst/frame_00.tiff"});
  EXPECT_EQ(readAll(at("series.tiff")), series);
  expectCode(2, moving, {"camera.tiff --no-pattern"});
  simulate();
  expectCode(3, moving, {"camera.tiff"});
  EXPECT_EQ(readAll(at("camera.tiff")), now);
}

TEST_F(ToolCommand, MotionsOfAFileAreTakenInPlaceOfAnEstimate) {
  ASSERT_EQ(run("simulate -o burst --size 96x72 --roll 0.5").code, 0);
  ASSERT_EQ(run("reconstruct burst -o own.tiff").code, 0);
  for (const std::string file : {"shifts.csv", "shifts.json"}) {
    ASSERT_EQ(run("register burst -o " + file).code, 0);
    const auto made = documentOf("reconstruct burst -o given.tiff --force --reference 0 --shifts " + file);
    EXPECT_EQ(made["used_frames"], 5);
    EXPECT_NEAR(made["frames"][4]["dx"], 0, 1e-9);
    ASSERT_EQ(run("reconstruct burst -o given.tiff --force --shifts " + file).code, 0);
    EXPECT_GT(psnr("given.tiff"), psnr("own.tiff") - 0.5) << file;
  }
  // By hand: wrong for one frame, and one that is to be left out.
  writeAll(at("hand.csv"),
           "frame,dx,dy,used\nframe_00.tiff,0,0,1\nframe_01.tiff,9,9,1\n\"frame_02.tiff\",0,0,0\n"
           "frame_03.tiff,0,0,\nframe_04.tiff,0,0,1\n");
  const Outcome hand = run("reconstruct burst -o hand.tiff --shifts hand.csv");
  EXPECT_NE(hand.err.find("frame_02.tiff: left out"), std::string::npos) << hand.err;
  EXPECT_LT(psnr("hand.tiff"), psnr("own.tiff") - 3);
  for (const std::string text :
       {"", "frame,dx\n", "frame,dx,dy\nframe_00.tiff,0,0\n", "frame,dx,dy\nframe_00.tiff,0,x\n",
        "frame,dx,dy\nframe_00.tiff,0\n", "frame,dx,dy\nframe_00.tiff,nan,0\n"}) {
    writeAll(at("wrong.csv"), text);
    const Outcome wrong = run("reconstruct burst -o x.tiff --shifts wrong.csv");
    EXPECT_EQ(wrong.code, 3) << text;
    EXPECT_NE(wrong.err.find("wrong.csv"), std::string::npos) << wrong.err;
  }
  writeAll(at("wrong.json"), "{\"frames\": [{\"name\": 3, \"dx\": 1}, 7]}");
  EXPECT_EQ(run("reconstruct burst -o x.tiff --shifts wrong.json").code, 3);
  std::string far = "frame,dx,dy\n";
  for (const std::string name : frameNames) {
    far += name + ",1e9,0\n";
  }
  writeAll(at("far.csv"), far);
  EXPECT_EQ(run("reconstruct burst -o x.tiff --shifts far.csv").code, 2);
}

TEST_F(ToolCommand, AResultWhoseFramesFitInPartOnlySaysSo) {
  simulate();
  // Below a line the scene of every frame but the reference is another one.
  changeFrames([](const std::string& name, cv::Mat_<float>& frame) {
    if (name != frameNames[1]) {
      cv::Mat below = frame.rowRange(24, 72);
      cv::flip(below.clone(), below, 1);
    }
  });
  const Outcome made = run("reconstruct burst -o sharp.tiff --report report.html --shifts burst/shifts.csv");
  EXPECT_EQ(made.code, 0) << made.err;
  EXPECT_NE(made.out.find("status: good, in parts: "), std::string::npos) << made.out;
  EXPECT_NE(readAll(at("report.html")).find("fit together in parts"), std::string::npos);
}

TEST_F(ToolCommand, ASeriesHasAnImagePerNewFrameTheSameAsAlone) {
  ASSERT_EQ(run("simulate -o burst --size 64x48 --frames 7").code, 0);
  overwrite("burst/frame_03.tiff", cv::Mat_<float>(48, 64, 20.f));
  const Outcome made = run("stream burst -o series.tiff --frames 4");
  EXPECT_EQ(made.code, 0) << made.err;
  EXPECT_NE(made.err.find("frame_03.tiff: left out"), std::string::npos) << made.err;
  const std::vector<Frame> pages = pagesOf(at("series.tiff"));
  ASSERT_EQ(pages.size(), 3U);
  ASSERT_EQ(run("stream burst -o sharp_##.tiff --frames 4").code, 0);
  ASSERT_EQ(run("reconstruct burst/frame_0[0124].tiff -o alone.tiff").code, 0);
  EXPECT_EQ(cv::norm(pages.front().pixels, imageOf("alone.tiff"), cv::NORM_INF), 0);
  EXPECT_EQ(difference("sharp_01.tiff", "alone.tiff"), 0);
  EXPECT_TRUE(std::filesystem::exists(at("sharp_03.tiff")));

  // From a pipe. What was made is kept when the last frame is cut off, and when the series is ended from outside.
  std::string raw;
  for (int i = 0; i < 7; ++i) {
    cv::Mat_<ushort> counts;
    cv::Mat(100 * imageOf("burst/frame_0" + std::to_string(i) + ".tiff") + 40000).convertTo(counts, CV_16U);
    raw.append(reinterpret_cast<const char*>(counts.data), counts.total() * sizeof(ushort));
  }
  writeAll(at("frames.raw"), raw.substr(0, raw.size() - 5));
  const std::string options = "stream - --raw 64x48 --counts --frames 4 --quiet ";
  const Outcome cut = run(options + "--16-bit -o piped.tiff < frames.raw");
  EXPECT_EQ(cut.code, 3);
  EXPECT_NE(cut.err.find("ends early"), std::string::npos) << cut.err;
  const std::vector<Frame> piped = pagesOf(at("piped.tiff"));
  ASSERT_EQ(piped.size(), 2U);
  EXPECT_EQ(piped.front().sample, Sample::uint16);
  const Outcome ended =
      run("info --quiet; mkfifo fifo; '" MOVRA_SR_PROGRAM "' " + options +
          "-o n_#.tiff < fifo & series=$!; "
          "(cat frames.raw; until [ -e n_2.tiff ]; do sleep 0.02; done; kill $series; sleep 0.5) > fifo; wait $series");
  EXPECT_EQ(ended.code, 1) << ended.err;
  EXPECT_EQ(imageOf("n_2.tiff").size(), cv::Size(128, 96));
}

TEST_F(ToolCommand, TheBlurOfAnEdgeIsMeasuredAndTakenOver) {
  overwrite("edge.tiff", slantedEdge({96, 72}, 0.45));
  const double width = documentOf("measure-psf edge.tiff -o lens.json --plot edge.png")["psf_sigma"];
  EXPECT_NEAR(width, 0.9, 0.03);
  simulate();
  ASSERT_EQ(run("reconstruct burst -o file.tiff --psf-file lens.json").code, 0);
  ASSERT_EQ(run("reconstruct burst -o number.tiff --psf-sigma " + std::to_string(width)).code, 0);
  EXPECT_LT(difference("file.tiff", "number.tiff"), 1e-2);
  EXPECT_EQ(run("reconstruct burst -o x.tiff --psf-file burst/shifts.csv").code, 3);
  overwrite("even.tiff", cv::Mat_<float>(72, 96, 20.f));
  EXPECT_EQ(run("measure-psf even.tiff").code, 1);
}

TEST_F(ToolCommand, OfManyFramesThoseAreUsedThatComplementEachOther) {
  ASSERT_EQ(run("simulate -o burst --size 96x72 --frames 24").code, 0);
  const auto made = documentOf("reconstruct burst -o twelve.tiff --reference frame_20.tiff");
  EXPECT_EQ(made["used_frames"], 12);
  EXPECT_EQ(made["given_frames"], 24);
  ASSERT_EQ(made["frames"].size(), 24U);
  EXPECT_EQ(std::count_if(made["frames"].begin(), made["frames"].end(),
                          [](auto& f) { return f.value("reason", "").rfind("not needed", 0) == 0; }),
            12);
  EXPECT_EQ(made["reference"], "burst/frame_20.tiff");
  ASSERT_EQ(run("reconstruct burst -o last.tiff --first 20 --frames 5 --reference frame_20.tiff").code, 0);
  EXPECT_GT(psnr("twelve.tiff"), psnr("last.tiff") - 0.1);  // whose places happen to be good
  EXPECT_NE(run("reconstruct burst -o all.tiff --frames all").out.find("all frames could be aligned"),
            std::string::npos);
}

TEST_F(ToolCommand, EveryCommandOfTheGuideWorks) {
  // What the guide takes for granted.
  simulate();
  overwrite("edge.tiff", slantedEdge({96, 72}, 0.45));
  cv::Mat_<ushort> even(72, 96);
  cv::RNG(9).fill(even, cv::RNG::UNIFORM, 40000, 40060);
  even(20, 10) = 0;
  movra::test::writeTiff(at("even-scene.tiff"), {even});
  std::filesystem::create_directory(at("recordings"));
  std::filesystem::copy(at("burst"), at("recordings/first"));
  writeRaw([](const cv::Mat_<float>& temperatures) {
    cv::Mat raw;
    temperatures.convertTo(raw, CV_16U, 100, 5000);
    return raw;
  });

  std::ifstream guide(MOVRA_SR_GUIDE);
  int commands = 0;
  const std::string prompt = "    movra-sr ";
  for (std::string line; std::getline(guide, line);) {
    if (line.rfind(prompt, 0) != 0) {
      continue;
    }
    ++commands;
    const std::string arguments = line.substr(prompt.size());
    const bool writes = arguments.find(" -o ") != std::string::npos;
    const Outcome result = run(arguments + (writes ? " --force" : ""));
    EXPECT_EQ(result.code, 0) << line << '\n' << result.out << result.err;
  }
  EXPECT_GT(commands, 20);
}

}  // namespace
