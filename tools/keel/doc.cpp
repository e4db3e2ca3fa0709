#include "keel/document/doc.h"

#include "tools/keel/commands.h"
#include "tools/keel/output.h"

#include "keel/document/errorlog.h"
#include "keel/platform/schema.h"

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace keel::tool {

namespace {

constexpr std::string_view c_docUsage =
    "usage: keel doc info FILE [--json] | keel doc save FILE [--title T] [--author A] "
    "[--set NAME=FORMULA]... [--import FILE]... [--doc FILE]...";

// A stream or storage of the file: its path from the root, names joined with '/'.
struct StorageEntry {
    std::string path;
    bool storage = false;
    unsigned long long size = 0;
};

// Names of the format may begin with a control character (the property set streams do): the
// plain listing shows it as \xNN.
std::string PrintableName(const std::string& name) {
    std::string shown;
    for (const char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20) {
            char escaped[5];
            std::snprintf(escaped, sizeof escaped, "\\x%02X", byte);
            shown += escaped;
        } else {
            shown += c;
        }
    }
    return shown;
}

void ListStorage(CStorage& storage, const std::string& prefix, int depth,
                 std::vector<StorageEntry>& entries) {
    for (const CStorageElement& element : storage.EnumElements()) {
        StorageEntry entry{prefix + element.m_strName.ToUtf8(),
                           element.m_type == CStorageElement::typeStorage, element.m_size};
        entries.push_back(entry);
        if (!entry.storage || depth >= CStorage::c_maxDepth)
            continue;
        if (std::unique_ptr<CStorage> inner =
                storage.OpenStorage(element.m_strName, CFile::shareExclusive))
            ListStorage(*inner, entry.path + "/", depth + 1, entries);
    }
}

// What `doc info` shows of a document.
struct DocumentInfo {
    std::vector<StorageEntry> entries;
    int schema = -1;
    int items = 0;
    std::map<std::string, int> classes;
    std::vector<unsigned long long> images;
    std::vector<std::pair<std::string, std::string>> summary;
};

void SayCannotRead(std::string_view path, const std::exception& failure) {
    std::fflush(stdout);
    std::fprintf(stderr, "keel doc: cannot read '%.*s': %s\n", static_cast<int>(path.size()),
                 path.data(), ErrorMessage(failure).ToUtf8().c_str());
}

void CollectDocument(const QDoc& document, DocumentInfo& info) {
    info.schema = document.VersionLoaded();
    info.items = document.GetItemCount();
    for (const auto& item : document.Items())
        ++info.classes[item->GetRuntimeClass()->m_lpszClassName];
    for (const auto& image : document.GetPageImages())
        info.images.push_back(image ? image->m_bytes.size() : 0);
    // Only what was given: no empty texts, zero counts or dates never set.
    const QSummaryInformationPropertySet& summary = document.SummaryInformation();
    summary.ForEachPropertyDo([&info, &summary](const CString& name, const QAnyValue& value) {
        std::uint32_t id = 0;
        FILETIME time;
        if (summary.GetID(name, id) && summary.GetFILETIME(id, time) && time.Ticks() == 0)
            return true;
        QAnyValue shown = value;
        const std::string text = shown.Format().ToUtf8();
        if (!text.empty() && text != "0")
            info.summary.emplace_back(name.ToUtf8(), text);
        return true;
    });
}

void PrintPlain(const DocumentInfo& info) {
    std::printf("streams:\n");
    for (const StorageEntry& entry : info.entries) {
        if (entry.storage)
            std::printf("  %s/\n", PrintableName(entry.path).c_str());
        else
            std::printf("  %s\t%llu\n", PrintableName(entry.path).c_str(), entry.size);
    }
    std::printf("schema: %d\nitems: %d\n", info.schema, info.items);
    for (const auto& [name, count] : info.classes)
        std::printf("  %s\t%d\n", name.c_str(), count);
    std::printf("images: %zu\n", info.images.size());
    for (const unsigned long long size : info.images)
        std::printf("  %llu\n", size);
    std::printf("summary:\n");
    for (const auto& [name, value] : info.summary)
        std::printf("  %s\t%s\n", name.c_str(), value.c_str());
}

void PrintJson(const DocumentInfo& info) {
    std::string out = "{\"streams\": [";
    for (std::size_t i = 0; i < info.entries.size(); ++i) {
        out += i ? ", {\"name\": " : "{\"name\": ";
        AppendJsonString(out, info.entries[i].path);
        out += info.entries[i].storage
                   ? ", \"storage\": true}"
                   : ", \"size\": " + std::to_string(info.entries[i].size) + "}";
    }
    out += "], \"schema\": " + std::to_string(info.schema) +
           ", \"items\": " + std::to_string(info.items) + ", \"classes\": {";
    bool first = true;
    for (const auto& [name, count] : info.classes) {
        out += first ? "" : ", ";
        first = false;
        AppendJsonString(out, name);
        out += ": " + std::to_string(count);
    }
    out += "}, \"images\": [";
    for (std::size_t i = 0; i < info.images.size(); ++i)
        out += (i ? ", " : "") + std::to_string(info.images[i]);
    out += "], \"summary\": {";
    first = true;
    for (const auto& [name, value] : info.summary) {
        out += first ? "" : ", ";
        first = false;
        AppendJsonString(out, name);
        out += ": ";
        AppendJsonString(out, value);
    }
    out += "}}";
    std::printf("%s\n", out.c_str());
}

int RunInfo(std::span<const std::string_view> args) {
    bool json = false;
    std::vector<std::string_view> files;
    for (const std::string_view arg : args) {
        if (arg == "--json")
            json = true;
        else if (arg.starts_with("--"))
            return UsageError("doc", "unknown option '" + std::string(arg) + "'");
        else
            files.push_back(arg);
    }
    if (files.size() != 1)
        return UsageError("doc", c_docUsage);
    const CString path = CString::FromUtf8(files.front());
    DocumentInfo info;
    try {
        QDoc document;
        document.LoadDocument(path);
        CollectDocument(document, info);
        CFileException failure;
        std::unique_ptr<CStorage> root = CStorage::OpenFile(path, CFile::shareExclusive, &failure);
        if (!root)
            throw failure;
        ListStorage(*root, "", 0, info.entries);
    } catch (const std::exception& failure) {
        SayCannotRead(files.front(), failure);
        return 1;
    }
    if (json)
        PrintJson(info);
    else
        PrintPlain(info);
    return 0;
}

// SOURCE_DATE_EPOCH, seconds since 1970, stands for the time of the save when it is set, so that
// the same answers give the same file. Null when it is not set; false when it is not a number of
// seconds.
bool FixedSaveTime(std::optional<FILETIME>& time) {
    const char* text = std::getenv("SOURCE_DATE_EPOCH");
    if (text == nullptr || *text == '\0')
        return true;
    const std::string_view digits(text);
    std::uint64_t seconds = 0;
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), seconds);
    constexpr std::uint64_t c_maxSeconds =
        (std::numeric_limits<std::uint64_t>::max() - c_fileTimeTicksAtUnixEpoch) /
        c_fileTimeTicksPerSecond;
    if (error != std::errc() || end != digits.data() + digits.size() || seconds > c_maxSeconds) {
        std::fflush(stdout);
        std::fprintf(stderr, "keel doc: SOURCE_DATE_EPOCH is not a number of seconds: '%s'\n",
                     text);
        return false;
    }
    time = FILETIME::FromTicks(c_fileTimeTicksAtUnixEpoch + seconds * c_fileTimeTicksPerSecond);
    return true;
}

