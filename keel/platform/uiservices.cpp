#include "keel/platform/uiservices.h"

#include <atomic>
#include <cstdlib>

namespace keel {

namespace {

// Never destroyed, so that reports made while the process ends still find a host.
CHeadlessUIServices& HeadlessHost() {
    static CHeadlessUIServices& host = *new CHeadlessUIServices();
    return host;
}

std::atomic<IUIServices*> g_installedHost{nullptr};

CString OnOneLine(const CString& text) {
    CString line = text;
    line.Replace(u"\r\n", u"\\n");
    line.Replace(u"\n", u"\\n");
    line.Replace(u"\r", u"\\n");
    return line;
}

} // namespace

std::vector<int> MessageBoxButtons(unsigned flags) {
    switch (flags & MB_TYPEMASK) {
    case MB_OKCANCEL:
        return {IDOK, IDCANCEL};
    case MB_ABORTRETRYIGNORE:
        return {IDABORT, IDRETRY, IDIGNORE};
    case MB_YESNOCANCEL:
        return {IDYES, IDNO, IDCANCEL};
    case MB_YESNO:
        return {IDYES, IDNO};
    case MB_RETRYCANCEL:
        return {IDRETRY, IDCANCEL};
    default:
        return {IDOK};
    }
}

int DefaultButtonAnswer(unsigned flags) {
    const std::vector<int> buttons = MessageBoxButtons(flags);
    const std::size_t position = (flags & MB_DEFMASK) >> 8;
    return position < buttons.size() ? buttons[position] : buttons.front();
}

CString AnswerName(int answer) {
    switch (answer) {
    case IDOK:
        return u"OK";
    case IDCANCEL:
        return u"Cancel";
    case IDABORT:
        return u"Abort";
    case IDRETRY:
        return u"Retry";
    case IDIGNORE:
        return u"Ignore";
    case IDYES:
        return u"Yes";
    case IDNO:
        return u"No";
    default:
        return CString();
    }
}

IUIServices& UIServices() {
    IUIServices* host = g_installedHost.load();
    return host ? *host : HeadlessHost();
}

void SetUIServices(IUIServices* host) {
    g_installedHost.store(host);
}

int CHeadlessUIServices::MessageBox(const CString& text, const CString& caption, unsigned flags) {
    const int answer = DefaultButtonAnswer(flags);
    WriteLine(u"[" + caption + u"] " + OnOneLine(text) + u" => " + AnswerName(answer));
    ++m_answeredBoxes;
    return answer;
}

void CHeadlessUIServices::ShowPendingMessages(const std::vector<CPendingMessage>& messages) {
    for (const CPendingMessage& message : messages) {
        WriteLine(u"[" + message.time + u" " + message.type + u"] " + OnOneLine(message.text));
        ++m_shownMessages;
    }
}

bool CHeadlessUIServices::Customise(CCheckList&, CCheckList&, const std::function<void()>&) {
    return false;
}

bool CHeadlessUIServices::OpenFile(const CString& path) {
    WriteLine(u"[open file] " + path);
    return false;
}

void CHeadlessUIServices::WriteLine(const CString& line) {
    std::fputs((line.ToUtf8() + "\n").c_str(), m_output);
    std::fflush(m_output);
}

void OutputDebugText(const CString& text) {
    if (std::getenv("KEEL_DEBUG_OUTPUT") == nullptr)
        return;
    std::fputs(text.ToUtf8().c_str(), stderr);
    std::fflush(stderr);
}

} // namespace keel
