#pragma once

#include "keel/values/length.h"

// What areas, volumes and angles share at their edges: the unit word, reading a number with an
// optional unit word, the text of two decimals and the guard on the stored double. `Words` is a
// description of one quantity:
//
//   struct AreaWords {
//       using Quantity = QArea;
//       using Units = QArea::AREAUNITS;
//       static constexpr const char16_t* kWords[] = {...}; // one a unit, "" for none
//       static constexpr const char* kPattern = " %f %4[sqcminft] %1s";
//       static constexpr Units kFirst = ..., kLast = ...;  // the units that have a word
//   };

namespace keel::unit_quantity {

template <class Words>
CString UnitWord(typename Words::Units unit) {
    const typename Words::Units resolved = Words::Quantity::Resolve(unit);
    Words::Quantity::Factor(resolved);
    return Words::kWords[resolved];
}

template <class Words>
PARSERESULT Parse(typename Words::Quantity& quantity, const CString& text,
                  typename Words::Units unit) {
    using Units = typename Words::Units;
    const quantity_text::ScannedQuantity scanned = quantity_text::ScanNumberAndUnitWord(
        text, Words::kPattern, Words::kFirst, Words::kLast,
        [](int word) { return UnitWord<Words>(static_cast<Units>(word)); });
    if (scanned.result != PARSE_NONE)
        quantity.SetRaw(Words::Quantity::double_to_raw(
            scanned.value, scanned.unit < 0 ? unit : static_cast<Units>(scanned.unit)));
    return scanned.result;
}

template <class Words>
CString Format(const typename Words::Quantity& quantity, typename Words::Units unit,
               bool showUnit) {
    const typename Words::Units resolved = Words::Quantity::Resolve(unit);
    CString text =
        CString::Formatted(u"%.2f", Words::Quantity::raw_to_double(quantity.GetRaw(), resolved));
    const CString word = UnitWord<Words>(resolved);
    if (showUnit && !word.IsEmpty())
        text += u" " + word;
    return text;
}

// The raw double is set to 0 when it is out of range; true when it was.
template <class Quantity>
bool LimitDoubleAlways(Quantity& quantity, const CString& where) {
    double raw = quantity.GetRaw();
    if (!keel::LimitDoubleAlways(raw, where))
        return false;
    quantity.SetRaw(raw);
    return true;
}

// Reads the raw double; one out of range reads as 0 and is reported as a bad `what`.
template <class Quantity>
CArchive& ReadRaw(CArchive& archive, Quantity& quantity, const CString& where,
                  const CString& what) {
    double raw = 0;
    archive >> raw;
    quantity.SetRaw(raw);
    if (LimitDoubleAlways(quantity, where))
        QMessageBoxOrLog_LimitDoubleFailed(archive, what);
    return archive;
}

} // namespace keel::unit_quantity
