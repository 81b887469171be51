#include "kestrel/frame/object.hpp"

#include "kestrel/frame/errors.hpp"
#include "kestrel/frame/value.hpp"

namespace kestrel {

Ref<Object> Object::NewEnum() { RaiseStandard(errors::kMemberNotSupported); }

}  // namespace kestrel
