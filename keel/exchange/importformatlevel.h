#pragma once

#include "keel/exchange/importattribute.h"
#include "keel/platform/cstring.h"
#include "keel/values/anyvalue.h"
#include "keel/values/stringunique.h"

#include <cstdint>
#include <functional>
#include <memory>

namespace keel {

class QImportable;
class QNewLevelImportable;

// One level of an import file: the object it stands for asks it for attributes by name and
// offers it children; what nobody takes is reported as unmatched at the end. The root level
// stands for the importing object, which need not have a level of its own. Every report made
// under one root is counted there, so that the import can say whether it went without errors.
class QImportFormatLevel {
public:
    using UnmatchedAttributeCallback =
        std::function<bool(const CString& name, const QAnyValue& value, FormulaText formula)>;

    // A root level.
    explicit QImportFormatLevel(QImportable& importable);
    // A level under `parent`, reporting to the same root.
    QImportFormatLevel(QImportable& importable, QImportFormatLevel& parent);
    virtual ~QImportFormatLevel() = default;
    QImportFormatLevel(const QImportFormatLevel&) = delete;
    QImportFormatLevel& operator=(const QImportFormatLevel&) = delete;

    // Reads the child from this level or from its own part of the file; a recalculation of a
    // formula tree waits for the end.
    virtual bool MergeImportableIfPresent(QImportable* child);
    // An attribute that the file does not hold is no error.
    virtual bool ImportAttributeIfPresent(const QImportAttribute& attribute);
    // Hands each attribute that nobody took to the callback, in file order.
    virtual bool ImportUnmatchedAttributes(const UnmatchedAttributeCallback& callback) = 0;
    virtual std::unique_ptr<QImportFormatLevel> CreateSubLevel(QNewLevelImportable& child) = 0;
    virtual bool HasAnythingToImport() = 0;
    virtual bool ImportAttributeIfPresentInternal(const QImportAttribute& attribute) = 0;
    // Whether the file has a child of the importable's kind that nobody took yet; its level name
    // and identifier are given back.
    virtual bool MatchesRequiredImportable(QNewLevelImportable* importable, CString& levelName,
                                           CString& identifier) = 0;
    virtual bool HasUnmatchedContents() const = 0;
    virtual CString UnmatchedContentDetails() const = 0;
    virtual bool DoImportableImport(QImportable* child);

    // Reports what is left in this level; true when there was nothing.
    bool ReportUnmatchedContents() const;

    void SetArrayMode(bool arrayMode, std::int32_t index = 0) {
        m_arrayMode = arrayMode;
        m_arrayIndex = index;
    }
    QImportable& Importable() const { return m_importable; }
    // The object as one with a level of its own; nullptr for a root that has none.
    QNewLevelImportable* NewLevelImportable() const;
    // The reports made under this level's root so far.
    int ReportCount() const { return *m_reportCount; }

protected:
    // Reports under the title "Import error" and counts the report.
    void ReportImportError(const CString& message) const;

private:
    QImportable& m_importable;
    bool m_arrayMode = false;
    std::int32_t m_arrayIndex = 0;
    std::shared_ptr<int> m_reportCount;
};

} // namespace keel
