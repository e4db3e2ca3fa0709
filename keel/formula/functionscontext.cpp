#include "keel/document/appservices.h"
#include "keel/document/errorlog.h"
#include "keel/formula/builtins.h"
#include "keel/formula/evaluator.h"
#include "keel/formula/formulacontext.h"
#include "keel/platform/timer.h"
#include "keel/system/fsfile.h"
#include "keel/values/smartptr.h"
#include "keel/values/tablehandle.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <pwd.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace keel {

namespace {

using namespace builtin;

bool IsDotted(const CString& name) {
    return name.Find(u'.') >= 0;
}

// --- Variables ----------------------------------------------------------------------------------

// The evaluator keeps its local variables to itself; deleting one is the only need of them here,
// and a derived class may reach them.
class LocalVariables : public QEvaluator {
public:
    static bool Remove(QEvaluator& evaluator, PropId name) {
        return (evaluator.*(&LocalVariables::m_vars)).RemoveKey(name);
    }
};

bool VarExist(QBuiltinCall& call, bool& succeeded) {
    return Done(call, QAnyValue(call.evaluator.IsIdentifierDefined(FullId(Text(call.args[0])))),
                succeeded);
}

// The value of a local variable or of a name of the context; false when neither is there.
bool FindVariable(QEvaluator& evaluator, const CString& name, QAnyValue& value) {
    if (!IsDotted(name) && evaluator.GetVar(PropId(name), value))
        return true;
    QFormulaContext* context = evaluator.Context();
    if (!context)
        return false;
    bool error = false;
    QCacheState state = QCS_Stable;
    const bool found =
        context->LookupValue(FullId(name), value, error, state, evaluator.IsPassThrough(),
                             evaluator.IsDebug(), !evaluator.IsAction());
    evaluator.RaiseCacheState(state);
    return found;
}

bool VarIfExistElse(QBuiltinCall& call, bool& succeeded) {
    if (call.args.size() == 1)
        return WithDefault(call, QAnyValue(), succeeded);
    QAnyValue value;
    if (!FindVariable(call.evaluator, Text(call.args[0]), value))
        value = call.args[1];
    return Done(call, value, succeeded);
}

// A local variable goes; otherwise the property of that name, on the context the path leads to.
bool VarDelete(QBuiltinCall& call, bool& succeeded) {
    const CString name = Text(call.args[0]);
    if (IsDotted(name) || !LocalVariables::Remove(call.evaluator, PropId(name))) {
        QFormulaContext* context = call.evaluator.Context();
        const int dot = name.ReverseFind(u'.');
        QCacheState state = QCS_Stable;
        if (context && dot >= 0 && !context->LookupContext(FullId(name.Left(dot)), context, state))
            context = nullptr;
        if (context)
            context->RemoveProperty(PropId(name.Mid(dot + 1)));
    }
    return Done(call, QAnyValue(true), succeeded);
}

CString SetValueFailure(const CString& name) {
    return u"SetValue fails to set new value for " + name;
}

bool SetValue(QBuiltinCall& call, bool& succeeded) {
    const CString name = Text(call.args[0]);
    QFormulaContext* context = call.evaluator.Context();
    if (!context || !context->SetValue(FullId(name), call.args[1]))
        return Done(call, ErrorValue(SetValueFailure(name)), succeeded);
    return Done(call, call.args[1], succeeded);
}

bool SetFormula(QBuiltinCall& call, bool& succeeded) {
    const CString name = Text(call.args[0]);
    QFormulaContext* context = call.evaluator.Context();
    if (!context ||
        !context->SetFormula(FullId(name), FormulaText(call.args[1].MakeCStringUntranslated())))
        return Done(call, ErrorValue(u"SetFormula fails to set new formula for " + name),
                    succeeded);
    return Done(call, call.args[1], succeeded);
}

// --- Timed values -------------------------------------------------------------------------------

// The value is set when the timer runs, on the timer's thread. A context held by smart pointers
// is kept alive until then; one that is not (owned by an object) must outlive its timers.
struct TimedValue {
    QFormulaContext* context;
    QSmartPtr<QFormulaContext> keepAlive;
    FullId name;
    QAnyValue value;
};

void Deliver(const TimedValue& timed) {
    if (!timed.context->SetValue(timed.name, timed.value))
        QMessageBoxOrLog(SetValueFailure(timed.name.ToString()), u"Error", true);
}

// The timers of setvaluetimed. Those with a number other than 0 are remembered while they wait,
// so that a later call with the same number replaces or cancels them.
class TimedValues {
public:
    void Start(int number, std::chrono::milliseconds delay, std::shared_ptr<TimedValue> timed) {
        const std::lock_guard lock(m_mutex);
        auto id = std::make_shared<QTimerQueue::TimerId>(0);
        *id = QTimerQueue::Instance().Schedule(delay, [this, number, id, timed] {
            Forget(number, id);
            Deliver(*timed);
        });
        if (number != 0)
            m_timers[number] = *id;
    }
    // Cancels the waiting timer of that number; true when there was one.
    bool Cancel(int number) {
        const std::lock_guard lock(m_mutex);
        const auto found = m_timers.find(number);
        if (found == m_timers.end())
            return false;
        const bool cancelled = QTimerQueue::Instance().Cancel(found->second);
        m_timers.erase(found);
        return cancelled;
    }

private:
    // The id is read under the lock, which Start holds until the id is known.
    void Forget(int number, const std::shared_ptr<QTimerQueue::TimerId>& id) {
        const std::lock_guard lock(m_mutex);
        const auto found = m_timers.find(number);
        if (found != m_timers.end() && found->second == *id)
            m_timers.erase(found);
    }

