#include "keel/document/translate.h"
#include "keel/document/usertrace.h"
#include "keel/formula/builtins.h"
#include "keel/formula/evaluator.h"
#include "keel/formula/evaluatorfactory.h"
#include "keel/platform/regex.h"
#include "keel/platform/stdiofileex.h"
#include "keel/system/currentdirectory.h"
#include "keel/system/fsfile.h"
#include "keel/system/pathop.h"
#include "keel/values/tablehandle.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace keel {

namespace {

using namespace builtin;

constexpr int c_sharingTries = 10;
constexpr auto c_sharingWait = std::chrono::milliseconds(100);

// The functions of this group give their failures as error values and do not fail the formula.
// What a file holds can change at any time, so no value read from one is kept in a cache.
void ReadsTheDisk(QBuiltinCall& call) {
    call.evaluator.RaiseCacheState(QCS_NotCacheable);
}

// The application's library folder; without an application, the current folder.
CString LibraryFolder() {
    CString folder;
    if (const QEvaluatorFactory* factory = GetEvaluatorFactory())
        folder = factory->FolderForConstant(QConstantFolder::Library);
    if (folder.IsEmpty())
        return QCurrentDirectory::Get();
    return folder + u"/";
}

CString InLibraryFolder(const CString& path) {
    return QPathOp::HasRoot(path) ? QPathOp::NormalForm(path)
                                  : QPathOp::FolderPlusPath(LibraryFolder(), path);
}

// A file name of a formula: in the library folder unless it has a root, ".txt" unless it has an
// extension.
CString FilePath(const QAnyValue& name) {
    CString path = Text(name);
    QPathOp::FixupDotExtIfNoDotABC(path, u".txt");
    return InLibraryFolder(path);
}

CString CannotOpen(const CString& path) {
    return u"Cannot open file " + path;
}

// A file opened and locked for the length of one function. Opening never fails for sharing on
// this system; another program's lock (flock) on the file is what stands for it: readers share
// the file, a writer has it alone. A lock that cannot be had is tried for ten times, 100 ms
// apart, and then the file stays untouched.
class LockedFile {
public:
    LockedFile(const CString& path, bool write) {
        const std::string name = path.ToUtf8();
        m_fd = write ? ::open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666)
                     : ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
        if (m_fd < 0)
            return;
        for (int tries = 1; tries <= c_sharingTries; ++tries) {
            if (::flock(m_fd, (write ? LOCK_EX : LOCK_SH) | LOCK_NB) == 0) {
                m_locked = true;
                return;
            }
            if (errno != EWOULDBLOCK)
                return;
            m_inUse = true;
            if (tries < c_sharingTries)
                std::this_thread::sleep_for(c_sharingWait);
        }
    }
    ~LockedFile() {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    LockedFile(const LockedFile&) = delete;
    LockedFile& operator=(const LockedFile&) = delete;

    bool IsLocked() const { return m_locked; }
    int Fd() const { return m_fd; }
    // Why the file cannot be used.
    CString Failure(const CString& path) const {
        return m_inUse ? CannotOpen(path) + u", it is in use" : CannotOpen(path);
    }

private:
    int m_fd = -1;
    bool m_locked = false;
    bool m_inUse = false;
};

// The lines of a text file in any of the encodings CStdioFileEx knows. False with `failure` set
// when the file cannot be read.
bool ReadLines(const CString& path, std::vector<CString>& lines, CString& failure) {
    const LockedFile lock(path, false);
    if (!lock.IsLocked()) {
        failure = lock.Failure(path);
        return false;
    }
    CStdioFileEx file;
    if (!file.Open(path, CFile::modeRead | CFile::typeText)) {
        failure = CannotOpen(path);
        return false;
    }
    try {
        for (CString line; file.ReadString(line);)
            lines.push_back(line);
    } catch (const CFileException&) {
        failure = u"Cannot read file " + path;
        return false;
    }
    return true;
}

CString Joined(const std::vector<CString>& parts, const CString& separator) {
    CString joined;
    for (std::size_t i = 0; i < parts.size(); ++i)
        joined += i == 0 ? parts[i] : separator + parts[i];
    return joined;
}

bool WriteAll(int fd, const std::string& bytes) {
    std::size_t written = 0;
    while (written < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + written, bytes.size() - written);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        written += static_cast<std::size_t>(n);
    }
    return true;
}

