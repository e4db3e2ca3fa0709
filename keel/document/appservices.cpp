#include "keel/document/appservices.h"

#include "keel/platform/uiservices.h"

#include <atomic>
#include <cstdlib>
#include <pwd.h>
#include <unistd.h>

namespace keel {

namespace {

std::atomic<QAppServices*> g_appServices{nullptr};

} // namespace

CString QAppServices::AppName() const {
    return u"Keel";
}

CString QAppServices::CurrentUserName() const {
    if (const char* user = std::getenv("USER"); user && *user)
        return CString::FromUtf8(user);
    if (const passwd* entry = ::getpwuid(::getuid()))
        return CString::FromUtf8(entry->pw_name);
    return CString();
}

bool QAppServices::IsRunningAutomated() const {
    return IsServer() || !UIServices().HasDisplay();
}

QAppServices& AppServices() {
    static QAppServices defaults;
    QAppServices* installed = g_appServices.load();
    return installed ? *installed : defaults;
}

QAppServices* GetAppServices() {
    return g_appServices.load();
}

QAppServices* SetAppServices(QAppServices* services) {
    return g_appServices.exchange(services);
}

} // namespace keel
