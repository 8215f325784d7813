#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/movra-sr/io/Frames.h"
#include "tools/movra-sr/io/RawReader.h"

namespace movra::tool {

class Bytes;
class ImageReader;

struct InputOptions {
  Scale scale;
  std::optional<RawLayout> raw;  ///< when given, every input is headerless raw data
};

/// The frames that a command was given, read one by one as they are asked for, whatever their files' formats: PNG,
/// TIFF, PGM, NPY, tables of text, headerless raw data. Formats are known from the first bytes.
///
///     FrameSource source(names, {scale, {}});
///     for (std::size_t i = source.count() - 5; i < source.count(); ++i) { use(source.read(i)); }
///
/// An input is a file, a folder (its numbered files in natural order) or "-" for standard input. Files are opened to
/// count their pages; values are read when a frame is asked for, so that a damaged frame that nobody asks for hurts
/// nobody. All operations throw Failure that names file and page. A file that this tool wrote as a result is no frame: in
/// a folder it is left out with a note, and reading it by name fails.
class FrameSource {
 public:
  explicit FrameSource(const std::vector<std::string>& inputs, const InputOptions& options = {});
  ~FrameSource();
  FrameSource(const FrameSource&) = delete;
  FrameSource& operator=(const FrameSource&) = delete;

  /// The files, folders replaced by what they hold. Standard input is not among them.
  const std::vector<std::string>& files() const { return fileNames; }

  /// Whether frames may come for ever, from raw standard input; for next().
  bool isEndless() const;

  /// The number of frames. Raw standard input, which tells no number, is read to its end first.
  std::size_t count();

  /// Frame number `index`, counted from 0. Any order, any number of times.
  Frame read(std::size_t index);

  /// The next frame in order, or nothing after the last. Raw standard input is read as it comes and not kept: for
  /// recordings without an end. Use either this or count() and read() on one source.
  std::optional<Frame> next();

  /// What the user should know about the files that were read so far, a line each: files left out, header lines
  /// skipped, kinds of values mixed. Each note is handed out once.
  std::vector<std::string> takeNotes();

 private:
  struct Entry;

  ImageReader& open(Entry& entry);
  Frame readPage(Entry& entry, std::size_t page);
  void addEntry(const std::string& name, std::shared_ptr<const Bytes> bytes);

  InputOptions inputOptions;
  std::vector<std::string> fileNames;
  std::vector<std::unique_ptr<Entry>> entries;
  std::vector<std::string> notes;
  std::vector<std::string> toldNotes;  // of readers, without the files' names
  std::optional<Frame> firstRead;      // without its pixels
  bool mixedTold = false;
  Entry* opened = nullptr;  // the one entry whose reader is kept
  std::size_t nextEntry = 0;
  std::size_t nextPage = 0;
};

/// Reads a file that holds exactly one image; results of this tool too.
Frame readImage(const std::string& file, const InputOptions& options);

}  // namespace movra::tool
