#include "tools/movra-sr/report/HtmlReport.h"

#include <png.h>

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

#include "tools/movra-sr/report/Format.h"
#include "tools/movra-sr/report/HtmlTemplate.h"
#include "tools/movra-sr/report/Words.h"

namespace movra::tool {

namespace {

std::string escaped(const std::string& text) {
  std::string result;
  for (const char c : text) {
    switch (c) {
      case '&':
        result += "&amp;";
        break;
      case '<':
        result += "&lt;";
        break;
      case '>':
        result += "&gt;";
        break;
      case '"':
        result += "&quot;";
        break;
      default:
        result += c;
    }
  }
  return result;
}

std::string base64(const std::vector<unsigned char>& bytes) {
  const char* const digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const std::size_t count = std::min<std::size_t>(3, bytes.size() - i);
    unsigned int group = 0;
    for (std::size_t k = 0; k < 3; ++k) {
      group = group << 8U | (k < count ? bytes[i + k] : 0U);
    }
    for (std::size_t k = 0; k < 4; ++k) {
      text += k <= count ? digits[group >> (18 - 6 * k) & 63U] : '=';
    }
  }
  return text;
}

/// The picture as the address of an image.
std::string asAddress(const cv::Mat_<cv::Vec3b>& picture) {
  const cv::Mat dense = picture.isContinuous() ? cv::Mat(picture) : picture.clone();
  png_image png{};
  png.version = PNG_IMAGE_VERSION;
  png.width = static_cast<png_uint_32>(dense.cols);
  png.height = static_cast<png_uint_32>(dense.rows);
  png.format = PNG_FORMAT_BGR;
  png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(png);
  std::vector<unsigned char> bytes(size);
  if (png_image_write_to_memory(&png, bytes.data(), &size, 0, dense.data, 0, nullptr) == 0) {
    return {};
  }
  bytes.resize(size);
  return "data:image/png;base64," + base64(bytes);
}

std::string row(const std::string& name, const std::string& value) {
  return "<tr><th>" + escaped(name) + "</th><td>" + escaped(value) + "</td></tr>\n";
}

/// A number as people read it.
std::string inDigits(const Json& value) {
  if (value.is_number_float()) {
    return format("%.4g", value.get<double>());
  }
  return value.is_string() ? value.get<std::string>() : value.is_null() ? "-" : value.dump();
}

std::string spaced(std::string key) {
  std::replace(key.begin(), key.end(), '_', ' ');
  return key;
}

/// The file's name, without its folders.
std::string shortName(const std::string& name) {
  const std::size_t slash = name.find_last_of('/');
  return slash == std::string::npos ? name : name.substr(slash + 1);
}

/// Minimum, mean and maximum of the inside in large digits.
std::string valueFigures(const Json& inside, const std::string& unit) {
  std::string figures = "<div class=\"values\">";
  for (const char* const key : {"minimum", "mean", "maximum"}) {
    figures += "<div><strong>" + inDigits(inside[key]) + ' ' + escaped(unit) + "</strong><br>" + key + "</div>";
  }
  return figures + "</div>\n<p class=\"small\">Of the " + inside["width"].dump() + "x" + inside["height"].dump() +
         " pixels from (" + inside["x"].dump() + ", " + inside["y"].dump() +
         ") on that all frames have seen. Values nearer to the border are estimates.</p>\n";
}

/// Without the sign that a rounded zero may have.
double rounded(double value) {
  return std::abs(value) < 5e-3 ? 0 : value;
}

std::string figureTable(const Json& figures) {
  std::string table = "<table>\n";
  for (const auto& [key, value] : figures.items()) {
    table += row(spaced(key), inDigits(value));
  }
  return table + "</table>\n";
}

/// What to do about the outcome.
std::string advice(const Reconstruction& result) {
  switch (result.verdict) {
    case Verdict::good:
      return isGoodInParts(result)
                 ? "The frames fit together in parts. Look at the coverage: where it is low, nothing was gained."
             : isGood(result) ? "The frames fit together. Move the slider to see what was gained."
                              : "Look at the picture: where it is clean, it is none the worse.";
    case Verdict::singleFrame:
      return "Give more frames of the same scene, from a camera that moves by a pixel or two between them.";
    case Verdict::tooFewUsablePixels:
      return "Leave out the frames with a small usable share (see the table), or take --motion local, which follows "
             "roll, zoom and depth.";
    case Verdict::displacementTooLarge:
      return "Take frames that lie closer together, or a --reference in their middle.";
    case Verdict::registrationFailed:
      break;
  }
  return "Take another reference or other frames.";
}

std::string frameRows(const Reconstruction& result) {
  const auto percent = [](double share) { return share < 0 ? std::string("-") : format("%.0f %%", 100 * share); };
  std::string rows;
  for (std::size_t i = 0; i < result.frames.size(); ++i) {
    const FrameOutcome& frame = result.frames[i];
    rows +=
        "<tr><th>" + escaped(shortName(frame.name)) + (static_cast<int>(i) == result.reference ? " (reference)" : "") +
        (frame.used ? "" : "<br><em>" + escaped((frame.spare ? "" : "left out: ") + frame.reason) + "</em>") + "</th>" +
        format("<td>%.2f</td><td>%.2f</td><td>%.3f</td><td>%.2f</td>", rounded(frame.shift.x), rounded(frame.shift.y),
               rounded(frame.roll), rounded(frame.zoom)) +
        "<td>" + percent(frame.agreement) + "</td><td>" + percent(frame.usable) + "</td>" +
        format("<td>%.2f</td></tr>\n", rounded(frame.offset));
  }
  return rows;
}

/// The shifts of a frame as arrows, drawn `scale` times as long as they are.
std::string arrows(const Reconstruction& result, std::size_t index, double scale) {
  const double width = result.image.cols / 2.;
  const double height = result.image.rows / 2.;
  const double margin = width / 12;  // for arrows that begin at the border
  std::string drawing =
      format("<svg viewBox=\"%.0f %.0f %.0f %.0f\">", -margin, -margin, width + 2 * margin, height + 2 * margin);
  const auto arrow = [&](double x, double y, double dx, double dy) {
    drawing += format("<path d=\"M%.1f %.1fl%.1f %.1f\"/><circle cx=\"%.1f\" cy=\"%.1f\" r=\"%.1f\"/>", x, y,
                      scale * dx, scale * dy, x, y, width / 120);
  };
  const ShiftGrid& field = result.field;
  if (index < field.shifts.size() &&
      field.shifts[index].size() == static_cast<std::size_t>(field.columns * field.rows)) {
    const int every = std::max(1, std::max(field.columns, field.rows) / 14);
    for (int y = every / 2; y < field.rows; y += every) {
      for (int x = every / 2; x < field.columns; x += every) {
        const cv::Point2f shift = field.shifts[index][static_cast<std::size_t>(y * field.columns + x)];
        arrow(field.first.x + x * field.step.x, field.first.y + y * field.step.y, static_cast<double>(shift.x),
              static_cast<double>(shift.y));
      }
    }
  } else {
    for (int y = 1; y < 6; ++y) {
      for (int x = 1; x < 8; ++x) {
        arrow(width * x / 8, height * y / 6, result.frames[index].shift.x, result.frames[index].shift.y);
      }
    }
  }
  return drawing + "</svg>";
}

std::string arrowFigures(const Reconstruction& result) {
  double longest = 0.25;
  for (const FrameOutcome& frame : result.frames) {
    longest = std::max(longest, frame.used ? cv::norm(frame.shift) : 0.);
  }
  const double scale = std::max(1., 0.1 * result.image.cols / 2. / longest);
  std::string figures;
  for (std::size_t i = 0; i < result.frames.size(); ++i) {
    const FrameOutcome& frame = result.frames[i];
    if (frame.used && static_cast<int>(i) != result.reference) {
      figures += "<figure>" + arrows(result, i, scale) + "<figcaption>" + escaped(shortName(frame.name)) +
                 "</figcaption></figure>\n";
    }
  }
  return figures + format("<p class=\"small\">Arrows are %.0f times as long as the shift.</p>\n", scale);
}

cv::Mat_<cv::Vec3b> drawCoverage(const Reconstruction& result) {
  cv::Mat_<unsigned char> share;
  result.coverage.convertTo(share, CV_8U, 255. / std::max(1, result.usedFrames()));
  cv::Mat coloured;
  cv::applyColorMap(share, coloured, cv::COLORMAP_VIRIDIS);
  return coloured;
}

std::string colourBar(const ReportContents& contents, const ValueRange& range) {
  cv::Mat_<float> ramp(1, 256);
  for (int x = 0; x < ramp.cols; ++x) {
    ramp(0, x) = range.low + (range.high - range.low) * static_cast<float>(x) / 255;
  }
  const double span = static_cast<double>(range.high - range.low);
  const int decimals = span < 1 ? 3 : span < 10 ? 2 : 1;
  return "<div class=\"bar\"><span>" + format("%.*f", decimals, static_cast<double>(range.low)) +
         "</span><img alt=\"\" src=\"" + asAddress(inColours(ramp, contents.look, range)) + "\"><span>" +
         format("%.*f ", decimals, static_cast<double>(range.high)) + escaped(contents.unit) + "</span></div>\n";
}

std::string notesOf(const Json& document) {
  std::string list;
  if (document.contains("notes")) {
    for (const Json& note : document["notes"]) {
      list += "<li>" + escaped(note.get<std::string>()) + "</li>";
    }
  }
  return list.empty() ? "" : "<ul>" + list + "</ul>\n";
}

std::string section(const std::string& title, const std::string& body) {
  return "<section>\n<h2>" + title + "</h2>\n" + body + "</section>\n";
}

}  // namespace

