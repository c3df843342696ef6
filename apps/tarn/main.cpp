// tarn: opens point clouds too large for memory, and selects points in them.
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
#include "apps/tarn/Usage.h"

namespace {

/// Parses the command line; an exit code when there is nothing to run.
std::optional<int> Parse(CLI::App& app, const std::vector<std::string>& arguments) {
  if (!arguments.empty() && !tarnapp::KnowsCommand(app, arguments.front()))
    return tarnapp::kWrongUsage;
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

/// A full disk under standard output is a failure, too. A reader that has seen enough is none.
int FlushOutput(int code) {
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return code;
  if (tarnapp::IsOutputAbandoned()) return code == tarnapp::kDone ? tarnapp::kReaderGone : code;
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
  app.failure_message(tarnapp::UsageMessage);
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
  const std::optional<int> answered = Parse(app, tarnapp::GetArguments(argc, argv));
  return FlushOutput(answered ? *answered : RunAction(action));
}
