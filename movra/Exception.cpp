#include "movra/Exception.h"

namespace movra {

// Defined here so that the type information is exported once and the exception can be caught outside the library.
Exception::~Exception() = default;

}  // namespace movra
