// Fits the metadata names and types of a query to the columns of a cloud.
#include "host/select/QueryTyping.h"

#include <algorithm>
#include <array>
#include <limits>
#include <optional>

namespace tarnhost {

namespace result = oocpc::result;
using oocpc::ValueType;

namespace {

constexpr std::array<const char*, 3> kCoordinates{"x", "y", "z"};
constexpr std::array<const char*, 3> kColors{"red", "green", "blue"};
constexpr const char* kColorColumn = "DEF_COLOR";
constexpr std::array<ClauseType, 5> kTypesByPreference{ClauseType::kUInt8, ClauseType::kInt,
                                                       ClauseType::kFloat, ClauseType::kDouble,
                                                       ClauseType::kString};

const CloudColumn* FindColumn(const Cloud& cloud, const std::string& name) {
  const auto found = std::ranges::find(cloud.GetColumns(), name, &CloudColumn::name);
  return found == cloud.GetColumns().end() ? nullptr : &*found;
}

bool IsInteger(ValueType type) { return type <= ValueType::kInt64; }
bool IsSigned(ValueType type) {
  return type == ValueType::kInt8 || type == ValueType::kInt16 || type == ValueType::kInt32 ||
         type == ValueType::kInt64;
}

/// The values that a column really has, over the blocks that an iteration may refer to; only for
/// integers.
struct ActualRange {
  bool hasValues = false;
  bool negative = false;       ///< some value is
  std::int64_t least = 0;      ///< meaningful when negative
  std::uint64_t greatest = 0;  ///< of the values that are not negative
};

Outcome ReadActualRange(Cloud& cloud, std::uint64_t iteration, const RecordField& field,
                        ActualRange& range) {
  OOCPCUpdateIteration record;
  if (Outcome outcome = cloud.ReadIteration(iteration, record); !outcome.Ok()) return outcome;
  BlockReader reader;
  if (Outcome outcome = BlockReader::Open(cloud, {field.column}, reader); !outcome.Ok()) {
    return outcome;
  }
  OOCPCMetaDataContainer& column = reader.GetContainer(0);
  HRESULT code = result::kOk;
  for (std::uint64_t block = 0; block < record.blockCount && !oocpc::Failed(code); ++block) {
    oocpc::BlockEntry entry;
    code = column.ReadBlockEntry(block, entry);
    if (oocpc::Failed(code) || entry.valueCount == 0) continue;
    range.hasValues = true;
    for (const std::uint64_t bits :
         {entry.minimumBits[field.component], entry.maximumBits[field.component]}) {
      const auto value = static_cast<std::int64_t>(bits);
      if (IsSigned(field.stored.value) && value < 0) {
        range.negative = true;
        range.least = std::min(range.least, value);
      } else {
        range.greatest = std::max(range.greatest, bits);
      }
    }
  }
  return oocpc::Failed(code) ? Outcome::FromCode(code, "column " + field.column)
                             : Outcome::Success();
}

/// Largest magnitude up to which a type holds every integer.
std::uint64_t ExactLimit(ClauseType type) {
  switch (type) {
    case ClauseType::kUInt8:
      return std::numeric_limits<std::uint8_t>::max();
    case ClauseType::kInt:
      return std::numeric_limits<std::int32_t>::max();
    case ClauseType::kFloat:
      return std::uint64_t{1} << 24;
    case ClauseType::kDouble:
      return std::uint64_t{1} << 53;
    case ClauseType::kString:
      return 0;
  }
  return 0;
}

/// Least integer down from which a type holds every one.
std::int64_t ExactLeast(ClauseType type) {
  if (type == ClauseType::kInt) return std::numeric_limits<std::int32_t>::min();
  return type == ClauseType::kUInt8 ? 0 : -static_cast<std::int64_t>(ExactLimit(type));
}

bool Fits(const ActualRange& range, ClauseType type) {
  if (type == ClauseType::kString || range.greatest > ExactLimit(type)) return false;
  return !range.negative || range.least >= ExactLeast(type);
}

class Fitter {
 public:
  Fitter(Cloud& cloud, const QueryRequest& request, NameTypes types,
         std::vector<RecordField>& fields)
      : cloud_(cloud), request_(request), types_(types), fields_(fields) {}

  Outcome Fit(const QueryClause& clause) {
    switch (clause.kind) {
      case ClauseKind::kSphere:
      case ClauseKind::kBox:
      case ClauseKind::k2DBox:
      case ClauseKind::kFrustum:
        return AddPosition();
      case ClauseKind::kMetaData:
        return AddMetaData(clause);
      default:
        return Outcome::Success();
    }
  }

 private:
  Outcome Refuse(std::size_t position, std::string what, std::string remedy) const {
    return Outcome::Failure(result::kQueryRejected, std::move(what),
                            ShowPosition(request_.text, position), std::move(remedy));
  }

  Outcome AddPosition() {
    const auto isPosition = [](const RecordField& field) {
      return field.source == RecordField::Source::kPosition;
    };
    if (std::ranges::any_of(fields_, isPosition)) return Outcome::Success();
    RecordField field;
    field.name = "DEF_POSITION";
    field.source = RecordField::Source::kPosition;
    fields_.push_back(std::move(field));
    return Outcome::Success();
  }

