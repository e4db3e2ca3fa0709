#include "keel/platform/registry.h"

#include "keel/platform/wchar.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <glib.h>
#include <optional>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace keel {

namespace {

constexpr const char16_t* c_defaultAppName = u"Keel";
constexpr const char16_t* c_defaultMachineFolder = u"/etc/xdg/keel/";

struct CurrentSettings {
    CCriticalSection lock;
    CString (*nameSource)() = nullptr;
    CString userFile;
    CString machineFolder;
};

CurrentSettings& Settings() {
    static CurrentSettings settings;
    return settings;
}

CString FromEnvironment(const char* name) {
    const char* value = std::getenv(name);
    return value ? CString::FromUtf8(value) : CString();
}

CString WithoutTrailingSlashes(CString path) {
    path.TrimRight(u'/');
    return path;
}

CString WithTrailingSlash(const CString& folder) {
    if (!folder.IsEmpty() && folder[folder.GetLength() - 1] == u'/')
        return folder;
    return folder + u'/';
}

// A name usable as a file name: path separators would lead elsewhere.
CString FileNameOf(const CString& appName) {
    CString name = appName.IsEmpty() ? CString(c_defaultAppName) : appName;
    name.Replace(u'/', u'_');
    return name;
}

CString ApplicationName() {
    CurrentSettings& settings = Settings();
    CSingleLock guard(&settings.lock, true);
    CString (*const source)() = settings.nameSource;
    guard.Unlock();
    return source ? source() : CString(c_defaultAppName);
}

CString ErrnoText(int error) {
    return CString::FromUtf8(g_strerror(error));
}

bool HasControlCharacter(const CString& name) {
    for (const char16_t ch : name.View())
        if (ch < 0x20 || ch == 0x7F)
            return true;
    return false;
}

bool IsStorableSection(const CString& section) {
    return !section.IsEmpty() && section.FindOneOf(u"[]") < 0 && !HasControlCharacter(section);
}

// The INI form gives '=', brackets and '#' a meaning of their own, and it would lose spaces at
// the ends of a key when the file is read back.
bool IsStorableKey(const CString& key) {
    if (key.IsEmpty() || key.FindOneOf(u"=[]") >= 0 || HasControlCharacter(key))
        return false;
    const char16_t first = key[0];
    const char16_t last = key[key.GetLength() - 1];
    return first != u'#' && first != u' ' && last != u' ';
}

std::optional<long long> ParseWholeNumber(const CString& text) {
    const std::string digits = CString(text).Trim().ToUtf8();
    if (digits.empty())
        return std::nullopt;
    errno = 0;
    char* end = nullptr;
    const long long value = std::strtoll(digits.c_str(), &end, 10);
    if (errno != 0 || *end != '\0')
        return std::nullopt;
    return value;
}

std::optional<std::vector<std::uint8_t>> ParseHex(const CString& text) {
    const std::u16string_view digits = text.View();
    if (digits.size() % 2 != 0)
        return std::nullopt;
    std::vector<std::uint8_t> data;
    data.reserve(digits.size() / 2);
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        const int high = HexDigitValue(digits[i]);
        const int low = HexDigitValue(digits[i + 1]);
        if (high < 0 || low < 0)
            return std::nullopt;
        data.push_back(static_cast<std::uint8_t>(high * 16 + low));
    }
    return data;
}

std::string ToHex(const std::vector<std::uint8_t>& data) {
    static constexpr char c_digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(data.size() * 2);
    for (const std::uint8_t byte : data) {
        text += c_digits[byte >> 4];
        text += c_digits[byte & 0xF];
    }
    return text;
}

bool WriteAll(int fd, const std::string& data) {
    std::size_t written = 0;
    while (written < data.size()) {
        const ssize_t count = ::write(fd, data.data() + written, data.size() - written);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return false;
        written += static_cast<std::size_t>(count);
    }
    return true;
}

bool ReadAll(int fd, std::string& data) {
    char buffer[16384];
    for (;;) {
        const ssize_t count = ::read(fd, buffer, sizeof buffer);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return false;
        if (count == 0)
            return true;
        data.append(buffer, static_cast<std::size_t>(count));
    }
}

// The whole of a regular file, or empty with the reason. Anything else in its place, a folder, a
// FIFO or a device, is refused before it is opened, and the open does not wait, so that a FIFO
// put there in between is refused too instead of blocking the reader.
std::optional<std::string> ReadRegularFile(const std::string& path, CString& reason) {
    static const CString notRegular = u"Not a regular file";
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        reason = ErrnoText(errno);
        return std::nullopt;
    }
    if (!S_ISREG(status.st_mode)) {
        reason = notRegular;
        return std::nullopt;
    }
    const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) {
        reason = ErrnoText(errno);
        return std::nullopt;
    }
    std::optional<std::string> data;
    if (::fstat(fd, &status) != 0)
        reason = ErrnoText(errno);
    else if (!S_ISREG(status.st_mode))
        reason = notRegular;
    else if (std::string bytes; ReadAll(fd, bytes))
        data = std::move(bytes);
    else
        reason = ErrnoText(errno);
    ::close(fd);
    return data;
}

