#pragma once

#include "keel/document/commandline.h"
#include "keel/document/usertrace.h"
#include "keel/formula/evaluatorfactory.h"
#include "keel/platform/cstring.h"
#include "keel/platform/lock.h"
#include "keel/system/folders.h"
#include "keel/values/array.h"

#include <functional>
#include <map>

namespace keel {

// The elements of the option read cache: where a value lives and the value read from there.
struct RegIntCacheElement {
    CString m_strSection;
    CString m_strKey;
    int m_nValue = 0;
};

struct RegStringCacheElement {
    CString m_strSection;
    CString m_strKey;
    CString m_strValue;
};

// A string of the machine-wide options, which the user's own options cannot override.
struct RegHKLMStringCacheElement {
    CString m_strSection;
    CString m_strKey;
    CString m_strValue;
};

// The nine folders of the file locations page. Each is stored as a string under the section
// "Options", keyed by the first word of its name: "Data", "Library", ..., "Backup", "Program".
enum class QFileLocation {
    Data,
    Library,
    Table,
    Picture,
    Report,
    ToolData,
    Template,
    Backup,
    Program
};

// A change of a progress display, as a progress callback sees it.
struct QProgressEvent {
    enum class Kind { Create, Step, Text, Destroy };
    Kind kind = Kind::Create;
    int handle = -1;
    CString text;
    int low = 0;
    int high = 0;
    int position = 0;
    bool cancellable = false;
    bool redraw = false;
};

// Shows a change of progress. For a cancellable display, returning false asks to cancel it.
using QProgressCallback = std::function<bool(const QProgressEvent&)>;

// Options whose owners come with later parts of the library. Each keeps the name and start value
// its owner will give it, inside a struct named after that owner, so that moving it is a rename.
// LoadOptions fills them from the options store.
struct QOptions {
    struct Spec3D {
        static inline int c_contrast = 50;
        static inline int c_brightness = 75;
        static inline bool c_bEnableBackgroundLighting = true;
        // A product that examines one object sets this before LoadOptions.
        static inline bool c_bObject3DExaminationMode = false;
    };
    struct GL {
        static inline bool c_UseOpenGLExt = true;
        static inline bool c_UseOpenGLExt2 = true;
    };
    struct Exportable {
        static inline int c_LastExportType = 0;
    };
    struct PropertyInspector {
        static inline bool c_bFadeWhenInactive = true;
    };
    struct PageDoc {
        static inline bool c_bPostscriptPrinterCheck = true;
    };
    struct Reports {
        static inline bool c_bRepUseDef = false;
    };
    struct EditControls {
        static inline bool c_bAllowAutoComplete = false;
    };
    struct AboutBox {
        static inline CString c_strCompanyEmail;
        static inline CString c_strCompanyWWW;
    };
    // The checks of values read.
    static inline bool g_bAlwaysCheckOnRead = false;
    static inline bool g_bCheckValueTypes = false;
    static inline bool g_bPromptForValues = false;
};

// The application object: one a process, alive for the whole run. A product derives from it and
// fills in the virtual hooks. It holds the options with their read cache, the folders, the
// progress service and the parsed command line. While it is the application it is installed as
// the services of the layers below it (QAppServices, with the evaluator factory of the formula
// layer); the formula hook of the values layer and the source of lookup tables are installed too.
class QWinApp : public QEvaluatorFactory {
public:
    // The first application object constructed is the application, and the services, until it
    // is destroyed.
    QWinApp();
    ~QWinApp() override;
    QWinApp(const QWinApp&) = delete;
    QWinApp& operator=(const QWinApp&) = delete;

    // The live application object, or nullptr.
    static QWinApp* GetApp();

    // The evaluator of the product's own class; a plain one unless a product says otherwise.
    QEvaluator* NewQEvaluator(QAnyValue& result, FormulaText formula, QFormulaContext* context,
                              bool passThrough, bool reportErrors, bool isAction) override;
    // The folders that the formula constants name, from the file locations and the documents
    // folders.
    CString FolderForConstant(QConstantFolder folder) const override;
    // Read from the store, past the cache.
    int ProfileInt(const CString& section, const CString& key, int defaultValue) const override;
    bool ShowsMergingMessages() const override { return c_bMergingMessages; }
    bool IsApplication() const override { return true; }
    // QDoc::TheActiveDocument.
    QDoc* ActiveDocument() const override;
    // The shared connections of the database files (QADOConnection::MakeShared).
    QFormulaDatabase* Database() override;

