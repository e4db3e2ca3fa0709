#include "keel/platform/archive.h"
#include "keel/platform/file.h"
#include "keel/platform/schema.h"
#include "keel/values/anyvalue.h"

#include <atomic>
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <new>
#include <variant>

using namespace keel;

// Every allocation of the program is counted, so that each benchmark can report how many its
// loop made: arithmetic on numbers and units must make none.
namespace {
std::atomic<long long> g_allocations{0};
} // namespace

[[gnu::noinline]] void* operator new(std::size_t size) {
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* block = std::malloc(size ? size : 1))
        return block;
    throw std::bad_alloc();
}

[[gnu::noinline]] void operator delete(void* block) noexcept {
    std::free(block);
}

[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}

namespace {

// Reports the allocations made per iteration while it lives.
class AllocationCounter {
public:
    explicit AllocationCounter(benchmark::State& state)
        : m_state(state), m_start(g_allocations.load()) {}
    ~AllocationCounter() {
        const double made = static_cast<double>(g_allocations.load() - m_start);
        m_state.counters["allocs_per_op"] =
            benchmark::Counter(made / static_cast<double>(m_state.iterations()));
    }
    AllocationCounter(const AllocationCounter&) = delete;
    AllocationCounter& operator=(const AllocationCounter&) = delete;

private:
    benchmark::State& m_state;
    long long m_start;
};

// The peer of a tagged value built on the standard library, with the same two numeric types.
using Peer = std::variant<int, double>;

void AddPeer(Peer& a, const Peer& b) {
    std::visit(
        [&a](auto x, auto y) {
            using X = decltype(x);
            using Y = decltype(y);
            if constexpr (std::is_same_v<X, int> && std::is_same_v<Y, int>)
                a = x + y;
            else
                a = static_cast<double>(x) + static_cast<double>(y);
        },
        a, b);
}

void MultiplyPeer(Peer& a, const Peer& b) {
    std::visit(
        [&a](auto x, auto y) {
            using X = decltype(x);
            using Y = decltype(y);
            if constexpr (std::is_same_v<X, int> && std::is_same_v<Y, int>)
                a = x * y;
            else
                a = static_cast<double>(x) * static_cast<double>(y);
        },
        a, b);
}

void BM_PlainDoubleAdd(benchmark::State& state) {
    double sum = 0;
    double step = 1.5;
    for (auto _ : state) {
        benchmark::DoNotOptimize(step);
        sum += step;
        benchmark::DoNotOptimize(sum);
    }
}
BENCHMARK(BM_PlainDoubleAdd);

void BM_VariantPeerDoubleAdd(benchmark::State& state) {
    Peer sum = 0.0;
    const Peer step = 1.5;
    for (auto _ : state) {
        AddPeer(sum, step);
        benchmark::DoNotOptimize(sum);
    }
}
BENCHMARK(BM_VariantPeerDoubleAdd);

void BM_VariantPeerIntMultiply(benchmark::State& state) {
    Peer product = 1;
    const Peer factor = 3;
    for (auto _ : state) {
        MultiplyPeer(product, factor);
        benchmark::DoNotOptimize(product);
    }
}
BENCHMARK(BM_VariantPeerIntMultiply);

template <class Op>
void RunInPlace(benchmark::State& state, QAnyValue accumulator, const QAnyValue& operand, Op op) {
    AllocationCounter counter(state);
    for (auto _ : state) {
        op(accumulator, operand);
        benchmark::DoNotOptimize(accumulator);
    }
}

void BM_AnyValueIntAdd(benchmark::State& state) {
    RunInPlace(state, QAnyValue(0), QAnyValue(1), [](QAnyValue& a, const QAnyValue& b) { a += b; });
}
BENCHMARK(BM_AnyValueIntAdd);

void BM_AnyValueDoubleAdd(benchmark::State& state) {
    RunInPlace(state, QAnyValue(0.0), QAnyValue(1.5),
               [](QAnyValue& a, const QAnyValue& b) { a += b; });
}
BENCHMARK(BM_AnyValueDoubleAdd);

void BM_AnyValueLengthAdd(benchmark::State& state) {
    RunInPlace(state, QAnyValue(QLength(0.0)), QAnyValue(QLength(2.5)),
               [](QAnyValue& a, const QAnyValue& b) { a += b; });
}
BENCHMARK(BM_AnyValueLengthAdd);

void BM_AnyValueMixedAdd(benchmark::State& state) {
    RunInPlace(state, QAnyValue(QLength(0.0)), QAnyValue(2),
               [](QAnyValue& a, const QAnyValue& b) { a += b; });
}
BENCHMARK(BM_AnyValueMixedAdd);

void BM_AnyValueIntMultiply(benchmark::State& state) {
    RunInPlace(state, QAnyValue(1), QAnyValue(3), [](QAnyValue& a, const QAnyValue& b) { a *= b; });
}
BENCHMARK(BM_AnyValueIntMultiply);

void BM_AnyValueDoubleMultiply(benchmark::State& state) {
    RunInPlace(state, QAnyValue(1.0), QAnyValue(1.0000001),
               [](QAnyValue& a, const QAnyValue& b) { a *= b; });
}
BENCHMARK(BM_AnyValueDoubleMultiply);

void BM_AnyValueLengthMultiply(benchmark::State& state) {
    RunInPlace(state, QAnyValue(QLength(1.0)), QAnyValue(1.0000001),
               [](QAnyValue& a, const QAnyValue& b) { a *= b; });
}
BENCHMARK(BM_AnyValueLengthMultiply);

void BM_AnyValueLengthTimesLength(benchmark::State& state) {
    const QAnyValue width(QLength(2000.0));
    const QAnyValue depth(QLength(600.0));
    AllocationCounter counter(state);
    for (auto _ : state) {
        QAnyValue area = width;
        area *= depth;
        benchmark::DoNotOptimize(area);
    }
}
BENCHMARK(BM_AnyValueLengthTimesLength);

void BM_PlainStringCompareNoCase(benchmark::State& state) {
    const CString a(u"Cabinet Door Width Left");
    const CString b(u"cabinet door width right");
    for (auto _ : state)
        benchmark::DoNotOptimize(a.CompareNoCase(b));
}
BENCHMARK(BM_PlainStringCompareNoCase);

void BM_AnyValueCompareStrings(benchmark::State& state) {
    const QAnyValue a(u"Cabinet Door Width Left");
    const QAnyValue b(u"cabinet door width right");
    AllocationCounter counter(state);
    for (auto _ : state) {
        bool failed = false;
        benchmark::DoNotOptimize(a.Compare(b, failed));
    }
}
BENCHMARK(BM_AnyValueCompareStrings);

QAnyValue LargeArray() {
    QArray<QAnyValue> elements;
    elements.SetSize(100000);
    for (int i = 0; i < elements.GetCount(); ++i) {
        switch (i % 4) {
        case 0:
            elements[i] = i;
            break;
        case 1:
            elements[i] = i * 0.5;
            break;
        case 2:
            elements[i] = QLength(i * 0.25);
            break;
        default:
            elements[i] = QMoney::FromRaw(i);
            break;
        }
    }
    return QAnyValue(elements);
}

void BM_AnyValueArchiveRoundTrip(benchmark::State& state) {
    QSchema::SetDefaultSchema(200);
    const QAnyValue array = LargeArray();
    std::size_t bytes = 0;
    for (auto _ : state) {
        CMemFile file;
        {
            CArchive out(&file, CArchive::store);
            out << array;
            out.Close();
        }
        bytes = file.GetLength();
        file.SeekToBegin();
        CArchive in(&file, CArchive::load);
        QAnyValue back;
        in >> back;
        benchmark::DoNotOptimize(back);
    }
    state.SetBytesProcessed(static_cast<long long>(state.iterations() * bytes));
    state.counters["elements"] = 100000;
}
BENCHMARK(BM_AnyValueArchiveRoundTrip)->Unit(benchmark::kMillisecond);

} // namespace
