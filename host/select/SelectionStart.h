// What every selection begins with.
#pragma once

#include "host/select/Select.h"

namespace tarnhost {

/// Finds the iteration and states it and its points in a fresh report.
Outcome StartSelection(const Cloud& cloud, const SelectOptions& options, SelectReport& report);

}  // namespace tarnhost