// Writes go to the file a symbolic link points at, so that a linked options file stays linked;
// a link to anything but a regular file is itself replaced, and what it points at left alone.
std::string ResolvedPath(const std::string& path) {
    char* resolved = ::realpath(path.c_str(), nullptr);
    if (!resolved)
        return path;
    std::string result(resolved);
    std::free(resolved);
    struct stat status {};
    return ::stat(result.c_str(), &status) == 0 && S_ISREG(status.st_mode) ? result : path;
}

} // namespace

CString UserHomeFolder() {
    const CString home = FromEnvironment("HOME");
    if (!home.IsEmpty())
        return WithoutTrailingSlashes(home);
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found)
        return WithoutTrailingSlashes(CString::FromUtf8(found->pw_dir));
    return CString();
}

CString UserConfigFolder() {
    const CString configHome = FromEnvironment("XDG_CONFIG_HOME");
    if (configHome.GetLength() > 0 && configHome[0] == u'/')
        return WithoutTrailingSlashes(configHome);
    return UserHomeFolder() + u"/.config";
}

// The parsed file. Names are looked up without regard to case; a write to a name that exists in
// another case goes to the existing spelling.
class CRegistry::KeyFile {
public:
    KeyFile() : m_file(g_key_file_new()) {}
    ~KeyFile() { g_key_file_free(m_file); }
    KeyFile(const KeyFile&) = delete;
    KeyFile& operator=(const KeyFile&) = delete;

    // Empty when loaded; otherwise what went wrong.
    CString Load(const CString& path) {
        CString reason;
        const std::optional<std::string> data = ReadRegularFile(path.ToUtf8(), reason);
        if (!data)
            return reason;
        GError* error = nullptr;
        const GKeyFileFlags flags =
            static_cast<GKeyFileFlags>(G_KEY_FILE_KEEP_COMMENTS | G_KEY_FILE_KEEP_TRANSLATIONS);
        if (g_key_file_load_from_data(m_file, data->data(), data->size(), flags, &error))
            return CString();
        CString message = CString::FromUtf8(error->message);
        g_error_free(error);
        return message;
    }

    std::optional<CString> Get(const CString& section, const CString& key) const {
        const std::optional<std::string> group = StoredGroup(section);
        if (!group)
            return std::nullopt;
        const std::optional<std::string> name = StoredKey(*group, key);
        if (!name)
            return std::nullopt;
        gchar* value = g_key_file_get_string(m_file, group->c_str(), name->c_str(), nullptr);
        if (!value)
            return std::nullopt;
        CString result = CString::FromUtf8(value);
        g_free(value);
        return result;
    }

    void Set(const CString& section, const CString& key, const std::string& value) {
        const std::string group = StoredGroup(section).value_or(section.ToUtf8());
        const std::string name = StoredKey(group, key).value_or(key.ToUtf8());
        g_key_file_set_string(m_file, group.c_str(), name.c_str(), value.c_str());
    }

    std::string ToData() const {
        gsize length = 0;
        gchar* data = g_key_file_to_data(m_file, &length, nullptr);
        std::string result(data, length);
        g_free(data);
        return result;
    }

private:
    std::optional<std::string> StoredGroup(const CString& section) const {
        const std::string exact = section.ToUtf8();
        if (g_key_file_has_group(m_file, exact.c_str()))
            return exact;
        gchar** groups = g_key_file_get_groups(m_file, nullptr);
        std::optional<std::string> found = MatchNoCase(groups, section);
        g_strfreev(groups);
        return found;
    }

    std::optional<std::string> StoredKey(const std::string& group, const CString& key) const {
        const std::string exact = key.ToUtf8();
        if (g_key_file_has_key(m_file, group.c_str(), exact.c_str(), nullptr))
            return exact;
        gchar** keys = g_key_file_get_keys(m_file, group.c_str(), nullptr, nullptr);
        std::optional<std::string> found = MatchNoCase(keys, key);
        g_strfreev(keys);
        return found;
    }

    static std::optional<std::string> MatchNoCase(gchar** names, const CString& wanted) {
        for (gchar** name = names; name && *name; ++name)
            if (CString::FromUtf8(*name).CompareNoCase(wanted) == 0)
                return std::string(*name);
        return std::nullopt;
    }

