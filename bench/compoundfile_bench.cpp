// A document of 10 000 pieces of 10 kB (100 MB) saved to a compound file and loaded again,
// through our storage classes (written and read by archives, as documents do; the save commits,
// which writes, checks and renames) and, as the peer in the same run, through libgsf directly
// (one pass writing, one reading). The pieces are 10 000 streams of the root (argument 0), or 10
// 000 items one after the other in one "Contents" stream (argument 1), the shape of a document.
// Each benchmark times both and reports the peer's time, our time over the peer's, and the peak
// resident memory of each above what the process held before.

#include "bench/benchfolder.h"

#include "keel/platform/archive.h"
#include "keel/platform/compoundstorage.h"

#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gsf/gsf-infile-msole.h>
#include <gsf/gsf-infile.h>
#include <gsf/gsf-input-stdio.h>
#include <gsf/gsf-outfile-msole.h>
#include <gsf/gsf-output-stdio.h>
#include <gsf/gsf-utils.h>
#include <malloc.h>
#include <string>
#include <vector>

using namespace keel;

namespace {

constexpr int c_streams = 10000;
constexpr std::size_t c_streamSize = 10240;

using Document = std::vector<std::vector<std::uint8_t>>;

std::filesystem::path BenchFolder() {
    static const std::filesystem::path folder = bench::NewBenchFolder("compoundfile_bench");
    return folder;
}

const Document& SampleDocument() {
    static const Document document = [] {
        Document streams(c_streams);
        for (int index = 0; index < c_streams; ++index) {
            streams[index].resize(c_streamSize);
            for (std::size_t i = 0; i < c_streamSize; ++i)
                streams[index][i] = static_cast<std::uint8_t>(i * 31 + index);
        }
        return streams;
    }();
    return document;
}

std::string StreamName(int index) {
    return "Item " + std::to_string(index);
}

// Peak resident memory, in bytes, since the last reset.
long PeakResident() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmHWM:", 0) == 0)
            return std::stol(line.substr(6)) * 1024;
    }
    return 0;
}

long CurrentResident() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmRSS:", 0) == 0)
            return std::stol(line.substr(6)) * 1024;
    }
    return 0;
}

// Runs `work` and gives its wall time in seconds and the peak memory it added, in MB.
template <class Work>
std::pair<double, double> Measure(Work&& work) {
    // Memory freed earlier goes back to the system first, so that reusing it counts.
    ::malloc_trim(0);
    std::ofstream("/proc/self/clear_refs") << "5";
    const long before = CurrentResident();
    const auto start = std::chrono::steady_clock::now();
    work();
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return {seconds, static_cast<double>(PeakResident() - before) / (1024.0 * 1024.0)};
}

void SaveOurs(const Document& document, const std::string& path, bool oneStream) {
    std::unique_ptr<CStorage> root = CStorage::CreateFile(CString::FromUtf8(path), 0x1012);
    CStreamFile contents;
    if (oneStream && !contents.CreateStream(*root, u"Contents", 0x1012))
        std::abort();
    CArchive items(&contents, CArchive::store, 4096);
    for (int index = 0; index < c_streams; ++index) {
        if (oneStream) {
            items.Write(document[index].data(), static_cast<unsigned>(c_streamSize));
            continue;
        }
        CStreamFile stream;
        if (!stream.CreateStream(*root, CString::FromUtf8(StreamName(index)), 0x1012))
            std::abort();
        CArchive archive(&stream, CArchive::store, 4096);
        archive.Write(document[index].data(), static_cast<unsigned>(c_streamSize));
        archive.Close();
    }
    items.Close();
    contents.Close();
    if (!root->Commit(9))
        std::abort();
}

void SaveGsf(const Document& document, const std::string& path, bool oneStream) {
    GsfOutput* sink = gsf_output_stdio_new(path.c_str(), nullptr);
    GsfOutfile* outfile = gsf_outfile_msole_new(sink);
    g_object_unref(sink);
    GsfOutput* contents = oneStream ? gsf_outfile_new_child(outfile, "Contents", FALSE) : nullptr;
    for (int index = 0; index < c_streams; ++index) {
        if (oneStream) {
            gsf_output_write(contents, c_streamSize, document[index].data());
            continue;
        }
        GsfOutput* child = gsf_outfile_new_child(outfile, StreamName(index).c_str(), FALSE);
        gsf_output_write(child, c_streamSize, document[index].data());
        gsf_output_close(child);
        g_object_unref(child);
    }
    if (contents) {
        gsf_output_close(contents);
        g_object_unref(contents);
    }
    gsf_output_close(GSF_OUTPUT(outfile));
    g_object_unref(outfile);
}

