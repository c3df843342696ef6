// tarn query
#include "apps/tarn/Commands.h"
#include "apps/tarn/IterationChoice.h"
#include "apps/tarn/Messages.h"
#include "apps/tarn/Progress.h"
#include "host/common/OutputFile.h"
#include "host/common/System.h"
#include "host/select/CheckSelection.h"
#include "host/select/Select.h"
#include "host/select/Sinks.h"
#include "host/select/StatsSink.h"

namespace tarnapp {

namespace {

struct QueryArguments {
  std::string repository;
  std::string output;
  tarnhost::SelectOptions options;
  IterationChoice iteration;
  std::uint64_t limit = 0;
  bool count = false;
  bool stats = false;
  bool check = false;
  bool json = false;
  bool overwrite = false;
  bool quiet = false;
};

void PrintSummary(const QueryArguments& arguments, const tarnhost::SelectReport& report) {
  const double share = report.pointCount == 0 ? 0
                                              : 100.0 * static_cast<double>(report.selected) /
                                                    static_cast<double>(report.pointCount);
  if (arguments.options.limit && report.selected == *arguments.options.limit) {
    std::printf("the first %s\n", Counted(report.selected, "selected point").c_str());
  } else {
    std::printf("%s of %s (%.3g %%)\n", Grouped(report.selected).c_str(),
                Counted(report.pointCount, "point").c_str(), share);
  }
  std::printf("octree: %s subtrees skipped, %s taken whole\n", Grouped(report.nodesSkipped).c_str(),
              Grouped(report.nodesAccepted).c_str());
  std::printf("blocks: %s skipped, %s taken whole, %s tested point by point\n",
              Grouped(report.blocksSkipped).c_str(), Grouped(report.blocksAccepted).c_str(),
              Grouped(report.nodesTested).c_str());
  if (!arguments.output.empty()) std::printf("written to %s\n", arguments.output.c_str());
}

void PrintStats(const tarnhost::StatsSink& stats) {
  std::printf("%-20s %22s %22s %22s\n", "dimension", "least", "greatest", "mean");
  for (const tarnhost::DimensionStats& dimension : stats.GetStats()) {
    const std::string mean = dimension.count == 0 ? "" : MeanText(dimension.mean);
    std::printf("%-20s %22s %22s %22s", dimension.name.c_str(), dimension.least.c_str(),
                dimension.greatest.c_str(), mean.c_str());
    if (dimension.nanCount > 0) std::printf("  (%s NaN)", Grouped(dimension.nanCount).c_str());
    std::printf("\n");
  }
  for (const std::string& name : stats.GetStringColumns()) {
    std::printf("%-20s %22s\n", name.c_str(), "(strings)");
  }
}

void PrintReading(const tarnhost::ColumnReport& column) {
  std::printf("column %s: %s blocks compared as stored, %s decoded; %s bytes read, %s decoded\n",
              column.name.c_str(), Grouped(column.blocksCompared).c_str(),
              Grouped(column.blocksDecoded).c_str(), Grouped(column.bytesRead).c_str(),
              Grouped(column.bytesDecoded).c_str());
}

void PrintPlan(const tarnhost::PlanReport& plan) {
  std::printf("plan:\n%s", plan.text.c_str());
  std::printf("planned in %.3f ms, ran in %.3f ms (%s)\n", 1e3 * plan.planSeconds,
              1e3 * plan.runSeconds, plan.instructions.c_str());
  for (const tarnhost::LeafReport& leaf : plan.leaves) {
    std::printf("test %s\n", leaf.text.c_str());
    std::printf("  nodes:  %s skipped, %s taken whole, %s undecided\n",
                Grouped(leaf.nodesSkipped).c_str(), Grouped(leaf.nodesAccepted).c_str(),
                Grouped(leaf.nodesTested).c_str());
    std::printf("  blocks: %s skipped, %s taken whole, %s tested in %.3f ms\n",
                Grouped(leaf.blocksSkipped).c_str(), Grouped(leaf.blocksAccepted).c_str(),
                Grouped(leaf.blocksTested).c_str(), 1e3 * leaf.seconds);
    std::printf("  ");
    PrintReading(leaf.reading);
  }
  for (const tarnhost::ColumnReport& column : plan.columns) PrintReading(column);
}

nlohmann::json ReadingAsJson(const tarnhost::ColumnReport& column) {
  return {{"name", column.name},
          {"blocks_compared", column.blocksCompared},
          {"blocks_decoded", column.blocksDecoded},
          {"bytes_read", column.bytesRead},
          {"bytes_decoded", column.bytesDecoded}};
}

nlohmann::json PlanAsJson(const tarnhost::PlanReport& plan) {
  nlohmann::json leaves = nlohmann::json::array();
  for (const tarnhost::LeafReport& leaf : plan.leaves) {
    leaves.push_back({{"test", leaf.text},
                      {"nodes_skipped", leaf.nodesSkipped},
                      {"nodes_accepted", leaf.nodesAccepted},
                      {"nodes_undecided", leaf.nodesTested},
                      {"blocks_skipped", leaf.blocksSkipped},
                      {"blocks_accepted", leaf.blocksAccepted},
                      {"blocks_tested", leaf.blocksTested},
                      {"seconds", leaf.seconds},
                      {"column", ReadingAsJson(leaf.reading)}});
  }
  nlohmann::json columns = nlohmann::json::array();
  for (const tarnhost::ColumnReport& column : plan.columns) {
    columns.push_back(ReadingAsJson(column));
  }
  return {{"text", plan.text},
          {"instructions", plan.instructions},
          {"plan_seconds", plan.planSeconds},
          {"run_seconds", plan.runSeconds},
          {"tests", leaves},
          {"columns", columns}};
}

nlohmann::json StatsAsJson(const tarnhost::StatsSink& stats) {
  nlohmann::json json = nlohmann::json::object();
  for (const tarnhost::DimensionStats& dimension : stats.GetStats()) {
    nlohmann::json& entry = json[dimension.name];
    entry = {{"count", dimension.count}, {"nan", dimension.nanCount}};
    if (dimension.count == 0) continue;
    // Numbers as JSON has them; infinities, which it lacks, as text.
    const nlohmann::json least = nlohmann::json::parse(dimension.least, nullptr, false);
    const nlohmann::json greatest = nlohmann::json::parse(dimension.greatest, nullptr, false);
    entry["min"] = least.is_discarded() ? nlohmann::json(dimension.least) : least;
    entry["max"] = greatest.is_discarded() ? nlohmann::json(dimension.greatest) : greatest;
    entry["mean"] = dimension.mean;
  }
  return json;
}

void PrintAsJson(const QueryArguments& arguments, const tarnhost::SelectReport& report,
                 const tarnhost::StatsSink& stats) {
  nlohmann::json json{{"selected", report.selected},
                      {"points", report.pointCount},
                      {"iteration", report.iteration},
                      {"nodes_skipped", report.nodesSkipped},
                      {"nodes_accepted", report.nodesAccepted},
                      {"blocks_skipped", report.blocksSkipped},
                      {"blocks_accepted", report.blocksAccepted},
                      {"nodes_tested", report.nodesTested}};
  if (!arguments.output.empty()) json["output"] = arguments.output;
  if (arguments.stats) {
    json["statistics"] = StatsAsJson(stats);
    json["strings_without_statistics"] = stats.GetStringColumns();
  }
  if (report.plan) json["plan"] = PlanAsJson(*report.plan);
  PrintJson(json);
}

int Check(const QueryArguments& arguments, tarnhost::Cloud& cloud) {
  tarnhost::CheckReport report;
  const tarnhost::Outcome outcome = tarnhost::CheckSelection(cloud, arguments.options, report);
  if (!outcome.Ok()) return ReportFailure(outcome);
  if (arguments.json) {
    nlohmann::json json{{"selected", report.selected},
                        {"counted", report.counted},
                        {"points", report.pointCount},
                        {"compared", report.comparedPoints},
                        {"sound", report.IsSound()}};
    if (report.difference) {
      json["difference"] = {{"point", report.difference->point},
                            {"coordinates", report.difference->coordinates},
                            {"selected_by", report.difference->byEngine ? "engine" : "records"}};
    }
    PrintJson(json);
  } else if (report.difference) {
    const tarnhost::SelectionDifference& difference = *report.difference;
    std::printf("point %s at %.17g, %.17g, %.17g is selected %s\n",
                Grouped(difference.point).c_str(), difference.coordinates[0],
                difference.coordinates[1], difference.coordinates[2],
                difference.byEngine ? "by the engine and not record by record"
                                    : "record by record and not by the engine");
  } else if (!report.IsSound()) {
    std::printf("%s points are selected, but %s are counted\n", Grouped(report.selected).c_str(),
                Grouped(report.counted).c_str());
  } else if (!arguments.quiet) {
    std::printf("%s of %s, the same record by record\n", Grouped(report.selected).c_str(),
                Counted(report.pointCount, "point").c_str());
  }
  return report.IsSound() ? kDone : kFailed;
}

int Run(QueryArguments& arguments, bool hasLimit) {
  if (hasLimit) arguments.options.limit = arguments.limit;
  const bool isTerse = arguments.count || arguments.json;
  arguments.options.progress = ShowProgress(arguments.quiet || isTerse);
  std::unique_ptr<tarnhost::Cloud> cloud;
  tarnhost::Outcome outcome;
  if (!arguments.output.empty()) {
    outcome = tarnhost::CheckOutput(tarnhost::PathOf(arguments.output), arguments.overwrite);
  }
  if (outcome.Ok()) outcome = tarnhost::Cloud::Open(tarnhost::PathOf(arguments.repository), cloud);
  std::uint64_t iteration = 0;
  if (outcome.Ok()) outcome = ChooseIteration(*cloud, arguments.iteration, iteration);
  if (!outcome.Ok()) return ReportFailure(outcome);
  arguments.options.iteration = iteration;
  if (arguments.check) return Check(arguments, *cloud);
  std::unique_ptr<tarnhost::SelectionSink> file;
  if (!arguments.output.empty())
    outcome = tarnhost::MakeFileSink(tarnhost::PathOf(arguments.output), file);
  if (!outcome.Ok()) return ReportFailure(outcome);
  tarnhost::StatsSink stats;
  std::vector<tarnhost::SelectionSink*> sinks;
  if (file != nullptr) sinks.push_back(file.get());
  if (arguments.stats) sinks.push_back(&stats);
  tarnhost::TeeSink tee(sinks);
  tarnhost::SelectionSink* sink = sinks.empty() ? nullptr : sinks.front();
  if (sinks.size() > 1) sink = &tee;
  tarnhost::SelectReport report;
  outcome = tarnhost::Select(*cloud, arguments.options, sink, report);
  arguments.options.progress = {};
  if (!outcome.Ok()) return ReportFailure(outcome);
  if (arguments.json) {
    PrintAsJson(arguments, report, stats);
    return kDone;
  }
  if (arguments.count) {
    std::printf("%llu\n", static_cast<unsigned long long>(report.selected));
  } else if (!arguments.quiet) {
    PrintSummary(arguments, report);
  }
  if (arguments.stats) PrintStats(stats);
  if (report.plan) PrintPlan(*report.plan);
  return kDone;
}

}  // namespace

void AddQuery(CLI::App& app, Action& action) {
  auto arguments = std::make_shared<QueryArguments>();
  CLI::App* command = app.add_subcommand("query", "Select points by a query text");
  command->footer(
      "Examples:\n"
      "  tarn query street.tarn '#num{type=int}(\"classification\", ==, 2)' --count\n"
      "  tarn query street.tarn '#within{type=sphere}(500100, 4500050, 12, 5)' -o part.las\n"
      "  tarn query street.tarn '#num{type=double}(\"z\", >, 210)' --stats --explain\n"
      "Constants of geometric clauses are in the scan's own coordinates; see "
      "docs/query-language.md.");
  command->add_option("REPOSITORY", arguments->repository, "The repository")->required();
  command->add_option("TEXT", arguments->options.text, "The query")->required();
  command
      ->add_option("-o,--output", arguments->output,
                   "Write the points to this file (.las, .laz, .ply, .pcd or .csv)")
      ->check(EndsIn({".las", ".laz", ".ply", ".pcd", ".csv"}));
  AddOverwriteOption(*command, arguments->overwrite)->needs("--output");
  command->add_flag("--count", arguments->count,
                    "Print the number of points instead of the summary");
  command->add_flag("--json", arguments->json, "Print the facts as JSON")->excludes("--count");
  command->add_flag("--local", arguments->options.local,
                    "Constants are in the repository's local frame");
  AddIterationOptions(*command, arguments->iteration);
  CLI::Option* limit = command
                           ->add_option("--limit", arguments->limit,
                                        "Stop after so many points, such as 1000 or 800k")
                           ->transform(IsCount());
  command->add_flag("--stats", arguments->stats,
                    "Print least, greatest and mean value of each dimension of the points; "
                    "strings have none");
  command->add_flag("--explain", arguments->options.explain,
                    "Print how the query is answered, and what that takes");
  command
      ->add_flag("--check", arguments->check,
                 "Compare the answer with that of testing record by record; slow")
      ->excludes("--count")
      ->excludes("--output")
      ->excludes("--stats")
      ->excludes("--explain")
      ->excludes(limit);
  command->add_flag("-q,--quiet", arguments->quiet, "Say nothing but errors");
  command->callback([arguments, limit, &action] {
    action = [arguments, limit] { return Run(*arguments, limit->count() > 0); };
  });
}

}  // namespace tarnapp
