#include "tools/movra-sr/io/FrameSource.h"

#include <unistd.h>

#include <algorithm>
#include <utility>

#include "tools/movra-sr/Outcome.h"
#include "tools/movra-sr/io/ImageFormats.h"

namespace movra::tool {

namespace {

constexpr const char* standardInput = "standard input";

}  // namespace

/// A file, or standard input. A file whose header is damaged counts as one frame, whose reading fails.
struct FrameSource::Entry {
  std::string name;
  SharedBytes kept;      // of standard input
  bool streams = false;  // raw standard input, not yet read
  std::size_t pages = 1;
  std::unique_ptr<ImageReader> reader;
};

FrameSource::FrameSource(const std::vector<std::string>& inputs, const InputOptions& options) : inputOptions(options) {
  for (const std::string& file : expandFolders(inputs, notes, options.raw.has_value())) {
    const bool standard = file == "-";
    if (!standard) {
      fileNames.push_back(file);
      addEntry(file, nullptr);
      continue;
    }
    if (std::count(inputs.begin(), inputs.end(), "-") > 1) {
      throw Failure(ExitCode::usage, "- stands for standard input, which can be given once only");
    }
    if (options.raw) {
      entries.push_back(std::make_unique<Entry>());
      entries.back()->name = standardInput;
      entries.back()->streams = true;
    } else {
      addEntry(standardInput, readStandardInput());
    }
  }
}

FrameSource::~FrameSource() = default;

void FrameSource::addEntry(const std::string& name, std::shared_ptr<const Bytes> bytes) {
  auto entry = std::make_unique<Entry>();
  entry->name = name;
  entry->kept = std::move(bytes);
  const SharedBytes source = entry->kept ? entry->kept : openFile(name);
  try {
    entry->pages = openImage(source, name, inputOptions.raw)->count();
  } catch (const Failure&) {
    entry->pages = 1;  // the failure comes again when the frame is read
  }
  entries.push_back(std::move(entry));
}

ImageReader& FrameSource::open(Entry& entry) {
  if (entry.reader) {
    return *entry.reader;
  }
  if (opened != nullptr) {
    opened->reader.reset();
  }
  auto reader = openImage(entry.kept ? entry.kept : openFile(entry.name), entry.name, inputOptions.raw);
  if (reader->isResult()) {
    throw Failure(ExitCode::badInput, entry.name + ": is a result of movra-sr and no frame; leave it out");
  }
  // Files of one series say the same; one note is enough.
  const std::string text = reader->note();
  if (!text.empty() && std::find(toldNotes.begin(), toldNotes.end(), text) == toldNotes.end()) {
    toldNotes.push_back(text);
    notes.push_back(entry.name + ": " + text);
  }
  opened = &entry;
  entry.reader = std::move(reader);
  return *entry.reader;
}

Frame FrameSource::readPage(Entry& entry, std::size_t page) {
  ImageReader& reader = open(entry);
  if (page >= reader.count()) {
    throw Failure(ExitCode::badInput, entry.name + ": changed while it was read; wait until it is complete");
  }
  Frame frame = readFrame(reader, page, inputOptions.scale);
  if (!firstRead) {
    firstRead = Frame{{}, frame.name, frame.sample};
  } else if (firstRead->sample != frame.sample && !mixedTold) {
    mixedTold = true;
    notes.push_back(frame.name + ": holds " + nameOf(frame.sample) + ", but " + firstRead->name + " " +
                    nameOf(firstRead->sample) + "; check that both are in the same unit");
  }
  return frame;
}

bool FrameSource::isEndless() const {
  return std::any_of(entries.begin(), entries.end(), [](const auto& entry) { return entry->streams; });
}

std::size_t FrameSource::count() {
  std::size_t total = 0;
  for (const auto& entry : entries) {
    if (entry->streams) {
      entry->kept = readStandardInput();
      entry->streams = false;
      entry->pages = entry->kept->size() == 0 ? 1 : openImage(entry->kept, entry->name, inputOptions.raw)->count();
    }
    total += entry->pages;
  }
  return total;
}

Frame FrameSource::read(std::size_t index) {
  count();  // standard input has to be here
  for (const auto& entry : entries) {
    if (index < entry->pages) {
      return readPage(*entry, index);
    }
    index -= entry->pages;
  }
  throw Failure(ExitCode::internalFault, "a frame was asked for that is not there");
}

std::optional<Frame> FrameSource::next() {
  while (nextEntry < entries.size()) {
    Entry& entry = *entries[nextEntry];
    if (entry.streams) {
      const RawLayout& layout = *inputOptions.raw;
      std::string content(layout.frameBytes(), '\0');
      content.resize(readDescriptor(STDIN_FILENO, content.data(), content.size(), entry.name));
      if (!content.empty()) {
        const bool whole = content.size() == layout.frameBytes();
        const std::string name = entry.name + ", frame " + std::to_string(++nextPage);
        if (!whole) {
          throw Failure(ExitCode::badInput, name + ": ends early; check the size of the raw frames");
        }
        Frame frame = readFrame(*openRaw(bytesOf(std::move(content)), name, layout), 0, inputOptions.scale);
        return frame;
      }
    } else if (nextPage < entry.pages) {
      return readPage(entry, nextPage++);
    }
    ++nextEntry;
    nextPage = 0;
  }
  return {};
}

std::vector<std::string> FrameSource::takeNotes() {
  return std::exchange(notes, {});
}

Frame readImage(const std::string& file, const InputOptions& options) {
  const auto reader = openImage(openFile(file), file, options.raw);
  if (reader->count() != 1) {
    throw Failure(ExitCode::badInput, file + ": holds more than one page; give a file with one image");
  }
  return readFrame(*reader, 0, options.scale);
}

Frame readImage(const std::string& file) {
  return readImage(file, {});
}

void readFrames(const std::string& file, const Scale& scale, const std::function<void(Frame&&)>& receive) {
  const auto reader = openImage(openFile(file), file);
  for (std::size_t i = 0; i < reader->count(); ++i) {
    receive(readFrame(*reader, i, scale));
  }
}

}  // namespace movra::tool
