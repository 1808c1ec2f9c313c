#include "support/pairs.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <vector>

namespace bench {
namespace {

struct Pair {
    std::string row;
    std::string peer;
    double at_most;
};

std::vector<Pair> pairs;
bool wrong_answers = false;

std::string all_answers(size_t inputs, const std::function<void(size_t)> &call,
                        const std::function<std::string()> &answer) {
    std::string all;
    for (size_t input = 0; input < inputs; ++input) {
        call(input);
        all += answer() + "\n";
    }
    return all;
}

// Collects the times of all repetitions, and prints the table when the last one is in.
class Table : public benchmark::BenchmarkReporter {
  public:
    bool ReportContext(const Context & /*context*/) override { return true; }

    void ReportRuns(const std::vector<Run> &runs) override {
        for (const Run &run : runs) {
            if (run.run_type == Run::RT_Iteration) {
                double ns = run.run_name.time_type.empty() ? run.GetAdjustedCPUTime()
                                                           : run.GetAdjustedRealTime();
                times_[run.run_name.function_name].push_back(ns);
            }
        }
    }

    void Finalize() override {
        std::printf("%-34s %-22s %11s %11s %7s %8s\n", "Row", "Peer", "ours ns", "peer ns", "ratio",
                    "at most");
        for (const Pair &pair : pairs) {
            print(pair);
        }
    }

  private:
    void print(const Pair &pair) {
        double ours = median(pair.row + "/");
        double peer = median(pair.row + "/" + pair.peer);
        if (ours == 0 || peer == 0) {
            return; // left out by a filter
        }
        double ratio = ours / peer;
        std::printf("%-34s %-22s %11.1f %11.1f %7.3f %8.2f  %s\n", pair.row.c_str(),
                    pair.peer.c_str(), ours, peer, ratio, pair.at_most,
                    ratio <= pair.at_most ? "ok" : "OVER");
    }

    double median(const std::string &benchmark) {
        std::vector<double> &times = times_[benchmark];
        if (times.empty()) {
            return 0;
        }
        auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
        std::nth_element(times.begin(), middle, times.end());
        return *middle;
    }

    std::map<std::string, std::vector<double>> times_;
};

} // namespace

Row::Row(const std::string &name, size_t inputs, Clock clock)
    : name_(name), inputs_(inputs), clock_(clock) {}

void Row::take_answers(const Checked &call, const std::function<std::string()> &answer) {
    answers_ = all_answers(inputs_, call, answer);
}

bool Row::check_answers(const std::string &peer, double at_most, const Checked &call,
                        const std::function<std::string()> &answer) {
    std::string theirs = all_answers(inputs_, call, answer);
    if (answers_ != theirs) {
        std::fprintf(stderr, "%s: the answers differ\nours:\n%s%s:\n%s", name_.c_str(),
                     answers_.c_str(), peer.c_str(), theirs.c_str());
        wrong_answers = true;
        return false;
    }
    pairs.push_back({name_, peer, at_most});
    return true;
}

void Row::configure(benchmark::internal::Benchmark *added) const {
    if (clock_ == Clock::kWall) {
        added->UseRealTime();
    }
}

int run(int argc, char **argv) {
    char interleaving[] = "--benchmark_enable_random_interleaving=true";
    char repetitions[] = "--benchmark_repetitions=15";
    char min_time[] = "--benchmark_min_time=0.02";
    // The caller's own arguments come last and so win.
    std::vector<char *> arguments = {argv[0], interleaving, repetitions, min_time};
    arguments.insert(arguments.end(), argv + 1, argv + argc);
    int count = static_cast<int>(arguments.size());
    arguments.push_back(nullptr);

    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) {
        return 1;
    }
    Table table;
    benchmark::RunSpecifiedBenchmarks(&table);
    benchmark::Shutdown();
    return wrong_answers ? 1 : 0;
}

} // namespace bench
