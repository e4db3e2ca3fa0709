#include "keel/questions/propertyhandle.h"

#include "keel/formula/formulacontext.h"

namespace keel {

QPropertyHandle::QPropertyHandle(const QFormulaContext& context, PropId key) : m_key(key) {
    if (const QProperties* bag = context.Properties())
        m_link = bag->Link();
}

bool QPropertyHandle::Read(QAnyValue& value, bool& error, QCacheState* state) {
    if (IsUpToDate()) {
        value = m_value->ValueNoEnsureUpToDate();
        error = false;
        return true;
    }
    value = ReadSlowly();
    error = m_error;
    if (m_found && state)
        RaiseCacheState(*state, m_cacheState);
    return m_found;
}

const QAnyValue& QPropertyHandle::ReadSlowly() {
    Disarm();
    const QProperties* bag = m_link ? m_link->bag : nullptr;
    const QProp* prop = bag ? bag->PropertyOf(m_key) : nullptr;
    if (!prop)
        return Missing();
    // Taken before the read, so that a change of shape made by the evaluation itself leaves the
    // handle to look again next time.
    const std::uint64_t shape = QTreeShape::Number();
    const QWithFormula<QAnyValue>& value = prop->ValueWithFormula();
    const QAnyValue& current = value.Value();
    m_found = true;
    m_error = value.IsErrorBit();
    m_cacheState = value.CacheState();
    if (const QWithContextVirtual* root = value.SyncRoot()) {
        m_value = &value;
        m_sync = root->SyncStateIfRoot();
        m_shape = shape;
    }
    if (!m_error)
        return current;
    m_given = current;
    m_given.MakeError();
    return m_given;
}

const QAnyValue& QPropertyHandle::Missing() {
    m_found = false;
    m_error = false;
    m_given.MakeEmpty();
    return m_given;
}

void QPropertyHandle::Disarm() {
    m_value = nullptr;
    m_sync = nullptr;
    m_shape = c_unarmed;
}

} // namespace keel
