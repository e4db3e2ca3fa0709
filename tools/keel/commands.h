#pragma once

#include <span>
#include <string>
#include <string_view>

namespace keel::tool {

// Each subcommand takes the arguments after its name and returns the exit status:
// 0 done, 1 failed, 2 bad usage.
int RunComplete(std::span<const std::string_view> args);
int RunDemo(std::span<const std::string_view> args);
int RunOptions(std::span<const std::string_view> args);
int RunTranslate(std::span<const std::string_view> args);

int UsageError(std::string_view message);

// Interns every non-blank line of a UTF-8 file as a name offered for completion; gives the
// number of lines taken, or -1 (with a message on stderr) when the file cannot be read.
int InternWordsFile(std::string_view path);

} // namespace keel::tool
