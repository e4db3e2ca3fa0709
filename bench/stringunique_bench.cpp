#include "keel/values/stringunique.h"

#include <benchmark/benchmark.h>
#include <unordered_set>
#include <vector>

using namespace keel;

namespace {

constexpr int c_words = 100000;

std::vector<CString> MakeWords(const char16_t* stem) {
    std::vector<CString> words;
    words.reserve(c_words);
    for (int i = 0; i < c_words; ++i)
        words.push_back(CString::Formatted(u"%s%05d", stem, i));
    return words;
}

void BM_InternNewString(benchmark::State& state) {
    int serial = 0;
    for (auto _ : state) {
        state.PauseTiming();
        const CString text = CString::Formatted(u"fresh_name_%d", serial++);
        state.ResumeTiming();
        benchmark::DoNotOptimize(PropId(text).UniqueId());
    }
}
BENCHMARK(BM_InternNewString);

void BM_InternKnownString(benchmark::State& state) {
    const CString text = u"Cabinet_Width";
    const PropId known(text);
    for (auto _ : state)
        benchmark::DoNotOptimize(PropId(text).UniqueId());
}
BENCHMARK(BM_InternKnownString);

void BM_InternKnownStringOtherCase(benchmark::State& state) {
    const PropId known(u"Cabinet_Depth");
    const CString text = u"CABINET_DEPTH";
    for (auto _ : state)
        benchmark::DoNotOptimize(PropId(text).UniqueId());
}
BENCHMARK(BM_InternKnownStringOtherCase);

// The peer of an interned string for a set of names: a std::u16string in an unordered_set.
void BM_StdUnorderedSetFindKnown(benchmark::State& state) {
    std::unordered_set<std::u16string> names;
    for (const CString& word : MakeWords(u"set_"))
        names.insert(std::u16string(word.View()));
    const std::u16string text = u"set_04711";
    for (auto _ : state)
        benchmark::DoNotOptimize(names.find(text));
}
BENCHMARK(BM_StdUnorderedSetFindKnown);

void BM_CompareInterned(benchmark::State& state) {
    const PropId a(u"Wall_Height");
    const PropId b(u"Wall_Length");
    for (auto _ : state) {
        benchmark::DoNotOptimize(a);
        benchmark::DoNotOptimize(b);
        benchmark::DoNotOptimize(a == b);
    }
}
BENCHMARK(BM_CompareInterned);

void BM_CompareStrings(benchmark::State& state) {
    const CString a = u"Wall_Height";
    const CString b = u"Wall_Length";
    for (auto _ : state)
        benchmark::DoNotOptimize(a == b);
}
BENCHMARK(BM_CompareStrings);

void BM_HashInterned(benchmark::State& state) {
    const PropId a(u"Wall_Height");
    for (auto _ : state) {
        benchmark::DoNotOptimize(a);
        benchmark::DoNotOptimize(HashKey(a));
    }
}
BENCHMARK(BM_HashInterned);

void BM_SuggestCompletion(benchmark::State& state) {
    for (const CString& word : MakeWords(u"completion_word_"))
        PropId{word};
    int n = 0;
    for (auto _ : state) {
        CString text = u"completion_word_4";
        benchmark::DoNotOptimize(QStringUniqueCommon::SuggestCompletion(text, n++ % 8));
    }
    state.counters["sorted"] = QStringUniqueCommon::StringsCount();
}
BENCHMARK(BM_SuggestCompletion);

} // namespace
