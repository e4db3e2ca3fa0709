#include "tools/keel/commands.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

namespace keel::tool {

namespace {

constexpr std::string_view c_runUsage =
    "run takes FILE [--json] [--action] [--length-units N] [--area-units N] [--volume-units N] "
    "[--angle-units N] [--inch-fraction N] [--table-dir DIR] [--set NAME=FORMULA]...";

// The whole file as it stands (UTF-8), or false with the system's reason.
bool ReadFormulaFile(const std::string& path, std::string& text, std::string& reason) {
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "rb"), &std::fclose);
    if (!file) {
        reason = std::strerror(errno);
        return false;
    }
    char buffer[4096];
    for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, file.get())) > 0;)
        text.append(buffer, n);
    // A folder opens, and fails at the first read.
    if (std::ferror(file.get())) {
        reason = std::strerror(errno);
        return false;
    }
    return true;
}

} // namespace

int RunRun(std::span<const std::string_view> args) {
    PrepareEvaluation();
    EvalOptions options;
    std::vector<std::string_view> files;
    if (const int status = ParseEvalOptions(args, options, files))
        return status;
    if (files.size() != 1)
        return UsageError(c_runUsage);
    const std::string path(files.front());
    std::string formula;
    std::string reason;
    if (!ReadFormulaFile(path, formula, reason)) {
        std::fprintf(stderr, "keel: cannot read the formula file '%s': %s\n", path.c_str(),
                     reason.c_str());
        return 2;
    }
    return EvaluateAndPrint(formula, options, path) ? 0 : 1;
}

} // namespace keel::tool