    // The name of the options file and of the application in messages.
    CString AppName() const override;

    // --- Start-up --------------------------------------------------------------------------
    //
    // InitInstance runs once, in this order: PreProcessShellCommand, then the parsed command line
    // (ParsedCommandLineInfoPtr) makes a start by embedding or automation a server start;
    // DoSetupOfRegistryKey; the show command (a server shows nothing, the maximized flag makes
    // a normal show maximized, and the commands hide, minimize (2, 6, 7) and 0 drop the splash);
    // CreateSplash when the command line allows it; MostRecentFile, then LoadResources, whose
    // false stops start-up; LoadOptions and InitRegistryOptionsCache; AddDocTemplate, whose false
    // takes the splash down and stops start-up; unless a server start, OnFileNew and
    // InitInstanceStep2, whose false stops start-up; the help file's old extension ".hlp"
    // becomes ".chm"; start-up is marked complete. Returns false when start-up stopped.
    virtual bool InitInstance();
    // ProcessShellCommand with the parsed command line; a failure is traced (plain lines) and
    // ends with false. Then, with the show command -1 unless a file is to be opened,
    // InitInstanceFinish; when it succeeds the application is started and the auto-save timer
    // restarts with the stored interval.
    virtual bool InitInstanceStep2();
    bool IsStartupComplete() const { return m_bStartupComplete; }
    // The started flag: set at the end of InitInstanceStep2.
    bool IsStarted() const { return m_bStarted; }

    // The hooks of start-up, for a product to fill in.
    // Before the command line is taken.
    virtual void PreProcessShellCommand() {}
    // Names the options store; the store is named after AppName unless a product says otherwise.
    virtual void DoSetupOfRegistryKey() {}
    // The program's file name without folder and extension ("keel").
    virtual CString GetExeName() const;
    // GetExeName, a space and the product version string ("keel 0.1.0").
    virtual CString GetExeNameAndVer() const;
    // The name under which the application is started embedded; AppName by default.
    virtual CString GetEmbedName() const { return AppName(); }
    // The most recent file of the recent file list ("Recent File List", "File1"), kept as
    // MostRecentFileName() at start-up.
    virtual CString MostRecentFile() const;
    // Loads what the product needs before the options; false stops start-up.
    virtual bool LoadResources() { return true; }
    // Loads the document templates and makes the main frame; false stops start-up. Without
    // windows there are no templates yet.
    virtual bool AddDocTemplate() { return true; }
    // A new document at start-up; there are no documents yet.
    virtual void OnFileNew() {}
    // Opens what the command line asks for. Without documents there is nothing to open, so a
    // file to open fails.
    virtual bool ProcessShellCommand(QCommandLineInfo& info);
    // The last step of start-up; false leaves the application not started.
    virtual bool InitInstanceFinish() { return true; }
    // The splash screen; without windows there is none to show or take down.
    virtual void CreateSplash() {}
    virtual void KillSplash() {}

    // The show command of the main window: 1 normal, 3 maximized, 0 hidden, -1 while start-up
    // finishes without a file to open.
    int ShowCommand() const { return m_nCmdShow; }
    void SetShowCommand(int command) { m_nCmdShow = command; }
    CString HelpFilePath() const { return m_strHelpFilePath; }
    void SetHelpFilePath(const CString& path) { m_strHelpFilePath = path; }
    CString MostRecentFileName() const { return m_strMostRecentFile; }

    bool IsServer() const override { return m_bServer; }
    void SetServer(bool server) { m_bServer = server; }
    bool IsRunningAutomated() const override;
    bool IsClosing() const override { return m_bClosing; }
    // Set by the way out of the application: messages are then shown plainly.
    void SetClosing(bool closing) { m_bClosing = closing; }
    bool IsMaximized() const { return m_bMaximized; }
    void SetMaximized(bool maximized) { m_bMaximized = maximized; }

    // Parses the command line into ParsedCommandLineInfoPtr(); a start by embedding or
    // automation makes the application a server. False when a flag lacks its value.
    bool ParseCommandLine(int argc, const char* const* argv);
    // The parsed command line; a product with flags of its own returns its derived object.
    virtual QCommandLineInfo* ParsedCommandLineInfoPtr() { return &m_commandLineInfo; }

    // Options. LoadOptions copies the options that are not cached into the fields that use them,
    // SaveOptions writes back those that the user can change.
    virtual void LoadOptions();
    // The variant reads its own options ("UseCompareNoCase", "LengthDisplayEps") from the store
    // and takes its Yes and No words from the translations.
    void ConnectValuesToOptions();
    virtual void SaveOptions();

