#pragma once

#include "keel/formula/state.h"
#include "keel/formula/treeshape.h"
#include "keel/formula/withformula.h"
#include "keel/questions/properties.h"
#include "keel/values/anyvalue.h"
#include "keel/values/stringunique.h"

#include <cstdint>
#include <memory>

namespace keel {

class QFormulaContext;

// The answer of one key in one context's bag, found by name once and then read without a
// look-up. It reads what QProperties::GetPropertyValue reads: the value brought up to date, an
// error value for a value in error, and nothing for a key the bag does not hold.
//
// A read of a value that is up to date compares the value's state word with the root's counter
// word (equal words mean the same number, a stable value and no error), checks that the value is
// not evaluating and that the shape of the trees has not changed since the handle last looked
// (QTreeShape), and hands back the stored value. Anything else takes the slow way: the key is
// looked up in the bag again, the value is read through the evaluating getter, and the handle
// remembers the root it found for the next read. So:
// - a stale value is evaluated on the next read, as by name;
// - a removed answer reads as missing until an answer of that key is set again, which the
//   handle then reads; an answer replaced by another key reads as missing, and one replaced by
//   an answer of the same key is read in its place;
// - once the bag is destroyed (with its context) every read finds nothing, and the handle
//   touches neither the bag nor its answers;
// - a root destroyed, or a context or a value moved to another parent, sends the next read the
//   slow way, which finds the new root.
// A handle holds no answer alive and owns nothing but its share of the bag's link. It belongs to
// the thread that owns the document, like the answers themselves.
class QPropertyHandle {
public:
    // A handle to nothing: every read finds nothing.
    QPropertyHandle() = default;
    // The answer of `key` in the bag that `context` holds now; a context without a bag gives a
    // handle to nothing.
    QPropertyHandle(const QFormulaContext& context, PropId key);

    PropId Key() const { return m_key; }

    // The value as GetPropertyValue gives it, the empty value when the answer is missing. The
    // reference holds until the next read through this handle or the next change of the answer.
    const QAnyValue& Value() {
        if (IsUpToDate()) [[likely]]
            return m_value->ValueNoEnsureUpToDate();
        return ReadSlowly();
    }

    // As QProperties::GetPropertyValue: true with the value, its error flag and `state` raised to
    // the value's cache state; false with the empty value and no error when the answer is missing.
    bool Read(QAnyValue& value, bool& error, QCacheState* state = nullptr);

private:
    bool IsUpToDate() const {
        return m_shape == QTreeShape::Number() && m_value->State().Word() == m_sync->Word() &&
               !m_value->IsEvaluatingNow();
    }
    const QAnyValue& ReadSlowly();
    const QAnyValue& Missing();
    void Disarm();

    // The shape number never reaches this one, so a handle that holds it is never up to date.
    static constexpr std::uint64_t c_unarmed = ~std::uint64_t(0);

    PropId m_key;
    std::shared_ptr<QPropertiesLink> m_link;
    // The value and its root's counter, good only while QTreeShape still says m_shape.
    const QWithFormula<QAnyValue>* m_value = nullptr;
    const QState* m_sync = nullptr;
    std::uint64_t m_shape = c_unarmed;
    // What the last slow read found, and the value it gave when that is not the stored one.
    bool m_found = false;
    bool m_error = false;
    QCacheState m_cacheState = QCS_Stable;
    QAnyValue m_given;
};

} // namespace keel
