#pragma once

#include "keel/platform/uiservices.h"

#include <functional>
#include <string>
#include <vector>

namespace keel::test {

// A host with a display whose boxes answer as told and are written down, text and flags.
class RecordingHost : public CHeadlessUIServices {
public:
    explicit RecordingHost(int answer = IDOK) : m_answer(answer) {}
    bool HasDisplay() const override { return true; }
    int MessageBox(const CString& text, const CString&, unsigned flags) override {
        boxes.push_back(text.ToUtf8());
        boxFlags.push_back(flags);
        return m_answer;
    }

    std::vector<std::string> boxes;
    std::vector<unsigned> boxFlags;

private:
    int m_answer;
};

// A host for exports: its file dialog answers with `chosenPath` (cancelled when empty), and the
// dialogs, status texts and shell calls are written down. Started processes run until told.
class ExportDialogHost : public CHeadlessUIServices {
public:
    struct Dialog {
        bool save;
        std::string title;
        std::string filter;
        std::string defaultExt;
    };
    struct ShellCall {
        std::string path;
        std::string verb;
    };

    bool PickExportFile(bool save, const CString& title, const CString& filter,
                        const CString& defaultExt, CString& path) override {
        dialogs.push_back({save, title.ToUtf8(), filter.ToUtf8(), defaultExt.ToUtf8()});
        path = CString::FromUtf8(chosenPath);
        return !chosenPath.empty();
    }
    void SetStatusBarText(const CString& text) override { statusTexts.push_back(text.ToUtf8()); }
    long ShellOpenNoWait(const CString& path, const CString& verb) override {
        shellCalls.push_back({path.ToUtf8(), verb.ToUtf8()});
        return startProcesses ? static_cast<long>(shellCalls.size()) : 0;
    }
    bool IsProcessRunning(long) override { return processesRunning; }

    std::string chosenPath;
    bool startProcesses = true;
    bool processesRunning = true;
    std::vector<Dialog> dialogs;
    std::vector<std::string> statusTexts;
    std::vector<ShellCall> shellCalls;
};

// Installs a host for a scope, and the headless one again after it.
class ScopedUIServices {
public:
    explicit ScopedUIServices(IUIServices& host) { SetUIServices(&host); }
    ~ScopedUIServices() { SetUIServices(nullptr); }
    ScopedUIServices(const ScopedUIServices&) = delete;
    ScopedUIServices& operator=(const ScopedUIServices&) = delete;
};

} // namespace keel::test
