// Micro-benchmarks behind the figures of bench/RESULTS.md: the word list at the
// size of the largest text-heavy set and beyond, and the log line formatter.
#include <benchmark/benchmark.h>

#include <cstdarg>
#include <cwchar>
#include <string>
#include <vector>

#include "blob/string_table.h"
#include "support/log_line_format.h"
#include "support/progress_log.h"
#include "support/tracked_memory.h"

namespace {

// Texts shaped like the generated sets': long titles and paths sharing prefixes.
std::vector<std::wstring> MakeTexts(int count) {
    static const wchar_t* const kWords[] = {L"Amber", L"Basalt", L"Cedar",   L"Delta",
                                            L"Ember", L"Fjord",  L"Granite", L"Harbor"};
    std::vector<std::wstring> texts;
    texts.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        std::wstring text = i % 2 == 0 ? L"programs/" : L"";
        text += kWords[i % 8];
        text += L' ';
        text += kWords[(i / 8) % 8];
        text += L" Edition ";
        text += std::to_wstring(i);
        text += i % 2 == 0 ? L"/bin" : L"";
        texts.push_back(text);
    }
    return texts;
}

void Fresh() {
    qk::ResetStringTable();
    qk::ResetTrackedMemory();
}

// Every text offered twice, as the reader does (a new text, then a repeat).
void BM_OfferTexts(benchmark::State& state) {
    const auto texts = MakeTexts(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        state.PauseTiming();
        Fresh();
        state.ResumeTiming();
        for (const auto& text : texts) {
            qk::AddToWordsArray(text.c_str());
        }
        for (const auto& text : texts) {
            qk::AddToWordsArray(text.c_str());
        }
    }
    Fresh();
    state.SetItemsProcessed(state.iterations() * 2 * state.range(0));
}
BENCHMARK(BM_OfferTexts)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

void BM_SortStringTable(benchmark::State& state) {
    const auto texts = MakeTexts(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        state.PauseTiming();
        Fresh();
        // Offered in a scrambled order, so that the sort has work to do.
        for (std::size_t i = 0; i < texts.size(); ++i) {
            qk::AddToWordsArray(texts[(i * 7919) % texts.size()].c_str());
        }
        state.ResumeTiming();
        qk::SortStringTable();
    }
    Fresh();
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_SortStringTable)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

void BM_FindStrings(benchmark::State& state) {
    const auto texts = MakeTexts(static_cast<int>(state.range(0)));
    Fresh();
    for (const auto& text : texts) {
        qk::AddToWordsArray(text.c_str());
    }
    for (auto _ : state) {
        for (const auto& text : texts) {
            benchmark::DoNotOptimize(qk::FindStrings(text.c_str()));
        }
    }
    Fresh();
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_FindStrings)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

bool Quick(wchar_t* out, const wchar_t* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const bool taken = qk::FormatLogLine(out, qk::kLogFormatBound, format, arguments);
    va_end(arguments);
    return taken;
}

int Library(wchar_t* out, const wchar_t* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int written = std::vswprintf(out, qk::kLogFormatBound, format, arguments);
    va_end(arguments);
    return written;
}

// The most frequent log line of a compile, by both formatters.
void BM_FormatLineQuick(benchmark::State& state) {
    std::vector<wchar_t> out(qk::kLogFormatBound);
    for (auto _ : state) {
        benchmark::DoNotOptimize(Quick(out.data(), L"attribute #%d: - %ls/%ls\n", 2, L"Path",
                                       L"programs/AmberDelta/cedar/ember/bin"));
    }
}
BENCHMARK(BM_FormatLineQuick);

void BM_FormatLineLibrary(benchmark::State& state) {
    std::vector<wchar_t> out(qk::kLogFormatBound);
    for (auto _ : state) {
        benchmark::DoNotOptimize(Library(out.data(), L"attribute #%d: - %ls/%ls\n", 2, L"Path",
                                         L"programs/AmberDelta/cedar/ember/bin"));
    }
}
BENCHMARK(BM_FormatLineLibrary);

}  // namespace

BENCHMARK_MAIN();
