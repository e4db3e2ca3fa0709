#include "keel/tables/tablebasedon.h"

#include "keel/formula/evaluatorfactory.h"
#include "keel/platform/file.h"
#include "keel/system/fsfile.h"
#include "keel/system/pathop.h"
#include "keel/values/map.h"

#include <memory>
#include <mutex>
#include <string>
#include <zip.h>

namespace keel {

// --- The archive ---------------------------------------------------------------------------------

VZLib::~VZLib() {
    Close();
}

bool VZLib::Open(const CString& path) {
    Close();
    int error = 0;
    m_archive = zip_open(path.ToUtf8().c_str(), ZIP_RDONLY, &error);
    if (!m_archive)
        return false;
    m_strPath = path;
    return true;
}

void VZLib::Close() {
    if (m_archive)
        zip_discard(m_archive);
    m_archive = nullptr;
    m_strPath.Empty();
}

QArray<CString> VZLib::MemberNames() const {
    QArray<CString> names;
    if (!m_archive)
        return names;
    const zip_int64_t count = zip_get_num_entries(m_archive, 0);
    for (zip_int64_t i = 0; i < count; ++i) {
        const char* name = zip_get_name(m_archive, static_cast<zip_uint64_t>(i), ZIP_FL_ENC_GUESS);
        if (!name)
            continue;
        const std::string text(name);
        if (!text.empty() && text.back() != '/')
            names.Add(CString::FromUtf8(text));
    }
    return names;
}

bool VZLib::Extract(const CString& memberName, CFile& file) const {
    if (!m_archive)
        return false;
    const zip_int64_t index =
        zip_name_locate(m_archive, memberName.ToUtf8().c_str(), ZIP_FL_NOCASE | ZIP_FL_ENC_GUESS);
    zip_stat_t stat;
    if (index < 0 || zip_stat_index(m_archive, static_cast<zip_uint64_t>(index), 0, &stat) != 0)
        return false;
    zip_file_t* member = zip_fopen_index(m_archive, static_cast<zip_uint64_t>(index), 0);
    if (!member)
        return false;
    char buffer[16384];
    zip_uint64_t total = 0;
    bool good = true;
    try {
        for (;;) {
            const zip_int64_t read = zip_fread(member, buffer, sizeof buffer);
            if (read < 0) {
                good = false;
                break;
            }
            if (read == 0)
                break;
            file.Write(buffer, static_cast<unsigned>(read));
            total += static_cast<zip_uint64_t>(read);
        }
    } catch (const CFileException&) {
        good = false;
    }
    zip_fclose(member);
    return good && ((stat.valid & ZIP_STAT_SIZE) == 0 || total == stat.size);
}

// --- The tables of the table folder --------------------------------------------------------------

namespace {

// The archive and its member names belong to one table folder; a change of folder drops both.
struct BasedOnState {
    std::recursive_mutex mutex;
    std::unique_ptr<VZLib> archive;
    CString archiveFolder;
    bool namesGathered = false;
    // Lower-cased member name to the name as the archive spells it.
    QMap<CString, CString> names;

    void Forget() {
        archive.reset();
        archiveFolder.Empty();
        names.RemoveAll();
        namesGathered = false;
    }
};

BasedOnState& TheState() {
    static BasedOnState state;
    return state;
}

CString TableFolder() {
    const QEvaluatorFactory* factory = GetEvaluatorFactory();
    return factory ? factory->FolderForConstant(QConstantFolder::Table) : CString();
}

CString Lowered(const CString& text) {
    CString lower(text);
    lower.MakeLower();
    return lower;
}

} // namespace

VZLib* QTableBasedOn::TableBasedOnZip() {
    BasedOnState& state = TheState();
    std::lock_guard<std::recursive_mutex> lock(state.mutex);
    const CString folder = TableFolder();
    if (state.archive && state.archiveFolder == folder)
        return state.archive.get();
    state.Forget();
    if (folder.IsEmpty())
        return nullptr;
    const CString path = QPathOp::FolderPlusPath(folder, u"TableBasedOn.zip");
    if (!QFSFile::Exists(path, true, false))
        return nullptr;
    auto archive = std::make_unique<VZLib>();
    if (!archive->Open(path))
        return nullptr;
    state.archive = std::move(archive);
    state.archiveFolder = folder;
    return state.archive.get();
}

CString QTableBasedOn::FileNameInBasedOnZip(const CString& fullName) {
    return QPathOp::RemoveLeadingFolderFromPath(fullName, TableFolder());
}

bool QTableBasedOn::FileExistsInZip(const CString& fullName) {
    if (!QPathOp::MatchLeadingFolderFromPath(fullName, TableFolder()))
        return false;
    BasedOnState& state = TheState();
    std::lock_guard<std::recursive_mutex> lock(state.mutex);
    VZLib* archive = TableBasedOnZip();
    if (!archive)
        return false;
    if (!state.namesGathered) {
        DoForEachFileInZip(archive,
                           [&state](const CString& name) { state.names[Lowered(name)] = name; });
        state.namesGathered = true;
    }
    return state.names.PLookup(Lowered(FileNameInBasedOnZip(fullName))) != nullptr;
}

void QTableBasedOn::DoForEachFileInZip(const FileFunction& function) {
    DoForEachFileInZip(TableBasedOnZip(), function);
}

void QTableBasedOn::DoForEachFileInZip(VZLib* archive, const FileFunction& function) {
    if (!archive)
        return;
    for (const CString& name : archive->MemberNames())
        function(name);
}

void QTableBasedOn::Reset() {
    BasedOnState& state = TheState();
    std::lock_guard<std::recursive_mutex> lock(state.mutex);
    state.Forget();
}

} // namespace keel
