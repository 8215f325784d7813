// Readers and writers of image files: every format's ways to store values, and
// files that are damaged or no frames.

#include <sys/resource.h>
#include <sys/stat.h>
#include <tiffio.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "tests/support/TestFolder.h"
#include "tests/tool/TestImages.h"
#include "tests/tool/ToolFailure.h"
#include "tools/movra-sr/io/FrameSource.h"
#include "tools/movra-sr/io/ImageReader.h"
#include "tools/movra-sr/io/ImageWriter.h"
#include "tools/movra-sr/io/NaturalOrder.h"

using namespace movra::tool;

namespace {

Frame fromBytes(const std::string& content) {
  const auto reader = openImage(bytesOf(content), "image");
  return readFrame(*reader, 0, {});
}

std::string npy(const std::string& descr, const std::string& shape, const std::string& data,
                const std::string& order = "False") {
  const std::string header = "{'descr': '" + descr + "', 'fortran_order': " + order + ", 'shape': " + shape + ", }\n";
  std::string start("\x93NUMPY\1\0", 8);
  start += static_cast<char>(header.size());
  return start + '\0' + header + data;
}

std::string utf16(const std::string& text) {
  std::string wide = "\xFF\xFE";
  for (const char c : text) {
    wide += c;
    wide += '\0';
  }
  return wide;
}

bool sameValues(const cv::Mat_<float>& a, const cv::Mat_<float>& b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](float x, float y) {
           return x == y || (std::isnan(x) && std::isnan(y));
         });
}

class ToolReaders : public TestFolder {
 protected:
  void write(const std::string& name, const cv::Mat_<float>& image, const ImageEncoding& encoding = {},
             const ImageDescription& description = {}) const {
    OutputFile file(at(name), true);
    writeImage(file, image, description, encoding);
    file.commit();
  }
};

TEST_F(ToolReaders, TablesAsProgramsExportThem) {
  const float nan = std::nanf("");
  const cv::Mat_<float> expected = (cv::Mat_<float>(2, 3) << 20.5f, -1.f, 3000.f, 7.f, nan, 0.25f);
  const std::pair<const char*, std::string> tables[] = {
      {"commas", "20.5,-1,3e3\n7,,0.25\n"},
      {"blanks after commas", "20.5, -1, 3000\n7, nan, .25"},
      {"semicolons and decimal commas", "20,5;-1;3000\r\n7;NaN;0,25\r\n"},
      {"a separator at the end of each line", "20,5;-1;3000;\n7;-;0,25;\n"},
      {"tabs", "20,5\t-1\t+3000\n\n7\tN/A\t0,25\n\n"},
      {"blanks", "  20.5   -1 3000\n 7 nan 0.25 \n"},
      {"blanks and decimal commas", "20,5 -1,0 3000\n7 nan 0,25\n"},
      {"quotes", "\"20,5\",\"-1\",\"3000\"\n\"7\",\"\",\"0,25\"\n"},
      {"old line ends", "20.5,-1,3000\r7,nan,0.25\r"},
      {"mark of UTF-8",
       "\xEF\xBB\xBF"
       "20.5,-1,3000\n7,nan,0.25\n"},
      {"UTF-16", utf16("20,5;-1;3000\r\n7;nan;0,25\r\n")},
      {"header lines",
       "File: a 1;\nEmissivity;0,95\nUnit;\xB0"
       "C;\n\n20,5;-1;3000\n7;nan;0,25\n"},
      {"numbers of columns", "0,1,2\n20.5,-1,3000\n7,nan,0.25\n"},
      {"numbers of columns and rows", ";1;2;3\n1;20,5;-1;3000\n2;7;;0,25\n"},
      {"named columns and rows", "y\\x,0,1,2\n0,20.5,-1,3000\n1,7,,0.25\n"},
      {"comments", "# made by hand\n20.5 -1 3000\n7 nan 0.25\n"},
  };
  for (const auto& [name, text] : tables) {
    EXPECT_TRUE(sameValues(fromBytes(text).pixels, expected)) << name << fromBytes(text).pixels;
  }
  // A first column that happens to count is a column, unless something calls it
  // a label.
  EXPECT_EQ(fromBytes("1,5\n2,6\n3,9\n").pixels.cols, 2);

  writeAll(at("f1.csv"), tables[11].second);
  writeAll(at("f2.csv"), tables[11].second);
  FrameSource source({folder.string()});
  EXPECT_TRUE(source.read(0).name == at("f1.csv") && source.read(1).name == at("f2.csv"));
  const auto notes = source.takeNotes();
  ASSERT_EQ(notes.size(), 1U);
  EXPECT_NE(notes[0].find("f1.csv: the first 4 lines"), std::string::npos) << notes[0];
}

