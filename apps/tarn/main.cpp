// tarn: opens point clouds too large for memory, and selects points in them.
#include <algorithm>
#include <cstdio>
#include <exception>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "apps/tarn/Commands.h"
#include "apps/tarn/Console.h"
#include "apps/tarn/Messages.h"
#include "apps/tarn/Progress.h"
#include "host/select/QueryText.h"

namespace {

/// Wrong usage in the form of every other failure, with the help that answers it.
std::string UsageMessage(const CLI::App* app, const CLI::Error& error) {
  std::string what = error.what();
  while (!what.empty() && (what.back() == '\n' || what.back() == '.')) what.pop_back();
  const std::vector<CLI::App*> chosen = app->get_subcommands();
  const std::string command = chosen.empty() ? "tarn" : "tarn " + chosen.front()->get_name();
  return "tarn: " + what + "\n  " + command + " --help tells how it is used\n";
}

/// Whether the first word is a command or an option. Else says which command it may have meant.
bool KnowsCommand(const CLI::App& app, const std::string& word) {
  if (word.starts_with('-')) return true;
  std::vector<std::string> names;
  for (const CLI::App* command : app.get_subcommands({})) names.push_back(command->get_name());
  if (std::ranges::find(names, word) != names.end()) return true;
  const std::string nearest = tarnhost::FindNearest(word, names);
  std::fprintf(stderr, "tarn: there is no command \"%s\"%s\n  tarn --help lists the commands\n",
               word.c_str(),
               nearest.empty() ? "" : ("; did you mean \"" + nearest + "\"?").c_str());
  return false;
}

/// Parses the command line; an exit code when there is nothing to run.
std::optional<int> Parse(CLI::App& app, const std::vector<std::string>& arguments) {
  if (!arguments.empty() && !KnowsCommand(app, arguments.front())) return tarnapp::kWrongUsage;
  try {
    // Backwards, as the parser takes them.
    app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
    return std::nullopt;
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? tarnapp::kDone : tarnapp::kWrongUsage;
  }
}

int RunAction(const tarnapp::Action& action) {
  try {
    return action();
  } catch (const std::bad_alloc&) {
    return tarnapp::ReportFailure(tarnhost::Outcome::FromCode(oocpc::result::kOutOfMemory));
  } catch (const std::exception& error) {
    return tarnapp::ReportFailure(
        tarnhost::Outcome::Failure(oocpc::result::kIoError, error.what()));
  }
}

/// A full disk or a closed pipe on standard output is a failure, too.
int FlushOutput(int code) {
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return code;
  std::fprintf(stderr, "tarn: standard output cannot be written to\n");
  return tarnapp::kFailed;
}

}  // namespace

int main(int argc, char** argv) {
  tarnapp::PrepareConsole();
  tarnapp::StopOnInterrupt();
  CLI::App app{"Opens point clouds too large for memory, and selects points in them.", "tarn"};
  app.allow_windows_style_options(false);  // "/" begins a path, on every system
  app.set_version_flag("--version", "tarn " TARN_VERSION);
  app.require_subcommand(1);
  app.failure_message(UsageMessage);
  app.footer("tarn COMMAND --help tells more about a command.");
  tarnapp::Action action;
  tarnapp::AddImport(app, action);
  tarnapp::AddAppend(app, action);
  tarnapp::AddInfo(app, action);
  tarnapp::AddQuery(app, action);
  tarnapp::AddExport(app, action);
  tarnapp::AddThin(app, action);
  tarnapp::AddRender(app, action);
  tarnapp::AddIterations(app, action);
  tarnapp::AddVerify(app, action);
  tarnapp::AddRepair(app, action);
  tarnapp::AddSynthesize(app, action);
  if (const std::optional<int> code = Parse(app, tarnapp::GetArguments(argc, argv))) return *code;
  return FlushOutput(RunAction(action));
}
