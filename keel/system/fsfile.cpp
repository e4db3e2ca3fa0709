#include "keel/system/fsfile.h"

#include "keel/document/errorlog.h"
#include "keel/document/translate.h"
#include "keel/platform/file.h"
#include "keel/system/pathop.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <map>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace keel {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t c_statusCacheLimit = 256;
constexpr const char16_t* c_sentenceContext = u"Message box (part of a sentence)";

struct CachedStatus {
    bool exists = false;
    QFSFileStatus status;
};

std::map<std::u16string, CachedStatus>& StatusCache() {
    static std::map<std::u16string, CachedStatus> cache;
    return cache;
}

fs::path DiskPath(const CString& path) {
    return fs::path(path.ToUtf8());
}

CString Translated(const char16_t* text, const char16_t* context) {
    return TranslateString(text, u"", context);
}

void Report(const char16_t* function, const CString& message) {
    QMessageBoxExceptServer(function, message, MB_OK | MB_ICONEXCLAMATION);
}

CString RepairedPath(const CString& path) {
    CString repaired = path;
    QPathOp::FixExpectedPath(repaired);
    return repaired;
}

CString RepairedFolder(const CString& folder) {
    CString repaired = folder;
    QPathOp::FixExpectedFolder(repaired);
    return repaired;
}

// The last name of the path, a folder's included.
CString LastName(const CString& path) {
    CString trimmed = path;
    trimmed.TrimRight(u'/');
    return trimmed.Mid(trimmed.ReverseFind(u'/') + 1);
}

unsigned AttributesOf(const CString& path, const struct stat& info) {
    unsigned attributes = 0;
    if (S_ISDIR(info.st_mode))
        attributes |= QFSFile::attrFolder;
    else if (!S_ISREG(info.st_mode))
        attributes |= QFSFile::attrSystem;
    const CString name = LastName(path);
    if (name.GetLength() > 0 && name[0] == u'.' && !QPathOp::IsDots(name))
        attributes |= QFSFile::attrHidden;
    if (::faccessat(AT_FDCWD, path.ToUtf8().c_str(), W_OK, AT_EACCESS) != 0)
        attributes |= QFSFile::attrReadOnly;
    return attributes;
}

bool LookUpOnDisk(const CString& path, QFSFileStatus& status) {
    struct stat info {};
    if (::stat(path.ToUtf8().c_str(), &info) != 0)
        return false;
    std::error_code error;
    const fs::path absolute = fs::absolute(DiskPath(path), error);
    status.m_strFullName = error ? path : CString::FromUtf8(absolute.string());
    status.m_attribute = AttributesOf(path, info);
    status.m_size = S_ISREG(info.st_mode) ? static_cast<unsigned long long>(info.st_size) : 0;
    status.m_mtime = info.st_mtime;
    return true;
}

// Whether anything is at the path, a link to nothing included; never from the cache.
bool AnythingAt(const CString& path) {
    std::error_code error;
    return !path.IsEmpty() && fs::exists(fs::symlink_status(DiskPath(path), error));
}

bool IsFolderOnDisk(const CString& path) {
    std::error_code error;
    return fs::is_directory(fs::status(DiskPath(path), error));
}

CString AttributeWords(unsigned attributes) {
    static constexpr struct {
        unsigned bit;
        const char16_t* word;
    } words[] = {
        {QFSFile::attrReadOnly, u"readonly "}, {QFSFile::attrHidden, u"hidden "},
        {QFSFile::attrSystem, u"system "},     {QFSFile::attrVolume, u"volume "},
        {QFSFile::attrFolder, u"folder "},     {QFSFile::attrArchived, u"archived "},
    };
    CString text;
    for (const auto& entry : words) {
        if (attributes & entry.bit)
            text += Translated(entry.word, c_sentenceContext);
    }
    return text;
}

// "<path> exists, but is a <words>and isn't a <words>file", with only the clauses that apply.
CString RefusalSentence(const CString& path, unsigned unwanted, unsigned missing) {
    CString sentence = path + Translated(u" exists, but ", c_sentenceContext);
    if (unwanted != 0)
        sentence += Translated(u"is a ", c_sentenceContext) + AttributeWords(unwanted);
    if (missing != 0) {
        sentence += Translated(unwanted != 0 ? u"and isn't a " : u"isn't a ", c_sentenceContext);
        sentence += AttributeWords(missing);
    }
    return sentence + Translated(u"file", c_sentenceContext);
}

