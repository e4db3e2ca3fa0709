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

// Installs a host for a scope, and the headless one again after it.
class ScopedUIServices {
public:
    explicit ScopedUIServices(IUIServices& host) { SetUIServices(&host); }
    ~ScopedUIServices() { SetUIServices(nullptr); }
    ScopedUIServices(const ScopedUIServices&) = delete;
    ScopedUIServices& operator=(const ScopedUIServices&) = delete;
};

} // namespace keel::test
