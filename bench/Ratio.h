#pragma once

#include <algorithm>
#include <array>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <time.h>
#include <vector>

namespace OrvelBench {

/// The cost against a baseline measured in the same run. `ratio` and `difference` are medians over
/// all pairs of measurements, not computed from the other two.
struct Comparison {
    double figure = 0.0;
    double baseline = 0.0;
    double ratio = 1.0;      ///< figure / baseline
    double difference = 0.0; ///< figure - baseline
};

/// The target of a comparison. `limit` of a difference is in the row's unit.
struct Aim {
    enum class Of { Nothing, Ratio, Difference };
    Of of = Of::Nothing;
    double limit = 0.0;
};

/// The format of a row's values: multiplied by `scale`, with the unit's name.
struct Unit {
    const char* name;
    double scale;
};
constexpr Unit kNanoseconds{"ns", 1e9};
constexpr Unit kMicroseconds{"us", 1e6};
constexpr Unit kMilliseconds{"ms", 1e3};
constexpr Unit kBytes{"B", 1.0};
constexpr Unit kMebibytes{"MiB", 1.0 / (1U << 20U)};
constexpr Unit kTimes{"", 1.0};

inline double median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// Pairs of measurements taken one right after the other, so that other load on the machine affects
/// both.
class Pairs {
public:
    void add(double figure, double baseline) {
        figures_.push_back(figure);
        baselines_.push_back(baseline);
        ratios_.push_back(figure / baseline);
        differences_.push_back(figure - baseline);
    }
    [[nodiscard]] std::size_t size() const { return figures_.size(); }
    [[nodiscard]] Comparison medians() const {
        return {median(figures_), median(baselines_), median(ratios_), median(differences_)};
    }

private:
    std::vector<double> figures_;
    std::vector<double> baselines_;
    std::vector<double> ratios_;
    std::vector<double> differences_;
};

/// Ends the program because a measurement failed. A missed aim is no such failure.
[[noreturn]] inline void fail(const std::string& what) {
    std::fprintf(stderr, "error: %s\n", what.c_str());
    std::exit(EXIT_FAILURE); // NOLINT(concurrency-mt-unsafe): one thread of ours, at its end
}

using Clock = std::chrono::steady_clock;

/// The processor time of this process, of all its threads.
struct ProcessorClock {
    using duration = std::chrono::nanoseconds;
    using time_point = std::chrono::time_point<ProcessorClock, duration>;
    static time_point now() {
        timespec time{};
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
        return time_point(
            std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec));
    }
};

inline double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

/// The frame of a benchmark program: parses the command line, measures, prints the table.
class Report {
public:
    Report(std::string title, int argc, char** argv) : title_(std::move(title)) {
        for (int i = 1; i < argc; ++i) {
            if (std::string_view(argv[i]) != "--quick") {
                std::fprintf(
                    stderr, "error: unknown argument \"%s\"\nusage: %s [--quick]\n", argv[i],
                    argv[0]);
                std::exit(2); // NOLINT(concurrency-mt-unsafe): before anything else has started
            }
            quick_ = true;
        }
    }

    /// True to spend only a few milliseconds per figure, which shows that the program works but
    /// measures nothing useful.
    [[nodiscard]] bool quick() const { return quick_; }

    /// The time for the pairs of one comparison, in seconds.
    [[nodiscard]] double budget() const { return quick_ ? 0.002 : 1.5; }

    /// Seconds per operation. Each call of `figure` and `baseline` performs `operations` of them.
    /// `Time` is the clock: time passed, or ProcessorClock for figures in shares of a core.
    template <class Time = Clock, class Figure, class Baseline>
    Comparison compare(double operations, Figure&& figure, Baseline&& baseline) const {
        const long calls = std::max(callsPerBatch(figure), callsPerBatch(baseline));
        const double perOperation = 1.0 / (operations * static_cast<double>(calls));
        Pairs pairs;
        const auto start = Clock::now();
        while (pairs.size() < kMinPairs || secondsSince(start) < budget()) {
            // The order alternates, so that neither gains from it.
            if (pairs.size() % 2 == 0) {
                const double a = secondsFor<Time>(figure, calls);
                const double b = secondsFor<Time>(baseline, calls);
                pairs.add(a * perOperation, b * perOperation);
            } else {
                const double b = secondsFor<Time>(baseline, calls);
                const double a = secondsFor<Time>(figure, calls);
                pairs.add(a * perOperation, b * perOperation);
            }
        }
        return pairs.medians();
    }

