#pragma once

#include "keel/document/doc.h"
#include "keel/geometry/pagedoc.h"

namespace keel {

// A document of items drawn on a page: the document's header (magic and schema) comes first in
// its stream, then the page header, then the items. The page header is read with the schema the
// document header set.
class QPageDocument : public QDoc, public QPageDoc {
public:
    QPageDocument() = default;

    void SerializeHeader(CArchive& archive) override;
};

} // namespace keel
