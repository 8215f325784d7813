#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace movra::tool {

/// A file that appears whole or not at all: it is written under a temporary name in the same folder and takes
/// its own name with `commit`; without that nothing is left behind.
class OutputFile {
 public:
  /// Refuses (throws Failure) a folder that does not exist or cannot be written to, a device and, unless
  /// `replace`, a file that exists.
  OutputFile(std::filesystem::path path, bool replace);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  /// Removes what is unfinished when a signal ends the program.
  static void removeUnfinishedOnSignals();

  /// Refuses (throws Failure) when the file is one of the inputs, under any of its names.
  void keepApartFrom(const std::vector<std::string>& inputs) const;

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
  [[noreturn]] void failWriting() const;

 private:
  /// Starts the list in which the handler of signals finds what is unfinished.
  static OutputFile* newest;
  static void removeUnfinished(int signal);

  std::filesystem::path finalPath;
  std::filesystem::path partPath;
  OutputFile* older = nullptr;
};

}  // namespace movra::tool
