#include "keel/system/currentdirectory.h"

#include <filesystem>
#include <system_error>

namespace keel {

CString QCurrentDirectory::Get() {
    std::error_code error;
    const std::filesystem::path current = std::filesystem::current_path(error);
    if (error)
        return CString();
    CString folder = CString::FromUtf8(current.string());
    if (folder.IsEmpty() || folder[folder.GetLength() - 1] != u'/')
        folder += u'/';
    return folder;
}

bool QCurrentDirectory::Set(const CString& folder) {
    if (folder.IsEmpty())
        return false;
    std::error_code error;
    std::filesystem::current_path(std::filesystem::path(folder.ToUtf8()), error);
    return !error;
}

QSaveAndRestoreCurrentDirectory::QSaveAndRestoreCurrentDirectory(const CString& folder)
    : m_saved(QCurrentDirectory::Get()), m_entered(QCurrentDirectory::Set(folder)) {}

QSaveAndRestoreCurrentDirectory::~QSaveAndRestoreCurrentDirectory() {
    if (m_entered)
        QCurrentDirectory::Set(m_saved);
}

} // namespace keel
