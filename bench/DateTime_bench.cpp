// Cost of reading and writing one date-time as text in each parse mode: the work per cell
// when a column of dates is imported or shown.

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "ncds/ncds.h"

namespace {

using VxTimeUtl::DateTimeFormatter;
using VxTimeUtl::SimpDateTime;

struct Case {
  const char* name;
  DateTimeFormatter formatter;
};

const std::vector<Case>& Cases() {
  static const std::vector<Case> cases{
      {"iso", DateTimeFormatter(VxTimeUtl::eParseISO8601, "")},
      {"day_first", DateTimeFormatter(VxTimeUtl::eParseDayFirst, "")},
      {"month_first", DateTimeFormatter(VxTimeUtl::eParseMonthFirst, "")},
      {"pattern", DateTimeFormatter(VxTimeUtl::eParseFormat, "dd MMM yyyy hh:mm:ss.fff tt")},
  };
  return cases;
}

// A thousand texts of distinct date-times, so that branch predictors see varied input.
std::vector<std::string> Texts(const DateTimeFormatter& formatter) {
  std::vector<std::string> texts;
  for (int i = 0; i < 1000; ++i) {
    const SimpDateTime t(1900 + i % 200, 1 + i % 12, 1 + i % 28, i % 24, i % 60, (i * 7) % 60,
                         (i * 1000) % 1000000);
    texts.push_back(formatter.Format(t));
  }
  return texts;
}

void BM_ParseDateTime(benchmark::State& state) {
  const Case& c = Cases()[static_cast<std::size_t>(state.range(0))];
  state.SetLabel(c.name);
  const std::vector<std::string> texts = Texts(c.formatter);
  std::size_t i = 0;
  for (auto _ : state) {
    SimpDateTime t;
    benchmark::DoNotOptimize(c.formatter.Parse(texts[i].c_str(), t));
    benchmark::DoNotOptimize(t);
    i = i + 1 == texts.size() ? 0 : i + 1;
  }
}
BENCHMARK(BM_ParseDateTime)->DenseRange(0, 3);

void BM_FormatDateTime(benchmark::State& state) {
  const Case& c = Cases()[static_cast<std::size_t>(state.range(0))];
  state.SetLabel(c.name);
  std::vector<SimpDateTime> values;
  for (const std::string& text : Texts(c.formatter)) {
    values.emplace_back();
    c.formatter.Parse(text.c_str(), values.back());
  }
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(c.formatter.Format(values[i]));
    i = i + 1 == values.size() ? 0 : i + 1;
  }
}
BENCHMARK(BM_FormatDateTime)->DenseRange(0, 3);

}  // namespace
