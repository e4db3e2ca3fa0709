#include "keel/document/winapp.h"

#include "keel/document/ado.h"
#include "keel/document/doc.h"
#include "keel/document/errorlog.h"
#include "keel/document/translate.h"
#include "keel/document/usertrace.h"
#include "keel/formula/evaluator.h"
#include "keel/platform/registry.h"
#include "keel/system/pathop.h"
#include "keel/tables/lookuptable.h"
#include "keel/tables/lookuptablesource.h"
#include "keel/values/anyvalue.h"
#include "keel/values/area.h"
#include "keel/values/length.h"
#include "keel/values/volume.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <langinfo.h>
#include <locale.h>
#include <optional>
#include <string>
#include <unistd.h>

namespace keel {

bool QWinApp::c_SuppressFileLocations = false;
bool QWinApp::c_SuppressPricing = false;
bool QWinApp::c_SuppressDrawingAnswers = false;
bool QWinApp::c_SuppressComponents = false;
bool QWinApp::c_bMergingMessages = false;
bool QWinApp::c_bMergingPrompts = false;
bool QWinApp::c_bMergingDefault = true;

namespace {

#ifdef KEEL_VERSION
constexpr const char16_t* c_buildVersion = u"" KEEL_VERSION;
#else
constexpr const char16_t* c_buildVersion = u"0.1.0";
#endif

constexpr const char16_t* c_options = u"Options";

std::atomic<QWinApp*> c_app{nullptr};

CString RunningAppName() {
    const QWinApp* app = QWinApp::GetApp();
    return app ? app->AppName() : CString();
}

// The options that paint code reads, in the order of the options table.
struct CachedOption {
    const char16_t* section;
    const char16_t* key;
    bool isString;
    int intDefault;
    const char16_t* stringDefault;
};

constexpr CachedOption IntOption(const char16_t* section, const char16_t* key, int defaultValue) {
    return {section, key, false, defaultValue, nullptr};
}

constexpr CachedOption StringOption(const char16_t* section, const char16_t* key,
                                    const char16_t* defaultValue) {
    return {section, key, true, 0, defaultValue};
}

constexpr CachedOption c_cachedOptions[] = {
    IntOption(u"View", u"ShowGrid", 0),
    IntOption(u"View", u"ShowSnap", 0),
    IntOption(u"View", u"SnapGrid", 0),
    IntOption(u"View", u"SnapHandle", 1),
    IntOption(u"View", u"SnapGraphics", 1),
    IntOption(u"View", u"CrossHair", 0),
    IntOption(u"View", u"Units", 1),
    StringOption(u"View", u"Zoom", u""),
    StringOption(u"View", u"GridSize", u""),
    StringOption(u"View", u"SnapSize", u""),
    IntOption(u"Tip", u"Startup", 0),
    IntOption(u"Tip", u"FilePos", 0),
    IntOption(u"Options", u"IconNum", 0),
    IntOption(u"Options", u"IncludeSubfolders", 0),
    IntOption(u"Options", u"UseCompareNoCase", 1),
    IntOption(u"Options", u"PageSizeX", -1),
    IntOption(u"Options", u"PageSizeY", -1),
    IntOption(u"Options", u"PageSizeA4", 0),
    IntOption(u"Options", u"PageSizeAlwaysAuto", 0),
    IntOption(u"Pen", u"MinWidth", 0),
    IntOption(u"Pen", u"MinWidthPrint", 0),
    IntOption(u"Options", u"SuppressGroupBoxDisables", 0),
    IntOption(u"Options", u"MaxDonorOffset", 0),
    IntOption(u"Options", u"ServerMessages", 0),
    IntOption(u"Options", u"ServerStandalone", 0),
    StringOption(u"Options", u"Library", u""),
    StringOption(u"Options", u"ServerSpoolPath", u""),
    StringOption(u"Options", u"ServerURL", u""),
    StringOption(u"Options", u"CrystalDataPath", u"C:\\"),
};

// An option of the section "Options" copied into a static field. Without a fixed default the
// field's present value is the default, so that a product can set it before LoadOptions.
template <class T>
struct FieldOption {
    const char16_t* key;
    T* field;
    std::optional<T> fixedDefault;
    bool userChangeable;
};

const FieldOption<bool> c_boolOptions[] = {
    {u"RepUseDef", &QOptions::Reports::c_bRepUseDef, std::nullopt, true},
    {u"AllowAutoComplete", &QOptions::EditControls::c_bAllowAutoComplete, std::nullopt, true},
    {u"XFileLocations", &QWinApp::c_SuppressFileLocations, false, false},
    {u"XPricing", &QWinApp::c_SuppressPricing, false, false},
    {u"XDrawingAnswers", &QWinApp::c_SuppressDrawingAnswers, false, false},
    {u"XComponents", &QWinApp::c_SuppressComponents, false, false},
    {u"MergingMessages", &QWinApp::c_bMergingMessages, false, true},
    {u"MergingPrompts", &QWinApp::c_bMergingPrompts, false, true},
    {u"MergingDefault", &QWinApp::c_bMergingDefault, true, true},
    {u"EnableBackgroundLighting", &QOptions::Spec3D::c_bEnableBackgroundLighting, std::nullopt,
     true},
    {u"Object3DExaminationMode", &QOptions::Spec3D::c_bObject3DExaminationMode, std::nullopt,
     false},
    {u"UseOpenGLExt", &QOptions::GL::c_UseOpenGLExt, std::nullopt, false},
    {u"UseOpenGLExt2", &QOptions::GL::c_UseOpenGLExt2, std::nullopt, false},
    {u"FadeInactiveProperties", &QOptions::PropertyInspector::c_bFadeWhenInactive, std::nullopt,
     true},
    {u"AlwaysCheckOnRead", &QOptions::g_bAlwaysCheckOnRead, std::nullopt, false},
    {u"CheckValueTypes", &QOptions::g_bCheckValueTypes, std::nullopt, false},
    {u"PromptForValues", &QOptions::g_bPromptForValues, std::nullopt, false},
    {u"PostscriptPrinterCheck", &QOptions::PageDoc::c_bPostscriptPrinterCheck, true, true},
};

const FieldOption<int> c_intOptions[] = {
    {u"Contrast", &QOptions::Spec3D::c_contrast, 50, true},
    {u"Brightness", &QOptions::Spec3D::c_brightness, 75, true},
    {u"TableCacheOverSize", &QLookupTableDataStatics::c_TableCacheOverSize, std::nullopt, false},
    {u"LastExportType", &QOptions::Exportable::c_LastExportType, std::nullopt, true},
};

const FieldOption<CString> c_stringOptions[] = {
    {u"CompanyEmail", &QOptions::AboutBox::c_strCompanyEmail, CString(), false},
    {u"CompanyWWW", &QOptions::AboutBox::c_strCompanyWWW, CString(), false},
};

struct FileLocationInfo {
    const char16_t* name;
    const char16_t* key;
    // Below MyDocumentsProductDir; the Program folder has none.
    const char16_t* defaultSubfolder;
};

constexpr FileLocationInfo c_fileLocations[] = {
    {u"Data Folder", u"Data", u""},
    {u"Library Folder", u"Library", u"Library/"},
    {u"Table Folder", u"Table", u"Tables/"},
    {u"Picture Folder", u"Picture", u"Pictures/"},
    {u"Report Folder", u"Report", u"Reports/"},
    {u"ToolData Folder", u"ToolData", u"ToolData/"},
    {u"Template Folder", u"Template", u"Templates/"},
    {u"Backup Folder", u"Backup", u"Backup/"},
    {u"Program Folder", u"Program", nullptr},
};

const FileLocationInfo& InfoOf(QFileLocation location) {
    return c_fileLocations[static_cast<int>(location)];
}

CString WithTrailingSlash(const CString& folder) {
    if (!folder.IsEmpty() && folder[folder.GetLength() - 1] == u'/')
        return folder;
    return folder + u'/';
}

// "0.1.0" becomes "0.1.0.0": a version block's numeric versions have four parts.
CString FourPartVersion(const CString& version) {
    CString result = version;
    for (int dots =
             static_cast<int>(std::count(version.View().begin(), version.View().end(), u'.'));
         dots < 3; ++dots)
        result += u".0";
    return result;
}

int Percent(long long position, long long low, long long high) {
    return static_cast<int>((position - low) * 100 / (high - low));
}

} // namespace

QWinApp::QWinApp() {
    QWinApp* none = nullptr;
    if (c_app.compare_exchange_strong(none, this)) {
        SetEvaluatorFactory(this);
        QEvaluator::InstallAsFormulaHook();
        QLookupTableSource::Install();
        SetLimitDoubleFailedReporter(&ReportLimitDoubleFailed);
    }
    CRegistry::SetApplicationNameSource(&RunningAppName);
}

QWinApp::~QWinApp() {
    if (GetAppServices() == this)
        SetEvaluatorFactory(nullptr);
    QWinApp* self = this;
    c_app.compare_exchange_strong(self, nullptr);
}

QDoc* QWinApp::ActiveDocument() const {
    return QDoc::TheActiveDocument();
}

bool QWinApp::IsRunningAutomated() const {
    return IsServer() || !UIServices().HasDisplay();
}

QWinApp* QWinApp::GetApp() {
    return c_app.load();
}

QEvaluator* QWinApp::NewQEvaluator(QAnyValue& result, FormulaText formula, QFormulaContext* context,
                                   bool passThrough, bool reportErrors, bool isAction) {
    return new QEvaluator(result, formula, context, passThrough, reportErrors, isAction);
}

CString QWinApp::FolderForConstant(QConstantFolder folder) const {
    return QPathOp::FolderAsFilePath(FolderOfConstant(folder));
}

int QWinApp::ProfileInt(const CString& section, const CString& key, int defaultValue) const {
    return CRegistry::Current().GetProfileInt(section, key, defaultValue);
}

CString QWinApp::FolderOfConstant(QConstantFolder folder) const {
    switch (folder) {
    case QConstantFolder::Program:
        return FileLocation(QFileLocation::Program);
    // Drawings are kept in the Data folder.
    case QConstantFolder::Data:
    case QConstantFolder::Drawing:
        return FileLocation(QFileLocation::Data);
    // The folder among the drawings that the person works in now: where the latest open or
    // save went, which starts at the Data folder.
    case QConstantFolder::DrawingSub:
        return LastOpenSaveDir();
    case QConstantFolder::Report:
        return FileLocation(QFileLocation::Report);
    case QConstantFolder::ToolData:
        return FileLocation(QFileLocation::ToolData);
    // A product's base library has no folder of its own: it is kept with the libraries.
    case QConstantFolder::Library:
    case QConstantFolder::BasedOnLibrary:
        return FileLocation(QFileLocation::Library);
    case QConstantFolder::Table:
        return FileLocation(QFileLocation::Table);
    case QConstantFolder::Picture:
        return FileLocation(QFileLocation::Picture);
    case QConstantFolder::Template:
        return FileLocation(QFileLocation::Template);
    case QConstantFolder::Backup:
        return FileLocation(QFileLocation::Backup);
    case QConstantFolder::MyDocuments:
        return MyDocumentsDir();
    case QConstantFolder::MyDocumentsProduct:
        return MyDocumentsProductDir();
    }
    return CString();
}

CString QWinApp::AppName() const {
    return u"Keel";
}

bool QWinApp::ParseCommandLine(int argc, const char* const* argv) {
    QCommandLineInfo* info = ParsedCommandLineInfoPtr();
    const bool complete = info->ParseCommandLine(argc, argv);
    if (info->IsServerStart())
        SetServer(true);
    return complete;
}

// ---------------------------------------------------------------------------------------------
// Start-up

namespace {

constexpr int c_showHide = 0;
constexpr int c_showNormal = 1;
constexpr int c_showMinimized = 2;
constexpr int c_showMaximized = 3;
constexpr int c_showMinimize = 6;
constexpr int c_showMinNoActive = 7;
constexpr int c_showDefault = 10;

// A help file of the old kind, "name.hlp" in any case, becomes "name.chm".
CString CurrentHelpFile(const CString& path) {
    const int length = path.GetLength();
    if (length >= 4 && path.Right(4).CompareNoCase(u".hlp") == 0)
        return path.Left(length - 4) + u".chm";
    return path;
}

} // namespace

bool QWinApp::InitInstance() {
    PreProcessShellCommand();
    QCommandLineInfo& info = *ParsedCommandLineInfoPtr();
    if (info.IsServerStart())
        SetServer(true);
    DoSetupOfRegistryKey();
    if (IsServer())
        m_nCmdShow = c_showHide;
    else if (IsMaximized() && (m_nCmdShow == c_showNormal || m_nCmdShow == c_showDefault))
        m_nCmdShow = c_showMaximized;
    if (m_nCmdShow == c_showHide || m_nCmdShow == c_showMinimized || m_nCmdShow == c_showMinimize ||
        m_nCmdShow == c_showMinNoActive)
        info.m_bShowSplash = false;
    if (info.m_bShowSplash)
        CreateSplash();
    m_strMostRecentFile = MostRecentFile();
    if (!LoadResources())
        return false;
    LoadOptions();
    InitRegistryOptionsCache();
    if (!AddDocTemplate()) {
        KillSplash();
        return false;
    }
    if (!IsServer()) {
        OnFileNew();
        if (!InitInstanceStep2())
            return false;
    }
    m_strHelpFilePath = CurrentHelpFile(m_strHelpFilePath);
    m_bStartupComplete = true;
    return true;
}

bool QWinApp::InitInstanceStep2() {
    QCommandLineInfo& info = *ParsedCommandLineInfoPtr();
    if (!ProcessShellCommand(info)) {
        if (IsTracing(USER_TRACE_PLAIN_LINES))
            UserTraceWriteLine(CString::Formatted(
                u"QWinApp::InitInstanceStep2 fails after ProcessShellCommand, was trying to "
                u"open [%s]",
                info.m_strFileName));
        return false;
    }
    const int shown = m_nCmdShow;
    if (info.m_strFileName.IsEmpty())
        m_nCmdShow = -1;
    const bool finished = InitInstanceFinish();
    m_nCmdShow = shown;
    if (!finished)
        return false;
    m_bStarted = true;
    SetAutoSaveTime(AutoSaveTime());
    return true;
}

bool QWinApp::ProcessShellCommand(QCommandLineInfo& info) {
    return info.m_nShellCommand == QCommandLineInfo::FileNew;
}

CString QWinApp::GetExeName() const {
    const CString program = OriginalFilename();
    const int dot = program.ReverseFind(u'.');
    return dot > 0 ? program.Left(dot) : program;
}

CString QWinApp::GetExeNameAndVer() const {
    return GetExeName() + u' ' + ProductVersionString();
}

CString QWinApp::MostRecentFile() const {
    return CRegistry::Current().GetProfileString(u"Recent File List", u"File1", CString());
}

// ---------------------------------------------------------------------------------------------
// Options

void QWinApp::LoadOptions() {
    CRegistry& store = CRegistry::Current();
    for (const FieldOption<bool>& option : c_boolOptions)
        *option.field = store.GetProfileInt(c_options, option.key,
                                            option.fixedDefault.value_or(*option.field)) != 0;
    for (const FieldOption<int>& option : c_intOptions)
        *option.field =
            store.GetProfileInt(c_options, option.key, option.fixedDefault.value_or(*option.field));
    for (const FieldOption<CString>& option : c_stringOptions)
        *option.field = store.GetProfileString(c_options, option.key,
                                               option.fixedDefault.value_or(*option.field));
    c_UserTraceMask = static_cast<unsigned>(store.GetProfileInt(c_options, u"UserTraceMask", 0));
    DoLimitDouble(store.GetProfileInt(c_options, u"LimitDouble", IsLimitDouble() ? 1 : 0) != 0);
    SetMaximized(store.GetProfileInt(c_options, u"Maximized", IsMaximized() ? 1 : 0) != 0);
    SetAutoSaveTime(store.GetProfileInt(c_options, u"AutoSave", AutoSaveTime()));
    SetFriendlyPagesOnly(store.GetProfileInt(c_options, u"ShowFriendlyPagesOnly", 1) != 0);
    EnablePartialTranslations(store.GetProfileInt(c_options, u"TranslationsUsePartial",
                                                  ArePartialTranslationsEnabled() ? 1 : 0) != 0);
    EnableTranslationsFileUpdates(
        store.GetProfileInt(c_options, u"TranslationsEnableFileUpdates", 0) != 0);
    const CString translations =
        store.GetProfileString(c_options, u"TranslationsFile", GetCurrentTranslationFile());
    if (translations != GetCurrentTranslationFile())
        SwitchToTranslationFile(translations, true, false);
    LoadDefaultUnits();
    ConnectValuesToOptions();
    ReportOptionsProblemOnce();
}

QFormulaDatabase* QWinApp::Database() {
    static QAdoFormulaDatabase database;
    return &database;
}

int QWinApp::ExitInstance() {
    SetClosing(true);
    OnClosing();
    UserTraceClose();
    QADOConnection::FreeAll();
    if (AreTranslationsFileUpdatesEnabled() && Translator::TheTranslator().IsModified())
        SaveTranslationFile();
    return 0;
}

void QWinApp::ConnectValuesToOptions() {
    QAnyValue::SetProfileIntReader([](const CString& section, const CString& key, int value) {
        return CRegistry::Current().GetProfileInt(section, key, value);
    });
    QAnyValue::ReloadOptions();
    QAnyValue::SetYesNoStrings(TranslateString(u"Yes", CString(), u"Boolean value string"),
                               TranslateString(u"No", CString(), u"Boolean value string"));
}

void QWinApp::SaveOptions() {
    CRegistry& store = CRegistry::Current();
    CRegistry::DeferredSave together(store);
    for (const FieldOption<bool>& option : c_boolOptions)
        if (option.userChangeable)
            store.WriteProfileInt(c_options, option.key, *option.field ? 1 : 0);
    for (const FieldOption<int>& option : c_intOptions)
        if (option.userChangeable)
            store.WriteProfileInt(c_options, option.key, *option.field);
    store.WriteProfileInt(c_options, u"Maximized", IsMaximized() ? 1 : 0);
    store.WriteProfileInt(c_options, u"AutoSave", AutoSaveTime());
    store.WriteProfileInt(c_options, u"ShowFriendlyPagesOnly", IsFriendlyPagesOnly() ? 1 : 0);
    store.WriteProfileInt(c_options, u"TranslationsUsePartial",
                          ArePartialTranslationsEnabled() ? 1 : 0);
    store.WriteProfileInt(c_options, u"TranslationsEnableFileUpdates",
                          AreTranslationsFileUpdatesEnabled() ? 1 : 0);
    store.WriteProfileString(c_options, u"TranslationsFile", GetCurrentTranslationFile());
    store.WriteProfileInt(c_options, u"LengthUnits", QLength::DefaultUnits());
    store.WriteProfileInt(c_options, u"AreaUnits", QArea::DefaultUnits());
    store.WriteProfileInt(c_options, u"VolumeUnits", QVolume::DefaultUnits());
    store.WriteProfileInt(c_options, u"InchAsFraction", QLength::c_InchHandlerType);
    together.End();
    ReportOptionsProblemOnce();
}

void QWinApp::InitRegistryOptionsCache() {
    m_regIntCache.RemoveAll();
    m_regStringCache.RemoveAll();
    for (const CachedOption& option : c_cachedOptions) {
        if (option.isString)
            CacheProfileString(option.section, option.key, option.stringDefault);
        else
            CacheProfileInt(option.section, option.key, option.intDefault);
    }
}

namespace {

bool IsKnownUnit(int unit) {
    return unit >= 0 && unit <= 7;
}

// A stored unit outside the known ones is ignored: the unit in force stays.
int KnownUnitOr(int stored, int current) {
    return IsKnownUnit(stored) ? stored : current;
}

} // namespace

void QWinApp::LoadDefaultUnits() {
    int length = QLength::DefaultUnits();
    int area = QArea::DefaultUnits();
    int volume = QVolume::DefaultUnits();
    switch (LocaleMeasurement()) {
    case 1:
        length = 3, area = 7, volume = 7;
        break;
    case 2:
        length = 5, area = 6, volume = 6;
        break;
    default:
        break;
    }
    CRegistry& store = CRegistry::Current();
    length = KnownUnitOr(store.GetProfileInt(c_options, u"LengthUnits", length), length);
    switch (length) {
    case 1:
    case 2:
        area = 4, volume = 4;
        break;
    case 3:
    case 4:
    case 7:
        area = 7, volume = 7;
        break;
    case 5:
    case 6:
        area = 6, volume = 6;
        break;
    default:
        break;
    }
    area = KnownUnitOr(store.GetProfileInt(c_options, u"AreaUnits", area), area);
    volume = KnownUnitOr(store.GetProfileInt(c_options, u"VolumeUnits", volume), volume);
    QLength::SetDefaultUnits(static_cast<QLength::LENGTHUNITS>(length));
    QArea::SetDefaultUnits(static_cast<QArea::AREAUNITS>(area));
    QVolume::SetDefaultUnits(static_cast<QVolume::VOLUMEUNITS>(volume));
    // A stored 1 stands for the fraction display, the type 0x20.
    const int inch = store.GetProfileInt(c_options, u"InchAsFraction", 32);
    QLength::c_InchHandlerType = inch == 1 ? 32 : inch;
    ReportOptionsProblemOnce();
}

int QWinApp::LocaleMeasurement() const {
    const locale_t locale = newlocale(LC_MEASUREMENT_MASK, "", static_cast<locale_t>(0));
    if (locale == static_cast<locale_t>(0))
        return 0;
    const char* measurement = nl_langinfo_l(_NL_MEASUREMENT_MEASUREMENT, locale);
    const int system = measurement ? static_cast<unsigned char>(measurement[0]) : 0;
    freelocale(locale);
    return system == 1 || system == 2 ? system : 0;
}

namespace {

// The element of `section` and `key`, const or not as the cache is; nullptr when not cached.
template <class Cache>
auto FindCached(Cache& cache, const CString& section, const CString& key) -> decltype(&cache[0]) {
    for (int i = 0; i < cache.GetCount(); ++i) {
        auto& element = cache[i];
        if (element.m_strKey.CompareNoCase(key) == 0 &&
            element.m_strSection.CompareNoCase(section) == 0)
            return &element;
    }
    return nullptr;
}

// Puts a value read from the store into its element, which is added when the key is new.
template <class Element, class Value>
void CacheValue(QArray<Element>& cache, Value Element::*field, const CString& section,
                const CString& key, const Value& value) {
    if (Element* element = FindCached(cache, section, key)) {
        element->*field = value;
        return;
    }
    Element element{section, key, {}};
    element.*field = value;
    cache.Add(element);
}

} // namespace

int QWinApp::GetProfileIntFromCache(const CString& section, const CString& key,
                                    int defaultValue) const {
    const RegIntCacheElement* element = FindCached(m_regIntCache, section, key);
    return element ? element->m_nValue : defaultValue;
}

CString QWinApp::GetProfileStringFromCache(const CString& section, const CString& key,
                                           const CString& defaultValue) const {
    const RegStringCacheElement* element = FindCached(m_regStringCache, section, key);
    return element ? element->m_strValue : defaultValue;
}

CString QWinApp::GetMachineAppProfileStringFromCache(const CString& section, const CString& key,
                                                     const CString& defaultValue) const {
    const RegHKLMStringCacheElement* element = FindCached(m_regHKLMStringCache, section, key);
    return element ? element->m_strValue : defaultValue;
}

bool QWinApp::WriteProfileIntAndUpdateCache(const CString& section, const CString& key, int value) {
    if (RegIntCacheElement* element = FindCached(m_regIntCache, section, key))
        element->m_nValue = value;
    const bool stored = CRegistry::Current().WriteProfileInt(section, key, value);
    ReportOptionsProblemOnce();
    return stored;
}

bool QWinApp::WriteProfileStringAndUpdateCache(const CString& section, const CString& key,
                                               const CString& value) {
    if (RegStringCacheElement* element = FindCached(m_regStringCache, section, key))
        element->m_strValue = value;
    const bool stored = CRegistry::Current().WriteProfileString(section, key, value);
    ReportOptionsProblemOnce();
    return stored;
}

int QWinApp::CacheProfileInt(const CString& section, const CString& key, int defaultValue) {
    const int value = CRegistry::Current().GetProfileInt(section, key, defaultValue);
    CacheValue(m_regIntCache, &RegIntCacheElement::m_nValue, section, key, value);
    ReportOptionsProblemOnce();
    return value;
}

CString QWinApp::CacheProfileString(const CString& section, const CString& key,
                                    const CString& defaultValue) {
    const CString value = CRegistry::Current().GetProfileString(section, key, defaultValue);
    CacheValue(m_regStringCache, &RegStringCacheElement::m_strValue, section, key, value);
    ReportOptionsProblemOnce();
    return value;
}

CString QWinApp::CacheMachineAppProfileString(const CString& section, const CString& key,
                                              const CString& defaultValue) {
    const CString value = CRegistry::Current().GetMachineProfileString(section, key, defaultValue);
    CacheValue(m_regHKLMStringCache, &RegHKLMStringCacheElement::m_strValue, section, key, value);
    ReportOptionsProblemOnce();
    return value;
}

int QWinApp::MergingStrategy() {
    if (c_bMergingPrompts)
        return 0;
    return c_bMergingDefault ? 1 : 2;
}

void QWinApp::ReportOptionsProblem(const CString& message) {
    static const QTString heading(u"Options", u"Message box");
    QMessageBoxOrLog(message, heading, true);
}

void QWinApp::ReportOptionsProblemOnce() {
    const CString problem = CRegistry::Current().LastError();
    if (problem.IsEmpty() || m_reportedOptionsProblems.Find(problem) >= 0)
        return;
    m_reportedOptionsProblems.Add(problem);
    ReportOptionsProblem(problem);
}

CString QWinApp::CachedOrStoredString(const CString& section, const CString& key,
                                      const CString& defaultValue) const {
    if (const RegStringCacheElement* element = FindCached(m_regStringCache, section, key))
        return element->m_strValue;
    return CRegistry::Current().GetProfileString(section, key, defaultValue);
}

// ---------------------------------------------------------------------------------------------
// Folders

CString QWinApp::MyDocumentsProductDir() const {
    return MyDocumentsDir() + ProductName() + u'/';
}

CString QWinApp::FileLocation(QFileLocation location) const {
    const CString& overridden = m_locationOverrides[static_cast<int>(location)];
    if (!overridden.IsEmpty())
        return WithTrailingSlash(overridden);
    const FileLocationInfo& info = InfoOf(location);
    const CString stored = CachedOrStoredString(c_options, info.key, CString());
    if (!stored.IsEmpty())
        return WithTrailingSlash(stored);
    if (location == QFileLocation::Program)
        return ProgramDir();
    return MyDocumentsProductDir() + info.defaultSubfolder;
}

bool QWinApp::SetFileLocation(QFileLocation location, const CString& folder) {
    return WriteProfileStringAndUpdateCache(c_options, InfoOf(location).key, folder);
}

void QWinApp::OverrideFileLocation(QFileLocation location, const CString& folder) {
    m_locationOverrides[static_cast<int>(location)] = folder;
}

CString QWinApp::FileLocationName(QFileLocation location) {
    return InfoOf(location).name;
}

CString QWinApp::FileLocationKey(QFileLocation location) {
    return InfoOf(location).key;
}

CString QWinApp::LastOpenSaveDir() const {
    return m_strLastOpenSaveDir.IsEmpty() ? FileLocation(QFileLocation::Data)
                                          : WithTrailingSlash(m_strLastOpenSaveDir);
}

// ---------------------------------------------------------------------------------------------
// Version block

CString QWinApp::FileVersion() const {
    return FourPartVersion(FileVersionString());
}

CString QWinApp::ProductVersion() const {
    return FourPartVersion(ProductVersionString());
}

CString QWinApp::FileVersionString() const {
    return c_buildVersion;
}

CString QWinApp::ProductVersionString() const {
    return c_buildVersion;
}

CString QWinApp::Comments() const {
    return CString();
}

CString QWinApp::CompanyName() const {
    return CString();
}

CString QWinApp::FileDescription() const {
    return ProductName();
}

CString QWinApp::InternalName() const {
    return AppName();
}

CString QWinApp::LegalCopyright() const {
    return CString();
}

CString QWinApp::LegalTrademarks() const {
    return CString();
}

CString QWinApp::OriginalFilename() const {
    const CString program = ProgramPathAndName();
    return program.Mid(program.ReverseFind(u'/') + 1);
}

CString QWinApp::PrivateBuild() const {
    return CString();
}

CString QWinApp::ProductFamily() const {
    return ProductName();
}

CString QWinApp::SpecialBuild() const {
    return CString();
}

CString QWinApp::ProductName() const {
    return u"Keel";
}

// ---------------------------------------------------------------------------------------------
// Progress

int QWinApp::ProgressCreate(const CString& text, int low, int high, bool cancellable) {
    if (high <= low)
        return -1;
    CSingleLock guard(&m_progressLock, true);
    const int handle = m_nextProgressHandle++;
    m_progress[handle] = Progress{text, low, high, low, cancellable};
    ShowProgress(handle, QProgressEvent::Kind::Create, text, true);
    return handle;
}

bool QWinApp::ProgressStepIt(int handle) {
    CSingleLock guard(&m_progressLock, true);
    const auto found = m_progress.find(handle);
    if (found == m_progress.end())
        return true;
    Progress& progress = found->second;
    if (progress.cancelled)
        return false;
    progress.position = std::min(progress.position + 1, progress.high);
    ShowProgress(handle, QProgressEvent::Kind::Step, progress.text, false);
    return !IsProgressCancelled(handle);
}

void QWinApp::ProgressSetText(int handle, const CString& text, bool redraw) {
    CSingleLock guard(&m_progressLock, true);
    const auto found = m_progress.find(handle);
    if (found == m_progress.end())
        return;
    found->second.text = text;
    ShowProgress(handle, QProgressEvent::Kind::Text, text, redraw);
}

void QWinApp::ProgressDestroy(int handle, const CString& text, bool redraw) {
    CSingleLock guard(&m_progressLock, true);
    if (m_progress.find(handle) == m_progress.end())
        return;
    ShowProgress(handle, QProgressEvent::Kind::Destroy, text, redraw);
    m_progress.erase(handle);
}

void QWinApp::ProgressCancel(int handle) {
    CSingleLock guard(&m_progressLock, true);
    const auto found = m_progress.find(handle);
    if (found != m_progress.end() && found->second.cancellable)
        found->second.cancelled = true;
}

bool QWinApp::IsProgressCancelled(int handle) const {
    CSingleLock guard(&m_progressLock, true);
    const auto found = m_progress.find(handle);
    return found != m_progress.end() && found->second.cancelled;
}

void QWinApp::SetProgressCallback(QProgressCallback callback) {
    CSingleLock guard(&m_progressLock, true);
    m_progressCallback = std::move(callback);
}

void QWinApp::ShowProgress(int handle, QProgressEvent::Kind kind, const CString& text,
                           bool redraw) {
    Progress& progress = m_progress.at(handle);
    if (!m_progressCallback) {
        if (WantsTerminalProgress())
            PrintProgress(progress, kind, text);
        return;
    }
    const QProgressEvent event{
        kind,  handle, text, progress.low, progress.high, progress.position, progress.cancellable,
        redraw};
    // The callback may close the display itself, so it is looked up again afterwards.
    if (!m_progressCallback(event) && kind != QProgressEvent::Kind::Destroy)
        ProgressCancel(handle);
}

bool QWinApp::WantsTerminalProgress() const {
    return m_bProgressOnTerminal || ::isatty(STDERR_FILENO);
}

void QWinApp::PrintProgress(Progress& progress, QProgressEvent::Kind kind, const CString& text) {
    CString line = text;
    if (kind != QProgressEvent::Kind::Destroy) {
        const int percent = Percent(progress.position, progress.low, progress.high);
        if (kind == QProgressEvent::Kind::Step && percent == progress.shownPercent)
            return;
        progress.shownPercent = percent;
        line.AppendFormat(u": %d%%", percent);
    } else if (line.IsEmpty()) {
        return;
    }
    std::fprintf(stderr, "%s\n", line.ToUtf8().c_str());
    std::fflush(stderr);
}

} // namespace keel