TEST_F(ToolReaders, EachWayToStoreValuesIsRead) {
  cv::Mat whole(21, 37, CV_32S);
  cv::RNG(5).fill(whole, cv::RNG::UNIFORM, 0, 120);
  cv::Mat_<float> expected;
  whole.convertTo(expected, CV_32F);
  const auto check = [&](const std::string& name) {
    EXPECT_TRUE(sameValues(readImage(at(name)).pixels, expected)) << name;
  };
  for (const int depth : {CV_8U, CV_8S, CV_16U, CV_16S, CV_32S, CV_32F, CV_64F}) {
    cv::Mat image;
    expected.convertTo(image, depth);
    const std::string name = std::to_string(depth) + ".tiff";
    for (const auto& layout :
         {movra::test::TiffLayout{}, {true, false, 1}, {false, true, 1}, {true, true, 8}, {false, false, 5}}) {
      movra::test::writeTiff(at(name), {image}, layout);
      check(name);
    }
    cv::Mat colour;
    cv::merge(std::vector<cv::Mat>(3, image), colour);
    movra::test::writeTiff(at(name), {colour}, {true, false, 1});
    check(name);
    if (depth != CV_8U && depth != CV_16U) {
      continue;
    }
    for (const bool interlaced : {false, true}) {
      movra::test::writePng(at("grey.png"), image, interlaced);
      check("grey.png");
      movra::test::writePng(at("colour.png"), colour, interlaced);
      check("colour.png");
    }
    std::string pgm = "P5 37 # columns\n21\n" + std::string(depth == CV_8U ? "255\n" : "65535\n");
    for (const float value : expected) {
      pgm += (depth == CV_8U ? "" : std::string(1, '\0')) + static_cast<char>(value);
    }
    writeAll(at("a.pgm"), pgm);
    check("a.pgm");
    writeAll(at("twice.pgm"), pgm + pgm);
    EXPECT_EQ(FrameSource({at("twice.pgm")}).count(), 2U);
  }
  const std::string pair("\0\1\377\376", 4);
  EXPECT_TRUE(sameValues(fromBytes(npy(">u2", "(1, 2)", pair)).pixels, (cv::Mat_<float>(1, 2) << 1, 65534)));
  EXPECT_TRUE(sameValues(fromBytes(npy("<i2", "(2, 1, 1)", pair)).pixels, (cv::Mat_<float>(1, 1) << 256)));
  EXPECT_TRUE(sameValues(fromBytes(npy("|u1", "(2, 2)", pair)).pixels, (cv::Mat_<float>(2, 2) << 0, 1, 255, 254)));
  EXPECT_TRUE(sameValues(fromBytes("P2 2 1 9\n1\n9").pixels, (cv::Mat_<float>(1, 2) << 1, 9)));

  writeAll(at("a.raw"), pair + pair);
  for (const auto& [layout, value] : {std::pair<std::string, float>("2x1", 256), {"2x1,big", 1}}) {
    FrameSource raw({at("a.raw")}, {{2, 1}, parseRawLayout(layout)});
    EXPECT_EQ(raw.count(), 2U);
    EXPECT_EQ(raw.read(1).pixels(0, 0), 2 * value + 1);
  }
}

TEST_F(ToolReaders, FloatsKeepTheirBitsAndFlagsSurviveScaling) {
  const std::vector<std::uint32_t> bits = {129, 130, 132, 133, 0x7fc12345, 0x7f800000, 0xff800000, 0x3f800000};
  cv::Mat_<float> image(2, 4);
  std::memcpy(image.data, bits.data(), bits.size() * sizeof(float));
  write("floats.tiff", image);
  const cv::Mat_<float> read = readImage(at("floats.tiff")).pixels;
  ASSERT_EQ(read.size(), image.size());
  EXPECT_EQ(std::memcmp(read.data, image.data, bits.size() * sizeof(float)), 0);
  const cv::Mat_<float> scaled = readImage(at("floats.tiff"), {{2, 5}, {}}).pixels;
  EXPECT_EQ(std::memcmp(scaled.data, image.data, 4 * sizeof(float)), 0);
  EXPECT_EQ(scaled(1, 3), 7.f);
}

