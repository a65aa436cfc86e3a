#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace bench {

/// Runs the registered benchmarks in random order, several times, and then prints how long
/// `measured` takes in relation to `limit`: the ratio of the medians of their times, and the limit
/// it should keep. A run that fails shows its error and fails the program, as a missed limit does.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    RatioReporter() : ConsoleReporter(OO_None) {}

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.error_occurred) {
                fprintf(stderr, "%s: %s\n", run.benchmark_name().c_str(),
                        run.error_message.c_str());
                isGood = false;
            } else if (run.run_type == Run::RT_Iteration)
                times[run.benchmark_name()].push_back(run.GetAdjustedRealTime());
        }
    }

    double median(const std::string& name) {
        std::vector<double>& all = times[name];
        if (all.empty())
            return 0;
        std::sort(all.begin(), all.end());
        return all[all.size() / 2];
    }

    /// `measured` against `base`; at most `limit` times its time.
    void printTimes(const std::string& measured, const std::string& base, double limit) {
        const double ratio = median(measured) / median(base);
        printf("%s takes %.3f times as long as %s (%.1f and %.1f ns); limit %.2f: %s\n",
               measured.c_str(), ratio, base.c_str(), median(measured), median(base), limit,
               judged(ratio <= limit));
    }

    /// The same as throughput; at least `limit` times that of `base`.
    void printThroughput(const std::string& measured, const std::string& base, double limit) {
        const double ratio = median(base) / median(measured);
        printf("%s moves %.3f times as much as %s; limit %.2f: %s\n", measured.c_str(), ratio,
               base.c_str(), limit, judged(ratio >= limit));
    }

    /// What the program ends with.
    int status() const { return isGood ? 0 : 1; }

private:
    const char* judged(bool isKept) {
        isGood = isGood && isKept;
        return isKept ? "kept" : "MISSED";
    }

    bool isGood = true;
    std::map<std::string, std::vector<double>> times;
};

/// Runs everything registered, several times in random order unless the command line says
/// otherwise.
inline void runAll(int argc, char** argv, RatioReporter& reporter) {
    std::vector<std::string> arguments{argv[0], "--benchmark_repetitions=15",
                                       "--benchmark_min_time=0.05",
                                       "--benchmark_enable_random_interleaving=true"};
    arguments.insert(arguments.end(), argv + 1, argv + argc);
    std::vector<char*> pointers;
    pointers.reserve(arguments.size());
    for (std::string& argument : arguments)
        pointers.push_back(argument.data());
    int count = static_cast<int>(pointers.size());
    benchmark::Initialize(&count, pointers.data());
    benchmark::RunSpecifiedBenchmarks(&reporter);
}

}  // namespace bench
