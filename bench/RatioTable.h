#ifndef RATIO_TABLE_H
#define RATIO_TABLE_H

#include <benchmark/benchmark.h>

// Prints each row as it comes, as a table that can be read on a terminal and put into a document.
class TRatioTable : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context& context) override;
    void ReportRuns(const std::vector<Run>& report) override;

    bool HasFailed() const { return m_HasFailed; }

private:
    bool m_HasFailed = false;
};

#endif