bool DeleteFileAt(const CString& path, bool quiet, const char16_t* failureText) {
    bool deleted = false;
    std::error_code error;
    const fs::file_status status = fs::symlink_status(DiskPath(path), error);
    if (!path.IsEmpty() && fs::exists(status) && !fs::is_directory(status))
        deleted = fs::remove(DiskPath(path), error) && !error;
    QFSFile::ClearFileStatusCache();
    if (!deleted && !quiet)
        Report(u"Delete",
               CString::Formatted(Translated(failureText, u"Message box (filename)"), path));
    return deleted;
}

CString NumberedPath(const CString& path, int number) {
    return QPathOp::PathWithoutFileSpec(path) + QPathOp::FileSpecWithoutDotExt(path) +
           CString::Formatted(u"_%d", number) + QPathOp::DotExt(path);
}

// The folders right under `folder`, in the order of their names; links to folders are left out
// so that a loop of links cannot trap the search.
std::vector<CString> SubFolders(const CString& folder) {
    std::vector<CString> names;
    std::error_code error;
    fs::directory_iterator entries(DiskPath(folder), fs::directory_options::skip_permission_denied,
                                   error);
    for (; !error && entries != fs::directory_iterator(); entries.increment(error)) {
        if (entries->is_directory(error) && !entries->is_symlink(error))
            names.push_back(CString::FromUtf8(entries->path().filename().string()));
    }
    std::sort(names.begin(), names.end());
    for (CString& name : names)
        name = folder + name + u"/";
    return names;
}

unsigned TimeStamp() {
    return static_cast<unsigned>(std::chrono::system_clock::now().time_since_epoch() /
                                 std::chrono::seconds(1));
}

void ReportNoWriteAccess(const CString& folder, int errorNumber) {
    const std::string explanation = std::system_category().message(errorNumber);
    if (errorNumber == 0 || explanation.starts_with("Unknown error")) {
        Report(u"Exists", CString::Formatted(Translated(u"%s does not have write access\n"
                                                        u"[System error code %8.8x]",
                                                        u"Message box (pathName,errCode)"),
                                             folder, static_cast<unsigned>(errorNumber)));
        return;
    }
    Report(u"Exists", CString::Formatted(Translated(u"%s cannot be written\n[System error %s]",
                                                    u"Message box (pathName,errText)"),
                                         folder, CString::FromUtf8(explanation)));
}

} // namespace

bool QFSFile::FileOrFolderTest(const CString& path, bool quiet, int mustExist, unsigned mustHave,
                               unsigned mustNotHave, bool useCache) {
    const CString repaired = RepairedPath(path);
    if (repaired.IsEmpty())
        return false;
    QFSFileStatus status;
    const bool exists = GetStatus(repaired, status, useCache);
    CString reason;
    if (mustExist == 0) {
        if (!exists)
            return true;
        reason = repaired + Translated(u" already exists", c_sentenceContext);
    } else if (!exists) {
        reason = repaired + Translated(u" does not exist", c_sentenceContext);
    } else {
        const unsigned unwanted = status.m_attribute & mustNotHave;
        const unsigned missing = mustHave & ~status.m_attribute;
        if (unwanted == 0 && missing == 0)
            return true;
        reason = RefusalSentence(repaired, unwanted, missing);
    }
    if (!quiet)
        Report(u"Exists", reason);
    return false;
}

bool QFSFile::Exists(const CString& path, bool quiet, bool useCache) {
    return FileOrFolderTest(path, quiet, 1, 0, attrFolder, useCache);
}

bool QFSFile::ExistsAndCanBeWritten(const CString& path, bool quiet) {
    return FileOrFolderTest(path, quiet, 1, 0, attrFolder | attrReadOnly);
}

bool QFSFile::GetStatus(const CString& path, QFSFileStatus& status, bool useCache) {
    const CString repaired = RepairedPath(path);
    if (repaired.IsEmpty())
        return false;
    auto& cache = StatusCache();
    const std::u16string key(repaired.View());
    if (useCache) {
        const auto found = cache.find(key);
        if (found != cache.end()) {
            status = found->second.status;
            return found->second.exists;
        }
    }
    CachedStatus entry;
    entry.exists = LookUpOnDisk(repaired, entry.status);
    if (cache.size() >= c_statusCacheLimit)
        cache.clear();
    cache[key] = entry;
    status = entry.status;
    return entry.exists;
}

