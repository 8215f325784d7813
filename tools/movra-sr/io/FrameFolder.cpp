#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <map>
#include <set>
#include <system_error>

#include "tools/movra-sr/Outcome.h"
#include "tools/movra-sr/io/FrameSource.h"
#include "tools/movra-sr/io/ImageReader.h"
#include "tools/movra-sr/io/NaturalOrder.h"

namespace movra::tool {

namespace {

namespace fs = std::filesystem;
using Names = std::vector<std::string>;

enum class Kind { picture, table, raw, other };

Kind kindOf(const std::string& extension) {
  const auto isOneOf = [&](std::initializer_list<const char*> extensions) {
    return std::find(extensions.begin(), extensions.end(), extension) != extensions.end();
  };
  return isOneOf({".png", ".tif", ".tiff", ".pgm", ".npy"})            ? Kind::picture
         : isOneOf({".csv", ".tsv", ".txt", ".asc"})                   ? Kind::table
         : isOneOf({".raw", ".bin", ".dat", ".y16", ".gray", ".grey"}) ? Kind::raw
                                                                       : Kind::other;
}

bool hasNumber(const std::string& text) {
  return std::any_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c); });
}

/// The name without what file managers put behind the name of a copy, " copy", " (2)" and the like; or nothing.
std::string originalOf(const std::string& stem) {
  std::string text = stem;
  const auto drop = [&](const std::string& ending) {
    const bool has =
        text.size() > ending.size() && text.compare(text.size() - ending.size(), ending.size(), ending) == 0;
    if (has) {
      text.resize(text.size() - ending.size());
    }
    return has;
  };
  if (drop(")")) {
    const std::size_t open = text.find_last_not_of("0123456789");
    if (open == std::string::npos || text[open] != '(' || open + 1 == text.size()) {
      return {};
    }
    text.resize(open);
    return drop(" ") ? text : std::string();
  }
  return drop(" - Copy") || drop(" copy") || drop(" Copy") ? text : std::string();
}

struct Listing {
  std::map<Kind, Names> numbered;
  std::map<std::string, int> extensions;  // of all other files
  int unnumbered = 0;
  int folders = 0;
};

Listing list(const fs::path& folder) {
  Listing listing;
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    std::error_code ignored;
    if (name.front() == '.') {
      continue;
    }
    if (entry->is_directory(ignored)) {
      ++listing.folders;
      continue;
    }
    const std::string extension = lowerCaseExtension(name);
    const Kind kind = kindOf(extension);
    if (kind == Kind::other) {
      ++listing.extensions[extension];
    } else if (hasNumber(entry->path().stem().string())) {
      listing.numbered[kind].push_back(entry->path().string());
    } else {
      ++listing.unnumbered;
    }
  }
  if (error) {
    throw Failure(ExitCode::badInput, folder.string() + ": cannot be listed; check its permissions");
  }
  return listing;
}

[[noreturn]] void refuse(const fs::path& folder, const Listing& listing, int leftOut, bool raw) {
  std::string found;
  const auto add = [&](int count, const std::string& one, const std::string& several) {
    if (count > 0) {
      found += (found.empty() ? "" : ", ") + std::to_string(count) + " " + (count == 1 ? one : several);
    }
  };
  std::string advice = "; name the frames one by one, or give the folder that holds them";
  for (const auto& [extension, count] : listing.extensions) {
    const std::string what = extension.empty() ? "file without an ending" : extension + " file";
    add(count, what, extension.empty() ? "files without an ending" : what + "s");
    if (extension == ".jpg" || extension == ".jpeg" || extension == ".bmp") {
      advice = "; pictures hold no measured values: export these as TIFF, PNG of 16 bits or CSV";
    } else if (extension == ".mp4" || extension == ".avi" || extension == ".mkv" || extension == ".mov") {
      advice = "; turn the video into raw frames or numbered files first";
    }
  }
  add(leftOut, "result of movra-sr or copy", "results of movra-sr or copies");
  add(listing.unnumbered, "image or table without a number in its name",
      "images or tables without a number in their names");
  for (const auto& [kind, names] : listing.numbered) {
    if (kind == Kind::raw && !raw) {
      add(static_cast<int>(names.size()), "raw file", "raw files");
      advice = "; raw files need the size of their frames (--raw)";
    }
  }
  add(listing.folders, "folder", "folders");
  throw Failure(ExitCode::badInput,
                folder.string() + ": holds no numbered " +
                    (raw ? "raw files (.raw, .bin, .dat, .y16, .gray)" : "PNG, TIFF, PGM or NPY files nor CSV tables") +
                    ", but " + (found.empty() ? "nothing" : found) + advice);
}

bool isResultFile(const std::string& file) {
  try {
    return openImage(openFile(file), file)->isResult();
  } catch (const Failure&) {
    return false;  // whoever reads it says what is wrong
  }
}

Names framesIn(const fs::path& folder, Names& notes, bool raw) {
  Listing listing = list(folder);
  // Tables beside pictures are lists of shifts and the like.
  const Kind wanted = raw ? Kind::raw : listing.numbered.count(Kind::picture) != 0 ? Kind::picture : Kind::table;
  Names names = std::move(listing.numbered[wanted]);
  listing.numbered.erase(wanted);

  const std::set<std::string> all(names.begin(), names.end());
  const auto isCopy = [&](const std::string& name) {
    const fs::path path(name);
    const std::string original = originalOf(path.stem().string());
    const bool copied =
        hasNumber(original) && all.count((path.parent_path() / (original + path.extension().string())).string()) != 0;
    if (copied) {
      notes.push_back(name + ": looks like a copy and is left out; name it to use it");
    }
    return copied;
  };
  const auto isResult = [&](const std::string& name) {
    const bool result = !raw && isResultFile(name);
    if (result) {
      notes.push_back(name + ": is a result of movra-sr and no frame; it is left out");
    }
    return result;
  };
  std::sort(names.begin(), names.end(), naturalLess);
  names.erase(std::remove_if(names.begin(), names.end(),
                             [&](const std::string& name) { return isCopy(name) || isResult(name); }),
              names.end());
  if (names.empty()) {
    refuse(folder, listing, static_cast<int>(all.size()), raw);
  }
  return names;
}

}  // namespace

Names expandFolders(const Names& inputs, Names& notes, bool raw) {
  Names files;
  for (const std::string& input : inputs) {
    std::error_code error;
    if (fs::is_directory(input, error)) {
      const Names names = framesIn(input, notes, raw);
      files.insert(files.end(), names.begin(), names.end());
    } else {
      files.push_back(input);
    }
  }
  return files;
}

Names expandFolders(const Names& inputs) {
  Names notes;
  return expandFolders(inputs, notes);
}

}  // namespace movra::tool
