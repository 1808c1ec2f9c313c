// Benchmarks in pairs: a function of ours against the peer that hosts would call otherwise. Both
// must give the same answers before anything is timed; their runs are interleaved, so that a busy
// machine slows both; and the ratio of the medians stands beside the ratio that we promise.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <type_traits>

#include <benchmark/benchmark.h>

namespace bench {

// What is measured: the processor's time, or the wall clock's where a row waits for somebody else.
enum class Clock { kProcessor, kWall };

// One row of the table, or one for each peer:
//     bench::Row row("MAC parse", kTexts);
//     row.ours([](size_t i) { mac_aton(mac, texts[i]); }, [] { return as_text(mac); });
//     row.peer("ether_aton_r", 0.45, [](size_t i) { ... }, [] { ... });
// The first function is timed; its argument walks over the row's inputs, 0 to `inputs` - 1. The
// second then gives the answer, in a form that is the same for both sides.
class Row {
  public:
    explicit Row(const std::string &name, size_t inputs = 1, Clock clock = Clock::kProcessor);
    Row(const Row &) = delete;
    Row &operator=(const Row &) = delete;

    template <typename Call>
    void ours(Call call, const std::function<std::string()> &answer) {
        take_answers(call, answer);
        add_benchmark("", call);
    }

    // `at_most` is the ratio ours / peer to reach.
    template <typename Call>
    void peer(const std::string &name, double at_most, Call call,
              const std::function<std::string()> &answer) {
        if (check_answers(name, at_most, call, answer)) {
            add_benchmark(name, call);
        }
    }

  private:
    using Checked = std::function<void(size_t)>;

    void take_answers(const Checked &call, const std::function<std::string()> &answer);
    bool check_answers(const std::string &peer, double at_most, const Checked &call,
                       const std::function<std::string()> &answer);
    void configure(benchmark::internal::Benchmark *added) const;

    // The timed function is a template argument all the way down, so that nothing but it is timed.
    template <typename Call>
    void add_benchmark(const std::string &peer, Call call) const {
        size_t inputs = inputs_;
        auto loop = [call, inputs](benchmark::State &state) {
            size_t input = 0;
            for ([[maybe_unused]] auto _ : state) {
                call(input);
                benchmark::ClobberMemory();
                input = input + 1 == inputs ? 0 : input + 1;
            }
        };
        configure(benchmark::RegisterBenchmark((name_ + "/" + peer).c_str(), loop));
    }

    std::string name_;
    size_t inputs_;
    Clock clock_;
    std::string answers_;
};

// Each program declares its rows here, sandbox and fixtures included.
void declare_rows();

// Times the rows and prints the table; the exit status: 1 for a wrong answer, however slow or fast.
int run(int argc, char **argv);

} // namespace bench