  Outcome AddMetaData(const QueryClause& clause) {
    const auto known = std::ranges::find_if(fields_, [&](const RecordField& field) {
      return field.name == clause.name && field.source != RecordField::Source::kPosition &&
             (types_ == NameTypes::kOnePerName || field.type == clause.type);
    });
    if (known != fields_.end()) {
      if (known->type == clause.type) return Outcome::Success();
      return Refuse(clause.typeSpan.begin,
                    "\"" + clause.name + "\" is asked as " + ClauseTypeWord(clause.type) +
                        " here and as " + ClauseTypeWord(known->type) +
                        " before; here points are tested as records, which hold one value a name",
                    "use one type for one name throughout the query");
    }
    RecordField field;
    if (Outcome outcome = FindSource(clause, field); !outcome.Ok()) return outcome;
    field.name = clause.name;
    field.type = clause.type;
    bool fits = false;
    if (Outcome outcome = HoldsValues(field, clause.type, fits); !outcome.Ok()) return outcome;
    if (!fits) return WrongType(clause, field);
    fields_.push_back(std::move(field));
    return Outcome::Success();
  }

  Outcome FindSource(const QueryClause& clause, RecordField& field) const {
    if (const CloudColumn* column = FindColumn(cloud_, clause.name)) {
      field.column = column->name;
      field.stored = column->type;
      if (column->type.components == 1) return Outcome::Success();
      return Refuse(clause.nameSpan.begin,
                    "\"" + clause.name + "\" has " + std::to_string(column->type.components) +
                        " values a point and cannot be compared with one",
                    clause.name == kColorColumn ? "ask for red, green or blue" : "");
    }
    const auto coordinate = std::ranges::find(kCoordinates, clause.name);
    if (coordinate != kCoordinates.end()) {
      field.source = RecordField::Source::kCoordinate;
      field.stored = {ValueType::kDouble, 1};
      field.component = static_cast<std::uint8_t>(coordinate - kCoordinates.begin());
      return Outcome::Success();
    }
    const CloudColumn* colors = FindColumn(cloud_, kColorColumn);
    const auto color = std::ranges::find(kColors, clause.name);
    if (colors != nullptr && color != kColors.end()) {
      field.column = kColorColumn;
      field.stored = {colors->type.value, 1};
      field.component = static_cast<std::uint8_t>(color - kColors.begin());
      return Outcome::Success();
    }
    if (clause.name == "DEF_POSITION") {
      return Refuse(clause.nameSpan.begin, "a position cannot be compared with a number",
                    "ask for x, y or z, or use #within");
    }
    const std::vector<std::string> names = ListQueryNames(cloud_);
    const std::string nearest = FindNearest(clause.name, names);
    std::string all;
    for (const std::string& name : names) all += (all.empty() ? "" : ", ") + name;
    return Refuse(clause.nameSpan.begin,
                  "the cloud has no metadata \"" + clause.name + "\"; it has " + all,
                  nearest.empty() ? "use one of these names" : "did you mean \"" + nearest + "\"?");
  }

  Outcome HoldsValues(const RecordField& field, ClauseType type, bool& fits) {
    fits = ConvertsWithoutLoss(field.stored.value, type);
    if (fits || field.source != RecordField::Source::kColumn || !IsInteger(field.stored.value)) {
      return Outcome::Success();
    }
    ActualRange range;
    if (Outcome outcome = ReadActualRange(cloud_, request_.iteration, field, range); !outcome.Ok())
      return outcome;
    fits = Fits(range, type);
    return Outcome::Success();
  }

  Outcome WrongType(const QueryClause& clause, const RecordField& field) {
    std::string working;
    for (const ClauseType type : kTypesByPreference) {
      bool fits = false;
      if (Outcome outcome = HoldsValues(field, type, fits); !outcome.Ok()) return outcome;
      if (fits) working += (working.empty() ? "" : " or ") + std::string(ClauseTypeWord(type));
    }
    return Refuse(clause.typeSpan.begin,
                  "\"" + clause.name + "\" is stored as " +
                      oocpc::ValueTypeName(field.stored.value) + ", and " +
                      ClauseTypeWord(clause.type) + " does not hold all its values",
                  working.empty() ? "no type of the query language holds them"
                                  : "ask for it with type=" + working);
  }

  Cloud& cloud_;
  const QueryRequest& request_;
  NameTypes types_;
  std::vector<RecordField>& fields_;
};

}  // namespace

bool ConvertsWithoutLoss(ValueType stored, ClauseType type) {
  if (stored == ValueType::kString || type == ClauseType::kString) {
    return stored == ValueType::kString && type == ClauseType::kString;
  }
  switch (type) {
    case ClauseType::kUInt8:
      return stored == ValueType::kUInt8;
    case ClauseType::kInt:
      return stored <= ValueType::kInt16 || stored == ValueType::kInt32;
    case ClauseType::kFloat:
      return stored <= ValueType::kInt16 || stored == ValueType::kFloat;
    case ClauseType::kDouble:
      return stored <= ValueType::kInt32 || stored == ValueType::kFloat ||
             stored == ValueType::kDouble;
    case ClauseType::kString:
      return false;
  }
  return false;
}

std::vector<std::string> ListQueryNames(const Cloud& cloud) {
  std::vector<std::string> names;
  for (const CloudColumn& column : cloud.GetColumns()) {
    if (column.type.components == 1) names.push_back(column.name);
  }
  names.insert(names.end(), kCoordinates.begin(), kCoordinates.end());
  if (FindColumn(cloud, kColorColumn) != nullptr) {
    names.insert(names.end(), kColors.begin(), kColors.end());
  }
  return names;
}

Outcome FitQueryToCloud(Cloud& cloud, const QueryRequest& request,
                        const std::vector<QueryClause>& clauses, std::vector<RecordField>& fields,
                        NameTypes types) {
  fields.clear();
  Fitter fitter(cloud, request, types, fields);
  for (const QueryClause& clause : clauses) {
    if (Outcome outcome = fitter.Fit(clause); !outcome.Ok()) return outcome;
  }
  return Outcome::Success();
}

}  // namespace tarnhost
