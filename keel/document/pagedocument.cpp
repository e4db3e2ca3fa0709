#include "keel/document/pagedocument.h"

namespace keel {

void QPageDocument::SerializeHeader(CArchive& archive) {
    QDoc::SerializeHeader(archive);
    QPageDoc::SerializeHeader(archive);
}

} // namespace keel
