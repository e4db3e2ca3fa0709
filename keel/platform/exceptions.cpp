#include "keel/platform/exceptions.h"

namespace keel {

void ThrowInvalidArgument(const std::string& where) {
    throw InvalidArgumentException(where);
}

} // namespace keel