    // The end of the run: the closing hook, then the trace file is closed, the shared database
    // connections are let go and a translation file that gathered new texts is saved. Returns the
    // exit status for the program.
    virtual int ExitInstance();
    // What a product does first when the run ends; nothing by default.
    virtual void OnClosing() {}
    // Reads the options that paint code asks for ("View", "Tip", "Pen" and the first "Options"
    // keys) into the cache, in a fixed order, replacing what the int and string caches held. A
    // product that caches keys of its own adds them after calling this.
    virtual void InitRegistryOptionsCache();
    // The default units of length, area and volume, and the inch display, from the locale and
    // the options.
    void LoadDefaultUnits();
    // The locale's measurement system for LC_MEASUREMENT from the environment: 1 metric,
    // 2 US-style, 0 when it cannot be read.
    virtual int LocaleMeasurement() const;

    // The cached value; a key that is not cached gives `defaultValue`, and the store is not
    // read. Names match without regard to case.
    int GetProfileIntFromCache(const CString& section, const CString& key, int defaultValue) const;
    CString GetProfileStringFromCache(const CString& section, const CString& key,
                                      const CString& defaultValue) const;
    CString GetMachineAppProfileStringFromCache(const CString& section, const CString& key,
                                                const CString& defaultValue) const;
    // Write to the store and update the cached element, when the key is cached; the cached value
    // changes even when the store fails, so the option is in force for this run. Returns
    // whether the store took the value.
    bool WriteProfileIntAndUpdateCache(const CString& section, const CString& key, int value);
    bool WriteProfileStringAndUpdateCache(const CString& section, const CString& key,
                                          const CString& value);
    // Read a key from the store into the cache (or refresh its element) and return the value.
    int CacheProfileInt(const CString& section, const CString& key, int defaultValue);
    CString CacheProfileString(const CString& section, const CString& key,
                               const CString& defaultValue);
    CString CacheMachineAppProfileString(const CString& section, const CString& key,
                                         const CString& defaultValue);
    const QArray<RegIntCacheElement>& RegIntCache() const { return m_regIntCache; }
    const QArray<RegStringCacheElement>& RegStringCache() const { return m_regStringCache; }
    const QArray<RegHKLMStringCacheElement>& RegHKLMStringCache() const {
        return m_regHKLMStringCache;
    }

    // Options in force before any object exists. The trace mask lives with the trace file.
    static inline unsigned& c_UserTraceMask = keel::c_UserTraceMask;
    static bool c_SuppressFileLocations;
    static bool c_SuppressPricing;
    static bool c_SuppressDrawingAnswers;
    static bool c_SuppressComponents;
    static bool c_bMergingMessages;
    static bool c_bMergingPrompts;
    static bool c_bMergingDefault;
    // How merges resolve a difference: 0 ask, 1 overwrite, 2 keep the existing value.
    static int MergingStrategy();

    // Folders; each ends in "/".
    // The folder of the running program, and the program's full path.
    static CString ProgramDir() { return QFolders::ProgramDir(); }
    static CString ProgramPathAndName() { return QFolders::ProgramPathAndName(); }
    // The user's data folder for Keel programs: logs and trace files go here.
    static CString DataDir() { return QFolders::DataDir(); }
    static CString MyDocumentsDir() { return QFolders::MyDocumentsDir(); }
    // MyDocumentsDir with a folder named after the product.
    CString MyDocumentsProductDir() const;
    // The stored folder, or its default: the program's folder for Program, MyDocumentsProductDir
    // for Data, and for the others a folder in it named after the kind ("Library/", "Tables/",
    // "Pictures/", "Reports/", "ToolData/", "Templates/", "Backup/").
    CString FileLocation(QFileLocation location) const;
    bool SetFileLocation(QFileLocation location, const CString& folder);
    // A folder for this run only, ahead of the stored one; nothing is stored. An empty folder
    // takes the override away.
    void OverrideFileLocation(QFileLocation location, const CString& folder);
    // "Data Folder", "Library Folder", ... as the file locations page names them.
    static CString FileLocationName(QFileLocation location);
    static CString FileLocationKey(QFileLocation location);
    CString BackupDir() const { return FileLocation(QFileLocation::Backup); }
    bool SetBackupDir(const CString& folder) {
        return SetFileLocation(QFileLocation::Backup, folder);
    }
    // The folder of the latest open or save dialog in this run; at first the Data folder.
    CString LastOpenSaveDir() const override;
    void SetLastOpenSaveDir(const CString& folder) override { m_strLastOpenSaveDir = folder; }
    static CString GetSpecialFolderLocation(QSpecialFolder folder) {
        return QFolders::SpecialFolderLocation(folder);
    }

