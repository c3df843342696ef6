// What the program says of a command line that it cannot take.
#include "apps/tarn/Usage.h"

#include <algorithm>
#include <cstdio>
#include <vector>

#include "host/select/QueryText.h"

namespace tarnapp {

namespace {

std::string Question(const std::string& nearest) {
  return nearest.empty() ? "" : "; did you mean \"" + nearest + "\"?";
}

/// The words of a command line that a command has no place for, in their order.
struct LeftWords {
  std::vector<std::string> options;    ///< without the values that follow a "="
  std::vector<std::string> arguments;  ///< an unknown option's value may be among them
};

LeftWords FindLeftWords(const CLI::App& command) {
  LeftWords left;
  bool mayBeOption = true;
  for (const std::string& word : command.remaining()) {
    if (mayBeOption && word == "--") {
      mayBeOption = false;
    } else if (mayBeOption && word.size() > 1 && word.front() == '-') {
      left.options.push_back(word.substr(0, word.find('=')));
    } else {
      left.arguments.push_back(word);
    }
  }
  return left;
}

std::string UnknownOption(const CLI::App& command, const std::string& option) {
  std::vector<std::string> names;
  for (const CLI::Option* known : command.get_options()) {
    for (const std::string& name : known->get_lnames()) names.push_back(name);
  }
  // A letter is near to none of them.
  const std::string name = option.substr(std::min(option.find_first_not_of('-'), option.size()));
  const std::string nearest = name.size() > 1 ? tarnhost::FindNearest(name, names) : "";
  return "there is no option \"" + option + "\"" + Question(nearest.empty() ? "" : "--" + nearest);
}

std::string TooManyArguments(const std::vector<std::string>& arguments) {
  std::string words;
  for (const std::string& word : arguments) {
    words.append(words.empty() ? "" : ", ").append("\"" + word + "\"");
  }
  return (arguments.size() == 1 ? "one argument too many: " : "arguments too many: ") + words;
}

/// What is wrong. An unknown option comes first: without it, others may seem to be missing.
std::string Describe(const std::vector<const CLI::App*>& commands, const CLI::Error& error) {
  for (const CLI::App* command : commands) {
    const LeftWords left = FindLeftWords(*command);
    if (!left.options.empty()) return UnknownOption(*command, left.options.front());
  }
  for (const CLI::App* command : commands) {
    const LeftWords left = FindLeftWords(*command);
    const bool isSurplus = dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr;
    if (isSurplus && !left.arguments.empty()) return TooManyArguments(left.arguments);
  }
  if (commands.size() == 1 && dynamic_cast<const CLI::RequiredError*>(&error) != nullptr) {
    return "a command is required";
  }
  std::string what = error.what();
  while (!what.empty() && (what.back() == '\n' || what.back() == '.')) what.pop_back();
  const bool isMismatch = dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr;
  return isMismatch && what.ends_with(" missing")
             ? what.substr(0, what.find(':')) + " needs a value"
             : what;
}

}  // namespace

std::string UsageMessage(const CLI::App* app, const CLI::Error& error) {
  std::vector<const CLI::App*> commands{app};
  for (const CLI::App* chosen : app->get_subcommands()) commands.push_back(chosen);
  const std::string name = commands.size() == 1 ? "" : " " + commands.back()->get_name();
  return "tarn: " + Describe(commands, error) + "\n  tarn" + name +
         " --help tells how it is used\n";
}

bool KnowsCommand(const CLI::App& app, const std::string& word) {
  if (word.starts_with('-')) return true;
  std::vector<std::string> names;
  for (const CLI::App* command : app.get_subcommands({})) names.push_back(command->get_name());
  if (std::ranges::find(names, word) != names.end()) return true;
  std::fprintf(stderr, "tarn: there is no command \"%s\"%s\n  tarn --help lists the commands\n",
               word.c_str(), Question(tarnhost::FindNearest(word, names)).c_str());
  return false;
}

}  // namespace tarnapp
