// Formula texts from anywhere: tokenising, parsing and evaluating with no context, then the same
// text as a syntax check with evaluation counted off. A failed evaluation must leave an error.
//
// A string made a number is run as a formula again while it gives a string, so the formula guard
// watches every formula that an evaluation runs on the way (eval(), a string made numeric).
#include "fuzz/formulaguard.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

namespace {

using namespace keel;

// A formula's offsets are 16-bit: nothing longer can be tokenised.
constexpr std::size_t c_maxInputBytes = 32767;
constexpr int c_maxEvaluationsPerInput = 1000;

void EvaluateChecked(const FormulaText& formula, bool noEval) {
    QAnyValue result;
    const std::unique_ptr<QEvaluator> evaluator(
        QEvaluator::New(result, formula, nullptr, false, false, false));
    const bool ok = noEval ? evaluator->EvaluateNoEval() : evaluator->Evaluate();
    if (!ok && !result.IsError())
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    keel::fuzz::InstallGuard();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    CString text;
    if (!keel::fuzz::ReadBoundedFormula(data, size, c_maxInputBytes, text))
        return 0;

    const FormulaText formula(text);
    keel::fuzz::Guard().StartInput(c_maxEvaluationsPerInput);
    EvaluateChecked(formula, false);
    EvaluateChecked(formula, true);
    // The interned text stays, but its tokens need not.
    if (!formula.IsEmpty())
        QTokeniser::ForceRetokenise(formula.UniqueId());
    return 0;
}