    std::mutex m_mutex;
    std::map<int, QTimerQueue::TimerId> m_timers;
};

TimedValues& TheTimedValues() {
    static TimedValues timers;
    return timers;
}

// setvaluetimed(name, v, delay, number, cancel): sets the value after `delay` milliseconds. A
// timer with a number other than 0 replaces a waiting one of the same number; with `cancel` not 0
// that timer is only cancelled and nothing is set. The result is the value, or whether a timer
// was cancelled.
bool SetValueTimed(QBuiltinCall& call, bool& succeeded) {
    for (std::size_t i = 2; i < 5; ++i)
        if (call.args[i].IsErrorOrNA())
            return Done(call, call.args[i], succeeded);
    const CString name = Text(call.args[0]);
    const int delay = QAnyValue(call.args[2]).MakeInt();
    const int number = QAnyValue(call.args[3]).MakeInt();
    const bool cancel = QAnyValue(call.args[4]).MakeInt() != 0;
    TimedValues& timers = TheTimedValues();
    const bool cancelled = number != 0 && timers.Cancel(number);
    if (cancel)
        return Done(call, QAnyValue(cancelled), succeeded);
    QFormulaContext* context = call.evaluator.Context();
    if (!context)
        return Done(call, ErrorValue(SetValueFailure(name)), succeeded);
    QSmartPtr<QFormulaContext> keepAlive;
    if (context->IsReferenced())
        keepAlive = context;
    timers.Start(
        number, std::chrono::milliseconds(delay),
        std::make_shared<TimedValue>(TimedValue{context, keepAlive, FullId(name), call.args[1]}));
    return Done(call, call.args[1], succeeded);
}

// --- Programs -----------------------------------------------------------------------------------

// The words of a command line: blanks separate them, and double quotes keep blanks in one.
std::vector<std::string> CommandWords(const std::string& line) {
    std::vector<std::string> words;
    std::string word;
    bool quoted = false;
    bool inWord = false;
    for (const char ch : line) {
        if (ch == '"') {
            quoted = !quoted;
            inWord = true;
        } else if (!quoted && (ch == ' ' || ch == '\t')) {
            if (inWord)
                words.push_back(word);
            word.clear();
            inWord = false;
        } else {
            word += ch;
            inWord = true;
        }
    }
    if (inWord)
        words.push_back(word);
    return words;
}

// The program may change tables and files, so nothing read from them before is trusted after.
void ForgetWhatFilesHeld() {
    if (QTableHandleSource* source = GetTableHandleSource())
        source->ReloadAll();
    QFSFile::ClearFileStatusCache();
}

// Runs the program itself, without a shell. `wait` waits for it to end; otherwise it is reaped
// in the background when it ends. Empty, or why it could not be started.
CString RunProgram(const CString& program, const CString& arguments, const CString& folder,
                   bool wait) {
    std::vector<std::string> words = CommandWords(arguments.ToUtf8());
    words.insert(words.begin(), program.ToUtf8());
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    const std::string folderName = folder.ToUtf8();
    if (!folderName.empty())
        posix_spawn_file_actions_addchdir_np(&actions, folderName.c_str());
    pid_t pid = 0;
    const int error = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0)
        return u"Cannot run " + program + u": " + CString::FromUtf8(std::strerror(error));
    if (wait) {
        int status = 0;
        while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
    } else {
        std::thread([pid] {
            int status = 0;
            while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
            }
        }).detach();
    }
    return CString();
}

