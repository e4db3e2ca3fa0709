#include "keel/document/commandline.h"

namespace keel {

namespace {

bool IsFlag(const CString& param) {
    return param.GetLength() > 1 && param[0] == u'-';
}

CString WithoutDashes(const CString& param) {
    const int dashes = param.GetLength() > 2 && param[1] == u'-' ? 2 : 1;
    return param.Mid(dashes);
}

} // namespace

bool QCommandLineInfo::ParseCommandLine(int argc, const char* const* argv) {
    bool flagsEnded = false;
    for (int i = 1; i < argc; ++i) {
        const CString param = CString::FromUtf8(argv[i]);
        const bool isLast = i == argc - 1;
        if (IsValueRequired() || flagsEnded || !IsFlag(param)) {
            ParseParam(param, false, isLast);
        } else if (param == u"--") {
            flagsEnded = true;
            if (isLast)
                ProcessLast();
        } else {
            ParseParam(WithoutDashes(param), true, isLast);
        }
    }
    return !IsValueRequired();
}

void QCommandLineInfo::ParseParam(const CString& param, bool isFlag, bool isLast) {
    if (IsValueRequired()) {
        SetValueRequired(false);
        m_strValue = param;
        ProcessFlagAndValue(m_strFlag, param);
    } else if (isFlag) {
        m_strFlag = param;
        m_strValue.Empty();
        ProcessFlag(param);
    } else {
        ParseFileName(param);
    }
    if (isLast)
        ProcessLast();
}

void QCommandLineInfo::ProcessFlag(const CString& flag) {
    if (flag.CompareNoCase(u"Embedding") == 0) {
        m_bRunEmbedded = true;
        m_bShowSplash = false;
    } else if (flag.CompareNoCase(u"Automation") == 0) {
        m_bRunAutomated = true;
        m_bShowSplash = false;
    }
}

void QCommandLineInfo::ProcessFlagAndValue(const CString&, const CString&) {}

void QCommandLineInfo::ProcessLast() {
    if (m_nShellCommand == FileNew && !m_strFileName.IsEmpty())
        m_nShellCommand = FileOpen;
}

void QCommandLineInfo::ParseFileName(const CString& param) {
    if (m_strFileName.IsEmpty())
        m_strFileName = param;
}

} // namespace keel
