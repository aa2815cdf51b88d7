// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <benchmark/benchmark.h>

#include <QJsonObject>

#include <vector>

namespace corvane::bench {

// Keeps what the benchmarks gave, for a program that prints it as its last line.
class LastLineReporter : public benchmark::BenchmarkReporter {
public:
    // Benchmark → "us" and "iterations". A benchmark that broke off is missing.
    const QJsonObject &operations() const { return operations_; }

private:
    bool ReportContext(const Context &) override { return true; }
    void ReportRuns(const std::vector<Run> &runs) override;

    QJsonObject operations_;
};

} // namespace corvane::bench
