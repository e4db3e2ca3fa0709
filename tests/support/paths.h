#pragma once

#include <string>

namespace keel::test {

// The folder of the test fixtures, tests/data in the source tree.
const std::string& TestDataFolder();
// The `keel` program built beside the tests.
const std::string& ProgramPath();

} // namespace keel::test
