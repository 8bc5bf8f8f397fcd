#include "Host/CommandLine.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <string_view>

#include "Host/CommandError.hpp"
#include "Host/Commands.hpp"
#include "Host/Features.hpp"
#include "Host/ScanFeatures.hpp"
#include "Host/Suggestion.hpp"

namespace sorrel::cli {
namespace {

void addGlobalOptions(CLI::App& parser, GlobalOptions& options) {
  parser.add_option("--catalogue", options.catalogue, "Read the modules from this property list")
      ->type_name("FILE");
  parser.add_option("--volume", options.volume, "Work on the macOS volume whose root is this folder")
      ->type_name("DIR");
  parser.add_option("--user", options.user, "Whose home on the volume")->type_name("NAME");
  parser.add_option("--bundle-id", options.bundleID, "The identifier that the log's folder is called by")
      ->type_name("ID");
  parser.add_option("--tools", options.toolFolder, "Where stand-ins for system tools lie")->type_name("DIR");
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
  for (const FeatureName& feature : featureNames()) {
    if (scanFeature(feature.finderID) != nullptr) list += " " + std::string(feature.name);
  }
  return list;
}

// CLI11 takes the words from the end of the vector.
std::vector<std::string> reversed(std::vector<std::string> words) {
  std::ranges::reverse(words);
  return words;
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
    return ExitStatus::Done;
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
  if (const auto status = parse(parser, {rest.begin() + 1, rest.end()})) return *status;
  return invocation;
}

}  // namespace sorrel::cli
