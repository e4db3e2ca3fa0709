// The only test source that knows where the tree and the build are: every other one compiles the
// same in any clone, so clones share the compiler cache.
#include "tests/support/paths.h"

namespace keel::test {

const std::string& TestDataFolder() {
    static const std::string folder = KEEL_TEST_DATA;
    return folder;
}

const std::string& ProgramPath() {
    static const std::string path = KEEL_PROGRAM;
    return path;
}

} // namespace keel::test