TEST_F(ToolReaders, WhatIsWrittenIsReadAndRecognisedAsAResult) {
  cv::Mat_<float> image = (cv::Mat_<float>(2, 3) << 20.25f, -5.5f, 1e-30f, 3e7f, std::nanf(""), 77.125f);
  for (const std::string name : {"f1.tiff", "f2.npy", "f3.csv"}) {
    write(name, image, {}, {"unit: K\nsecond line"});
    EXPECT_TRUE(sameValues(readImage(at(name)).pixels, image)) << name;
  }
  image(1, 0) = 90;
  const ImageEncoding fitting = sixteenBitsFor(image);
  EXPECT_LE(fitting.scale.gain, 0.002);
  for (const auto& [name, encoding] : {std::pair<std::string, ImageEncoding>("f4.png", fitting),
                                       {"f5.tif", fitting},
                                       {"f6.tiff", {Sample::int16, {0.5, 10}}}}) {
    write(name, image, encoding, {"unit: K"});
    const cv::Mat_<float> back = readImage(at(name), {encoding.scale, {}}).pixels;
    EXPECT_NEAR(back(0, 1), image(0, 1), encoding.scale.gain) << name;
    EXPECT_NEAR(back(1, 2), image(1, 2), encoding.scale.gain) << name;
    EXPECT_NE(readAll(at(name)).find(encoding.sample == Sample::int16 ? "value = 0.5 * stored + 10" : "value = 0.002"),
              std::string::npos)
        << name;
  }
  // In a folder of results alone nothing is left; a simulated frame stays one.
  EXPECT_NE(failureOf([&] { expandFolders({folder.string()}); }), "");
  EXPECT_NE(failureOf([&] { FrameSource({at("f1.tiff")}).read(0); }).find("result of movra-sr"), std::string::npos);
  write("f7.tiff", image, {}, {"", true});
  writeAll(at("f7 (2).tiff"), readAll(at("f7.tiff")));
  std::vector<std::string> notes;
  EXPECT_EQ(expandFolders({folder.string()}, notes), std::vector<std::string>{at("f7.tiff")});
  EXPECT_EQ(notes.size(), 6U);
  for (const auto& [name, encoding] : {std::pair<std::string, ImageEncoding>("a.png", {}),
                                       {"a.jpg", {}},
                                       {"a.csv", fitting},
                                       {"a.png", {Sample::int16, {}}}}) {
    EXPECT_NE(failureOf([&, file = name, how = encoding] { requireWritable(file, how); }, ExitCode::usage), "") << name;
  }
}

TEST_F(ToolReaders, AFileCutAnywhereOrWithAnyByteChangedIsReadOrRefused) {
  cv::Mat image(9, 11, CV_16U);
  cv::RNG(2).fill(image, cv::RNG::UNIFORM, 0, 65536);
  movra::test::writeTiff(at("a.tiff"), {image, image});
  movra::test::writeTiff(at("tiles.tiff"), {image}, {true, true, 8});
  movra::test::writePng(at("a.png"), image);
  write("a.npy", image);
  write("a.csv", image);
  writeAll(at("a.pgm"), "P5 11 9 65535\n" + std::string(198, 'x'));
  for (const std::string name : {"a.tiff", "tiles.tiff", "a.png", "a.npy", "a.csv", "a.pgm"}) {
    const std::string whole = readAll(at(name));
    const auto pagesOf = [&](const std::string& content) {
      const auto reader = openImage(bytesOf(content), name);
      cv::Mat_<float> pages(0, image.cols);
      for (std::size_t page = 0; page < reader->count(); ++page) {
        const cv::Mat_<float> pixels = readFrame(*reader, page, {}).pixels;
        if (pixels.cols == pages.cols) {
          pages.push_back(pixels);
        }
      }
      return pages;
    };
    const cv::Mat_<float> expected = pagesOf(whole);
    const bool text = name == "a.csv";  // of which a part is a smaller table
    for (std::size_t length = 0; length < whole.size(); ++length) {
      bool same = false;
      const std::string failure = failureOf([&] { same = sameValues(pagesOf(whole.substr(0, length)), expected); });
      EXPECT_TRUE(text || same || failure.find(name) != std::string::npos) << name << " cut to " << length;
    }
    for (std::size_t at = 0; at < whole.size(); ++at) {
      for (const char flip : {'\1', '\x80', '\xFF'}) {
        std::string changed = whole;
        changed[at] = static_cast<char>(changed[at] ^ flip);
        failureOf([&] { pagesOf(changed); });  // no other exception, no crash
      }
    }
  }
}

