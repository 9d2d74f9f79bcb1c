// bestcpureporter.h: a Google Benchmark console reporter that also keeps, per benchmark, the
// best CPU time per iteration over its repetitions, so that a program can print its ratios
// against a baseline measured in the same run. CPU time because the machines these run on are
// shared: wall time there measures the neighbours as much as this code.
#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

class BestCpuReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type != Run::RT_Iteration || run.error_occurred || run.iterations == 0) {
                continue;
            }
            const double perIteration =
                run.cpu_accumulated_time / static_cast<double>(run.iterations);
            auto [entry, inserted] = m_times.emplace(run.run_name.function_name, perIteration);
            if (!inserted && perIteration < entry->second) entry->second = perIteration;
        }
        ConsoleReporter::ReportRuns(runs);
    }

    // Best CPU seconds per iteration of a benchmark; nullopt when it did not run.
    std::optional<double> Best(const std::string& name) const {
        const auto found = m_times.find(name);
        if (found == m_times.end()) return std::nullopt;
        return found->second;
    }

    // measured / baseline; nullopt when either did not run.
    std::optional<double> Ratio(const std::string& measured, const std::string& baseline) const {
        const std::optional<double> m = Best(measured);
        const std::optional<double> b = Best(baseline);
        if (!m || !b || *b <= 0) return std::nullopt;
        return *m / *b;
    }

private:
    std::map<std::string, double> m_times;
};
