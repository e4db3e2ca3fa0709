#include "tools/keel/commands.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

namespace keel::tool {

namespace {

constexpr std::string_view c_runUsage =
    "usage: keel run FILE [--json] [--action] [--length-units N] [--area-units N] "
    "[--volume-units N] [--angle-units N] [--inch-fraction N] [--table-dir DIR] "
    "[--set NAME=FORMULA]... [--import FILE]... [--doc FILE]...";

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

// A byte order mark is no part of the formula.
void SkipByteOrderMark(std::string& text) {
    if (text.starts_with("\xEF\xBB\xBF"))
        text.erase(0, 3);
}

} // namespace

int RunRun(std::span<const std::string_view> args) {
    PrepareEvaluation();
    EvalOptions options;
    std::vector<std::string_view> files;
    if (const int status = ParseEvalOptions("run", args, options, files))
        return status;
    if (files.size() != 1)
        return UsageError("run", c_runUsage);
    const std::string path(files.front());
    std::string formula;
    std::string reason;
    if (!ReadFormulaFile(path, formula, reason)) {
        std::fprintf(stderr, "keel: cannot read the formula file '%s': %s\n", path.c_str(),
                     reason.c_str());
        return 2;
    }
    // The evaluator's text ends at a NUL: what follows would be lost without a word.
    if (const std::string::size_type nul = formula.find('\0'); nul != std::string::npos) {
        std::fprintf(stderr, "keel: the formula file '%s' holds a NUL byte at offset %zu\n",
                     path.c_str(), nul);
        return 1;
    }
    SkipByteOrderMark(formula);
    return EvaluateAndPrint(formula, options, path) && !options.importFailed ? 0 : 1;
}

} // namespace keel::tool