std::string drawReport(const ReportContents& contents) {
  const Reconstruction& result = contents.result;
  const Json& document = contents.document;
  const ValueRange range = rangeOf(contents.image, contents.look);
  const std::string kind = isGood(result) && !isGoodInParts(result) ? "good" : "poor";

  std::string page = htmlHead;
  page += "<p class=\"status " + kind + "\"><strong>" + escaped(statusInWords(result)) + ".</strong> " +
          escaped(advice(result)) + "</p>\n" + notesOf(document);
  page += "<div id=\"pair\"><img id=\"after\" alt=\"super-resolution\" src=\"" +
          asAddress(inColours(contents.image, contents.look, range)) +
          "\"><img id=\"before\" alt=\"reference frame, bicubic\" src=\"" +
          asAddress(inColours(contents.bicubic, contents.look, range)) + "\"><div id=\"line\"></div></div>\n" +
          htmlSlider + colourBar(contents, range);
  if (document.contains("inside")) {
    page += section("Values", valueFigures(document["inside"], contents.unit));
  }
  page += section("Frames",
                  "<div class=\"wide\"><table class=\"frames\"><tr><th>frame</th><td>right</td><td>down</td>"
                  "<td>roll, &deg;</td><td>zoom, %</td><td>blocks agree</td><td>usable</td><td>level</td></tr>\n" +
                      frameRows(result) + "</table></div>\n<div class=\"fields\">" + arrowFigures(result) + "</div>\n");
  if (!result.coverage.empty()) {
    page += section(
        "Coverage",
        format("<p>Number of frames that back each pixel, from 0 (dark) to %d (yellow).</p>\n", result.usedFrames()) +
            "<img class=\"coverage\" alt=\"coverage\" src=\"" + asAddress(drawCoverage(result)) + "\">\n");
  }
  page += "<div class=\"beside\">\n";
  if (document.contains("method")) {
    page += section("Method", figureTable(document["method"]));
  }
  if (document.contains("seconds")) {
    page += section("Seconds", figureTable(document["seconds"]));
  }
  page += "</div>\n";
  page += section("Command", "<pre>" + escaped(contents.commandLine) +
                                 "</pre>\n<p class=\"small\">movra-sr " MOVRA_SR_VERSION "</p>\n");
  return page + htmlTail;
}

}  // namespace movra::tool
