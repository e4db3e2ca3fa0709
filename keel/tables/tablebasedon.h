#pragma once

#include "keel/platform/cstring.h"
#include "keel/values/array.h"

#include <functional>

struct zip;

namespace keel {

class CFile;

// A zip archive opened for reading. Closed when the object goes.
class VZLib {
public:
    VZLib() = default;
    ~VZLib();
    VZLib(const VZLib&) = delete;
    VZLib& operator=(const VZLib&) = delete;

    // False when the file is missing or is no zip archive.
    bool Open(const CString& path);
    void Close();
    bool IsOpen() const { return m_archive != nullptr; }
    CString Path() const { return m_strPath; }

    // The names of the members, in the archive's order; folders are left out.
    QArray<CString> MemberNames() const;
    // Writes the member's bytes into the open file at its position; false when the member is
    // missing or cannot be read whole.
    bool Extract(const CString& memberName, CFile& file) const;

private:
    zip* m_archive = nullptr;
    CString m_strPath;
};

// The shipped tables of "TableBasedOn.zip" in the table folder, which stand in for table files
// that are missing. Member names are paths relative to the table folder.
class QTableBasedOn {
public:
    QTableBasedOn() = delete;

    using FileFunction = std::function<void(const CString& memberName)>;

    // The archive of the table folder, opened on first use; null when there is none.
    static VZLib* TableBasedOnZip();
    // The member name of a table's full path: the path with the table folder taken off.
    static CString FileNameInBasedOnZip(const CString& fullName);
    static bool FileExistsInZip(const CString& fullName);
    static void DoForEachFileInZip(const FileFunction& function);
    static void DoForEachFileInZip(VZLib* archive, const FileFunction& function);

    // Forgets the archive and the member names, so that the next call looks at the table folder
    // again.
    static void Reset();
};

} // namespace keel
