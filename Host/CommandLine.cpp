#include "Host/CommandLine.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <string_view>

#include "Host/CommandError.hpp"
#include "Host/Commands.hpp"
#include "Host/FeatureTable.hpp"
#include "Host/GlobOptions.hpp"
#include "Host/Output.hpp"
#include "Host/Suggestion.hpp"

namespace sorrel::cli {
namespace {

// An empty word is a script's unset variable: `--volume "$volume"` must not silently mean this machine.
std::string refuseEmpty(const std::string& word) { return word.empty() ? "may not be empty" : ""; }

/// The identifier becomes the name of a folder and of the helper's service.
std::string refuseOddIdentifier(const std::string& word) {
  constexpr const char* kAlphanumeric = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
  const bool isOdd = word.find_first_of(kAlphanumeric) != 0 ||
                     word.find_first_not_of(kAlphanumeric + std::string(".-")) != std::string::npos;
  return isOdd ? "is a letter or digit, then letters, digits, '.' and '-'" : "";
}

void addGlobalOptions(CLI::App& parser, GlobalOptions& options) {
  const auto add = [&parser](const char* name, std::string& value, const char* what, const char* about) {
    return parser.add_option(name, value, about)->type_name(what)->check(refuseEmpty);
  };
  add("--catalogue", options.catalogue, "FILE", "Read the modules from this property list");
  add("--volume", options.volume, "DIR", "Work on the macOS volume whose root is this folder");
  add("--user", options.user, "NAME", "Whose home on the volume");
  add("--bundle-id", options.bundleID, "ID", "The identifier that the log's folder is called by")
      ->check(refuseOddIdentifier);
  add("--tools", options.toolFolder, "DIR", "Where stand-ins for system tools lie");
  parser.add_flag("--engine-defaults", options.engineDefaults,
                  "Leave the library's switches off, which docs/cautions.md lists");
  parser.add_flag("--json", options.json, "Print one JSON document and nothing else");
  parser.add_flag("--quiet", options.quiet, "Show no progress");
}

std::string commandList() {
  std::string list = "Commands:\n";
  for (const Command& command : commands()) {
    list += "  " + std::string(command.name) +
            std::string(std::max<std::size_t>(26, command.name.size() + 2) - command.name.size(), ' ') +
            std::string(command.summary) + "\n";
  }
  list += "\nFeatures that can be scanned:\n ";
  for (const Feature& feature : featureTable()) {
    if (feature.scanner.start != nullptr) list += " " + std::string(feature.name);
  }
  return list;
}

// CLI11 takes the words from the end of the vector.
std::vector<std::string> reversed(std::vector<std::string> words) {
  std::ranges::reverse(words);
  return words;
}

/// CLI11 splits a word in square brackets, "[a,b]", for an option with many values. A leading NUL, which no
/// word of a command line contains, prevents that until its option takes the word.
void keepBrackets(CLI::App& parser, std::vector<std::string>& words) {
  for (std::string& word : words) {
    if (word.starts_with('[')) word.insert(0, 1, '\0');
  }
  for (CLI::Option* const option : parser.get_options()) {
    if (option->get_items_expected_max() == 0) continue;
    option->transform([](std::string word) { return word.substr(word.starts_with('\0') ? 1 : 0); });
  }
}

/// The status of a request for help or for the version, which CLI11 reports by an exception; nothing after an
/// ordinary parse.
std::optional<ExitStatus> parse(CLI::App& parser, const std::vector<std::string>& words) {
  try {
    parser.parse(reversed(words));
    return std::nullopt;
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() != static_cast<int>(CLI::ExitCodes::Success)) {
      throw CommandError(ExitStatus::WrongUse, error.what());
    }
    parser.exit(error, std::cout, std::cerr);
    finishOutput();
    return ExitStatus::Done;
  }
}

/// An option with a value may occur once, before the command's name or after it.
void refuseRepeated(const CLI::App& before, const CLI::App& behind) {
  for (const CLI::Option* const option : before.get_options()) {
    const CLI::Option* const again = behind.get_option_no_throw(option->get_name());
    if (again == nullptr || option->get_items_expected_max() == 0) continue;
    if (option->count() > 0 && again->count() > 0) {
      throw CommandError(ExitStatus::WrongUse, option->get_name() + " is given twice.");
    }
  }
}

const Command& commandNamed(const std::string& word) {
  std::vector<std::string_view> names;
  for (const Command& command : commands()) {
    if (command.name == word) return command;
    names.push_back(command.name);
  }
  const std::string kind = word.starts_with("-") ? "option" : "command";
  throw CommandError(ExitStatus::WrongUse, "this version of sorrel has no " + kind + " '" + word + "'." +
                                               suggestion(word, names) + " See sorrel --help.");
}

}  // namespace

std::variant<Invocation, ExitStatus> parseCommandLine(const std::vector<std::string>& words) {
  Invocation invocation;
  CLI::App program("Finds what a home folder and a system can spare.", "sorrel");
  program.set_version_flag("--version", SORREL_VERSION);
  program.prefix_command();
  program.footer(commandList());
  addGlobalOptions(program, invocation.options);
  if (const auto status = parse(program, words)) return *status;

  const std::vector<std::string> rest = program.remaining();
  if (rest.empty()) throw CommandError(ExitStatus::WrongUse, "which command? See sorrel --help.");
  invocation.command = &commandNamed(rest.front());

  const std::string name(invocation.command->name);
  CLI::App parser(std::string(invocation.command->summary), "sorrel " + name);
  addGlobalOptions(parser, invocation.options);
  invocation.command->addArguments(parser, invocation);
  std::vector<std::string> arguments(rest.begin() + 1, rest.end());
  takeGlobOptions(parser, arguments, invocation.clean);
  keepBrackets(parser, arguments);
  if (const auto status = parse(parser, arguments)) return *status;
  refuseRepeated(program, parser);
  return invocation;
}

}  // namespace sorrel::cli
