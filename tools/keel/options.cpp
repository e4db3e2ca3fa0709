#include "tools/keel/commands.h"

#include "keel/document/errorlog.h"
#include "keel/document/winapp.h"
#include "keel/platform/registry.h"
#include "keel/values/area.h"
#include "keel/values/length.h"
#include "keel/values/volume.h"

#include <cstdio>

namespace keel::tool {

namespace {

std::string Utf8(const CString& text) {
    return text.ToUtf8();
}

bool IsStored(const CString& section, const CString& key) {
    const CString unlikely = u"\x01keel-not-stored\x01";
    return CRegistry::Current().GetProfileString(section, key, unlikely) != unlikely;
}

const char* Origin(const CString& section, const CString& key) {
    return IsStored(section, key) ? "stored" : "default";
}

// A message that waits in the error log is shown when the command ends, and only then.
bool IsPending(const CString& message) {
    const QErrorLog& log = TheErrorLog();
    for (int i = 0; i < log.GetSize(); ++i)
        if (log.Message(i) == message)
            return true;
    return false;
}

void ShowCachedOptions(const QWinApp& app) {
    std::printf("Options read while painting (cached at start-up):\n");
    for (const RegIntCacheElement& element : app.RegIntCache())
        std::printf("  [%s] %s = %d (%s)\n", Utf8(element.m_strSection).c_str(),
                    Utf8(element.m_strKey).c_str(), element.m_nValue,
                    Origin(element.m_strSection, element.m_strKey));
    for (const RegStringCacheElement& element : app.RegStringCache())
        std::printf("  [%s] %s = \"%s\" (%s)\n", Utf8(element.m_strSection).c_str(),
                    Utf8(element.m_strKey).c_str(), Utf8(element.m_strValue).c_str(),
                    Origin(element.m_strSection, element.m_strKey));
}

void ShowUnits() {
    std::printf("Default units (LengthUnits, AreaUnits, VolumeUnits, InchAsFraction):\n");
    std::printf("  length %d (%s), area %d (%s), volume %d (%s), inch as fraction %d\n",
                QLength::DefaultUnits(), Origin(u"Options", u"LengthUnits"), QArea::DefaultUnits(),
                Origin(u"Options", u"AreaUnits"), QVolume::DefaultUnits(),
                Origin(u"Options", u"VolumeUnits"), QLength::c_InchHandlerType);
}

void ShowFileLocations(const QWinApp& app) {
    std::printf("File locations:\n");
    for (int i = 0; i <= static_cast<int>(QFileLocation::Program); ++i) {
        const auto location = static_cast<QFileLocation>(i);
        std::printf("  %-16s %s\n", Utf8(QWinApp::FileLocationName(location)).c_str(),
                    Utf8(app.FileLocation(location)).c_str());
    }
}

} // namespace

int RunOptions(std::span<const std::string_view> args) {
    if (!args.empty())
        return UsageError("options", "takes no arguments");
    const QWinApp& app = *QWinApp::GetApp();
    const CRegistry& store = CRegistry::Current();
    std::printf("Options file: %s\n", Utf8(store.FilePath()).c_str());
    if (!store.LastError().IsEmpty() && !IsPending(store.LastError()))
        std::printf("  (%s)\n", Utf8(store.LastError()).c_str());
    ShowCachedOptions(app);
    ShowUnits();
    ShowFileLocations(app);
    return 0;
}

} // namespace keel::tool
