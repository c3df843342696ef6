// tarn query
#include "apps/tarn/Commands.h"
#include "apps/tarn/Messages.h"
#include "apps/tarn/Progress.h"
#include "host/select/Select.h"
#include "host/select/Sinks.h"

namespace tarnapp {

namespace {

struct Arguments {
  std::string repository;
  std::string output;
  tarnhost::SelectOptions options;
  std::uint64_t iteration = 0;
  bool count = false;
  bool json = false;
  bool quiet = false;
};

void PrintSummary(const Arguments& arguments, const tarnhost::SelectReport& report) {
  const double share = report.pointCount == 0 ? 0
                                              : 100.0 * static_cast<double>(report.selected) /
                                                    static_cast<double>(report.pointCount);
  std::printf("%s of %s points (%.3g %%)\n", Grouped(report.selected).c_str(),
              Grouped(report.pointCount).c_str(), share);
  std::printf("octree: %s subtrees skipped, %s taken whole, %s nodes tested point by point\n",
              Grouped(report.nodesSkipped).c_str(), Grouped(report.nodesAccepted).c_str(),
              Grouped(report.nodesTested).c_str());
  if (!arguments.output.empty()) std::printf("written to %s\n", arguments.output.c_str());
}

void PrintAsJson(const Arguments& arguments, const tarnhost::SelectReport& report) {
  nlohmann::json json{{"selected", report.selected},
                      {"points", report.pointCount},
                      {"iteration", report.iteration},
                      {"nodes_skipped", report.nodesSkipped},
                      {"nodes_accepted", report.nodesAccepted},
                      {"nodes_tested", report.nodesTested}};
  if (!arguments.output.empty()) json["output"] = arguments.output;
  PrintJson(json);
}

int Run(Arguments& arguments, bool hasIteration) {
  if (hasIteration) arguments.options.iteration = arguments.iteration;
  arguments.options.progress = ShowProgress(arguments.quiet || arguments.count || arguments.json);
  std::unique_ptr<tarnhost::Cloud> cloud;
  tarnhost::Outcome outcome = tarnhost::Cloud::Open(arguments.repository, cloud);
  if (!outcome.Ok()) return ReportFailure(outcome);
  std::unique_ptr<tarnhost::SelectionSink> sink;
  if (!arguments.output.empty()) outcome = tarnhost::MakeFileSink(arguments.output, sink);
  if (!outcome.Ok()) return ReportFailure(outcome);
  tarnhost::SelectReport report;
  outcome = tarnhost::Select(*cloud, arguments.options, sink.get(), report);
  arguments.options.progress = {};
  if (!outcome.Ok()) return ReportFailure(outcome);
  if (arguments.json) {
    PrintAsJson(arguments, report);
  } else if (arguments.count) {
    std::printf("%llu\n", static_cast<unsigned long long>(report.selected));
  } else if (!arguments.quiet) {
    PrintSummary(arguments, report);
  }
  return kDone;
}

}  // namespace

void AddQuery(CLI::App& app, Action& action) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App* command = app.add_subcommand("query", "Select points by a query text");
  command->footer(
      "Examples:\n"
      "  tarn query street.tarn '#num{type=int}(\"classification\", ==, 2)' --count\n"
      "  tarn query street.tarn '#within{type=sphere}(500100, 4500050, 12, 5)' -o part.las\n"
      "Constants of geometric clauses are in the scan's own coordinates; see "
      "docs/query-language.md.");
  command->add_option("REPOSITORY", arguments->repository, "The repository")->required();
  command->add_option("TEXT", arguments->options.text, "The query")->required();
  command->add_option("-o,--output", arguments->output,
                      "Write the points to this file (.las, .laz or .csv)");
  command->add_flag("--count", arguments->count, "Print the number of points and nothing else");
  command->add_flag("--json", arguments->json, "Print the facts as JSON")->excludes("--count");
  command->add_flag("--local", arguments->options.local,
                    "Constants are in the repository's local frame");
  CLI::Option* iteration =
      command->add_option("--iteration", arguments->iteration, "Iteration; default the newest")
          ->check(IsWholeNumber());
  command->add_flag("-q,--quiet", arguments->quiet, "Say nothing but errors");
  command->callback([arguments, iteration, &action] {
    action = [arguments, iteration] { return Run(*arguments, iteration->count() > 0); };
  });
}

}  // namespace tarnapp
