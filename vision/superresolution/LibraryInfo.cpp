#include "vision/superresolution/LibraryInfo.h"

#include "vision/superresolution/detail/base/InstructionSet.h"

namespace movra::vision {

const char* libraryVersion() {
  return MOVRA_SUPERRESOLUTION_VERSION;
}

const char* instructionSetInUse() {
  return detail::name(detail::activeInstructionSet());
}

}  // namespace movra::vision
