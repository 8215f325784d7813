#pragma once

#include <vector>

namespace movra::vision::detail {

/// Instruction sets that the kernels are compiled for. All give the same bits; only the vector width differs.
enum class InstructionSet { baseline, avx2, avx512 };

const char* name(InstructionSet set);

/// The sets that this build contains and this processor runs, narrowest first; `baseline` is always there.
std::vector<InstructionSet> availableInstructionSets();

/// The set in use: the widest available one, unless selectInstructionSet chose another.
InstructionSet activeInstructionSet();

/// Uses `set`, which must be available, from now on. For tests and benchmarks; no other thread may be computing.
void selectInstructionSet(InstructionSet set);

}  // namespace movra::vision::detail

// A kernel source is compiled once per instruction set (cmake/MovraKernels.cmake) and defines one table of function
// pointers, `const Table table`, in namespace movra::vision::detail::MOVRA_KERNEL_SET. It must not use function
// templates or inline functions of the standard library or OpenCV: the linker keeps one copy of each for the whole
// library, and that copy could be one with instructions that the processor lacks.
//
// To add a kernel: declare a pointer in the table's header, with what it computes; write the loop in the table's source
// and enter it there by name. A new table needs its source in the list of kernel sources (CMakeLists.txt) and a line in
// KernelTables.cpp. Tables were preferred to the compiler's own multiversioning because a test can force each set.
//
// This macro, in an ordinary source inside namespace movra::vision::detail, defines `const Table& table()`, which
// returns the table of the active set.
#if defined(__x86_64__)
#define MOVRA_KERNEL_DISPATCH(Table, table) \
  namespace baseline {                      \
  extern const Table table;                 \
  }                                         \
  namespace avx2 {                          \
  extern const Table table;                 \
  }                                         \
  namespace avx512 {                        \
  extern const Table table;                 \
  }                                         \
  const Table& table() {                    \
    switch (activeInstructionSet()) {       \
      case InstructionSet::avx512:          \
        return avx512::table;               \
      case InstructionSet::avx2:            \
        return avx2::table;                 \
      case InstructionSet::baseline:        \
        break;                              \
    }                                       \
    return baseline::table;                 \
  }
#else
#define MOVRA_KERNEL_DISPATCH(Table, table) \
  namespace baseline {                      \
  extern const Table table;                 \
  }                                         \
  const Table& table() {                    \
    return baseline::table;                 \
  }
#endif
