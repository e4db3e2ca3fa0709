#pragma once

#include "keel/platform/cstring.h"

namespace keel {

// The process's current folder.
class QCurrentDirectory {
public:
    QCurrentDirectory() = delete;

    // With its trailing "/"; empty when the system cannot tell (the folder was deleted).
    static CString Get();
    // The folder is taken as it is, not repaired. False when it cannot be entered; the current
    // folder then stays.
    static bool Set(const CString& folder);
};

// Enters a folder for the life of the object and goes back to the former current folder at its
// end. When the folder cannot be entered the current folder stays, and IsEntered says so.
class QSaveAndRestoreCurrentDirectory {
public:
    explicit QSaveAndRestoreCurrentDirectory(const CString& folder);
    ~QSaveAndRestoreCurrentDirectory();
    QSaveAndRestoreCurrentDirectory(const QSaveAndRestoreCurrentDirectory&) = delete;
    QSaveAndRestoreCurrentDirectory& operator=(const QSaveAndRestoreCurrentDirectory&) = delete;

    bool IsEntered() const { return m_entered; }
    const CString& SavedFolder() const { return m_saved; }

private:
    CString m_saved;
    bool m_entered;
};

} // namespace keel
