#include "keel/system/folders.h"

#include "keel/platform/registry.h"

#include <cstdlib>
#include <fstream>
#include <optional>
#include <string>
#include <unistd.h>

namespace keel {

namespace {

CString WithTrailingSlash(const CString& folder) {
    if (!folder.IsEmpty() && folder[folder.GetLength() - 1] == u'/')
        return folder;
    return folder + u'/';
}

// An absolute folder from the environment, or nothing: the desktop's rules ignore relative ones.
std::optional<CString> AbsoluteFolderFromEnvironment(const char* name) {
    const char* value = std::getenv(name);
    if (!value || value[0] != '/')
        return std::nullopt;
    return WithTrailingSlash(CString::FromUtf8(value));
}

CString HomeFolder() {
    return WithTrailingSlash(UserHomeFolder());
}

// A folder of the desktop's user-dirs.dirs, such as XDG_DOCUMENTS_DIR="$HOME/Documents", or
// the named folder in the home folder.
CString DesktopUserFolder(const std::string& variable, const char16_t* fallback) {
    std::ifstream file((UserConfigFolder() + u"/user-dirs.dirs").ToUtf8());
    const std::string prefix = variable + "=\"";
    std::string line;
    while (std::getline(file, line)) {
        if (line.rfind(prefix, 0) != 0 || line.size() <= prefix.size() || line.back() != '"')
            continue;
        const std::string value = line.substr(prefix.size(), line.size() - prefix.size() - 1);
        if (value.rfind("$HOME", 0) == 0)
            return WithTrailingSlash(UserHomeFolder() + CString::FromUtf8(value.substr(5)));
        if (!value.empty() && value[0] == '/')
            return WithTrailingSlash(CString::FromUtf8(value));
    }
    return HomeFolder() + fallback + u'/';
}

} // namespace

CString QFolders::SpecialFolderLocation(QSpecialFolder folder) {
    switch (folder) {
    case QSpecialFolder::Home:
        return HomeFolder();
    case QSpecialFolder::Documents:
        return DesktopUserFolder("XDG_DOCUMENTS_DIR", u"Documents");
    case QSpecialFolder::Desktop:
        return DesktopUserFolder("XDG_DESKTOP_DIR", u"Desktop");
    case QSpecialFolder::Config:
        return WithTrailingSlash(UserConfigFolder());
    case QSpecialFolder::Data:
        return AbsoluteFolderFromEnvironment("XDG_DATA_HOME")
            .value_or(HomeFolder() + u".local/share/");
    case QSpecialFolder::Temp:
        return AbsoluteFolderFromEnvironment("TMPDIR").value_or(u"/tmp/");
    }
    return HomeFolder();
}

CString QFolders::ProgramPathAndName() {
    std::string buffer(256, '\0');
    for (;;) {
        const ssize_t length = ::readlink("/proc/self/exe", buffer.data(), buffer.size());
        if (length < 0)
            return CString();
        if (static_cast<std::size_t>(length) < buffer.size())
            return CString::FromUtf8(std::string_view(buffer.data(), length));
        buffer.resize(buffer.size() * 2);
    }
}

CString QFolders::ProgramDir() {
    const CString program = ProgramPathAndName();
    return program.IsEmpty() ? CString(u"./") : program.Left(program.ReverseFind(u'/') + 1);
}

CString QFolders::DataDir() {
    return SpecialFolderLocation(QSpecialFolder::Data) + u"keel/";
}

CString QFolders::MyDocumentsDir() {
    return SpecialFolderLocation(QSpecialFolder::Documents);
}

} // namespace keel