    GKeyFile* m_file;
};

CRegistry::CRegistry(const CString& userFile, const CString& machineFile)
    : m_userFile(userFile), m_machineFile(machineFile), m_keys(std::make_unique<KeyFile>()) {}

CRegistry::~CRegistry() = default;

CRegistry& CRegistry::Current() {
    static CRegistry current{CString()};
    CurrentSettings& settings = Settings();
    const CString appName = ApplicationName();
    CSingleLock guard(&settings.lock, true);
    const CString userFile = settings.userFile.IsEmpty() ? UserFileFor(appName) : settings.userFile;
    const CString machineFolder = settings.machineFolder.IsEmpty()
                                      ? CString(c_defaultMachineFolder)
                                      : WithTrailingSlash(settings.machineFolder);
    current.Retarget(userFile, machineFolder + FileNameOf(appName) + u".ini");
    return current;
}

void CRegistry::SetApplicationNameSource(CString (*source)()) {
    CurrentSettings& settings = Settings();
    CSingleLock guard(&settings.lock, true);
    settings.nameSource = source;
}

void CRegistry::SetCurrentFile(const CString& userFile) {
    CurrentSettings& settings = Settings();
    CSingleLock guard(&settings.lock, true);
    settings.userFile = userFile;
}

void CRegistry::SetMachineFolder(const CString& folder) {
    CurrentSettings& settings = Settings();
    CSingleLock guard(&settings.lock, true);
    settings.machineFolder = folder;
}

CString CRegistry::UserFileFor(const CString& appName) {
    return UserConfigFolder() + u"/keel/" + FileNameOf(appName) + u".ini";
}

CString CRegistry::MachineFileFor(const CString& appName) {
    return CString(c_defaultMachineFolder) + FileNameOf(appName) + u".ini";
}

void CRegistry::Retarget(const CString& userFile, const CString& machineFile) {
    CSingleLock guard(&m_lock, true);
    m_machineFile = machineFile;
    if (userFile == m_userFile)
        return;
    m_userFile = userFile;
    m_lastError.Empty();
    m_pending.clear();
    m_loaded = false;
}

int CRegistry::GetProfileInt(const CString& section, const CString& key, int defaultValue) {
    CSingleLock guard(&m_lock, true);
    Refresh();
    const std::optional<CString> text = m_keys->Get(section, key);
    if (!text)
        return defaultValue;
    const std::optional<long long> value = ParseWholeNumber(*text);
    // Up to UINT_MAX, as a 32-bit registry value may hold; such values read as negative ints.
    if (!value || *value < INT_MIN || *value > static_cast<long long>(UINT_MAX))
        return defaultValue;
    return static_cast<int>(static_cast<unsigned>(*value));
}

CString CRegistry::GetProfileString(const CString& section, const CString& key,
                                    const CString& defaultValue) {
    CSingleLock guard(&m_lock, true);
    Refresh();
    return m_keys->Get(section, key).value_or(defaultValue);
}

bool CRegistry::GetProfileBinary(const CString& section, const CString& key,
                                 std::vector<std::uint8_t>& data) {
    CSingleLock guard(&m_lock, true);
    Refresh();
    const std::optional<CString> text = m_keys->Get(section, key);
    if (!text)
        return false;
    std::optional<std::vector<std::uint8_t>> parsed = ParseHex(*text);
    if (!parsed)
        return false;
    data = std::move(*parsed);
    return true;
}

bool CRegistry::WriteProfileInt(const CString& section, const CString& key, int value) {
    return WriteValue(section, key, std::to_string(value));
}

bool CRegistry::WriteProfileString(const CString& section, const CString& key,
                                   const CString& value) {
    return WriteValue(section, key, value.ToUtf8());
}

bool CRegistry::WriteProfileBinary(const CString& section, const CString& key,
                                   const std::vector<std::uint8_t>& data) {
    return WriteValue(section, key, ToHex(data));
}

CString CRegistry::GetMachineProfileString(const CString& section, const CString& key,
                                           const CString& defaultValue) {
    CSingleLock guard(&m_lock, true);
    if (m_machineFile.IsEmpty() || !StampOf(m_machineFile).exists)
        return defaultValue;
    KeyFile machine;
    const CString error = machine.Load(m_machineFile);
    if (!error.IsEmpty()) {
        Fail(CString::Formatted(u"Cannot read the machine options file \"%s\": %s", m_machineFile,
                                error));
        return defaultValue;
    }
    return machine.Get(section, key).value_or(defaultValue);
}

CString CRegistry::LastError() const {
    CSingleLock guard(&m_lock, true);
    return m_lastError;
}

