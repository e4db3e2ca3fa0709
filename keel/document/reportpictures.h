#pragma once

#include "keel/platform/cstring.h"

#include <set>
#include <string>

namespace keel {

class QAdo;

// Writes the pictures that a report needs into the report database, through a record set whose
// open table takes them (QAdo::AddNewPicture). A PNG picture with a side longer than the limit is
// reduced, keeping its proportions, to fit a square of that many pixels: large pictures make a
// report slow to run. The first reduction of each type of picture warns, once for the report.
// Pictures of other formats are written as they are.
class QReportPictures {
public:
    static constexpr int c_defaultMaxPixels = 1024;

    QReportPictures(QAdo& ado, const CString& reportPath, int maxPixels = c_defaultMaxPixels);

    // Adds the picture file under `id`; `type` names its kind in the warning ("Plan"). False,
    // with the reason reported, when the picture could not be reduced or the database refused it.
    bool Add(const CString& id, const CString& type, const CString& picturePath);

    int MaxPixels() const { return m_maxPixels; }

private:
    void WarnOfReduction(const CString& type, int beforePx);

    QAdo& m_ado;
    CString m_reportPath;
    int m_maxPixels;
    std::set<std::u16string> m_warnedTypes;
};

} // namespace keel
