#pragma once

#include "keel/platform/cstring.h"
#include "keel/platform/lock.h"

#include <cstdint>
#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

namespace keel {

// The user's home folder, without a trailing "/": $HOME, or the password database's entry when
// HOME is not set.
CString UserHomeFolder();
// The user's configuration folder, without a trailing "/": $XDG_CONFIG_HOME when it is an
// absolute path, otherwise "~/.config".
CString UserConfigFolder();

// The options store that stands in for the registry: sections and keys as the registry keeps
// them, in an INI file per application, "$XDG_CONFIG_HOME/keel/<AppName>.ini" (or
// "~/.config/keel/<AppName>.ini"). Section and key names are matched without regard to case, as
// the registry matches them. Ints and strings are stored as text, binary values as hex digits.
// A second, read-only file "/etc/xdg/keel/<AppName>.ini" holds the machine-wide strings.
//
// The file is read when first needed and again whenever it changed on disk. A write re-reads
// it, changes the one key, and replaces the file through a temporary file and a rename, so a
// failed write leaves the old file as it was. A file that cannot be read or parsed is treated
// as empty: every read gives its default, and LastError() says what went wrong. When such a
// file is first written over, it is kept beside the new one under the name "<file>.bad".
class CRegistry {
public:
    // A store over the given files; an empty machine file means no machine-wide strings.
    explicit CRegistry(const CString& userFile, const CString& machineFile = CString());
    ~CRegistry();
    CRegistry(const CRegistry&) = delete;
    CRegistry& operator=(const CRegistry&) = delete;

    // The store of the running application, named by the application name source, or of "Keel"
    // when there is no source or it gives an empty name. The files follow the environment as it
    // is at each call.
    static CRegistry& Current();
    // Where Current() takes the application name from; nullptr means "Keel".
    static void SetApplicationNameSource(CString (*source)());
    // Points Current() at this options file instead of the one the application name gives;
    // an empty path restores the default.
    static void SetCurrentFile(const CString& userFile);
    // The folder of the machine-wide files instead of "/etc/xdg/keel/"; empty restores it.
    static void SetMachineFolder(const CString& folder);
    // "$XDG_CONFIG_HOME/keel/<appName>.ini", or under "~/.config" when XDG_CONFIG_HOME is not set
    // to an absolute path.
    static CString UserFileFor(const CString& appName);
    static CString MachineFileFor(const CString& appName);

    int GetProfileInt(const CString& section, const CString& key, int defaultValue);
    CString GetProfileString(const CString& section, const CString& key,
                             const CString& defaultValue);
    // False when the key is missing or is not an even number of hex digits; `data` is then
    // left as it was.
    bool GetProfileBinary(const CString& section, const CString& key,
                          std::vector<std::uint8_t>& data);
    // Each write returns false when the name cannot be stored or the file cannot be written;
    // LastError() then says why.
    bool WriteProfileInt(const CString& section, const CString& key, int value);
    bool WriteProfileString(const CString& section, const CString& key, const CString& value);
    bool WriteProfileBinary(const CString& section, const CString& key,
                            const std::vector<std::uint8_t>& data);
    // A machine-wide string; the default when the file or the key is missing.
    CString GetMachineProfileString(const CString& section, const CString& key,
                                    const CString& defaultValue);

    // The latest failure to read or write the options file; empty while there has been none.
    CString LastError() const;
    CString FilePath() const;
    CString MachineFilePath() const;

    // Holds back the saving of writes while it lives: they are saved together, once, when the
    // outermost guard of the store ends. A write inside it returns true when the name can be
    // stored; End() tells whether the save worked, and LastError() says why not.
    class DeferredSave {
    public:
        explicit DeferredSave(CRegistry& registry);
        ~DeferredSave() { End(); }
        DeferredSave(const DeferredSave&) = delete;
        DeferredSave& operator=(const DeferredSave&) = delete;

        bool End();

    private:
        CRegistry* m_registry;
    };

private:
    struct FileStamp {
        bool exists = false;
        dev_t device = 0;
        ino_t inode = 0;
        off_t size = 0;
        long long modifiedNs = 0;
        friend bool operator==(const FileStamp&, const FileStamp&) = default;
    };
    class KeyFile;
    struct PendingWrite {
        CString section;
        CString key;
        std::string value;
    };

    void Retarget(const CString& userFile, const CString& machineFile);
    static FileStamp StampOf(const CString& path);
    // Brings the in-memory copy up to date with the file, when the file changed, keeping the
    // writes held back.
    void Refresh();
    void Load(const FileStamp& stamp);
    bool WriteValue(const CString& section, const CString& key, const std::string& value);
    bool ValidNames(const CString& section, const CString& key);
    // Saves, or on failure drops the unsaved changes so that memory matches the file again.
    bool SaveOrForget();
    bool Save();
    bool KeepUnreadableFile();
    void Fail(const CString& message);

    mutable CCriticalSection m_lock;
    CString m_userFile;
    CString m_machineFile;
    CString m_lastError;
    FileStamp m_loadedStamp;
    bool m_loaded = false;
    bool m_unreadable = false;
    int m_deferDepth = 0;
    // Writes held back by a DeferredSave, applied again over each reload of the file.
    std::vector<PendingWrite> m_pending;
    std::unique_ptr<KeyFile> m_keys;
};

} // namespace keel
