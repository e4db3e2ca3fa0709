#pragma once

#include "keel/platform/cstring.h"

namespace keel {

class QDoc;
class QEvaluatorFactory;

// What the layers below the application need of it: its names and version block, its options,
// its folders, whether it is a server or closing, its progress displays and, for the formula
// layer, the making of evaluators (QEvaluatorFactory, which derives from this class). The
// application object installs itself; without it these defaults answer: the names of Keel, the
// options' defaults, no server, no progress, plain evaluators.
class QAppServices {
public:
    virtual ~QAppServices() = default;

    // True for the services of a running application object, false for the defaults and for the
    // stand-ins that tests install. Without an application there is no error log file and no
    // one to offer it to.
    virtual bool IsApplication() const { return false; }

    // The name of the application in messages and the options file.
    virtual CString AppName() const;
    // The name of the user who is working, for the author of a document: the login name.
    virtual CString CurrentUserName() const;
    // The version block.
    virtual CString FileVersion() const { return CString(); }
    virtual CString ProductVersion() const { return CString(); }
    virtual CString Comments() const { return CString(); }
    virtual CString CompanyName() const { return CString(); }
    virtual CString FileDescription() const { return CString(); }
    virtual CString InternalName() const { return CString(); }
    virtual CString LegalCopyright() const { return CString(); }
    virtual CString LegalTrademarks() const { return CString(); }
    virtual CString OriginalFilename() const { return CString(); }
    virtual CString PrivateBuild() const { return CString(); }
    virtual CString SpecialBuild() const { return CString(); }
    virtual CString ProductName() const { return CString(); }

    // An integer option from the application's store, `defaultValue` without one.
    virtual int ProfileInt(const CString& /*section*/, const CString& /*key*/,
                           int defaultValue) const {
        return defaultValue;
    }
    // Whether merges of answers show their messages.
    virtual bool ShowsMergingMessages() const { return false; }

    // Started as an automation server or embedded.
    virtual bool IsServer() const { return false; }
    // No one to ask: a server, or a run without a display.
    virtual bool IsRunningAutomated() const;
    // The way out of the application has begun.
    virtual bool IsClosing() const { return false; }

    // Progress displays; without an application none is shown and ProgressCreate gives -1.
    virtual int ProgressCreate(const CString& /*text*/, int /*low*/, int /*high*/,
                               bool /*cancellable*/) {
        return -1;
    }
    // False once the display was cancelled.
    virtual bool ProgressStepIt(int /*handle*/) { return true; }
    virtual void ProgressSetText(int /*handle*/, const CString& /*text*/, bool /*redraw*/) {}
    virtual void ProgressDestroy(int /*handle*/, const CString& /*text*/, bool /*redraw*/) {}

    // The formula layer's part of these services, when they have it.
    virtual QEvaluatorFactory* EvaluatorFactory() { return nullptr; }

    // The document of the active view, for formulas whose context belongs to no document; none
    // without an application.
    virtual QDoc* ActiveDocument() const { return nullptr; }

    // The folder that the file dialogs open in and that a save runs in, and its update after a
    // save; empty, and kept nowhere, without an application.
    virtual CString LastOpenSaveDir() const { return CString(); }
    virtual void SetLastOpenSaveDir(const CString& /*folder*/) {}
};

// The installed services, or the defaults.
QAppServices& AppServices();
// The installed services, or nullptr.
QAppServices* GetAppServices();
// Returns the services it replaces; nullptr uninstalls.
QAppServices* SetAppServices(QAppServices* services);

} // namespace keel
