// Turns one query of a tree into a test of stored values.
#include "host/select/LeafCompiler.h"

#include <algorithm>
#include <cmath>
#include <typeindex>
#include <unordered_map>

namespace tarnhost {

namespace result = oocpc::result;
using oocpc::ValueType;

namespace {

/// A comparison as a plan needs it, without its name.
struct Comparison {
  ClauseType type;
  RealInterval interval;  ///< of numbers
};

template <typename T, MetaDataComparison kComparison>
Comparison ReadComparison(const OOCPCIQuery& query) {
  const auto& comparison = static_cast<const MetaDataComparisonQuery<T, kComparison>&>(query);
  if constexpr (std::is_same_v<T, std::string>) {
    return {ClauseType::kString, {}};
  } else {
    const ClauseType type = std::is_same_v<T, std::uint8_t>   ? ClauseType::kUInt8
                            : std::is_same_v<T, std::int32_t> ? ClauseType::kInt
                            : std::is_same_v<T, float>        ? ClauseType::kFloat
                                                              : ClauseType::kDouble;
    return {type, IntervalOf(kComparison, static_cast<double>(comparison.GetValue()))};
  }
}

using Reader = Comparison (*)(const OOCPCIQuery&);
using Readers = std::unordered_map<std::type_index, Reader>;

template <typename T, MetaDataComparison... kComparisons>
void AddReaders(Readers& readers) {
  (readers.emplace(typeid(MetaDataComparisonQuery<T, kComparisons>),
                   &ReadComparison<T, kComparisons>),
   ...);
}

template <typename T>
void AddAllReaders(Readers& readers) {
  AddReaders<T, MetaDataComparison::kEqual, MetaDataComparison::kGreater,
             MetaDataComparison::kGreaterOrEqual, MetaDataComparison::kLess,
             MetaDataComparison::kLessOrEqual, MetaDataComparison::kNotEqual>(readers);
}

/// Finding the class of a query in a table is many times faster than thirty dynamic casts.
const Readers& ComparisonReaders() {
  static const Readers readers = [] {
    Readers made;
    AddAllReaders<std::uint8_t>(made);
    AddAllReaders<std::int32_t>(made);
    AddAllReaders<float>(made);
    AddAllReaders<double>(made);
    AddAllReaders<std::string>(made);
    return made;
  }();
  return readers;
}

/// Makes a box leaf constant when it holds nothing or everything.
void FoldBox(CompiledLeaf& compiled) {
  const auto& box = compiled.leaf.box;
  const bool isEmpty =
      std::ranges::any_of(box, [](const StoredRange& r) { return r.least > r.greatest; });
  const bool isFull = std::ranges::all_of(box, [](const StoredRange& r) {
    return r.least == kAllStored.least && r.greatest == kAllStored.greatest;
  });
  compiled.isConstant = isEmpty || isFull;
  compiled.value = isFull != compiled.leaf.negated;
}

template <typename Corner>
void CompileBox(const StoredPositions& positions, const Corner& first, const Corner& second,
                CompiledLeaf& compiled) {
  compiled.leaf.kind = LeafKind::kBox;
  for (std::size_t axis = 0; axis < first.size(); ++axis) {
    const double a = first[axis];
    const double b = second[axis];
    const bool isNumber = !std::isnan(a) && !std::isnan(b);
    compiled.leaf.box[axis] =
        isNumber ? positions.FindLocal(std::min(a, b), std::max(a, b), axis) : StoredRange{};
  }
  FoldBox(compiled);
}

}  // namespace

std::size_t LeafCompiler::FindPositions() {
  const auto known = std::ranges::find(plan_.columns, true, &PlanColumn::isPositions);
  if (known == plan_.columns.end()) {
    plan_.columns.push_back(
        {"DEF_POSITION", cloud_.GetPositionsColumnId(), {ValueType::kInt32, 3}, true});
    return plan_.columns.size() - 1;
  }
  return static_cast<std::size_t>(known - plan_.columns.begin());
}

std::size_t LeafCompiler::FindColumn(const std::string& name) {
  for (std::size_t i = 0; i < plan_.columns.size(); ++i) {
    if (!plan_.columns[i].isPositions && plan_.columns[i].name == name) return i;
  }
  const CloudColumn& column = *std::ranges::find(cloud_.GetColumns(), name, &CloudColumn::name);
  plan_.columns.push_back({column.name, column.columnId, column.type, false});
  return plan_.columns.size() - 1;
}

Outcome LeafCompiler::Compile(const OOCPCIQuery* query, CompiledLeaf& compiled) {
  compiled.isConstant = query == nullptr || dynamic_cast<const OOCPCNoPointsQuery*>(query);
  if (compiled.isConstant) return Outcome::Success();
  if (dynamic_cast<const OOCPCAllPointsQuery*>(query) != nullptr) {
    compiled.isConstant = compiled.value = true;
  } else if (const auto* box = dynamic_cast<const OOCPCInsideBoxQuery*>(query)) {
    compiled.leaf.column = FindPositions();
    CompileBox(plan_.positions, box->GetFirst(), box->GetSecond(), compiled);
  } else if (const auto* rectangle = dynamic_cast<const OOCPCInside2DBoxQuery*>(query)) {
    compiled.leaf.column = FindPositions();
    CompileBox(plan_.positions, rectangle->GetFirst(), rectangle->GetSecond(), compiled);
  } else if (const auto* sphere = dynamic_cast<const OOCPCInsideSphereQuery*>(query)) {
    CompileSphere(*sphere, compiled);
  } else if (const auto* frustum = dynamic_cast<const OOCPCInsideFrustumQuery*>(query)) {
    CompileFrustum(*frustum, compiled);
  } else {
    return CompileComparison(*query, compiled);
  }
  return Outcome::Success();
}

void LeafCompiler::CompileSphere(const OOCPCInsideSphereQuery& query, CompiledLeaf& compiled) {
  compiled.isConstant =
      !(query.GetRadius() >= 0) ||
      std::ranges::any_of(query.GetCentre(), [](float c) { return std::isnan(c); });
  compiled.leaf.kind = LeafKind::kSphere;
  compiled.leaf.column = FindPositions();
  compiled.leaf.query = &query;
}

void LeafCompiler::CompileFrustum(const OOCPCInsideFrustumQuery& query, CompiledLeaf& compiled) {
  for (const auto& plane : query.GetPlanes()) {
    compiled.isConstant |= std::ranges::any_of(plane, [](float c) { return std::isnan(c); });
  }
  compiled.leaf.kind = LeafKind::kFrustum;
  compiled.leaf.column = FindPositions();
  compiled.leaf.query = &query;
}

Outcome LeafCompiler::CompileComparison(const OOCPCIQuery& query, CompiledLeaf& compiled) {
  const auto reader = ComparisonReaders().find(typeid(query));
  const std::string name = query.GetMetaName(0).ConvertToChar();
  if (reader == ComparisonReaders().end()) return Outcome::FromCode(result::kBadRecord, name);
  const Comparison comparison = reader->second(query);
  const auto field = std::ranges::find_if(fields_, [&](const RecordField& candidate) {
    return candidate.source != RecordField::Source::kPosition && candidate.name == name &&
           candidate.type == comparison.type;
  });
  if (field == fields_.end()) return Outcome::FromCode(result::kBadRecord, name);
  PlanLeaf& leaf = compiled.leaf;
  leaf.negated = comparison.interval.negated;
  if (field->source == RecordField::Source::kCoordinate) {
    leaf.kind = LeafKind::kBox;
    leaf.column = FindPositions();
    leaf.box[field->component] = plan_.positions.FindSource(
        comparison.interval.low, comparison.interval.high, field->component);
    FoldBox(compiled);
    return Outcome::Success();
  }
  leaf.column = FindColumn(field->column);
  leaf.component = field->component;
  if (comparison.type == ClauseType::kString) return CompileString(query, *field, compiled);
  leaf.interval = ValuesIn(comparison.interval, field->stored.value);
  compiled.isConstant = leaf.interval.isEmpty || leaf.interval.isFull;
  compiled.value = leaf.interval.isFull != leaf.negated;
  return Outcome::Success();
}

namespace {

void AddToRuns(std::uint64_t index, std::vector<StringRun>& runs) {
  if (!runs.empty() && runs.back().last + 1 == index) {
    runs.back().last = index;
  } else {
    runs.push_back({index, index});
  }
}

}  // namespace

Outcome LeafCompiler::CompileString(const OOCPCIQuery& query, const RecordField& field,
                                    CompiledLeaf& compiled) {
  const OOCPCStringRepositoryContainer* dictionary =
      cloud_.GetPointCloud().GetDataRepository()->GetStringRepository();
  if (dictionary == nullptr) {
    return Outcome::FromCode(result::kStringNotFound, "column " + field.column);
  }
  StringSet& strings = compiled.leaf.strings;
  compiled.leaf.kind = LeafKind::kString;
  const std::uint64_t count = dictionary->GetCount();
  strings.selected.resize(count);
  strings.countBefore.resize(count + 1);
  std::string text;
  for (std::uint64_t i = 0; i < count; ++i) {
    const HRESULT code = dictionary->GetString(i, text);
    if (oocpc::Failed(code)) return Outcome::FromCode(code, "column " + field.column);
    const char* const record = text.c_str();
    const auto size = static_cast<unsigned>(text.size());
    strings.selected[i] = query.Satisfy(&record, &size) ? 1 : 0;
    if (strings.selected[i] != 0) AddToRuns(i, strings.runs);
    strings.countBefore[i + 1] = strings.countBefore[i] + strings.selected[i];
  }
  return Outcome::Success();
}

bool IntersectLeaves(const SelectionPlan& plan, PlanLeaf& kept, const PlanLeaf& other) {
  if (kept.kind == LeafKind::kInterval) {
    kept.interval = Intersect(kept.interval, other.interval, plan.columns[kept.column].type.value);
    return !kept.interval.isEmpty;
  }
  for (std::size_t axis = 0; axis < kept.box.size(); ++axis) {
    kept.box[axis].least = std::max(kept.box[axis].least, other.box[axis].least);
    kept.box[axis].greatest = std::min(kept.box[axis].greatest, other.box[axis].greatest);
    if (kept.box[axis].least > kept.box[axis].greatest) return false;
  }
  return true;
}

std::uint32_t CostOf(const SelectionPlan& plan, const PlanLeaf& leaf) {
  const oocpc::ColumnType type = plan.columns[leaf.column].type;
  switch (leaf.kind) {
    case LeafKind::kInterval:
    case LeafKind::kString:
      return type.components == 1 ? oocpc::ComponentBytes(type.value) : 4 * oocpc::ValueBytes(type);
    case LeafKind::kBox:
      return 24;
    case LeafKind::kSphere:
      return 25;
    case LeafKind::kFrustum:
      return 28;
  }
  return 0;
}

}  // namespace tarnhost