// shell(cmd [, args [, dir [, show]]]): `show`, the window state of a desktop, has no meaning
// for a program started here.
bool Shell(QBuiltinCall& call, bool wait, bool& succeeded) {
    if (call.args.size() < 4)
        return WithDefault(call, QAnyValue(u""), succeeded);
    call.evaluator.RaiseCacheState(QCS_NotCacheable);
    ForgetWhatFilesHeld();
    const CString failure =
        RunProgram(Text(call.args[0]), Text(call.args[1]), Text(call.args[2]), wait);
    if (wait)
        ForgetWhatFilesHeld();
    return Done(call, failure.IsEmpty() ? QAnyValue(true) : ErrorValue(failure), succeeded);
}

bool ShellNoWait(QBuiltinCall& call, bool& succeeded) {
    return Shell(call, false, succeeded);
}

bool ShellWait(QBuiltinCall& call, bool& succeeded) {
    return Shell(call, true, succeeded);
}

// --- The user and the application ---------------------------------------------------------------

const passwd* UserEntry() {
    return ::getpwuid(::geteuid());
}

CString LoginName() {
    if (const passwd* entry = UserEntry())
        return CString::FromUtf8(entry->pw_name);
    const char* user = std::getenv("USER");
    return user ? CString::FromUtf8(user) : CString();
}

// The full name is the first field of the account's comment.
CString FullName() {
    const passwd* entry = UserEntry();
    if (!entry || !entry->pw_gecos)
        return CString();
    const std::string comment = entry->pw_gecos;
    return CString::FromUtf8(comment.substr(0, comment.find(',')));
}

CString HomeFolder() {
    const passwd* entry = UserEntry();
    return entry && entry->pw_dir ? CString::FromUtf8(entry->pw_dir) : CString();
}

CString HostName() {
    char name[256] = {};
    return ::gethostname(name, sizeof name - 1) == 0 ? CString::FromUtf8(name) : CString();
}

// userid([n]): 0 the user's number, 1 the login name, 2 the full name, 3 the home folder; any
// other number gives the empty string.
bool UserId(QBuiltinCall& call, bool& succeeded) {
    if (call.args.empty())
        return WithDefault(call, QAnyValue(1), succeeded);
    if (call.args[0].IsErrorOrNA())
        return Done(call, call.args[0], succeeded);
    switch (QAnyValue(call.args[0]).MakeInt()) {
    case 0:
        return Done(call, QAnyValue(static_cast<int>(::geteuid())), succeeded);
    case 1:
        return Done(call, QAnyValue(LoginName()), succeeded);
    case 2:
        return Done(call, QAnyValue(FullName()), succeeded);
    case 3:
        return Done(call, QAnyValue(HomeFolder()), succeeded);
    default:
        return Done(call, QAnyValue(u""), succeeded);
    }
}

// info(n): 1 the application's name, 2 its product version, 3 its file version, 4 its company,
// 5 the name of the machine; without an application object only 5. Any other number gives the
// empty string.
bool Info(QBuiltinCall& call, bool& succeeded) {
    if (call.args[0].IsErrorOrNA())
        return Done(call, call.args[0], succeeded);
    const int what = QAnyValue(call.args[0]).MakeInt();
    const QAppServices* application = AppServices().IsApplication() ? &AppServices() : nullptr;
    CString text;
    if (what == 5)
        text = HostName();
    else if (application && what == 1)
        text = application->AppName();
    else if (application && what == 2)
        text = application->ProductVersion();
    else if (application && what == 3)
        text = application->FileVersion();
    else if (application && what == 4)
        text = application->CompanyName();
    return Done(call, QAnyValue(text), succeeded);
}

} // namespace

const QBuiltinGroup& ContextFunctions() {
    static constexpr QBuiltinFunction functions[] = {
        {u"varexist", 1, 1, u"s", false, VarExist},
        {u"varifexistelse", 1, 2, u"s [, else = empty]", false, VarIfExistElse},
        {u"vardelete", 1, 1, u"s", false, VarDelete},
        {u"setvalue", 2, 2, u"name, v", true, SetValue},
        {u"setvaluetimed", 5, 5, u"name, v, delay, number, cancel", true, SetValueTimed},
        {u"setformula", 2, 2, u"name, f", true, SetFormula},
        {u"shell", 1, 4, u"cmd [, args [, dir [, show]]]", false, ShellNoWait},
        {u"shellwait", 1, 4, u"cmd [, args [, dir [, show]]]", false, ShellWait},
        {u"info", 1, 1, u"n", false, Info},
        {u"userid", 0, 1, u"[n = 1]", false, UserId},
    };
    static const QBuiltinGroup group{u"Variables, contexts and actions", functions};
    return group;
}

} // namespace keel
