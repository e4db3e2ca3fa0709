#include "keel/platform/uiservices.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <spawn.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

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

// What the shell answers for a start; anything above 32 is one.
constexpr int kShellStarted = 33;

// Runs the command without waiting. A thread of its own waits for the child, so that it leaves
// nothing behind when it ends. A program that is not there is an unknown file, or, when it is
// the desktop's opener that is missing, no application for the file.
int SpawnDetached(const std::vector<std::string>& command, bool searchPath) {
    std::vector<char*> argv;
    for (const std::string& argument : command)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    pid_t child = 0;
    const int error = searchPath
                          ? posix_spawnp(&child, argv[0], nullptr, nullptr, argv.data(), environ)
                          : posix_spawn(&child, argv[0], nullptr, nullptr, argv.data(), environ);
    if (error == ENOENT)
        return searchPath ? SE_ERR_NOASSOC : SE_ERR_FNF;
    if (error != 0)
        return 0;
    std::thread([child] {
        int status = 0;
        while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
        }
    }).detach();
    return kShellStarted;
}

} // namespace

int IUIServices::ShellExecuteNoWait(const CString& file, const std::vector<CString>& arguments,
                                    const CString& verb) {
    const std::string path = file.ToUtf8();
    struct stat status {};
    if (path.empty() || stat(path.c_str(), &status) != 0)
        return SE_ERR_FNF;
    // Nothing on this desktop prints a file by itself.
    if (verb.CompareNoCase(u"print") == 0)
        return SE_ERR_NOASSOC;
    if (S_ISREG(status.st_mode) && access(path.c_str(), X_OK) == 0) {
        std::vector<std::string> command{path};
        for (const CString& argument : arguments)
            command.push_back(argument.ToUtf8());
        return SpawnDetached(command, false);
    }
    return SpawnDetached({"xdg-open", path}, true);
}

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
