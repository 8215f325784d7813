#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tools/movra-sr/io/OutputFile.h"
#include "tools/movra-sr/report/Console.h"

namespace movra::tool {

/// The files that a command writes. They are opened before anything is computed, so that a name that cannot be written to
/// is told at once, and all appear together or not at all.
class OutputSet {
 public:
  /// @param inputs files that must not be written to
  OutputSet(bool replaceFiles, std::vector<std::string> inputs) : replace(replaceFiles), keptApart(std::move(inputs)) {}

  /// The file, or nothing for an empty name. Throws Failure for what OutputFile refuses and for the same file twice.
  /// @param key what the file is, in words and in the document
  OutputFile* open(const char* key, const std::string& name);

  /// The same for a file that the run has read, too, and that grows with each run: it may exist. It is none of the
  /// inputs of the constructor.
  OutputFile* openGrowing(const char* key, const std::string& name);

  /// Takes a file out of the set: what has its name is not changed, and nothing of its name is made.
  void drop(const OutputFile* file);

  /// Gives all files their names and tells them.
  void commit(Console& console);

 private:
  struct Entry {
    const char* key;
    std::string name;
    std::unique_ptr<OutputFile> file;
  };

  OutputFile* add(const char* key, const std::string& name, std::unique_ptr<OutputFile> file);

  bool replace;
  std::vector<std::string> keptApart;
  std::vector<Entry> entries;
};

}  // namespace movra::tool