// A document saved over another keeps the create date of the one it replaces.
void KeepCreateDate(QDoc& document, const CString& path) {
    std::unique_ptr<CStorage> root =
        CStorage::OpenFile(path, QCompoundFileObject::c_readFlags, nullptr);
    QSummaryInformationPropertySet former;
    if (!root || !former.ReadFromStorage(*root) || former.GetCreateDate().Ticks() == 0)
        return;
    document.SummaryInformation().SetCreateDate(former.GetCreateDate());
}

int RunSave(std::span<const std::string_view> args) {
    PrepareEvaluation();
    CString title;
    CString author;
    std::vector<std::string_view> rest;
    for (std::size_t i = 0; i < args.size(); ++i) {
        if (args[i] != "--title" && args[i] != "--author") {
            rest.push_back(args[i]);
            continue;
        }
        if (i + 1 == args.size())
            return UsageError("doc", std::string(args[i]) + " needs a value");
        (args[i] == "--title" ? title : author) = CString::FromUtf8(args[i + 1]);
        ++i;
    }
    EvalOptions options;
    std::vector<std::string_view> files;
    if (const int status = ParseEvalOptions("doc", rest, options, files))
        return status;
    if (files.size() != 1)
        return UsageError("doc", c_docUsage);
    std::optional<FILETIME> saveTime;
    if (!FixedSaveTime(saveTime))
        return 1;
    const CString path = CString::FromUtf8(files.front());
    QDoc document;
    if (saveTime)
        document.SummaryInformation().SetClock([time = *saveTime] { return time; });
    KeepCreateDate(document, path);
    document.SetDocProperties(*options.root->Properties());
    if (!title.IsEmpty())
        document.SummaryInformation().SetTitle(title);
    if (!author.IsEmpty())
        document.SummaryInformation().SetAuthor(author);
    try {
        document.SaveDocument(path);
    } catch (const std::exception& failure) {
        std::fflush(stdout);
        std::fprintf(stderr, "keel doc: cannot write '%.*s': %s\n",
                     static_cast<int>(files.front().size()), files.front().data(),
                     ErrorMessage(failure).ToUtf8().c_str());
        return 1;
    }
    std::printf("wrote %.*s (%d properties)\n", static_cast<int>(files.front().size()),
                files.front().data(), options.root->Properties()->PropertyCount());
    return options.importFailed ? 1 : 0;
}

} // namespace

void PrepareDocuments() {
    QSchema::SetDefaultSchema(c_documentSchema);
    QSchema::SetUnsupportedSchema(0);
}

bool LoadDocumentAnswers(std::string_view command, std::string_view path, EvalOptions& options) {
    QDoc document;
    try {
        document.LoadDocument(CString::FromUtf8(path));
    } catch (const std::exception& failure) {
        std::fflush(stdout);
        std::fprintf(stderr, "keel %.*s: cannot read the document '%.*s': %s\n",
                     static_cast<int>(command.size()), command.data(),
                     static_cast<int>(path.size()), path.data(),
                     ErrorMessage(failure).ToUtf8().c_str());
        return false;
    }
    if (const QProperties* answers = document.GetDocProperties())
        options.root->Properties()->MergeProperties(answers, MERGE_OVERWRITE, false, false, false);
    return true;
}

int RunDoc(std::span<const std::string_view> args) {
    if (args.empty())
        return UsageError("doc", c_docUsage);
    if (args.front() == "info")
        return RunInfo(args.subspan(1));
    if (args.front() == "save")
        return RunSave(args.subspan(1));
    return UsageError("doc", "unknown subcommand '" + std::string(args.front()) + "'");
}

} // namespace keel::tool
