// Selects whole blocks at a time, on all processors.
#include "host/select/Select.h"

#include <tbb/enumerable_thread_specific.h>
#include <tbb/parallel_pipeline.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <chrono>
#include <numeric>

#include "host/select/BlockEvaluator.h"
#include "host/select/MaskKernels.h"
#include "host/select/PlanCompiler.h"
#include "host/select/QueryReading.h"
#include "host/select/SelectionFeed.h"
#include "host/select/SelectionStart.h"

namespace tarnhost {

namespace result = oocpc::result;

namespace {

using Clock = std::chrono::steady_clock;
using Batch = std::unique_ptr<SelectionBatch>;

double SecondsSince(Clock::time_point begin) {
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

/// The numbers of the bits that are set.
void ListBits(std::span<const std::uint64_t> mask, std::vector<std::uint32_t>& numbers) {
  for (std::size_t w = 0; w < mask.size(); ++w) {
    for (std::uint64_t word = mask[w]; word != 0; word &= word - 1) {
      numbers.push_back(static_cast<std::uint32_t>(64 * w) +
                        static_cast<std::uint32_t>(std::countr_zero(word)));
    }
  }
}

/// What a thread tests with.
struct Worker {
  Worker(Cloud& cloud, const SelectionPlan& plan, bool timed) : evaluator(cloud, plan, timed) {}
  BlockEvaluator evaluator;
  std::uint64_t blocksSkipped = 0;
  std::uint64_t blocksAccepted = 0;
  std::uint64_t nodesTested = 0;
};

/// One selection: a feed that walks the octree, threads that test batches of nodes, and an end that
/// takes them in the order of the walk. So many batches are under way at a time, and no more.
class Selection {
 public:
  Selection(Cloud& cloud, const SelectionPlan& plan, const SelectOptions& options,
            SelectionSink* sink, SelectReport& report)
      : plan_(plan),
        options_(options),
        sink_(sink),
        report_(report),
        feed_(cloud, plan, sink == nullptr),
        workers_(
            [this, &cloud] { return std::make_unique<Worker>(cloud, plan_, options_.explain); }) {}

  Outcome Run() {
    if (Outcome outcome = feed_.Start(report_.iteration); !outcome.Ok()) return outcome;
    const auto window = 2 * static_cast<std::size_t>(tbb::this_task_arena::max_concurrency()) + 2;
    tbb::parallel_pipeline(
        window,
        tbb::make_filter<void, SelectionBatch*>(
            tbb::filter_mode::serial_in_order,
            [this](tbb::flow_control& control) { return Feed(control); }) &
            tbb::make_filter<SelectionBatch*, SelectionBatch*>(
                tbb::filter_mode::parallel, [this](SelectionBatch* batch) { return Test(batch); }) &
            tbb::make_filter<SelectionBatch*, void>(
                tbb::filter_mode::serial_in_order,
                [this](SelectionBatch* batch) { Take(Batch(batch)); }));
    for (const std::unique_ptr<Worker>& worker : workers_) {
      report_.blocksSkipped += worker->blocksSkipped;
      report_.blocksAccepted += worker->blocksAccepted;
      report_.nodesTested += worker->nodesTested;
    }
    return failure_;
  }

  void Explain(PlanReport& plan) const {
    plan.text = DescribePlan(plan_);
    plan.instructions = KernelInstructions();
    plan.leaves.resize(plan_.leaves.size());
    for (std::size_t i = 0; i < plan_.leaves.size(); ++i) {
      plan.leaves[i].text = DescribeLeaf(plan_, plan_.leaves[i]);
      plan.leaves[i].reading.name = plan_.columns[plan_.leaves[i].column].name;
    }
    for (const PlanColumn& column : plan_.columns) plan.columns.push_back({.name = column.name});
    feed_.Report(plan.leaves);
    for (const std::unique_ptr<Worker>& worker : workers_) AddCounts(worker->evaluator, plan);
  }

 private:
  static void AddReading(const ColumnCounts& counts, ColumnReport& report) {
    report.blocksCompared += counts.blocksCompared;
    report.blocksDecoded += counts.blocksDecoded;
    report.bytesRead += counts.bytesRead;
    report.bytesDecoded += counts.bytesDecoded;
  }

  static void AddCounts(const BlockEvaluator& evaluator, PlanReport& plan) {
    for (std::size_t i = 0; i < plan.leaves.size(); ++i) {
      const LeafCounts& counts = evaluator.GetLeafCounts()[i];
      plan.leaves[i].blocksSkipped += counts.blocksSkipped;
      plan.leaves[i].blocksAccepted += counts.blocksAccepted;
      plan.leaves[i].blocksTested += counts.blocksTested;
      plan.leaves[i].seconds += 1e-9 * static_cast<double>(counts.nanoseconds);
      AddReading(counts.reading, plan.leaves[i].reading);
    }
    for (std::size_t i = 0; i < plan.columns.size(); ++i) {
      AddReading(evaluator.GetColumnCounts(i), plan.columns[i]);
    }
  }

  SelectionBatch* Feed(tbb::flow_control& control) {
    auto batch = std::make_unique<SelectionBatch>();
    if (isStopped_.load(std::memory_order_relaxed) || !feed_.Next(*batch)) {
      control.stop();
      return nullptr;
    }
    return batch.release();
  }

  SelectionBatch* Test(SelectionBatch* batch) {
    if (isStopped_.load(std::memory_order_relaxed)) return batch;
    Worker& worker = *workers_.local();
    for (std::size_t i = 0; i < batch->items.size(); ++i) {
      Outcome outcome = TestItem(worker, batch->items[i]);
      if (outcome.Ok()) continue;
      batch->failure = std::move(outcome);
      batch->items.resize(i);
      break;
    }
    return batch;
  }

  Outcome TestItem(Worker& worker, SelectionItem& item) {
    ClassifyResult result = ClassifyResult::kAll;
    if (!item.isAccepted) {
      Outcome outcome = worker.evaluator.Evaluate(item.node, result);
      if (!outcome.Ok()) return outcome;
      ++(result == ClassifyResult::kNone  ? worker.blocksSkipped
         : result == ClassifyResult::kAll ? worker.blocksAccepted
                                          : worker.nodesTested);
    }
    if (result == ClassifyResult::kNone) return Outcome::Success();
    const bool isWhole = result == ClassifyResult::kAll;
    item.selected = isWhole ? item.node.ownPointCount : CountBits(worker.evaluator.GetMask());
    if (sink_ == nullptr || item.selected == 0) return Outcome::Success();
    item.points.reserve(item.selected);
    if (isWhole) {
      item.points.resize(item.selected);
      std::iota(item.points.begin(), item.points.end(), 0u);
    } else {
      ListBits(worker.evaluator.GetMask(), item.points);
    }
    return sink_->Prepare(item.node, item.points, item.part);
  }

  /// The end of the pipeline: one batch at a time, in the order of the walk.
  void Take(Batch batch) {
    if (isStopped_.load(std::memory_order_relaxed)) return;
    report_.nodesSkipped += batch->nodesSkipped;
    report_.nodesAccepted += batch->nodesAccepted;
    report_.selected += batch->countedPoints;
    Outcome outcome;
    for (SelectionItem& item : batch->items) {
      outcome = TakeItem(item);
      if (!outcome.Ok() || IsFull()) break;
    }
    if (outcome.Ok() && !IsFull()) outcome = std::move(batch->failure);
    done_ += batch->passedPoints;
    if (outcome.Ok() && options_.progress &&
        !options_.progress({"selecting", done_, report_.pointCount})) {
      outcome = Outcome::FromCode(result::kStopped);
    }
    if (IsFull()) report_.selected = *options_.limit;
    if (outcome.Ok() && !IsFull()) return;
    failure_ = std::move(outcome);
    isStopped_.store(true, std::memory_order_relaxed);
  }

  [[nodiscard]] bool IsFull() const {
    return options_.limit && report_.selected >= *options_.limit;
  }

  Outcome TakeItem(SelectionItem& item) {
    const std::uint64_t left = options_.limit
                                   ? *options_.limit - std::min(*options_.limit, report_.selected)
                                   : item.selected;
    const bool isCut = left < item.selected;
    report_.selected += isCut ? left : item.selected;
    if (sink_ == nullptr || item.selected == 0 || left == 0) return Outcome::Success();
    if (isCut) {
      item.points.resize(left);
      item.part.reset();
      Outcome outcome = sink_->Prepare(item.node, item.points, item.part);
      if (!outcome.Ok()) return outcome;
    }
    return sink_->Consume(item.node, item.points, item.part.get());
  }

  const SelectionPlan& plan_;
  const SelectOptions& options_;
  SelectionSink* sink_;
  SelectReport& report_;
  SelectionFeed feed_;
  tbb::enumerable_thread_specific<std::unique_ptr<Worker>> workers_;
  std::atomic<bool> isStopped_{false};
  std::uint64_t done_ = 0;
  Outcome failure_;
};

}  // namespace

Outcome Select(Cloud& cloud, const SelectOptions& options, SelectionSink* sink,
               SelectReport& report) {
  const Clock::time_point begin = Clock::now();
  if (Outcome outcome = StartSelection(cloud, options, report); !outcome.Ok()) return outcome;
  std::vector<RecordField> fields;
  TarnOOCStringQueryExpression expression;
  SelectionPlan plan;
  Outcome outcome = ReadQuery(cloud, {options.text, options.local, report.iteration},
                              NameTypes::kAny, fields, expression);
  if (outcome.Ok()) outcome = CompilePlan(cloud, *expression.GetBooleanAST(), fields, plan);
  if (!outcome.Ok()) return outcome;
  const double planSeconds = SecondsSince(begin);
  const Clock::time_point planned = Clock::now();
  if (sink != nullptr) {
    if (outcome = sink->Begin(cloud); !outcome.Ok()) return outcome;
  }
  Selection selection(cloud, plan, options, sink, report);
  if (options.limit != 0) outcome = selection.Run();
  if (!outcome.Ok()) return outcome;
  if (options.explain) {
    report.plan.emplace();
    report.plan->planSeconds = planSeconds;
    selection.Explain(*report.plan);
    report.plan->runSeconds = SecondsSince(planned);
  }
  return sink != nullptr ? sink->End(report) : Outcome::Success();
}

}  // namespace tarnhost
