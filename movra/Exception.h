#pragma once

#include <exception>
#include <string>
#include <utility>

#include "movra/Export.h"

namespace movra {

/// Failure inside the library: a message for the caller and the place where it arose.
class MOVRA_SUPERRESOLUTION_API Exception : public std::exception {
 public:
  /// @param message what what() returns
  /// @param location what location() returns
  Exception(std::string message, std::string location) : text(std::move(message)), place(std::move(location)) {}
  ~Exception() override;

  /// The message alone.
  const char* what() const noexcept override { return text.c_str(); }

  /// "source path: line: function(..)" and a newline.
  const std::string& location() const noexcept { return place; }

  /// Builds the location text from its parts.
  static std::string locationText(const std::string& path, int line, const std::string& function) {
    return path + ": " + std::to_string(line) + ": " + function + "(..)\n";
  }

 private:
  std::string text;
  std::string place;
};

}  // namespace movra

/// Throws movra::Exception with the message and the place of this line.
#define MOVRA_THROW(message) \
  throw ::movra::Exception(message, ::movra::Exception::locationText(__FILE__, __LINE__, __func__))
