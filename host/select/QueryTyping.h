// Fits the metadata names and types of a query to the columns of a cloud.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/cloud/Cloud.h"
#include "host/common/Outcome.h"
#include "host/select/QueryText.h"

namespace tarnhost {

/// Where the values of one metadata name come from and how a record holds them.
struct RecordField {
  enum class Source : std::uint8_t {
    kPosition,    ///< all three coordinates, doubles in the local frame
    kCoordinate,  ///< one coordinate in the source's frame: x, y or z
    kColumn,      ///< one component of a column
  };

  std::string name;
  Source source = Source::kColumn;
  std::string column;                     ///< the column's name, for kColumn
  oocpc::ColumnType stored;               ///< its type, for kColumn
  std::uint8_t component = 0;             ///< axis for kCoordinate
  ClauseType type = ClauseType::kDouble;  ///< of the value in the record; unused for kPosition
};

/// A query as a user asks it.
struct QueryRequest {
  std::string text;
  bool local = false;           ///< the constants are in the local frame already
  std::uint64_t iteration = 0;  ///< the update iteration that it is asked of
};

/// With how many types a query may ask for one name. A record holds one value a name.
enum class NameTypes : std::uint8_t { kOnePerName, kAny };

/// The fields that a query needs, each name (with kAny: each name and type) once, in the order of
/// the text. Refuses, with the place in the text and what would work: names that the cloud does not
/// have, types that do not hold the column's values without loss, and, unless `types` allows them,
/// two types for one name. What an iteration may be asked does not change with later ones.
Outcome FitQueryToCloud(Cloud& cloud, const QueryRequest& request,
                        const std::vector<QueryClause>& clauses, std::vector<RecordField>& fields,
                        NameTypes types = NameTypes::kOnePerName);

/// The names that a query may use: those of the columns, and x, y, z, red, green, blue.
[[nodiscard]] std::vector<std::string> ListQueryNames(const Cloud& cloud);

/// True when every value of the stored type is a value of the record's type.
[[nodiscard]] bool ConvertsWithoutLoss(oocpc::ValueType stored, ClauseType type);

}  // namespace tarnhost