bool QFSFile::ExistsFolderSearch(const CString& name, CString& found,
                                 const QArray<CString>& folders) {
    found.Empty();
    const CString repaired = RepairedPath(name);
    if (repaired.IsEmpty())
        return false;
    if (QPathOp::HasRoot(repaired)) {
        if (Exists(repaired))
            found = repaired;
        return !found.IsEmpty();
    }
    for (int index = 0; index < folders.GetCount(); ++index) {
        const CString candidate = QPathOp::FolderPlusPath(folders[index], repaired);
        if (Exists(candidate)) {
            found = candidate;
            return true;
        }
    }
    return false;
}

bool QFSFile::ExistsTreeSearch(const CString& name, CString& found,
                               const QArray<CString>& folders) {
    found.Empty();
    const CString repaired = RepairedPath(name);
    if (repaired.IsEmpty())
        return false;
    if (QPathOp::HasRoot(repaired))
        return ExistsFolderSearch(repaired, found, folders);
    for (int index = 0; index < folders.GetCount(); ++index) {
        std::vector<CString> level{RepairedFolder(folders[index])};
        while (!level.empty()) {
            std::vector<CString> nextLevel;
            for (const CString& folder : level) {
                const CString candidate = QPathOp::FolderPlusPath(folder, repaired);
                if (Exists(candidate)) {
                    found = candidate;
                    return true;
                }
                const std::vector<CString> below = SubFolders(folder);
                nextLevel.insert(nextLevel.end(), below.begin(), below.end());
            }
            level.swap(nextLevel);
        }
    }
    return false;
}

bool QFSFile::Delete(const CString& path, bool quiet) {
    return DeleteFileAt(RepairedPath(path), quiet, u"Can't delete file %s");
}

bool QFSFile::DeleteIfExists(const CString& path, bool quiet) {
    const CString repaired = RepairedPath(path);
    if (!AnythingAt(repaired))
        return true;
    return DeleteFileAt(repaired, quiet, u"Can't delete old file %s");
}

bool QFSFile::Rename(const CString& from, const CString& to, bool quiet) {
    const CString source = RepairedPath(from);
    const CString target = RepairedPath(to);
    bool renamed = false;
    if (!source.IsEmpty() && !target.IsEmpty() && !AnythingAt(target)) {
        std::error_code error;
        fs::rename(DiskPath(source), DiskPath(target), error);
        renamed = !error;
    }
    ClearFileStatusCache();
    if (!renamed && !quiet)
        Report(u"Rename", CString::Formatted(Translated(u"Can't rename file %s to %s",
                                                        u"Message box (fromName,toName)"),
                                             source, target));
    return renamed;
}

bool QFSFile::RenameIfExists(const CString& from, const CString& to, bool quiet) {
    if (!AnythingAt(RepairedPath(from)))
        return true;
    const CString target = RepairedPath(to);
    if (AnythingAt(target) && !DeleteFileAt(target, quiet, u"Can't delete old file %s"))
        return false;
    return Rename(from, to, quiet);
}

bool QFSFile::ReplaceWithWritten(const CString& written, const CString& target, CString& reason) {
    const bool replaced = ReplaceFileWithWritten(written, target, reason);
    ClearFileStatusCache();
    return replaced;
}

CString QFSFile::FollowLinks(const CString& path) {
    std::error_code error;
    const fs::path resolved = fs::weakly_canonical(fs::path(path.ToUtf8()), error);
    return error ? path : CString::FromUtf8(resolved.string());
}

bool QFSFile::CreateContainingFolderIfRequired(const CString& path) {
    const CString folder = QPathOp::PathWithoutFileSpec(RepairedPath(path));
    return folder.IsEmpty() || QFSFolder::CreateIfRequired(folder);
}

CString QFSFile::GetFileUniqueStem(const CString& path) {
    const CString repaired = RepairedPath(path);
    if (repaired.IsEmpty() || !AnythingAt(repaired))
        return repaired;
    constexpr int c_maxNumber = 1000000;
    for (int number = 1; number <= c_maxNumber; ++number) {
        const CString candidate = NumberedPath(repaired, number);
        if (!AnythingAt(candidate))
            return candidate;
    }
    return CString();
}