TEST_F(ToolReaders, WhatIsNoFrameIsRefusedWithAdvice) {
  movra::test::writeTiff(at("colour"), {cv::Mat(4, 4, CV_8UC3, cv::Scalar(1, 1, 2))});
  movra::test::writePng(at("colour.png"), cv::Mat(4, 4, CV_8UC3, cv::Scalar(3, 1, 1)));
  const std::pair<std::string, std::string> contents[] = {
      {"", "is empty"},
      {readAll(at("colour")), "colour image"},
      {readAll(at("colour.png")), "colour image"},
      {"\xFF\xD8\xFF\xE0 and so on", "JPEG"},
      {"BM and so on", "BMP"},
      {"PK\3\4 and so on", "spreadsheet"},
      {std::string("\0\0\0\x18"
                   "ftypisom",
                   12),
       "video"},
      {std::string("\0\1\2\3", 4), "neither PNG"},
      {"no table", "no table of numbers"},
      {"1,2\n3,4\n5\n", "line 3 has 1 values, the rows before 2"},
      {"1,2\n3,4\nend\n", "line 3 holds something else"},
      {"1.2.3,4\n5,6\n7,8,9\n", "rows of different lengths"},
      {npy("<f4", "(2, 3)", std::string(23, ' ')), "do not fit its shape (2, 3)"},
      {npy("<f4", "(2, 3)", std::string(25, ' ')), "do not fit its shape"},
      {npy("<f4", "(6,)", std::string(24, ' ')), "rows x columns"},
      {npy("<f4", "(2, 3)", std::string(24, ' '), "True"), "ascontiguousarray"},
      {npy("<f2", "(2, 3)", std::string(12, ' ')), "astype"},
      {npy("<f4", "(99999999, 99999999999)", ""), "impossible size"},
      {npy("<f4", "(18446744073709551615, 2)", ""), "impossible size"},
      {npy("<f4", "(4611686018427387904, 1, 1)", "1234"), "do not fit"},
      {"P5 60000 60000 255\n", "impossible size"},
      {"P5 0 4 255\n", "impossible size"},
      {"P5 2 2 70000\n1234", "damaged"},
      {"P2 2 1 9\n1 10\n", "not a whole PGM"},
  };
  for (const auto& [content, advice] : contents) {
    const std::string failure = failureOf([&, bytes = content] { fromBytes(bytes); });
    EXPECT_EQ(failure.rfind("image: ", 0), 0U) << failure;
    EXPECT_NE(failure.find(advice), std::string::npos) << failure << "; expected: " << advice;
  }
  writeAll(at("odd"), "15 bytes of raw");
  EXPECT_NE(failureOf([&] {
              FrameSource({at("odd")}, {{}, parseRawLayout("7x1")}).read(0);
            }).find("no whole number"),
            std::string::npos);
  for (const std::string wrong : {"", "7", "7x", "x7", "7x0", "-1x5", "7x5,little", "99999x99999", "7x5 "}) {
    EXPECT_NE(failureOf([&] { parseRawLayout(wrong); }, ExitCode::usage), "") << wrong;
  }
}

TEST_F(ToolReaders, AFolderGivesItsNumberedPicturesInNaturalOrderOrSaysWhatIsThere) {
  const std::vector<std::string> expected = {"f", "f1x3", "f1x20", "f02", "f2", "f9b", "f10", "f99999999999999999999"};
  std::vector<std::string> names(expected.rbegin(), expected.rend());
  std::sort(names.begin(), names.end(), naturalLess);
  EXPECT_EQ(names, expected);
  std::filesystem::create_directory(at("full"));
  for (const std::string name : {"f10.png", "f9.TIFF", "truth.tiff", "shifts1.csv", ".f1.png", "f11.tif"}) {
    writeAll(at("full/" + name), "x");
  }
  EXPECT_EQ(expandFolders({at("full"), "z.png"}),
            (std::vector<std::string>{at("full/f9.TIFF"), at("full/f10.png"), at("full/f11.tif"), "z.png"}));
  std::filesystem::remove_all(at("full"));

  const auto said = [&](const std::string& words) {
    const std::string failure = failureOf([&] { expandFolders({folder.string()}); });
    EXPECT_NE(failure.find(words), std::string::npos) << failure;
  };
  said("but nothing");
  std::filesystem::create_directory(at("inner"));
  said("1 folder;");
  writeAll(at("a1.jpg"), "x");
  writeAll(at("a2.jpg"), "x");
  said("2 .jpg files, 1 folder; pictures hold no measured values");
  writeAll(at("mean.tiff"), "x");
  said("1 image or table without a number");
  writeAll(at("a1.raw"), "x");
  said("1 raw file, 1 folder; raw files need the size");
}

