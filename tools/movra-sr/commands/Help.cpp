#include "tools/movra-sr/commands/Help.h"

#include <memory>
#include <sstream>

namespace movra::tool {

namespace {

constexpr std::size_t lineWidth = 100;
constexpr std::size_t leftWidth = 30;

constexpr const char* exitCodes =
    "Exit codes: 0 done, 1 refused or degraded, 2 wrong command line, 3 unfit input,\n"
    "            4 output not written, 70 fault in the program\n";

/// Left and right column; the right one starts on a line of its own where the left one is too long.
std::string inColumns(const std::string& left, const std::string& right) {
  std::string text = "  " + left;
  text += text.size() + 2 > leftWidth ? '\n' + std::string(leftWidth, ' ') : std::string(leftWidth - text.size(), ' ');
  return text + wrapped(right, lineWidth - leftWidth, leftWidth) + '\n';
}

}  // namespace

std::string wrapped(const std::string& text, std::size_t width, std::size_t indent) {
  std::istringstream words(text);
  std::string result;
  std::string word;
  std::size_t column = 0;
  while (words >> word) {
    if (column > 0 && column + 1 + word.size() > width) {
      result += '\n' + std::string(indent, ' ');
      column = 0;
    } else if (column > 0) {
      result += ' ';
      ++column;
    }
    result += word;
    column += word.size();
  }
  return result;
}

std::string HelpFormatter::make_group(std::string group, bool isPositional,
                                      std::vector<const CLI::Option*> options) const {
  if (group == methodGroup && !all) {
    return "More options, of the method, are told by --help-all.\n";
  }
  // The groups after the first have a blank line before them already.
  const std::string text = CLI::Formatter::make_group(group, isPositional, options);
  return isPositional || group == "Options" ? text : text.substr(1);
}

std::string HelpFormatter::make_option(const CLI::Option* option, bool isPositional) const {
  const std::string left = make_option_name(option, isPositional) + (isPositional ? "" : make_option_opts(option));
  return inColumns(left, make_option_desc(option));
}

std::string HelpFormatter::make_option_opts(const CLI::Option* option) const {
  if (option->get_type_size() == 0) {
    return {};
  }
  const std::string type = option->get_type_name();
  const std::string name = type.substr(0, type.find(':'));
  const bool isNumber = name == "FLOAT" || name == "INT" || name == "UINT";
  return ' ' + (isNumber ? "NUMBER" : name);
}

std::string HelpFormatter::make_option_desc(const CLI::Option* option) const {
  const std::string value = option->get_default_str();
  return option->get_description() + (value.empty() || option->get_type_size() == 0 ? "" : " [" + value + "]") +
         (option->get_required() && option->get_positional() == false ? " (required)" : "");
}

std::string HelpFormatter::make_subcommand(const CLI::App* command) const {
  return inColumns(command->get_name(), command->get_description());
}

std::string HelpFormatter::make_footer(const CLI::App* command) const {
  const std::string footer = command->get_footer();
  return (footer.empty() ? "" : footer + "\n\n") + exitCodes;
}

void addHelpAll(CLI::App& command) {
  const auto formatter = std::dynamic_pointer_cast<HelpFormatter>(command.get_formatter());
  command.add_flag_callback(
      "--help-all",
      [formatter] {
        formatter->all = true;
        throw CLI::CallForHelp();
      },
      "This help with all options of the method");
}

}  // namespace movra::tool
