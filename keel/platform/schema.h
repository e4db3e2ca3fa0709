#pragma once

#include "keel/platform/archive.h"

namespace keel {

// The rules on document schema versions. Each application fixes at start-up the version it
// writes and the newest one it can no longer open; the version in force while reading lives in
// the archive's object schema field. Every comparison takes a version of -1 to mean the default.
class QSchema {
public:
    QSchema() = delete;

    static int DefaultVersion() { return c_default_schema; }
    static void SetDefaultSchema(int version) { c_default_schema = version; }
    static int UnsupportedVersion() { return c_UnsupportedVersion; }
    static void SetUnsupportedSchema(int version) { c_UnsupportedVersion = version; }

    // The archive's schema; a negative one (none set) is replaced by the default, which is then
    // stored back in the archive.
    static int Version(CArchive& archive);

    static bool IsVersion(CArchive& archive, int version) {
        return Version(archive) == Resolve(version);
    }
    static bool IsUptoVersion(CArchive& archive, int version) {
        return Version(archive) <= Resolve(version);
    }
    static bool IsAtLeastVersion(CArchive& archive, int version) {
        return Version(archive) >= Resolve(version);
    }
    static bool IsBeforeVersion(CArchive& archive, int version) {
        return Version(archive) < Resolve(version);
    }
    static bool IsAfterVersion(CArchive& archive, int version) {
        return Version(archive) > Resolve(version);
    }

    static void SetSchemaDirect(CArchive& archive, int version) {
        archive.SetObjectSchema(static_cast<unsigned>(version));
    }
    static void SetSchemaDefault(CArchive& archive) { SetSchemaDirect(archive, c_default_schema); }

private:
    static int Resolve(int version) { return version == -1 ? c_default_schema : version; }

    static inline int c_default_schema = -1;
    static inline int c_UnsupportedVersion = -1;
};

} // namespace keel
