#include "vision/superresolution/detail/base/InstructionSet.h"

namespace movra::vision::detail {

namespace {

InstructionSet widestInstructionSet() {
  return availableInstructionSets().back();
}

InstructionSet& active() {
  static InstructionSet set = widestInstructionSet();
  return set;
}

}  // namespace

const char* name(InstructionSet set) {
  switch (set) {
    case InstructionSet::avx512:
      return "avx512";
    case InstructionSet::avx2:
      return "avx2";
    case InstructionSet::baseline:
      break;
  }
  return "baseline";
}

std::vector<InstructionSet> availableInstructionSets() {
  std::vector<InstructionSet> sets{InstructionSet::baseline};
#if defined(__x86_64__)
  if (__builtin_cpu_supports("avx2")) {
    sets.push_back(InstructionSet::avx2);
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512dq") &&
        __builtin_cpu_supports("avx512vl")) {
      sets.push_back(InstructionSet::avx512);
    }
  }
#endif
  return sets;
}

InstructionSet activeInstructionSet() {
  return active();
}

void selectInstructionSet(InstructionSet set) {
  active() = set;
}

}  // namespace movra::vision::detail
