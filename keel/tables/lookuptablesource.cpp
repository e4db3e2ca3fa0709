#include "keel/tables/lookuptablesource.h"

#include "keel/document/errorlog.h"
#include "keel/tables/lookuptable.h"
#include "keel/tables/tablebasedon.h"

namespace keel {

namespace {

// Silences the tables' reports for a scope when the caller wants none.
class QuietReports {
public:
    explicit QuietReports(bool quiet) : m_saved(NoEvalReportErrors()) {
        if (quiet)
            SetNoEvalReportErrors(true);
    }
    ~QuietReports() { SetNoEvalReportErrors(m_saved); }
    QuietReports(const QuietReports&) = delete;
    QuietReports& operator=(const QuietReports&) = delete;

private:
    bool m_saved;
};

} // namespace

QTableHandlePtr QLookupTableSource::Open(const CString& name, bool reportErrors, CString& error) {
    QuietReports quiet(!reportErrors);
    QLookupTable table;
    if (table.SetName(name))
        return table.AsHandle();
    error = table.LastError();
    if (error.IsEmpty())
        error = u"Cannot open lookup table " + name;
    return QTableHandlePtr();
}

QTableHandlePtr QLookupTableSource::CreateEmpty() {
    return QTableHandlePtr(new QLookupTableData);
}

void QLookupTableSource::ReloadAll() {
    QLookupTableData::CleanupCache();
    QLookupTableData::SetAllReloadRequired();
}

bool QLookupTableSource::ExistsInArchive(const CString& path) {
    return QTableBasedOn::FileExistsInZip(path);
}

QTableHandleSource* QLookupTableSource::Install() {
    static QLookupTableSource source;
    return SetTableHandleSource(&source);
}

} // namespace keel
