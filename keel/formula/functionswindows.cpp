#include "keel/document/appservices.h"
#include "keel/document/errorlog.h"
#include "keel/document/translate.h"
#include "keel/formula/builtins.h"
#include "keel/formula/evaluator.h"
#include "keel/formula/evaluatorfactory.h"
#include "keel/platform/uiservices.h"
#include "keel/system/currentdirectory.h"
#include "keel/system/pathop.h"

namespace keel {

namespace {

using namespace builtin;

// A server, or a program without a display, opens no dialog: the request is logged as ignored
// under "Server" and the function gives what it would give had the person cancelled.
bool AnswersAsServer() {
    return !UIServices().HasDisplay() || AppServices().IsServer();
}

void LogIgnored(const char16_t* function, const CString& prompt) {
    QMessageBoxExceptServer(function, prompt);
}

// The folder the application keeps for that kind, ending in "/"; the current folder without one.
CString FolderFor(QConstantFolder kind) {
    CString folder;
    if (const QEvaluatorFactory* factory = GetEvaluatorFactory())
        folder = factory->FolderForConstant(kind);
    return folder.IsEmpty() ? QCurrentDirectory::Get() : folder + u"/";
}

CString FileIn(QConstantFolder kind, const CString& name, const char16_t* dotExt) {
    CString path = name;
    QPathOp::FixupDotExtIfNoDotABC(path, dotExt);
    return QPathOp::HasRoot(path) ? QPathOp::NormalForm(path)
                                  : QPathOp::FolderPlusPath(FolderFor(kind), path);
}

// --- Property sheets and pages ------------------------------------------------------------------

bool ShowPage(QBuiltinCall& call, bool& succeeded) {
    const CString category = Text(call.args[0]);
    const CString page = Text(call.args[1]);
    switch (UIServices().SelectCategoryAndPage(category, page)) {
    case IUIServices::PageSelection::NoSheet:
        succeeded = call.evaluator.Unknown(u"No Property Sheet active", call.name.ToString());
        return true;
    case IUIServices::PageSelection::NotFound:
        return Done(call,
                    ErrorValue(u"Cannot select the page of" + CString(u" category [") + category +
                               u"], page [" + page + u"]"),
                    succeeded);
    case IUIServices::PageSelection::Selected:
        break;
    }
    return Done(call, QAnyValue(true), succeeded);
}

// showfriendlypages(...), showfriendlywizard(...): the page runtime that shows friendly pages
// comes with the question pages; until then a display can show none.
bool ShowFriendly(QBuiltinCall& call, const char16_t* function, bool& succeeded) {
    if (AnswersAsServer()) {
        LogIgnored(function, Text(call.args[0]));
        return Done(call, QAnyValue(false), succeeded);
    }
    return Done(call, ErrorValue(u"Friendly pages cannot be shown: there are no question pages"),
                succeeded);
}

bool ShowFriendlyPages(QBuiltinCall& call, bool& succeeded) {
    return ShowFriendly(call, u"SHOWFRIENDLYPAGES", succeeded);
}

bool ShowFriendlyWizard(QBuiltinCall& call, bool& succeeded) {
    return ShowFriendly(call, u"SHOWFRIENDLYWIZARD", succeeded);
}

// --- Dialogs ------------------------------------------------------------------------------------

// pickcolor(v): the colour chosen, or v when none was.
bool PickColor(QBuiltinCall& call, bool& succeeded) {
    if (AnswersAsServer()) {
        LogIgnored(u"PICKCOLOR", Text(call.args[0]));
        return Done(call, call.args[0], succeeded);
    }
    unsigned long color = QAnyValue(call.args[0]).MakeColor();
    if (!UIServices().PickColor(color))
        return Done(call, call.args[0], succeeded);
    return Done(call, QAnyValue(color), succeeded);
}

struct BrowseKind {
    const char16_t* function;
    const QTString& title;
    QConstantFolder folder;
    const char16_t* filter;
};

// browse...([path [, filter]]): the file chosen, relative to the dialog's folder when it lies
// in it; the path given when nothing was chosen.
bool Browse(QBuiltinCall& call, const BrowseKind& kind, bool& succeeded) {
    if (call.args.size() == 0)
        return WithDefault(call, QAnyValue(u""), succeeded);
    if (call.args.size() == 1)
        return WithDefault(call, QAnyValue(kind.filter), succeeded);
    const CString title = kind.title;
    if (AnswersAsServer()) {
        LogIgnored(kind.function, title);
        return Done(call, call.args[0], succeeded);
    }
    const CString folder = FolderFor(kind.folder);
    const CString start = Text(call.args[0]);
    CString path = start.IsEmpty() ? start : FileIn(kind.folder, start, u"");
    if (!UIServices().BrowseForFile(title, folder, Text(call.args[1]), path))
        return Done(call, call.args[0], succeeded);
    if (QPathOp::MatchLeadingFolderFromPath(path, folder))
        path = QPathOp::RemoveLeadingFolderFromPath(path, folder);
    return Done(call, QAnyValue(path), succeeded);
}

bool BrowseFile(QBuiltinCall& call, bool& succeeded) {
    static const QTString title(u"Browse for File", u"Dialog title");
    return Browse(call, {u"BROWSEFILE", title, QConstantFolder::Table, u""}, succeeded);
}

bool BrowseImage(QBuiltinCall& call, bool& succeeded) {
    static const QTString title(u"Browse for Texture", u"Dialog title");
    return Browse(call,
                  {u"BROWSEIMAGE", title, QConstantFolder::Picture,
                   u"*.png;*.jpg;*.jpeg;*.bmp;*.gif;*.tif;*.tiff"},
                  succeeded);
}

bool BrowseModel(QBuiltinCall& call, bool& succeeded) {
    static const QTString title(u"Browse for Model", u"Dialog title");
    return Browse(call, {u"BROWSEMODEL", title, QConstantFolder::Table, u"*.3ds;*.obj;*.dxf"},
                  succeeded);
}

bool BrowseDxf(QBuiltinCall& call, bool& succeeded) {
    static const QTString title(u"Browse for File", u"Dialog title");
    return Browse(call, {u"BROWSEDXF", title, QConstantFolder::Table, u"*.dxf"}, succeeded);
}

// formeditor(file [, group]): a question file of the library folder, ".viqx" by default.
bool FormEditor(QBuiltinCall& call, bool& succeeded) {
    if (call.args.size() == 1)
        return WithDefault(call, QAnyValue(u""), succeeded);
    const CString path = FileIn(QConstantFolder::Library, Text(call.args[0]), u".viqx");
    if (AnswersAsServer()) {
        LogIgnored(u"FORMEDITOR", path);
        return Done(call, QAnyValue(false), succeeded);
    }
    return Done(call, QAnyValue(UIServices().EditForm(path, Text(call.args[1]))), succeeded);
}

// tableeditor(name): a table of the table folder, ".vlt" by default.
bool TableEditor(QBuiltinCall& call, bool& succeeded) {
    const CString path = FileIn(QConstantFolder::Table, Text(call.args[0]), u".vlt");
    if (AnswersAsServer()) {
        LogIgnored(u"TABLEEDITOR", path);
        return Done(call, QAnyValue(false), succeeded);
    }
    return Done(call, QAnyValue(UIServices().EditTable(path)), succeeded);
}

// edittext(v): the text edited, or v when the person cancelled.
bool EditText(QBuiltinCall& call, bool& succeeded) {
    CString text = Text(call.args[0]);
    if (AnswersAsServer()) {
        LogIgnored(u"EDITTEXT", text);
        return Done(call, call.args[0], succeeded);
    }
    static const QTString title(u"Edit Text", u"Dialog title");
    if (!UIServices().EditText(text, title))
        return Done(call, call.args[0], succeeded);
    return Done(call, QAnyValue(text), succeeded);
}

// --- Message boxes ------------------------------------------------------------------------------

// confirm(s): true for Yes; a server answers Yes, the box's default.
bool Confirm(QBuiltinCall& call, bool& succeeded) {
    const CString prompt = TranslateString(Text(call.args[0]), u"", u"Friendly prompt");
    return Done(call, QAnyValue(QMessageBoxYesNoExceptServer(u"CONFIRM", prompt, IDYES) == IDYES),
                succeeded);
}

// alert(s) and msgbox(s) are one function.
bool MsgBox(QBuiltinCall& call, bool& succeeded) {
    QMessageBoxExceptServer(u"MSGBOX", Text(call.args[0]));
    return Done(call, QAnyValue(true), succeeded);
}

// msgboxlog(s [, t]): with a title the message goes under that heading; without one under the
// default heading, with flags 1 (true), as it always has.
bool MsgBoxLog(QBuiltinCall& call, bool& succeeded) {
    const CString message = Text(call.args[0]);
    if (call.args.size() == 1)
        QMessageBoxOrLog(message, static_cast<unsigned>(true));
    else
        QMessageBoxOrLog(message, Text(call.args[1]));
    return Done(call, QAnyValue(true), succeeded);
}

} // namespace

const QBuiltinGroup& WindowFunctions() {
    static constexpr QBuiltinFunction functions[] = {
        {u"showpage", 2, 2, u"category, page", true, ShowPage},
        {u"pickcolor", 1, 1, u"v", true, PickColor},
        {u"browsefile", 0, 2, u"[path [, filter]]", true, BrowseFile},
        {u"browseimage", 0, 2, u"[path [, filter]]", true, BrowseImage},
        {u"browsemodel", 0, 2, u"[path [, filter]]", true, BrowseModel},
        {u"browsedxf", 0, 2, u"[path [, filter]]", true, BrowseDxf},
        {u"formeditor", 1, 2, u"file [, group]", true, FormEditor},
        {u"tableeditor", 1, 1, u"name", true, TableEditor},
        {u"showfriendlypages", 1, 5, u"v [, v [, a [, a [, v]]]]", true, ShowFriendlyPages},
        {u"showfriendlywizard", 1, 5, u"v [, v [, a [, a [, v]]]]", true, ShowFriendlyWizard},
        {u"edittext", 1, 1, u"v", false, EditText},
        {u"confirm", 1, 1, u"s", false, Confirm},
        {u"alert", 1, 1, u"s", false, MsgBox},
        {u"msgbox", 1, 1, u"s", false, MsgBox},
        {u"msgboxlog", 1, 2, u"s [, t]", false, MsgBoxLog},
    };
    static const QBuiltinGroup group{u"Dialogs and messages", functions};
    return group;
}

} // namespace keel
