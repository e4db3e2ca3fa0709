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

// What the formula layer needs of the application above it: evaluators of the application's own
// class, and the folders it keeps. The application object installs itself; without one, plain
// evaluators are made and the folder constants are empty strings.
class QEvaluatorFactory {
public:
    virtual ~QEvaluatorFactory() = default;
    virtual QEvaluator* NewQEvaluator(QAnyValue& result, FormulaText formula,
                                      QFormulaContext* context, bool passThrough, bool reportErrors,
                                      bool isAction) = 0;
    // The folder as a file path ("/a/b", no trailing "/"), or empty when there is none.
    virtual CString FolderForConstant(QConstantFolder folder) const = 0;
};

// Returns the factory it replaces; nullptr uninstalls.
QEvaluatorFactory* SetEvaluatorFactory(QEvaluatorFactory* factory);
QEvaluatorFactory* GetEvaluatorFactory();

} // namespace keel