    void row(const std::string& name, const Comparison& values, Unit unit, Aim aim = {}) {
        const auto shown = [unit](double value, bool sign = false) {
            return number(value * unit.scale, unit.name, 2, sign);
        };
        Row row{
            name,
            shown(values.figure),
            shown(values.baseline),
            shown(values.difference, true),
            number(values.ratio, "", 3),
            "-",
            "-"};
        if (aim.of == Aim::Of::Ratio) {
            row.aim = "ratio <= " + number(aim.limit, "", 2);
            row.verdict = verdict(values.ratio <= aim.limit);
        } else if (aim.of == Aim::Of::Difference) {
            row.aim = "diff. <= " + number(aim.limit, unit.name, 0);
            row.verdict = verdict(values.difference * unit.scale <= aim.limit);
        }
        rows_.push_back(std::move(row));
    }

    /// A figure without a baseline; the limit is in its unit.
    void figure(const std::string& name, double value, Unit unit, double limit) {
        rows_.push_back({name, number(value * unit.scale, unit.name, 2), "-", "-", "-", "", ""});
        this->limit(value, unit, limit);
    }

    /// Sets an aim for the figure of the last row, which has none; the figure was `value`.
    void limit(double value, Unit unit, double limit) {
        rows_.back().aim = "figure <= " + number(limit, unit.name, 0);
        rows_.back().verdict = verdict(value * unit.scale <= limit);
    }

    /// Prints the table. Returns the exit code: 0, since a time must not fail a build.
    int finish() const {
        const benchmark::CPUInfo& cpu = benchmark::CPUInfo::Get();
        std::printf(
            "%s\n%d cores at %.0f MHz%s%s\n\n", title_.c_str(), cpu.num_cpus,
            cpu.cycles_per_second / 1e6,
            cpu.scaling == benchmark::CPUInfo::ENABLED ? ", frequency scaling on" : "",
            quick_ ? "\nQuick run: the figures below mean nothing." : "");
        print({"", "figure", "baseline", "difference", "ratio", "aim", "met"});
        for (const Row& row : rows_) {
            print(row);
        }
        if (missed_ > 0) {
            std::printf("\n%d of the aims MISSED\n", missed_);
        }
        std::printf("\n");
        return EXIT_SUCCESS;
    }

private:
    struct Row {
        std::string name, figure, baseline, difference, ratio, aim, verdict;
    };

    static constexpr std::size_t kMinPairs = 5;

    /// Long enough that the cost of reading the clock is negligible.
    [[nodiscard]] double batchSeconds() const { return quick_ ? 20e-6 : 500e-6; }

    template <class Time, class Work>
    static double secondsFor(Work& work, long calls) {
        const auto start = Time::now();
        for (long i = 0; i < calls; ++i) {
            work();
        }
        return std::chrono::duration<double>(Time::now() - start).count();
    }

    template <class Work>
    long callsPerBatch(Work& work) const {
        long calls = 1;
        while (secondsFor<Clock>(work, calls) < batchSeconds()) {
            calls *= 2;
        }
        return calls;
    }

    /// The given number of decimals, but none from 1000 on; `sign` adds a plus sign.
    static std::string number(double value, const char* unit, int decimals, bool sign = false) {
        std::array<char, 64> text{};
        std::snprintf(
            text.data(), text.size(), sign ? "%+.*f%s%s" : "%.*f%s%s",
            std::abs(value) < 1000.0 ? decimals : 0, value, *unit == 0 ? "" : " ", unit);
        return text.data();
    }

    std::string verdict(bool met) {
        missed_ += met ? 0 : 1;
        return met ? "yes" : "MISSED";
    }

    static void print(const Row& row) {
        std::printf(
            "%-38s %13s %13s %13s %7s  %-16s %s\n", row.name.c_str(), row.figure.c_str(),
            row.baseline.c_str(), row.difference.c_str(), row.ratio.c_str(), row.aim.c_str(),
            row.verdict.c_str());
    }

    std::string title_;
    bool quick_ = false;
    int missed_ = 0;
    std::vector<Row> rows_;
};

} // namespace OrvelBench
