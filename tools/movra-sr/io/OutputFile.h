#pragma once

#include <filesystem>
#include <string>

namespace movra::tool {

/// A file that appears whole or not at all: it is written under a temporary name in the same folder and takes
/// its own name with `commit`; without that nothing is left behind.
class OutputFile {
 public:
  /// Refuses (throws Failure) a folder that does not exist and, unless `replace`, a file that does.
  OutputFile(std::filesystem::path path, bool replace);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  const std::filesystem::path& path() const { return finalPath; }
  /// Where to write before `commit`.
  const std::filesystem::path& temporaryPath() const { return partPath; }

  /// Writes the bytes to the temporary file; throws Failure.
  void write(const void* bytes, std::size_t count) const;
  void write(const std::string& text) const { write(text.data(), text.size()); }

  /// Gives the temporary file its name; throws Failure.
  void commit();

  /// The failure for this file, with what to do about it.
  [[noreturn]] void fail(const std::string& reason) const;

 private:
  std::filesystem::path finalPath;
  std::filesystem::path partPath;
};

}  // namespace movra::tool
