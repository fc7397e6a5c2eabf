#include "RatioTable.h"

#include <cstdio>
#include <string>

namespace {

const char* const FORMAT = "| %-46s | %-34s | %12s | %12s | %8s | %8s | %-3s |\n";

double Counter(const benchmark::BenchmarkReporter::Run& run, const char* name) {
    return run.counters.at(name).value;
}

bool Has(const benchmark::BenchmarkReporter::Run& run, const char* name) {
    return run.counters.find(name) != run.counters.end();
}

std::string Number(double value, int digits) {
    std::string text(32, '\0');
    text.resize(static_cast<std::size_t>(
        std::snprintf(text.data(), text.size() + 1, "%.*f", digits, value)));
    return text;
}

// Small figures with their decimals, large ones without.
std::string Figure(double value) {
    return Number(value, value < 100 && value > -100 ? 2 : 0);
}

void PrintRow(const benchmark::BenchmarkReporter::Run& run) {
    const std::string& label = run.report_label;
    const std::size_t bar = label.find('|');
    const std::string unit = " " + label.substr(0, bar);
    const double figure = Counter(run, "figure");
    std::string goal;
    std::string met;
    if (Has(run, "at_most")) {
        goal = "<= " + Figure(Counter(run, "at_most"));
        met = figure <= Counter(run, "at_most") ? "yes" : "NO";
    } else if (Has(run, "at_least")) {
        goal = ">= " + Figure(Counter(run, "at_least"));
        met = figure >= Counter(run, "at_least") ? "yes" : "NO";
    }
    std::string what = run.run_name.function_name;
    if (!run.run_name.args.empty()) {
        what += ", " + run.run_name.args;
    }
    std::printf(FORMAT, what.c_str(), label.substr(bar + 1).c_str(),
                (Figure(Counter(run, "ours")) + unit).c_str(),
                (Figure(Counter(run, "theirs")) + unit).c_str(), Figure(figure).c_str(),
                goal.c_str(), met.c_str());
    std::fflush(stdout);
}

}  // namespace

bool TRatioTable::ReportContext(const Context&) {
    std::printf(FORMAT, "what", "against", "ours", "theirs", "ratio", "goal", "met");
    std::printf("|---|---|--:|--:|--:|--:|---|\n");
    return true;
}

void TRatioTable::ReportRuns(const std::vector<Run>& report) {
    for (const Run& run : report) {
        if (run.error_occurred) {
            std::fprintf(stderr, "%s: %s\n", run.benchmark_name().c_str(),
                         run.error_message.c_str());
            m_HasFailed = true;
        } else {
            PrintRow(run);
        }
    }
}
