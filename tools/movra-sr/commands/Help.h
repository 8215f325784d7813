#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace movra::tool {

/// Help of at most 100 columns: options and types on the left, text wrapped on the right, exit codes at the end.
class HelpFormatter : public CLI::Formatter {
 public:
  /// Options of this group stand in the help of --help-all only.
  static constexpr const char* methodGroup = "Method";

  /// What --help-all does.
  bool all = false;

  std::string make_group(std::string group, bool isPositional, std::vector<const CLI::Option*> options) const override;
  std::string make_option(const CLI::Option* option, bool isPositional) const override;
  std::string make_option_opts(const CLI::Option* option) const override;
  std::string make_option_desc(const CLI::Option* option) const override;
  std::string make_subcommand(const CLI::App* command) const override;
  std::string make_footer(const CLI::App* command) const override;
};

/// Adds --help-all, which tells the options of the method too. The application has a HelpFormatter.
void addHelpAll(CLI::App& command);

/// The text in lines of at most `width` characters, every line after the first indented by `indent`.
std::string wrapped(const std::string& text, std::size_t width, std::size_t indent);

}  // namespace movra::tool
