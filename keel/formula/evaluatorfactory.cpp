#include "keel/formula/evaluatorfactory.h"

#include "keel/formula/builtins.h"
#include "keel/system/currentdirectory.h"

#include <atomic>

namespace keel {

namespace {

// The factory last installed through SetEvaluatorFactory. The services it replaces are compared
// with it, never called: a caller may have left services behind that no longer exist.
std::atomic<QEvaluatorFactory*> c_installedFactory{nullptr};

} // namespace

CString QEvaluatorFactory::LibraryList(const CString& folder, const CString& filter,
                                       const CString& separator, const CString& type) const {
    const CString library = FolderForConstant(QConstantFolder::Library);
    return builtin::ListLibraryItems(library.IsEmpty() ? QCurrentDirectory::Get() : library + u"/",
                                     folder, filter, separator, type);
}

QEvaluatorFactory* SetEvaluatorFactory(QEvaluatorFactory* factory) {
    QEvaluatorFactory* const installed = c_installedFactory.exchange(factory);
    QAppServices* const replaced = SetAppServices(factory);
    return replaced && replaced == installed ? installed : nullptr;
}

QEvaluatorFactory* GetEvaluatorFactory() {
    QAppServices* const services = GetAppServices();
    return services ? services->EvaluatorFactory() : nullptr;
}

} // namespace keel
