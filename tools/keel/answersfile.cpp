#include "tools/keel/commands.h"
#include "tools/keel/wholefile.h"

#include "keel/system/pathop.h"

#include <cstdio>
#include <string>

namespace keel::tool {

namespace {

constexpr std::string_view c_exportUsage =
    "usage: keel export FILE [--minimal] [--length-units N] [--area-units N] [--volume-units N] "
    "[--angle-units N] [--inch-fraction N] [--table-dir DIR] [--set NAME=FORMULA]... "
    "[--import FILE]... [--doc FILE]...";

bool IsXMLPath(const CString& path) {
    return QPathOp::MatchDotExt(path, u".xml") || QPathOp::MatchDotExt(path, u".viqx");
}

// A .tab file is UTF-8 text, or UTF-16 with its byte order mark; anything else would be read as
// garbage names and values. Gives what is wrong, or nothing.
std::string WhatIsNotText(const std::string& bytes) {
    if (bytes.starts_with("\xFF\xFE") || bytes.starts_with("\xFE\xFF"))
        return {};
    if (const std::string::size_type nul = bytes.find('\0'); nul != std::string::npos)
        return "it holds a NUL byte at offset " + std::to_string(nul);
    // Decoding replaces what is not UTF-8, so the text comes back otherwise.
    const std::string again = CString::FromUtf8(bytes).ToUtf8();
    if (again == bytes)
        return {};
    std::string::size_type at = 0;
    while (at < bytes.size() && at < again.size() && bytes[at] == again[at])
        ++at;
    return "it is not UTF-8 text (offset " + std::to_string(at) + ")";
}

void SayCannotImport(std::string_view command, std::string_view path, const std::string& reason) {
    std::fflush(stdout);
    std::fprintf(stderr, "keel %.*s: cannot import '%.*s': %s\n", static_cast<int>(command.size()),
                 command.data(), static_cast<int>(path.size()), path.data(), reason.c_str());
}

void SayBadAnswer(std::string_view command, std::string_view path, const std::string& what,
                  const CString& message) {
    std::fflush(stdout);
    std::fprintf(stderr, "keel %.*s: '%.*s': %s\n%s\n", static_cast<int>(command.size()),
                 command.data(), static_cast<int>(path.size()), path.data(), what.c_str(),
                 message.ToUtf8().c_str());
}

// Whether the answer at `index` of `answers` differs from what `before` held under its key.
bool IsNewOrChanged(const QProperties& answers, int index, const QProperties& before) {
    QProp now;
    QProp then;
    answers.GetAtProperty(index, now);
    return !before.GetProperty(now.Key(), then) || !now.IsSameSpecificationAs(then);
}

// The answers that the import brought: a value that did not evaluate or a formula that does not
// parse is said on stderr. True when there was none.
bool CheckImportedAnswers(std::string_view command, std::string_view path,
                          const QProperties& before, QRootContext& root) {
    const QProperties& answers = *root.Properties();
    bool allGood = true;
    for (int i = 0; i < answers.PropertyCount(); ++i) {
        if (!IsNewOrChanged(answers, i, before))
            continue;
        PropId key;
        QAnyValue value;
        FormulaText formula;
        answers.GetAtPropertyValueWithFormulaWithNoEnsureUpToDate(i, key, value, formula);
        const std::string name = key.ToString().ToUtf8();
        CString message;
        if (!formula.IsEmpty() && !FormulaParses(formula, &root, message)) {
            SayBadAnswer(command, path, "the formula of " + name + " does not parse", message);
            allGood = false;
        } else if (formula.IsEmpty() && value.IsErrorAndGetMessage(message)) {
            SayBadAnswer(command, path, "the value of " + name + " does not evaluate", message);
            allGood = false;
        }
    }
    return allGood;
}

} // namespace

bool ImportAnswersFile(std::string_view command, std::string_view path, EvalOptions& options) {
    const CString file = CString::FromUtf8(path);
    std::string bytes;
    std::string reason;
    if (!ReadWholeFile(std::string(path), bytes, reason)) {
        SayCannotImport(command, path, reason);
        return false;
    }
    // An XML file names its own encoding, which its parser reads.
    if (!IsXMLPath(file))
        reason = WhatIsNotText(bytes);
    if (!reason.empty()) {
        SayCannotImport(command, path, reason);
        return false;
    }
    const QProperties before(*options.root->Properties(), nullptr);
    if (!options.root->ImportOrMergeFrom(file, true, nullptr))
        options.importFailed = true;
    if (!CheckImportedAnswers(command, path, before, *options.root))
        options.importFailed = true;
    return true;
}

int RunExport(std::span<const std::string_view> args) {
    PrepareEvaluation();
    bool minimal = false;
    std::vector<std::string_view> rest;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--") {
            rest.insert(rest.end(), args.begin() + static_cast<std::ptrdiff_t>(i), args.end());
            break;
        }
        if (args[i] == "--minimal")
            minimal = true;
        else
            rest.push_back(args[i]);
    }
    EvalOptions options;
    std::vector<std::string_view> files;
    if (const int status = ParseEvalOptions("export", rest, options, files))
        return status;
    if (files.size() != 1)
        return UsageError("export", c_exportUsage);
    if (!options.root->ExportData(CString::FromUtf8(files.front()), minimal, false, nullptr))
        return 1;
    return options.importFailed ? 1 : 0;
}

} // namespace keel::tool
