#pragma once

#include "keel/values/tablehandle.h"

namespace keel {

// How table values reach lookup tables: by name through a QLookupTable, or new and nameless for
// a table that an archive holds.
class QLookupTableSource : public QTableHandleSource {
public:
    QTableHandlePtr Open(const CString& name, bool reportErrors, CString& error) override;
    QTableHandlePtr CreateEmpty() override;
    void ReloadAll() override;
    // In "TableBasedOn.zip" of the table folder.
    bool ExistsInArchive(const CString& path) override;

    // Installs the process's one source; returns the source it replaces.
    static QTableHandleSource* Install();
};

} // namespace keel
