#include "keel/platform/schema.h"

namespace keel {

int QSchema::Version(CArchive& archive) {
    int version = static_cast<int>(archive.GetObjectSchema());
    if (version < 0)
        version = c_default_schema;
    SetSchemaDirect(archive, version);
    return version;
}

} // namespace keel
