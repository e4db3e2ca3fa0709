#pragma once

#include "keel/platform/cstring.h"
#include "keel/values/array.h"

#include <ctime>

namespace keel {

// What a look-up found out about a file or folder.
struct QFSFileStatus {
    CString m_strFullName;
    unsigned m_attribute = 0;
    unsigned long long m_size = 0;
    std::time_t m_mtime = 0;
};

// Files on disk, by path. Paths are repaired first (QPathOp), so a name on disk that holds ":"
// or "|" cannot be reached through these classes. A failure returns false and, unless `quiet`,
// is reported to the person (QMessageBoxExceptServer), so that a server logs it and carries on.
// Nothing here throws.
//
// Look-ups are kept in a status cache, so that asking again about the same path costs nothing:
// a change made outside these classes is seen after ClearFileStatusCache. Every change made
// through them empties the cache. The cache serves the main thread and has no lock.
class QFSFile {
public:
    // The attribute bits of the platform the paths come from, as this system gives them:
    // readonly is "the user may not write it", hidden "the name starts with a '.'", system "a
    // device, socket or pipe: neither a regular file nor a folder". There are no volume labels
    // and no archive bit here, so those two are never set.
    enum Attribute : unsigned {
        attrReadOnly = 0x01,
        attrHidden = 0x02,
        attrSystem = 0x04,
        attrVolume = 0x08,
        attrFolder = 0x10,
        attrArchived = 0x20,
    };

    QFSFile() = delete;

    // Whether a file (not a folder) is there.
    static bool Exists(const CString& path, bool quiet = true, bool useCache = true);
    // Whether a file is there that the user may write.
    static bool ExistsAndCanBeWritten(const CString& path, bool quiet);
    // Whether anything is there; `status` describes it when it is.
    static bool GetStatus(const CString& path, QFSFileStatus& status, bool useCache = true);

    // The first folder of the list that holds `name` (which may have folders of its own), the
    // folders in their order; `found` becomes the file's path. A name with a root is looked for
    // where it is.
    static bool ExistsFolderSearch(const CString& name, CString& found,
                                   const QArray<CString>& folders);
    // The same through the trees under the folders: each folder first, then its sub-folders
    // level by level, in the order of their names.
    static bool ExistsTreeSearch(const CString& name, CString& found,
                                 const QArray<CString>& folders);

    static bool Delete(const CString& path, bool quiet);
    // True when the file is not there, or is there and could be deleted.
    static bool DeleteIfExists(const CString& path, bool quiet);
    // Fails when `to` exists: RenameIfExists replaces an old file.
    static bool Rename(const CString& from, const CString& to, bool quiet);
    // True when `from` is not there; otherwise deletes an old `to` and renames.
    static bool RenameIfExists(const CString& from, const CString& to, bool quiet);

    // Puts a file just written in place of `target`, in one rename, so that a reader sees the
    // old file or the new one and never half of either. An old target's mode and owner pass to
    // the new file. False with the reason when it could not be done; the written file is then
    // left for the caller to remove.
    static bool ReplaceWithWritten(const CString& written, const CString& target, CString& reason);
    // The file that a path stands for, symbolic links followed, so that a file written in its
    // place replaces the file and the link stays; the path itself when it cannot be resolved.
    static CString FollowLinks(const CString& path);
    static bool CreateContainingFolderIfRequired(const CString& path);
    // The path, or when a file is there the first free one of "name_1.ext", "name_2.ext", ...
    // in the same folder.
    static CString GetFileUniqueStem(const CString& path);
    // Copies `from` to GetFileUniqueStem(to) and returns that path; empty on failure.
    static CString CopyFileUniqueStem(const CString& from, const CString& to);
    // A path in the folder (the system's folder for temporary files when empty) where nothing
    // is yet; nothing is created.
    static CString GenerateTempPath(const CString& folder);

    static void ClearFileStatusCache();

protected:
    // The test behind the others. `mustExist` 0: the path must not exist; otherwise it must,
    // with the attribute bits of `mustHave` set and those of `mustNotHave` clear. A refusal says
    // exactly why, e.g. "/data/x exists, but is a folder file".
    static bool FileOrFolderTest(const CString& path, bool quiet, int mustExist, unsigned mustHave,
                                 unsigned mustNotHave, bool useCache = true);

    friend class QFSFolder;
};

// Folders on disk, by path. All static; failures as for QFSFile.
class QFSFolder {
public:
    QFSFolder() = delete;

    static bool Exists(const CString& path, bool quiet = true);
    // Makes the folder and those above it as needed; true when it is there afterwards.
    static bool CreateIfRequired(const CString& path);
    // Whether a file can be made in the folder, found by making one and deleting it; a
    // read-only mark on a folder tells nothing on some shares. No test file is left behind.
    static bool ExistsAndCanBeWritten(const CString& path, bool quiet);
    // Deletes what the folder holds whose name matches `pattern` (QPathOp::Match), folders with
    // all they hold; the folder stays. True when all of it went.
    static bool DeleteContents(const CString& path, bool quiet, const CString& pattern = u"*");
    // Deletes the folder with all it holds. A root or an empty path is refused.
    static bool DeleteAll(const CString& path);
};

} // namespace keel
