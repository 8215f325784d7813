#include "tools/movra-sr/reconstruction/KnownMotion.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>

#include "tools/movra-sr/Outcome.h"
#include "tools/movra-sr/io/Bytes.h"
#include "tools/movra-sr/io/TextLines.h"

namespace movra::tool {

namespace {

using StoredMotion = nlohmann::json;
using Values = std::map<std::string, double>;

constexpr std::uint64_t largestFile = std::uint64_t{1} << 26U;
const char* const remedy = "; make it with movra-sr register -o";

[[noreturn]] void fail(const std::string& place, const std::string& reason) {
  throw Failure(ExitCode::badInput, place + ": " + reason);
}

double valueOf(const Values& values, const char* name, double otherwise) {
  const auto found = values.find(name);
  return found == values.end() ? otherwise : found->second;
}

/// Shift, and the linear part, or roll and zoom.
KnownMotion motionFrom(const std::string& name, const Values& values) {
  const double angle = valueOf(values, "roll_degrees", 0) * CV_PI / 180;
  const double scale = 1 + valueOf(values, "zoom_percent", 0) / 100;
  KnownMotion known;
  known.frame = name;
  known.used = valueOf(values, "used", 1) != 0;
  known.motion.xx = valueOf(values, "xx", scale * std::cos(angle));
  known.motion.xy = valueOf(values, "xy", -scale * std::sin(angle));
  known.motion.yx = valueOf(values, "yx", scale * std::sin(angle));
  known.motion.yy = valueOf(values, "yy", scale * std::cos(angle));
  known.motion.x = values.at("dx");
  known.motion.y = values.at("dy");
  return known;
}

/// The fields of a line; quotes around one keep its commas, doubled ones are quotes of its own.
std::vector<std::string> fieldsOf(const std::string& line) {
  std::vector<std::string> fields(1);
  bool quoted = false;
  for (std::size_t i = 0; i < line.size(); ++i) {
    if (line[i] == '"' && quoted && i + 1 < line.size() && line[i + 1] == '"') {
      fields.back() += line[++i];
    } else if (line[i] == '"') {
      quoted = !quoted;
    } else if (line[i] == ',' && !quoted) {
      fields.emplace_back();
    } else {
      fields.back() += line[i];
    }
  }
  return fields;
}

std::optional<double> numberIn(const std::string& text) {
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  const bool whole = error == std::errc() && end == text.data() + text.size() && std::isfinite(value);
  return whole ? std::optional<double>(value) : std::nullopt;
}

std::vector<KnownMotion> fromCsv(const Bytes& bytes, const std::string& file) {
  TextLines lines(bytes, file);
  std::string line;
  const std::vector<std::string> header = lines.next(line) ? fieldsOf(line) : std::vector<std::string>();
  for (const char* const column : {"frame", "dx", "dy"}) {
    if (std::count(header.begin(), header.end(), column) != 1) {
      fail(file, std::string("its first line names no column \"") + column + '"' + remedy);
    }
  }
  std::vector<KnownMotion> motions;
  while (lines.next(line)) {
    if (line.empty()) {
      continue;
    }
    const std::string place = file + ", line " + std::to_string(lines.number());
    const std::vector<std::string> fields = fieldsOf(line);
    if (fields.size() != header.size()) {
      fail(place, "has " + std::to_string(fields.size()) + " fields instead of " + std::to_string(header.size()));
    }
    std::string name;
    Values values;
    for (std::size_t i = 0; i < fields.size(); ++i) {
      if (header[i] == "frame") {
        name = fields[i];
      } else if (const auto value = numberIn(fields[i])) {
        values[header[i]] = *value;
      } else if (!fields[i].empty() || header[i] == "dx" || header[i] == "dy") {
        fail(place, header[i] + " is \"" + fields[i] + "\", which is no number");
      }
    }
    motions.push_back(motionFrom(name, values));
  }
  return motions;
}

std::vector<KnownMotion> fromJson(const std::string& text, const std::string& file) {
  const StoredMotion document = StoredMotion::parse(text, nullptr, false);
  if (!document.is_object() || !document.contains("frames") || !document["frames"].is_array()) {
    fail(file, std::string("holds no \"frames\"") + remedy);
  }
  std::vector<KnownMotion> motions;
  for (const StoredMotion& frame : document["frames"]) {
    Values values;
    std::string name;
    if (frame.is_object()) {
      for (const auto& [key, value] : frame.items()) {
        if (key == "name" && value.is_string()) {
          name = value.get<std::string>();
        } else if (value.is_number() || value.is_boolean()) {
          values[key] = value.is_boolean() ? (value.get<bool>() ? 1 : 0) : value.get<double>();
        }
      }
      const StoredMotion affine = frame.value("affine", StoredMotion());
      const char* const names[] = {"xx", "xy", "yx", "yy"};
      for (std::size_t i = 0; i < 4 && affine.is_array() && affine.size() == 4 && affine[i].is_number(); ++i) {
        values[names[i]] = affine[i].get<double>();
      }
    }
    if (values.count("dx") == 0 || values.count("dy") == 0) {
      fail(file, std::string("has a frame without \"dx\" and \"dy\"") + remedy);
    }
    motions.push_back(motionFrom(name, values));
  }
  return motions;
}

const KnownMotion& motionOf(const Frame& frame, const std::vector<KnownMotion>& motions, const std::string& file) {
  const auto bare = [](const std::string& name) { return std::filesystem::path(name).filename(); };
  for (const bool whole : {true, false}) {
    const auto matches = [&](const KnownMotion& known) {
      return whole ? known.frame == frame.name : bare(known.frame) == bare(frame.name);
    };
    const auto count = std::count_if(motions.begin(), motions.end(), matches);
    if (count > 1) {
      fail(file, "tells the motion of " + frame.name + " more than once");
    }
    if (count == 1) {
      return *std::find_if(motions.begin(), motions.end(), matches);
    }
  }
  fail(file, "does not tell the motion of " + frame.name + remedy);
}

}  // namespace

std::vector<KnownMotion> readMotions(const std::string& file) {
  const auto bytes = openFile(file);
  if (bytes->size() > largestFile) {
    fail(file, std::string("is too large for a list of motions") + remedy);
  }
  if (lowerCaseExtension(file) != ".json") {
    return fromCsv(*bytes, file);
  }
  std::string text(static_cast<std::size_t>(bytes->size()), '\0');
  text.resize(bytes->read(0, text.data(), text.size()));
  return fromJson(text, file);
}

void dropUnaligned(Window& window, const std::vector<KnownMotion>& motions, const std::string& file) {
  std::vector<Frame> kept;
  for (Frame& frame : window.frames) {
    if (motionOf(frame, motions, file).used) {
      kept.push_back(std::move(frame));
    } else {
      window.notes.push_back(frame.name + ": left out, as " + file + " tells no motion that fits");
    }
  }
  if (kept.empty()) {
    fail(file, "calls none of the frames aligned");
  }
  window.frames = std::move(kept);
}

std::vector<vision::AffineMotion> motionsOf(const std::vector<Frame>& frames, const std::vector<KnownMotion>& motions,
                                            const std::string& file) {
  std::vector<vision::AffineMotion> found;
  for (const Frame& frame : frames) {
    found.push_back(motionOf(frame, motions, file).motion);
  }
  return found;
}

}  // namespace movra::tool
