#include "tools/movra-sr/commands/OutputSet.h"

#include <algorithm>

#include "tools/movra-sr/Outcome.h"

namespace movra::tool {

OutputFile* OutputSet::open(const char* key, const std::string& name) {
  if (name.empty()) {
    return nullptr;
  }
  auto file = std::make_unique<OutputFile>(name, replace);
  file->keepApartFrom(keptApart);
  return add(key, name, std::move(file));
}

OutputFile* OutputSet::openGrowing(const char* key, const std::string& name) {
  if (name.empty()) {
    return nullptr;
  }
  auto file = std::make_unique<OutputFile>(name, true);
  file->keepApartFrom(keptApart);
  return add(key, name, std::move(file));
}

void OutputSet::drop(const OutputFile* file) {
  entries.erase(
      std::remove_if(entries.begin(), entries.end(), [&](const Entry& entry) { return entry.file.get() == file; }),
      entries.end());
}

OutputFile* OutputSet::add(const char* key, const std::string& name, std::unique_ptr<OutputFile> file) {
  for (const Entry& other : entries) {
    if (file->isSameAs(*other.file)) {
      throw Failure(ExitCode::usage,
                    std::string(other.key) + " and " + key + " cannot both be " + name + "; give two names");
    }
  }
  entries.push_back({key, name, std::move(file)});
  return entries.back().file.get();
}

void OutputSet::commit(Console& console) {
  std::vector<OutputFile*> files;
  for (const Entry& entry : entries) {
    files.push_back(entry.file.get());
  }
  OutputFile::commitAll(files);
  for (const Entry& entry : entries) {
    console.say(std::string(entry.key) + ": " + entry.name);
    std::string key = entry.key;
    std::replace(key.begin(), key.end(), ' ', '_');
    console.document["files"][key] = entry.name;
  }
}

}  // namespace movra::tool
