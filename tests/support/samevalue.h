#pragma once

#include "tests/support/anyvalues.h"

#include "keel/values/anyvalue.h"

#include <gtest/gtest.h>
#include <string>

namespace keel::test {

inline std::string Describe(const QAnyValue& value) {
    if (value.IsError())
        return "error \"" + MessageOf(value) + "\"";
    return value.TypeName().ToUtf8() + " " + value.Format().ToUtf8();
}

// Same type and content; errors by their message, strings by their exact text, arrays element
// by element, everything else as Identical sees it.
inline bool SameValue(const QAnyValue& actual, const QAnyValue& expected) {
    if (actual.Type() != expected.Type())
        return false;
    if (actual.IsError())
        return MessageOf(actual) == MessageOf(expected);
    if (actual.IsString())
        return QAnyValue(actual).MakeCString() == QAnyValue(expected).MakeCString();
    if (actual.IsArray()) {
        QAnyValue actualCopy(actual);
        QAnyValue expectedCopy(expected);
        const QArray<QAnyValue>& mine = actualCopy.MakeArray();
        const QArray<QAnyValue>& theirs = expectedCopy.MakeArray();
        if (mine.GetCount() != theirs.GetCount())
            return false;
        for (int i = 0; i < mine.GetCount(); ++i)
            if (!SameValue(mine[i], theirs[i]))
                return false;
        return true;
    }
    return actual.Identical(expected);
}

inline ::testing::AssertionResult Same(const QAnyValue& actual, const QAnyValue& expected) {
    if (SameValue(actual, expected))
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure()
           << "got " << Describe(actual) << ", expected " << Describe(expected);
}

} // namespace keel::test
