#include "vision/superresolution/detail/base/InstructionSet.h"

namespace movra::vision::detail {

namespace {

// Allocates nothing: the first kernel call of a process must not.
InstructionSet widestInstructionSet() {
#if defined(__x86_64__)
  if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) {
    const bool avx512 = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
                        __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl");
    return avx512 ? InstructionSet::avx512 : InstructionSet::avx2;
  }
#endif
  return InstructionSet::baseline;
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
  std::vector<InstructionSet> sets;
  for (const InstructionSet set : {InstructionSet::baseline, InstructionSet::avx2, InstructionSet::avx512}) {
    if (set <= widestInstructionSet()) {
      sets.push_back(set);
    }
  }
  return sets;
}

InstructionSet activeInstructionSet() {
  return active();
}

void selectInstructionSet(InstructionSet set) {
  active() = set;
}

}  // namespace movra::vision::detail
