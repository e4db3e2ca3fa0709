#pragma once

#include "keel/document/appservices.h"
#include "keel/platform/cstring.h"
#include "keel/values/stringunique.h"

namespace keel {

class QAnyValue;
class QEvaluator;
class QFormulaContext;
class QFormulaDatabase;

// The kinds of folder that formula constants such as `datafolder` name.
enum class QConstantFolder {
    Program,
    Data,
    Drawing,
    DrawingSub,
    Report,
    ToolData,
    Library,
    BasedOnLibrary,
    Table,
    Picture,
    Template,
    Backup,
    MyDocuments,
    MyDocumentsProduct,
};

// The formula layer's part of the application services: evaluators of the application's own
// class, the folders that formula constants name, the items of its library and its databases. It is
// installed as the services (SetEvaluatorFactory); without one, plain evaluators are made, the
// folder constants are empty strings and the library is the current folder.
class QEvaluatorFactory : public QAppServices {
public:
    virtual QEvaluator* NewQEvaluator(QAnyValue& result, FormulaText formula,
                                      QFormulaContext* context, bool passThrough, bool reportErrors,
                                      bool isAction) = 0;
    // The folder as a file path ("/a/b", no trailing "/"), or empty when there is none.
    virtual CString FolderForConstant(QConstantFolder folder) const = 0;
    // What `librarylist` gives: the names, without extension, of the files in `folder` of the
    // library that `filter` matches whole and, unless `type` is empty, that have the extension
    // `type`, in order, joined by `separator`. By default the library is the Library folder, or
    // the current folder when there is none.
    virtual CString LibraryList(const CString& folder, const CString& filter,
                                const CString& separator, const CString& type) const;
    // The database access of the `db` functions; none by default, and they then fail.
    virtual QFormulaDatabase* Database() { return nullptr; }

    QEvaluatorFactory* EvaluatorFactory() override { return this; }
};

// Installs the factory as the application services (SetAppServices); returns the factory of the
// services it replaces. nullptr uninstalls.
QEvaluatorFactory* SetEvaluatorFactory(QEvaluatorFactory* factory);
// The factory of the installed services, or nullptr.
QEvaluatorFactory* GetEvaluatorFactory();

} // namespace keel
