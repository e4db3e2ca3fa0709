#include "keel/exchange/exportflags.h"

namespace keel {

namespace {

QExport& DefaultExportFlags() {
    static QExport flags;
    return flags;
}

QExport* g_exportFlags = &DefaultExportFlags();

} // namespace

void QExport::Init() {
    for (auto& bank : m_banks) {
        bank.fill(false);
        bank[5] = true;
    }
    m_bank = 0;
}

bool QExport::IsExportFlagSet(int flag) const {
    return IsValidFlag(flag) && m_banks[m_bank][flag];
}

void QExport::SetExportFlag(int flag, bool set) {
    if (IsValidFlag(flag))
        m_banks[m_bank][flag] = set;
}

bool QExport::IsFlagSet(int flag) {
    return g_exportFlags != nullptr && g_exportFlags->IsExportFlagSet(flag);
}

QExport* QExport::TheExportFlags() {
    return g_exportFlags;
}

void QExport::SetTheExportFlags(QExport* flags) {
    g_exportFlags = flags;
}

} // namespace keel
