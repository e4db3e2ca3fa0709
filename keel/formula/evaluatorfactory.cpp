#include "keel/formula/evaluatorfactory.h"

#include "keel/formula/builtins.h"
#include "keel/system/currentdirectory.h"

namespace keel {

namespace {

QEvaluatorFactory* FactoryOf(QAppServices* services) {
    return services ? services->EvaluatorFactory() : nullptr;
}

} // namespace

CString QEvaluatorFactory::LibraryList(const CString& folder, const CString& filter,
                                       const CString& separator, const CString& type) const {
    const CString library = FolderForConstant(QConstantFolder::Library);
    return builtin::ListLibraryItems(library.IsEmpty() ? QCurrentDirectory::Get() : library + u"/",
                                     folder, filter, separator, type);
}

QEvaluatorFactory* SetEvaluatorFactory(QEvaluatorFactory* factory) {
    return FactoryOf(SetAppServices(factory));
}

QEvaluatorFactory* GetEvaluatorFactory() {
    return FactoryOf(GetAppServices());
}

} // namespace keel