TEST_F(ToolReaders, ADamagedFrameHurtsOnlyWhoAsksForIt) {
  cv::Mat_<float> image(4, 4, 1.f);
  write("f1.tiff", image, {}, {"", true});
  writeAll(at("f2.tiff"), "II*");
  movra::test::writeTiff(at("f3.tiff"), {cv::Mat(4, 4, CV_16U, cv::Scalar(3)), cv::Mat(4, 4, CV_16U, cv::Scalar(4))});
  FrameSource source({folder.string()});
  ASSERT_EQ(source.count(), 4U);
  EXPECT_EQ(source.read(3).pixels(0, 0), 4);
  EXPECT_NE(failureOf([&] { readImage(at("f3.tiff")); }).find("more than one page"), std::string::npos);
  EXPECT_EQ(source.read(0).pixels(0, 0), 1);
  EXPECT_NE(failureOf([&] { source.read(1); }).find("f2.tiff"), std::string::npos);
  const auto notes = source.takeNotes();
  ASSERT_EQ(notes.size(), 1U);
  EXPECT_NE(notes[0].find("f1.tiff: holds 32-bit floats, but " + at("f3.tiff") + ", page 2 16-bit integers"),
            std::string::npos)
      << notes[0];
  FrameSource again({at("f1.tiff"), at("f3.tiff")});
  int frames = 0;
  while (again.next()) {
    ++frames;
  }
  EXPECT_EQ(frames, 3);
  ASSERT_EQ(mkfifo(at("pipe.tiff").c_str(), 0600), 0);
  for (const auto& [name, words] : {std::pair("missing.tiff", "no such file"), {"pipe.tiff", "pipe or device"}}) {
    EXPECT_NE(failureOf([&, file = at(name)] { FrameSource({file}); }).find(words), std::string::npos) << name;
  }
}

using ToolReadersDeathTest = ToolReaders;

TEST_F(ToolReadersDeathTest, AnImageTakesLittleMoreMemoryThanItsPixels) {
  // 36 million pixels in a small file, as a hostile one has them; as floats
  // they take 144 million bytes.
  const cv::Mat wide = cv::Mat::zeros(6000, 6000, CV_16UC1);
  movra::test::writePng(at("a.png"), wide);
  movra::test::writeTiff(at("a.tiff"), {wide}, {false, false, COMPRESSION_ADOBE_DEFLATE});
  ASSERT_LT(std::filesystem::file_size(at("a.png")), 1U << 20U);
  const cv::Mat tooWide = cv::Mat::zeros(9000, 9000, CV_8UC1);
  movra::test::writePng(at("b.png"), tooWide);
  movra::test::writeTiff(at("b.tiff"), {tooWide}, {false, false, COMPRESSION_ADOBE_DEFLATE});
  for (const std::string name : {"b.png", "b.tiff"}) {
    EXPECT_NE(failureOf([&] { readImage(at(name)); }).find("impossible size"), std::string::npos) << name;
  }
  const auto peakOfReading = [&](const std::string& name) {
    rusage before{};
    getrusage(RUSAGE_SELF, &before);
    readImage(at(name));
    rusage after{};
    getrusage(RUSAGE_SELF, &after);
    return after.ru_maxrss - before.ru_maxrss;  // kibibytes
  };
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "the sanitizer takes memory of its own";
#endif
  for (const std::string name : {"a.png", "a.tiff"}) {
    // A child, whose peak starts from what it has of this process.
    EXPECT_EXIT(std::exit(peakOfReading(name) < 2 * 36000000L * 4 / 1024 ? 0 : 1), testing::ExitedWithCode(0), "")
        << name;
  }
}

}  // namespace
