// Runs what is compiled for several sets of instructions with each of them that this machine has.
#pragma once

#include <gtest/gtest.h>
#include <hwy/targets.h>

#include <cstdint>
#include <vector>

namespace oocpctest {

/// The sets that this processor has of those that programs are compiled for, the one that needs no
/// vectors among them. Nothing of a test that uses it may run at the same time.
inline std::vector<std::int64_t> InstructionSets() {
  hwy::SetSupportedTargetsForTest(0);
  std::vector<std::int64_t> sets;
  // The last resort is not always among those that the processor is asked for.
  const std::int64_t all = hwy::SupportedTargets() | HWY_BASELINE_SCALAR;
  for (std::int64_t left = all & HWY_TARGETS; left != 0; left &= left - 1) {
    sets.push_back(left & -left);
  }
  return sets;
}

/// While it lives, kernels that choose their instructions when they run choose this set.
class ChosenInstructions {
 public:
  explicit ChosenInstructions(std::int64_t set) {
    hwy::SetSupportedTargetsForTest(set);
    hwy::GetChosenTarget().Update(set);
  }
  ~ChosenInstructions() {
    hwy::SetSupportedTargetsForTest(0);
    hwy::GetChosenTarget().DeInit();
  }
  ChosenInstructions(const ChosenInstructions&) = delete;
  ChosenInstructions& operator=(const ChosenInstructions&) = delete;
};

/// Calls `test` once with each set; stops at the first fatal failure.
template <typename Test>
void WithEachInstructionSet(const Test& test) {
  for (const std::int64_t set : InstructionSets()) {
    SCOPED_TRACE(hwy::TargetName(set));
    const ChosenInstructions chosen(set);
    test();
    if (::testing::Test::HasFatalFailure()) return;
  }
}

}  // namespace oocpctest