// Each stream as one piece, or the pieces of 10 kB in the one stream.
Document LoadOurs(const std::string& path) {
    std::unique_ptr<CStorage> root = CStorage::OpenFile(CString::FromUtf8(path), 0x10);
    Document document;
    for (const CStorageElement& element : root->EnumElements()) {
        CStreamFile stream;
        if (!stream.OpenStream(*root, element.m_strName, 0x10))
            std::abort();
        CArchive archive(&stream, CArchive::load, 4096);
        const std::size_t piece = element.m_strName == u"Contents" ? c_streamSize : element.m_size;
        for (std::size_t done = 0; done < element.m_size; done += piece) {
            std::vector<std::uint8_t> bytes(piece);
            archive.Read(bytes.data(), static_cast<unsigned>(bytes.size()));
            document.push_back(std::move(bytes));
        }
    }
    return document;
}

Document LoadGsf(const std::string& path) {
    GsfInput* input = gsf_input_stdio_new(path.c_str(), nullptr);
    GsfInfile* infile = gsf_infile_msole_new(input, nullptr);
    g_object_unref(input);
    Document document;
    for (int index = 0; index < gsf_infile_num_children(infile); ++index) {
        GsfInput* child = gsf_infile_child_by_index(infile, index);
        const auto size = static_cast<std::size_t>(gsf_input_size(child));
        const std::size_t piece = std::string(gsf_infile_name_by_index(infile, index)) == "Contents"
                                      ? c_streamSize
                                      : size;
        for (std::size_t done = 0; done < size; done += piece) {
            std::vector<std::uint8_t> bytes(piece);
            gsf_input_read(child, piece, bytes.data());
            document.push_back(std::move(bytes));
        }
        g_object_unref(child);
    }
    g_object_unref(infile);
    return document;
}

void Report(benchmark::State& state, std::pair<double, double> ours, std::pair<double, double> peer,
            double& oursTotal, double& peerTotal) {
    state.SetIterationTime(ours.first);
    oursTotal += ours.first;
    peerTotal += peer.first;
    state.counters["gsf_ms"] =
        benchmark::Counter(peerTotal * 1000, benchmark::Counter::kAvgIterations);
    state.counters["ratio"] = oursTotal / peerTotal;
    state.counters["ours_peak_MB"] = ours.second;
    state.counters["gsf_peak_MB"] = peer.second;
}

void BM_Save(benchmark::State& state) {
    gsf_init();
    const Document& document = SampleDocument();
    const std::string ours = (BenchFolder() / "ours.kdoc").string();
    const std::string theirs = (BenchFolder() / "theirs.kdoc").string();
    double oursTotal = 0, peerTotal = 0;
    for (auto _ : state) {
        const auto peer = Measure([&] { SaveGsf(document, theirs, state.range(0) == 1); });
        const auto mine = Measure([&] { SaveOurs(document, ours, state.range(0) == 1); });
        Report(state, mine, peer, oursTotal, peerTotal);
    }
    state.SetBytesProcessed(state.iterations() * c_streams * static_cast<long>(c_streamSize));
}

void BM_Load(benchmark::State& state) {
    gsf_init();
    const std::string path = (BenchFolder() / "load.kdoc").string();
    SaveGsf(SampleDocument(), path, state.range(0) == 1);
    double oursTotal = 0, peerTotal = 0;
    for (auto _ : state) {
        Document theirs, mine;
        const auto peer = Measure([&] { theirs = LoadGsf(path); });
        theirs.clear();
        theirs.shrink_to_fit();
        const auto ours = Measure([&] { mine = LoadOurs(path); });
        if (mine != SampleDocument())
            state.SkipWithError("the document did not load whole");
        Report(state, ours, peer, oursTotal, peerTotal);
    }
    state.SetBytesProcessed(state.iterations() * c_streams * static_cast<long>(c_streamSize));
}

} // namespace

BENCHMARK(BM_Save)->Arg(0)->Arg(1)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_Load)->Arg(0)->Arg(1)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);
