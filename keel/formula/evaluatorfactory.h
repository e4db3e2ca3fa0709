#pragma once

#include "keel/platform/cstring.h"
#include "keel/values/stringunique.h"

namespace keel {

class QAnyValue;
class QEvaluator;
class QFormulaContext;

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

// What the layers below the application need of it: evaluators of the application's own class,
// the folders it keeps and its options. The application object installs itself; without one,
// plain evaluators are made, the folder constants are empty strings and options their defaults.
class QEvaluatorFactory {
public:
    virtual ~QEvaluatorFactory() = default;
    virtual QEvaluator* NewQEvaluator(QAnyValue& result, FormulaText formula,
                                      QFormulaContext* context, bool passThrough, bool reportErrors,
                                      bool isAction) = 0;
    // The folder as a file path ("/a/b", no trailing "/"), or empty when there is none.
    virtual CString FolderForConstant(QConstantFolder folder) const = 0;
    // An integer option from the application's store; `defaultValue` unless a factory keeps
    // options.
    virtual int ProfileInt(const CString& /*section*/, const CString& /*key*/,
                           int defaultValue) const {
        return defaultValue;
    }
};

// Returns the factory it replaces; nullptr uninstalls.
QEvaluatorFactory* SetEvaluatorFactory(QEvaluatorFactory* factory);
QEvaluatorFactory* GetEvaluatorFactory();

} // namespace keel
