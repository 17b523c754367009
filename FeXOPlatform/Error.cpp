#include <FeXOPlatform/Error.hpp>

namespace fexo {

// Out of line so that the vtable and type information live in the library once.
ErrorBase::~ErrorBase() = default;

} // namespace fexo