CString QFSFile::CopyFileUniqueStem(const CString& from, const CString& to) {
    const CString source = RepairedPath(from);
    const CString target = GetFileUniqueStem(to);
    if (source.IsEmpty() || target.IsEmpty())
        return CString();
    std::error_code error;
    const bool copied = fs::copy_file(DiskPath(source), DiskPath(target), error) && !error;
    ClearFileStatusCache();
    return copied ? target : CString();
}

CString QFSFile::GenerateTempPath(const CString& folder) {
    CString base = RepairedFolder(folder);
    if (base.IsEmpty()) {
        std::error_code error;
        base = RepairedFolder(CString::FromUtf8(fs::temp_directory_path(error).string()));
    }
    static std::atomic<unsigned> counter{0};
    const unsigned seed = TimeStamp() * 2654435761u ^ static_cast<unsigned>(::getpid());
    for (;;) {
        const unsigned number = seed + counter.fetch_add(1) * 40503u;
        const CString candidate = base + CString::Formatted(u"~%08x.tmp", number);
        if (!AnythingAt(candidate))
            return candidate;
    }
}

void QFSFile::ClearFileStatusCache() {
    StatusCache().clear();
}

bool QFSFolder::Exists(const CString& path, bool quiet) {
    return QFSFile::FileOrFolderTest(RepairedFolder(path), quiet, 1, QFSFile::attrFolder, 0);
}

bool QFSFolder::CreateIfRequired(const CString& path) {
    const CString folder = RepairedFolder(path);
    if (folder.IsEmpty())
        return false;
    std::error_code error;
    fs::create_directories(DiskPath(folder), error);
    QFSFile::ClearFileStatusCache();
    return IsFolderOnDisk(folder);
}

bool QFSFolder::ExistsAndCanBeWritten(const CString& path, bool quiet) {
    const CString folder = RepairedFolder(path);
    if (!Exists(folder, quiet))
        return false;
    const unsigned stamp = TimeStamp();
    constexpr unsigned c_attempts = 16;
    int failure = 0;
    for (unsigned attempt = 0; attempt < c_attempts; ++attempt) {
        const CString testFile = folder + CString::Formatted(u"%08x.$$$test", stamp + attempt);
        const int descriptor =
            ::open(testFile.ToUtf8().c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600);
        if (descriptor >= 0) {
            ::close(descriptor);
            std::error_code error;
            if (!fs::remove(DiskPath(testFile), error) || error)
                fs::remove(DiskPath(testFile), error);
            return true;
        }
        failure = errno;
        if (failure != EEXIST)
            break;
    }
    if (!quiet)
        ReportNoWriteAccess(folder, failure);
    return false;
}

bool QFSFolder::DeleteContents(const CString& path, bool quiet, const CString& pattern) {
    const CString folder = RepairedFolder(path);
    if (!Exists(folder, quiet))
        return false;
    std::vector<fs::path> doomed;
    std::error_code error;
    fs::directory_iterator entries(DiskPath(folder), error);
    for (; !error && entries != fs::directory_iterator(); entries.increment(error)) {
        if (QPathOp::Match(CString::FromUtf8(entries->path().filename().string()), pattern))
            doomed.push_back(entries->path());
    }
    bool all = !error;
    for (const fs::path& entry : doomed) {
        std::error_code removeError;
        fs::remove_all(entry, removeError);
        if (!removeError)
            continue;
        all = false;
        if (!quiet)
            Report(u"Delete", CString::Formatted(
                                  Translated(u"Can't delete file %s", u"Message box (filename)"),
                                  CString::FromUtf8(entry.string())));
    }
    QFSFile::ClearFileStatusCache();
    return all;
}

bool QFSFolder::DeleteAll(const CString& path) {
    const CString folder = RepairedFolder(path);
    if (folder.IsEmpty() || QPathOp::IsRoot(folder))
        return false;
    // Without its trailing "/", a link to a folder is removed as a link, not followed.
    const CString target = QPathOp::FolderAsFilePath(folder);
    std::error_code error;
    fs::remove_all(DiskPath(target), error);
    QFSFile::ClearFileStatusCache();
    return !error && !AnythingAt(target);
}

} // namespace keel
