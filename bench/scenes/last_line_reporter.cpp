// SPDX-License-Identifier: GPL-2.0-or-later
#include "last_line_reporter.hpp"

namespace corvane::bench {

void LastLineReporter::ReportRuns(const std::vector<Run> &runs) {
    for (const Run &run : runs) {
        if (run.skipped == benchmark::internal::NotSkipped) {
            operations_[QString::fromStdString(run.run_name.function_name)] =
                QJsonObject{{"us", run.GetAdjustedRealTime()},
                    {"iterations", static_cast<qint64>(run.iterations)}};
        }
    }
}

} // namespace corvane::bench
