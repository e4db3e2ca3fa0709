#pragma once

#include "keel/exchange/exportselection.h"
#include "keel/platform/cstring.h"
#include "keel/values/smartptr.h"

namespace keel {

class CStdioFileEx;
class QExportFormatLevel;
class QImportFormatLevel;
class QNewLevelExportable;
class QNewLevelImportable;

// The value or formula that tells a merge to remove what is in the target.
inline constexpr char16_t c_DeleteMeMarker[] = u":DeleteMe:";

// The kinds of export file: the last one written is what the prompts offer first.
enum QExportType { QExportTypeASCII = 0, QExportTypeXML = 1 };

// An object that can be written to an export file.
class QExportable {
public:
    virtual ~QExportable() = default;

    // Adds each attribute and each child to the level; true when all of them went well.
    virtual bool AddAttributesAndChildrenToExport(QExportFormatLevel& level) const = 0;
    // This object as one that opens a level of its own, or nullptr.
    virtual const QNewLevelExportable* GetNewLevelExportable() const;
    // Writes this object to `path`, a .tab or .xml file, limited to the selection when there is
    // one; with `openAfterwards` the file is then opened in its application. The failures are
    // reported, and false returned.
    virtual bool ExportData(const CString& path, bool minimal, bool openAfterwards,
                            QSmartPtr<QExportSelection> selection) const;

    // Asks for a file and exports to it; false when nothing was chosen or the export failed.
    bool ExportPrompt(bool minimal, QSmartPtr<QExportSelection> selection) const;

    static QExportType LastExportType() { return c_LastExportType; }

protected:
    static QExportType c_LastExportType;
};

// An object that can be read from an export file.
class QImportable {
public:
    virtual ~QImportable() = default;

    // Asks the level for each attribute and offers each child; true when all of it went well.
    virtual bool ImportAttributesAndChildren(QImportFormatLevel& level) = 0;
    // Prepares a child that this object made for content of the file that it did not have.
    virtual bool SetupNewChildImportable(QNewLevelImportable* child, const CString& levelName,
                                         const CString& identifier);
    virtual QNewLevelImportable* GetNewLevelImportable();
    // Reads `path` into this object: emptied first unless `merge`, and only the selected
    // children when there is a selection. The outcome is reported; true when nothing failed.
    virtual bool ImportOrMergeFrom(const CString& path, bool merge,
                                   QSmartPtr<QExportSelection> selection);
    // Empties the object, or the selected children of it, before an import. The base has
    // nothing to empty.
    virtual bool DeleteContentsPreImport(QSmartPtr<QExportSelection> selection);

    bool ImportPrompt();
    bool MergePrompt();
    // Asks for a file unless `path` names one, then imports or merges it.
    bool ImportOrMergePrompt(bool merge, const CString& path);
};

// An object that writes a level of its own, named and identified, rather than into its
// parent's.
class QNewLevelExportable : public virtual QExportable {
public:
    const QNewLevelExportable* GetNewLevelExportable() const override { return this; }
    virtual CString GetExportableIdentifier() const = 0;
    virtual CString GetExportLevelName() const = 0;
    // Bit 1 puts the level name into a .tab context, bit 2 the identifier.
    virtual int GetExportAsciiContextStyle() const = 0;
    // 0 writes attributes as XML attributes of the level's element, 1 as child elements.
    virtual int GetExportXMLAttributeStyle() const = 0;
};

class QNewLevelImportable : public virtual QImportable {
public:
    QNewLevelImportable* GetNewLevelImportable() override { return this; }
    virtual CString GetImportableIdentifier() const = 0;
    virtual CString GetImportLevelName() const = 0;
    virtual int GetImportAsciiContextStyle() const = 0;
    virtual int GetImportXMLAttributeStyle() const = 0;
};

// Both directions, for an object that writes into the level of its owner.
class QImportableExportable : public virtual QImportable, public virtual QExportable {
public:
    // Stops following the external editors of this object and removes their files.
    ~QImportableExportable() override;

    // Writes the object, or its selected children, to a temporary file, opens it with the
    // desktop's editor and merges it back each time it is saved (see
    // ProcessUpdatesFromExternalEditors). False when no editor could be started.
    bool EditUsingExternalEditor(QSmartPtr<QExportSelection> selection);
};

// One object being edited outside: its temporary file and the time it was last written.
class QExportEditorInstance {
public:
    QExportEditorInstance(QImportableExportable& object, const CString& path, long process,
                          QSmartPtr<QExportSelection> selection);
    ~QExportEditorInstance();
    QExportEditorInstance(const QExportEditorInstance&) = delete;
    QExportEditorInstance& operator=(const QExportEditorInstance&) = delete;

    // Merges the file back when it was written since last time; false once the editor has
    // ended, when the instance is done with.
    bool ProcessUpdates();
    const CString& Path() const { return m_path; }
    const QImportableExportable* Object() const { return &m_object; }

private:
    bool WasWrittenSinceLastTime();

    QImportableExportable& m_object;
    CString m_path;
    long m_process;
    QSmartPtr<QExportSelection> m_selection;
    long long m_lastWriteTime;
};

// Called when the application is idle: each file edited outside that was saved is merged back,
// and the instances whose editor has ended are dropped with their files.
void ProcessUpdatesFromExternalEditors();
// How many objects are being edited outside.
int ExternalEditorCount();

// Both directions for an object with a level of its own, described once.
class QNewLevelImportableExportable : public virtual QImportableExportable,
                                      public virtual QNewLevelImportable,
                                      public QNewLevelExportable {
public:
    virtual CString GetImportExportLevelName() const = 0;
    virtual CString GetImportableExportableIdentifier() const { return CString(); }
    virtual int GetAsciiContextStyle() const { return 0; }
    virtual int GetXMLAttributeStyle() const { return 0; }

    CString GetExportableIdentifier() const override { return GetImportableExportableIdentifier(); }
    CString GetExportLevelName() const override { return GetImportExportLevelName(); }
    int GetExportAsciiContextStyle() const override { return GetAsciiContextStyle(); }
    int GetExportXMLAttributeStyle() const override { return GetXMLAttributeStyle(); }
    CString GetImportableIdentifier() const override { return GetImportableExportableIdentifier(); }
    CString GetImportLevelName() const override { return GetImportExportLevelName(); }
    int GetImportAsciiContextStyle() const override { return GetAsciiContextStyle(); }
    int GetImportXMLAttributeStyle() const override { return GetXMLAttributeStyle(); }
};

// A whole export file: the root level and the means to write it.
class QExportFormat {
public:
    virtual ~QExportFormat() = default;
    virtual bool WriteToFile(CStdioFileEx& file) = 0;
};

// A whole import file: the root level and the means to read it into its object.
class QImportFormat {
public:
    virtual ~QImportFormat() = default;
    // True when the object took everything without an error or an unmatched report.
    virtual bool ImportToImportable() = 0;
};

} // namespace keel
