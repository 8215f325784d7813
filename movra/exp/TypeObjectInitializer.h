#pragma once

namespace movra::exp {

/// One static object of this type lives from the load of the library to its unload. It marks that span for the
/// platform and does nothing else.
class TypeObjectInitializer {
 public:
  TypeObjectInitializer() = default;
  ~TypeObjectInitializer() {}  // not trivial, so that the object is destroyed at unload
  TypeObjectInitializer(const TypeObjectInitializer&) = delete;
  TypeObjectInitializer& operator=(const TypeObjectInitializer&) = delete;
};

}  // namespace movra::exp