bool ReadAll(int fd, std::string& bytes) {
    char buffer[4096];
    while (true) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return false;
        if (n == 0)
            return true;
        bytes.append(buffer, static_cast<std::size_t>(n));
    }
}

// The leading whole number of a text, as the C library's wide `wtol` reads it: blanks, a sign
// and digits; anything else ends it, and no digits give 0. A UTF-8 byte order mark is skipped.
long LeadingNumber(const std::string& text) {
    std::size_t i = text.rfind("\xEF\xBB\xBF", 0) == 0 ? 3 : 0;
    while (i < text.size() && (text[i] == ' ' || (text[i] >= '\t' && text[i] <= '\r')))
        ++i;
    const bool negative = i < text.size() && text[i] == '-';
    if (i < text.size() && (text[i] == '-' || text[i] == '+'))
        ++i;
    long number = 0;
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i)
        number = number * 10 + (text[i] - '0');
    return negative ? -number : number;
}

// --- The functions ------------------------------------------------------------------------------

// call(name): the file's text is a formula, run here with the caller's flags.
bool Call(QBuiltinCall& call, bool& succeeded) {
    ReadsTheDisk(call);
    const CString path = FilePath(call.args[0]);
    std::vector<CString> lines;
    CString failure;
    if (!ReadLines(path, lines, failure))
        return Done(call, ErrorValue(failure), succeeded);
    const CString text = Joined(lines, u"\n");
    if (text.IsEmpty()) {
        if (IsTracing(USER_TRACE_EVALUATIONS))
            UserTraceWriteLine(u"CALL EMPTY");
        return Done(call, QAnyValue(), succeeded);
    }
    const QEvaluator::RoutineLevel level;
    if (level.IsTooDeep()) {
        static const QTString looping(u"Stack depth exceeded, formula looping calling file [%s]",
                                      u"Message box (id)");
        return Done(call, ErrorValue(CString::Formatted(looping, path)), succeeded);
    }
    QEvaluator& caller = call.evaluator;
    QAnyValue value;
    const std::unique_ptr<QEvaluator> evaluator(
        QEvaluator::New(value, FormulaText(text), caller.Context(), caller.IsPassThrough(),
                        caller.IsReportErrors(), caller.IsAction()));
    evaluator->Evaluate();
    caller.RaiseCacheState(evaluator->CacheState());
    return Done(call, value, succeeded);
}

bool ReadFile(QBuiltinCall& call, bool& succeeded) {
    if (call.args.size() == 1)
        return WithDefault(call, QAnyValue(u"\r\n"), succeeded);
    ReadsTheDisk(call);
    const CString path = FilePath(call.args[0]);
    std::vector<CString> lines;
    CString failure;
    if (!ReadLines(path, lines, failure))
        return Done(call, ErrorValue(failure), succeeded);
    return Done(call, QAnyValue(Joined(lines, Text(call.args[1]))), succeeded);
}

// readline(name, n): the n-th line, from 1.
bool ReadLine(QBuiltinCall& call, bool& succeeded) {
    ReadsTheDisk(call);
    if (call.args[1].IsErrorOrNA())
        return Done(call, call.args[1], succeeded);
    const CString path = FilePath(call.args[0]);
    const int number = QAnyValue(call.args[1]).MakeInt();
    std::vector<CString> lines;
    CString failure;
    if (!ReadLines(path, lines, failure))
        return Done(call, ErrorValue(failure), succeeded);
    if (number < 1 || number > static_cast<int>(lines.size()))
        return Done(call,
                    ErrorValue(CString::Formatted(u"Cannot read line %d of file %s: it has %d",
                                                  number, path, static_cast<int>(lines.size()))),
                    succeeded);
    return Done(call, QAnyValue(lines[static_cast<std::size_t>(number - 1)]), succeeded);
}

