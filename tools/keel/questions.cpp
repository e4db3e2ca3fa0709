#include "tools/keel/commands.h"
#include "tools/keel/output.h"

#include "keel/document/errorlog.h"
#include "keel/platform/file.h"
#include "keel/questions/propdeftabgroupset.h"
#include "keel/system/pathop.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

namespace keel::tool {

namespace {

constexpr std::string_view c_questionsUsage =
    "questions takes: show FILE [--json] | check FILE | convert IN OUT | "
    "merge TARGET SOURCE --out FILE [--keep|--overwrite]";

std::string U8(const CString& text) {
    return text.ToUtf8();
}

bool HasExtension(std::string_view path, const char16_t* extension) {
    return QPathOp::MatchDotExt(CString::FromUtf8(path), extension);
}

bool IsQuestionFilePath(std::string_view path) {
    return HasExtension(path, u".viq") || HasExtension(path, u".viqx") ||
           HasExtension(path, u".tab");
}

void Say(std::string_view command, const std::string& message) {
    std::fflush(stdout);
    std::fprintf(stderr, "keel questions %.*s: %s\n", static_cast<int>(command.size()),
                 command.data(), message.c_str());
}

// Why the file is no question file that can be read, before the reader sees it; empty when it
// may be one. A legacy file may be in a Western code page, so only NUL bytes tell binary data.
std::string WhyNotReadable(std::string_view path) {
    if (!IsQuestionFilePath(path))
        return "a question file ends .viq, .viqx or .tab";
    std::error_code error;
    const auto status = std::filesystem::status(std::string(path), error);
    if (error)
        return error.message();
    if (!std::filesystem::is_regular_file(status))
        return "it is not a regular file";
    std::ifstream file{std::string(path), std::ios::binary};
    if (!file)
        return "it cannot be read";
    if (HasExtension(path, u".viqx"))
        return {};
    char buffer[65536];
    std::streamoff offset = 0;
    bool utf16 = false;
    while (file.read(buffer, sizeof buffer) || file.gcount() > 0) {
        const std::string_view bytes(buffer, static_cast<std::size_t>(file.gcount()));
        if (offset == 0)
            utf16 = bytes.starts_with("\xFF\xFE") || bytes.starts_with("\xFE\xFF");
        if (const auto nul = bytes.find('\0'); nul != std::string_view::npos && !utf16)
            return "it holds a NUL byte at offset " +
                   std::to_string(offset + static_cast<std::streamoff>(nul));
        offset += file.gcount();
    }
    return {};
}

// Whether the reader reported anything beyond the notice that an import went through: a control
// refused or an identifier not matched leaves a set that is not what the file says.
bool ReaderReported(int messagesBefore) {
    const QErrorLog& log = TheErrorLog();
    for (int i = messagesBefore; i < log.GetSize(); ++i)
        if (log.Message(i) != CString(u"Import completed with no errors."))
            return true;
    return false;
}

enum class ReadOutcome { Failed, WithReports, Clean };

// Reads a question file into `set`; a file that cannot be read, or whose read fails or is
// reported, is said on stderr. What the reader reports waits in the error log.
ReadOutcome ReadSet(std::string_view command, std::string_view path, QPropDefTabGroupSet& set) {
    if (const std::string reason = WhyNotReadable(path); !reason.empty()) {
        Say(command, "cannot read '" + std::string(path) + "': " + reason);
        return ReadOutcome::Failed;
    }
    const int messagesBefore = TheErrorLog().GetSize();
    bool read = false;
    try {
        read = set.ReadFromFile(CString::FromUtf8(path));
    } catch (const CFileException&) {
        read = false;
    }
    if (!read) {
        Say(command, "cannot read '" + std::string(path) + "'");
        return ReadOutcome::Failed;
    }
    if (ReaderReported(messagesBefore)) {
        Say(command, "'" + std::string(path) + "' was read with errors");
        return ReadOutcome::WithReports;
    }
    return ReadOutcome::Clean;
}

// Writes `set` where `path` says; a ".viq" path is written as ".viqx", and what was written is
// said on stdout.
bool WriteSet(std::string_view command, std::string_view path, QPropDefTabGroupSet& set) {
    const CString target = CString::FromUtf8(path);
    if (!set.WriteToFile(target)) {
        Say(command, "cannot write '" + std::string(path) + "'");
        return false;
    }
    const std::string written = U8(set.FileName());
    if (written != path)
        std::printf("wrote %s (question files are not written as .viq)\n", written.c_str());
    else
        std::printf("wrote %s\n", written.c_str());
    return true;
}

// --- Show -------------------------------------------------------------------------------------

// Texts on one line, tabs escaped, so that they cannot pass for the separators of the output.
std::string OneLine(CString text) {
    text.Replace(u"\\", u"\\\\");
    text.Replace(u"\r", u"\\r");
    text.Replace(u"\n", u"\\n");
    text.Replace(u"\t", u"\\t");
    return U8(text);
}

std::string TypeText(const QPropDef& def) {
    return def.Type() == QAnyValue::TYPE_EMPTY ? std::string("-")
                                               : U8(QAnyValue::TypeToString(def.Type()));
}

std::string DefaultText(const QPropDef& def) {
    if (def.DefaultValue().IsEmpty())
        return {};
    return U8(QAnyValue(def.DefaultValue()).MakeCString());
}

// The mode a constant formula gives, by its name; a formula that needs its document to be worked
// out is shown as it stands, after "=".
std::string EnableText(const QPropDef& def) {
    const CString formula = def.EnabledFormula().ToString();
    int number = 0;
    bool truth = false;
    if (formula.IsEmpty() || QAnyValue::ParseInt(number, formula) ||
        QAnyValue::ParseBool(truth, formula) != PARSE_NONE)
        return U8(QPropDef::EnableModeToString(def.EnableMode(nullptr, QPropDef::Enabled)));
    return "=" + U8(formula);
}

struct QuestionLine {
    std::string name, type, kind, label, defaultText, enable;
};

QuestionLine LineOf(const QPropDef& def) {
    return {U8(def.Name().ToString()),
            TypeText(def),
            U8(QPropDef::ControlTypeToString(def.ControlType())),
            U8(def.Question()),
            DefaultText(def),
            EnableText(def)};
}

void PrintPlain(const QPropDefTabGroupSet& set) {
    for (int g = 0; g < set.GetCount(); ++g) {
        const QPropDefTabGroup& group = *set.GetAt(g);
        std::printf("group %s\n", OneLine(group.Name()).c_str());
        for (int t = 0; t < group.GetCount(); ++t) {
            const QPropDefTab& tab = *group.GetAt(t);
            std::printf("  tab %s\n", OneLine(tab.Name()).c_str());
            for (int q = 0; q < tab.GetCount(); ++q) {
                const QuestionLine line = LineOf(*tab.GetAt(q));
                std::printf("    %s\t%s\t%s\t%s\t%s\t%s\n",
                            OneLine(CString::FromUtf8(line.name)).c_str(), line.type.c_str(),
                            line.kind.c_str(), OneLine(CString::FromUtf8(line.label)).c_str(),
                            OneLine(CString::FromUtf8(line.defaultText)).c_str(),
                            OneLine(CString::FromUtf8(line.enable)).c_str());
            }
        }
    }
}

void AppendField(std::string& out, std::string_view key, const std::string& value, bool first) {
    if (!first)
        out += ", ";
    AppendJsonString(out, key);
    out += ": ";
    AppendJsonString(out, value);
}

void PrintJson(const QPropDefTabGroupSet& set) {
    std::string out = "{\"groups\": [";
    for (int g = 0; g < set.GetCount(); ++g) {
        const QPropDefTabGroup& group = *set.GetAt(g);
        out += g == 0 ? "{" : ", {";
        AppendField(out, "name", U8(group.Name()), true);
        out += ", \"tabs\": [";
        for (int t = 0; t < group.GetCount(); ++t) {
            const QPropDefTab& tab = *group.GetAt(t);
            out += t == 0 ? "{" : ", {";
            AppendField(out, "name", U8(tab.Name()), true);
            out += ", \"questions\": [";
            for (int q = 0; q < tab.GetCount(); ++q) {
                const QuestionLine line = LineOf(*tab.GetAt(q));
                out += q == 0 ? "{" : ", {";
                AppendField(out, "name", line.name, true);
                AppendField(out, "type", line.type, false);
                AppendField(out, "kind", line.kind, false);
                AppendField(out, "label", line.label, false);
                AppendField(out, "default", line.defaultText, false);
                AppendField(out, "enable", line.enable, false);
                out += "}";
            }
            out += "]}";
        }
        out += "]}";
    }
    out += "]}\n";
    std::fputs(out.c_str(), stdout);
}

int RunShow(std::span<const std::string_view> args) {
    bool json = false;
    std::string_view file;
    for (const std::string_view arg : args) {
        if (arg == "--json")
            json = true;
        else if (file.empty() && !arg.starts_with("--"))
            file = arg;
        else
            return UsageError("questions", c_questionsUsage);
    }
    if (file.empty())
        return UsageError("questions", c_questionsUsage);
    return ShowQuestionFile(file, json);
}

// --- Check ------------------------------------------------------------------------------------

int RunCheck(std::span<const std::string_view> args) {
    if (args.size() != 1)
        return UsageError("questions", c_questionsUsage);
    QPropDefTabGroupSet set;
    const ReadOutcome outcome = ReadSet("check", args.front(), set);
    if (outcome == ReadOutcome::Failed)
        return 1;
    int tabs = 0;
    int questions = 0;
    for (int g = 0; g < set.GetCount(); ++g) {
        tabs += set.GetAt(g)->GetCount();
        for (int t = 0; t < set.GetAt(g)->GetCount(); ++t)
            questions += set.GetAt(g)->GetAt(t)->GetCount();
    }
    std::printf("%d groups, %d tabs, %d questions\n", set.GetCount(), tabs, questions);
    return outcome == ReadOutcome::Clean ? 0 : 1;
}

// --- Convert ----------------------------------------------------------------------------------

bool CheckWritable(std::string_view command, std::string_view path) {
    if (IsQuestionFilePath(path))
        return true;
    Say(command, "cannot write '" + std::string(path) + "': a question file ends .viqx or .tab");
    return false;
}

int RunConvert(std::span<const std::string_view> args) {
    if (args.size() != 2)
        return UsageError("questions", c_questionsUsage);
    if (!CheckWritable("convert", args[1]))
        return 1;
    QPropDefTabGroupSet set;
    if (ReadSet("convert", args[0], set) != ReadOutcome::Clean)
        return 1;
    return WriteSet("convert", args[1], set) ? 0 : 1;
}

// --- Merge ------------------------------------------------------------------------------------

const char* StrategyWord(QMergeResolutionStrategy strategy) {
    return strategy == MERGE_OVERWRITE ? "replaced" : "kept";
}

// What the merge will do with each tab of the source, said before it is done.
void SayMergePlan(const QPropDefTabGroupSet& target, const QPropDefTabGroupSet& source,
                  QMergeResolutionStrategy strategy) {
    for (int g = 0; g < source.GetCount(); ++g) {
        const QPropDefTabGroup& from = *source.GetAt(g);
        const QPropDefTabGroup* into = target.Lookup(from.Name());
        if (into == nullptr) {
            std::printf("group %s: added\n", OneLine(from.Name()).c_str());
            continue;
        }
        for (int t = 0; t < from.GetCount(); ++t) {
            const QPropDefTab& tab = *from.GetAt(t);
            const QPropDefTab* existing = into->Lookup(tab.Name());
            const char* what = existing == nullptr ? "added"
                               : *existing == tab  ? "unchanged"
                                                   : StrategyWord(strategy);
            std::printf("group %s, tab %s: %s\n", OneLine(from.Name()).c_str(),
                        OneLine(tab.Name()).c_str(), what);
        }
    }
}

int RunMerge(std::span<const std::string_view> args) {
    std::vector<std::string_view> files;
    std::string_view out;
    QMergeResolutionStrategy strategy = MERGE_KEEP_EXISTING;
    int strategies = 0;
    for (std::size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--out" && i + 1 < args.size())
            out = args[++i];
        else if (args[i] == "--keep" || args[i] == "--overwrite") {
            strategy = args[i] == "--keep" ? MERGE_KEEP_EXISTING : MERGE_OVERWRITE;
            ++strategies;
        } else if (!args[i].starts_with("--"))
            files.push_back(args[i]);
        else
            return UsageError("questions", c_questionsUsage);
    }
    if (files.size() != 2 || out.empty() || strategies > 1)
        return UsageError("questions", c_questionsUsage);
    if (!CheckWritable("merge", out))
        return 1;
    QPropDefTabGroupSet target;
    QPropDefTabGroupSet source;
    if (ReadSet("merge", files[0], target) != ReadOutcome::Clean ||
        ReadSet("merge", files[1], source) != ReadOutcome::Clean)
        return 1;
    SayMergePlan(target, source, strategy);
    target.Merge(&source, strategy, false, false, false);
    return WriteSet("merge", out, target) ? 0 : 1;
}

} // namespace

int ShowQuestionFile(std::string_view path, bool json) {
    QPropDefTabGroupSet set;
    const ReadOutcome outcome = ReadSet("show", path, set);
    if (outcome == ReadOutcome::Failed)
        return 1;
    if (json)
        PrintJson(set);
    else
        PrintPlain(set);
    return outcome == ReadOutcome::Clean ? 0 : 1;
}

int RunQuestions(std::span<const std::string_view> args) {
    if (args.empty())
        return UsageError("questions", c_questionsUsage);
    const std::string_view sub = args.front();
    const std::span<const std::string_view> rest = args.subspan(1);
    if (sub == "show")
        return RunShow(rest);
    if (sub == "check")
        return RunCheck(rest);
    if (sub == "convert")
        return RunConvert(rest);
    if (sub == "merge")
        return RunMerge(rest);
    return UsageError("questions", c_questionsUsage);
}

} // namespace keel::tool
