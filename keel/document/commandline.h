#pragma once

#include "keel/platform/cstring.h"

namespace keel {

// The parsed command line of the application. Each parameter goes to ParseParam in turn. A flag
// goes to ProcessFlag; a flag that takes a value asks for it with SetValueRequired(true), and
// the next parameter, whatever it looks like, is then handed to ProcessFlagAndValue with that
// flag. A product derives from this class to add its own flags.
//
// On this platform a flag begins with "-" (or "--"): "/x" is a path. A lone "-" is a parameter
// like any other, and after "--" no parameter is a flag.
class QCommandLineInfo {
public:
    enum ShellCommand { FileNew, FileOpen };

    virtual ~QCommandLineInfo() = default;

    // Parses argv[1] to argv[argc - 1]. False when the last flag was left without the value it
    // asked for.
    bool ParseCommandLine(int argc, const char* const* argv);

    // One parameter: `param` is without its leading dashes when `isFlag`.
    virtual void ParseParam(const CString& param, bool isFlag, bool isLast);
    // The framework's flags "Embedding" and "Automation", in any case; other flags are the
    // product's and are ignored here.
    virtual void ProcessFlag(const CString& flag);
    // No flag of the framework takes a value.
    virtual void ProcessFlagAndValue(const CString& flag, const CString& value);
    // After the last parameter: a file named on the line is to be opened.
    virtual void ProcessLast();
    virtual bool IsValueRequired() const { return m_bValueRequired; }
    virtual void SetValueRequired(bool required) { m_bValueRequired = required; }

    // The flag under way, and the value last handed to it.
    const CString& GetFlag() const { return m_strFlag; }
    const CString& GetValue() const { return m_strValue; }

    // Started by the desktop's object embedding or automation: the application runs as a server.
    bool IsServerStart() const { return m_bRunEmbedded || m_bRunAutomated; }

    // The first parameter that is not a flag.
    CString m_strFileName;
    bool m_bShowSplash = true;
    bool m_bRunEmbedded = false;
    bool m_bRunAutomated = false;
    ShellCommand m_nShellCommand = FileNew;

private:
    void ParseFileName(const CString& param);

    CString m_strFlag;
    CString m_strValue;
    bool m_bValueRequired = false;
};

} // namespace keel