// readandincrement(name): a counter kept in a file, which is made when it is not there yet. The
// whole step happens under the file's lock, so two programs never read the same number.
bool ReadAndIncrement(QBuiltinCall& call, bool& succeeded) {
    ReadsTheDisk(call);
    const CString path = FilePath(call.args[0]);
    QFSFile::CreateContainingFolderIfRequired(path);
    const LockedFile file(path, true);
    if (!file.IsLocked())
        return Done(call, ErrorValue(file.Failure(path)), succeeded);
    std::string text;
    if (!ReadAll(file.Fd(), text))
        return Done(call, ErrorValue(u"Cannot read file " + path), succeeded);
    const long number = LeadingNumber(text);
    const bool written = ::ftruncate(file.Fd(), 0) == 0 && ::lseek(file.Fd(), 0, SEEK_SET) == 0 &&
                         WriteAll(file.Fd(), std::to_string(number + 1) + "\n");
    QFSFile::ClearFileStatusCache();
    if (!written)
        return Done(call, ErrorValue(u"Cannot write file " + path), succeeded);
    return Done(call, QAnyValue(static_cast<int>(number)), succeeded);
}

bool WriteText(QBuiltinCall& call, bool append, bool& succeeded) {
    const CString path = FilePath(call.args[0]);
    QFSFile::CreateContainingFolderIfRequired(path);
    const LockedFile file(path, true);
    if (!file.IsLocked())
        return Done(call, ErrorValue(file.Failure(path)), succeeded);
    const bool positioned =
        append ? ::lseek(file.Fd(), 0, SEEK_END) >= 0 : ::ftruncate(file.Fd(), 0) == 0;
    const bool written = positioned && WriteAll(file.Fd(), Text(call.args[1]).ToUtf8() + "\n");
    QFSFile::ClearFileStatusCache();
    if (!written)
        return Done(call, ErrorValue(u"Cannot write file " + path), succeeded);
    return Done(call, QAnyValue(true), succeeded);
}

bool WriteLine(QBuiltinCall& call, bool& succeeded) {
    return WriteText(call, false, succeeded);
}

bool AppendLine(QBuiltinCall& call, bool& succeeded) {
    return WriteText(call, true, succeeded);
}

// fileexists(name): a file on disk, or a shipped table standing in for a missing one.
bool FileExists(QBuiltinCall& call, bool& succeeded) {
    ReadsTheDisk(call);
    const CString path = FilePath(call.args[0]);
    QTableHandleSource* tables = GetTableHandleSource();
    const bool exists = QFSFile::Exists(path) || (tables && tables->ExistsInArchive(path));
    return Done(call, QAnyValue(exists), succeeded);
}

// filelen(name): the size in bytes, from the open file.
bool FileLen(QBuiltinCall& call, bool& succeeded) {
    ReadsTheDisk(call);
    const CString path = FilePath(call.args[0]);
    const LockedFile file(path, false);
    struct stat status {};
    if (!file.IsLocked() || ::fstat(file.Fd(), &status) != 0 || !S_ISREG(status.st_mode))
        return Done(call, ErrorValue(file.Failure(path)), succeeded);
    const long long size = status.st_size;
    return Done(call,
                size <= 0x7FFFFFFF ? QAnyValue(static_cast<int>(size))
                                   : QAnyValue(static_cast<double>(size)),
                succeeded);
}

// The names in a folder, files or folders, in the order of their names.
std::vector<CString> NamesInFolder(const CString& folder, bool folders) {
    namespace fs = std::filesystem;
    std::vector<CString> names;
    std::error_code error;
    for (fs::directory_iterator it(fs::path(folder.ToUtf8()), error), end; !error && it != end;
         it.increment(error)) {
        std::error_code typeError;
        const bool wanted = folders ? it->is_directory(typeError) : it->is_regular_file(typeError);
        if (wanted && !typeError)
            names.push_back(CString::FromUtf8(it->path().filename().string()));
    }
    std::sort(names.begin(), names.end(),
              [](const CString& a, const CString& b) { return a.Compare(b) < 0; });
    return names;
}

// listfilenames(pattern [, sep]), listfoldernames(pattern [, sep]): the pattern is a folder and
// a name with "*" and "?", "a/*.txt"; a pattern that ends in its folder takes every name.
bool ListNames(QBuiltinCall& call, bool folders, bool& succeeded) {
    if (call.args.size() == 1)
        return WithDefault(call, QAnyValue(u"|"), succeeded);
    ReadsTheDisk(call);
    const CString wanted = InLibraryFolder(Text(call.args[0]));
    CString pattern = QPathOp::FileSpec(wanted);
    if (pattern.IsEmpty())
        pattern = u"*";
    std::vector<CString> matching;
    for (const CString& name : NamesInFolder(QPathOp::PathWithoutFileSpec(wanted), folders))
        if (MatchWildcardExpression(name, pattern))
            matching.push_back(name);
    return Done(call, QAnyValue(Joined(matching, Text(call.args[1]))), succeeded);
}

