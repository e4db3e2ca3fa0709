#pragma once

#include "keel/platform/cstring.h"
#include "keel/values/array.h"
#include "keel/values/smartptr.h"

namespace keel {

// The identifiers of the children that an export or import is limited to; shared by smart
// pointer. No selection at all means everything.
class QExportSelection : public QSmartTarget, public QArray<CString> {
public:
    QExportSelection() = default;
    QExportSelection(std::initializer_list<CString> identifiers) {
        for (const CString& identifier : identifiers)
            Add(identifier);
    }

    // Compared with case.
    bool Contains(const CString& identifier) const {
        for (const CString& entry : *this) {
            if (entry.Compare(identifier) == 0)
                return true;
        }
        return false;
    }
};

} // namespace keel
