#include "keel/platform/reentrancy.h"

#include "keel/platform/cstring.h"
#include "keel/platform/uiservices.h"

namespace keel {

QReentrancyWriter::QReentrancyWriter(QReentrancyCounter& counter, const char* name)
    : m_counter(counter), m_name(name), m_reentered(counter.IsEntered()) {
    ++m_counter.m_count;
    if (m_reentered)
        OutputDebugText(
            CString::Formatted(u"Reentrancy in %hs (depth %d)\n", m_name, m_counter.m_count));
}

QReentrancyWriter::~QReentrancyWriter() {
    --m_counter.m_count;
}

} // namespace keel
