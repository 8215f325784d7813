#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace movra::tool {

using Json = nlohmann::ordered_json;

/// How a command talks to its caller: lines on standard output, notes on standard error; or, as JSON, one document on
/// standard output and nothing else there.
class Console {
 public:
  bool json = false;
  bool quiet = false;   ///< errors only; the document all the same
  bool strict = false;  ///< a note makes the result a failure

  std::string commandLine;  ///< as it was given

  /// What --json prints. Every figure that is said in words is put in here too.
  Json document = Json::object();

  /// A line of the result.
  void say(const std::string& line) const;

  /// A line or table for those who want to know more, on standard error.
  void tell(const std::string& text) const;

  /// Something that the user should know although the command goes on.
  void note(const std::string& text);

  bool hasNotes() const { return document.contains("notes"); }

  /// Throws Failure with the first note if notes are failures. For what has written nothing yet.
  void endIfStrict() const;

  /// Prints the document if that is asked for, with the exit code.
  void finish(int exitCode);
};

/// A line of an error or a note on standard error, whatever the text holds.
void printOnError(std::string text);

}  // namespace movra::tool
