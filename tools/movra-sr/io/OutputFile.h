#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace movra::tool {

/// A file that appears whole or not at all: it is written under a temporary name in the same folder and takes its own
/// name with `commit`; without that nothing is left behind. The temporary file is made by the constructor: under a
/// random name, exclusively, without following links, with the permissions of the file that it will replace. It stays
/// locked, by which a later run tells what a killed run left behind, and removes it.
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

  /// Whether both would become the same file.
  bool isSameAs(const OutputFile& other) const;

  /// The temporary file, open for reading and writing.
  int descriptor() const { return part; }

  /// Appends to the temporary file; throws Failure.
  void write(const void* bytes, std::size_t count) const;
  void write(const std::string& text) const { write(text.data(), text.size()); }

  /// Gives the temporary file its name, once its bytes are safe on the disk; throws Failure.
  void commit() { commitAll({this}); }

  /// The same for several files, in any folders: either all are new afterwards, or, with a Failure, all are as they
  /// were. (A power cut between two names can still part them.)
  static void commitAll(const std::vector<OutputFile*>& files);

  /// The failure for this file, with what to do about it.
  [[noreturn]] void fail(const std::string& reason) const;
  [[noreturn]] void failWriting() const;

 private:
  /// Starts the list in which the handler of signals finds what is unfinished.
  static OutputFile* newest;
  static void removeUnfinished(int signal);

  std::filesystem::path folder() const;
  void removeLeftovers() const;
  void create();
  void finishWriting();
  void takeName();
  void giveNameBack();

  std::filesystem::path finalPath;
  std::filesystem::path partPath;
  int part = -1;
  bool mayReplace;
  enum class Named { not_, asNew, exchanged, irrevocably } named = Named::not_;
  OutputFile* older = nullptr;
};

}  // namespace movra::tool