bool ListFileNames(QBuiltinCall& call, bool& succeeded) {
    return ListNames(call, false, succeeded);
}

bool ListFolderNames(QBuiltinCall& call, bool& succeeded) {
    return ListNames(call, true, succeeded);
}

// The list of the application's library, or of the current folder without one.
CString LibraryList(const CString& folder, const CString& filter, const CString& separator,
                    const CString& type) {
    if (const QEvaluatorFactory* factory = GetEvaluatorFactory())
        return factory->LibraryList(folder, filter, separator, type);
    return ListLibraryItems(QCurrentDirectory::Get(), folder, filter, separator, type);
}

// librarylist([folder [, filter [, sep [, type]]]])
bool LibraryListFunction(QBuiltinCall& call, bool& succeeded) {
    const QAnyValue defaults[] = {QAnyValue(u""), QAnyValue(u".*"), QAnyValue(u"|"),
                                  QAnyValue(u"")};
    if (call.args.size() < 4)
        return WithDefault(call, defaults[call.args.size()], succeeded);
    ReadsTheDisk(call);
    return Done(call,
                QAnyValue(LibraryList(Text(call.args[0]), Text(call.args[1]), Text(call.args[2]),
                                      Text(call.args[3]))),
                succeeded);
}

// librarylistbytype(type [, folder [, filter [, sep]]])
bool LibraryListByType(QBuiltinCall& call, bool& succeeded) {
    const QAnyValue defaults[] = {QAnyValue(u""), QAnyValue(u""), QAnyValue(u".*"),
                                  QAnyValue(u"|")};
    if (call.args.size() < 4)
        return WithDefault(call, defaults[call.args.size()], succeeded);
    ReadsTheDisk(call);
    return Done(call,
                QAnyValue(LibraryList(Text(call.args[1]), Text(call.args[2]), Text(call.args[3]),
                                      Text(call.args[0]))),
                succeeded);
}

} // namespace

CString builtin::ListLibraryItems(const CString& library, const CString& folder,
                                  const CString& filter, const CString& separator,
                                  const CString& type) {
    const CString inLibrary = QPathOp::FolderPlusFolder(library, folder);
    const CString wholeName = u"^(?:" + filter + u")$";
    std::vector<CString> names;
    for (const CString& fileSpec : NamesInFolder(inLibrary, false)) {
        if (!type.IsEmpty() && !QPathOp::MatchDotExt(fileSpec, type))
            continue;
        const CString name = QPathOp::FileSpecWithoutDotExt(fileSpec);
        if (RegexMatch(name, wholeName) && (names.empty() || names.back() != name))
            names.push_back(name);
    }
    return Joined(names, separator);
}

const QBuiltinGroup& FileFunctions() {
    static constexpr QBuiltinFunction functions[] = {
        {u"call", 1, 1, u"name", false, Call},
        {u"readfile", 1, 2, u"name [, sep = CR LF]", false, ReadFile},
        {u"readline", 2, 2, u"name, n", false, ReadLine},
        {u"readandincrement", 1, 1, u"name", false, ReadAndIncrement},
        {u"writeline", 2, 2, u"name, text", true, WriteLine},
        {u"appendline", 2, 2, u"name, text", true, AppendLine},
        {u"fileexists", 1, 1, u"name", false, FileExists},
        {u"filelen", 1, 1, u"name", false, FileLen},
        {u"listfilenames", 1, 2, u"pattern [, sep = |]", false, ListFileNames},
        {u"listfoldernames", 1, 2, u"pattern [, sep = |]", false, ListFolderNames},
        {u"librarylist", 0, 4, u"[folder [, filter = .* [, sep = | [, type]]]]", false,
         LibraryListFunction},
        {u"librarylistbytype", 1, 4, u"type [, folder [, filter = .* [, sep = |]]]", false,
         LibraryListByType},
        {u"exportvalues", 3, 3, u"v, v, v", false, nullptr},
    };
    static const QBuiltinGroup group{u"Files", functions};
    return group;
}

} // namespace keel