CString CRegistry::FilePath() const {
    CSingleLock guard(&m_lock, true);
    return m_userFile;
}

CString CRegistry::MachineFilePath() const {
    CSingleLock guard(&m_lock, true);
    return m_machineFile;
}

CRegistry::FileStamp CRegistry::StampOf(const CString& path) {
    struct stat status {};
    if (::stat(path.ToUtf8().c_str(), &status) != 0)
        return FileStamp{};
    return FileStamp{true, status.st_dev, status.st_ino, status.st_size,
                     status.st_mtim.tv_sec * 1000000000LL + status.st_mtim.tv_nsec};
}

void CRegistry::Refresh() {
    const FileStamp stamp = StampOf(m_userFile);
    if (m_loaded && stamp == m_loadedStamp)
        return;
    Load(stamp);
    for (const PendingWrite& write : m_pending)
        m_keys->Set(write.section, write.key, write.value);
}

void CRegistry::Load(const FileStamp& stamp) {
    m_keys = std::make_unique<KeyFile>();
    m_loadedStamp = stamp;
    m_loaded = true;
    m_unreadable = false;
    if (!stamp.exists)
        return;
    const CString error = m_keys->Load(m_userFile);
    if (error.IsEmpty())
        return;
    // Whatever part was parsed before the failure is dropped: a half-read file is no basis for
    // decisions, and the defaults are.
    m_keys = std::make_unique<KeyFile>();
    m_unreadable = true;
    Fail(CString::Formatted(u"Cannot read the options file \"%s\": %s", m_userFile, error));
}

bool CRegistry::WriteValue(const CString& section, const CString& key, const std::string& value) {
    CSingleLock guard(&m_lock, true);
    if (!ValidNames(section, key))
        return false;
    Refresh();
    m_keys->Set(section, key, value);
    if (m_deferDepth > 0) {
        m_pending.push_back(PendingWrite{section, key, value});
        return true;
    }
    return SaveOrForget();
}

bool CRegistry::SaveOrForget() {
    m_pending.clear();
    if (Save())
        return true;
    m_loaded = false; // the file keeps its old contents, and so must the copy in memory
    return false;
}

CRegistry::DeferredSave::DeferredSave(CRegistry& registry) : m_registry(&registry) {
    CSingleLock guard(&registry.m_lock, true);
    ++registry.m_deferDepth;
}

bool CRegistry::DeferredSave::End() {
    if (!m_registry)
        return true;
    CRegistry& registry = *m_registry;
    m_registry = nullptr;
    CSingleLock guard(&registry.m_lock, true);
    if (--registry.m_deferDepth > 0 || registry.m_pending.empty())
        return true;
    registry.Refresh();
    return registry.SaveOrForget();
}

bool CRegistry::ValidNames(const CString& section, const CString& key) {
    if (IsStorableSection(section) && IsStorableKey(key))
        return true;
    Fail(CString::Formatted(u"Cannot store the option \"%s\" of section \"%s\": the name is not "
                            u"allowed in the options file \"%s\"",
                            key, section, m_userFile));
    return false;
}

bool CRegistry::Save() {
    const std::string path = ResolvedPath(m_userFile.ToUtf8());
    const std::string folder = path.substr(0, path.rfind('/') + 1);
    auto failWith = [this](int error) {
        Fail(CString::Formatted(u"Cannot write the options file \"%s\": %s", m_userFile,
                                ErrnoText(error)));
        return false;
    };
    if (!folder.empty() && g_mkdir_with_parents(folder.c_str(), 0700) != 0)
        return failWith(errno);
    std::string temporary = path + ".XXXXXX";
    const int fd = ::mkstemp(temporary.data());
    if (fd < 0)
        return failWith(errno);
    const bool written = WriteAll(fd, m_keys->ToData()) && ::fsync(fd) == 0;
    const int writeError = errno;
    const bool closed = ::close(fd) == 0;
    if (!written || !closed) {
        ::unlink(temporary.c_str());
        return failWith(written ? errno : writeError);
    }
    if ((m_unreadable && !KeepUnreadableFile()) || ::rename(temporary.c_str(), path.c_str()) != 0) {
        const int error = errno;
        ::unlink(temporary.c_str());
        return failWith(error);
    }
    m_unreadable = false;
    m_loadedStamp = StampOf(m_userFile);
    return true;
}

bool CRegistry::KeepUnreadableFile() {
    const std::string path = ResolvedPath(m_userFile.ToUtf8());
    return ::rename(path.c_str(), (path + ".bad").c_str()) == 0 || errno == ENOENT;
}

void CRegistry::Fail(const CString& message) {
    m_lastError = message;
}

} // namespace keel
