// The one-line report of a benchmark figure, shared by every benchmark so that scripts/bench can
// gather their lines into one table: the figure, the median of its runs, the baseline measured in
// the same run, their ratio, the target and whether it is met.
#pragma once

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

namespace bench {

inline double median(std::vector<double> samples) {
    if (samples.empty()) {
        return 0.0;
    }
    std::sort(samples.begin(), samples.end());
    const size_t mid = samples.size() / 2;
    return samples.size() % 2 == 1 ? samples[mid] : (samples[mid - 1] + samples[mid]) / 2.0;
}

struct Figure {
    std::string name;  // what is measured, with its unit, e.g. "refresh -> next ad (ms)"
    double median = 0.0;
    double baseline = 0.0;
    double ratio = 0.0;  // as the target reads it (ours over the baseline's, time or speed)
    std::string target;  // e.g. "<= 1.5x", ">= 1x", "< 1"
    bool pass = false;
    int runs = 0;
};

// Prints "figure | NAME | MEDIAN | BASELINE | RATIO | TARGET | pass|fail | runs N" on stdout,
// flushed at once so that a slow benchmark shows its figures as they come.
inline void print(const Figure& f) {
    const auto number = [](double value) {
        char text[32];
        std::snprintf(text, sizeof text, value >= 10 || value <= -10 ? "%.1f" : "%.3f", value);
        return std::string(text);
    };
    std::printf("figure | %s | %s | %s | %.3f | %s | %s | runs %d\n", f.name.c_str(),
                number(f.median).c_str(), number(f.baseline).c_str(), f.ratio, f.target.c_str(),
                f.pass ? "pass" : "fail", f.runs);
    std::fflush(stdout);
}

// A figure comparing our runs with the baseline's: it passes when median / baseline stays on the
// good side of `bound` ("<=" for times, where less is better; ">=" for speeds).
inline Figure compared(std::string name, const std::vector<double>& ours,
                       const std::vector<double>& baseline, const char* relation, double bound) {
    Figure f;
    f.name = std::move(name);
    f.median = median(ours);
    f.baseline = median(baseline);
    f.ratio = f.baseline > 0 ? f.median / f.baseline : 0.0;
    char target[32];
    std::snprintf(target, sizeof target, "%s %gx", relation, bound);
    f.target = target;
    const bool lessIsBetter = relation[0] == '<';
    f.pass = !ours.empty() && !baseline.empty() && f.baseline > 0 &&
             (lessIsBetter ? f.ratio <= bound : f.ratio >= bound);
    f.runs = static_cast<int>(std::min(ours.size(), baseline.size()));
    return f;
}

// Times: passes when median / baseline <= `maxRatio`.
inline Figure lowerIsBetter(std::string name, const std::vector<double>& ours,
                            const std::vector<double>& baseline, double maxRatio) {
    return compared(std::move(name), ours, baseline, "<=", maxRatio);
}

// Speeds: passes when median / baseline >= `minRatio`.
inline Figure higherIsBetter(std::string name, const std::vector<double>& ours,
                             const std::vector<double>& baseline, double minRatio) {
    return compared(std::move(name), ours, baseline, ">=", minRatio);
}

}  // namespace bench
