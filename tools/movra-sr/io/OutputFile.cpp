#include "tools/movra-sr/io/OutputFile.h"

#include <unistd.h>

#include <fstream>
#include <system_error>

#include "tools/movra-sr/Outcome.h"

namespace movra::tool {

OutputFile::OutputFile(std::filesystem::path path, bool replace)
    : finalPath(std::move(path)), partPath(finalPath) {
  std::error_code error;
  if (finalPath.filename().empty() || std::filesystem::is_directory(finalPath, error))
    fail("it is a folder; give the name of a file");
  const std::filesystem::path folder = finalPath.has_parent_path() ? finalPath.parent_path() : ".";
  if (!std::filesystem::is_directory(folder, error))
    fail("the folder " + folder.string() + " does not exist; create it first");
  if (!replace && std::filesystem::exists(finalPath, error))
    fail("it exists; give another name, or --force to replace it");
  partPath.replace_filename("." + finalPath.filename().string() + ".part" + std::to_string(getpid()));
}

OutputFile::~OutputFile() {
  std::error_code ignored;
  std::filesystem::remove(partPath, ignored);
}

void OutputFile::write(const void* bytes, std::size_t count) const {
  std::ofstream file(partPath, std::ios::binary | std::ios::trunc);
  file.write(static_cast<const char*>(bytes), static_cast<std::streamsize>(count));
  file.close();
  if (file.fail()) fail("writing failed; check the permissions of the folder and the space on the disk");
}

void OutputFile::commit() {
  std::error_code error;
  std::filesystem::rename(partPath, finalPath, error);
  if (error) fail(error.message());
}

void OutputFile::fail(const std::string& reason) const {
  throw Failure(ExitCode::outputNotWritten, "cannot write " + finalPath.string() + ": " + reason);
}

}  // namespace movra::tool