    // The version block, from the build unless a product says otherwise.
    CString FileVersion() const override;
    CString ProductVersion() const override;
    virtual CString FileVersionString() const;
    virtual CString ProductVersionString() const;
    CString Comments() const override;
    CString CompanyName() const override;
    CString FileDescription() const override;
    CString InternalName() const override;
    CString LegalCopyright() const override;
    CString LegalTrademarks() const override;
    CString OriginalFilename() const override;
    CString PrivateBuild() const override;
    virtual CString ProductFamily() const;
    CString SpecialBuild() const override;
    CString ProductName() const override;

    // Progress. A display runs from `low` to `high`; ProgressCreate returns its handle, or -1
    // when `high` is not above `low`. Each change goes to the progress callback when one is set,
    // else to the standard error stream, one line a change, when that is a terminal or when
    // SetProgressOnTerminal(true) asked for it. A handle that is not open is ignored.
    int ProgressCreate(const CString& text, int low, int high, bool cancellable) override;
    // Steps by one, up to `high`. False once the display was cancelled.
    bool ProgressStepIt(int handle) override;
    void ProgressSetText(int handle, const CString& text, bool redraw) override;
    // Closes the display, showing `text` last when it is not empty.
    void ProgressDestroy(int handle, const CString& text, bool redraw) override;
    // Asks a cancellable display to stop; the work sees it at its next step.
    void ProgressCancel(int handle);
    bool IsProgressCancelled(int handle) const;
    void SetProgressCallback(QProgressCallback callback);
    void SetProgressOnTerminal(bool always) { m_bProgressOnTerminal = always; }

    virtual bool IsFriendlyPagesOnly() const { return m_bFriendlyPagesOnly; }
    virtual void SetFriendlyPagesOnly(bool friendlyOnly) { m_bFriendlyPagesOnly = friendlyOnly; }
    // Minutes between automatic saves; 0 is off. The timer comes with the desktop front end.
    void SetAutoSaveTime(int minutes) { m_nAutoSaveMinutes = minutes; }
    int AutoSaveTime() const { return m_nAutoSaveMinutes; }
    // Lets waiting window messages through during long work. Without a display there are none.
    void CheckMessages() {}

protected:
    // Tells the user of a problem with the options file; by default through the error log.
    virtual void ReportOptionsProblem(const CString& message);

private:
    struct Progress {
        CString text;
        int low = 0;
        int high = 0;
        int position = 0;
        bool cancellable = false;
        bool cancelled = false;
        int shownPercent = -1;
    };

    // Each problem of the options store is reported once in the life of the application.
    void ReportOptionsProblemOnce();
    // The folder behind a formula constant, ending in "/".
    CString FolderOfConstant(QConstantFolder folder) const;
    // The cached value when the key is cached, otherwise the stored one.
    CString CachedOrStoredString(const CString& section, const CString& key,
                                 const CString& defaultValue) const;
    // Shows one change of an open display: `text` is its text, or the closing text.
    void ShowProgress(int handle, QProgressEvent::Kind kind, const CString& text, bool redraw);
    bool WantsTerminalProgress() const;
    void PrintProgress(Progress& progress, QProgressEvent::Kind kind, const CString& text);

    QArray<RegIntCacheElement> m_regIntCache;
    QArray<RegStringCacheElement> m_regStringCache;
    QArray<RegHKLMStringCacheElement> m_regHKLMStringCache;
    QArray<CString> m_reportedOptionsProblems;
    QCommandLineInfo m_commandLineInfo;

    CString m_strLastOpenSaveDir;
    CString m_locationOverrides[static_cast<int>(QFileLocation::Program) + 1];
    CString m_strHelpFilePath;
    CString m_strMostRecentFile;
    int m_nCmdShow = 1;
    bool m_bStartupComplete = false;
    bool m_bStarted = false;
    bool m_bServer = false;
    bool m_bClosing = false;
    bool m_bMaximized = true;
    bool m_bFriendlyPagesOnly = true;
    int m_nAutoSaveMinutes = 0;

    mutable CCriticalSection m_progressLock;
    std::map<int, Progress> m_progress;
    int m_nextProgressHandle = 1;
    QProgressCallback m_progressCallback;
    bool m_bProgressOnTerminal = false;
};

} // namespace keel
